// SPDX-License-Identifier: Apache-2.0
#pragma once
// Bodies of TDictionary and its storage.

#include <talvo/runtime/Raise.h>

namespace Talvo::Detail {

template <class K, class V>
TDictionaryStorage<K, V>::~TDictionaryStorage() {
  if (!Entries) return;
  if constexpr (!std::is_trivially_destructible_v<TPair<K, V>>) {
    for (TEntry *entry = At(First), *end = At(Used); entry != end; ++entry) {
      if (entry->IsLive()) entry->Pair.~TPair<K, V>();
    }
  }
  FreeMemory();
}

template <class K, class V>
auto TDictionaryStorage<K, V>::FindUnindexed(uint32_t hash, TLookupKey<K> key) const -> TEntry* {
  for (TEntry *entry = At(First), *end = At(Used); entry != end; ++entry) {
    if (entry->Hash == hash && KeysEqual<K>(entry->Pair.Key, key)) return entry;
  }
  return nullptr;
}

template <class K, class V>
auto TDictionaryStorage<K, V>::FindIndexed(uint32_t hash, TLookupKey<K> key) const -> TEntry* {
  const uint32_t mask = SlotMask;
  uint32_t start = hash & mask;
  __builtin_prefetch(Slots + start);
  for (uint32_t step = TTagGroup::Size;; step += TTagGroup::Size) {
    const TTagGroup group(Tags + start);
    for (uint32_t match = group.Match(TTagGroup::TagOf(hash)); match != 0; match &= match - 1) {
      const uint32_t content = Slots[(start + static_cast<uint32_t>(__builtin_ctz(match))) & mask];
      if (((content ^ hash) & ~mask) != 0) [[unlikely]] continue;
      TEntry* entry = At(content & mask);
      if (entry->Hash == hash && KeysEqual<K>(entry->Pair.Key, key)) [[likely]] return entry;
    }
    if (group.Free() != 0) [[likely]] return nullptr;
    start = (start + step) & mask;
  }
}

template <class K, class V>
template <class Q, class... A>
auto TDictionaryStorage<K, V>::Construct(uint32_t hash, Q&& key, A&&... arguments) -> TEntry& {
  TEntry* entry = At(Used);
  ::new (&entry->Pair) TPair<K, V>{K(std::forward<Q>(key)), V(std::forward<A>(arguments)...)};
  entry->Hash = hash;
  ++Used;
  ++Count;
  return *entry;
}

template <class K, class V>
template <class TSource>
void TDictionaryStorage<K, V>::Prepend(TSource& source) {
  // Backwards, so that [First, Used) is always what has to end should a copy raise.
  for (TEntry *from = source.At(source.Used), *end = source.At(source.First); from != end;) {
    --from;
    if (!from->IsLive()) continue;
    TEntry* to = At(First - 1);
    if constexpr (std::is_const_v<TSource>) {
      ::new (&to->Pair) TPair<K, V>(std::as_const(from->Pair));
    } else {
      ::new (&to->Pair) TPair<K, V>(std::move_if_noexcept(from->Pair));
    }
    to->Hash = from->Hash;
    --First;
    ++Count;
  }
  if (Slots) IndexEntries(sizeof(TEntry));
}

template <class K, class V>
void TDictionaryStorage<K, V>::Drop(TEntry& entry) noexcept {
  entry.Hash = 0;
  --Count;
  while (First < Used && !At(First)->IsLive()) ++First;
  entry.Pair.~TPair<K, V>();
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
  while (FStorage.Entries) Clear();
}

template <class K, class V>
template <class Q, class U>
  requires Detail::KeyFor<Q, K> && std::convertible_to<U, V>
void TDictionary<K, V>::Add(Q&& key, U&& value) {
  if (!TryAdd(std::forward<Q>(key), std::forward<U>(value)).IsNew) RaiseDuplicateKey();
}

template <class K, class V>
template <class Q, class U>
  requires Detail::KeyFor<Q, K> && std::convertible_to<U, V>
bool TDictionary<K, V>::AddOrSetValue(Q&& key, U&& value) {
  if constexpr (Detail::DirectKeyFor<Q, K>) {
    return AddOrSetValueHashed(HashOf(key), std::forward<Q>(key), std::forward<U>(value));
  } else {
    K converted = std::forward<Q>(key);
    return AddOrSetValueHashed(HashOf(converted), std::move(converted), std::forward<U>(value));
  }
}

template <class K, class V>
template <class Q, class U>
  requires Detail::KeyFor<Q, K> && std::convertible_to<U, V>
bool TDictionary<K, V>::AddOrSetValueHashed(THashCode hash, Q&& key, U&& value) {
  const TAdded added = TryAddHashed(hash, std::forward<Q>(key), std::forward<U>(value));
  if (added.IsNew) return true;
  // The old value ends last: its destructor may change this dictionary.
  V incoming = std::forward<U>(value);
  [[maybe_unused]] const V outgoing = std::move_if_noexcept(added.Value);
  added.Value = std::move(incoming);
  return false;
}

template <class K, class V>
template <class Q, class... A>
  requires Detail::KeyFor<Q, K> && std::constructible_from<V, A...>
auto TDictionary<K, V>::TryAdd(Q&& key, A&&... arguments) -> TAdded {
  if constexpr (Detail::DirectKeyFor<Q, K>) {
    return TryAddHashed(HashOf(key), std::forward<Q>(key), std::forward<A>(arguments)...);
  } else {
    K converted = std::forward<Q>(key);
    return TryAddHashed(HashOf(converted), std::move(converted), std::forward<A>(arguments)...);
  }
}

template <class K, class V>
template <class Q, class... A>
  requires Detail::KeyFor<Q, K> && std::constructible_from<V, A...>
auto TDictionary<K, V>::TryAddHashed(THashCode hash, Q&& key, A&&... arguments) -> TAdded {
  const auto code = static_cast<uint32_t>(hash);
  if (TEntry* found = FStorage.Find(code, key)) return {found->Pair.Value, false};
  return {Append(code, std::forward<Q>(key), std::forward<A>(arguments)...).Pair.Value, true};
}

template <class K, class V>
template <class... A>
auto TDictionary<K, V>::Append(uint32_t hash, A&&... keyAndArguments) -> TEntry& {
  if (FStorage.IsFull()) [[unlikely]] {
    Rebuild(TStorage::GrownCapacity(FStorage.Count), hash, std::forward<A>(keyAndArguments)...);
    return *FStorage.At(FStorage.Used - 1);
  }
  TEntry& entry = FStorage.Construct(hash, std::forward<A>(keyAndArguments)...);
  FStorage.Link(entry);
  return entry;
}

template <class K, class V>
template <class... A>
void TDictionary<K, V>::Rebuild(uint32_t capacity, A&&... newEntry) {
  const uint32_t count = FStorage.Count;
  TStorage fresh(capacity);
  fresh.First = fresh.Used = count;
  // First the new entry: its key and value may stand in an old one.
  if constexpr (sizeof...(A) > 0) fresh.Construct(std::forward<A>(newEntry)...);
  fresh.Prepend(FStorage);
  // Closing gaps moves items towards the end, so walks meet some twice and miss none.
  FBase += FStorage.Used - count;
  FStorage.Swap(fresh);
}

template <class K, class V>
auto TDictionary<K, V>::TakeOut(TEntry& entry) -> TItem {
  TItem taken = std::move_if_noexcept(entry.Pair);
  FStorage.Drop(entry);
  return taken;
}

template <class K, class V>
bool TDictionary<K, V>::Remove(TKey key) {
  TEntry* found = FStorage.Find(Detail::HashCodeOf<K>(key), key);
  if (!found) return false;
  TakeOut(*found);
  return true;
}

template <class K, class V>
auto TDictionary<K, V>::ExtractPair(TKey key) -> TItem {
  TEntry* found = FStorage.Find(Detail::HashCodeOf<K>(key), key);
  if (!found) return TItem{K(key), V{}};
  return TakeOut(*found);
}

template <class K, class V>
void TDictionary<K, V>::Clear() noexcept {
  FBase += FStorage.Used;
  TStorage ending = std::move(FStorage);
}

template <class K, class V>
V* TDictionary<K, V>::FindHashed(THashCode hash, TKey key) {
  TEntry* found = FStorage.Find(static_cast<uint32_t>(hash), key);
  return found ? &found->Pair.Value : nullptr;
}

template <class K, class V>
const V* TDictionary<K, V>::FindHashed(THashCode hash, TKey key) const {
  const TEntry* found = FStorage.Find(static_cast<uint32_t>(hash), key);
  return found ? &found->Pair.Value : nullptr;
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
  if (count > FStorage.Capacity - gaps) Rebuild(static_cast<uint32_t>(count));
}

template <class K, class V>
void TDictionary<K, V>::TrimExcess() {
  if (FStorage.Count == 0) return Clear();
  if (FStorage.Count < FStorage.Capacity) Rebuild(FStorage.Count);
}

template <class K, class V>
auto TDictionary<K, V>::begin() const noexcept -> TIterator {
  return {FStorage.At(FStorage.First), FStorage.At(FStorage.Used)};
}

template <class K, class V>
auto TDictionary<K, V>::end() const noexcept -> TIterator {
  return {FStorage.At(FStorage.Used), FStorage.At(FStorage.Used)};
}

template <class K, class V>
auto TDictionary<K, V>::Next(int64_t& position) const noexcept -> const TItem* {
  const int64_t end = FStorage.Used;
  int64_t at = position + 1 - FBase;
  if (at < FStorage.First) at = FStorage.First;
  while (at < end && !FStorage.At(at)->IsLive()) ++at;
  position = FBase + (at < end ? at : end - 1);
  return at < end ? &FStorage.At(at)->Pair : nullptr;
}

}  // namespace Talvo::Rtl
