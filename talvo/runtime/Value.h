// SPDX-License-Identifier: Apache-2.0
#pragma once
// TValue: a value of any type together with the handle of its type.
//
//   TValue v = TValue::From(int32_t{5});
//   int64_t n = v.AsType<int64_t>();      // numbers convert where nothing is lost in range

#include <talvo/runtime/TypeHandle.h>

namespace Talvo {
namespace Detail {

/// A number on its way from one arithmetic type to another.
struct TNumber {
  enum { NoNumber, Signed, Unsigned, Floating } Kind = NoNumber;
  int64_t AsSigned = 0;
  uint64_t AsUnsigned = 0;
  double AsFloating = 0;
};

/// What TValue does with a type. The table belongs to the module that made the value.
struct TValueOperations {
  TTypeHandle (*Handle)();
  void (*Copy)(void* target, const void* source);
  void (*Move)(void* target, void* source) noexcept;
  void (*Destroy)(void* value) noexcept;
  TNumber (*Number)(const void* value);
  IInterface* (*Interface)(const void* value);
  TObject* (*Object)(const void* value);
  size_t Size;
  size_t Alignment;
  bool IsInline;
};

inline constexpr size_t InlineValueSize = 16;

template <class T>
struct TValueOperationsOf {
  static constexpr bool IsInline = sizeof(T) <= InlineValueSize && alignof(T) <= alignof(void*) &&
                                   std::is_nothrow_move_constructible_v<T>;
  static const T& Read(const void* value) { return *static_cast<const T*>(value); }
  static TNumber NumberOf(const void* value) {
    TNumber number;
    if constexpr (std::is_enum_v<T>) {
      using N = std::underlying_type_t<T>;
      const N n = static_cast<N>(Read(value));
      return TValueOperationsOf<N>::NumberOf(&n);
    } else if constexpr (std::is_floating_point_v<T>) {
      number.Kind = TNumber::Floating;
      number.AsFloating = static_cast<double>(Read(value));
    } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
      number.Kind = TNumber::Signed;
      number.AsSigned = Read(value);
    } else if constexpr (std::is_integral_v<T>) {
      number.Kind = TNumber::Unsigned;
      number.AsUnsigned = Read(value);
    }
    return number;
  }
  static IInterface* InterfaceOf(const void* value) {
    if constexpr (IsReference<T>) {
      return Read(value).Get();
    } else {
      return nullptr;
    }
  }
  static TObject* ObjectBehind(const void* value) {
    if constexpr (KindOf<T>() == TTypeKind::tkClass) {
      return const_cast<std::remove_cv_t<std::remove_pointer_t<T>>*>(Read(value));
    } else if constexpr (IsReference<T>) {
      return ObjectOf(Read(value));
    } else {
      return nullptr;
    }
  }
  static constexpr TValueOperations Table{
      &TypeHandleOf<T>,
      [](void* target, const void* source) { ::new (target) T(Read(source)); },
      [](void* target, void* source) noexcept {
        ::new (target) T(static_cast<T&&>(*static_cast<T*>(source)));
      },
      [](void* value) noexcept { static_cast<T*>(value)->~T(); },
      &NumberOf,
      &InterfaceOf,
      &ObjectBehind,
      sizeof(T),
      alignof(T),
      IsInline};
};

template <class N, class W>
bool StoreIfFits(W number, N& value) {
  N stored;
  if (__builtin_add_overflow(number, W{0}, &stored)) return false;
  value = stored;
  return true;
}

/// `number` as an N, when N can hold it; else `value` stays as it is.
template <class N>
bool NumberFits(const TNumber& number, N& value) {
  switch (number.Kind) {
    case TNumber::Signed:
      if constexpr (std::is_integral_v<N>) return StoreIfFits(number.AsSigned, value);
      value = static_cast<N>(number.AsSigned);
      return true;
    case TNumber::Unsigned:
      if constexpr (std::is_integral_v<N>) return StoreIfFits(number.AsUnsigned, value);
      value = static_cast<N>(number.AsUnsigned);
      return true;
    case TNumber::Floating:
      if constexpr (std::is_floating_point_v<N>) {
        value = static_cast<N>(number.AsFloating);
        return true;
      }
      return false;
    default:
      return false;
  }
}

}  // namespace Detail

/// A tagged value, never one of another. Copying copies the value held (for a reference: adds one).
/// Small values stand inside, larger ones on the heap.
class TALVO_API TValue {
 public:
  TValue() noexcept = default;
  TValue(const TValue& other);
  TValue(TValue&& other) noexcept;
  ~TValue();
  TValue& operator=(TValue other) noexcept;

  /// Holds a value of any type; a TValue is handed through.
  template <class T>
  static TValue From(T value) {
    if constexpr (std::is_same_v<T, TValue>) return value;
    TValue made;
    const auto& operations = Detail::TValueOperationsOf<T>::Table;
    void* place = made.Allocate(operations);
    if constexpr (Detail::TValueOperationsOf<T>::IsInline ||
                  std::is_nothrow_move_constructible_v<T>) {
      ::new (place) T(static_cast<T&&>(value));
    } else {
      try {
        ::new (place) T(static_cast<T&&>(value));
      } catch (...) {
        made.Deallocate(operations);
        throw;
      }
    }
    made.FOperations = &operations;
    return made;
  }

  /// Whether nothing is held.
  bool IsEmpty() const noexcept { return !FOperations; }
  /// The handle of the type held; null when empty.
  TTypeHandle TypeInfo() const { return FOperations ? FOperations->Handle() : nullptr; }
  TTypeKind Kind() const { return FOperations ? TypeInfo()->Kind : TTypeKind::tkUnknown; }
  template <class T>
  bool IsType() const {
    return TypeInfo() == TypeHandleOf<T>();
  }
  /// The value held when it is exactly a T, else null.
  template <class T>
  const T* Peek() const {
    return IsType<T>() ? static_cast<const T*>(Data()) : nullptr;
  }

  /// The value as a T: exactly that type (a TValue is itself); a number that T can hold (never from
  /// floating point to integer); an interface that the object has; an object of that class. False
  /// leaves `value` at its default.
  template <class T>
  bool TryAsType(T& value) const {
    value = T{};
    if constexpr (std::is_same_v<T, TValue>) {
      value = *this;
      return true;
    }
    if (const T* held = Peek<T>()) {
      value = *held;
      return true;
    }
    if (!FOperations) return false;
    if constexpr (std::is_enum_v<T>) {
      std::underlying_type_t<T> number{};
      if (!Detail::NumberFits(FOperations->Number(Data()), number)) return false;
      value = static_cast<T>(number);
      return true;
    } else if constexpr (std::is_same_v<T, bool>) {
      uint8_t number = 0;
      if (!Detail::NumberFits(FOperations->Number(Data()), number) || number > 1) return false;
      value = number != 0;
      return true;
    } else if constexpr (std::is_arithmetic_v<T>) {
      return Detail::NumberFits(FOperations->Number(Data()), value);
    } else if constexpr (IsReference<T>) {
      if constexpr (IsInterface<typename T::TTarget>) {
        value = Supports<typename T::TTarget>(FOperations->Interface(Data()));
        if (!value) value = Supports<typename T::TTarget>(FOperations->Object(Data()));
      } else {
        value = T(dynamic_cast<typename T::TTarget*>(FOperations->Object(Data())));
      }
      return static_cast<bool>(value);
    } else if constexpr (Detail::KindOf<T>() == TTypeKind::tkClass) {
      value = dynamic_cast<T>(FOperations->Object(Data()));
      return value != nullptr;
    } else {
      return false;
    }
  }
  /// As TryAsType. Raises EInvalidCast where that answers false.
  template <class T>
  T AsType() const {
    T value;
    if (!TryAsType(value)) RaiseInvalidCast();
    return value;
  }

 private:
  void* Allocate(const Detail::TValueOperations& operations);
  void Deallocate(const Detail::TValueOperations& operations) noexcept;
  const void* Data() const noexcept { return FOperations->IsInline ? FInline : FHeap; }

  const Detail::TValueOperations* FOperations = nullptr;
  union {
    alignas(void*) unsigned char FInline[Detail::InlineValueSize];
    void* FHeap;
  };
};

}  // namespace Talvo
