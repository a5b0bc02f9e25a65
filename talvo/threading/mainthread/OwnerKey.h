// SPDX-License-Identifier: Apache-2.0
#pragma once
// TOwnerKey: whose work it is, as no more than an address.

#include <talvo/runtime/Object.h>

namespace Talvo {

/// Identifies the owner of queued work; nullptr for work that nobody owns. An object has one key,
/// whatever class or interface it is seen as. The owner is never touched.
class TOwnerKey {
 public:
  constexpr TOwnerKey(std::nullptr_t = nullptr) noexcept {}
  template <class T>
  TOwnerKey(const T* owner) : FAddress(AddressOf(owner)) {}
  template <class I>
  TOwnerKey(const TRef<I>& owner) : TOwnerKey(owner.Get()) {}

  explicit operator bool() const noexcept { return FAddress != nullptr; }
  friend bool operator==(const TOwnerKey&, const TOwnerKey&) = default;

 private:
  template <class T>
  static const void* AddressOf(const T* owner) {
    if constexpr (std::is_convertible_v<const T*, const TObject*>) {
      return static_cast<const TObject*>(owner);
    } else if constexpr (std::is_base_of_v<IInterface, T>) {
      return ObjectOf(const_cast<T*>(owner));
    } else {
      return owner;
    }
  }

  const void* FAddress = nullptr;
};

}  // namespace Talvo
