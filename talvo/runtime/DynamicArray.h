// SPDX-License-Identifier: Apache-2.0
#pragma once
// TArray<T>: one pointer to counted storage.
//
//   TArray<int32_t> a{1, 2, 3};
//   auto b = a;           // shares: a write through b shows in a
//   b.SetLength(4);       // b has storage of its own from here on
//
// The empty array is a null pointer. Counting is safe on any thread, the elements are not guarded.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <new>
#include <type_traits>
#include <utility>
#include <talvo/runtime/Checked.h>
#include <talvo/runtime/Reference.h>

namespace Talvo {

template <class R>
class TFunction;

/// Whether a value may be moved by copying its bytes and forgetting the source.
template <class T>
inline constexpr bool IsTriviallyRelocatable = std::is_trivially_copyable_v<T>;
template <class I>
inline constexpr bool IsTriviallyRelocatable<TRef<I>> = true;
template <class S>
inline constexpr bool IsTriviallyRelocatable<TFunction<S>> = true;

/// Anything with contiguous items of type T: a vector, a span, a std::array, a C array.
template <class S, class T>
concept ContiguousOf = requires(const S& source) {
  requires std::is_same_v<std::remove_cv_t<std::remove_pointer_t<decltype(source.data())>>, T>;
  { source.size() } -> std::integral;
}
|| (std::is_array_v<std::remove_cvref_t<S>> &&
    std::is_same_v<std::remove_cv_t<std::remove_extent_t<std::remove_cvref_t<S>>>, T>);

/// A count in memory that no write to an int32_t can change behind the compiler's back: a filling
/// loop keeps it in a register. Reads and writes as an int32_t.
class TCountCell {
 public:
  constexpr TCountCell() noexcept = default;
  constexpr explicit TCountCell(int32_t count) noexcept : FStored(static_cast<TStored>(count)) {}
  constexpr TCountCell& operator=(int32_t count) noexcept {
    FStored = static_cast<TStored>(count);
    return *this;
  }
  constexpr operator int32_t() const noexcept { return static_cast<int32_t>(FStored); }

 private:
  enum class TStored : int32_t {} FStored{};
};

namespace Detail {

struct TArrayHeader {
  uint32_t Refs;
  TCountCell Length;     // all of these are constructed
  TCountCell Allocated;  // room for this many, Length at least
};

TALVO_API void* AllocateStorage(size_t size, size_t alignment);
TALVO_API void* ReallocateStorage(void* storage, size_t size);
TALVO_API void FreeStorage(void* storage, size_t alignment) noexcept;

/// Items `first` to `last` - 1 constructed so far; destroys them unless told to keep them.
template <class T>
struct TConstructed {
  T* First;
  T* Last;
  explicit TConstructed(T* first) : First(first), Last(first) {}
  ~TConstructed() {
    while (Last != First) (--Last)->~T();
  }
  template <class... A>
  void Add(A&&... arguments) {
    ::new (static_cast<void*>(Last)) T(static_cast<A&&>(arguments)...);
    ++Last;
  }
  void Keep() { First = Last; }
};

/// The number of items of a source as a count; EIntOverflow past 2^31 - 1.
template <class N>
int32_t CountOfSize(N size) {
  if (static_cast<uint64_t>(size) > INT32_MAX) RaiseIntOverflow();
  return static_cast<int32_t>(size);
}
template <class T, class S>
const T* DataOf(const S& source) {
  if constexpr (std::is_array_v<S>) {
    return source;
  } else {
    return source.data();
  }
}
template <class S>
int32_t SizeOf(const S& source) {
  if constexpr (std::is_array_v<S>) {
    return CountOfSize(std::extent_v<S>);
  } else {
    return CountOfSize(source.size());
  }
}

}  // namespace Detail

template <class T>
class TArray {
  static_assert(std::is_default_constructible_v<T> && std::is_copy_constructible_v<T> &&
                    std::is_copy_assignable_v<T>,
                "An element type must be default constructible and copyable: spare slots of a list "
                "hold live default values.");

 public:
  constexpr TArray() noexcept = default;
  TArray(std::initializer_list<T> items)
      : TArray(items.begin(), Detail::CountOfSize(items.size())) {}
  /// Copies `count` items.
  TArray(const T* items, int32_t count) {
    if (count < 0) RaiseRangeError();
    if (count == 0) return;
    Assert(items != nullptr);
    T* fresh = Allocate(count);
    TStorageGuard storage{fresh};
    Detail::TConstructed<T> made(fresh);
    CopyItems(made, items, count);
    made.Keep();
    FItems = storage.Release();
    Header()->Length = count;
  }
  template <class S>
  requires(ContiguousOf<S, T> &&
           !std::is_same_v<std::remove_cvref_t<S>, TArray>) explicit TArray(const S& source)
      : TArray(Detail::DataOf<T>(source), Detail::SizeOf(source)) {}
  TArray(const TArray& other) noexcept : FItems(other.FItems) {
    if (FItems) __atomic_fetch_add(&Header()->Refs, 1, __ATOMIC_RELAXED);
  }
  TArray(TArray&& other) noexcept : FItems(std::exchange(other.FItems, nullptr)) {}
  ~TArray() { Drop(FItems); }
  TArray& operator=(const TArray& other) noexcept { return *this = TArray(other); }
  TArray& operator=(TArray&& other) noexcept {
    Drop(std::exchange(FItems, std::exchange(other.FItems, nullptr)));
    return *this;
  }

  /// An array of `length` default values.
  static TArray OfLength(int32_t length) {
    TArray made;
    made.SetLength(length);
    return made;
  }

  int32_t Length() const noexcept { return FItems ? Header()->Length : 0; }
  bool IsEmpty() const noexcept { return !FItems; }
  /// The items; null when empty. Valid until the length changes.
  T* Data() const noexcept { return FItems; }
  T* begin() const noexcept { return FItems; }
  T* end() const noexcept { return FItems + Length(); }
  T* data() const noexcept { return FItems; }
  size_t size() const noexcept { return static_cast<size_t>(Length()); }

  /// The item at `index`; every handle to the storage sees what is written. Raises ERangeError
  /// outside 0 to Length() - 1.
  T& operator[](int32_t index) const {
    if (static_cast<uint32_t>(index) >= static_cast<uint32_t>(Length())) [[unlikely]]
      RaiseRangeError();
    return FItems[index];
  }

  /// Cuts the array or fills it up with default values; storage then is this handle's own.
  /// Raises ERangeError when `length` is below 0.
  void SetLength(int32_t length);
  /// SetLength for arrays that grow time and again: takes memory for what is to come.
  void Extend(int32_t length) {
    if (length > Length() && (!IsOwn() || length > Header()->Allocated)) {
      Rebuild(RoomFor(length), length);
    } else {
      SetLength(length);
    }
  }
  /// Inserts copies of `count` items in front of `index` (0 to Length()). The items may be the
  /// array's own. Nothing is changed when a copy raises.
  void Insert(int32_t index, const T* items, int32_t count);
  /// Deletes `count` items from `index` on; all of them must lie inside the array. They end when
  /// the array is complete again.
  void Delete(int32_t index, int32_t count) {
    CloseGap(index, count, Length());
    Cut(Length() - count);
  }
  /// The first half of Delete: moves the items between the `count` deleted ones and `last` up to
  /// `index`. What is left in the `count` places in front of `last` is of no use any more.
  void CloseGap(int32_t index, int32_t count, int32_t last);
  /// The second half of Delete: shortens the array to `length` and keeps the memory.
  void Cut(int32_t length);
  /// A new array of `count` items from `index` on.
  TArray Copy(int32_t index, int32_t count) const {
    if (index < 0 || count < 0 || count > Length() - index) RaiseRangeError();
    return TArray(FItems + index, count);
  }
  /// A new array of this one's items followed by `count` more.
  TArray Concat(const T* items, int32_t count) const {
    if (count < 0) RaiseRangeError();
    TArray joined;
    const int32_t length = CheckedAdd(Length(), count);
    if (length == 0) return joined;
    T* fresh = Allocate(length);
    TStorageGuard storage{fresh};
    Detail::TConstructed<T> made(fresh);
    CopyItems(made, FItems, Length());
    CopyItems(made, items, count);
    made.Keep();
    joined.FItems = storage.Release();
    joined.Header()->Length = length;
    return joined;
  }

  /// Whether `item` is one of the array's own.
  bool Holds(const T* item) const noexcept { return FItems && item >= FItems && item < end(); }
  /// Whether both handles stand on the same storage.
  bool SharesWith(const TArray& other) const noexcept { return FItems && FItems == other.FItems; }
  bool IsShared() const noexcept {
    return FItems && __atomic_load_n(&Header()->Refs, __ATOMIC_ACQUIRE) > 1;
  }

 private:
  static constexpr size_t Alignment = alignof(T) > alignof(std::max_align_t)
                                          ? alignof(T)
                                          : alignof(std::max_align_t);
  static constexpr size_t HeaderSize =
      (sizeof(Detail::TArrayHeader) + Alignment - 1) / Alignment * Alignment;
  static constexpr bool CanReallocate =
      IsTriviallyRelocatable<T> && Alignment == alignof(std::max_align_t);

  struct TStorageGuard {
    T* Items;
    ~TStorageGuard() {
      if (Items) Detail::FreeStorage(StorageOf(Items), Alignment);
    }
    T* Release() { return std::exchange(Items, nullptr); }
  };

  static char* StorageOf(T* items) noexcept { return reinterpret_cast<char*>(items) - HeaderSize; }
  static Detail::TArrayHeader* HeaderOf(T* items) noexcept {
    return reinterpret_cast<Detail::TArrayHeader*>(StorageOf(items));
  }
  Detail::TArrayHeader* Header() const noexcept { return HeaderOf(FItems); }

  static size_t StorageSize(int32_t count) {
    return CheckedAdd(HeaderSize, CheckedMul(static_cast<size_t>(count), sizeof(T)));
  }
  static T* Allocate(int32_t count) {
    char* storage = static_cast<char*>(Detail::AllocateStorage(StorageSize(count), Alignment));
    ::new (storage) Detail::TArrayHeader{1, TCountCell(0), TCountCell(count)};
    return reinterpret_cast<T*>(storage + HeaderSize);
  }
  static void CopyItems(Detail::TConstructed<T>& made, const T* items, int32_t count) {
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
  static void Drop(T* items) noexcept {
    if (!items) return;
    Detail::TArrayHeader* header = HeaderOf(items);
    if (__atomic_fetch_sub(&header->Refs, 1, __ATOMIC_ACQ_REL) != 1) return;
    if constexpr (!std::is_trivially_destructible_v<T>) {
      for (T *item = items, *end = items + header->Length; item != end; ++item) item->~T();
    }
    Detail::FreeStorage(StorageOf(items), Alignment);
  }

  static void FillItems(Detail::TConstructed<T>& made, int32_t count) {
    if constexpr (std::is_scalar_v<T> && !std::is_member_pointer_v<T>) {
      __builtin_memset(static_cast<void*>(made.Last), 0, static_cast<size_t>(count) * sizeof(T));
      made.Last += count;
    } else {
      for (int32_t i = 0; i < count; ++i) made.Add();
    }
  }
  /// Moves items out of storage that is ours alone, if that cannot raise; else copies them.
  static void TakeItems(Detail::TConstructed<T>& made, T* items, int32_t count, bool isOwn) {
    if (!isOwn || !std::is_nothrow_move_constructible_v<T>) return CopyItems(made, items, count);
    for (T* end = items + count; items != end; ++items) made.Add(std::move(*items));
  }
  bool IsOwn() const noexcept { return FItems && !IsShared(); }
  /// Room for `length` items and, if there were some before, for half as many more: sequences
  /// appended one by one do not each move all items.
  int32_t RoomFor(int32_t length) const noexcept {
    const int64_t grown = int64_t{Length()} + Length() / 2;
    return grown > length && grown <= INT32_MAX ? static_cast<int32_t>(grown) : length;
  }
  /// Storage of our own with `length` items, cut or filled up, and room for `room`.
  void Rebuild(int32_t room, int32_t length);
  void FillUp(int32_t length);

  T* FItems = nullptr;
};

template <class T>
inline constexpr bool IsTriviallyRelocatable<TArray<T>> = true;

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
  const int32_t kept = length < Length() ? length : Length();
  if constexpr (CanReallocate) {
    if (isOwn) {
      void* storage = Detail::ReallocateStorage(StorageOf(FItems), StorageSize(room));
      FItems = reinterpret_cast<T*>(static_cast<char*>(storage) + HeaderSize);
      Header()->Allocated = room;
      return FillUp(length);
    }
  }
  T* fresh = Allocate(room);
  TStorageGuard storage{fresh};
  Detail::TConstructed<T> filled(fresh + kept);
  FillItems(filled, length - kept);
  Detail::TConstructed<T> taken(fresh);
  TakeItems(taken, FItems, kept, isOwn);
  taken.Keep();
  filled.Keep();
  storage.Release();
  HeaderOf(fresh)->Length = length;
  Drop(std::exchange(FItems, fresh));
}

template <class T>
void TArray<T>::SetLength(int32_t length) {
  if (length < 0) RaiseRangeError();
  if (length < Length()) {
    Cut(length);
    if constexpr (CanReallocate || std::is_nothrow_move_constructible_v<T>) {
      if (IsOwn() && Length() == length && Header()->Allocated > length) Rebuild(length, length);
    }
  } else if (length > 0 && (!IsOwn() || length > Header()->Allocated)) {
    Rebuild(length, length);
  } else if (length > Length()) {
    FillUp(length);
  }
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
    storage.Release();
    HeaderOf(fresh)->Length = length;
    Drop(std::exchange(FItems, fresh));
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
    for (; gap != end; ++gap) std::swap(*gap, gap[count]);
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
