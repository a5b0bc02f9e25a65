// SPDX-License-Identifier: Apache-2.0
#pragma once
// TLock, the lock of this library.
//
//   TRef<IBasicLock> lock = TLock::Make();
//   auto section = lock->WriteLock();             // the sections are told of with IBasicLock
//   lock->ExecuteRead([&] { read(value); });
//
// It is exclusive: read sections exclude each other too, reading and writing only tell what the
// caller is about. It is recursive: its owner comes in again at once, during a stop as well.
// A section may end on any thread; one that ends elsewhere than on the owner, as the last one,
// sets the lock free all the same. A lock that is dropped lives on until its last section ends.
// When a thread ends as the owner, the next one that asks gets the lock; what the dead thread had
// open stays counted until those sections end.

#include <talvo/platform/LocalSync.h>
#include <talvo/threading/lock/BasicLock.h>

namespace Talvo {

namespace Detail {
class TLockThread;
}  // namespace Detail

/// What a TLock counts, for tests and diagnostics.
struct TLockCounters {
  /// How deep the owner is in the lock.
  int32_t CountLocks = 0;
  /// Sections that are open without a hold of the lock, owed by other threads than the owner:
  /// made, or taken back after UnlockAll, while a stop was under way.
  int32_t CountStopLocks = 0;
  /// The same, owed by the owner.
  int32_t CountStopLocksOwner = 0;
  /// Stops announced or active; above 0 the requests of all but the owner are refused.
  int32_t InStopCount = 0;
  /// The owner, as TBasicThread tells threads apart; 0 when the lock is free.
  uint32_t OwningThread = 0;
  friend bool operator==(const TLockCounters&, const TLockCounters&) = default;
};

/// An exclusive, recursive lock with a stop mode. Nested sections of one thread cost
/// some tens of nanoseconds and no allocation. Counting past the range of int32 raises
/// EIntOverflow.
class TALVO_API TLock : public TImplements<TBasicLock> {
 public:
  TLock() noexcept;
  ~TLock() override;
  static TRef<TLock> CreateObject() { return Create<TLock>(); }
  static TRef<IBasicLock> Make() { return CreateObject(); }

  TRef<ILockSection> ReadLock() override;
  TRef<ILockSection> WriteLock() override;
  TRef<ILockSection> StopLock() override;
  TRef<ILockSection> UnlockAll() override;
  TRef<ILockSection> UnlockAllLockInOrder(const TRef<IBasicLock>& firstLock) override;

  /// The counters of this moment, taken together.
  TLockCounters Counters();

  /// The steps that sections are made of. They do not keep the lock alive.
  ///
  /// Counts one level deeper for the owner; else waits for the lock, at most `timeoutMs`. False
  /// when the time is up first, and at once while a stop is under way.
  bool BeginRead(uint32_t timeoutMs) { return BeginWrite(timeoutMs); }
  bool BeginWrite(uint32_t timeoutMs);
  /// Ends one section, whichever is paid first: on the owner's thread its own without a hold,
  /// then those of others, then a level; on other threads theirs without a hold, then a level of
  /// the owner. With the last level the lock is free.
  void EndRead() { EndWrite(); }
  void EndWrite();
  /// Waits for the lock, as long as it takes, then counts a stop: while it waits nobody is refused,
  /// but by the announcement that a stop section makes ahead of it.
  void BeginStop();
  /// Ends a stop with its section. The owner's last level is paid last, behind the sections of
  /// other threads without a hold.
  void EndStop();
  /// Keeps all other threads from beginning or ending anything, for a short look at the counters
  /// or a change of several, and from announcing stops. May be nested, never held across a wait.
  /// IntUnlock on a thread that is not inside is an assertion failure.
  void IntLock();
  void IntUnlock();
  /// Takes back `countLocks` levels and `countOtherLocks` sections without a hold; nothing for 0
  /// and 0. With 0 levels the caller owns the lock too, until something ends on its thread. When a
  /// stop is under way all levels are owed without a hold; `countOtherLocks` is added then only for
  /// the owner, and for others when `countLocks` is 0.
  void IntBeginWrite(int32_t countLocks, int32_t countOtherLocks);

 protected:
  /// Sections that are open keep the lock.
  bool DefersEnd() noexcept override;

 private:
  friend class TSimpleReadLockSection;
  friend class TSimpleWriteLockSection;
  friend class TSimpleStopLockSection;
  friend class TSimpleUnlockSection;
  class TWindow;
  class TIntGuard;
  template <class TSection>
  class TKept;
  struct TKeptAs;
  enum : uintptr_t { FrozenFlag = 1, SleepersFlag = 2, OwnerMask = ~uintptr_t{3} };

  static Detail::TLockThread* OwnerOf(uintptr_t state) noexcept;
  const uint32_t* WatchedHalf() const noexcept;
  void Wake(int32_t count) const noexcept;
  bool IsOwner(const Detail::TLockThread& self) const noexcept;
  bool IsStopping() const noexcept;

  // Without IntLock.
  void EndKept(Detail::TLockThread& self) noexcept;
  bool IsMine(const Detail::TLockThread& self) const noexcept;
  bool TryBegin(Detail::TLockThread& self, uint32_t keepers);
  bool TryOwn(Detail::TLockThread& self, uintptr_t seen, uintptr_t flags, uint32_t keepers);
  bool TryEnd(Detail::TLockThread& self, uint32_t keepers) noexcept;
  bool DropOwner() noexcept;

  bool BeginSlowly(Detail::TLockThread& self, uint32_t timeoutMs, bool heedsStop, uint32_t keepers);
  bool TryDeepen(Detail::TLockThread& self, uint32_t keepers, bool heedsStop);
  bool TryTake(Detail::TLockThread& self, uintptr_t flags, uint32_t keepers);
  bool Acquire(Detail::TLockThread& self, uint32_t timeoutMs, bool heedsStop, uint32_t keepers);
  bool FlagSleepers(uintptr_t& seen) noexcept;
  void PassWakeOn() noexcept;
  [[noreturn]] void RaiseFull();

  void SetFree() noexcept;
  void SetFreeWithoutLevel() noexcept;
  void SetFreeOfDead() noexcept;
  void DropLevel() noexcept;
  void CountEndOfWrite(const Detail::TLockThread& self);
  void EndSlowly(const Detail::TLockThread& self, bool isKeeper) noexcept;

  void CountStop(int32_t change);
  void AddStop();
  void AnnounceStop();
  void GiveUp(int32_t& countLocks, int32_t& countOtherLocks);

  template <class TSection>
  TRef<ILockSection> NewSection();
  bool WaitForTurn(Detail::TLockThread& self, uint32_t keepers, const TRef<IBasicLock>& unlockLock,
                   TRef<ILockSection>& unlockSection);
  void CountRefused(const Detail::TLockThread& self);
  bool BeginSection(const TRef<IBasicLock>& unlockLock, TRef<ILockSection>& unlockSection);
  bool BeginKept(Detail::TLockThread& self);
  void EndSection() noexcept;

  // The owner and two flags, in one word. Changed by atomic steps only; while it is frozen, only
  // the thread inside FIntLockSection changes the owner, and that thread alone uses the counters.
  // While it is not, the owner uses them, telling so in its TLockThread, without any lock.
  uintptr_t FState = 0;
  int32_t FCountLocks = 0;
  int32_t FCountStopLocks = 0;
  int32_t FCountStopLocksOwner = 0;
  int32_t FInStopCount = 0;  // atomic
  uint32_t FOwningThread = 0;
  uint32_t FKeepers = 0;  // sections that keep the lock without a counted reference
  bool FIsDropped = false;
  int32_t FIntDepth = 0;  // guarded by FIntLockSection
  Platform::TCriticalSection FIntLockSection;
};

}  // namespace Talvo
