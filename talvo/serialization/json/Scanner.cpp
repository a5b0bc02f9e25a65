// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Scanner.h>

#include <algorithm>

namespace Talvo::Detail {

template <class TUnit>
void TJsonScanner<TUnit>::Error(TJsonParserError code, u16string_view message) {
  if (!FOnError) throw EJsonException(code, message);
  if constexpr (IsUtf8) {
    throw TJsonNeedsUtf16();
  } else {
    if (FText.empty()) KeepText();
    FOnError(FText, static_cast<uint32_t>(FElement - FStart), code, string(message));
  }
}

/// Goes on in a copy of the text: the callback may change what was given.
template <class TUnit>
void TJsonScanner<TUnit>::KeepText() {
  if constexpr (!IsUtf8) {
    FText.assign(FStart, FEnd);
    FElement = FText.data() + (FElement - FStart);
    FStart = FText.data();
    FEnd = FStart + FText.size();
  }
}

/// Makes room for `count` more items, and for what the rest of the text will take if it goes on
/// like this. No text has more items than units.
template <class TUnit>
template <class E>
void TJsonScanner<TUnit>::Grow(TTapeBuffer<E>& buffer, size_t count) {
  constexpr size_t first = 1024, mostTimes = 16;
  const auto length = static_cast<size_t>(FEnd - FStart);
  const size_t least = CheckedAdd(buffer.Count(), count);
  if (buffer.Count() == 0) return buffer.Resize(least + std::min(length / 4, first));
  const double part = static_cast<double>(FElement - FStart + 1) / static_cast<double>(length);
  const double expected = static_cast<double>(least) / std::clamp(part, 1.0 / mostTimes, 0.9);
  buffer.Resize(count + std::min(static_cast<size_t>(expected * 1.1), length));
}

template <class TUnit>
TALVO_INLINE void TJsonScanner<TUnit>::SkipEmpty() noexcept {
  const TUnit* at = FElement;
  if (at == FEnd || !IsEmpty(*at)) return;
  if (at + 1 != FEnd && !IsEmpty(at[1])) {
    ++FElement;
    return;
  }
  SkipRun();
}

template <class TUnit>
void TJsonScanner<TUnit>::SkipRun() noexcept {
  constexpr int step = TUnitBlock<TUnit>::Size * 2;
  const TUnit* at = FElement;
  while (FEnd - at >= step) {
    const int run = TUnitBlock<TUnit>::EmptyRun(at);
    at += run;
    if (run < step) {
      FElement = at;
      return;
    }
  }
  while (at != FEnd && IsEmpty(*at)) ++at;
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

template <class TUnit>
TRef<IJsonElement> TJsonScanner<TUnit>::Scan() {
  SkipEmpty();
  if (FElement == FEnd) return TObjectJsonElement::Make();
  // A text that looks as if it had more is text, in strings; then the nodes have to grow.
  FNodes.Resize(std::min(MostNodes(FElement, FEnd), static_cast<size_t>(FEnd - FElement) / 4 + 8));
  TOutcome outcome = ParseValue();
  while (FOpenNode != NoNode) {
    const bool isObject = FNodes[FOpenNode].Kind == TJsonKind::Object;
    if (outcome == TOutcome::Opened || EndMember(outcome)) {
      outcome = isObject ? ParseMember() : ParseValue();
    } else {
      Advance();
      Close();
      outcome = TOutcome::Complete;
    }
  }
  if (outcome == TOutcome::Failed) return nullptr;
  FNodes.Trim(/*spare*/ 0);
  FCharacters.Trim(TJsonTape::Padding);
  const TRef<TJsonTape> tape = Create<TJsonTape>();
  tape->Nodes = std::move(FNodes);
  tape->Characters = std::move(FCharacters);
  return NewElement(*tape, 0);
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
      if (Unit() == '-' || IsAsciiDigit(CodeOf(Unit())) || IsDigit()) return ParseNumber();
      Error(TJsonParserError::UnrecognisedObjectElement, u"Unrecognised object element");
      return TOutcome::Failed;
  }
}

/// A key, its colon and the start of its value.
template <class TUnit>
typename TJsonScanner<TUnit>::TOutcome TJsonScanner<TUnit>::ParseMember() {
  for (;;) {
    const size_t node = FNodes.Count();
    if (!ParseString()) return TOutcome::KeyFailed;
    SkipEmpty();
    if (Unit() == ':') break;
    Error(TJsonParserError::ExpectedColon, u"Expected ':'");
    Advance();
    FNodes.SetCount(node);
  }
  Advance();
  return ParseValue();
}

/// Takes the outcome of a value into the open container and looks for the comma behind it. False
/// when the container ends at the cursor.
template <class TUnit>
TALVO_INLINE bool TJsonScanner<TUnit>::EndMember(TOutcome outcome) {
  TTapeNode& container = FNodes[FOpenNode];
  const bool isObject = container.Kind == TJsonKind::Object;
  if (outcome == TOutcome::Complete) {
    CheckedInc(container.Length);
  } else if (outcome == TOutcome::Failed && isObject) {
    FNodes.SetCount(FNodes.Count() - 1);
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
  FOpenNode = FNodes.Count();
  AddNode(node);
  Advance();
  SkipEmpty();
  if (Unit() != static_cast<TUnit>(closingUnit)) return TOutcome::Opened;
  Advance();
  Close();
  return TOutcome::Complete;
}

template <class TUnit>
void TJsonScanner<TUnit>::Close() {
  TTapeNode& container = FNodes[FOpenNode];
  const size_t outer = container.Size;
  container.Size = FNodes.Count() - FOpenNode;
  if (outer != NoNode) FNodes[outer].HasObjects |= container.HasObjects;
  FOpenNode = outer;
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

template <class TUnit>
TALVO_INLINE bool TJsonScanner<TUnit>::ParseString() {
  SkipEmpty();
  if (Unit() == '"') return ParseKnownString();
  Error(TJsonParserError::ExpectedQuotationMark, u"Expected '\"'");
  return false;
}

/// The string whose opening quote stands at the cursor, as a node.
template <class TUnit>
TALVO_INLINE bool TJsonScanner<TUnit>::ParseKnownString() {
  Assert(Unit() == '"');
  Advance();
  TTapeNode node(TJsonKind::String);
  node.Offset = FCharacters.Count();
  for (;;) {
    CopyPlainUnits();
    if (Unit() == '"') break;
    if (Unit() == '\\') {
      Advance();
      if (static_cast<std::make_unsigned_t<TUnit>>(Unit()) >= 32) {
        if (ParseEscape()) continue;
        FCharacters.SetCount(node.Offset);
        return false;
      }
      Error(TJsonParserError::InvalidEscapeSymbol, u"Incomplete escape symbol");
    }
    Error(TJsonParserError::ExpectedQuotationMark, u"Expected '\"'");
    break;
  }
  Advance();
  const size_t length = FCharacters.Count() - node.Offset;
  if (length > INT32_MAX) RaiseRangeError();
  node.Length = static_cast<uint32_t>(length);
  AddNode(node);
  return true;
}

/// Appends all units up to a quote, a backslash, a control unit or the end.
template <class TUnit>
TALVO_INLINE void TJsonScanner<TUnit>::CopyPlainUnits() {
  using TBlock = TUnitBlock<TUnit>;
  const TUnit* at = FElement;
  do {
    if (FCharacters.Room() < TBlock::Size) [[unlikely]] {
      FElement = at;
      Grow(FCharacters, TBlock::Size);
    }
    char16_t* out = FCharacters.End();
    int run = 0;
    if (FEnd - at >= TBlock::Size) {
      const TBlock block(at);
      block.WidenTo(out);
      run = block.PlainRun();
    } else {
      for (; run < FEnd - at && IsPlain(at[run]); ++run) out[run] = static_cast<char16_t>(at[run]);
    }
    at += run;
    out += run;
    if constexpr (IsUtf8) {
      // No sequence gives more than two units.
      while (at != FEnd && IsInSequence(*at) && FCharacters.Limit() - out >= 2) {
        at = DecodeUtf8(at, out);
      }
    }
    FCharacters.SetEnd(out);
  } while (at != FEnd && (IsPlain(*at) || IsInSequence(*at)));
  FElement = at;
}

template <class TUnit>
void TJsonScanner<TUnit>::AppendUnit(char16_t unit) {
  if (FCharacters.Room() == 0) Grow(FCharacters, 1);
  FCharacters.AddInRoom(unit);
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
