// SPDX-License-Identifier: Apache-2.0
#pragma once
// Objects: how they are made, counted and ended.
//
//   class TPump : public TImplements<TBasicInterfacedObject, IPump> { ... };
//   auto pump = Create<TPump>(arguments...);    // a TRef<TPump>; converts to TRef<IPump>
//
// A C++ constructor only stores its arguments: virtual calls and handing itself out belong into
// Construct(), which runs on the complete object.

#include <cstddef>
#include <new>
#include <talvo/runtime/BlockStore.h>
#include <talvo/runtime/Interface.h>
#include <talvo/runtime/Reference.h>

namespace Talvo {

class TInterfacedObject;

namespace Detail {
/// From here on no weak reference leads to `target`.
TALVO_API void ForgetWeakTarget(TInterfacedObject* target) noexcept;
}  // namespace Detail

/// The root class. Objects are made by Create and end by the last release or by Free; plain new
/// and delete are hidden.
class TALVO_API TObject {
 public:
  TObject(const TObject&) = delete;
  TObject& operator=(const TObject&) = delete;
  virtual ~TObject();

  /// This object as the interface `id`, or null. Adds no reference.
  virtual void* GetInterface(const TGuid& id);

  static void* operator new(size_t) = delete;
  static void* operator new[](size_t) = delete;

 protected:
  TObject() noexcept = default;

  /// The part of construction that calls virtually or hands the object out; runs on the complete
  /// object, before AfterConstruction. If either raises, ConstructionFailed and the destructors
  /// run, and BeforeDestruction does not.
  virtual void Construct();
  /// Runs once when the object is complete.
  virtual void AfterConstruction();
  virtual void ConstructionFailed() noexcept;
  /// Runs once before the destructors, on the still complete object. What it raises goes no
  /// further: the object ends all the same.
  virtual void BeforeDestruction();

  static void operator delete(void* memory, size_t size);
  static void operator delete(void* memory, size_t size, std::align_val_t alignment);

 private:
  friend struct Detail::TObjectAccess;
};

/// An object whose memory is filled with 0xFF, all of it, before it goes back to the allocator:
/// what is used past its end fails at once, in release builds too.
class TALVO_API TBasicObject : public TObject {
 protected:
  TBasicObject() noexcept = default;
  static void operator delete(void* memory, size_t size);
  static void operator delete(void* memory, size_t size, std::align_val_t alignment);
};

/// An object that lives as long as references to it do. Counting is safe on any thread.
class TALVO_API TInterfacedObject : public TObject, public virtual IInterface {
 public:
  static constexpr bool CountsReferences = true;

  ~TInterfacedObject() override {
    // The object ends without a last release, or was weakly referred to while it ended.
    if (FRefs & WeakFlag) [[unlikely]]
      Detail::ForgetWeakTarget(this);
  }

  uint32_t QueryInterface(const TGuid& id, void** out) override;
  int32_t AddRef() final {
    return static_cast<int32_t>((__atomic_fetch_add(&FRefs, 1, __ATOMIC_RELAXED) + 1) & CountMask);
  }
  int32_t Release() final {
    // The one reference there is: nobody else can make another or drop this one meanwhile, a weak
    // reference would show in its flag, so the count needs no atomic step.
    if (__atomic_load_n(&FRefs, __ATOMIC_ACQUIRE) == 1) {
      EndSole();
      return 0;
    }
    const uint32_t before = __atomic_fetch_sub(&FRefs, 1, __ATOMIC_ACQ_REL);
    if ((before & CountMask) == 1) [[unlikely]] {
      End();
      return 0;
    }
    return static_cast<int32_t>((before - 1) & CountMask);
  }
  /// The number of references, for tests and diagnostics.
  int32_t RefCount() const noexcept {
    return static_cast<int32_t>(__atomic_load_n(&FRefs, __ATOMIC_RELAXED) & CountMask &
                                ~EndingBias);
  }
  void* GetInterface(const TGuid& id) override;

 protected:
  TInterfacedObject() noexcept = default;

  /// Makes the last release ask DefersEnd; for constructors.
  void MayDeferEnd() noexcept { FRefs |= DeferFlag; }
  /// Asked when the last reference has gone. True keeps the object, without references, for
  /// something that does not count: when that is over, it calls Free.
  virtual bool DefersEnd() noexcept;

 private:
  friend struct Detail::TWeakAccess;
  // Set when a weak reference to this object was made.
  static constexpr uint32_t WeakFlag = 0x8000'0000;
  // Added when it ends: references taken and dropped from there on do no harm.
  static constexpr uint32_t EndingBias = 0x4000'0000;
  static constexpr uint32_t DeferFlag = 0x2000'0000;
  static constexpr uint32_t CountMask = ~(WeakFlag | DeferFlag);

  void End() noexcept;
  void EndSole() noexcept;

  // The object is born with the one reference that its maker adopts.
  uint32_t FRefs = 1;
};

/// A counted object with the 0xFF fill of TBasicObject: the base of the library's classes.
class TALVO_API TBasicInterfacedObject : public TInterfacedObject {
 protected:
  TBasicInterfacedObject() noexcept = default;
  static void operator delete(void* memory, size_t size);
  static void operator delete(void* memory, size_t size, std::align_val_t alignment);
};

/// The argument of constructors that callers should leave alone.
enum TDoNotUseThis { Do_Not_Use_This = 0 };

/// The base of classes that must not be built without their own named constructors.
class TALVO_API TBasicNoCreateInterfacedObject : public TBasicInterfacedObject {
 public:
  explicit TBasicNoCreateInterfacedObject(TDoNotUseThis) noexcept {}
};

/// Writes the plumbing of a class: base class `TBase`, plus interfaces that it answers queries
/// for, with all their bases.
template <class TBase, class... I>
class TImplements : public TBase, public virtual I... {
 public:
  using TBase::TBase;
  void* GetInterface(const TGuid& id) override {
    void* found = nullptr;
    (void)((found = Detail::FindInterface<I>(this, id)) || ...);
    return found ? found : TBase::GetInterface(id);
  }
};

/// Ends an object that is not counted: BeforeDestruction, then the destructors. Null is fine.
TALVO_API void Free(TObject* object) noexcept;

/// The one owner of an uncounted object; ends it by Free.
template <class T>
class TOwn {
 public:
  constexpr TOwn() noexcept = default;
  constexpr TOwn(std::nullptr_t) noexcept {}
  explicit TOwn(T* object) noexcept : FPtr(object) {}
  TOwn(TOwn&& other) noexcept : FPtr(other.Detach()) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> TOwn(TOwn<U>&& other)
  noexcept : FPtr(other.Detach()) {}
  ~TOwn() { Free(FPtr); }

  TOwn& operator=(TOwn&& other) noexcept {
    // The old object's end may come back to this owner: it finds the new one.
    Free(std::exchange(FPtr, other.Detach()));
    return *this;
  }

  /// The object, still owned here.
  T* Get() const noexcept { return FPtr; }
  T* operator->() const noexcept { return FPtr; }
  T& operator*() const noexcept { return *FPtr; }
  explicit operator bool() const noexcept { return FPtr != nullptr; }
  /// Gives the object away; whoever takes it frees it.
  T* Detach() noexcept { return std::exchange(FPtr, nullptr); }

 private:
  T* FPtr = nullptr;
};

namespace Detail {

/// Fills the memory of an object that has ended with 0xFF.
TALVO_API void Poison(void* memory, size_t size) noexcept;

/// Classes of small objects that come and go in great number say so, and have an operator delete
/// that ends in GiveBlock.
template <class T>
concept Recycled = alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__&& requires {
  requires T::RecyclesMemory;
};

struct TObjectAccess {
  static void Complete(TObject& object) {
    object.Construct();
    object.AfterConstruction();
  }
  static void BeforeDestruction(TObject& object) { object.BeforeDestruction(); }
  static void Delete(TObject* object) noexcept { delete object; }
  static void DeleteUnfinished(TObject* object) noexcept {
    object->ConstructionFailed();
    delete object;
  }
};

template <class T, class... A>
T* NewInstance(A&&... arguments) {
  struct TMemory {
    void* Place = Recycled<T> ? TakeBlock<sizeof(T)>() : AllocateInstance(sizeof(T), alignof(T));
    ~TMemory() {
      if (!Place) return;
      Recycled<T> ? GiveBlock<sizeof(T)>(Place) : FreeInstance(Place, sizeof(T), alignof(T));
    }
  } memory;
  T* object = ::new (memory.Place) T(static_cast<A&&>(arguments)...);
  memory.Place = nullptr;
  struct TUnfinished {
    TObject* Object;
    ~TUnfinished() {
      if (Object) TObjectAccess::DeleteUnfinished(Object);
    }
  } unfinished{object};
  TObjectAccess::Complete(*object);
  unfinished.Object = nullptr;
  return object;
}

/// Classes that count for themselves say so as TInterfacedObject does.
template <class T>
concept Counted = requires {
  requires T::CountsReferences;
};

template <class T>
using THandleOf = std::conditional_t<Counted<T>, TRef<T>, TOwn<T>>;

}  // namespace Detail

/// Makes an object of class `T`: the C++ constructor, then Construct and AfterConstruction.
/// Counted classes come as TRef<T>, others as TOwn<T>.
template <class T, class... A>
Detail::THandleOf<T> Create(A&&... arguments) {
  static_assert(std::is_base_of_v<TObject, T>, "Create makes descendants of TObject.");
  T* object = Detail::NewInstance<T>(static_cast<A&&>(arguments)...);
  if constexpr (Detail::Counted<T>) {
    return TRef<T>::Adopt(object);
  } else {
    return TOwn<T>(object);
  }
}

/// The object behind an interface, or null for a null reference.
template <class I>
TObject* ObjectOf(I* interface) {
  if constexpr (std::is_convertible_v<I*, TObject*>) {
    return interface;
  } else {
    if (!interface) return nullptr;
    void* object = nullptr;
    interface->QueryInterface(Detail::ImplementingObjectId, &object);
    return static_cast<TObject*>(object);
  }
}
template <class I>
TObject* ObjectOf(const TRef<I>& interface) {
  return ObjectOf(interface.Get());
}

/// The object behind an interface as class `C`; null when it is none, or is another class.
template <class C, class I>
C* ObjectAs(const TRef<I>& interface) {
  return dynamic_cast<C*>(ObjectOf(interface.Get()));
}

/// Asks an object or interface for interface `I`; an empty reference when it has none.
template <class I, class X>
TRef<I> Supports(X* source) {
  if (!source) return {};
  if constexpr (std::is_convertible_v<X*, I*>) {
    return TRef<I>::Share(source);
  } else if constexpr (std::is_base_of_v<IInterface, X>) {
    void* found = nullptr;
    if (source->QueryInterface(InterfaceIdOf<I>(), &found) != InterfaceFound) return {};
    return TRef<I>::Adopt(static_cast<I*>(found));
  } else {
    return TRef<I>::Share(static_cast<I*>(source->GetInterface(InterfaceIdOf<I>())));
  }
}
template <class I, class X>
TRef<I> Supports(const TRef<X>& source) {
  return Supports<I>(source.Get());
}

/// Asks for interface `I` and raises EInvalidCast when there is none.
template <class I, class X>
TRef<I> As(const X& source) {
  TRef<I> found = Supports<I>(source);
  if (!found) RaiseInvalidCast();
  return found;
}

}  // namespace Talvo
