// SPDX-License-Identifier: Apache-2.0
// The scanner's numbers.

#include <talvo/runtime/Numbers.h>
#include <talvo/runtime/UnicodeDigits.h>
#include <talvo/serialization/json/Decimal.h>
#include <talvo/serialization/json/Scanner.h>

namespace Talvo::Detail {

template <class TUnit>
typename TJsonScanner<TUnit>::TOutcome TJsonScanner<TUnit>::ParseNumber() {
  if (ParsePlainNumber()) return TOutcome::Complete;
  const TUnit* const first = FElement;
  TJsonKind kind = TJsonKind::Unsigned;
  if (Unit() == '-') {
    Advance();
    kind = TJsonKind::Integer;
  }
  if (Unit() == '0') {
    Advance();
  } else if (!SkipDigits()) {
    return TOutcome::Failed;
  }
  if (Unit() == '.') {
    Advance();
    kind = TJsonKind::Double;
    if (!SkipDigits()) return TOutcome::Failed;
  }
  if (Unit() == 'e' || Unit() == 'E') {
    Advance();
    kind = TJsonKind::Double;
    if (Unit() == '+' || Unit() == '-') Advance();
    if (!SkipDigits()) return TOutcome::Failed;
  }
  const std::basic_string_view<TUnit> text(first, static_cast<size_t>(FElement - first));
  TTapeNode node(kind);
  if (kind == TJsonKind::Double) {
    node.Real = StrToFloat(text);
  } else if (kind == TJsonKind::Integer) {
    node.Integer = StrToInt64(text);
  } else {
    node.Unsigned = StrToUInt64(text);
  }
  return AddNode(node);
}

/// Parses numbers as most are: well-formed, and not too long to come out exact here. Leaves all
/// others where they stand.
template <class TUnit>
bool TJsonScanner<TUnit>::ParsePlainNumber() {
  const TUnit* at = FElement;
  const auto unit = [this, &at] { return at != FEnd ? CodeOf(*at) : 0; };
  const bool isNegative = *at == '-';
  at += isNegative;

  uint64_t digits = 0;
  const TUnit* const first = at;
  at = unit() == '0' ? at + 1 : ReadDigits(at, FEnd, digits);
  ptrdiff_t count = at - first;
  if (count == 0) return false;
  TJsonKind kind = isNegative ? TJsonKind::Integer : TJsonKind::Unsigned;
  int64_t scale = 0;
  if (unit() == '.') {
    const TUnit* const fraction = ++at;
    at = ReadDigits(at, FEnd, digits);
    if (at == fraction) return false;
    scale = fraction - at;
    count -= scale;
    kind = TJsonKind::Double;
  }
  if ((unit() | 0x20) == 'e') {
    ++at;
    const bool isBelow = unit() == '-';
    at += isBelow || unit() == '+';
    uint64_t exponent = 0;
    const TUnit* const power = at;
    at = ReadDigits(at, FEnd, exponent);
    if (at == power || at - power > 4) return false;
    scale += isBelow ? -static_cast<int64_t>(exponent) : static_cast<int64_t>(exponent);
    kind = TJsonKind::Double;
  }
  constexpr ptrdiff_t surelyFit = 18;
  // Behind a unit beyond ASCII there may be more of the number.
  if (count > surelyFit || unit() >= 0x80) return false;

  TTapeNode node(kind);
  if (kind == TJsonKind::Double) {
    if (scale < -MaxDecimalScale || scale > MaxDecimalScale) return false;
    const double value = ScaledByTen(digits, static_cast<int>(scale));
    node.Real = isNegative ? -value : value;
  } else {
    node.Integer = isNegative ? -static_cast<int64_t>(digits) : static_cast<int64_t>(digits);
  }
  FElement = at;
  AddNode(node);
  return true;
}

/// Whether a decimal digit of any script stands at the cursor.
template <class TUnit>
bool TJsonScanner<TUnit>::IsDigit() const noexcept {
  if (FElement == FEnd) return false;
  if constexpr (IsUtf8) {
    const uint32_t lead = CodeOf(*FElement);
    if (lead < 0x80) return IsAsciiDigit(lead);
    if (lead >= 0xF0) return false;  // two units in UTF-16, neither of them a digit
    char16_t unit;
    char16_t* out = &unit;
    DecodeUtf8(FElement, out);
    return IsUnicodeDecimalDigit(unit);
  } else {
    return IsUnicodeDecimalDigit(*FElement);
  }
}

template <class TUnit>
bool TJsonScanner<TUnit>::SkipDigits() {
  if (!IsDigit()) {
    Error(TJsonParserError::ExpectedDigit, u"Expected digit");
    return false;
  }
  for (; IsDigit(); ++FElement) {
    if constexpr (IsUtf8) {
      // On to the last byte of the digit.
      while (FElement + 1 != FEnd && (CodeOf(FElement[1]) & 0xC0) == 0x80) ++FElement;
    }
  }
  return true;
}

template TJsonScanner<char16_t>::TOutcome TJsonScanner<char16_t>::ParseNumber();
template TJsonScanner<char>::TOutcome TJsonScanner<char>::ParseNumber();
template bool TJsonScanner<char16_t>::IsDigit() const noexcept;
template bool TJsonScanner<char>::IsDigit() const noexcept;

}  // namespace Talvo::Detail
