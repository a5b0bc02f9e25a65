// SPDX-License-Identifier: Apache-2.0
#pragma once
// Which characters are decimal digits in any script. The table is made by
// tools/make_unicode_digits.

#include <talvo/runtime/Config.h>

namespace Talvo {

namespace Detail {
TALVO_API bool IsDigitBeyondAscii(char32_t point) noexcept;
}  // namespace Detail

/// True for code points of the general category "decimal number" (Nd), on any plane. A UTF-16 unit
/// taken alone can only be one of the basic plane: join surrogates to a code point first.
inline bool IsUnicodeDecimalDigit(char32_t point) noexcept {
  return point < 0x80 ? point - U'0' < 10 : Detail::IsDigitBeyondAscii(point);
}

}  // namespace Talvo
