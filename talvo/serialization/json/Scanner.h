// SPDX-License-Identifier: Apache-2.0
#pragma once
// The parser proper: text of 16-bit units or of well-formed UTF-8 to a tape.

#include <talvo/runtime/Hash.h>
#include <talvo/serialization/json/Parser.h>
#include <talvo/serialization/json/Tape.h>

namespace Talvo::Detail {

/// Stops the scan of UTF-8 at an error that is to be reported: positions and recovery count
/// UTF-16 units, so the text is converted and scanned again.
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

  struct TKeyMark {
    size_t Node;
    uint32_t Hash;
  };

  /// The unit at the cursor; NUL at the end of the text.
  TUnit Unit() const noexcept { return FElement != FEnd ? *FElement : TUnit{0}; }
  void Advance() noexcept {
    if (FElement != FEnd) ++FElement;
  }
  void Error(TJsonParserError code, u16string_view message);
  void SkipEmpty() noexcept;
  bool FollowsText(u16string_view text) noexcept;
  bool SkipText(u16string_view text) noexcept;
  bool IsDigit() const noexcept;

  TOutcome ParseValue();
  TOutcome ParseMember();
  TOutcome ParseNull();
  TOutcome ParseBoolean();
  TOutcome ParseNumber();
  bool ParseString();
  bool ParseKnownString();
  bool ParseEscape();
  void ParseHexadecimal();
  void CopyPlainUnits();
  void AppendUnit(char16_t unit) {
    *FTape->Characters.Room(1) = unit;
    FTape->Characters.SetCount(FTape->Characters.Count() + 1);
  }
  TOutcome AddNode(const TTapeNode& node) {
    FTape->Nodes.Add(node);
    return TOutcome::Complete;
  }

  TOutcome Open(TJsonKind kind, char16_t closingUnit);
  void Close();
  bool EndMember(TOutcome outcome);
  bool HasDuplicateKeys(size_t members);

  struct TNumberText;
  bool SkipDigits(TNumberText& number);
  TTapeNode ConvertNumber(const TNumberText& number);

  const TUnit* FStart;
  const TUnit* FElement;
  const TUnit* FEnd;
  const JsonParser::TOnError& FOnError;
  string FText;  // what the callback is given; made at the first error
  TRef<TJsonTape> FTape = Create<TJsonTape>();
  size_t FOpenNode = NoNode;        // the innermost open container
  TTapeBuffer<TKeyMark> FKeys;      // scratch of HasDuplicateKeys
  TTapeBuffer<uint32_t> FKeyTable;  // scratch of HasDuplicateKeys
};

extern template class TJsonScanner<char16_t>;
extern template class TJsonScanner<char>;

}  // namespace Talvo::Detail
