// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/DictionaryStorage.h>

#include <bit>
#include <cstdlib>
#include <cstring>
#include <talvo/runtime/Raise.h>

namespace Talvo::Detail {
namespace {

constexpr uint32_t MaxCount = INT32_MAX;
constexpr uint32_t UnindexedCapacity = 8;

uint64_t SlotsFor(uint32_t capacity) {
  if (capacity <= UnindexedCapacity) return 0;
  // At most 7 of 8 slots are taken.
  return std::bit_ceil(uint64_t{capacity} + (capacity + 6) / 7);
}

/// The first free slot on the way that a search for `hash` goes.
uint32_t FreeSlotFor(const TDictionaryMemory& memory, uint32_t hash) {
  uint32_t start = hash & memory.SlotMask;
  uint32_t step = TTagGroup::Size;
  uint32_t free;
  while ((free = TTagGroup(memory.Tags + start).Match(TTagGroup::FreeTag)) == 0) {
    start = (start + step) & memory.SlotMask;
    step += TTagGroup::Size;
  }
  return (start + static_cast<uint32_t>(std::countr_zero(free))) & memory.SlotMask;
}

/// The same, tag by tag. A processor that reads 16 tags waits while it is still writing one of
/// them, which in a small index it often is.
uint32_t FreeSlotInSmallIndex(const TDictionaryMemory& memory, uint32_t hash) {
  uint32_t start = hash & memory.SlotMask;
  for (uint32_t step = TTagGroup::Size;; step += TTagGroup::Size) {
    for (uint32_t at = start; at < start + TTagGroup::Size; ++at) {
      if (memory.Tags[at] == TTagGroup::FreeTag) return at & memory.SlotMask;
    }
    start = (start + step) & memory.SlotMask;
  }
}

}  // namespace

uint32_t TDictionaryMemory::GrownCapacity(uint32_t count) {
  if (count >= MaxCount) RaiseIntOverflow();
  // A third of the pairs may come before memory is taken again, so closing the gaps costs constant
  // time for each.
  const uint32_t wanted = count + count / 2 + 1;
  if (wanted <= UnindexedCapacity) return wanted <= 4 ? 4 : UnindexedCapacity;
  const uint64_t capacity = SlotsFor(wanted) / 8 * 7;
  return capacity < MaxCount ? static_cast<uint32_t>(capacity) : MaxCount;
}

TDictionaryMemory TDictionaryMemory::Allocate(uint32_t capacity, size_t pairSize,
                                              size_t alignment) {
  // Pairs, hashes, slots and tags, in this order: the alignment falls.
  const uint64_t slots = SlotsFor(capacity);
  const size_t hashesAt = (capacity * pairSize + alignof(uint32_t) - 1) & -alignof(uint32_t);
  const size_t slotsAt = hashesAt + capacity * sizeof(uint32_t);
  const size_t tagsAt = slotsAt + slots * sizeof(uint32_t);
  const size_t tags = slots == 0 ? 0 : slots + TTagGroup::Size;
  const size_t size = (tagsAt + tags + alignment - 1) & -alignment;

  TDictionaryMemory memory;
  memory.Pairs = alignment <= alignof(std::max_align_t) ? std::malloc(size)
                                                        : std::aligned_alloc(alignment, size);
  if (!memory.Pairs) throw std::bad_alloc();
  auto* bytes = static_cast<uint8_t*>(memory.Pairs);
  memory.Hashes = reinterpret_cast<uint32_t*>(bytes + hashesAt);
  memory.Capacity = capacity;
  if (slots == 0) return memory;
  memory.Slots = reinterpret_cast<uint32_t*>(bytes + slotsAt);
  memory.Tags = bytes + tagsAt;
  memory.SlotMask = static_cast<uint32_t>(slots - 1);
  std::memset(memory.Tags, TTagGroup::FreeTag, tags);
  return memory;
}

void TDictionaryMemory::Free() noexcept {
  std::free(Pairs);
}

void TDictionaryMemory::EnterAll() const noexcept {
  if (!Slots) return;
  constexpr uint32_t smallMask = (1 << 13) - 1;
  const TDictionaryMemory memory = *this;  // no alias of the tags that are written
  for (uint32_t number = memory.First; number < memory.Used; ++number) {
    const uint32_t hash = memory.Hashes[number];
    memory.SetSlot(memory.SlotMask <= smallMask ? FreeSlotInSmallIndex(memory, hash)
                                                : FreeSlotFor(memory, hash),
                   hash, number);
  }
}

void TDictionaryMemory::Unlink(uint32_t number, uint32_t slot) noexcept {
  Hashes[number] = 0;
  --Count;
  while (First < Used && !IsLive(First)) ++First;
  if (Slots) SetTag(slot, TTagGroup::RemovedTag);
}

}  // namespace Talvo::Detail
