// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/ClassName.h>

#include <cstdlib>
#include <cxxabi.h>

namespace Talvo {
namespace {

// The part behind the last "::" that stands outside template arguments and parameter lists.
std::string_view WithoutScope(std::string_view name) {
  int depth = 0;
  for (size_t i = name.size(); i > 0; --i) {
    const char c = name[i - 1];
    if (c == '>' || c == ')') ++depth;
    if (c == '<' || c == '(') --depth;
    if (c == ':' && depth == 0) return name.substr(i);
  }
  return name;
}

}  // namespace

string ClassNameOf(const std::type_info& type) {
  int status = 0;
  char* readable = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  string result = FromUtf8(WithoutScope(readable ? readable : type.name()), TSurrogates::Replace);
  std::free(readable);
  return result;
}

}  // namespace Talvo
