// SPDX-License-Identifier: Apache-2.0
#pragma once
// TRef<I>: the one owning handle to whatever counts its references.

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <talvo/runtime/Raise.h>

namespace Talvo {

class IInterface;
class TObject;

namespace Detail {
struct TObjectAccess;
struct TWeakAccess;
}  // namespace Detail

/// A reference to an object seen as `I` (an interface or a counted class). Copying adds a
/// reference, moving does not. Equality is identity.
template <class I>
class TRef {
 public:
  using TTarget = I;

  constexpr TRef() noexcept = default;
  constexpr TRef(std::nullptr_t) noexcept {}
  /// Shares an object that is at hand; a pointer must say so itself.
  TRef(I& object) noexcept : TRef(&object) {}
  explicit TRef(I* object) noexcept : FPtr(object) {
    if (FPtr) FPtr->AddRef();
  }
  TRef(const TRef& other) noexcept : TRef(other.FPtr) {}
  TRef(TRef&& other) noexcept : FPtr(std::exchange(other.FPtr, nullptr)) {}
  template <class J>
  requires std::is_convertible_v<J*, I*> TRef(const TRef<J>& other)
  noexcept : TRef(static_cast<I*>(other.Get())) {}
  template <class J>
  requires std::is_convertible_v<J*, I*> TRef(TRef<J>&& other)
  noexcept : FPtr(other.Detach()) {}
  ~TRef() {
    if (FPtr) FPtr->Release();
  }

  TRef& operator=(const TRef& other) noexcept { return *this = TRef(other); }
  TRef& operator=(TRef&& other) noexcept {
    // `other` may live inside the object we are letting go (a list node's FNext): take its
    // pointer first, release ours last.
    I* old = std::exchange(FPtr, std::exchange(other.FPtr, nullptr));
    if (old) old->Release();
    return *this;
  }
  TRef& operator=(std::nullptr_t) noexcept { return *this = TRef(); }

  /// Takes over a reference that was counted already.
  static TRef Adopt(I* object) noexcept {
    TRef made;
    made.FPtr = object;
    return made;
  }
  /// Adds a reference of its own; null gives an empty one.
  static TRef Share(I* object) noexcept { return TRef(object); }

  /// The object, without a reference of its own.
  I* Get() const noexcept { return FPtr; }
  I* operator->() const noexcept { return FPtr; }
  I& operator*() const noexcept { return *FPtr; }
  explicit operator bool() const noexcept { return FPtr != nullptr; }
  /// Gives the counted reference away and is empty afterwards.
  I* Detach() noexcept { return std::exchange(FPtr, nullptr); }
  void Swap(TRef& other) noexcept { std::swap(FPtr, other.FPtr); }

  /// The item at `index` of a list, read only.
  template <class N>
  decltype(auto) operator[](N&& index) const requires requires(const I& list) {
    list[index];
  }
  { return (*static_cast<const I*>(FPtr))[index]; }

  /// Iteration over what the reference leads to: a list, a dictionary, an enumerable or its host.
  auto begin() const requires requires(I& target) { target.begin(); }
  { return FPtr->begin(); }
  auto end() const requires requires(I& target) { target.end(); }
  { return FPtr->end(); }

  /// For dictionaries keyed by reference: equal references hash alike.
  uint64_t HashValue() const noexcept { return reinterpret_cast<uintptr_t>(FPtr); }

  friend bool operator==(const TRef& left, const TRef& right) noexcept {
    return left.FPtr == right.FPtr;
  }
  friend bool operator==(const TRef& left, std::nullptr_t) noexcept { return !left.FPtr; }

 private:
  I* FPtr = nullptr;
};

/// Whether two references lead to one object, whatever they see it as.
template <class I, class J>
requires(!std::is_same_v<I, J>) bool operator==(const TRef<I>& left,
                                                const TRef<J>& right) noexcept {
  if constexpr (std::is_convertible_v<I*, J*>) {
    return static_cast<J*>(left.Get()) == right.Get();
  } else if constexpr (std::is_convertible_v<J*, I*>) {
    return left.Get() == static_cast<I*>(right.Get());
  } else {
    return static_cast<IInterface*>(left.Get()) == static_cast<IInterface*>(right.Get());
  }
}

template <class T>
inline constexpr bool IsReference = false;
template <class I>
inline constexpr bool IsReference<TRef<I>> = true;

}  // namespace Talvo
