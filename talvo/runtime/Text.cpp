// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Text.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <talvo/runtime/Exceptions.h>
#include <talvo/runtime/Numbers.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Talvo {
namespace {

// ASCII goes in blocks. The three functions below are all that knows how wide the machine is.

constexpr int BlockSize = 16;
constexpr char32_t Replacement = 0xFFFD;

#if defined(__SSE2__)

// How many ASCII bytes the block begins with.
TALVO_INLINE int AsciiPrefix(const char* block) {
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block));
  return std::countr_zero(static_cast<uint32_t>(_mm_movemask_epi8(bytes)) | 1u << BlockSize);
}

// Writes the block's bytes as units, whatever they are, and returns its AsciiPrefix.
TALVO_INLINE int WidenBlock(const char* block, char16_t* out) {
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block));
  const __m128i zero = _mm_setzero_si128();
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(bytes, zero));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(bytes, zero));
  return std::countr_zero(static_cast<uint32_t>(_mm_movemask_epi8(bytes)) | 1u << BlockSize);
}

// Writes the block's units as bytes and returns how many ASCII units it begins with; the bytes
// behind those mean nothing.
TALVO_INLINE int NarrowBlock(const char16_t* block, char* out) {
  const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block));
  const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 8));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(low, high));
  const __m128i zero = _mm_setzero_si128();
  const __m128i beyond = _mm_set1_epi16(-0x80);
  const __m128i isAscii = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_and_si128(low, beyond), zero),
                                          _mm_cmpeq_epi16(_mm_and_si128(high, beyond), zero));
  return std::countr_one(static_cast<uint32_t>(_mm_movemask_epi8(isAscii)));
}

#else

TALVO_INLINE int AsciiPrefix(const char* block) {
  uint64_t halves[2];
  std::memcpy(halves, block, sizeof halves);
  if (((halves[0] | halves[1]) & 0x8080808080808080) == 0) return BlockSize;
  int length = 0;
  while (static_cast<signed char>(block[length]) >= 0) ++length;
  return length;
}

TALVO_INLINE int WidenBlock(const char* block, char16_t* out) {
  for (int i = 0; i < BlockSize; ++i) out[i] = static_cast<unsigned char>(block[i]);
  return AsciiPrefix(block);
}

TALVO_INLINE int NarrowBlock(const char16_t* block, char* out) {
  int length = 0;
  for (; length < BlockSize && block[length] < 0x80; ++length) {
    out[length] = static_cast<char>(block[length]);
  }
  return length;
}

#endif

TALVO_INLINE unsigned Byte(const char* at) {
  return static_cast<unsigned char>(*at);
}
bool IsContinuation(unsigned byte) {
  return (byte & 0xC0) == 0x80;
}
bool IsSurrogate(char32_t unit) {
  return (unit & 0xFFFFF800) == 0xD800;
}
bool IsHighSurrogate(char32_t unit) {
  return (unit & 0xFFFFFC00) == 0xD800;
}
bool IsLowSurrogate(char32_t unit) {
  return (unit & 0xFFFFFC00) == 0xDC00;
}

// Validation is a state machine whose whole step is one table look-up and one shift: a state is a
// bit position, and the table's entry for a byte holds the next state of each state there. What
// an entry does not name is Failed, and Failed leads nowhere else.
enum TState : unsigned {
  Failed = 0,
  Start = 6,
  OneLeft = 12,  // continuation bytes that are still to come
  TwoLeft = 18,
  ThreeLeft = 24,
  BehindE0 = 30,  // leads that narrow the range of the byte behind them
  BehindED = 36,
  BehindF0 = 42,
  BehindF4 = 48,
};

constexpr uint64_t Step(TState from, TState to) {
  return uint64_t{to} << from;
}

constexpr uint64_t StepsOf(unsigned byte) {
  if (byte < 0x80) return Step(Start, Start);
  if (byte < 0xC0) {
    return Step(OneLeft, Start) | Step(TwoLeft, OneLeft) | Step(ThreeLeft, TwoLeft) |
           (byte < 0xA0 ? Step(BehindED, OneLeft) : Step(BehindE0, OneLeft)) |
           (byte < 0x90 ? Step(BehindF4, TwoLeft) : Step(BehindF0, TwoLeft));
  }
  if (byte < 0xC2 || byte > 0xF4) return 0;
  if (byte < 0xE0) return Step(Start, OneLeft);
  if (byte < 0xF0) {
    return Step(Start, byte == 0xE0 ? BehindE0 : byte == 0xED ? BehindED : TwoLeft);
  }
  return Step(Start, byte == 0xF0 ? BehindF0 : byte == 0xF4 ? BehindF4 : ThreeLeft);
}

struct TStepTable {
  uint64_t Steps[256];
  constexpr TStepTable() : Steps() {
    for (unsigned byte = 0; byte < 256; ++byte) Steps[byte] = StepsOf(byte);
  }
};
constexpr TStepTable Table;

// The bits above the lowest six are left over from the shift and mean nothing.
TALVO_INLINE uint64_t Next(uint64_t state, const char* at) {
  return Table.Steps[Byte(at)] >> (state & 63);
}
TALVO_INLINE bool Is(uint64_t state, TState which) {
  return (state & 63) == which;
}

struct TSequence {
  int Length;
  bool IsWellFormed;
};

// The sequence at `first`, or what is the maximal subpart of one when it is ill-formed.
TSequence SequenceAt(const char* first, const char* last) {
  uint64_t state = Start;
  for (const char* at = first; at != last; ++at) {
    state = Next(state, at);
    if (Is(state, Start)) return {static_cast<int>(at - first) + 1, true};
    // The byte that fails belongs to the next sequence, unless it is the only one.
    if (Is(state, Failed)) return {at == first ? 1 : static_cast<int>(at - first), false};
  }
  return {static_cast<int>(last - first), false};
}

// The states before `at` were sound and an ill-formed sequence follows. It may have begun before
// `at`, so the search goes back to the lead of the byte there.
const char* LocateMalformed(const char* first, const char* at, const char* last) {
  if (at != first) --at;
  while (at != first && IsContinuation(Byte(at))) --at;
  for (;;) {
    const TSequence sequence = SequenceAt(at, last);
    if (!sequence.IsWellFormed) return at;
    at += sequence.Length;
  }
}

}  // namespace

size_t FindMalformedUtf8(std::string_view bytes) noexcept {
  const char* const first = bytes.data();
  const char* const last = first + bytes.size();
  const char* at = first;
  uint64_t state = Start;
  while (last - at >= BlockSize) {
    if (AsciiPrefix(at) == BlockSize && Is(state, Start)) {
      at += BlockSize;
      continue;
    }
    for (int i = 0; i < BlockSize; ++i) state = Next(state, at + i);
    if (Is(state, Failed)) return static_cast<size_t>(LocateMalformed(first, at, last) - first);
    at += BlockSize;
  }
  const char* const tail = at;
  for (; at != last; ++at) state = Next(state, at);
  if (Is(state, Start)) return std::string_view::npos;
  return static_cast<size_t>(LocateMalformed(first, tail, last) - first);
}

size_t Utf16Length(std::string_view wellFormedUtf8) noexcept {
  constexpr uint64_t ones = 0x0101010101010101;
  const char* at = wellFormedUtf8.data();
  const char* const last = at + wellFormedUtf8.size();
  size_t length = 0;
  // A unit for every byte that is not a continuation, and one more for a lead of four.
  for (; last - at >= 8; at += 8) {
    uint64_t bytes;
    std::memcpy(&bytes, at, sizeof bytes);
    const uint64_t starts = ~(bytes >> 7) | bytes >> 6;
    const uint64_t leadsOfFour = bytes >> 7 & bytes >> 6 & bytes >> 5 & bytes >> 4;
    length += ((starts & ones) + (leadsOfFour & ones)) * ones >> 56;
  }
  for (; at != last; ++at) {
    length += !IsContinuation(Byte(at));
    length += Byte(at) >= 0xF0;
  }
  return length;
}

namespace {

TALVO_INLINE char32_t Bits(const char* continuation) {
  return Byte(continuation) & 0x3F;
}

// The unit of a sequence of three bytes; of a surrogate's too.
TALVO_INLINE char16_t UnitOfThree(const char* at) {
  return static_cast<char16_t>((Byte(at) & 0x0F) << 12 | Bits(at + 1) << 6 | Bits(at + 2));
}

TALVO_INLINE char16_t* WidenFour(const char* at, char16_t* out) {
  const char32_t point =
      (Byte(at) & 0x07) << 18 | Bits(at + 1) << 12 | Bits(at + 2) << 6 | Bits(at + 3);
  out[0] = static_cast<char16_t>(0xD7C0 + (point >> 10));  // 0xD800 less 0x10000 >> 10
  out[1] = static_cast<char16_t>(0xDC00 | (point & 0x3FF));
  return out + 2;
}

TALVO_INLINE void WidenAscii(const char*& first, const char* last, char16_t*& out) {
  int length = BlockSize;
  while (length == BlockSize && last - first >= BlockSize) {
    length = WidenBlock(first, out);
    first += length;
    out += length;
  }
  if (length < BlockSize) return;
  while (first != last && Byte(first) < 0x80) *out++ = static_cast<char16_t>(*first++);
}

}  // namespace

char16_t* WidenUtf8(const char* first, const char* last, char16_t* out) noexcept {
  for (;;) {
    WidenAscii(first, last, out);
    while (first != last && Byte(first) >= 0x80) {
      if (Byte(first) < 0xE0) {
        *out++ = static_cast<char16_t>((Byte(first) & 0x1F) << 6 | Bits(first + 1));
        first += 2;
      } else if (Byte(first) < 0xF0) {
        *out++ = UnitOfThree(first);
        first += 3;
      } else {
        out = WidenFour(first, out);
        first += 4;
      }
    }
    if (first == last) return out;
  }
}

namespace {

[[noreturn]] TALVO_COLD void RaiseEncoding(u16string_view what, size_t offset) {
  throw EEncodingError(string(what) + u" at offset " + UIntToStr(offset), offset);
}

// Conversions pass through a piece on the machine stack, so that the result is written once and
// takes no more room than it needs.
constexpr ptrdiff_t PieceSize = 512;

void AppendWellFormed(string& target, const char* first, const char* last) {
  char16_t piece[PieceSize];
  while (first != last) {
    const char* end = last;
    if (last - first > PieceSize) {
      end = first + PieceSize;
      while (IsContinuation(Byte(end))) --end;
    }
    target.append(piece, static_cast<size_t>(WidenUtf8(first, end, piece) - piece));
    first = end;
  }
}

char* NarrowThree(char32_t point, char* out) {
  out[0] = static_cast<char>(0xE0 | point >> 12);
  out[1] = static_cast<char>(0x80 | (point >> 6 & 0x3F));
  out[2] = static_cast<char>(0x80 | (point & 0x3F));
  return out + 3;
}

char* NarrowPair(char32_t high, char32_t low, char* out) {
  const char32_t point = 0x10000 + ((high & 0x3FF) << 10 | (low & 0x3FF));
  out[0] = static_cast<char>(0xF0 | point >> 18);
  out[1] = static_cast<char>(0x80 | (point >> 12 & 0x3F));
  out[2] = static_cast<char>(0x80 | (point >> 6 & 0x3F));
  out[3] = static_cast<char>(0x80 | (point & 0x3F));
  return out + 4;
}

// Writes at `out`, with room for 3 bytes a unit, and stops at a lone surrogate that is refused.
char* NarrowPiece(const char16_t*& first, const char16_t* last, char* out, TSurrogates surrogates) {
  for (; first != last; ++first) {
    const char32_t unit = *first;
    if (unit < 0x80) {
      *out = static_cast<char>(unit);
      const int length = last - first >= BlockSize ? NarrowBlock(first, out) : 1;
      first += length - 1;
      out += length;
    } else if (unit < 0x800) {
      *out++ = static_cast<char>(0xC0 | unit >> 6);
      *out++ = static_cast<char>(0x80 | (unit & 0x3F));
    } else if (!IsSurrogate(unit)) {
      out = NarrowThree(unit, out);
    } else if (IsHighSurrogate(unit) && last - first > 1 && IsLowSurrogate(first[1])) {
      out = NarrowPair(unit, *++first, out);
    } else if (surrogates == TSurrogates::Refuse) {
      break;
    } else {
      out = NarrowThree(surrogates == TSurrogates::Keep ? unit : Replacement, out);
    }
  }
  return out;
}

bool IsEncodedSurrogate(const char* at, const char* last) {
  return last - at >= 3 && Byte(at) == 0xED && (Byte(at + 1) & 0xE0) == 0xA0 &&
         IsContinuation(Byte(at + 2));
}

}  // namespace

string FromUtf8(std::string_view bytes, TSurrogates surrogates) {
  string result;
  result.reserve(Utf16Length(bytes));
  const char* at = bytes.data();
  const char* const last = at + bytes.size();
  for (;;) {
    const size_t length = FindMalformedUtf8({at, static_cast<size_t>(last - at)});
    const char* const malformed = length == std::string_view::npos ? last : at + length;
    AppendWellFormed(result, at, malformed);
    if (malformed == last) return result;
    if (surrogates == TSurrogates::Replace) {
      result += static_cast<char16_t>(Replacement);
      at = malformed + SequenceAt(malformed, last).Length;
    } else if (surrogates == TSurrogates::Keep && IsEncodedSurrogate(malformed, last)) {
      result += UnitOfThree(malformed);
      at = malformed + 3;
    } else {
      RaiseEncoding(u"Malformed UTF-8", static_cast<size_t>(malformed - bytes.data()));
    }
  }
}

void AppendUtf8(std::string& target, u16string_view text, TSurrogates surrogates) {
  char piece[3 * PieceSize];
  const size_t oldSize = target.size();
  const char16_t* at = text.data();
  const char16_t* const last = at + text.size();
  while (at != last) {
    const char16_t* end = last;
    if (last - at > PieceSize) {
      end = at + PieceSize;
      if (IsHighSurrogate(end[-1])) --end;
    }
    const auto pieceLength = NarrowPiece(at, end, piece, surrogates) - piece;
    if (at != end) {
      target.resize(oldSize);
      RaiseEncoding(u"Lone surrogate", static_cast<size_t>(at - text.data()));
    }
    target.append(piece, static_cast<size_t>(pieceLength));
  }
}

std::string ToUtf8(u16string_view text, TSurrogates surrogates) {
  std::string result;
  result.reserve(text.size());
  AppendUtf8(result, text, surrogates);
  return result;
}

std::ostream& operator<<(std::ostream& out, u16string_view text) {
  const std::string bytes = ToUtf8(text, TSurrogates::Replace);
  // The stream pads by bytes.
  std::streamsize continuations = 0;
  for (const char& byte : bytes) continuations += IsContinuation(Byte(&byte));
  if (out.width() > 0) out.width(out.width() + continuations);
  return out << bytes;
}

std::ostream& operator<<(std::ostream& out, const char16_t* text) {
  return out << u16string_view(text);
}

}  // namespace Talvo
