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

/// A dynamic array: one pointer to counted storage that copies share. Not locked; arrays that share
/// storage may be copied and dropped on any threads.
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
  /// Copies `count` items. Raises ERangeError when `count` is below 0.
  TArray(const T* items, int32_t count) { AddCopies(nullptr, 0, items, count); }
  /// Copies the items of a vector, a span, a std::array or a C array.
  template <ContiguousOf<T> S>
  explicit TArray(const S& source) : TArray(Detail::DataOf<T>(source), Detail::SizeOf(source)) {}
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

  /// The number of items.
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
    if (!Contains(index)) [[unlikely]]
      RaiseRangeError();
    return FItems[static_cast<uint32_t>(index)];
  }
  bool Contains(int32_t index) const noexcept {
    return static_cast<uint32_t>(index) < static_cast<uint32_t>(Length());
  }

  /// Cuts the array or fills it up with default values; storage then is this handle's own.
  /// Raises ERangeError when `length` is below 0.
  void SetLength(int32_t length);
  /// The same, for arrays that grow time and again: takes memory for what is to come.
  void Extend(int32_t length);
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
    TArray joined;
    joined.AddCopies(FItems, Length(), items, count);
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
  bool IsOwn() const noexcept { return FItems && !IsShared(); }

  static size_t StorageSize(int32_t count) {
    return CheckedAdd(HeaderSize, CheckedMul(static_cast<size_t>(count), sizeof(T)));
  }
  static T* Allocate(int32_t count);
  static void Drop(T* items) noexcept;
  static void CopyItems(Detail::TConstructed<T>& made, const T* items, int32_t count);
  static void FillItems(Detail::TConstructed<T>& made, int32_t count);
  /// Moves items out of storage that is ours alone, if that cannot raise; else copies them.
  static void TakeItems(Detail::TConstructed<T>& made, T* items, int32_t count, bool isOwn);
  /// Gives this empty array copies of two runs of items.
  void AddCopies(const T* first, int32_t firstCount, const T* second, int32_t secondCount);
  /// Room for `length` items and, if there were some before, for half as many more: sequences
  /// appended one by one do not each move all items.
  int32_t RoomFor(int32_t length) const noexcept;
  /// Storage of our own with room for `room` and the length `length`, cut or filled up.
  void Rebuild(int32_t room, int32_t length);
  /// Lengthens the array within its memory.
  void FillUp(int32_t length);

  T* FItems = nullptr;
};

template <class T>
inline constexpr bool IsTriviallyRelocatable<TArray<T>> = true;

}  // namespace Talvo

#include <talvo/runtime/DynamicArray.inl.h>
