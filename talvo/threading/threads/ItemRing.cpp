// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/threads/ItemRing.h>

#include <algorithm>

namespace Talvo::Detail {
namespace {

constexpr uint32_t SmallestCapacity = 16;
constexpr uint32_t LargestKept = 128 * 1024;

}  // namespace

TItemRing::~TItemRing() {
  while (FCount > 0) Remove(0);
  delete[] FSlots;
}

int32_t TItemRing::IndexOf(const TTarget* item) const noexcept {
  for (uint32_t i = 0; i < FCount; ++i) {
    if (Slot(i) == item) return static_cast<int32_t>(i);
  }
  return -1;
}

void TItemRing::MakeRoom() {
  if (FCount < FCapacity) return;
  if (FCount > INT32_MAX / 2) RaiseIntOverflow();
  const uint32_t capacity = std::max(2 * FCapacity, SmallestCapacity);
  auto** const slots = new TTarget*[capacity];
  for (uint32_t i = 0; i < FCount; ++i) slots[i] = Slot(i);
  delete[] std::exchange(FSlots, slots);
  FCapacity = capacity;
  FFirst = 0;
}

void TItemRing::AddFirst(TRef<TTarget> item) {
  MakeRoom();
  --FFirst;
  ++FCount;
  Slot(0) = item.Detach();
}

void TItemRing::AddLast(TRef<TTarget>&& item) {
  MakeRoom();
  Slot(FCount++) = item.Detach();
}

TRef<TItemRing::TTarget> TItemRing::Remove(int32_t index) noexcept {
  auto i = static_cast<uint32_t>(index);
  auto removed = TRef<TTarget>::Adopt(Slot(i));
  if (i == 0) {
    GiveAway(1);
  } else {
    for (--FCount; i < FCount; ++i) Slot(i) = Slot(i + 1);
  }
  return removed;
}

void TItemRing::GiveAway(uint32_t count) noexcept {
  FFirst += count;
  FCount -= count;
}

void TItemRing::Swap(TItemRing& other) noexcept {
  std::swap(FSlots, other.FSlots);
  std::swap(FCapacity, other.FCapacity);
  std::swap(FFirst, other.FFirst);
  std::swap(FCount, other.FCount);
}

void TItemRing::Trim() noexcept {
  if (FCapacity <= LargestKept) return;
  delete[] std::exchange(FSlots, nullptr);
  FCapacity = 0;
}

}  // namespace Talvo::Detail
