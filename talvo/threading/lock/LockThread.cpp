// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/lock/LockThread.h>

#include <mutex>
#include <new>
#include <talvo/platform/Futex.h>
#include <talvo/platform/Thread.h>
#include <talvo/runtime/Object.h>

namespace Talvo::Detail {
namespace {

// Never freed: a late waiter may still ask one whether it is dead.
std::mutex GFreeLock;
TLockThread* GFree = nullptr;  // guarded by GFreeLock

}  // namespace

constinit thread_local TLockThread* TLockThread::GCurrent = nullptr;

TLockThread& TLockThread::Begin() {
  static Platform::TThreadEndNotice endNotice(AtEnd);
  {
    const std::lock_guard<std::mutex> guard(GFreeLock);
    GCurrent = GFree;
    if (GFree) GFree = GFree->FNextFree;
  }
  if (!GCurrent) GCurrent = new TLockThread;
  endNotice.Set(GCurrent);
  return *GCurrent;
}

void TLockThread::AtEnd(void* thread) {
  auto& self = *static_cast<TLockThread*>(thread);
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
  if (!IsDead() || FTaken != __atomic_load_n(&FReleased, __ATOMIC_SEQ_CST)) return;
  __atomic_store_n(&FIsDead, false, __ATOMIC_SEQ_CST);
  FNextFree = GFree;
  GFree = this;
}

void TLockThread::WaitWhileBusy(const TLock* lock) const noexcept {
  for (uint32_t turn = 0; __atomic_load_n(&FBusy, __ATOMIC_ACQUIRE) == lock; ++turn) {
    if (turn < 100) {
      Platform::SpinPause();
    } else {
      Platform::YieldThread();
    }
  }
}

void* TLockThread::AllocateMemory() {
  return AllocateInstance(SectionSize, alignof(void*));
}
void TLockThread::FreeMemory(void* memory) noexcept {
  FreeInstance(memory, SectionSize, alignof(void*));
}

}  // namespace Talvo::Detail
