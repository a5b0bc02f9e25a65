// SPDX-License-Identifier: Apache-2.0
#pragma once
// Arithmetic on counts and indexes that raises EIntOverflow and never wraps.

#include <talvo/runtime/Raise.h>

namespace Talvo {

/// left + right. Raises EIntOverflow when the sum does not fit.
template <class N>
constexpr N CheckedAdd(N left, N right) {
  N sum;
  if (__builtin_add_overflow(left, right, &sum)) [[unlikely]]
    RaiseIntOverflow();
  return sum;
}

/// left - right. Raises EIntOverflow when the difference does not fit.
template <class N>
constexpr N CheckedSub(N left, N right) {
  N difference;
  if (__builtin_sub_overflow(left, right, &difference)) [[unlikely]]
    RaiseIntOverflow();
  return difference;
}

/// left * right. Raises EIntOverflow when the product does not fit.
template <class N>
constexpr N CheckedMul(N left, N right) {
  N product;
  if (__builtin_mul_overflow(left, right, &product)) [[unlikely]]
    RaiseIntOverflow();
  return product;
}

/// Counts `value` up by one. Raises EIntOverflow and leaves it as it was at the type's end.
template <class N>
constexpr void CheckedInc(N& value) {
  value = CheckedAdd(value, N{1});
}

/// Counts `value` down by one. Raises EIntOverflow and leaves it as it was at the type's end.
template <class N>
constexpr void CheckedDec(N& value) {
  value = CheckedSub(value, N{1});
}

}  // namespace Talvo
