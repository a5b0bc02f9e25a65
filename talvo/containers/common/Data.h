// SPDX-License-Identifier: Apache-2.0
#pragma once
// Small helpers on values: wrapping, byte order, the growth rule, the smart pointer.

#include <talvo/runtime/DynamicArray.h>
#include <talvo/runtime/Function.h>

namespace Talvo {

/// The capacity for a wanted size: 64 below 65, else one and a half times the size plus 64.
/// Raises EIntOverflow when that does not fit. Lists, sets and scratch arrays all grow by it.
constexpr int32_t CommonIncreaseCapacity(int32_t size) {
  if (size < 65) return 64;
  return CheckedAdd(CheckedMul(size, 3) / 2, 64);
}

/// Operations on values of one type.
template <class T>
class Data {
 public:
  Data() = delete;
  /// A new array of the `high` + 1 items at `values`; empty when `high` is below 0.
  static TArray<T> Wrap(const T* values, int32_t high) {
    return high < 0 ? TArray<T>() : TArray<T>(values, CheckedAdd(high, 1));
  }
  template <class S>
  requires ContiguousOf<S, T>
  static TArray<T> Wrap(const S& values) {
    return TArray<T>(Detail::DataOf<T>(values), Detail::SizeOf(values));
  }
  static TArray<T> Wrap(std::initializer_list<T> values) { return TArray<T>(values); }
  /// `value`, with its bytes in reverse order when `reverse` is true.
  static T ByteOrder(T value, bool reverse) {
    static_assert(std::is_trivially_copyable_v<T>, "Only plain data has a byte order.");
    if (!reverse) return value;
    auto* bytes = reinterpret_cast<unsigned char*>(&value);
    for (size_t low = 0, high = sizeof(T) - 1; low < high; ++low, --high) {
      std::swap(bytes[low], bytes[high]);
    }
    return value;
  }
};

/// A plain object held by an interface.
template <class T>
class ISmartPointer : public virtual IFunction<T*()> {
  TALVO_INTERFACE(ISmartPointer, IFunction<T*()>);
  /// The object held; null if there is none.
  virtual T* GetValue() const = 0;
  T* Value() const { return GetValue(); }
};

/// The root of smart pointers, for code that names none of their types.
template <class T = void>
class TSmartPointer;
template <>
class TSmartPointer<void> : public TBasicObject {};

/// Owns an uncounted object: it is freed with the last reference to this one.
template <class T>
class TSmartPointer final : public TImplements<TBasicInterfacedObject, ISmartPointer<T>> {
 public:
  explicit TSmartPointer(TOwn<T> value) noexcept : FValue(std::move(value)) {}
  static TRef<TSmartPointer> CreateObject(TOwn<T> value) {
    return Create<TSmartPointer>(std::move(value));
  }
  static TRef<ISmartPointer<T>> Make(TOwn<T> value) { return CreateObject(std::move(value)); }
  T* Invoke() override { return FValue.Get(); }
  T* GetValue() const override { return FValue.Get(); }

 private:
  TOwn<T> FValue;
};

}  // namespace Talvo
