// SPDX-License-Identifier: Apache-2.0
#pragma once
// Interfaces: what they are, and how an object is asked for one at run time.
//
//   class IPump : public virtual IInterface {
//     TALVO_INTERFACE(IPump, IInterface);
//     virtual void Start() = 0;
//   };

#include <cstdint>
#include <type_traits>
#include <typeinfo>
#include <talvo/runtime/Config.h>

namespace Talvo {

/// A 128-bit identifier.
struct TGuid {
  uint64_t High = 0;
  uint64_t Low = 0;
  friend constexpr bool operator==(const TGuid& left, const TGuid& right) noexcept {
    return left.High == right.High && left.Low == right.Low;
  }
};

/// QueryInterface's answer when the object has the interface.
inline constexpr uint32_t InterfaceFound = 0;
/// QueryInterface's answer when it has not.
inline constexpr uint32_t NoSuchInterface = 0x80004002;

namespace Detail {

template <class... I>
struct TTypeList {};

template <class I>
struct TStatedId : TGuid {};

/// The identifier of a type that states none: a hash of its mangled name, which all compilers
/// spell alike. Types in anonymous namespaces are told apart by their type_info address.
TALVO_API TGuid HashTypeName(const std::type_info& type) noexcept;

/// Asked of QueryInterface, answers the implementing TObject and adds no reference.
inline constexpr TGuid ImplementingObjectId{0x7461'6c76'6f2e'6f62, 0x6a65'6374'2e70'7472};

}  // namespace Detail

/// Stands once in every interface: its own name, then its direct base interfaces. Everything
/// behind it is public, and the destructor is not for callers.
#define TALVO_INTERFACE(Name, ...)                                 \
 public:                                                           \
  using TInterfaceSelf = Name;                                     \
  using TInterfaceBases = ::Talvo::Detail::TTypeList<__VA_ARGS__>; \
                                                                   \
 protected:                                                        \
  ~Name() = default;                                               \
                                                                   \
 public:                                                           \
  static_assert(true)

/// Behind TALVO_INTERFACE: states the identifier, for interfaces whose name may change.
#define TALVO_INTERFACE_ID(high, low)                                    \
  static constexpr ::Talvo::Detail::TStatedId<TInterfaceSelf> StatedId { \
    { high, low }                                                        \
  }

/// The root of all interfaces: identity, life and the query for other interfaces.
/// Interfaces derive from their base interfaces virtually, so an object has exactly one
/// IInterface, and its address is the object's identity.
class IInterface {
  TALVO_INTERFACE(IInterface);
  /// Writes the object's `id` interface to `*out` and adds one reference: InterfaceFound.
  /// Without such an interface `*out` is null: NoSuchInterface.
  virtual uint32_t QueryInterface(const TGuid& id, void** out) = 0;
  /// Adds a reference; the new count, -1 for an object that does not count. Any thread.
  virtual int32_t AddRef() = 0;
  /// Drops a reference; the last one ends the object. Any thread.
  virtual int32_t Release() = 0;
};

/// Whether a type is an interface: not a class that has some.
template <class I>
inline constexpr bool IsInterface = false;
template <class I>
requires std::is_same_v<typename I::TInterfaceSelf, I>
inline constexpr bool IsInterface<I> = true;

/// The identifier of interface `I`: the stated one, else a hash of its type's name.
template <class I>
const TGuid& InterfaceIdOf() noexcept {
  static_assert(IsInterface<I>, "Put TALVO_INTERFACE(Name, bases...) into the interface.");
  if constexpr (requires {
                  requires std::is_same_v<decltype(I::StatedId), const Detail::TStatedId<I>>;
                }) {
    return I::StatedId;
  } else {
    static const TGuid id = Detail::HashTypeName(typeid(I));
    return id;
  }
}

namespace Detail {

template <class I>
void* FindInterface(I* self, const TGuid& id) noexcept;

template <class I, class... Bases>
void* FindInBases([[maybe_unused]] I* self, [[maybe_unused]] const TGuid& id,
                  TTypeList<Bases...>) noexcept {
  void* found = nullptr;
  (void)((found = FindInterface<Bases>(self, id)) || ...);
  return found;
}

/// `self` as the interface `id`, looked for in `I` and all that it derives from.
template <class I>
void* FindInterface(I* self, const TGuid& id) noexcept {
  if (id == InterfaceIdOf<I>()) return self;
  return FindInBases(self, id, typename I::TInterfaceBases{});
}

}  // namespace Detail
}  // namespace Talvo
