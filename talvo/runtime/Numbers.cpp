// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Numbers.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <talvo/runtime/Exceptions.h>

namespace Talvo {

char* WriteInteger(char* out, int64_t value) noexcept {
  return std::to_chars(out, out + MaxNumberLength, value).ptr;
}

char* WriteUnsigned(char* out, uint64_t value) noexcept {
  return std::to_chars(out, out + MaxNumberLength, value).ptr;
}

namespace {

constexpr int MaxDigits = 15;

// Digits[0] . Digits[1...] times ten to the Exponent. Room for more digits than there are lets
// them be copied in one move.
struct TDecimal {
  char Digits[MaxNumberLength];
  int Count;
  int Exponent;
};

struct TPowersOfFive {
  uint64_t Power[28];  // 5^27 is the last that fits
  constexpr TPowersOfFive() : Power() {
    uint64_t power = 1;
    for (uint64_t& entry : Power) {
      entry = power;
      power *= 5;
    }
  }
};
constexpr TPowersOfFive Five;

constexpr double PowersOfTen[] = {1E-13, 1E-12, 1E-11, 1E-10, 1E-9, 1E-8, 1E-7, 1E-6, 1E-5, 1E-4,
                                  1E-3,  1E-2,  1E-1,  1E0,   1E1,  1E2,  1E3,  1E4,  1E5,  1E6,
                                  1E7,   1E8,   1E9,   1E10,  1E11, 1E12, 1E13, 1E14, 1E15};
constexpr const double* PowerOfTen = PowersOfTen + 13;  // by exponent

__extension__ typedef unsigned __int128 TWide;

// For 1E-13 <= magnitude < 1E15. The value is mantissa * 2^binary; as 10^n is 5^n * 2^n, its first
// 15 digits come from one product that 128 bits hold, and are rounded exactly, ties to even.
TDecimal RoundCommon(double magnitude) {
  const uint64_t bits = std::bit_cast<uint64_t>(magnitude);
  const uint64_t mantissa = (bits & ((uint64_t{1} << 52) - 1)) | uint64_t{1} << 52;
  const int binary = static_cast<int>(bits >> 52) - 1075;

  TDecimal decimal;
  // The power of ten that 2^(binary + 52) reaches: log10(2) is 78913 / 2^18. What the magnitude
  // has above that can reach one more. A table entry that lies a little off its true power does no
  // harm: the value equal to it comes out as 10^14 or 10^15, the same number.
  decimal.Exponent = (binary + 52) * 78913 >> 18;
  decimal.Exponent += magnitude >= PowerOfTen[decimal.Exponent + 1];
  const int scale = MaxDigits - 1 - decimal.Exponent;
  const TWide product = TWide{mantissa} * Five.Power[scale];
  const int shift = -(binary + scale);
  const TWide half = TWide{1} << (shift - 1);
  uint64_t digits = static_cast<uint64_t>(product >> shift);
  const TWide rest = product & (half * 2 - 1);
  digits += rest > half || (rest == half && digits % 2 != 0);
  const char* const end = WriteUnsigned(decimal.Digits, digits);
  decimal.Exponent += end - decimal.Digits > MaxDigits;  // rounded up to 10^15
  decimal.Count = MaxDigits;
  return decimal;
}

TDecimal RoundAny(double magnitude) {
  char text[MaxNumberLength];  // d.dddddddddddddde-xxx
  const auto [end, error] = std::to_chars(text, text + sizeof text, magnitude,
                                          std::chars_format::scientific, MaxDigits - 1);
  TDecimal decimal;
  decimal.Digits[0] = text[0];
  std::memcpy(decimal.Digits + 1, text + 2, MaxDigits - 1);
  decimal.Count = MaxDigits;
  const char* const sign = text + MaxDigits + 2;
  std::from_chars(sign + 1, end, decimal.Exponent);
  if (*sign == '-') decimal.Exponent = -decimal.Exponent;
  return decimal;
}

TDecimal RoundToMaxDigits(double magnitude) {
  const bool isCommon = magnitude >= 1E-13 && magnitude < 1E15;
  TDecimal decimal = isCommon ? RoundCommon(magnitude) : RoundAny(magnitude);
  while (decimal.Count > 1 && decimal.Digits[decimal.Count - 1] == '0') --decimal.Count;
  return decimal;
}

// These two move a fixed number of bytes, which costs less than the right number. The longest text
// before the last move is "-12345678901234.", and 16 bytes still fit behind that.
char* PutDigits(char* out, const char* digits, int count) {
  std::memcpy(out, digits, 16);
  return out + count;
}

char* PutZeros(char* out, int count) {
  std::memset(out, '0', 16);
  return out + count;
}

char* WriteFixed(char* out, const TDecimal& decimal) {
  if (decimal.Exponent < 0) {
    char* const digits = PutZeros(out, 1 - decimal.Exponent);
    out[1] = '.';
    return PutDigits(digits, decimal.Digits, decimal.Count);
  }
  const int whole = decimal.Exponent + 1;
  PutDigits(out, decimal.Digits, whole);
  if (decimal.Count <= whole) return PutZeros(out + decimal.Count, whole - decimal.Count);
  out[whole] = '.';
  return PutDigits(out + whole + 1, decimal.Digits + whole, decimal.Count - whole);
}

char* WriteScientific(char* out, const TDecimal& decimal) {
  *out++ = decimal.Digits[0];
  if (decimal.Count > 1) {
    *out++ = '.';
    out = PutDigits(out, decimal.Digits + 1, decimal.Count - 1);
  }
  *out++ = 'E';
  return std::to_chars(out, out + 4, decimal.Exponent).ptr;
}

}  // namespace

char* WriteFloat(char* out, double value) noexcept {
  const double magnitude = std::fabs(value);
  if (magnitude < 1E15) {  // whole numbers below have at most 15 digits, and no negative zero
    const int64_t whole = static_cast<int64_t>(value);
    if (static_cast<double>(whole) == value) return WriteInteger(out, whole);
  }
  if (!std::isfinite(value)) {
    const std::string_view name = std::isnan(value) ? "NAN" : value < 0 ? "-INF" : "INF";
    return std::copy(name.begin(), name.end(), out);
  }
  if (value < 0) *out++ = '-';
  const TDecimal decimal = RoundToMaxDigits(magnitude);
  const bool isFixed = decimal.Exponent >= -4 && decimal.Exponent < MaxDigits;
  return isFixed ? WriteFixed(out, decimal) : WriteScientific(out, decimal);
}

string IntToStr(int64_t value) {
  char text[MaxNumberLength];
  return string(text, WriteInteger(text, value));
}

string UIntToStr(uint64_t value) {
  char text[MaxNumberLength];
  return string(text, WriteUnsigned(text, value));
}

string IntToHex(uint64_t value, int32_t digits) {
  string text;
  for (; value != 0 || text.empty(); value >>= 4) text += u"0123456789ABCDEF"[value & 15];
  if (digits > 0 && text.size() < static_cast<size_t>(digits)) {
    text.resize(static_cast<size_t>(digits), u'0');
  }
  std::reverse(text.begin(), text.end());
  return text;
}

string FloatToStr(double value) {
  char text[MaxNumberLength];
  return string(text, WriteFloat(text, value));
}

namespace {

// The digit's value, or more than 9 for any other unit.
template <class C>
unsigned DigitOf(C unit) {
  return static_cast<unsigned>(unit) - '0';
}

// Steps over a sign; true for a minus.
template <class C>
bool TakeSign(const C*& at, const C* last) {
  if (at == last || (*at != '-' && *at != '+')) return false;
  return *at++ == '-';
}

template <class C>
bool ReadMagnitude(const C* at, const C* last, uint64_t& magnitude) {
  if (at == last) return false;
  for (; at != last; ++at) {
    const unsigned digit = DigitOf(*at);
    if (digit > 9 || __builtin_mul_overflow(magnitude, 10u, &magnitude) ||
        __builtin_add_overflow(magnitude, digit, &magnitude)) {
      return false;
    }
  }
  return true;
}

template <class C>
bool ReadSigned(std::basic_string_view<C> text, int64_t& value) {
  value = 0;
  const C* at = text.data();
  const C* const last = at + text.size();
  const uint64_t isNegative = TakeSign(at, last);
  uint64_t magnitude = 0;
  if (!ReadMagnitude(at, last, magnitude)) return false;
  if (magnitude > static_cast<uint64_t>(INT64_MAX) + isNegative) return false;
  value = static_cast<int64_t>(isNegative ? -magnitude : magnitude);
  return true;
}

template <class C>
bool ReadUnsigned(std::basic_string_view<C> text, uint64_t& value) {
  value = 0;
  const C* at = text.data();
  const C* const last = at + text.size();
  const bool isNegative = TakeSign(at, last);
  uint64_t magnitude = 0;
  if (!ReadMagnitude(at, last, magnitude) || (isNegative && magnitude != 0)) return false;
  value = magnitude;
  return true;
}

// The road for every number: brings any spelling to "<digits>e<exponent>" of bounded length.
class TFloatReader {
 public:
  template <class C>
  bool Read(const C* at, const C* last) {
    int64_t count = TakeDigits(at, last, /*exponentStep*/ 0);
    if (at != last && *at == '.') count += TakeDigits(++at, last, /*exponentStep*/ -1);
    if (count == 0) return false;
    return at == last || ((*at == 'e' || *at == 'E') && TakeExponent(at + 1, last));
  }

  bool Convert(double& value) {
    // The number is 0.ddd times ten to this power.
    const int64_t power = FExponent + FCount;
    if (FCount == 0 || power < -330) return true;
    if (power > 310) return false;
    char* end = FText + FCount;
    if (FHasMore) {
      *end++ = '1';
      --FExponent;
    }
    *end++ = 'e';
    end = WriteInteger(end, FExponent);
    double result = 0;
    const std::errc error = std::from_chars(FText, end, result).ec;
    if (error == std::errc::result_out_of_range) return power < 0;
    if (std::isinf(result)) return false;
    value = result;
    return true;
  }

 private:
  // Halfway between two doubles stand numbers of up to 767 digits: of more it only matters
  // whether any is not 0.
  static constexpr int MaxCount = 768;

  template <class C>
  int64_t TakeDigits(const C*& at, const C* last, int exponentStep) {
    const C* const first = at;
    for (; at != last && DigitOf(*at) <= 9; ++at) {
      const char digit = static_cast<char>(*at);
      if (FCount == MaxCount) {
        FHasMore |= digit != '0';
        FExponent += exponentStep + 1;
        continue;
      }
      FExponent += exponentStep;
      if (FCount > 0 || digit != '0') FText[FCount++] = digit;
    }
    return at - first;
  }

  template <class C>
  bool TakeExponent(const C* at, const C* last) {
    constexpr int64_t enough = int64_t{1} << 56;  // more than any text has digits
    const bool isNegative = TakeSign(at, last);
    if (at == last) return false;
    int64_t exponent = 0;
    for (; at != last; ++at) {
      if (DigitOf(*at) > 9) return false;
      if (exponent < enough) exponent = exponent * 10 + DigitOf(*at);
    }
    FExponent += isNegative ? -exponent : exponent;
    return true;
  }

  char FText[MaxCount + 2 + MaxNumberLength];
  int FCount = 0;
  int64_t FExponent = 0;  // ten to this power is the worth of the last digit kept
  bool FHasMore = false;
};

constexpr ptrdiff_t UsualLength = 64;

// The standard conversion, for what it reads alone: numbers of usual length and size.
bool ReadUsualFloat(const char* at, const char* last, double& value) {
  if (last - at > UsualLength || at == last) return false;
  if (DigitOf(*at) > 9 && *at != '.') return false;  // it knows words, too
  const auto [end, error] = std::from_chars(at, last, value);
  return end == last && error == std::errc() && std::isfinite(value);
}

bool ReadUsualFloat(const char16_t* at, const char16_t* last, double& value) {
  if (last - at > UsualLength) return false;
  char narrow[UsualLength] = {};
  char* end = narrow;
  for (; at != last; ++at) *end++ = *at < 0x80 ? static_cast<char>(*at) : '?';
  return ReadUsualFloat(narrow, end, value);
}

template <class C>
bool ReadFloat(std::basic_string_view<C> text, double& value) {
  value = 0;
  const C* at = text.data();
  const C* const last = at + text.size();
  const bool isNegative = TakeSign(at, last);
  if (!ReadUsualFloat(at, last, value)) {
    value = 0;
    TFloatReader reader;
    if (!reader.Read(at, last) || !reader.Convert(value)) return false;
  }
  if (isNegative) value = -value;
  return true;
}

[[noreturn]] TALVO_COLD void RaiseNotValid(u16string_view text, u16string_view kind) {
  throw EConvertError(u"'" + string(text) + u"' is not a valid " + string(kind) + u" value");
}

[[noreturn]] TALVO_COLD void RaiseNotValid(std::string_view text, u16string_view kind) {
  RaiseNotValid(FromUtf8(text, TSurrogates::Replace), kind);
}

}  // namespace

bool TryStrToInt64(u16string_view text, int64_t& value) noexcept {
  return ReadSigned(text, value);
}
bool TryStrToInt64(std::string_view text, int64_t& value) noexcept {
  return ReadSigned(text, value);
}
bool TryStrToUInt64(u16string_view text, uint64_t& value) noexcept {
  return ReadUnsigned(text, value);
}
bool TryStrToUInt64(std::string_view text, uint64_t& value) noexcept {
  return ReadUnsigned(text, value);
}
bool TryStrToFloat(u16string_view text, double& value) noexcept {
  return ReadFloat(text, value);
}
bool TryStrToFloat(std::string_view text, double& value) noexcept {
  return ReadFloat(text, value);
}

int64_t StrToInt64(u16string_view text) {
  int64_t value;
  if (!TryStrToInt64(text, value)) RaiseNotValid(text, u"integer");
  return value;
}

int64_t StrToInt64(std::string_view text) {
  int64_t value;
  if (!TryStrToInt64(text, value)) RaiseNotValid(text, u"integer");
  return value;
}

uint64_t StrToUInt64(u16string_view text) {
  uint64_t value;
  if (!TryStrToUInt64(text, value)) RaiseNotValid(text, u"integer");
  return value;
}

uint64_t StrToUInt64(std::string_view text) {
  uint64_t value;
  if (!TryStrToUInt64(text, value)) RaiseNotValid(text, u"integer");
  return value;
}

double StrToFloat(u16string_view text) {
  double value;
  if (!TryStrToFloat(text, value)) RaiseNotValid(text, u"floating point");
  return value;
}

double StrToFloat(std::string_view text) {
  double value;
  if (!TryStrToFloat(text, value)) RaiseNotValid(text, u"floating point");
  return value;
}

}  // namespace Talvo
