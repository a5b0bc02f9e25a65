// SPDX-License-Identifier: Apache-2.0
#pragma once
// Enumerators of array-like containers, and the hosts that hand them out.
//
// There are two families. The array-size family reads count and storage of a list through their
// addresses and does not keep the list alive. The other calls two functions, for lists that
// compute their items. Both read the present state at each step: what is added behind the present
// item is met, and the walk ends at the count of that moment.

#include <talvo/containers/common/Data.h>
#include <talvo/containers/common/Enumerable.h>

namespace Talvo {
namespace Detail {

/// Reads a list through the addresses of its count and storage.
template <class T>
class TArrayAccess {
 public:
  TArrayAccess(const TCountCell* count, const TArray<T>* items)
      : FCountPtr(count), FItemsPtr(items) {}
  int32_t Count() const { return *FCountPtr; }
  const T& Item(int32_t index) { return (*FItemsPtr)[index]; }

 private:
  const TCountCell* FCountPtr;
  const TArray<T>* FItemsPtr;
};

/// Reads a list through two functions.
template <class T>
class TFunctionAccess {
 public:
  TFunctionAccess(TFunc<int32_t> getCount, TFunc<int32_t, T> getItem)
      : FGetCount(std::move(getCount)), FGetItem(std::move(getItem)) {}
  int32_t Count() const { return FGetCount(); }
  const T& Item(int32_t index) { return FItem = FGetItem(index); }

 private:
  TFunc<int32_t> FGetCount;
  TFunc<int32_t, T> FGetItem;
  T FItem{};
};

/// A walk from the first item to the last.
template <class TYield, class TAccess>
class TForwardWalk : public TBasicSizeEnumerator<TYield> {
 public:
  template <class... A>
  explicit TForwardWalk(A&&... access) : FAccess(static_cast<A&&>(access)...) {}
  void Reset() override { FIndex = -1; }
  bool MoveNext() override {
    const int32_t count = FAccess.Count();
    if (FIndex >= count) return false;
    CheckedInc(FIndex);
    return FIndex < count;
  }
  int32_t GetSize() override { return FAccess.Count(); }

 protected:
  TAccess FAccess;
  int32_t FIndex = -1;
};

/// A walk from the last item to the first; it takes the count when it is made or reset.
template <class TYield, class TAccess>
class TBackwardWalk : public TBasicSizeEnumerator<TYield> {
 public:
  template <class... A>
  explicit TBackwardWalk(A&&... access)
      : FAccess(static_cast<A&&>(access)...), FIndex(FAccess.Count()) {}
  void Reset() override { FIndex = FAccess.Count(); }
  bool MoveNext() override {
    if (FIndex <= 0) return false;
    --FIndex;
    return true;
  }
  int32_t GetSize() override { return FAccess.Count(); }

 protected:
  TAccess FAccess;
  int32_t FIndex;
};

/// Yields the items of a walk.
template <class T, class TWalk>
class TItemWalk : public TWalk {
 public:
  using TWalk::TWalk;
  const T& GenericGetCurrent() override { return this->FAccess.Item(this->FIndex); }
};

/// Yields the items of a walk with their positions.
template <class T, class TWalk>
class TIndexedWalk : public TWalk {
 public:
  using TWalk::TWalk;
  const TIndexedItem<T>& GenericGetCurrent() override {
    if (this->FIndex < 0) RaiseRangeError();
    FCurrent.Item = this->FAccess.Item(this->FIndex);
    FCurrent.Index = static_cast<uint32_t>(this->FIndex);
    return FCurrent;
  }

 private:
  TIndexedItem<T> FCurrent;
};

}  // namespace Detail

/// Items forward, over an array list's storage.
template <class T>
class TBasicSizeArraySizeEnumerator final
    : public Detail::TItemWalk<T, Detail::TForwardWalk<T, Detail::TArrayAccess<T>>> {
 public:
  TBasicSizeArraySizeEnumerator(const TCountCell* count, const TArray<T>* items)
      : TBasicSizeArraySizeEnumerator::TItemWalk(count, items) {}
};

/// Items forward, by functions.
template <class T>
class TBasicListEnumerator final
    : public Detail::TItemWalk<T, Detail::TForwardWalk<T, Detail::TFunctionAccess<T>>> {
 public:
  TBasicListEnumerator(TFunc<int32_t> getCount, TFunc<int32_t, T> getItem)
      : TBasicListEnumerator::TItemWalk(std::move(getCount), std::move(getItem)) {}
};

/// Items with their positions forward, over an array list's storage.
template <class T>
class TBasicListIndexedArraySizeEnumerator final
    : public Detail::TIndexedWalk<T,
                                  Detail::TForwardWalk<TIndexedItem<T>, Detail::TArrayAccess<T>>> {
 public:
  TBasicListIndexedArraySizeEnumerator(const TCountCell* count, const TArray<T>* items)
      : TBasicListIndexedArraySizeEnumerator::TIndexedWalk(count, items) {}
};

/// Items with their positions forward, by functions.
template <class T>
class TBasicListIndexedEnumerator final
    : public Detail::TIndexedWalk<
          T, Detail::TForwardWalk<TIndexedItem<T>, Detail::TFunctionAccess<T>>> {
 public:
  TBasicListIndexedEnumerator(TFunc<int32_t> getCount, TFunc<int32_t, T> getItem)
      : TBasicListIndexedEnumerator::TIndexedWalk(std::move(getCount), std::move(getItem)) {}
};

/// Items backward, over an array list's storage.
template <class T>
class TBasicReverseSizeArrayListEnumerator final
    : public Detail::TItemWalk<T, Detail::TBackwardWalk<T, Detail::TArrayAccess<T>>> {
 public:
  TBasicReverseSizeArrayListEnumerator(const TCountCell* count, const TArray<T>* items)
      : TBasicReverseSizeArrayListEnumerator::TItemWalk(count, items) {}
};

/// Items backward, by functions.
template <class T>
class TBasicReverseListEnumerator final
    : public Detail::TItemWalk<T, Detail::TBackwardWalk<T, Detail::TFunctionAccess<T>>> {
 public:
  TBasicReverseListEnumerator(TFunc<int32_t> getCount, TFunc<int32_t, T> getItem)
      : TBasicReverseListEnumerator::TItemWalk(std::move(getCount), std::move(getItem)) {}
};

/// Items with their positions backward, over an array list's storage.
template <class T>
class TBasicReverseSizeArrayListIndexedEnumerator final
    : public Detail::TIndexedWalk<T,
                                  Detail::TBackwardWalk<TIndexedItem<T>, Detail::TArrayAccess<T>>> {
 public:
  TBasicReverseSizeArrayListIndexedEnumerator(const TCountCell* count, const TArray<T>* items)
      : TBasicReverseSizeArrayListIndexedEnumerator::TIndexedWalk(count, items) {}
};

/// Items with their positions backward, by functions.
template <class T>
class TBasicReverseListIndexedEnumerator final
    : public Detail::TIndexedWalk<
          T, Detail::TBackwardWalk<TIndexedItem<T>, Detail::TFunctionAccess<T>>> {
 public:
  TBasicReverseListIndexedEnumerator(TFunc<int32_t> getCount, TFunc<int32_t, T> getItem)
      : TBasicReverseListIndexedEnumerator::TIndexedWalk(std::move(getCount), std::move(getItem)) {}
};

/// Any sized walk as a walk over tagged values.
template <class T>
class TGenricValueSizeEnumerator final : public TBasicSizeEnumerator<TValue> {
 public:
  explicit TGenricValueSizeEnumerator(TRef<ISizeEnumerator<T>> nested)
      : FNestedEnumerator(std::move(nested)) {
    Assert(static_cast<bool>(FNestedEnumerator));
  }
  void Reset() override { FNestedEnumerator->Reset(); }
  bool MoveNext() override { return FNestedEnumerator->MoveNext(); }
  const TValue& GenericGetCurrent() override {
    return FCurrent = TValue::From<T>(FNestedEnumerator->Current());
  }
  int32_t GetSize() override { return FNestedEnumerator->GetSize(); }

 private:
  TRef<ISizeEnumerator<T>> FNestedEnumerator;
  TValue FCurrent;
};

/// Hands out the enumerators that a function makes.
template <class T>
class TEnumeratorHost : public TImplements<TBasicInterfacedObject, ISizeEnumeratorHost<T>> {
 public:
  explicit TEnumeratorHost(TFunc<TRef<ISizeEnumerator<T>>> create) : FCreate(std::move(create)) {
    Assert(static_cast<bool>(FCreate));
  }
  TRef<ISizeEnumerator<T>> GetEnumerator() const override { return FCreate(); }

 private:
  TFunc<TRef<ISizeEnumerator<T>>> FCreate;
};

/// Hosts of the enumerators above, with the arguments of the enumerator each is named after.
template <class T>
class TAutoReverseEnumeratorHost final : public TEnumeratorHost<T> {
 public:
  TAutoReverseEnumeratorHost(TFunc<int32_t> getCount, TFunc<int32_t, T> getItem)
      : TEnumeratorHost<T>([getCount, getItem]() -> TRef<ISizeEnumerator<T>> {
          return Create<TBasicReverseListEnumerator<T>>(getCount, getItem);
        }) {}
};
template <class T>
class TAutoReverseSizeArrayEnumeratorHost final : public TEnumeratorHost<T> {
 public:
  TAutoReverseSizeArrayEnumeratorHost(const TCountCell* count, const TArray<T>* items)
      : TEnumeratorHost<T>([count, items]() -> TRef<ISizeEnumerator<T>> {
          return Create<TBasicReverseSizeArrayListEnumerator<T>>(count, items);
        }) {}
};
template <class T>
class TAutoIndexedEnumeratorHost final : public TEnumeratorHost<TIndexedItem<T>> {
 public:
  TAutoIndexedEnumeratorHost(TFunc<int32_t> getCount, TFunc<int32_t, T> getItem)
      : TEnumeratorHost<TIndexedItem<T>>(
            [getCount, getItem]() -> TRef<ISizeEnumerator<TIndexedItem<T>>> {
              return Create<TBasicListIndexedEnumerator<T>>(getCount, getItem);
            }) {}
};
template <class T>
class TAutoIndexedArraySizeEnumeratorHost final : public TEnumeratorHost<TIndexedItem<T>> {
 public:
  TAutoIndexedArraySizeEnumeratorHost(const TCountCell* count, const TArray<T>* items)
      : TEnumeratorHost<TIndexedItem<T>>(
            [count, items]() -> TRef<ISizeEnumerator<TIndexedItem<T>>> {
              return Create<TBasicListIndexedArraySizeEnumerator<T>>(count, items);
            }) {}
};
template <class T>
class TAutoIndexedReverseEnumeratorHost final : public TEnumeratorHost<TIndexedItem<T>> {
 public:
  TAutoIndexedReverseEnumeratorHost(TFunc<int32_t> getCount, TFunc<int32_t, T> getItem)
      : TEnumeratorHost<TIndexedItem<T>>(
            [getCount, getItem]() -> TRef<ISizeEnumerator<TIndexedItem<T>>> {
              return Create<TBasicReverseListIndexedEnumerator<T>>(getCount, getItem);
            }) {}
};
template <class T>
class TAutoIndexedSizeArrayReverseEnumeratorHost final : public TEnumeratorHost<TIndexedItem<T>> {
 public:
  TAutoIndexedSizeArrayReverseEnumeratorHost(const TCountCell* count, const TArray<T>* items)
      : TEnumeratorHost<TIndexedItem<T>>(
            [count, items]() -> TRef<ISizeEnumerator<TIndexedItem<T>>> {
              return Create<TBasicReverseSizeArrayListIndexedEnumerator<T>>(count, items);
            }) {}
};

/// The storage of a list without the object around it: `Size` items at the front of `Value`.
template <class T>
struct TRecArray {
  int32_t Size = 0;
  TArray<T> Value;

  /// Adds an item, growing by the common rule.
  void Add(const T& item);
  /// Deletes the item at `index`; nothing happens outside 0 to Size - 1.
  void Delete(int32_t index);
  /// Cuts the storage to the items that are there.
  void FixLength() { Value.SetLength(Size); }
};

template <class T>
void TRecArray<T>::Add(const T& item) {
  if (Value.Length() <= Size) {
    T kept = item;  // `item` may stand in the storage that moves
    Value.SetLength(CommonIncreaseCapacity(CheckedAdd(Size, 1)));
    Value[Size] = std::move(kept);
  } else {
    Value[Size] = item;
  }
  ++Size;
}

template <class T>
void TRecArray<T>::Delete(int32_t index) {
  if (index < 0 || index >= Size) return;
  --Size;
  Value.Delete(index, 1);
}

}  // namespace Talvo
