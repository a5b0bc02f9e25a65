// SPDX-License-Identifier: Apache-2.0
#pragma once
// What dictionaries and sets have in common: the runtime's dictionary inside, walks that survive
// its changes, and changes that are announced.

#include <talvo/containers/common/Enumerable.h>
#include <talvo/runtime/Dictionary.h>

namespace Talvo::Detail {

/// A place in a dictionary that may change between two steps.
template <class TMap>
class TDictionaryWalk {
 public:
  using TItem = typename TMap::TItem;

  explicit TDictionaryWalk(const TMap& map) noexcept : FMap(&map) {}
  const TMap& Map() const noexcept { return *FMap; }
  void Reset() noexcept { *this = TDictionaryWalk(*FMap); }
  /// The next item, null at the end; valid until the dictionary changes.
  const TItem* Next() noexcept {
    const TItem* item = FMap->Next(FPosition);
    FIsAtItem = item != nullptr;
    return item;
  }
  /// The item that Next gave, wherever it stands now; null when it is gone.
  const TItem* Current() const noexcept {
    int64_t position = FPosition - 1;
    const TItem* item = FIsAtItem ? FMap->Next(position) : nullptr;
    return position == FPosition ? item : nullptr;
  }
  /// Has Next give the item again, or the one behind it when it is gone.
  void StepBack() noexcept { --FPosition; }

 private:
  const TMap* FMap;
  int64_t FPosition = -1;
  bool FIsAtItem = false;
};

/// What a walk yields of an item: all of it, or its key.
template <class T, class TItem>
const T& YieldOf(const TItem& item) noexcept {
  if constexpr (std::is_same_v<T, TItem>) {
    return item;
  } else {
    return item.Key;
  }
}

/// Puts `incoming` in the place of `value` and answers what stood there. When a copy raises,
/// `value` is as it was.
template <class V>
V ExchangeValue(V& value, V& incoming) {
  V outgoing = std::move_if_noexcept(value);
  if constexpr (std::is_nothrow_move_constructible_v<V>) {
    // Not by assignment, which may raise, and now must not.
    value.~V();
    ::new (&value) V(std::move(incoming));
  } else {
    value = std::move(incoming);
  }
  return outgoing;
}

struct TDictionaryEnd {};

/// Walks a dictionary or set in a range-for, and keeps it alive until the loop ends.
template <class TMap, class T>
class TDictionaryIterator {
 public:
  using value_type = T;
  using difference_type = std::ptrdiff_t;

  TDictionaryIterator(TRef<IInterface> owner, const TMap& map)
      : FOwner(std::move(owner)), FWalk(map), FItem(FWalk.Next()) {}
  const T& operator*() const noexcept { return YieldOf<T>(*FItem); }
  const T* operator->() const noexcept { return &**this; }
  TDictionaryIterator& operator++() noexcept {
    FItem = FWalk.Next();
    return *this;
  }
  void operator++(int) noexcept { ++*this; }
  friend bool operator==(const TDictionaryIterator& at, TDictionaryEnd) noexcept {
    return !at.FItem;
  }

 private:
  TRef<IInterface> FOwner;
  TDictionaryWalk<TMap> FWalk;
  const typename TMap::TItem* FItem;
};

/// Walks a dictionary or set, which it keeps alive.
template <class TMap, class T>
class TDictionaryEnumerator final : public TBasicSizeEnumerator<T> {
 public:
  TDictionaryEnumerator(TRef<IInterface> owner, const TMap& map)
      : FOwner(std::move(owner)), FWalk(map) {}
  void Reset() override { FWalk.Reset(); }
  bool MoveNext() override { return FWalk.Next() != nullptr; }
  /// Raises ERangeError before the first item, behind the last, and when the item was removed.
  const T& GenericGetCurrent() override {
    const auto* item = FWalk.Current();
    if (!item) RaiseRangeError();
    return YieldOf<T>(*item);
  }
  int32_t GetSize() override { return FWalk.Map().Count(); }

 private:
  TRef<IInterface> FOwner;
  TDictionaryWalk<TMap> FWalk;
};

/// Owns the runtime's dictionary and tells of its changes; `TBase` has ChangeNotify. Everything
/// is announced when it is done. Keys and values that leave may come back to this object as they
/// end, and drop the last reference to it.
template <class TMap, class TBase>
class TDictionaryHolder : public TBase {
 protected:
  using TItem = typename TMap::TItem;
  using TKey = typename TMap::TKey;

  TDictionaryHolder() = default;

  /// Calls `change`, which notes in its argument when it has changed something; that is announced
  /// even if it raises later.
  template <class F>
  bool Change(F&& change) {
    const TRef<IInterface> hold(*this);
    bool hasChanged = false;
    try {
      change(hasChanged);
    } catch (...) {
      if (hasChanged) this->ChangeNotify();
      throw;
    }
    if (hasChanged) this->ChangeNotify();
    return hasChanged;
  }

  bool RemoveKey(TKey key) {
    if (!FDictionary.ContainsKey(key)) return false;
    [[maybe_unused]] const TItem removed = FDictionary.ExtractPair(key);  // ends last
    this->ChangeNotify();
    return true;
  }

  /// Removes the items (or the first one) that `accept` says yes to.
  template <class F>
  bool RemoveItems(F&& accept, bool isOnce) {
    return Change([&](bool& hasChanged) {
      TDictionaryWalk<TMap> walk(FDictionary);
      while (const TItem* item = walk.Next()) {
        if (!accept(*item)) continue;
        if (walk.Current() != item) {
          walk.StepBack();  // `accept` has changed the dictionary: ask again
          continue;
        }
        if (FDictionary.Remove(item->Key)) hasChanged = true;
        if (isOnce) return;
      }
    });
  }

  bool ClearItems() {
    return Change([this](bool& hasChanged) {
      hasChanged = FDictionary.Count() > 0;
      FDictionary.Clear();
    });
  }

  TMap FDictionary;
};

}  // namespace Talvo::Detail

// The maps behind the common dictionaries and sets are compiled once, in Dictionary.cpp.
#define TALVO_COMMON_MAPS(Template)            \
  Template Rtl::TDictionary<int32_t, int32_t>; \
  Template Rtl::TDictionary<string, int32_t>;  \
  Template Rtl::TDictionary<string, string>;   \
  Template Rtl::TDictionary<string, TRef<IInterface>>

namespace Talvo {
TALVO_COMMON_MAPS(extern template class TALVO_API);
}  // namespace Talvo
