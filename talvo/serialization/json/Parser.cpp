// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Parser.h>

#include <utility>
#include <talvo/serialization/json/Files.h>
#include <talvo/serialization/json/Scanner.h>

namespace Talvo {
namespace {

template <class TUnit>
void CheckLength(std::basic_string_view<TUnit> text) {
  if (text.size() > UINT32_MAX) RaiseRangeError();
}

template <class TParse>
TRef<IJsonElement> Raising(TParse&& parse) {
  TRef<IJsonElement> result;
  parse(JsonParser::TOnError(), result);
  return result;
}

}  // namespace

TJsonTextPosition LineAndColumn(u16string_view text, uint32_t position) {
  TJsonTextPosition at{1, 1};
  for (size_t i = 0; i < position && i < text.size(); ++i) {
    const bool isBreak =
        text[i] == '\n' || (text[i] == '\r' && !text.substr(i + 1).starts_with(u'\n'));
    if (isBreak) {
      ++at.Line;
      at.Column = 1;
    } else {
      ++at.Column;
    }
  }
  return at;
}

void JsonParser::Parse(u16string_view text, const TOnError& onError, TRef<IJsonElement>& result) {
  const TRef<IJsonElement> outgoing = std::exchange(result, nullptr);  // `text` may stand in it
  CheckLength(text);
  result = Detail::TJsonScanner<char16_t>(text.data(), text.size(), onError).Scan();
}

TRef<IJsonElement> JsonParser::Parse(u16string_view text) {
  return Raising(
      [&](const TOnError& onError, TRef<IJsonElement>& result) { Parse(text, onError, result); });
}

void JsonParser::ParseUtf8(std::string_view bytes, const TOnError& onError,
                           TRef<IJsonElement>& result) {
  result = nullptr;
  CheckLength(bytes);
  size_t markSize = 0;
  if (bytes.starts_with("\xEF\xBB\xBF")) markSize = 3;
  const std::string_view text = bytes.substr(markSize);
  const size_t malformed = FindMalformedUtf8(text);
  if (malformed != std::string_view::npos) Detail::RaiseMalformedUtf8(markSize + malformed);
  try {
    result = Detail::TJsonScanner<char>(text.data(), text.size(), onError).Scan();
  } catch (const Detail::TJsonNeedsUtf16&) {
    Parse(FromUtf8(text), onError, result);
  }
}

TRef<IJsonElement> JsonParser::ParseUtf8(std::string_view bytes) {
  return Raising([&](const TOnError& onError, TRef<IJsonElement>& result) {
    ParseUtf8(bytes, onError, result);
  });
}

void JsonParser::ParseFile(u16string_view path, const TOnError& onError,
                           TRef<IJsonElement>& result) {
  const TRef<IJsonElement> outgoing = std::exchange(result, nullptr);  // `path` may stand in it
  const std::string bytes = Detail::ReadFileBytes(path);
  if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF")) {
    Parse(Detail::DecodeUtf16File(bytes), onError, result);
  } else {
    ParseUtf8(bytes, onError, result);
  }
}

TRef<IJsonElement> JsonParser::ParseFile(u16string_view path) {
  return Raising([&](const TOnError& onError, TRef<IJsonElement>& result) {
    ParseFile(path, onError, result);
  });
}

}  // namespace Talvo
