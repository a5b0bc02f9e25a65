// SPDX-License-Identifier: Apache-2.0
#pragma once
// Runs of units in the text of a document, a block at a time.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <talvo/runtime/Config.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Talvo::Detail {

template <class TUnit>
constexpr uint32_t CodeOf(TUnit unit) {
  return static_cast<std::make_unsigned_t<TUnit>>(unit);
}

constexpr bool IsAsciiDigit(uint32_t code) {
  return code - '0' < 10;
}

/// Control units, all of them, and the blank.
template <class TUnit>
constexpr bool IsEmpty(TUnit unit) {
  return CodeOf(unit) <= 32;
}

/// Whether a unit is part of a sequence of UTF-8, which makes one character.
template <class TUnit>
constexpr bool IsInSequence(TUnit unit) {
  return sizeof(TUnit) == 1 && CodeOf(unit) >= 0x80;
}

/// Whether a unit stands for itself inside a string.
template <class TUnit>
constexpr bool IsPlain(TUnit unit) {
  return CodeOf(unit) >= 32 && unit != '"' && unit != '\\' && !IsInSequence(unit);
}

/// Whether a unit of a string is written as it stands.
constexpr bool IsClean(char16_t unit) {
  return unit >= 32 && unit <= 127 && unit != '"' && unit != '\\' && unit != '/';
}

#if defined(__SSE2__)

/// 16 bytes of text.
template <class TUnit>
class TUnitBlock {
 public:
  static constexpr int Size = 16 / sizeof(TUnit);

  explicit TUnitBlock(const TUnit* at)
      : FUnits(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at))) {}

  /// How many of the units in two blocks from `at` on are empty, up to the first that is not. Two
  /// at once, as the length of an indent is hard to predict.
  static int EmptyRun(const TUnit* at) {
    const uint64_t first = Bits(TUnitBlock(at).IsAtMost(32));
    const uint64_t second = Bits(TUnitBlock(at + Size).IsAtMost(32));
    return std::countr_one(first | second << 16) / static_cast<int>(sizeof(TUnit));
  }
  /// How many units are plain, up to the first that is not.
  int PlainRun() const {
    __m128i isOther = _mm_or_si128(Is('"'), Is('\\'));
    if constexpr (Size == 16) {
      // As signed numbers, control units and bytes beyond ASCII are below 32.
      isOther = _mm_or_si128(isOther, _mm_cmplt_epi8(FUnits, Each(32)));
    } else {
      isOther = _mm_or_si128(isOther, IsAtMost(31));
    }
    return std::countr_zero(Bits(isOther) | 0x10000) / static_cast<int>(sizeof(TUnit));
  }
  /// How many bytes the units have that nodes start behind, as a sum of two numbers.
  __m128i CountStarts() const {
    const __m128i isOpening = TUnitBlock(_mm_or_si128(FUnits, Each(0x20))).Is('{');
    const __m128i isStart = _mm_or_si128(_mm_or_si128(isOpening, Is(',')), Is(':'));
    const __m128i zero = _mm_setzero_si128();
    return _mm_sad_epu8(_mm_sub_epi8(zero, isStart), zero);
  }
  /// How many units of UTF-16 are clean, up to the first that is not.
  int CleanRun() const {
    // In unsigned numbers, 32 less wraps for those below.
    const __m128i beyond = _mm_subs_epu16(_mm_sub_epi16(FUnits, Each(32)), Each(95));
    const __m128i isInside = TUnitBlock(beyond).Is(0);
    const __m128i isSpecial = _mm_or_si128(_mm_or_si128(Is('"'), Is('\\')), Is('/'));
    return std::countr_one(Bits(_mm_andnot_si128(isSpecial, isInside))) / 2;
  }
  /// How many units of UTF-16 are ASCII, up to the first that is not.
  int AsciiRun() const { return std::countr_one(Bits(IsAtMost(127))) / 2; }
  /// Writes the units of UTF-16, or bytes that are the same where the units are ASCII.
  void StoreTo(char16_t* out) const { WidenTo(out); }
  void StoreTo(char* out) const {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(FUnits, FUnits));
  }
  /// Writes `Size` units of UTF-16.
  void WidenTo(char16_t* out) const {
    const auto place = reinterpret_cast<__m128i*>(out);
    if constexpr (Size == 16) {
      _mm_storeu_si128(place, _mm_unpacklo_epi8(FUnits, _mm_setzero_si128()));
      _mm_storeu_si128(place + 1, _mm_unpackhi_epi8(FUnits, _mm_setzero_si128()));
    } else {
      _mm_storeu_si128(place, FUnits);
    }
  }

 private:
  explicit TUnitBlock(__m128i units) : FUnits(units) {}
  static __m128i Each(char unit) { return Size == 16 ? _mm_set1_epi8(unit) : _mm_set1_epi16(unit); }
  __m128i Is(char unit) const {
    return Size == 16 ? _mm_cmpeq_epi8(FUnits, Each(unit)) : _mm_cmpeq_epi16(FUnits, Each(unit));
  }
  __m128i IsAtMost(char unit) const {
    const __m128i above =
        Size == 16 ? _mm_subs_epu8(FUnits, Each(unit)) : _mm_subs_epu16(FUnits, Each(unit));
    return TUnitBlock(above).Is(0);
  }
  static unsigned Bits(__m128i isTrue) { return static_cast<unsigned>(_mm_movemask_epi8(isTrue)); }

  __m128i FUnits;
};

#else

template <class TUnit>
class TUnitBlock {
 public:
  static constexpr int Size = 8;

  explicit TUnitBlock(const TUnit* at) : FUnits(at) {}
  static int EmptyRun(const TUnit* at) {
    int run = 0;
    while (run < 2 * Size && IsEmpty(at[run])) ++run;
    return run;
  }
  int PlainRun() const {
    int run = 0;
    while (run < Size && IsPlain(FUnits[run])) ++run;
    return run;
  }
  int CleanRun() const {
    int run = 0;
    while (run < Size && IsClean(FUnits[run])) ++run;
    return run;
  }
  int AsciiRun() const {
    int run = 0;
    while (run < Size && FUnits[run] < 0x80) ++run;
    return run;
  }
  template <class TOut>
  void StoreTo(TOut* out) const {
    for (int i = 0; i < Size; ++i) out[i] = static_cast<TOut>(FUnits[i]);
  }
  void WidenTo(char16_t* out) const {
    for (int i = 0; i < Size; ++i) out[i] = static_cast<char16_t>(CodeOf(FUnits[i]));
  }

 private:
  const TUnit* FUnits;
};

#endif

/// How many nodes a text has at most: each starts behind a bracket, a comma or a colon, but for the
/// first.
template <class TUnit>
size_t MostNodes(const TUnit* at, const TUnit* end) {
  size_t count = 1;
#if defined(__SSE2__)
  using TBlock = TUnitBlock<TUnit>;
  __m128i sums = _mm_setzero_si128();
  for (; end - at >= TBlock::Size; at += TBlock::Size) {
    sums = _mm_add_epi64(sums, TBlock(at).CountStarts());
  }
  uint64_t bytes[2];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), sums);
  count += (bytes[0] + bytes[1]) / sizeof(TUnit);
#endif
  for (; at != end; ++at) count += *at == '[' || *at == '{' || *at == ',' || *at == ':';
  return count;
}

/// Eight units as the bytes of one number, the first one lowest. Only digits look like digits.
inline uint64_t EightBytes(const char* at) {
  uint64_t bytes = 0;
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(&bytes, at, sizeof bytes);
  } else {
    for (int i = 0; i < 8; ++i) bytes |= uint64_t{CodeOf(at[i])} << 8 * i;
  }
  return bytes;
}
inline uint64_t EightBytes(const char16_t* at) {
#if defined(__SSE2__)
  const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
  return static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(units, units)));
#else
  uint64_t bytes = 0;
  for (int i = 0; i < 8; ++i) bytes |= uint64_t{std::min(CodeOf(at[i]), 0xFFu)} << 8 * i;
  return bytes;
#endif
}

/// Reads the decimal digits at `at` behind those in `value`, which wraps past 2^64. Returns the
/// place of the first unit that is none.
template <class TUnit>
TALVO_INLINE const TUnit* ReadDigits(const TUnit* at, const TUnit* end, uint64_t& value) {
  static constexpr uint64_t powers[] = {1,      10,      100,      1000,     10000,
                                        100000, 1000000, 10000000, 100000000};
  constexpr uint64_t ones = 0x0101010101010101;
  while (end - at >= 8) {
    const uint64_t digits = EightBytes(at) ^ ones * '0';
    // A byte above 9 carries into its highest bit; so may those behind it.
    const uint64_t others = ((digits + ones * 0x76) | digits) & ones * 0x80;
    const int count = others == 0 ? 8 : std::countr_zero(others) / 8;
    // The digits move up against zeros, and then neighbours join: to two, four, eight digits.
    uint64_t joined = count == 0 ? 0 : digits << (64 - 8 * count);
    joined = (joined * (10 * 0x100 + 1) >> 8) & 0x00FF00FF00FF00FF;
    joined = (joined * (100 * 0x10000 + 1) >> 16) & 0x0000FFFF0000FFFF;
    joined = joined * (10000 * 0x100000000 + 1) >> 32;
    value = value * powers[count] + joined;
    at += count;
    if (count < 8) return at;
  }
  for (; at != end && IsAsciiDigit(CodeOf(*at)); ++at) value = value * 10 + (CodeOf(*at) - '0');
  return at;
}

}  // namespace Talvo::Detail
