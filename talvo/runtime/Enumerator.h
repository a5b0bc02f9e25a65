// SPDX-License-Identifier: Apache-2.0
#pragma once
// The runtime's side of enumeration: enumerators by interface, and the plain enumerator object.

#include <talvo/runtime/Function.h>

namespace Talvo {

/// A walk over items as objects. It stands before the first item: MoveNext comes first.
template <class T = void>
class IEnumerator;
template <>
class IEnumerator<void> : public virtual IInterface {
  TALVO_INTERFACE(IEnumerator, IInterface);
  /// The present item when it is an object, or the object behind it when it is an interface;
  /// null for items of any other type.
  virtual TObject* GetCurrent() = 0;
  /// Steps to the next item; false at the end.
  virtual bool MoveNext() = 0;
  /// Goes back to before the first item.
  virtual void Reset() = 0;
};

/// A walk over items of type T.
template <class T>
class IEnumerator : public virtual IEnumerator<> {
  TALVO_INTERFACE(IEnumerator, IEnumerator<>);
  /// The present item; valid until the walk or its source moves on.
  virtual const T& GenericGetCurrent() = 0;
  const T& Current() { return GenericGetCurrent(); }
};

/// Something that can be walked, item by item as objects.
template <class T = void>
class IEnumerable;
template <>
class IEnumerable<void> : public virtual IInterface {
  TALVO_INTERFACE(IEnumerable, IInterface);
  virtual TRef<IEnumerator<>> NewObjectEnumerator() const = 0;
  /// A new walk, before the first item.
  TRef<IEnumerator<>> GetEnumerator() const { return NewObjectEnumerator(); }
};

namespace Detail {

/// Walks an enumerator in a range-for.
template <class E, class T>
class TEnumeratorIterator {
 public:
  using value_type = T;
  using difference_type = std::ptrdiff_t;

  TEnumeratorIterator() = default;
  explicit TEnumeratorIterator(TRef<E> enumerator) : FEnumerator(std::move(enumerator)) {
    Assert(static_cast<bool>(FEnumerator));
    ++*this;
  }
  const T& operator*() const { return FEnumerator->Current(); }
  const T* operator->() const { return &**this; }
  TEnumeratorIterator& operator++() {
    if (!FEnumerator->MoveNext()) FEnumerator = nullptr;
    return *this;
  }
  /// What `*i++` reads: the item before the step.
  struct TStepped {
    T Item;
    const T& operator*() const { return Item; }
  };
  TStepped operator++(int) {
    TStepped before{**this};
    ++*this;
    return before;
  }
  friend bool operator==(const TEnumeratorIterator& left, const TEnumeratorIterator& right) {
    return left.FEnumerator == right.FEnumerator;
  }

 private:
  TRef<E> FEnumerator;
};

}  // namespace Detail

/// Something that can be walked and does not know its size.
template <class T>
class IEnumerable : public virtual IEnumerable<> {
  TALVO_INTERFACE(IEnumerable, IEnumerable<>);
  virtual TRef<IEnumerator<T>> NewEnumerator() const = 0;
  /// A new walk, before the first item.
  TRef<IEnumerator<T>> GetEnumerator() const { return NewEnumerator(); }
  auto begin() const { return Detail::TEnumeratorIterator<IEnumerator<T>, T>(GetEnumerator()); }
  auto end() const { return Detail::TEnumeratorIterator<IEnumerator<T>, T>(); }
};

/// A plain enumerator object: owned by whoever made it, ended by Free or by its TOwn.
template <class T>
class TEnumerator : public TObject {
 public:
  virtual bool MoveNext() = 0;
  /// The present item; valid until the next MoveNext.
  virtual const T& Current() = 0;
};

}  // namespace Talvo
