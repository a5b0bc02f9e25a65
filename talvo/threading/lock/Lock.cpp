// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/lock/Lock.h>

#include <climits>
#include <talvo/runtime/Checked.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/threading/Guard.h>
#include <talvo/threading/lock/LockSections.h>
#include <talvo/threading/lock/LockWindow.h>

namespace Talvo {

using Detail::TLockThread;

namespace {

// How long the death of an owner may go unnoticed.
constexpr uint32_t LookAgainMs = 20;

/// What begins at 1 ms and ends at 20 ms: a request that waits looks for stops so often.
constexpr uint32_t LongestSliceMs = 20;

}  // namespace

TLock::TLock() noexcept : TImplements(Do_Not_Use_This) {
  MayDeferEnd();
}

TLock::~TLock() {
  if (TLockThread* owner = OwnerOf(FState)) owner->CountReleasedByOther();
}

bool TLock::DefersEnd() noexcept {
  const TIntGuard guard(*this);
  FIsDropped = FKeepers > 0;
  return FIsDropped;
}

// ---- Freezing ---------------------------------------------------------------------------------

void TLock::IntLock() {
  FIntLockSection.Enter();
  if (FIntDepth++ > 0) return;
  const uintptr_t before = __atomic_fetch_or(&FState, FrozenFlag, __ATOMIC_ACQ_REL);
  const TLockThread* owner = OwnerOf(before);
  if (!owner || owner == &TLockThread::CurrentOrNobody()) return;
  Platform::HeavyBarrier();
  owner->WaitWhileBusy(this);
}

void TLock::IntUnlock() {
  Assert(FIntLockSection.IsHeldByCaller());
  if (--FIntDepth == 0) __atomic_fetch_and(&FState, ~uintptr_t{FrozenFlag}, __ATOMIC_RELEASE);
  FIntLockSection.Leave();
}

TLockCounters TLock::Counters() {
  const TIntGuard guard(*this);
  // A forked child goes on with what its thread owned, under another identifier.
  const uint32_t owner =
      IsOwner(TLockThread::CurrentOrNobody()) ? CurrentThreadId() : FOwningThread;
  return {FCountLocks, FCountStopLocks, FCountStopLocksOwner,
          __atomic_load_n(&FInStopCount, __ATOMIC_RELAXED), owner};
}

// ---- Taking the lock --------------------------------------------------------------------------

void TLock::RaiseFull() {
  {
    const TIntGuard guard(*this);
    SetFree();
  }
  RaiseIntOverflow();
}

bool TLock::BeginWrite(uint32_t timeoutMs) {
  TLockThread& self = TLockThread::Current();
  return TryBegin(self, 0) || BeginSlowly(self, timeoutMs, /*heedsStop*/ false, 0);
}

bool TLock::BeginSlowly(TLockThread& self, uint32_t timeoutMs, bool heedsStop, uint32_t keepers) {
  return TryDeepen(self, keepers, /*heedsStop*/ true) ||
         (!IsStopping() && Acquire(self, timeoutMs, heedsStop, keepers));
}

/// One level more for the owner. With `heedsStop` one that has no level, only sections without a
/// hold, is refused during a stop.
bool TLock::TryDeepen(TLockThread& self, uint32_t keepers, bool heedsStop) {
  if (!IsOwner(self)) return false;
  const TIntGuard guard(*this);
  // Another thread may just have set the lock free.
  if (!IsOwner(self) || (heedsStop && FCountLocks <= 0 && IsStopping())) return false;
  CheckedInc(FCountLocks);
  FKeepers += keepers;
  return true;
}

/// Makes the caller the owner if there is none, or a dead one; the owner goes deeper.
bool TLock::TryTake(TLockThread& self, uintptr_t flags, uint32_t keepers) {
  for (;;) {
    const uintptr_t seen = __atomic_load_n(&FState, __ATOMIC_ACQUIRE);
    const TLockThread* owner = OwnerOf(seen);
    if (owner == &self) {
      if (TryDeepen(self, keepers, /*heedsStop*/ false)) return true;
    } else if (owner) {
      if (!owner->IsDead()) return false;
      SetFreeOfDead();
    } else if ((seen & FrozenFlag) && !FIntLockSection.IsHeldByCaller()) {
      // Nobody stays in there for long.
      FIntLockSection.Enter();
      FIntLockSection.Leave();
    } else if (TryOwn(self, seen, flags, keepers)) {
      return true;
    }
  }
}

/// Waits for the lock and counts a level. With `heedsStop` a stop ends the wait.
bool TLock::Acquire(TLockThread& self, uint32_t timeoutMs, bool heedsStop, uint32_t keepers) {
  const auto isRefused = [&] { return heedsStop && IsStopping(); };
  for (uint32_t looks = timeoutMs == 0 ? 0 : Platform::SpinLooks();; --looks) {
    if (isRefused()) return false;
    if (TryTake(self, 0, keepers)) return true;
    if (looks == 0) break;
    Platform::SpinRest();
  }
  if (timeoutMs == 0) return false;

  const Platform::TDeadline deadline(timeoutMs);
  while (!isRefused()) {
    // Others may sleep behind us, so the flag stays when we get the lock.
    if (TryTake(self, SleepersFlag, keepers)) return true;
    if (deadline.HasPassed()) break;
    uintptr_t seen = __atomic_load_n(&FState, __ATOMIC_RELAXED);
    // A stop that came in between has looked for sleepers already.
    if (!OwnerOf(seen) || !FlagSleepers(seen) || isRefused()) continue;
    Platform::FutexWait(WatchedHalf(), static_cast<uint32_t>(seen),
                        deadline.WithinSlice(LookAgainMs));
  }
  PassWakeOn();
  return false;
}

/// Sets the flag in `seen`, which is the present state, and in the state. False when that changed.
bool TLock::FlagSleepers(uintptr_t& seen) noexcept {
  if (seen & SleepersFlag) return true;
  if (!__atomic_compare_exchange_n(&FState, &seen, seen | SleepersFlag, /*weak*/ false,
                                   __ATOMIC_SEQ_CST, __ATOMIC_RELAXED)) {
    return false;
  }
  seen |= SleepersFlag;
  return true;
}

/// Before a sleeper leaves without the lock: the wake-up it may have got is for another one.
void TLock::PassWakeOn() noexcept {
  uintptr_t seen = __atomic_load_n(&FState, __ATOMIC_RELAXED);
  while (OwnerOf(seen)) {
    if (FlagSleepers(seen)) return;
  }
  Wake(1);
}

// ---- Letting it go ----------------------------------------------------------------------------

/// Inside IntLock: leaves the lock without an owner, whoever that is.
void TLock::SetFree() noexcept {
  TLockThread* owner = OwnerOf(__atomic_load_n(&FState, __ATOMIC_RELAXED));
  FOwningThread = 0;
  if (DropOwner()) Wake(1);
  if (owner) owner->CountReleasedByOther();
}

/// Inside IntLock, behind an end: the owner stays as long as anything of its own is open.
void TLock::SetFreeWithoutLevel() noexcept {
  if (FCountLocks == 0 && FCountStopLocksOwner == 0) SetFree();
}

/// Takes back the level that the caller has just got, as if it had not asked.
void TLock::DropLevel() noexcept {
  const TIntGuard guard(*this);
  --FCountLocks;
  SetFreeWithoutLevel();
}

/// Looks again inside IntLock: while the lock has this owner, its identity is nobody else's.
void TLock::SetFreeOfDead() noexcept {
  const TIntGuard guard(*this);
  const TLockThread* owner = OwnerOf(__atomic_load_n(&FState, __ATOMIC_RELAXED));
  if (owner && owner->IsDead()) SetFree();
}

void TLock::EndWrite() {
  TLockThread& self = TLockThread::CurrentOrNobody();
  if (TryEnd(self, 0)) return;
  const TIntGuard guard(*this);
  CountEndOfWrite(self);
}

void TLock::CountEndOfWrite(const TLockThread& self) {
  if (!IsOwner(self)) {
    if (FCountStopLocks > 0) {
      --FCountStopLocks;
      return;
    }
    CheckedDec(FCountLocks);
  } else if (FCountStopLocksOwner > 0) {
    --FCountStopLocksOwner;
  } else if (FCountStopLocks > 0) {
    --FCountStopLocks;
  } else {
    CheckedDec(FCountLocks);
  }
  SetFreeWithoutLevel();
}

void TLock::EndSection() noexcept {
  TLockThread& self = TLockThread::CurrentOrNobody();
  if (!TryEnd(self, 0)) EndSlowly(self, /*isKeeper*/ false);
}

/// The end of a read or write section; `isKeeper` for one that the lock counts.
void TLock::EndSlowly(const TLockThread& self, bool isKeeper) noexcept {
  bool isOver;
  {
    const TIntGuard guard(*this);
    try {
      CountEndOfWrite(self);
    } catch (const EIntOverflow&) {
      // Nobody to tell; the count stays at its end.
    }
    FKeepers -= isKeeper;
    isOver = isKeeper && FIsDropped && FKeepers == 0;
  }
  if (isOver) Free(this);
}

// ---- Stopping ---------------------------------------------------------------------------------

void TLock::CountStop(int32_t change) {
  int32_t seen = __atomic_load_n(&FInStopCount, __ATOMIC_RELAXED);
  while (!__atomic_compare_exchange_n(&FInStopCount, &seen, CheckedAdd(seen, change),
                                      /*weak*/ true, __ATOMIC_SEQ_CST, __ATOMIC_RELAXED)) {
  }
}

/// Whoever is inside IntLock sees no stop come.
void TLock::AddStop() {
  const Detail::TInside<Platform::TCriticalSection> inside(FIntLockSection);
  CountStop(1);
}

/// From here on others are refused. Those that sleep look up and leave.
void TLock::AnnounceStop() {
  AddStop();
  if (__atomic_load_n(&FState, __ATOMIC_SEQ_CST) & SleepersFlag) Wake(INT_MAX);
}

void TLock::BeginStop() {
  TLockThread& self = TLockThread::Current();
  while (!Acquire(self, 1000, /*heedsStop*/ false, 0)) {
  }
  try {
    AddStop();
  } catch (const EIntOverflow&) {
    DropLevel();
    throw;
  }
}

void TLock::EndStop() {
  const TLockThread& self = TLockThread::CurrentOrNobody();
  const TIntGuard guard(*this);
  CountStop(-1);
  if (!IsOwner(self)) {
    if (FCountStopLocks > 0) --FCountStopLocks;
    return;
  }
  if (FCountStopLocksOwner > 0) {
    --FCountStopLocksOwner;
  } else if (FCountLocks > 1) {
    --FCountLocks;
  } else if (FCountStopLocks > 0) {
    --FCountStopLocks;
  } else {
    CheckedDec(FCountLocks);
  }
  SetFreeWithoutLevel();
}

// ---- Giving up and taking back ----------------------------------------------------------------

void TLock::GiveUp(int32_t& countLocks, int32_t& countOtherLocks) {
  const TLockThread& self = TLockThread::CurrentOrNobody();
  const TIntGuard guard(*this);
  const TLockThread* owner = OwnerOf(__atomic_load_n(&FState, __ATOMIC_RELAXED));
  if (owner && owner != &self) return;
  countLocks = CheckedAdd(FCountLocks, FCountStopLocksOwner);
  countOtherLocks = FCountStopLocks;
  FCountLocks = FCountStopLocks = FCountStopLocksOwner = 0;
  if (owner) SetFree();
}

void TLock::IntBeginWrite(int32_t countLocks, int32_t countOtherLocks) {
  if (countLocks == 0 && countOtherLocks == 0) return;
  TLockThread& self = TLockThread::Current();
  while (!TryBegin(self, 0) && !BeginSlowly(self, 1, /*heedsStop*/ true, 0)) {
    const TIntGuard guard(*this);
    if (!IsStopping()) continue;
    const bool isOwner = IsOwner(self);
    const int32_t others = isOwner || countLocks == 0 ? CheckedAdd(FCountStopLocks, countOtherLocks)
                                                      : CheckedAdd(FCountStopLocks, countLocks);
    if (isOwner) FCountStopLocksOwner = CheckedAdd(FCountStopLocksOwner, countLocks);
    FCountStopLocks = others;
    return;
  }
  const TIntGuard guard(*this);
  try {
    // Without levels the caller stays the owner all the same, until the next end on its thread.
    const int32_t others = CheckedAdd(FCountStopLocks, countOtherLocks);
    FCountLocks = CheckedAdd(FCountLocks, CheckedSub(countLocks, 1));
    FCountStopLocks = others;
  } catch (const EIntOverflow&) {
    DropLevel();
    throw;
  }
}

// ---- Sections ---------------------------------------------------------------------------------

/// Waits for a turn in slices that grow, each of which looks for a stop; false when there is one.
/// After the longest slice the second lock, if any, is given up once.
bool TLock::WaitForTurn(TLockThread& self, uint32_t keepers, const TRef<IBasicLock>& unlockLock,
                        TRef<ILockSection>& unlockSection) {
  for (uint32_t sliceMs = 1; !BeginSlowly(self, sliceMs, /*heedsStop*/ true, keepers);) {
    if (IsStopping()) return false;
    if (sliceMs < LongestSliceMs) {
      ++sliceMs;
    } else if (unlockLock && !unlockSection) {
      unlockSection = unlockLock->UnlockAll();
    }
  }
  return true;
}

/// Begins a section that was made by hand; false for one without a hold of the lock.
bool TLock::BeginSection(const TRef<IBasicLock>& unlockLock, TRef<ILockSection>& unlockSection) {
  TLockThread& self = TLockThread::Current();
  while (!TryBegin(self, 0) && !WaitForTurn(self, 0, unlockLock, unlockSection)) {
    const TIntGuard guard(*this);
    if (!IsStopping()) continue;
    CheckedInc(IsOwner(self) ? FCountStopLocksOwner : FCountStopLocks);
    return false;
  }
  return true;
}

/// A refused section is one without a hold that ends at once. That comes to nothing, unless the
/// caller is an owner without a level, who sets the lock free by it, or debts have been overpaid.
void TLock::CountRefused(const TLockThread& self) {
  // What is looked at here changes only inside IntLock, or on this thread: nobody is held off.
  FIntLockSection.Enter();
  const bool comesToNothing = !IsOwner(self) && FCountStopLocks >= 0;
  FIntLockSection.Leave();
  if (comesToNothing) return;
  const TIntGuard guard(*this);
  CheckedInc(IsOwner(self) ? FCountStopLocksOwner : FCountStopLocks);
  CountEndOfWrite(self);
}

}  // namespace Talvo
