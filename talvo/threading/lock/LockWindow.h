// SPDX-License-Identifier: Apache-2.0
#pragma once
// The steps of a TLock that nobody has to be asked for: the first level of a lock that is free, and
// the owner's further levels and their ends. For the insides of the library only; inline where
// sections begin and end.

#include <climits>
#include <talvo/platform/Barrier.h>
#include <talvo/platform/Thread.h>
#include <talvo/threading/lock/Lock.h>
#include <talvo/threading/lock/LockThread.h>

namespace Talvo {

/// The time in which a thread uses the counters as the owner. Whoever freezes the lock waits for
/// its end; inside, a look at the state tells whether the lock is frozen already.
class TLock::TWindow {
 public:
  TWindow(Detail::TLockThread& self, const TLock* lock) noexcept : FSelf(self) {
    FSelf.SetBusy(lock);
    Platform::LightBarrier();
  }
  ~TWindow() { FSelf.SetBusy(nullptr); }
  TWindow(const TWindow&) = delete;
  TWindow& operator=(const TWindow&) = delete;

 private:
  Detail::TLockThread& FSelf;
};

/// Is inside IntLock.
class TLock::TIntGuard {
 public:
  explicit TIntGuard(TLock& lock) : FLock(lock) { FLock.IntLock(); }
  ~TIntGuard() { FLock.IntUnlock(); }
  TIntGuard(const TIntGuard&) = delete;
  TIntGuard& operator=(const TIntGuard&) = delete;

 private:
  TLock& FLock;
};

inline Detail::TLockThread* TLock::OwnerOf(uintptr_t state) noexcept {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the flags live in the pointer
  return reinterpret_cast<Detail::TLockThread*>(state & OwnerMask);
}

/// The half of the state that sleepers watch.
inline const uint32_t* TLock::WatchedHalf() const noexcept {
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
  return reinterpret_cast<const uint32_t*>(&FState);
}

/// Also when the lock may be gone: what is left of it here is an address.
inline void TLock::Wake(int32_t count) const noexcept {
  Platform::FutexWake(WatchedHalf(), count);
}

inline bool TLock::IsOwner(const Detail::TLockThread& self) const noexcept {
  return OwnerOf(__atomic_load_n(&FState, __ATOMIC_RELAXED)) == &self;
}

inline bool TLock::IsStopping() const noexcept {
  // In one order with what a waiter and a stop do to the state: one of them sees the other.
  return __atomic_load_n(&FInStopCount, __ATOMIC_SEQ_CST) > 0;
}

/// Inside a window: whether the caller is the owner of a lock that is not frozen.
inline bool TLock::IsMine(const Detail::TLockThread& self) const noexcept {
  const uintptr_t state = __atomic_load_n(&FState, __ATOMIC_ACQUIRE);
  return (state & ~uintptr_t{SleepersFlag}) == reinterpret_cast<uintptr_t>(&self);
}

/// A level for the owner, or for whom finds the lock free.
[[gnu::always_inline]] inline bool TLock::TryBegin(Detail::TLockThread& self, uint32_t keepers) {
  const uintptr_t seen = __atomic_load_n(&FState, __ATOMIC_RELAXED);
  if (seen == 0) return !IsStopping() && TryOwn(self, seen, 0, keepers);
  if (OwnerOf(seen) != &self) return false;
  const TWindow window(self, this);
  if (!IsMine(self) || FCountLocks <= 0 || FCountLocks == INT32_MAX) return false;
  ++FCountLocks;
  FKeepers += keepers;
  return true;
}

/// Makes the caller the owner, one level deeper, when the state is still `seen`, without an owner.
[[gnu::always_inline]] inline bool TLock::TryOwn(Detail::TLockThread& self, uintptr_t seen,
                                                 uintptr_t flags, uint32_t keepers) {
  {
    const TWindow window(self, this);
    const uintptr_t mine = reinterpret_cast<uintptr_t>(&self) | flags | seen;
    if (!__atomic_compare_exchange_n(&FState, &seen, mine, /*weak*/ false, __ATOMIC_SEQ_CST,
                                     __ATOMIC_RELAXED)) {
      return false;
    }
    self.CountTaken();
    FOwningThread = CurrentThreadId();
    if (FCountLocks != INT32_MAX) [[likely]] {
      ++FCountLocks;
      FKeepers += keepers;
      return true;
    }
  }
  RaiseFull();
}

/// Leaves the lock without an owner; true when somebody sleeps. The caller is inside a window as
/// the owner, or inside IntLock.
inline bool TLock::DropOwner() noexcept {
  uintptr_t seen = __atomic_load_n(&FState, __ATOMIC_RELAXED);
  while (!__atomic_compare_exchange_n(&FState, &seen, seen & FrozenFlag, /*weak*/ false,
                                      __ATOMIC_RELEASE, __ATOMIC_RELAXED)) {
  }
  return (seen & SleepersFlag) != 0;
}

/// The end of a level of the owner, when nobody else has anything to be paid.
[[gnu::always_inline]] inline bool TLock::TryEnd(Detail::TLockThread& self,
                                                 uint32_t keepers) noexcept {
  bool wakes;
  {
    const TWindow window(self, this);
    if (!IsMine(self) || FCountLocks <= 0 || FIsDropped) return false;
    if ((FCountStopLocks | FCountStopLocksOwner) != 0) return false;
    FKeepers -= keepers;
    if (--FCountLocks > 0) return true;
    FOwningThread = 0;
    self.CountReleased();
    wakes = DropOwner();
  }
  if (wakes) Wake(1);
  return true;
}

/// The end of a section that the lock counts.
inline void TLock::EndKept(Detail::TLockThread& self) noexcept {
  if (!TryEnd(self, 1)) EndSlowly(self, /*isKeeper*/ true);
}

}  // namespace Talvo
