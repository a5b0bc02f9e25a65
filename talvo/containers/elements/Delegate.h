// SPDX-License-Identifier: Apache-2.0
#pragma once
// Delegate: function objects from plain procedures, and small sets as numbers.

#include <cstring>
#include <talvo/runtime/Function.h>

namespace Talvo {

/// Any thread may call.
class Delegate {
 public:
  Delegate() = delete;

  /// A procedure that is called with `object`, which must live as long as the function object.
  template <class T>
  static TProc<> Proc(void (*procedure)(T*), std::type_identity_t<T>* object) {
    if (!procedure) return nullptr;
    return [procedure, object] { procedure(object); };
  }
  /// The same with a reference, which the function object keeps.
  template <class I>
  static TProc<> Proc(void (*procedure)(const TRef<I>&), std::type_identity_t<TRef<I>> object) {
    if (!procedure) return nullptr;
    return [procedure, object = std::move(object)] { procedure(object); };
  }

  /// Does nothing: a TProc<> where one is demanded and none is needed.
  static void Empty() noexcept {}

  /// A small set from the lowest bytes of a number.
  template <class TSet, class N>
  static TSet IntToSet(N value) noexcept {
    AssertPlainSet<TSet, N>();
    TSet set;
    std::memcpy(&set, &value, sizeof(TSet));
    return set;
  }
  /// The number whose lowest bytes are the set's; those above are 0.
  template <class N = int32_t, class TSet>
  static N SetToInt(const TSet& set) noexcept {
    AssertPlainSet<TSet, N>();
    N value = 0;
    std::memcpy(&value, &set, sizeof(TSet));
    return value;
  }

 private:
  template <class TSet, class N>
  static void AssertPlainSet() {
    static_assert(std::is_integral_v<N>, "A set turns into an integer.");
    static_assert(std::is_trivially_copyable_v<TSet> && sizeof(TSet) <= sizeof(N),
                  "The set must be plain data and no larger than the integer.");
  }
};

}  // namespace Talvo
