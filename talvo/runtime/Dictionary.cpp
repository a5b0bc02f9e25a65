// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/DictionaryStorage.h>

#include <algorithm>
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

}  // namespace

uint32_t TRawDictionaryStorage::GrownCapacity(uint32_t count) {
  if (count >= MaxCount) RaiseIntOverflow();
  // A third of the pairs may come before memory is taken again, so closing the gaps costs constant
  // time for each.
  const uint32_t wanted = count + count / 2 + 1;
  if (wanted <= UnindexedCapacity) return wanted <= 4 ? 4 : UnindexedCapacity;
  const uint64_t capacity = SlotsFor(wanted) / 8 * 7;
  return capacity < MaxCount ? static_cast<uint32_t>(capacity) : MaxCount;
}

TRawDictionaryStorage::TRawDictionaryStorage(uint32_t capacity, size_t pairSize, size_t alignment)
    : Capacity(capacity) {
  const uint64_t slots = SlotsFor(capacity);
  const size_t tags = slots == 0 ? 0 : slots + TTagGroup::Size;
  // Pairs, hashes, slots and tags, in this order: the alignment falls.
  const size_t hashesAt = (capacity * pairSize + alignof(uint32_t) - 1) & -alignof(uint32_t);
  const size_t slotsAt = hashesAt + capacity * sizeof(uint32_t);
  const size_t tagsAt = slotsAt + slots * sizeof(uint32_t);
  const size_t size = (tagsAt + tags + alignment - 1) & -alignment;
  Pairs = alignment <= alignof(std::max_align_t) ? std::malloc(size)
                                                 : std::aligned_alloc(alignment, size);
  if (!Pairs) throw std::bad_alloc();
  auto* memory = static_cast<unsigned char*>(Pairs);
  Hashes = reinterpret_cast<uint32_t*>(memory + hashesAt);
  if (slots == 0) return;
  Slots = reinterpret_cast<uint32_t*>(memory + slotsAt);
  Tags = memory + tagsAt;
  SlotMask = static_cast<uint32_t>(slots - 1);
  std::memset(Tags, TTagGroup::FreeTag, tags);
}

void TRawDictionaryStorage::Swap(TRawDictionaryStorage& other) noexcept {
  std::swap(Pairs, other.Pairs);
  std::swap(Hashes, other.Hashes);
  std::swap<TIndex>(*this, other);
  std::swap(Capacity, other.Capacity);
  std::swap(First, other.First);
  std::swap(Used, other.Used);
  std::swap(Count, other.Count);
}

void TRawDictionaryStorage::FreeMemory() noexcept { std::free(Pairs); }

void TRawDictionaryStorage::EnterAll() noexcept {
  if (!Slots) return;
  const TIndex index = *this;
  constexpr uint32_t ahead = 12;
  for (uint32_t number = First; number < Used; ++number) {
    const uint32_t next = Hashes[std::min(number + ahead, Used - 1)] & SlotMask;


    index.Enter(Hashes[number], number);
  }
}

void TRawDictionaryStorage::Unlink(uint32_t number, uint32_t slot) noexcept {
  Hashes[number] = 0;
  --Count;
  while (First < Used && !IsLive(First)) ++First;
  if (Slots) SetTag(slot, TTagGroup::RemovedTag);
}

}  // namespace Talvo::Detail
