// SPDX-License-Identifier: Apache-2.0
#pragma once
// Cells held by reference: a value that several owners share, and a plain object that travels
// behind an interface.
//
//   auto shared = TReferenceInterface<int32_t>::Make(1);
//   auto same = shared;
//   same->SetValue(2);                       // shared->Value() is 2
//
// Not locked: whoever owns the cell locks it.

#include <utility>
#include <talvo/runtime/Object.h>

namespace Talvo {

/// A shared cell.
template <class T>
class IReferenceInterface : public virtual IInterface {
  TALVO_INTERFACE(IReferenceInterface, IInterface);
  virtual T GetValue() const = 0;
  virtual void SetValue(T value) = 0;
  T Value() const { return GetValue(); }
};

/// The cell.
template <class T>
class TReferenceInterface final
    : public TImplements<TBasicInterfacedObject, IReferenceInterface<T>> {
 public:
  TReferenceInterface() = default;
  explicit TReferenceInterface(T value) : FValue(std::move(value)) {}
  /// A cell with the default value, or with `value`.
  static TRef<IReferenceInterface<T>> Make() { return Create<TReferenceInterface>(); }
  static TRef<IReferenceInterface<T>> Make(T value) {
    return Create<TReferenceInterface>(std::move(value));
  }

  T GetValue() const override { return FValue; }
  /// What the cell held ends after the new value is in place.
  void SetValue(T value) override { std::swap(FValue, value); }

 private:
  T FValue{};
};

/// Leads to an object that is no interface.
template <class T>
class IInstanceInterface : public virtual IInterface {
  TALVO_INTERFACE(IInstanceInterface, IInterface);
  /// The object; it belongs to whoever made it.
  virtual T* GetInstance() const = 0;
};

/// Holds an object without owning it: the object must outlive what is done with it.
template <class T>
class TInstanceInterface final : public TImplements<TBasicInterfacedObject, IInstanceInterface<T>> {
 public:
  explicit TInstanceInterface(T* instance) noexcept : FInstance(instance) {}
  static TRef<IInstanceInterface<T>> Make(T* instance) {
    return Create<TInstanceInterface>(instance);
  }

  T* GetInstance() const override { return FInstance; }

 private:
  T* FInstance;
};

}  // namespace Talvo
