// SPDX-License-Identifier: Apache-2.0
#pragma once
// The contracts of enumeration with a known size, and the base classes of enumerators.
//
// A fresh enumerator stands before the first item; Reset puts it back there. An enumerator belongs
// to one thread, and one over a plain buffer or an array list does not keep its source alive.

#include <talvo/runtime/DynamicArray.h>
#include <talvo/runtime/Enumerator.h>
#include <talvo/runtime/Value.h>

namespace Talvo {

/// An item together with its position.
template <class T>
struct TIndexedItem {
  uint32_t Index = 0;
  T Item{};
  TIndexedItem() = default;
  TIndexedItem(uint32_t index, T item) : Index(index), Item(static_cast<T&&>(item)) {}
};

/// A walk that knows how many items it will yield.
template <class T>
class ISizeEnumerator : public virtual IEnumerator<T> {
  TALVO_INTERFACE(ISizeEnumerator, IEnumerator<T>);
  /// The number of items of the whole walk, known before the first MoveNext.
  virtual int32_t GetSize() = 0;
  int32_t Size() { return GetSize(); }
};

/// Something that can be walked and knows its size.
template <class T>
class ISizeEnumerable : public virtual IInterface {
  TALVO_INTERFACE(ISizeEnumerable, IInterface);
  virtual TRef<ISizeEnumerator<T>> NewSizeEnumerator() const = 0;
  /// A new walk, before the first item.
  TRef<ISizeEnumerator<T>> GetEnumerator() const { return NewSizeEnumerator(); }
  auto begin() const { return Detail::TEnumeratorIterator<ISizeEnumerator<T>, T>(GetEnumerator()); }
  auto end() const { return Detail::TEnumeratorIterator<ISizeEnumerator<T>, T>(); }
};

/// What a for loop over GetReverse, GetIndexed and the like walks.
template <class T>
class ISizeEnumeratorHost : public virtual IInterface {
  TALVO_INTERFACE(ISizeEnumeratorHost, IInterface);
  /// A new walk, before the first item.
  virtual TRef<ISizeEnumerator<T>> GetEnumerator() const = 0;
  auto begin() const { return Detail::TEnumeratorIterator<ISizeEnumerator<T>, T>(GetEnumerator()); }
  auto end() const { return Detail::TEnumeratorIterator<ISizeEnumerator<T>, T>(); }
};

/// Adds walks that tell each item's position.
template <class T>
class IIndexedEnumerable : public virtual ISizeEnumerable<T> {
  TALVO_INTERFACE(IIndexedEnumerable, ISizeEnumerable<T>);
  virtual TRef<ISizeEnumerator<TIndexedItem<T>>> GetIndexedEnumerator() const = 0;
  virtual TRef<ISizeEnumeratorHost<TIndexedItem<T>>> GetIndexed() const = 0;
};

/// Adds a walk from the last item to the first.
template <class T>
class IReverseSizeEnumerable : public virtual ISizeEnumerable<T> {
  TALVO_INTERFACE(IReverseSizeEnumerable, ISizeEnumerable<T>);
  virtual TRef<ISizeEnumeratorHost<T>> GetReverse() const = 0;
};

/// Adds walks backward, with and without positions.
template <class T>
class IReverseIndexedEnumerable : public virtual IIndexedEnumerable<T> {
  TALVO_INTERFACE(IReverseIndexedEnumerable, IIndexedEnumerable<T>);
  virtual TRef<ISizeEnumerator<T>> GetReverseEnumerator() const = 0;
  virtual TRef<ISizeEnumerator<TIndexedItem<T>>> GetIndexedReverseEnumerator() const = 0;
  virtual TRef<ISizeEnumeratorHost<T>> GetReverse() const = 0;
  virtual TRef<ISizeEnumeratorHost<TIndexedItem<T>>> GetIndexedReverse() const = 0;
};

/// The base of enumerators by interface. Descendants give Reset, MoveNext and GenericGetCurrent.
template <class T>
class TBasicEnumerator : public TImplements<TBasicInterfacedObject, IEnumerator<T>> {
 public:
  TObject* GetCurrent() override {
    if constexpr (IsReference<T>) {
      return ObjectOf(this->GenericGetCurrent());
    } else if constexpr (std::is_convertible_v<T, TObject*>) {
      return this->GenericGetCurrent();
    } else {
      return nullptr;
    }
  }
};

/// The base of enumerators that know their size: adds GetSize.
template <class T>
class TBasicSizeEnumerator : public TImplements<TBasicEnumerator<T>, ISizeEnumerator<T>> {};

/// An enumerator object seen through the interface. Owns it; Reset does nothing.
template <class T>
class TEnumeratorDelegate final : public TBasicEnumerator<T> {
 public:
  explicit TEnumeratorDelegate(TOwn<TEnumerator<T>> enumerator)
      : FEnumerator(std::move(enumerator)) {
    Assert(static_cast<bool>(FEnumerator));
  }
  void Reset() override {}
  bool MoveNext() override { return FEnumerator->MoveNext(); }
  const T& GenericGetCurrent() override { return FEnumerator->Current(); }

 private:
  TOwn<TEnumerator<T>> FEnumerator;
};

/// Gives a size to enumerators that have none. Reset gets a new enumerator.
template <class T>
class TEnumeratorSizeWrapper final : public TBasicSizeEnumerator<T> {
 public:
  TEnumeratorSizeWrapper(TFunc<TOwn<TEnumerator<T>>> onGetEnumerator, TFunc<int32_t> onGetSize)
      : FOnGetEnumerator(std::move(onGetEnumerator)),
        FOnGetSize(std::move(onGetSize)),
        FEnumerator(FOnGetEnumerator()) {}
  void Reset() override {
    FEnumerator = {};
    FEnumerator = FOnGetEnumerator();
  }
  bool MoveNext() override { return Nested().MoveNext(); }
  const T& GenericGetCurrent() override { return Nested().Current(); }
  int32_t GetSize() override { return FOnGetSize(); }

 private:
  TEnumerator<T>& Nested() {
    Assert(static_cast<bool>(FEnumerator));
    return *FEnumerator;
  }
  TFunc<TOwn<TEnumerator<T>>> FOnGetEnumerator;
  TFunc<int32_t> FOnGetSize;
  TOwn<TEnumerator<T>> FEnumerator;
};

/// Enumerators over plain buffers.
class Collection {
 public:
  /// Hands out enumerators over a buffer that somebody else keeps alive.
  template <class T>
  class TSizeEnumeratorHost final
      : public TImplements<TBasicInterfacedObject, ISizeEnumeratorHost<T>> {
   public:
    class TArrayEnumerator final : public TBasicSizeEnumerator<T> {
     public:
      /// Raises ERangeError for an empty array.
      explicit TArrayEnumerator(const TArray<T>& array)
          : TArrayEnumerator(&array[0], array.Length()) {}
      TArrayEnumerator(const T* items, int32_t count) : FArray(items), FCount(count) {
        if (count < 0) RaiseRangeError();
        Assert(items != nullptr || count == 0);
      }
      void Reset() override { FIndex = -1; }
      bool MoveNext() override {
        if (FIndex >= FCount - 1) return false;
        ++FIndex;
        return true;
      }
      const T& GenericGetCurrent() override {
        if (static_cast<uint32_t>(FIndex) >= static_cast<uint32_t>(FCount)) RaiseRangeError();
        return FArray[FIndex];
      }
      int32_t GetSize() override { return FCount; }

     private:
      const T* FArray;
      int32_t FIndex = -1;
      int32_t FCount;
    };

    TSizeEnumeratorHost(const T* items, int32_t size) : FArray(items), FSize(size) {
      if (size < 0) RaiseRangeError();
    }
    TRef<ISizeEnumerator<T>> GetEnumerator() const override {
      return Create<TArrayEnumerator>(FArray, FSize);
    }

   private:
    const T* FArray;
    int32_t FSize;
  };

  /// An enumerator over `array`, whose storage it does not keep alive. Raises ERangeError for an
  /// empty array.
  template <class T>
  static TRef<ISizeEnumerator<T>> GetEnumerator(const TArray<T>& array) {
    return Create<typename TSizeEnumeratorHost<T>::TArrayEnumerator>(array);
  }
  /// An enumerator over `count` items; 0 is fine.
  template <class T>
  static TRef<ISizeEnumerator<T>> GetEnumerator(const T* items, int32_t count) {
    return Create<typename TSizeEnumeratorHost<T>::TArrayEnumerator>(items, count);
  }
};

/// A list seen without its element type: how readers, writers and type descriptions meet it.
class IList : public virtual IInterface {
  TALVO_INTERFACE(IList, IInterface);
  /// A walk over the items as tagged values.
  virtual TRef<ISizeEnumerator<TValue>> GetValueEnumerator() const = 0;
  virtual void ClearValues() = 0;
  /// A default item, to be filled and then added.
  virtual TValue GetNewValue() const = 0;
  /// Adds an item. Raises EInvalidCast when the value is no item of this list.
  virtual void AddValue(const TValue& value) = 0;
};

}  // namespace Talvo
