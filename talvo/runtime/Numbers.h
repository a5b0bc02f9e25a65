// SPDX-License-Identifier: Apache-2.0
#pragma once
// Numbers to text and back. No locale can change what these functions write or take.
//
//   string text = FloatToStr(0.1);          // "0.1"
//   double value = StrToFloat(u"1.5E3");    // 1500, or EConvertError

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <talvo/runtime/Config.h>
#include <talvo/runtime/Text.h>

namespace Talvo {

/// The value in decimal, with a minus sign when it is below 0.
TALVO_API string IntToStr(int64_t value);
TALVO_API string UIntToStr(uint64_t value);

/// The value in capital hexadecimal digits, filled up with zeros on the left to at least `digits`.
TALVO_API string IntToHex(uint64_t value, int32_t digits);

/// The value rounded to 15 significant digits without trailing zeros: "3", "0.0001", "-12.5".
/// Below 0.0001 and from 1E15 on with an exponent: "1E-5", "1.5E20". Negative zero is "0"; what is
/// no number is "NAN", "INF" or "-INF".
TALVO_API string FloatToStr(double value);

/// The room that the Write functions want; the longest number is shorter.
inline constexpr size_t MaxNumberLength = 32;

/// These write at `out`, which has room for MaxNumberLength characters, what IntToStr, UIntToStr
/// and FloatToStr return, and return the end of that text. No terminator follows; what stands
/// behind the end, within the room, may be overwritten.
TALVO_API char* WriteInteger(char* out, int64_t value) noexcept;
TALVO_API char* WriteUnsigned(char* out, uint64_t value) noexcept;
TALVO_API char* WriteFloat(char* out, double value) noexcept;

/// Integers from text: an optional sign, then ASCII digits, and nothing else. False, with `value`
/// 0, for any other text and for numbers that do not fit. Texts of `char` are ASCII or UTF-8.
TALVO_API bool TryStrToInt64(u16string_view text, int64_t& value) noexcept;
TALVO_API bool TryStrToInt64(std::string_view text, int64_t& value) noexcept;
TALVO_API bool TryStrToUInt64(u16string_view text, uint64_t& value) noexcept;
TALVO_API bool TryStrToUInt64(std::string_view text, uint64_t& value) noexcept;

/// As above. Raises EConvertError "'abc' is not a valid integer value" in place of false.
TALVO_API int64_t StrToInt64(u16string_view text);
TALVO_API int64_t StrToInt64(std::string_view text);
TALVO_API uint64_t StrToUInt64(u16string_view text);
TALVO_API uint64_t StrToUInt64(std::string_view text);

/// A decimal number from text: an optional sign, ASCII digits with at most one "." among, before
/// or behind them, an optional exponent ("e" or "E", an optional sign, digits), and nothing else.
/// The nearest double; a number too small for one gives a zero of its sign. False, with `value` 0,
/// for any other text and for numbers too large. Time grows with the length only.
TALVO_API bool TryStrToFloat(u16string_view text, double& value) noexcept;
TALVO_API bool TryStrToFloat(std::string_view text, double& value) noexcept;

/// As above. Raises EConvertError "'abc' is not a valid floating point value" in place of false.
TALVO_API double StrToFloat(u16string_view text);
TALVO_API double StrToFloat(std::string_view text);

}  // namespace Talvo
