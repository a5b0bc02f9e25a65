// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/lock/LockThread.h>

#include <algorithm>
#include <mutex>
#include <new>
#include <talvo/platform/Futex.h>
#include <talvo/platform/Thread.h>
#include <talvo/runtime/Object.h>

namespace Talvo::Detail {
namespace {

// Whether the thread has got rid of an identity: how near its end it is, is not known any more.
constinit thread_local bool GHasEnded = false;

// Never freed: a late waiter may still ask one whether it is dead.
std::mutex GFreeLock;
TLockThread* GFree = nullptr;  // guarded by GFreeLock

}  // namespace

constinit thread_local TLockThread* TLockThread::GCurrent = nullptr;

Platform::TThreadEndNotice& TLockThread::EndNotice() noexcept {
  static Platform::TThreadEndNotice notice(AtEnd);
  return notice;
}

constinit TLockThread TLockThread::GNobody{StoreSize};

TLockThread* TLockThread::Reserve() {
  {
    const std::lock_guard<std::mutex> guard(GFreeLock);
    if (TLockThread* reserve = GFree) {
      GFree = reserve->FNextFree;
      return reserve;
    }
  }
  return new TLockThread;
}

void TLockThread::EndReserve(TLockThread* reserve) noexcept {
  if (!GCurrent) return Begin(reserve);
  const std::lock_guard<std::mutex> guard(GFreeLock);
  reserve->FNextFree = GFree;
  GFree = reserve;
}

TLockThread& TLockThread::Begin() {
  Begin(Reserve());
  return *GCurrent;
}

void TLockThread::Begin(TLockThread* thread) noexcept {
  GCurrent = thread;
  // The ends of other libraries may be the first to need an identity, and are told of no earlier
  // rounds: so one that begins in the first or second round still hears of its own end, but not
  // always one of a later round, whose locks nobody gets any more. Where rounds are few, keeping
  // the locks for one round goes first.
  const uint32_t rounds = Platform::TThreadEndNotice::Rounds;
  thread->FRoundsLeft = GHasEnded ? 0 : std::max<uint32_t>(rounds, 4) - 3;
  EndNotice().Set(thread);
}

void TLockThread::AtEnd(void* thread) {
  auto& self = *static_cast<TLockThread*>(thread);
  // The ends of other libraries may still go on inside its locks.
  if (self.OwnsAny() && self.FRoundsLeft > 0) {
    --self.FRoundsLeft;
    EndNotice().Set(thread);
    return;
  }
  GHasEnded = true;
  // What the thread does from here on, in the ends of other libraries, begins anew.
  GCurrent = nullptr;
  while (self.FStored > 0) FreeMemory(self.FStore[--self.FStored]);
  __atomic_store_n(&self.FIsDead, true, __ATOMIC_SEQ_CST);
  self.Retire();
}

/// Makes the identity of a thread that has ended fit for another one, once it owns nothing.
void TLockThread::Retire() noexcept {
  if (!IsDead()) return;
  // Of several that come here one goes on, before another thread begins with the identity.
  const std::lock_guard<std::mutex> guard(GFreeLock);
  if (!IsDead() || OwnsAny()) return;
  __atomic_store_n(&FIsDead, false, __ATOMIC_SEQ_CST);
  FNextFree = GFree;
  GFree = this;
}

void TLockThread::WaitWhileBusy(const TLock* lock) const noexcept {
  for (uint32_t turn = 0; __atomic_load_n(&FBusy, __ATOMIC_ACQUIRE) == lock; ++turn) {
    Platform::TakeTurn(turn);
  }
}

void* TLockThread::AllocateMemory() {
  return AllocateInstance(SectionSize, alignof(void*));
}
void TLockThread::FreeMemory(void* memory) noexcept {
  FreeInstance(memory, SectionSize, alignof(void*));
}

}  // namespace Talvo::Detail
