// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Formatter.h>

namespace Talvo {

string TJsonFormatter::Separator() {
  return {};
}
string TJsonFormatter::BeginObjectIndent() {
  return {};
}
string TJsonFormatter::EndObjectIndent() {
  return {};
}
string TJsonFormatter::ObjectEntryIndent() {
  return {};
}
string TJsonFormatter::BeginArrayIndent() {
  return BeginObjectIndent();
}
string TJsonFormatter::EndArrayIndent() {
  return EndObjectIndent();
}
string TJsonFormatter::ArrayEntryIndent() {
  return ObjectEntryIndent();
}

TJsonIndentedFormatter::TJsonIndentedFormatter(int32_t indentStep) : FIndentStep(indentStep) {
  Assert(indentStep >= 0);
}

string TJsonIndentedFormatter::Separator() {
  return FSpace;
}

string TJsonIndentedFormatter::BeginObjectIndent() {
  FIndentString.append(static_cast<size_t>(FIndentStep), u' ');
  return {};
}

string TJsonIndentedFormatter::EndObjectIndent() {
  const auto step = static_cast<size_t>(FIndentStep);
  FIndentString.resize(FIndentString.size() > step ? FIndentString.size() - step : 0);
  return u"\r\n" + FIndentString;
}

string TJsonIndentedFormatter::ObjectEntryIndent() {
  return u"\r\n" + FIndentString;
}

}  // namespace Talvo
