// SPDX-License-Identifier: Apache-2.0
#pragma once
// The memory of a dictionary: the pairs in the order in which they came, their hashes beside them,
// and an index of small slots. A removed pair leaves a gap until memory is next taken or trimmed.
//
// The low bits of a hash say where in the index the search for it starts. A slot has a tag, the
// top bits of the hash, of which 16 are compared at once; and a number, that of the pair in its
// low bits and the rest of the hash above. So a missing key almost never touches a pair.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>
#include <talvo/runtime/Hash.h>
#include <talvo/runtime/Pair.h>

namespace Talvo::Detail {

/// A key given as itself, or text given as what makes a view: it needs no K of its own until it
/// is added.
template <class Q, class K>
concept DirectKeyFor = std::same_as<std::remove_cvref_t<Q>, K> ||
    (IsTextKey<K>&& std::convertible_to<Q, TLookupKey<K>>);
template <class Q, class K>
concept KeyFor = DirectKeyFor<Q, K> || std::convertible_to<Q, K>;

/// The part of a hash that dictionaries use, never 0.
template <class K>
uint32_t HashCodeOf(TLookupKey<K> key) {
  return static_cast<uint32_t>(THash<K>::Of(key)) | 0x8000'0000;
}

/// The tags of 16 slots in a row, compared at once. Sets of slots are bits, the first lowest.
class TTagGroup {
 public:
  static constexpr uint32_t Size = 16;
  static constexpr uint8_t FreeTag = 0, RemovedTag = 1;  // others have the top bit

  explicit TTagGroup(const uint8_t* tags) noexcept : FTags(LoadUnaligned<TTags>(tags)) {}
  static uint8_t TagOf(uint32_t hash) noexcept { return static_cast<uint8_t>(hash >> 24); }
  uint32_t Match(uint8_t tag) const noexcept { return Bits(FTags == TTags{} + tag); }

 private:
  using TTags = uint8_t __attribute__((vector_size(Size)));

  template <class TMask>
  static uint32_t Bits(TMask mask) noexcept {
#ifdef __SSE2__
    using TChars = char __attribute__((vector_size(Size)));
    return static_cast<uint32_t>(__builtin_ia32_pmovmskb128((TChars)mask));
#else
    uint32_t bits = 0;
    for (uint32_t at = 0; at < Size; ++at) bits |= uint32_t{mask[at] != 0} << at;
    return bits;
#endif
  }

  TTags FTags;
};

/// Where things stand in the memory, for any type of key and value. Copies share the memory;
/// who owns it frees it.
struct TDictionaryMemory {
  void* Pairs = nullptr;
  uint32_t* Hashes = nullptr;  // 0 for a gap
  uint32_t* Slots = nullptr;   // none for a few pairs: their hashes are searched one by one
  uint8_t* Tags = nullptr;
  uint32_t SlotMask = 0;  // the number of slots, a power of 2, less 1
  uint32_t Capacity = 0;
  uint32_t First = 0;  // before this one, there are only gaps
  uint32_t Used = 0;   // from this one on, there is raw memory
  uint32_t Count = 0;  // pairs, without the gaps

  TALVO_API static TDictionaryMemory Allocate(uint32_t capacity, size_t pairSize, size_t alignment);
  TALVO_API void Free() noexcept;

  /// The capacity for `count` pairs and some more. Raises EIntOverflow when there are too many.
  TALVO_API static uint32_t GrownCapacity(uint32_t count);

  bool IsLive(size_t number) const noexcept { return Hashes[number] != 0; }

  void SetTag(uint32_t slot, uint8_t tag) const noexcept {
    Tags[slot] = tag;
    // The first tags stand behind the last ones too, for groups that reach beyond the end.
    Tags[size_t{(slot - TTagGroup::Size) & SlotMask} + TTagGroup::Size] = tag;
  }
  void SetSlot(uint32_t slot, uint32_t hash, uint32_t number) const noexcept {
    Slots[slot] = (hash & ~SlotMask) | number;
    SetTag(slot, TTagGroup::TagOf(hash));
  }
  /// Enters all pairs into an empty index.
  TALVO_API void EnterAll() const noexcept;

  /// Makes a gap of a pair that was found in `slot`; the pair itself is left to the caller.
  TALVO_API void Unlink(uint32_t number, uint32_t slot) noexcept;
};

/// Owns the memory and the pairs: the destructor ends them in their order.
template <class K, class V>
struct TDictionaryStorage : TDictionaryMemory {
  static_assert(std::is_object_v<K> && std::is_object_v<V> && !std::is_const_v<K> &&
                    !std::is_const_v<V>,
                "A dictionary holds its keys and values: give it plain object types.");
  using TItem = TPair<K, V>;

  struct TFound {
    TItem* Item;    // null when the key is missing
    uint32_t Slot;  // in the index: where the item stands, or can be entered
  };

  TDictionaryStorage() noexcept = default;
  explicit TDictionaryStorage(uint32_t capacity)
      : TDictionaryMemory(Allocate(capacity, sizeof(TItem), alignof(TItem))) {}
  TDictionaryStorage(TDictionaryStorage&& other) noexcept { Swap(other); }
  ~TDictionaryStorage();
  void Swap(TDictionaryStorage& other) noexcept { std::swap<TDictionaryMemory>(*this, other); }

  TItem* At(size_t number) const noexcept { return static_cast<TItem*>(Pairs) + number; }

  TFound Find(uint32_t hash, TLookupKey<K> key) const {
    return Slots ? FindInIndex(hash, key) : FindInOrder(hash, key);
  }
  // Inline, as a call would cost a third of the search.
  TALVO_INLINE TFound FindInIndex(uint32_t hash, TLookupKey<K> key) const;
  TFound FindInOrder(uint32_t hash, TLookupKey<K> key) const;

  /// Makes a pair at the end, where there is room, without entering it into the index.
  template <class Q, class... A>
  void Construct(uint32_t hash, Q&& key, A&&... arguments);

  /// Puts the pairs of `source`, without its gaps, in front of First, then enters all pairs into
  /// the index. A const source is copied, another one moved from.
  template <class TSource>
  void Prepend(TSource& source);

  /// Makes a gap of a pair and hands the pair out.
  TItem TakeOut(TFound found);
};

}  // namespace Talvo::Detail
