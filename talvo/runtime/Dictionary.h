// SPDX-License-Identifier: Apache-2.0
#pragma once
// The hash dictionary that everything above is built on. It keeps its items in the order in which
// their keys came.
//
//   Rtl::TDictionary<string, int32_t> ports;
//   ports.AddOrSetValue(u"left", 1);
//   if (const int32_t* port = ports.Find(u"left")) Open(*port);
//   for (const auto& [key, value] : ports) Print(key, value);
//
// It is not locked. Reading on several threads is fine as long as none changes it.
//
// What stays valid: removing an item and setting a value move no other item, so pointers and
// iterators to others stay as they are. Adding a key and TrimExcess, Reserve and Clear may move
// all items; iterators do not outlive that. A destructor of a key or value may use the dictionary
// that lets it go; operator==, hashes and constructors of keys and values must not change it.
//
// What a raise leaves behind: a key or value whose copy raises, or memory that has run out, leaves
// the dictionary as it was. Types without a noexcept move are copied where others are moved.

#include <talvo/runtime/DictionaryStorage.h>

namespace Talvo::Rtl {

/// The hash of a key, good for all dictionaries with that type of key in this process.
enum class THashCode : uint32_t {};

/// A dictionary from K to V. K needs a hash (see Hash.h) and operator==, and both must be movable.
/// Finding, adding and removing take constant time on average, whoever chose the keys.
///
/// Keys of text are looked up by a view; a `Q` that a key is added by is a K, what converts to one,
/// or, for text, a view that is copied only when the key is new. A `U` is what converts to a V.
template <class K, class V>
class TDictionary {
 public:
  using TItem = TPair<K, V>;
  using TKey = TLookupKey<K>;
  class TIterator;

  /// What TryAdd found or made. The reference is valid until the next key is added or removed.
  struct TAdded {
    V& Value;
    bool IsNew;
  };

  TDictionary() noexcept = default;
  TDictionary(TDictionary&& other) noexcept = default;
  /// Copies in the same order. O(n).
  TDictionary(const TDictionary& other);
  TDictionary& operator=(TDictionary other) noexcept;
  ~TDictionary();

  /// The number of items.
  int32_t Count() const noexcept { return static_cast<int32_t>(FStorage.Count); }

  /// Adds a key. Raises EDuplicateKey when it is here already, EIntOverflow past 2^31 - 1 keys.
  template <Detail::KeyFor<K> Q = K, std::convertible_to<V> U = V>
  void Add(Q&& key, U&& value);

  /// Sets the value of a key and adds the key when it is missing: true when it was. A key that is
  /// here keeps its place in the order.
  template <Detail::KeyFor<K> Q = K, std::convertible_to<V> U = V>
  bool AddOrSetValue(Q&& key, U&& value);

  /// Finds a key, or adds it with V(arguments...), in one lookup.
  template <Detail::KeyFor<K> Q = K, class... A>
  TAdded TryAdd(Q&& key, A&&... arguments);

  /// Removes a key; false when it is not here.
  bool Remove(TKey key);

  /// Removes a key and hands it out with its value; a missing key comes back with V{}.
  TItem ExtractPair(TKey key);

  /// Removes everything and gives the memory back. The items end in their order, when the
  /// dictionary is empty already.
  void Clear() noexcept;

  /// The value of a key, null when it is missing. Valid until the next key is added, or this one
  /// is removed.
  V* Find(TKey key) { return FindHashed(HashOf(key), key); }
  const V* Find(TKey key) const { return FindHashed(HashOf(key), key); }

  /// Copies the value of a key; when it is missing, `value` becomes V{}.
  bool TryGetValue(TKey key, V& value) const;

  /// The value of a key, valid as that of Find. Raises EKeyNotFound.
  const V& GetItem(TKey key) const;

  /// Whether there is such a key.
  bool ContainsKey(TKey key) const { return Find(key) != nullptr; }

  /// Whether a key has this value, by operator==. O(n).
  bool ContainsValue(const V& value) const;

  /// Makes room: up to `count` items, no more memory is needed and adding moves nothing.
  void Reserve(int32_t count);

  /// Gives back what memory the items do not need. O(n).
  void TrimExcess();

  /// For callers that have hashed already: the operations above, without the hashing. `hash` must
  /// be HashOf(key).
  static THashCode HashOf(TKey key) { return THashCode{Detail::HashCodeOf<K>(key)}; }
  V* FindHashed(THashCode hash, TKey key);
  const V* FindHashed(THashCode hash, TKey key) const;
  template <Detail::KeyFor<K> Q = K, std::convertible_to<V> U = V>
  bool AddOrSetValueHashed(THashCode hash, Q&& key, U&& value);
  template <Detail::KeyFor<K> Q = K, class... A>
  TAdded TryAddHashed(THashCode hash, Q&& key, A&&... arguments);

  /// Forward iterators over the items as const TPair<K, V>&; values change through Find only.
  /// A walk takes O(items + items removed since memory was last taken or trimmed).
  TIterator begin() const noexcept;
  TIterator end() const noexcept;

  /// The item after `position`, null at the end. Start with -1. Made for walks that last: whatever
  /// happens to the dictionary in between is safe. An item that is here throughout is met; keys
  /// added meanwhile are met at the end; removing disturbs nothing. Only when adding finds the
  /// memory full of removed items, or TrimExcess or Reserve closes their gaps, may items that were
  /// met before be met again.
  const TItem* Next(int64_t& position) const noexcept;

 private:
  using TStorage = Detail::TDictionaryStorage<K, V>;

  template <class... A>
  void Rebuild(uint32_t capacity, A&&... newPair);

  TStorage FStorage;
  int64_t FBase = 0;  // the position of the storage's first pair, as Next counts them
};

/// A forward iterator over the items in their order; invalid after a change.
template <class K, class V>
class TDictionary<K, V>::TIterator {
 public:
  using value_type = TItem;
  using difference_type = ptrdiff_t;

  TIterator() noexcept = default;
  const TItem& operator*() const noexcept { return *FItem; }
  const TItem* operator->() const noexcept { return FItem; }
  TIterator& operator++() noexcept {
    ++FItem;
    ++FHash;
    SkipGaps();
    return *this;
  }
  TIterator operator++(int) noexcept {
    TIterator before = *this;
    ++*this;
    return before;
  }
  friend bool operator==(const TIterator& left, const TIterator& right) noexcept {
    return left.FItem == right.FItem;
  }

 private:
  friend class TDictionary;
  TIterator(const TStorage& storage, uint32_t number) noexcept
      : FItem(storage.At(number)),
        FHash(storage.Hashes + number),
        FEnd(storage.Hashes + storage.Used) {
    SkipGaps();
  }
  void SkipGaps() noexcept {
    while (FHash != FEnd && *FHash == 0) ++FItem, ++FHash;
  }

  const TItem* FItem = nullptr;
  const uint32_t* FHash = nullptr;
  const uint32_t* FEnd = nullptr;
};

}  // namespace Talvo::Rtl

#include <talvo/runtime/Dictionary.inl.h>
