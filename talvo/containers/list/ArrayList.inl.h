// SPDX-License-Identifier: Apache-2.0
#pragma once
// Bodies of the array list classes.

#include <talvo/containers/list/ArrayList.h>
#include <talvo/containers/list/Sort.h>

namespace Talvo {
namespace Detail {

/// Whether a plain assignment is done with the slot before the old item ends.
template <class T>
inline constexpr bool AssignsSafely =
    std::is_trivially_destructible_v<T> || IsTriviallyRelocatable<T> || std::is_same_v<T, string>;

/// Puts `value` into a slot. The old item ends last, since its end may come back to the list and
/// move the slot.
template <class T>
void ReplaceItem(T& slot, const T& value) {
  if constexpr (AssignsSafely<T>) {
    slot = value;
  } else {
    T replaced = value;
    std::ranges::swap(slot, replaced);
  }
}

}  // namespace Detail

template <class T, class TList>
template <class TByArray, class TByFunction, class TResult>
TRef<TResult> TBasicArrayListIntf<T, TList>::NewWalk() const {
  if (ArrayIsPopulated()) return Create<TByArray>(&FSize, &FArray);
  return Create<TByFunction>(CountReader(), ItemReader());
}

template <class T, class TList>
TRef<ISizeEnumerator<T>> TBasicArrayListIntf<T, TList>::NewSizeEnumerator() const {
  return NewWalk<TBasicSizeArraySizeEnumerator<T>, TBasicListEnumerator<T>, ISizeEnumerator<T>>();
}
template <class T, class TList>
TRef<ISizeEnumerator<TIndexedItem<T>>> TBasicArrayListIntf<T, TList>::GetIndexedEnumerator() const {
  return NewWalk<TBasicListIndexedArraySizeEnumerator<T>, TBasicListIndexedEnumerator<T>,
                 ISizeEnumerator<TIndexedItem<T>>>();
}
template <class T, class TList>
TRef<ISizeEnumerator<T>> TBasicArrayListIntf<T, TList>::GetReverseEnumerator() const {
  return NewWalk<TBasicReverseSizeArrayListEnumerator<T>, TBasicReverseListEnumerator<T>,
                 ISizeEnumerator<T>>();
}
template <class T, class TList>
TRef<ISizeEnumerator<TIndexedItem<T>>> TBasicArrayListIntf<T, TList>::GetIndexedReverseEnumerator()
    const {
  return NewWalk<TBasicReverseSizeArrayListIndexedEnumerator<T>,
                 TBasicReverseListIndexedEnumerator<T>, ISizeEnumerator<TIndexedItem<T>>>();
}
template <class T, class TList>
TRef<ISizeEnumeratorHost<TIndexedItem<T>>> TBasicArrayListIntf<T, TList>::GetIndexed() const {
  return NewWalk<TAutoIndexedArraySizeEnumeratorHost<T>, TAutoIndexedEnumeratorHost<T>,
                 ISizeEnumeratorHost<TIndexedItem<T>>>();
}
template <class T, class TList>
TRef<ISizeEnumeratorHost<T>> TBasicArrayListIntf<T, TList>::GetReverse() const {
  return NewWalk<TAutoReverseSizeArrayEnumeratorHost<T>, TAutoReverseEnumeratorHost<T>,
                 ISizeEnumeratorHost<T>>();
}
template <class T, class TList>
TRef<ISizeEnumeratorHost<TIndexedItem<T>>> TBasicArrayListIntf<T, TList>::GetIndexedReverse()
    const {
  return NewWalk<TAutoIndexedSizeArrayReverseEnumeratorHost<T>,
                 TAutoIndexedReverseEnumeratorHost<T>, ISizeEnumeratorHost<TIndexedItem<T>>>();
}
template <class T, class TList>
TRef<ISizeEnumerator<TValue>> TBasicArrayListIntf<T, TList>::GetValueEnumerator() const {
  return Create<TGenricValueSizeEnumerator<T>>(NewSizeEnumerator());
}

template <class T, class TList>
const T& TBasicArrayListIntf<T, TList>::GetItem(int32_t index) const {
  if (static_cast<uint32_t>(index) >= static_cast<uint32_t>(int32_t{FSize})) [[unlikely]]
    RaiseIndexOutOfRange(index);
  return FArray[index];
}

template <class T, class TList>
Detail::TListState<T> TBasicArrayListIntf<T, TList>::GetState() const {
  auto* self = const_cast<TBasicArrayListIntf*>(this);
  if (!ArrayIsPopulated()) self->Populate();
  return {&self->FArray, &self->FSize};
}

/// Stores `value` from the count on up to `to` - 1 and counts it.
template <class T, class TList>
void TBasicArrayListIntf<T, TList>::FillSlots(const T& value, int32_t to) {
  for (int32_t i = FSize; i < to; ++i) {
    FArray[i] = value;
    FSize = i + 1;
  }
}

/// Puts copies of `count` items into the slots from `index` on.
template <class T, class TList>
void TBasicArrayListIntf<T, TList>::StoreItems(int32_t index, const T* items, int32_t count) {
  if constexpr (std::is_trivially_copyable_v<T>) {
    if (count == 0) return;
    if (index < 0 || count > FArray.Length() - index) RaiseRangeError();
    __builtin_memmove(static_cast<void*>(FArray.Data() + index), items,
                      static_cast<size_t>(count) * sizeof(T));
  } else {
    for (int32_t i = 0; i < count; ++i) Detail::ReplaceItem(FArray[index + i], items[i]);
  }
}

/// Sets the items from `from` to `to` - 1 back to the default value. They end together
/// afterwards: their end may come back to the list.
template <class T, class TList>
void TBasicArrayListIntf<T, TList>::ResetItems(int32_t from, int32_t to) {
  if (from >= to) return;
  if constexpr (std::is_trivially_destructible_v<T>) {
    for (int32_t i = from; i < to; ++i) FArray[i] = T{};
  } else {
    const int32_t present = to < FArray.Length() ? to : FArray.Length();
    const TArray<T> ended = TArray<T>::OfLength(present > from ? present - from : 0);
    for (int32_t i = from; i < to; ++i) std::ranges::swap(FArray[i], ended[i - from]);
  }
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoSetCount(int32_t count) {
  const int32_t before = FSize;
  if (count < 0) RaiseRangeError();
  if (FArray.Length() < count) FArray.SetLength(count);
  FSize = count;
  ResetItems(count, before);
  return count != before;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoSetItem(int32_t index, const T& value) {
  GetItem(index);
  Detail::ReplaceItem(FArray[index], value);
  return true;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoAdd(const T& value, int32_t count) {
  const auto index = static_cast<uint32_t>(int32_t{FSize});
  if (count == 1 && uint64_t{index} + 1 < static_cast<uint32_t>(FArray.Length())) [[likely]] {
    FArray[FSize] = value;
    FSize = FSize + 1;
    return true;
  }
  return AddSlowly(value, count);
}

/// Adds any number of items, and grows.
template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::AddSlowly(const T& value, int32_t count) {
  if (count == 0) return false;
  if (count < 0) RaiseRangeError();
  const int32_t size = CheckedAdd<int32_t>(FSize, count);
  if (FArray.Length() > size) [[likely]] {
    FillSlots(value, size);
  } else {
    const T kept = value;  // `value` may stand in the storage that moves
    FArray.SetLength(CommonIncreaseCapacity(CheckedAdd(size, 1)));
    FillSlots(kept, size);
  }
  return true;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoInsert(int32_t index, const T& value, int32_t count) {
  if (count == 0) return false;
  if (count < 0) RaiseRangeError();
  if (index < 0) RaiseIndexOutOfRange(index);
  if (index >= FSize) return this->DoAdd(value, count);
  const int32_t size = CheckedAdd<int32_t>(FSize, count);
  if (count == 1) {
    FArray.Insert(index, &value, 1);
  } else {
    TArray<T> scratch = TArray<T>::OfLength(count);
    for (T& item : scratch) item = value;
    FArray.Insert(index, scratch.Data(), count);
  }
  FSize = size;
  return true;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoInsertSource(int32_t index,
                                                   const Detail::TSource<T>& source) {
  if (GetCount() == 0) return this->DoAssign(source);
  if (index < 0) RaiseIndexOutOfRange(index);
  if (index >= GetCount()) return this->DoAppend(source);
  if (source.IsBuffer()) {
    const int32_t size = CheckedAdd<int32_t>(FSize, source.Size());
    FArray.Insert(index, source.Items(), source.Size());
    FSize = size;
    return source.Size() > 0;
  }
  TRecArray<T> scratch;
  if (source.Sized()) {
    scratch.Value.SetLength(source.Size());
    source.ForEach([&](const T& item) { scratch.Value[scratch.Size++] = item; });
  } else {
    source.ForEach([&](const T& item) { scratch.Add(item); });
  }
  const int32_t size = CheckedAdd<int32_t>(FSize, scratch.Size);
  Algorithm::ArrayInsertCount(scratch.Value, FArray, scratch.Size, index);
  FSize = size;
  return scratch.Size > 0;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoAddFront(const T& value) {
  const int32_t size = CheckedAdd<int32_t>(FSize, 1);
  FArray.Insert(0, &value, 1);
  FSize = size;
  return true;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoAppend(const Detail::TSource<T>& source) {
  if (source.IsObject(this)) return false;
  const int32_t before = FSize;
  if (source.IsBuffer()) {
    AppendItems(source.Items(), source.Size());
  } else if (source.Sized()) {
    AppendSized(source);
  } else {
    AppendUnsized(*source.Enumerator());
  }
  return FSize != before;
}

template <class T, class TList>
void TBasicArrayListIntf<T, TList>::AppendItems(const T* items, int32_t count) {
  const int32_t size = CheckedAdd<int32_t>(FSize, count);
  const int32_t spare = FArray.Length() > FSize ? FArray.Length() - FSize : 0;
  const int32_t stored = spare < count ? spare : count;
  if constexpr (std::is_trivially_copyable_v<T>) {
    StoreItems(FSize, items, stored);
    FSize = FSize + stored;
  } else {
    for (int32_t i = 0; i < stored; ++i) FastUnsafeProcedureAdd(items[i]);
  }
  if (stored == count) return;
  if (FArray.Length() != FSize) RaiseRangeError();
  FArray.Insert(FSize, items + stored, count - stored);
  FSize = size;
}

template <class T, class TList>
void TBasicArrayListIntf<T, TList>::AppendSized(const Detail::TSource<T>& source) {
  ISizeEnumerator<T>& items = *source.Sized();
  items.Reset();
  const int32_t count = items.GetSize();
  if (count < 0) RaiseRangeError();
  const int32_t size = CheckedAdd<int32_t>(FSize, count);
  if (FArray.Length() < size) FArray.Extend(size);
  while (items.MoveNext()) FastUnsafeProcedureAdd(items.Current());
}

template <class T, class TList>
void TBasicArrayListIntf<T, TList>::AppendUnsized(IEnumerator<T>& source) {
  TRecArray<T> scratch;
  source.Reset();
  while (source.MoveNext()) {
    if (FArray.Length() > FSize) {
      FastUnsafeProcedureAdd(source.Current());
    } else {
      scratch.Add(source.Current());
    }
  }
  AppendItems(scratch.Value.Data(), scratch.Size);
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoAssign(const Detail::TSource<T>& source) {
  if (source.IsObject(this)) return false;
  const auto hold = Hold();
  const int32_t before = FSize;
  if (source.IsBuffer()) {
    AssignItems(source.Items(), source.Size());
  } else if (source.Sized()) {
    AssignSized(*source.Sized());
  } else {
    AssignUnsized(*source.Enumerator());
  }
  return FSize != 0 || before != 0;
}

template <class T, class TList>
void TBasicArrayListIntf<T, TList>::AssignItems(const T* items, int32_t count) {
  if (FArray.Holds(items)) return AssignItems(TArray<T>(items, count).Data(), count);
  const int32_t before = FSize;
  if (FArray.Length() < count) FArray.SetLength(count);
  ResetItems(count, before);
  FSize = count;
  StoreItems(0, items, count);
}

template <class T, class TList>
void TBasicArrayListIntf<T, TList>::AssignSized(ISizeEnumerator<T>& source) {
  // An enumerator that is a list's own storage hands it over: both see each other's writes.
  if (const TRef<IArrayListState<T>> state = Supports<IArrayListState<T>>(&source)) {
    if (state->ArrayIsPopulated()) {
      const int32_t size = *state->GetSizePtr();
      if (size < 0 || size > state->GetArraySize()) RaiseRangeError();
      FSize = size;
      FArray = *state->GetArray();
      return;
    }
  }
  const int32_t before = FSize;
  const int32_t size = source.GetSize();
  if (size < 0) RaiseRangeError();
  if (FArray.Length() < size) FArray.SetLength(size);
  ResetItems(size, before);
  // Old items that were not overwritten, because there were fewer or the source raised.
  const auto resetRest = [&] { ResetItems(FSize, before < size ? before : size); };
  try {
    source.Reset();
    FSize = 0;
    while (source.MoveNext()) {
      Detail::ReplaceItem(FArray[FSize], source.Current());
      FSize = FSize + 1;
    }
  } catch (...) {
    resetRest();
    throw;
  }
  resetRest();
}

template <class T, class TList>
void TBasicArrayListIntf<T, TList>::AssignUnsized(IEnumerator<T>& source) {
  TRecArray<T> overflow;
  int32_t count = 0;
  try {
    source.Reset();
    while (source.MoveNext()) {
      if (count < FArray.Length()) {
        Detail::ReplaceItem(FArray[count], source.Current());
        ++count;
      } else {
        overflow.Add(source.Current());
      }
    }
  } catch (...) {
    ResetItems(FSize, count);  // spare slots go back to default values
    throw;
  }
  if (overflow.Size > 0) {
    FArray.Insert(FArray.Length(), overflow.Value.Data(), overflow.Size);
    FSize = CheckedAdd(count, overflow.Size);
    return;
  }
  // A shorter source fails here, by contract: the storage is cut first, and the reset of the
  // old items then runs past it.
  if (count < FSize) FArray.SetLength(count);
  ResetItems(count, FSize);
  FSize = count;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoDelete(int32_t index, int32_t count) {
  if (index < 0 || index >= FSize || count == 0) return false;
  if (count < 0) RaiseRangeError();
  DeleteItems(index, count < FSize - index ? count : FSize - index);
  return true;
}

/// Deletes items that are there, and as many slots of the storage.
template <class T, class TList>
void TBasicArrayListIntf<T, TList>::DeleteItems(int32_t index, int32_t count) {
  UnshareItems();
  const int32_t size = FSize - count;
  const int32_t length = FArray.Length() - count;
  if (length >= FSize) {
    // Spare slots stay where they are; as many as items are deleted are cut off at the end.
    FArray.CloseGap(index, count, FSize);
    if constexpr (std::is_trivially_destructible_v<T>) {
      ResetItems(size, FSize);
    } else {
      for (int32_t i = 0; i < count; ++i) std::ranges::swap(FArray[size + i], FArray[length + i]);
    }
  } else {
    FArray.CloseGap(index, count, FArray.Length());
  }
  FSize = size;
  FArray.Cut(length);  // the items end here, when the list is complete again
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoDeleteDirect(int32_t index) {
  DeleteItems(index, 1);
  return true;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoRemoveEqual(const T& value) {
  const T sought = value;  // `value` may be one of the items
  const IComparer<T>* equality = this->GetEquality();
  return TBasicArrayListIntf::DoRemoveIf(
      [&](const T& item) {
        return (equality ? equality->Compare(item, sought) : DefaultCompare(item, sought)) == 0;
      },
      nullptr);
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoRemoveIf(TFunctionRef<bool(const T&)> predicate,
                                               TFunctionRef<void(const T&)> action) {
  const auto hold = Hold();
  const int32_t before = this->GetState().SafeCount();
  if (!action && !IsWatched()) {
    RemoveMarked(predicate);
    return FSize != before;
  }
  bool hasRemoved = false;
  for (int32_t i = before - 1; i >= 0; --i) {
    if (i >= FSize || !predicate(FArray[i])) continue;
    const T item = FArray[i];
    hasRemoved |= this->DoDelete(i, 1);
    if (action) action(item);
  }
  return hasRemoved;
}

/// Asks the predicate from the last item to the first, then closes all gaps in one pass. When it
/// raises, what it accepted until then is gone.
template <class T, class TList>
void TBasicArrayListIntf<T, TList>::RemoveMarked(TFunctionRef<bool(const T&)> predicate) {
  const int32_t count = this->GetState().SafeCount();
  const TArray<uint8_t> isMarked = TArray<uint8_t>::OfLength(count);
  try {
    for (int32_t i = count - 1; i >= 0; --i) isMarked[i] = predicate(FArray[i]) ? 1 : 0;
  } catch (...) {
    CloseGaps(isMarked);
    throw;
  }
  CloseGaps(isMarked);
}

template <class T, class TList>
void TBasicArrayListIntf<T, TList>::CloseGaps(const TArray<uint8_t>& isMarked) {
  UnshareItems();
  const int32_t count = this->GetState().SafeCount();
  int32_t kept = 0;
  for (int32_t i = 0; i < count; ++i) {
    if (i < isMarked.Length() && isMarked[i]) continue;
    if (kept != i) std::ranges::swap(FArray[kept], FArray[i]);
    ++kept;
  }
  TBasicArrayListIntf::DoDelete(kept, count - kept);
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoSwap(int32_t left, int32_t right) {
  T& first = FArray[left];
  T& second = FArray[right];
  if (left == right) return false;
  std::ranges::swap(first, second);
  return true;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoMove(int32_t from, int32_t to) {
  if (from == to || from < 0 || to < 0 || from >= FSize || to >= FSize) return false;
  if ((from > to ? from : to) >= FArray.Length()) RaiseRangeError();
  T moved = std::move(FArray[from]);
  for (; from < to; ++from) FArray[from] = std::move(FArray[from + 1]);
  for (; from > to; --from) FArray[from] = std::move(FArray[from - 1]);
  FArray[to] = std::move(moved);
  return true;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoReverse() {
  for (int32_t i = 0, j = FSize - 1; i < j; ++i, --j) std::ranges::swap(FArray[i], FArray[j]);
  return FSize > 1;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoClear() {
  if (FSize == 0) return false;
  FSize = 0;
  FArray.SetLength(0);
  return true;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoSort(Detail::TSorter<T> sorter) {
  const Detail::TListState<T> state = this->GetState();
  const int32_t count = state.SafeCount();
  // A comparison that changes the list gets storage of its own; the sort stays on this one.
  const TArray<T> held = *state.Items;
  if (sorter) {
    sorter(held.Data(), count);
  } else {
    SortByOwnOrder(held.Data(), count);
  }
  return count > 1;
}

template <class T, class TList>
bool TBasicArrayListIntf<T, TList>::DoSetCapacity(int32_t capacity, bool allowsTruncation) {
  if (capacity < 0) RaiseRangeError();
  const bool cuts = FSize > capacity;
  if (cuts && !allowsTruncation) capacity = FSize;
  if (cuts && allowsTruncation) FSize = capacity;
  FArray.SetLength(capacity);
  return cuts && allowsTruncation;
}

template <class T, class TList>
TArray<T> TBasicArrayListIntf<T, TList>::ToArray() const {
  const Detail::TListState<T> state = this->GetState();
  if (state.Items->Length() == *state.Count) return *state.Items;
  return state.Items->Copy(0, *state.Count);
}

template <class T, class TList>
TRef<IArrayList<T>> TArrayListIntf<T, TList>::CreateList() const {
  return TArrayList<T>::Make();
}

template <class T, class TList>
void TArrayListIntf<T, TList>::SortByOwnOrder(T* items, int32_t count) {
  const IComparer<T>* comparer = GetEquality();
  if (!comparer) return Detail::SortByDefault(items, count);
  Detail::SortItems(items, count,
                    [&](const T& left, const T& right) { return comparer->Compare(left, right); });
}

template <class T, class TList>
TRef<IArrayList<T>> Detail::TIdentityArrayListIntf<T, TList>::CreateList() const {
  if constexpr (IsReference<T>) {
    return TInterfaceArrayList<T>::Make();
  } else {
    return TArrayList<T>::Make();
  }
}

template <class T, class TList>
void Detail::TIdentityArrayListIntf<T, TList>::SortByOwnOrder(T* items, int32_t count) {
  SortByDefault(items, count);
}

}  // namespace Talvo
