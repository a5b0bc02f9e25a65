// SPDX-License-Identifier: Apache-2.0
#pragma once
// Work items in their order.

#include <talvo/threading/threads/ProcessingThread.h>

namespace Talvo::Detail {

/// Owns work items, in a ring of pointers that grows: where many come and go, nothing is allocated
/// for any of them. Not locked. Indexes are counted from 0 and not checked.
class TItemRing {
 public:
  using TTarget = TWorkItem::TTarget;

  TItemRing() noexcept = default;
  TItemRing(const TItemRing&) = delete;
  TItemRing& operator=(const TItemRing&) = delete;
  ~TItemRing();

  int32_t Count() const noexcept { return static_cast<int32_t>(FCount); }
  TTarget* At(int32_t index) const noexcept { return Slot(static_cast<uint32_t>(index)); }
  /// The first one that is `item`, or -1.
  int32_t IndexOf(const TTarget* item) const noexcept;

  void AddFirst(TRef<TTarget> item);
  /// Takes `item` over if there is memory for it.
  void AddLast(TRef<TTarget>&& item);
  TRef<TTarget> Remove(int32_t index) noexcept;
  /// Takes the first ones out, which somebody else owns from here on.
  void GiveAway(uint32_t count) noexcept;
  void Swap(TItemRing& other) noexcept;
  /// Lets go of memory that only a long queue needs. The ring is empty.
  void Trim() noexcept;

 private:
  TTarget*& Slot(uint32_t index) const noexcept {
    return FSlots[(FFirst + index) & (FCapacity - 1)];
  }
  void MakeRoom();

  TTarget** FSlots = nullptr;
  uint32_t FCapacity = 0;  // a power of two, or 0
  uint32_t FFirst = 0;
  uint32_t FCount = 0;
};

}  // namespace Talvo::Detail
