// SPDX-License-Identifier: Apache-2.0
#pragma once
// Type handles: the identity of a type at run time. Every C++ type has one, described or not.

#include <concepts>
#include <talvo/runtime/Object.h>
#include <talvo/runtime/Text.h>
#include <talvo/runtime/TypeRecord.h>

namespace Talvo {

namespace Detail {

/// Finds or makes the table's entry and counts one more module that uses it.
TALVO_API TTypeHandle AcquireType(const std::type_info& type, TTypeKind kind, size_t size);
TALVO_API void ReleaseType(TTypeHandle handle) noexcept;

template <class T>
constexpr TTypeKind KindOf() {
  if constexpr (std::is_same_v<T, string>) {
    return TTypeKind::tkUString;
  } else if constexpr (std::is_same_v<T, char16_t>) {
    return TTypeKind::tkWChar;
  } else if constexpr (std::is_same_v<T, char>) {
    return TTypeKind::tkChar;
  } else if constexpr (std::is_same_v<T, bool> || std::is_enum_v<T>) {
    return TTypeKind::tkEnumeration;
  } else if constexpr (std::is_integral_v<T>) {
    return sizeof(T) == 8 ? TTypeKind::tkInt64 : TTypeKind::tkInteger;
  } else if constexpr (std::is_floating_point_v<T>) {
    return TTypeKind::tkFloat;
  } else if constexpr (IsReference<T>) {
    return TTypeKind::tkInterface;
  } else if constexpr (std::is_pointer_v<T>) {
    return std::is_base_of_v<TObject, std::remove_pointer_t<T>> ? TTypeKind::tkClass
                                                                : TTypeKind::tkPointer;
  } else {
    return TTypeKind::tkUnknown;
  }
}

template <class T>
struct TModuleType {
  TTypeHandle Handle = AcquireType(typeid(T), KindOf<T>(), sizeof(T));
  ~TModuleType() { ReleaseType(Handle); }
};

}  // namespace Detail

/// The handle of type T.
template <class T>
TTypeHandle TypeHandleOf() {
  // One static a module: the table, not this address, is the identity.
  static const Detail::TModuleType<std::remove_cv_t<T>> type;
  return type.Handle;
}

}  // namespace Talvo
