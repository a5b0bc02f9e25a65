// SPDX-License-Identifier: Apache-2.0
#pragma once
// Bodies of dynamic arrays.

#include <talvo/runtime/DynamicArray.h>

namespace Talvo {

template <class T>
T* TArray<T>::Allocate(int32_t count) {
  char* storage = static_cast<char*>(Detail::AllocateStorage(StorageSize(count), Alignment));
  ::new (storage) Detail::TArrayHeader{1, TCountCell(0), TCountCell(count)};
  return reinterpret_cast<T*>(storage + HeaderSize);
}

template <class T>
void TArray<T>::Drop(T* items) noexcept {
  if (!items) return;
  Detail::TArrayHeader* header = HeaderOf(items);
  if (__atomic_fetch_sub(&header->Refs, 1, __ATOMIC_ACQ_REL) != 1) return;
  if constexpr (!std::is_trivially_destructible_v<T>) {
    for (T *item = items, *end = items + header->Length; item != end; ++item) item->~T();
  }
  Detail::FreeStorage(StorageOf(items), Alignment);
}

template <class T>
void TArray<T>::CopyItems(Detail::TConstructed<T>& made, const T* items, int32_t count) {
  if constexpr (std::is_trivially_copyable_v<T>) {
    if (count > 0) {
      __builtin_memcpy(static_cast<void*>(made.Last), items,
                       static_cast<size_t>(count) * sizeof(T));
    }
    made.Last += count;
  } else {
    for (const T* end = items + count; items != end; ++items) made.Add(*items);
  }
}

template <class T>
void TArray<T>::FillItems(Detail::TConstructed<T>& made, int32_t count) {
  if constexpr (std::is_scalar_v<T> && !std::is_member_pointer_v<T>) {
    __builtin_memset(static_cast<void*>(made.Last), 0, static_cast<size_t>(count) * sizeof(T));
    made.Last += count;
  } else {
    for (int32_t i = 0; i < count; ++i) made.Add();
  }
}

template <class T>
void TArray<T>::TakeItems(Detail::TConstructed<T>& made, T* items, int32_t count, bool isOwn) {
  if (!isOwn || !std::is_nothrow_move_constructible_v<T>) return CopyItems(made, items, count);
  for (T* end = items + count; items != end; ++items) made.Add(std::move(*items));
}

template <class T>
void TArray<T>::AddCopies(const T* first, int32_t firstCount, const T* second,
                          int32_t secondCount) {
  if (secondCount < 0) RaiseRangeError();
  const int32_t length = CheckedAdd(firstCount, secondCount);
  if (length == 0) return;
  Assert(second != nullptr || secondCount == 0);
  T* fresh = Allocate(length);
  TStorageGuard storage{fresh};
  Detail::TConstructed<T> made(fresh);
  CopyItems(made, first, firstCount);
  CopyItems(made, second, secondCount);
  made.Keep();
  FItems = storage.Release();
  Header()->Length = length;
}

template <class T>
int32_t TArray<T>::RoomFor(int32_t length) const noexcept {
  const int64_t grown = int64_t{Length()} + Length() / 2;
  return grown > length && grown <= INT32_MAX ? static_cast<int32_t>(grown) : length;
}

template <class T>
void TArray<T>::FillUp(int32_t length) {
  Detail::TConstructed<T> made(end());
  FillItems(made, length - Length());
  made.Keep();
  Header()->Length = length;
}

template <class T>
void TArray<T>::Rebuild(int32_t room, int32_t length) {
  const bool isOwn = IsOwn();
  if constexpr (CanReallocate) {
    if (isOwn && room >= Length()) {
      void* storage = Detail::ReallocateStorage(StorageOf(FItems), StorageSize(room));
      FItems = reinterpret_cast<T*>(static_cast<char*>(storage) + HeaderSize);
      Header()->Allocated = room;
      return FillUp(length);
    }
  }
  const int32_t kept = length < Length() ? length : Length();
  T* fresh = Allocate(room);
  TStorageGuard storage{fresh};
  Detail::TConstructed<T> filled(fresh + kept);
  FillItems(filled, length - kept);
  Detail::TConstructed<T> taken(fresh);
  TakeItems(taken, FItems, kept, isOwn);
  taken.Keep();
  filled.Keep();
  T* old = std::exchange(FItems, storage.Release());
  Header()->Length = length;
  Drop(old);
}

template <class T>
void TArray<T>::SetLength(int32_t length) {
  if (length < 0) RaiseRangeError();
  if (length < Length()) {
    // Items that end may take the array along: nothing is touched afterwards.
    if constexpr (std::is_trivially_destructible_v<T>) {
      Cut(length);
    } else if constexpr (!std::is_nothrow_move_constructible_v<T>) {
      return Cut(length);
    }
    return length > 0 ? Rebuild(length, length) : Cut(0);
  } else if (length > 0 && (!IsOwn() || length > Header()->Allocated)) {
    Rebuild(length, length);
  } else if (length > Length()) {
    FillUp(length);
  }
}

template <class T>
void TArray<T>::Extend(int32_t length) {
  if (length <= Length()) return SetLength(length);
  if (!IsOwn() || length > Header()->Allocated) return Rebuild(RoomFor(length), length);
  FillUp(length);
}

template <class T>
void TArray<T>::Insert(int32_t index, const T* items, int32_t count) {
  const int32_t before = Length();
  if (index < 0 || index > before || count < 0) RaiseRangeError();
  if (count == 0) return;
  if (Holds(items)) return Insert(index, TArray(items, count).FItems, count);
  const int32_t length = CheckedAdd(before, count);
  const bool isOwn = IsOwn();
  const bool hasRoom = isOwn && length <= Header()->Allocated;
  if constexpr (IsTriviallyRelocatable<T> && std::is_nothrow_copy_constructible_v<T>) {
    if (!hasRoom) Rebuild(RoomFor(length), before);
    T* gap = FItems + index;
    __builtin_memmove(static_cast<void*>(gap + count), static_cast<const void*>(gap),
                      static_cast<size_t>(before - index) * sizeof(T));
    Detail::TConstructed<T> made(gap);
    CopyItems(made, items, count);
    made.Keep();
    Header()->Length = length;
  } else if (hasRoom && index == before) {
    Detail::TConstructed<T> made(end());
    CopyItems(made, items, count);
    made.Keep();
    Header()->Length = length;
  } else {
    T* fresh = Allocate(RoomFor(length));
    TStorageGuard storage{fresh};
    Detail::TConstructed<T> made(fresh + index);
    CopyItems(made, items, count);
    Detail::TConstructed<T> front(fresh);
    TakeItems(front, FItems, index, isOwn);
    TakeItems(made, FItems + index, before - index, isOwn);
    front.Keep();
    made.Keep();
    T* old = std::exchange(FItems, storage.Release());
    Header()->Length = length;
    Drop(old);
  }
}

template <class T>
void TArray<T>::CloseGap(int32_t index, int32_t count, int32_t last) {
  if (index < 0 || count < 0 || last > Length() || count > last - index) RaiseRangeError();
  if (count == 0 || index + count == last) return;
  if (IsShared()) Rebuild(Length(), Length());
  T* gap = FItems + index;
  T* const end = FItems + last - count;
  const size_t bytesBehind = static_cast<size_t>(end - gap) * sizeof(T);
  if constexpr (std::is_trivially_copyable_v<T>) {
    __builtin_memmove(static_cast<void*>(gap), gap + count, bytesBehind);
  } else if (count > 1) {
    for (; gap != end; ++gap) std::ranges::swap(*gap, gap[count]);
  } else if constexpr (IsTriviallyRelocatable<T>) {
    alignas(T) unsigned char deleted[sizeof(T)];
    __builtin_memcpy(deleted, static_cast<const void*>(gap), sizeof(T));
    __builtin_memmove(static_cast<void*>(gap), static_cast<const void*>(gap + 1), bytesBehind);
    __builtin_memcpy(static_cast<void*>(end), deleted, sizeof(T));
  } else {
    T deleted(std::move(*gap));
    for (; gap != end; ++gap) *gap = std::move(gap[1]);
    *end = std::move(deleted);
  }
}

template <class T>
void TArray<T>::Cut(int32_t length) {
  const int32_t before = Length();
  if (length < 0 || length > before) RaiseRangeError();
  if (length == before) return;
  if (length == 0) return Drop(std::exchange(FItems, nullptr));
  if (IsShared()) return Rebuild(length, length);
  Header()->Length = length;
  if constexpr (!std::is_trivially_destructible_v<T>) {
    // The end of an item may come back to this array, which then takes storage of its own.
    const TArray held = *this;
    for (int32_t i = length; i < before; ++i) held.FItems[i].~T();
  }
}

}  // namespace Talvo
