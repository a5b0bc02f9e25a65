// SPDX-License-Identifier: Apache-2.0
#pragma once
// The parser proper: text of 16-bit units or of well-formed UTF-8 to a tape.

#include <talvo/serialization/json/Parser.h>
#include <talvo/serialization/json/Tape.h>
#include <talvo/serialization/json/Units.h>

namespace Talvo::Detail {

/// Stops the scan of UTF-8 at an error that is to be reported: positions and recovery count UTF-16
/// units, so the text is converted and scanned again.
struct TJsonNeedsUtf16 {};

template <class TUnit>
class TJsonScanner {
 public:
  static constexpr bool IsUtf8 = sizeof(TUnit) == 1;

  TJsonScanner(const TUnit* text, size_t length, const JsonParser::TOnError& onError)
      : FStart(text), FElement(text), FEnd(text + length), FOnError(onError) {}

  /// Scans the first value; null when it was wrong.
  TRef<IJsonElement> Scan();

 private:
  /// What became of a value or member. A failed key leaves nothing behind; a failed value leaves
  /// its key.
  enum class TOutcome { Complete, Failed, KeyFailed, Opened };
  static constexpr size_t NoNode = ~size_t{0};

  /// The unit at the cursor; NUL at the end of the text.
  TUnit Unit() const noexcept { return FElement != FEnd ? *FElement : TUnit{0}; }
  void Advance() noexcept {
    if (FElement != FEnd) ++FElement;
  }
  void Error(TJsonParserError code, u16string_view message);
  void KeepText();
  void SkipEmpty() noexcept;
  void SkipRun() noexcept;
  bool FollowsText(u16string_view text) noexcept;
  bool SkipText(u16string_view text) noexcept;

  TOutcome ParseValue();
  TOutcome ParseMember();
  TOutcome ParseNull();
  TOutcome ParseBoolean();
  bool ParseString();
  bool ParseKnownString();
  bool ParseEscape();
  void ParseHexadecimal();
  void CopyPlainUnits();
  void AppendUnit(char16_t unit);

  TOutcome Open(TJsonKind kind, char16_t closingUnit);
  void Close();
  bool EndMember(TOutcome outcome);

  // In ScanNumber.cpp.
  TOutcome ParseNumber();
  bool ParsePlainNumber();
  bool IsDigit() const noexcept;
  bool SkipDigits();

  TOutcome AddNode(const TTapeNode& node) {
    if (FNodes.Room() == 0) [[unlikely]]
      Grow(FNodes, 1);
    FNodes.AddInRoom(node);
    return TOutcome::Complete;
  }
  template <class E>
  TALVO_COLD void Grow(TTapeBuffer<E>& buffer, size_t count);

  const TUnit* FStart;
  const TUnit* FElement;
  const TUnit* FEnd;
  const JsonParser::TOnError FOnError;  // kept: the callback may drop the caller's handle
  string FText;                         // what the callback is given; made at the first error
  TTapeBuffer<TTapeNode> FNodes;
  TTapeBuffer<char16_t> FCharacters;
  size_t FOpenNode = NoNode;  // the innermost open container
};

/// Decodes one character beyond ASCII of well-formed UTF-8.
inline const char* DecodeUtf8(const char* at, char16_t*& out) {
  const auto tail = [at](int i) { return CodeOf(at[i]) & 0x3F; };
  const uint32_t lead = CodeOf(*at);
  if (lead < 0xE0) {
    *out++ = static_cast<char16_t>((lead & 0x1F) << 6 | tail(1));
    return at + 2;
  }
  if (lead < 0xF0) {
    *out++ = static_cast<char16_t>(lead << 12 | tail(1) << 6 | tail(2));
    return at + 3;
  }
  const uint32_t code = ((lead & 0x07) << 18 | tail(1) << 12 | tail(2) << 6 | tail(3)) - 0x10000;
  *out++ = static_cast<char16_t>(0xD800 + (code >> 10));
  *out++ = static_cast<char16_t>(0xDC00 + (code & 0x3FF));
  return at + 4;
}

}  // namespace Talvo::Detail
