// SPDX-License-Identifier: Apache-2.0
#pragma once
// Sorting a buffer in place. Not stable. Never quadratic (introsort: D. Musser, "Introspective
// Sorting and Selection Algorithms", 1997), recursion at most log2(n) deep, and safe with an
// order that contradicts itself: the outcome then is some permutation. If a comparison raises,
// the buffer holds some permutation too.

#include <bit>
#include <talvo/runtime/Comparer.h>
#include <talvo/runtime/DynamicArray.h>

namespace Talvo::Detail {

/// Inserts each item into the sorted run in front of it.
template <class T, class C>
void InsertionSort(T* items, int32_t count, C& compare) {
  struct THole {
    T Item;
    T* Place;
    ~THole() { *Place = std::move(Item); }
  };
  for (int32_t i = 1; i < count; ++i) {
    if constexpr (!std::is_nothrow_move_assignable_v<T>) {
      // Where a move can raise there may be no hole to fill on the way out.
      for (int32_t j = i; j > 0 && compare(items[j - 1], items[j]) > 0; --j) {
        std::ranges::swap(items[j - 1], items[j]);
      }
      continue;
    }
    if (!(compare(items[i - 1], items[i]) > 0)) continue;
    THole hole{std::move(items[i]), items + i};
    do {
      *hole.Place = std::move(hole.Place[-1]);
      --hole.Place;
    } while (hole.Place != items && compare(hole.Place[-1], hole.Item) > 0);
  }
}

template <class T, class C>
void HeapSort(T* items, int32_t count, C& compare) {
  const auto siftDown = [&](int32_t root, int32_t end) {
    for (;;) {
      int64_t child = 2 * int64_t{root} + 1;
      if (child >= end) return;
      if (child + 1 < end && compare(items[child], items[child + 1]) < 0) ++child;
      if (!(compare(items[root], items[child]) < 0)) return;
      std::ranges::swap(items[root], items[child]);
      root = static_cast<int32_t>(child);
    }
  };
  for (int32_t root = count / 2 - 1; root >= 0; --root) siftDown(root, count);
  for (int32_t end = count - 1; end > 0; --end) {
    std::ranges::swap(items[0], items[end]);
    siftDown(0, end);
  }
}

/// Brings the middle one of three spread items to the front, to serve as the pivot.
template <class T, class C>
void PivotToFront(T* items, int32_t count, C& compare) {
  T* low = items;
  T* middle = items + count / 2;
  T* high = items + (count - 1);
  if (compare(*middle, *low) < 0) std::swap(middle, low);
  if (compare(*high, *middle) < 0) {
    middle = compare(*high, *low) < 0 ? low : high;
  }
  if (middle != items) std::ranges::swap(*middle, *items);
}

/// Splits the items around the pivot at the front; returns where the pivot ended. Both scans
/// stop at the bounds, so no order leads out of the buffer.
template <class T, class C>
int32_t Partition(T* items, int32_t count, C& compare) {
  int32_t i = 1;
  int32_t j = count - 1;
  for (;;) {
    while (i <= j && compare(items[i], items[0]) < 0) ++i;
    while (i <= j && compare(items[j], items[0]) > 0) --j;
    if (i >= j) break;
    std::ranges::swap(items[i], items[j]);
    ++i;
    --j;
  }
  if (j > 0) std::ranges::swap(items[0], items[j]);
  return j;
}

template <class T, class C>
void IntroSort(T* items, int32_t count, C& compare, int32_t depthLeft) {
  while (count > 16) {
    if (depthLeft-- == 0) return HeapSort(items, count, compare);
    PivotToFront(items, count, compare);
    const int32_t pivot = Partition(items, count, compare);
    T* right = items + pivot + 1;
    const int32_t rightCount = count - pivot - 1;
    if (pivot < rightCount) {
      IntroSort(items, pivot, compare, depthLeft);
      items = right;
      count = rightCount;
    } else {
      IntroSort(right, rightCount, compare, depthLeft);
      count = pivot;
    }
  }
  InsertionSort(items, count, compare);
}

/// Sorts by `compare`, which answers below, at or above 0. 0 or 1 items cost no comparison.
template <class T, class C>
void SortItems(T* items, int32_t count, C&& compare) {
  if (count < 2) return;
  IntroSort(items, count, compare, 2 * std::bit_width(static_cast<uint32_t>(count)));
}

/// The bits of a number such that unsigned order of the bits is the order of the numbers.
template <class T>
inline auto SortBits(T value) {
  if constexpr (std::is_floating_point_v<T>) {
    using TBits = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;
    if (value != value) return ~TBits{0};
    const TBits bits = std::bit_cast<TBits>(value);
    const TBits sign = TBits{1} << (sizeof(T) * 8 - 1);
    return bits & sign ? static_cast<TBits>(~bits) : static_cast<TBits>(bits | sign);
  } else {
    using TBits = std::make_unsigned_t<T>;
    const TBits sign = std::is_signed_v<T> ? TBits{1} << (sizeof(T) * 8 - 1) : TBits{0};
    return static_cast<TBits>(static_cast<TBits>(value) ^ sign);
  }
}

template <class T>
inline constexpr bool CanRadixSort = (std::is_integral_v<T> && !std::is_same_v<T, bool> &&
                                      sizeof(T) <= 8) ||
                                     std::is_same_v<T, float> || std::is_same_v<T, double>;

/// Radix sort, lowest digit first, in digits of 11 bits; digits that are the same in all items are
/// left out. `scratch` has room for `count` items.
template <class T>
void RadixSort(T* items, T* scratch, int32_t count) {
  constexpr int digitBits = 11;
  constexpr int digits = (sizeof(T) * 8 + digitBits - 1) / digitBits;
  constexpr uint32_t digitMask = (1u << digitBits) - 1;
  uint32_t starts[digits][digitMask + 1] = {};
  for (int32_t i = 0; i < count; ++i) {
    auto bits = SortBits(items[i]);
    for (int d = 0; d < digits; ++d) {
      ++starts[d][static_cast<uint32_t>(bits >> (d * digitBits) & digitMask)];
    }
  }
  T* from = items;
  T* to = scratch;
  for (int d = 0; d < digits; ++d) {
    const int shift = d * digitBits;
    uint32_t* start = starts[d];
    if (start[SortBits(from[0]) >> shift & digitMask] == static_cast<uint32_t>(count)) continue;
    uint32_t position = 0;
    for (uint32_t digit = 0; digit <= digitMask; ++digit) {
      position += std::exchange(start[digit], position);
    }
    for (int32_t i = 0; i < count; ++i) {
      to[start[SortBits(from[i]) >> shift & digitMask]++] = from[i];
    }
    std::swap(from, to);
  }
  if (from != items) __builtin_memcpy(items, from, static_cast<size_t>(count) * sizeof(T));
}

/// Sorts by the default order of T.
template <class T>
void SortByDefault(T* items, int32_t count) {
  if constexpr (CanRadixSort<T>) {
    constexpr int32_t worthwhile = 512;
    if (count >= worthwhile) {
      const TArray<T> scratch = TArray<T>::OfLength(count);
      return RadixSort(items, scratch.Data(), count);
    }
  }
  SortItems(items, count,
            [](const T& left, const T& right) { return DefaultCompare(left, right); });
}

}  // namespace Talvo::Detail
