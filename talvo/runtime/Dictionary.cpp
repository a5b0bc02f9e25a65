// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Dictionary.h>

#include <bit>
#include <cstdlib>
#include <talvo/runtime/Raise.h>

namespace Talvo::Detail {
namespace {

constexpr uint32_t SmallCapacity = 8;  // up to here, comparing hashes one by one is as fast

void* Allocate(size_t size, size_t alignment) {
  void* memory = alignment <= alignof(std::max_align_t) ? std::malloc(size)
                                                        : std::aligned_alloc(alignment, size);
  if (!memory) throw std::bad_alloc();
  return memory;
}

uint32_t SlotBitsFor(uint32_t capacity) {
  const auto bits = static_cast<uint32_t>(std::bit_width(capacity + capacity / 7));
  return bits < 4 ? 4 : bits;
}

}  // namespace

uint32_t TRawDictionaryStorage::GrownCapacity(uint32_t count) {
  constexpr uint32_t maxCount = INT32_MAX;
  if (count >= maxCount) RaiseIntOverflow();
  // A third of the items must go before the same capacity is taken again: gaps are closed in
  // constant time per removed item, and memory stays within a few times what the items need.
  const uint32_t wanted = count + count / 2 + 1;
  if (wanted <= SmallCapacity) return wanted <= 4 ? 4 : SmallCapacity;
  const uint64_t capacity = (uint64_t{1} << SlotBitsFor(wanted)) / 8 * 7;
  return capacity > maxCount ? maxCount : static_cast<uint32_t>(capacity);
}

TRawDictionaryStorage::TRawDictionaryStorage(uint32_t capacity, size_t entrySize, size_t alignment)
    : Capacity(capacity) {
  Entries = Allocate(capacity * entrySize, alignment);
  if (capacity <= SmallCapacity) return;
  const size_t slots = size_t{1} << SlotBitsFor(capacity);
  SlotMask = static_cast<uint32_t>(slots - 1);
  Slots = static_cast<uint32_t*>(std::calloc(slots * 5 + TTagGroup::Size, 1));
  Tags = reinterpret_cast<uint8_t*>(Slots + slots);
  if (!Slots) {
    std::free(Entries);
    throw std::bad_alloc();
  }
}

void TRawDictionaryStorage::FreeMemory() noexcept {
  std::free(Slots);
  std::free(Entries);
}

void TRawDictionaryStorage::IndexEntries(size_t entrySize) noexcept {
  const auto* entry = static_cast<const unsigned char*>(Entries) + First * entrySize;
  for (uint32_t number = First; number < Used; ++number, entry += entrySize) {
    if (const auto hash = LoadUnaligned<uint32_t>(entry)) LinkEntry(hash, number);
  }
}

}  // namespace Talvo::Detail
