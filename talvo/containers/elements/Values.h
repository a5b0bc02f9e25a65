// SPDX-License-Identifier: Apache-2.0
#pragma once
// Plain values and the comparison of their storage.

#include <cstdint>
#include <cstring>
#include <talvo/runtime/Object.h>

namespace Talvo {

/// A stretch of something: where it begins and how long it is.
struct TPosLength {
  int32_t Position = 0;
  int32_t Length = 0;
  friend bool operator==(const TPosLength&, const TPosLength&) = default;
};

/// Compares values by their storage.
class TALVO_API TCompare : public TBasicObject {
 public:
  TCompare() = delete;
  /// Whether both values hold the same bytes, padding included. Of references, strings and arrays
  /// that is the handle and not the content: two references to one object are equal.
  template <class T>
  static bool Equals(const T& left, const T& right) noexcept {
    return std::memcmp(static_cast<const void*>(&left), static_cast<const void*>(&right),
                       sizeof(T)) == 0;
  }
};

}  // namespace Talvo
