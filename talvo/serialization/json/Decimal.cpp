// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Decimal.h>

#include <bit>

namespace Talvo::Detail {
namespace {

__extension__ typedef unsigned __int128 TWide;

struct TPowersOfFive {
  uint64_t Power[MaxDecimalScale + 1];
  uint64_t Divisor[MaxDecimalScale + 1];     // the same, shifted up to the highest bit
  uint64_t Reciprocal[MaxDecimalScale + 1];  // 2^127 over the divisor, cut off
  constexpr TPowersOfFive() : Power(), Divisor(), Reciprocal() {
    uint64_t power = 1;
    for (int i = 0; i <= MaxDecimalScale; ++i, power *= 5) {
      Power[i] = power;
      Divisor[i] = power << std::countl_zero(power);
      Reciprocal[i] = static_cast<uint64_t>((TWide{1} << 127) / Divisor[i]);
    }
  }
};
constexpr TPowersOfFive Five;

double PowerOfTwo(int exponent) {
  return std::bit_cast<double>(static_cast<uint64_t>(1023 + exponent) << 52);
}

/// bits * 2^exponent. The conversion rounds, and scaling by a power of two is exact. The lowest of
/// 60 bits and more is far below the last that a double keeps: set, it stands for all that is left
/// of the number, and breaks ties.
double Round(int64_t bits, bool hasMore, int exponent) {
  return static_cast<double>(bits | static_cast<int64_t>(hasMore)) * PowerOfTwo(exponent);
}

double Multiply(uint64_t digits, int scale) {
  const TWide product = TWide{digits} * Five.Power[scale];
  const auto high = static_cast<uint64_t>(product >> 63);
  if (high == 0) return Round(static_cast<int64_t>(product), /*hasMore*/ false, scale);
  const int shift = 64 - std::countl_zero(high);
  const bool hasMore = static_cast<uint64_t>(product << (64 - shift)) != 0;
  return Round(static_cast<int64_t>(product >> shift), hasMore, scale + shift);
}

double Divide(uint64_t digits, int scale) {
  const int shift = std::countl_zero(digits);
  const uint64_t shifted = digits << shift;
  const int exponent = std::countl_zero(Five.Power[scale]) - shift - 62 - scale;
  // 62 or 63 bits of quotient, less than 2 too small: as good as exact when that makes no
  // difference to the double.
  const auto low = static_cast<int64_t>(TWide{shifted} * Five.Reciprocal[scale] >> 65);
  if (static_cast<double>(low) == static_cast<double>(low + 2)) {
    return Round(low, /*hasMore*/ false, exponent);
  }
  const TWide dividend = TWide{shifted} << 62;
  const auto quotient = static_cast<uint64_t>(dividend / Five.Divisor[scale]);
  const bool hasMore = TWide{quotient} * Five.Divisor[scale] != dividend;
  return Round(static_cast<int64_t>(quotient), hasMore, exponent);
}

}  // namespace

// 10^n is 5^n * 2^n, and only the power of five costs digits.
double ScaledByTen(uint64_t digits, int scale) noexcept {
  if (digits == 0) return 0;
  return scale >= 0 ? Multiply(digits, scale) : Divide(digits, -scale);
}

}  // namespace Talvo::Detail
