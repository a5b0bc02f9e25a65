// SPDX-License-Identifier: Apache-2.0
#pragma once
// Decimal digits to doubles.

#include <cstdint>

namespace Talvo::Detail {

/// How far ScaledByTen scales: 5^27 is the last power of five in 64 bits.
inline constexpr int MaxDecimalScale = 27;

/// digits * 10^scale, rounded once to the nearest double, ties to even. For scales from
/// -MaxDecimalScale to MaxDecimalScale.
double ScaledByTen(uint64_t digits, int scale) noexcept;

}  // namespace Talvo::Detail
