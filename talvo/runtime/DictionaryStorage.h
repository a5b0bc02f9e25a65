// SPDX-License-Identifier: Apache-2.0
#pragma once
// The memory of a dictionary: an array of entries in the order in which they came, and beside it
// an index of small slots. A removed entry stays as a gap until the array is full or trimmed, and
// its slot stays too; so removing touches one entry, and the index never needs repair.
//
// A slot holds the number of an entry, counted from 1, in its low bits and the low bits of the
// entry's hash above. The high bits of the hash say where the search for the slot starts. Together
// that is the whole hash, so a missing key almost never touches an entry.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <new>
#include <talvo/runtime/Hash.h>
#include <talvo/runtime/Pair.h>
#include <type_traits>
#include <utility>

namespace Talvo::Detail {

/// A key given as itself, or text given as what makes a view: it needs no K of its own until it
/// is added.
template <class Q, class K>
concept DirectKeyFor = std::same_as<std::remove_cvref_t<Q>, K> ||
                       (IsTextKey<K> && std::convertible_to<Q, TLookupKey<K>>);
template <class Q, class K>
concept KeyFor = DirectKeyFor<Q, K> || std::convertible_to<Q, K>;

/// The part of a hash that dictionaries use, never 0.
template <class K>
uint32_t HashCodeOf(TLookupKey<K> key) {
  return static_cast<uint32_t>(THash<K>::Of(key)) | 0x8000'0000;
}

/// The tags of 16 slots in a row, compared at once. Sets of slots are bits, lowest first.
class TTagGroup {
 public:
  static constexpr uint32_t Size = 16;

  explicit TTagGroup(const uint8_t* tags) : FTags(LoadUnaligned<TBytes>(tags)) {}
  static uint8_t TagOf(uint32_t hash) { return static_cast<uint8_t>(hash >> 24); }
  uint32_t Match(uint8_t tag) const { return TopBits(FTags == (TBytes{} + tag)); }
  uint32_t Free() const { return TopBits(FTags) ^ 0xFFFF; }

 private:
  using TBytes = uint8_t __attribute__((vector_size(16)));
  using TSigned = char __attribute__((vector_size(16)));

  static uint32_t TopBits(const TSigned bytes) {
    return static_cast<uint32_t>(__builtin_ia32_pmovmskb128(bytes));
  }
  template <class T>
  static uint32_t TopBits(const T bytes) {
    return TopBits((TSigned)bytes);
  }

  TBytes FTags;
};

/// What does not depend on the types of key and value.
class TRawDictionaryStorage {
 public:
  void* Entries = nullptr;
  uint32_t* Slots = nullptr;  // none for a few entries: those are searched one by one
  uint8_t* Tags = nullptr;
  uint32_t SlotMask = 0;      // of 2^SlotBits slots at most half are taken
  uint32_t Capacity = 0;
  uint32_t First = 0;  // entries before this one are gaps
  uint32_t Used = 0;   // entries from this one on are raw memory
  uint32_t Count = 0;  // entries that are no gaps

  /// Enough for `count` entries, with room for some more. Raises EIntOverflow when there cannot be
  /// so many.
  TALVO_API static uint32_t GrownCapacity(uint32_t count);

 protected:
  TRawDictionaryStorage() noexcept = default;
  TALVO_API TRawDictionaryStorage(uint32_t capacity, size_t entrySize, size_t alignment);
  TRawDictionaryStorage(TRawDictionaryStorage&& other) noexcept { Swap(other); }
  TALVO_API void FreeMemory() noexcept;
  /// Fills the empty index; each entry starts with its hash.
  TALVO_API void IndexEntries(size_t entrySize) noexcept;

  void Swap(TRawDictionaryStorage& other) noexcept;

  void LinkEntry(uint32_t hash, uint32_t number) noexcept {
    const uint32_t mask = SlotMask;
    uint32_t start = hash & mask;
    uint32_t free;
    for (uint32_t step = TTagGroup::Size; (free = TTagGroup(Tags + start).Free()) == 0;
         step += TTagGroup::Size) {
      start = (start + step) & mask;
    }
    const uint32_t slot = (start + static_cast<uint32_t>(__builtin_ctz(free))) & mask;
    Slots[slot] = (hash & ~mask) | number;
    Tags[slot] = TTagGroup::TagOf(hash);
    // The first tags stand behind the last as well, for groups that reach beyond the end.
    Tags[((slot - TTagGroup::Size) & mask) + TTagGroup::Size] = TTagGroup::TagOf(hash);
  }
};

inline void TRawDictionaryStorage::Swap(TRawDictionaryStorage& other) noexcept {
  std::swap(Entries, other.Entries);
  std::swap(Slots, other.Slots);
  std::swap(Tags, other.Tags);
  std::swap(SlotMask, other.SlotMask);
  std::swap(Capacity, other.Capacity);
  std::swap(First, other.First);
  std::swap(Used, other.Used);
  std::swap(Count, other.Count);
}

/// Owns the entries: the destructor ends those that are no gaps, in their order.
template <class K, class V>
class TDictionaryStorage : public TRawDictionaryStorage {
 public:
  static_assert(std::is_object_v<K> && std::is_object_v<V> && !std::is_const_v<K> &&
                    !std::is_const_v<V>,
                "A dictionary holds its keys and values: give it plain object types.");

  struct TEntry {
    uint32_t Hash;  // 0 in a gap, whose pair has ended
    union {
      TPair<K, V> Pair;
    };

    TEntry() = delete;
    bool IsLive() const noexcept { return Hash != 0; }
  };

  TDictionaryStorage() noexcept = default;
  explicit TDictionaryStorage(uint32_t capacity)
      : TRawDictionaryStorage(capacity, sizeof(TEntry), alignof(TEntry)) {}
  TDictionaryStorage(TDictionaryStorage&& other) noexcept = default;
  ~TDictionaryStorage();
  void Swap(TDictionaryStorage& other) noexcept { TRawDictionaryStorage::Swap(other); }

  TEntry* At(size_t number) const noexcept { return static_cast<TEntry*>(Entries) + number; }
  bool IsFull() const noexcept { return Used == Capacity; }

  TEntry* Find(uint32_t hash, TLookupKey<K> key) const {
    return Slots ? FindIndexed(hash, key) : FindUnindexed(hash, key);
  }
  TEntry* FindIndexed(uint32_t hash, TLookupKey<K> key) const;
  TEntry* FindUnindexed(uint32_t hash, TLookupKey<K> key) const;

  /// Makes the next entry, for which there is room, and leaves linking it to the caller.
  template <class Q, class... A>
  TEntry& Construct(uint32_t hash, Q&& key, A&&... arguments);
  void Link(const TEntry& entry) noexcept {
    if (Slots) LinkEntry(entry.Hash, static_cast<uint32_t>(&entry - At(0)));
  }

  /// Puts the entries of `source` in front of First, without its gaps, and links all entries.
  /// A const source is copied, another one moved from.
  template <class TSource>
  void Prepend(TSource& source);

  /// Makes a gap of an entry whose pair has been taken out.
  void Drop(TEntry& entry) noexcept;
};

}  // namespace Talvo::Detail
