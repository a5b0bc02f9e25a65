// SPDX-License-Identifier: Apache-2.0
#pragma once
// Bodies of TDictionary and its storage.

#include <talvo/runtime/Raise.h>

namespace Talvo::Detail {

template <class K, class V>
TDictionaryStorage<K, V>::~TDictionaryStorage() {
  if constexpr (!std::is_trivially_destructible_v<TItem>) {
    for (size_t number = First; number < Used; ++number) {
      if (IsLive(number)) At(number)->~TItem();
    }
  }
  Free();
}

template <class K, class V>
auto TDictionaryStorage<K, V>::FindInOrder(uint32_t hash, TLookupKey<K> key) const -> TFound {
  for (size_t number = First; number < Used; ++number) {
    if (Hashes[number] == hash && KeysEqual<K>(At(number)->Key, key)) return {At(number), 0};
  }
  return {};
}

template <class K, class V>
auto TDictionaryStorage<K, V>::FindInIndex(uint32_t hash, TLookupKey<K> key) const -> TFound {
  const uint32_t mask = SlotMask;
  uint32_t start = hash & mask;
  __builtin_prefetch(Slots + start);
  for (uint32_t step = TTagGroup::Size;; step += TTagGroup::Size) {
    const TTagGroup group(Tags + start);
    for (uint32_t match = group.Match(TTagGroup::TagOf(hash)); match != 0; match &= match - 1) {
      const uint32_t slot = (start + static_cast<uint32_t>(__builtin_ctz(match))) & mask;
      const uint32_t content = Slots[slot];
      // The rest of the hash, unless comparing keys is as quick.
      if (!std::is_scalar_v<K> && ((content ^ hash) & ~mask) != 0) [[unlikely]]
        continue;
      TItem* item = At(content & mask);
      if (KeysEqual<K>(item->Key, key)) [[likely]]
        return {item, slot};
    }
    if (const uint32_t free = group.Match(TTagGroup::FreeTag)) [[likely]] {
      return {nullptr, (start + static_cast<uint32_t>(__builtin_ctz(free))) & mask};
    }
    start = (start + step) & mask;
  }
}

template <class K, class V>
template <class Q, class... A>
void TDictionaryStorage<K, V>::Construct(uint32_t hash, Q&& key, A&&... arguments) {
  ::new (At(Used)) TItem{K(std::forward<Q>(key)), V(std::forward<A>(arguments)...)};
  Hashes[Used] = hash;
  ++Used;
  ++Count;
}

template <class K, class V>
template <class TSource>
void TDictionaryStorage<K, V>::Prepend(TSource& source) {
  // Backwards, so that what stands in [First, Used) is what has to end should a copy raise.
  for (size_t number = source.Used; number-- > source.First;) {
    if (!source.IsLive(number)) continue;
    TItem& item = *source.At(number);
    if constexpr (std::is_const_v<TSource>) {
      ::new (At(First - 1)) TItem(std::as_const(item));
    } else {
      ::new (At(First - 1)) TItem(std::move_if_noexcept(item));
    }
    Hashes[--First] = source.Hashes[number];
    ++Count;
  }
  EnterAll();
}

template <class K, class V>
auto TDictionaryStorage<K, V>::TakeOut(TFound found) -> TItem {
  TItem taken = std::move_if_noexcept(*found.Item);
  Unlink(static_cast<uint32_t>(found.Item - At(0)), found.Slot);
  found.Item->~TItem();
  return taken;
}

}  // namespace Talvo::Detail

namespace Talvo::Rtl {

template <class K, class V>
TDictionary<K, V>::TDictionary(const TDictionary& other) {
  if (other.Count() == 0) return;
  TStorage copy(other.FStorage.Count);
  copy.First = copy.Used = other.FStorage.Count;
  copy.Prepend(other.FStorage);
  FStorage.Swap(copy);
}

template <class K, class V>
TDictionary<K, V>& TDictionary<K, V>::operator=(TDictionary other) noexcept {
  FStorage.Swap(other.FStorage);
  std::swap(FBase, other.FBase);
  return *this;
}

template <class K, class V>
TDictionary<K, V>::~TDictionary() {
  // A destructor of an item may have added another one.
  while (FStorage.Pairs) Clear();
}

template <class K, class V>
template <Detail::KeyFor<K> Q, std::convertible_to<V> U>
void TDictionary<K, V>::Add(Q&& key, U&& value) {
  if (!TryAdd(std::forward<Q>(key), std::forward<U>(value)).IsNew) RaiseDuplicateKey();
}

template <class K, class V>
template <Detail::KeyFor<K> Q, std::convertible_to<V> U>
bool TDictionary<K, V>::AddOrSetValue(Q&& key, U&& value) {
  if constexpr (Detail::DirectKeyFor<Q, K>) {
    return AddOrSetValueHashed(HashOf(key), std::forward<Q>(key), std::forward<U>(value));
  } else {
    K converted = std::forward<Q>(key);
    return AddOrSetValueHashed(HashOf(converted), std::move(converted), std::forward<U>(value));
  }
}

template <class K, class V>
template <Detail::KeyFor<K> Q, std::convertible_to<V> U>
bool TDictionary<K, V>::AddOrSetValueHashed(THashCode hash, Q&& key, U&& value) {
  const TAdded added = TryAddHashed(hash, std::forward<Q>(key), std::forward<U>(value));
  if (added.IsNew) return true;
  // The old value ends last: its destructor may change this dictionary.
  V incoming = std::forward<U>(value);
  [[maybe_unused]] const V outgoing = std::move_if_noexcept(added.Value);
  if constexpr (std::is_nothrow_move_constructible_v<V>) {
    // Not by assignment, which may raise, and now must not.
    added.Value.~V();
    ::new (&added.Value) V(std::move(incoming));
  } else {
    added.Value = std::move(incoming);
  }
  return false;
}

template <class K, class V>
template <Detail::KeyFor<K> Q, class... A>
auto TDictionary<K, V>::TryAdd(Q&& key, A&&... arguments) -> TAdded {
  if constexpr (Detail::DirectKeyFor<Q, K>) {
    return TryAddHashed(HashOf(key), std::forward<Q>(key), std::forward<A>(arguments)...);
  } else {
    K converted = std::forward<Q>(key);
    return TryAddHashed(HashOf(converted), std::move(converted), std::forward<A>(arguments)...);
  }
}

template <class K, class V>
template <Detail::KeyFor<K> Q, class... A>
auto TDictionary<K, V>::TryAddHashed(THashCode hash, Q&& key, A&&... arguments) -> TAdded {
  static_assert(std::constructible_from<V, A...>, "No value can be made of these arguments.");
  const auto code = static_cast<uint32_t>(hash);
  const auto found = FStorage.Find(code, key);
  if (found.Item) return {found.Item->Value, false};
  if (FStorage.Used < FStorage.Capacity) [[likely]] {
    FStorage.Construct(code, std::forward<Q>(key), std::forward<A>(arguments)...);
    if (FStorage.Slots) FStorage.SetSlot(found.Slot, code, FStorage.Used - 1);
  } else {
    Rebuild(TStorage::GrownCapacity(FStorage.Count), code, std::forward<Q>(key),
            std::forward<A>(arguments)...);
  }
  return {FStorage.At(FStorage.Used - 1)->Value, true};
}

template <class K, class V>
template <class... A>
void TDictionary<K, V>::Rebuild(uint32_t capacity, A&&... newPair) {
  const uint32_t count = FStorage.Count;
  TStorage fresh(capacity);
  fresh.First = fresh.Used = count;
  // The new pair first: its key and value may stand in an old one.
  if constexpr (sizeof...(A) > 0) fresh.Construct(std::forward<A>(newPair)...);
  fresh.Prepend(FStorage);
  // Closing gaps moves items towards the end, so walks meet some twice and miss none.
  FBase += FStorage.Used - count;
  FStorage.Swap(fresh);
}

template <class K, class V>
bool TDictionary<K, V>::Remove(TKey key) {
  const auto found = FStorage.Find(Detail::HashCodeOf<K>(key), key);
  if (!found.Item) return false;
  FStorage.TakeOut(found);
  return true;
}

template <class K, class V>
auto TDictionary<K, V>::ExtractPair(TKey key) -> TItem {
  const auto found = FStorage.Find(Detail::HashCodeOf<K>(key), key);
  if (!found.Item) return TItem{K(key), V{}};
  return FStorage.TakeOut(found);
}

template <class K, class V>
void TDictionary<K, V>::Clear() noexcept {
  FBase += FStorage.Used;
  TStorage ending = std::move(FStorage);
}

template <class K, class V>
V* TDictionary<K, V>::FindHashed(THashCode hash, TKey key) {
  TItem* item = FStorage.Find(static_cast<uint32_t>(hash), key).Item;
  return item ? &item->Value : nullptr;
}

template <class K, class V>
const V* TDictionary<K, V>::FindHashed(THashCode hash, TKey key) const {
  const TItem* item = FStorage.Find(static_cast<uint32_t>(hash), key).Item;
  return item ? &item->Value : nullptr;
}

template <class K, class V>
bool TDictionary<K, V>::TryGetValue(TKey key, V& value) const {
  const V* found = Find(key);
  // `key` may be `value`, and what `value` held may change this dictionary when it ends.
  V copy = found ? V(*found) : V{};
  value = std::move(copy);
  return found != nullptr;
}

template <class K, class V>
const V& TDictionary<K, V>::GetItem(TKey key) const {
  const V* found = Find(key);
  if (!found) RaiseKeyNotFound();
  return *found;
}

template <class K, class V>
bool TDictionary<K, V>::ContainsValue(const V& value) const {
  for (const TItem& item : *this) {
    if (item.Value == value) return true;
  }
  return false;
}

template <class K, class V>
void TDictionary<K, V>::Reserve(int32_t count) {
  const int64_t gaps = FStorage.Used - FStorage.Count;
  if (count <= FStorage.Capacity - gaps) return;
  // Many calls that ask for one more each must not copy everything each time.
  const uint32_t grown = TStorage::GrownCapacity(FStorage.Count);
  const auto wanted = static_cast<uint32_t>(count);
  Rebuild(wanted > grown ? wanted : grown);
}

template <class K, class V>
void TDictionary<K, V>::TrimExcess() {
  if (FStorage.Count == 0) return Clear();
  if (FStorage.Count < FStorage.Capacity) Rebuild(FStorage.Count);
}

template <class K, class V>
auto TDictionary<K, V>::begin() const noexcept -> TIterator {
  return {FStorage, FStorage.First};
}

template <class K, class V>
auto TDictionary<K, V>::end() const noexcept -> TIterator {
  return {FStorage, FStorage.Used};
}

template <class K, class V>
auto TDictionary<K, V>::Next(int64_t& position) const noexcept -> const TItem* {
  const int64_t end = FStorage.Used;
  int64_t at = position + 1 - FBase;
  if (at < FStorage.First) at = FStorage.First;
  while (at < end && !FStorage.IsLive(static_cast<size_t>(at))) ++at;
  position = FBase + (at < end ? at : end - 1);
  return at < end ? FStorage.At(static_cast<size_t>(at)) : nullptr;
}

}  // namespace Talvo::Rtl
