// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Scanner.h>

#include <bit>
#include <talvo/runtime/Numbers.h>
#include <talvo/runtime/UnicodeDigits.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Talvo::Detail {
namespace {

constexpr bool IsAsciiDigit(uint32_t unit) {
  return unit - '0' < 10;
}

/// Whether a unit stands for itself inside a string.
template <class TUnit>
constexpr bool IsPlain(TUnit unit) {
  return static_cast<std::make_unsigned_t<TUnit>>(unit) >= 32 && unit != '"' && unit != '\\';
}

#if defined(__SSE2__)
/// How many of the 16 bytes of UTF-8 at `text` are ASCII and plain, up to the first that is not.
inline int PlainRun(__m128i bytes) {
  const __m128i isQuote = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('"'));
  const __m128i isBackslash = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'));
  // As signed numbers, control units and all beyond ASCII are below 32.
  const __m128i isOther = _mm_cmplt_epi8(bytes, _mm_set1_epi8(32));
  const int stops = _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(isQuote, isBackslash), isOther));
  return stops == 0 ? 16 : __builtin_ctz(static_cast<unsigned>(stops));
}
/// The same for the 8 units of UTF-16, all of which may be plain.
inline int PlainRun16(__m128i units) {
  const __m128i isQuote = _mm_cmpeq_epi16(units, _mm_set1_epi16('"'));
  const __m128i isBackslash = _mm_cmpeq_epi16(units, _mm_set1_epi16('\\'));
  const __m128i isControl =
      _mm_cmpeq_epi16(_mm_subs_epu16(units, _mm_set1_epi16(31)), _mm_setzero_si128());
  const int stops = _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(isQuote, isBackslash), isControl));
  return stops == 0 ? 8 : __builtin_ctz(static_cast<unsigned>(stops)) / 2;
}
#endif

/// Decodes one character beyond ASCII of well-formed UTF-8.
const char* DecodeUtf8(const char* at, char16_t*& out) {
  const auto byte = [&](int i) { return static_cast<uint32_t>(static_cast<uint8_t>(at[i])); };
  if (byte(0) < 0xE0) {
    *out++ = static_cast<char16_t>((byte(0) & 0x1F) << 6 | (byte(1) & 0x3F));
    return at + 2;
  }
  if (byte(0) < 0xF0) {
    *out++ =
        static_cast<char16_t>((byte(0) & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F));
    return at + 3;
  }
  const uint32_t code =
      ((byte(0) & 0x07) << 18 | (byte(1) & 0x3F) << 12 | (byte(2) & 0x3F) << 6 | (byte(3) & 0x3F)) -
      0x10000;
  *out++ = static_cast<char16_t>(0xD800 + (code >> 10));
  *out++ = static_cast<char16_t>(0xDC00 + (code & 0x3FF));
  return at + 4;
}

}  // namespace

template <class TUnit>
void TJsonScanner<TUnit>::Error(TJsonParserError code, u16string_view message) {
  if (!FOnError) throw EJsonException(code, message);
  if constexpr (IsUtf8) {
    throw TJsonNeedsUtf16();
  } else {
    if (FText.empty()) FText.assign(FStart, FEnd);
    FOnError(FText, static_cast<uint32_t>(FElement - FStart), code, string(message));
  }
}

template <class TUnit>
void TJsonScanner<TUnit>::SkipEmpty() noexcept {
  using TBits = std::make_unsigned_t<TUnit>;
  const TUnit* at = FElement;
  if (at != FEnd && static_cast<TBits>(*at) > 32) return;
#if defined(__SSE2__)
  constexpr ptrdiff_t step = 16 / sizeof(TUnit);
  while (FEnd - at >= step) {
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const __m128i above = IsUtf8 ? _mm_subs_epu8(units, _mm_set1_epi8(32))
                                 : _mm_subs_epu16(units, _mm_set1_epi16(32));
    const __m128i isEmpty = IsUtf8 ? _mm_cmpeq_epi8(above, _mm_setzero_si128())
                                   : _mm_cmpeq_epi16(above, _mm_setzero_si128());
    const unsigned others = static_cast<unsigned>(_mm_movemask_epi8(isEmpty)) ^ 0xFFFF;
    if (others) {
      FElement = at + __builtin_ctz(others) / sizeof(TUnit);
      return;
    }
    at += step;
  }
#endif
  while (at != FEnd && static_cast<TBits>(*at) <= 32) ++at;
  FElement = at;
}

/// Moves behind `text` if it stands at the cursor.
template <class TUnit>
bool TJsonScanner<TUnit>::FollowsText(u16string_view text) noexcept {
  if (static_cast<size_t>(FEnd - FElement) < text.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (static_cast<char16_t>(FElement[i]) != text[i]) return false;
  }
  FElement += text.size();
  return true;
}

/// Moves behind `text`, or to the first unit that differs from it.
template <class TUnit>
bool TJsonScanner<TUnit>::SkipText(u16string_view text) noexcept {
  for (const char16_t unit : text) {
    if (FElement == FEnd || static_cast<char16_t>(*FElement) != unit) return false;
    ++FElement;
  }
  return true;
}

/// Whether a decimal digit of any script stands at the cursor.
template <class TUnit>
bool TJsonScanner<TUnit>::IsDigit() const noexcept {
  if (FElement == FEnd) return false;
  if constexpr (IsUtf8) {
    const auto lead = static_cast<uint8_t>(*FElement);
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
TRef<IJsonElement> TJsonScanner<TUnit>::Scan() {
  SkipEmpty();
  if (FElement == FEnd) return TObjectJsonElement::Make();
  TOutcome outcome = ParseValue();
  while (FOpenNode != NoNode) {
    const bool isObject = FTape->Nodes[FOpenNode].Kind == TJsonKind::Object;
    if (outcome == TOutcome::Opened || EndMember(outcome)) {
      outcome = isObject ? ParseMember() : ParseValue();
    } else {
      Advance();
      Close();
      outcome = TOutcome::Complete;
    }
  }
  if (outcome == TOutcome::Failed) return nullptr;
  FTape->Nodes.Trim();
  FTape->Characters.Trim();
  return NewElement(FTape, 0);
}

template <class TUnit>
typename TJsonScanner<TUnit>::TOutcome TJsonScanner<TUnit>::ParseValue() {
  SkipEmpty();
  switch (Unit()) {
    case '"':
      return ParseKnownString() ? TOutcome::Complete : TOutcome::Failed;
    case '{':
      return Open(TJsonKind::Object, '}');
    case '[':
      return Open(TJsonKind::Array, ']');
    case ',':
      return AddNode(TTapeNode(TJsonKind::Null));
    case 'n':
      return ParseNull();
    case 't':
    case 'f':
      return ParseBoolean();
    default:
      if (Unit() == '-' || IsDigit()) return ParseNumber();
      Error(TJsonParserError::UnrecognisedObjectElement, u"Unrecognised object element");
      return TOutcome::Failed;
  }
}

/// A key, its colon and the start of its value.
template <class TUnit>
typename TJsonScanner<TUnit>::TOutcome TJsonScanner<TUnit>::ParseMember() {
  for (;;) {
    const size_t node = FTape->Nodes.Count();
    if (!ParseString()) return TOutcome::KeyFailed;
    SkipEmpty();
    if (Unit() == ':') break;
    Error(TJsonParserError::ExpectedColon, u"Expected ':'");
    Advance();
    FTape->Nodes.SetCount(node);
  }
  Advance();
  return ParseValue();
}

/// Takes the outcome of a value into the open container and looks for the comma behind it. False
/// when the container ends at the cursor.
template <class TUnit>
bool TJsonScanner<TUnit>::EndMember(TOutcome outcome) {
  TTapeNode& container = FTape->Nodes[FOpenNode];
  const bool isObject = container.Kind == TJsonKind::Object;
  if (outcome == TOutcome::Complete) {
    CheckedInc(container.Length);
  } else if (outcome == TOutcome::Failed && isObject) {
    FTape->Nodes.SetCount(FTape->Nodes.Count() - 1);
  }
  SkipEmpty();
  const TUnit unit = Unit();
  if (unit == ',') {
    Advance();
    return true;
  }
  if (isObject && unit != '}') {
    Error(TJsonParserError::ExpectedCloseCurlyBracketOrComma, u"Expected '}' or ','");
  } else if (!isObject && unit != ']') {
    Error(TJsonParserError::ExpectedSquareBracketOrComma, u"Expected ']' or ','");
  }
  return false;
}

template <class TUnit>
typename TJsonScanner<TUnit>::TOutcome TJsonScanner<TUnit>::Open(TJsonKind kind,
                                                                 char16_t closingUnit) {
  TTapeNode node(kind);
  node.HasObjects = kind == TJsonKind::Object;
  node.Size = FOpenNode;
  FOpenNode = FTape->Nodes.Count();
  FTape->Nodes.Add(node);
  Advance();
  SkipEmpty();
  if (Unit() != static_cast<TUnit>(closingUnit)) return TOutcome::Opened;
  Advance();
  Close();
  return TOutcome::Complete;
}

template <class TUnit>
void TJsonScanner<TUnit>::Close() {
  TTapeNode& container = FTape->Nodes[FOpenNode];
  const size_t outer = container.Size;
  if (container.Kind == TJsonKind::Object && HasDuplicateKeys(container.Length)) {
    FTape->HasDuplicates = true;
  }
  container.Size = FTape->Nodes.Count() - FOpenNode;
  if (outer != NoNode) FTape->Nodes[outer].HasObjects |= container.HasObjects;
  FOpenNode = outer;
}

/// Whether two of the innermost object's members have one name.
template <class TUnit>
bool TJsonScanner<TUnit>::HasDuplicateKeys(size_t members) {
  if (members < 2) return false;
  FKeys.SetCount(0);
  for (size_t node = FOpenNode + 1; node < FTape->Nodes.Count(); node = FTape->After(node + 1)) {
    const u16string_view key = FTape->Text(FTape->Nodes[node]);
    FKeys.Add({node, static_cast<uint32_t>(HashBytes(key.data(), key.size() * 2))});
  }
  const auto areEqual = [this](const TKeyMark& left, const TKeyMark& right) {
    return left.Hash == right.Hash &&
           FTape->Text(FTape->Nodes[left.Node]) == FTape->Text(FTape->Nodes[right.Node]);
  };
  constexpr size_t few = 8;
  if (members <= few) {
    for (size_t i = 1; i < members; ++i) {
      for (size_t j = 0; j < i; ++j) {
        if (areEqual(FKeys[i], FKeys[j])) return true;
      }
    }
    return false;
  }
  const size_t slots = std::bit_ceil(members * 2);
  FKeyTable.SetCount(0);
  __builtin_memset(FKeyTable.Room(slots), 0, slots * sizeof(uint32_t));
  uint32_t* table = FKeyTable.Data();
  for (size_t i = 0; i < members; ++i) {
    size_t slot = FKeys[i].Hash & (slots - 1);
    for (; table[slot] != 0; slot = (slot + 1) & (slots - 1)) {
      if (areEqual(FKeys[i], FKeys[table[slot] - 1])) return true;
    }
    table[slot] = static_cast<uint32_t>(i + 1);
  }
  return false;
}

template <class TUnit>
typename TJsonScanner<TUnit>::TOutcome TJsonScanner<TUnit>::ParseNull() {
  if (SkipText(u"null")) return AddNode(TTapeNode(TJsonKind::Null));
  Error(TJsonParserError::ExpectedNull, u"Expected null");
  return TOutcome::Failed;
}

template <class TUnit>
typename TJsonScanner<TUnit>::TOutcome TJsonScanner<TUnit>::ParseBoolean() {
  TTapeNode node(TJsonKind::Boolean);
  if (FollowsText(u"true")) {
    node.Boolean = true;
    return AddNode(node);
  }
  if (SkipText(u"false")) return AddNode(node);
  Error(TJsonParserError::ExpectedBooleanConstant, u"Expected boolean constant");
  return TOutcome::Failed;
}

/// A number as far as it was read: its digits as one integer while they fit, and what the point
/// and the exponent do to it.
template <class TUnit>
struct TJsonScanner<TUnit>::TNumberText {
  const TUnit* First;
  const TUnit* End = nullptr;
  uint64_t Digits = 0;
  int64_t DigitCount = 0;  // digits in Digits, from the first that is not 0
  bool IsFloat = false;
  bool IsNegative = false;
  bool IsAscii = true;
};

template <class TUnit>
bool TJsonScanner<TUnit>::SkipDigits(TNumberText& number) {
  if (!IsDigit()) {
    Error(TJsonParserError::ExpectedDigit, u"Expected digit");
    return false;
  }
  const TUnit* at = FElement;
  uint64_t digits = number.Digits;
  for (; at != FEnd && IsAsciiDigit(static_cast<uint32_t>(*at)); ++at) {
    digits = digits * 10 + static_cast<uint64_t>(*at - '0');
    number.DigitCount += digits != 0;
  }
  number.Digits = digits;
  FElement = at;
  while (IsDigit()) {
    number.IsAscii = false;
    ++FElement;
    if constexpr (IsUtf8) {
      while (FElement != FEnd && (*FElement & 0xC0) == 0x80) ++FElement;
    }
    while (FElement != FEnd && IsAsciiDigit(static_cast<uint32_t>(*FElement))) ++FElement;
  }
  return true;
}

template <class TUnit>
typename TJsonScanner<TUnit>::TOutcome TJsonScanner<TUnit>::ParseNumber() {
  TNumberText number{FElement};
  if (Unit() == '-') {
    Advance();
    number.IsNegative = true;
  }
  if (Unit() == '0') {
    Advance();
  } else if (!SkipDigits(number)) {
    return TOutcome::Failed;
  }
  int32_t scale = 0;
  if (Unit() == '.') {
    Advance();
    number.IsFloat = true;
    const TUnit* fraction = FElement;
    if (!SkipDigits(number)) return TOutcome::Failed;
    scale = FElement - fraction > 400 ? -400 : -static_cast<int32_t>(FElement - fraction);
  }
  const bool isPlain = Unit() != 'e' && Unit() != 'E';
  if (!isPlain) {
    Advance();
    number.IsFloat = true;
    if (Unit() == '+' || Unit() == '-') Advance();
    TNumberText exponent{FElement};
    if (!SkipDigits(exponent)) return TOutcome::Failed;
    number.IsAscii &= exponent.IsAscii;
  }
  number.End = FElement;
  // W. Clinger, "How to Read Floating Point Numbers Accurately", 1990: one operation on two
  // exact doubles is rounded once.
  constexpr int32_t maxScale = 22;
  static constexpr double powers[maxScale + 1] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                  1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  if (number.IsFloat && isPlain && number.IsAscii && number.DigitCount <= 15 &&
      scale >= -maxScale) {
    TTapeNode node(TJsonKind::Double);
    const double value = static_cast<double>(number.Digits) / powers[-scale];
    node.Real = number.IsNegative ? -value : value;
    return AddNode(node);
  }
  return AddNode(ConvertNumber(number));
}

template <class TUnit>
TTapeNode TJsonScanner<TUnit>::ConvertNumber(const TNumberText& number) {
  using TView = std::basic_string_view<TUnit>;
  const TView text(number.First, static_cast<size_t>(number.End - number.First));
  if (number.IsFloat) {
    TTapeNode node(TJsonKind::Double);
    node.Real = StrToFloat(text);
    return node;
  }
  constexpr int64_t surelyFits = 18;
  const bool isSmall = number.IsAscii && number.DigitCount <= surelyFits;
  if (number.IsNegative) {
    TTapeNode node(TJsonKind::Integer);
    node.Integer = isSmall ? -static_cast<int64_t>(number.Digits) : StrToInt64(text);
    return node;
  }
  TTapeNode node(TJsonKind::Unsigned);
  node.Unsigned = isSmall ? number.Digits : StrToUInt64(text);
  return node;
}

template <class TUnit>
bool TJsonScanner<TUnit>::ParseString() {
  SkipEmpty();
  if (Unit() == '"') return ParseKnownString();
  Error(TJsonParserError::ExpectedQuotationMark, u"Expected '\"'");
  return false;
}

/// The string whose opening quote stands at the cursor, as a node.
template <class TUnit>
bool TJsonScanner<TUnit>::ParseKnownString() {
  Assert(Unit() == '"');
  Advance();
  TTapeNode node(TJsonKind::String);
  node.Offset = FTape->Characters.Count();
  for (;;) {
    CopyPlainUnits();
    if (Unit() == '"') break;
    if (Unit() == '\\') {
      Advance();
      if (static_cast<std::make_unsigned_t<TUnit>>(Unit()) >= 32) {
        if (ParseEscape()) continue;
        FTape->Characters.SetCount(node.Offset);
        return false;
      }
      Error(TJsonParserError::InvalidEscapeSymbol, u"Incomplete escape symbol");
    }
    Error(TJsonParserError::ExpectedQuotationMark, u"Expected '\"'");
    break;
  }
  Advance();
  const size_t length = FTape->Characters.Count() - node.Offset;
  if (length > INT32_MAX) RaiseRangeError();
  node.Length = static_cast<uint32_t>(length);
  FTape->Nodes.Add(node);
  return true;
}

/// Appends all units up to a quote, a backslash, a control unit or the end.
template <class TUnit>
void TJsonScanner<TUnit>::CopyPlainUnits() {
  TTapeBuffer<char16_t>& characters = FTape->Characters;
  const TUnit* at = FElement;
  constexpr size_t room = 16;
  for (;;) {
    char16_t* out = characters.Room(room);
#if defined(__SSE2__)
    constexpr ptrdiff_t step = 16 / sizeof(TUnit);
    if (FEnd - at >= step) {
      const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
      int run;
      if constexpr (IsUtf8) {
        const __m128i zero = _mm_setzero_si128();
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(units, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(units, zero));
        run = PlainRun(units);
      } else {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), units);
        run = PlainRun16(units);
      }
      at += run;
      out += run;
      characters.SetCount(static_cast<size_t>(out - characters.Data()));
      if (run == step) continue;
      if constexpr (!IsUtf8) break;
    }
#endif
    if constexpr (IsUtf8) {
      // Few characters a turn: none is longer than 4 bytes, nor gives more than 2 units.
      out = characters.Room(room);
      for (size_t i = 0; i < room / 2 && at != FEnd; ++i) {
        if (static_cast<uint8_t>(*at) >= 0x80) {
          at = DecodeUtf8(at, out);
        } else if (IsPlain(*at) && i < 2) {
          *out++ = static_cast<char16_t>(*at++);
        } else {
          break;
        }
      }
      characters.SetCount(static_cast<size_t>(out - characters.Data()));
    } else {
      for (size_t i = 0; i < room && at != FEnd && IsPlain(*at); ++i) {
        *out++ = static_cast<char16_t>(*at++);
      }
      characters.SetCount(static_cast<size_t>(out - characters.Data()));
    }
    if (at == FEnd || !(static_cast<std::make_unsigned_t<TUnit>>(*at) >= 0x80 || IsPlain(*at))) {
      break;
    }
  }
  FElement = at;
}

/// The unit behind a backslash stands at the cursor. False when it is no escape.
template <class TUnit>
bool TJsonScanner<TUnit>::ParseEscape() {
  switch (Unit()) {
    case '"':
    case '/':
    case '\\':
      AppendUnit(static_cast<char16_t>(Unit()));
      break;
    case 'b':
      AppendUnit(8);
      break;
    case 'f':
      AppendUnit(12);
      break;
    case 'n':
      AppendUnit(10);
      break;
    case 'r':
      AppendUnit(13);
      break;
    case 't':
      AppendUnit(9);
      break;
    case 'u':
      ParseHexadecimal();
      return true;
    default:
      Error(TJsonParserError::InvalidEscapeSymbol, u"Invalid escape symbol");
      return false;
  }
  Advance();
  return true;
}

/// Four hexadecimal digits behind the u make one unit. A unit that is none is skipped, and nothing
/// is appended.
template <class TUnit>
void TJsonScanner<TUnit>::ParseHexadecimal() {
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) {
    Advance();
    const auto unit = static_cast<uint32_t>(static_cast<std::make_unsigned_t<TUnit>>(Unit()));
    const uint32_t letter = (unit | 0x20) - 'a';
    if (!IsAsciiDigit(unit) && letter >= 6) {
      Error(TJsonParserError::ExpectedHexDigit, u"Expected hex digit");
      Advance();
      return;
    }
    value = value << 4 | (letter < 6 ? letter + 10 : unit - '0');
  }
  AppendUnit(static_cast<char16_t>(value));
  Advance();
}

template class TJsonScanner<char16_t>;
template class TJsonScanner<char>;

}  // namespace Talvo::Detail
