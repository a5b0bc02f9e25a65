// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/mainthread/Module.h>

#include <mutex>
#include <talvo/runtime/Checked.h>
#include <talvo/runtime/TypeHandle.h>
#include <talvo/threading/lock/Lock.h>
#include <talvo/threading/mainthread/AnimationClock.h>
#include <talvo/threading/mainthread/MainThread.h>
#include <talvo/threading/sync/CriticalSection.h>
#include <talvo/threading/sync/Event.h>
#include <talvo/threading/sync/Mutex.h>

namespace Talvo {
namespace {

std::recursive_mutex GGuard;                       // the hook may come back
int32_t GStarts = 0;                               // guarded by GGuard
const TThreadingModuleHook* GHook = nullptr;       // guarded by GGuard
IMainThreadExecute* GKept = nullptr;               // guarded by GGuard: it is made once
IMainThreadExecute* GMainThreadExecute = nullptr;  // atomic

void CallHook() {
  if (!GHook) return;
  GHook->StartClassManagement();
  const TTypeHandle classes[] = {TypeHandleOf<TCriticalSection*>(), TypeHandleOf<TEvent*>(),
                                 TypeHandleOf<TMutex*>(), TypeHandleOf<TLock*>()};
  GHook->RegisterClasses(classes, std::size(classes));
}

/// Whoever has started the module, it is closed then.
void Close() {
  GStarts = 0;
  TAnimationClock::Close();
  __atomic_store_n(&GMainThreadExecute, nullptr, __ATOMIC_RELEASE);
}

const struct TLoaded {
  TLoaded() { ThreadingModule::Start(); }
  ~TLoaded() { ThreadingModule::End(); }
} GLoaded;

}  // namespace

void ThreadingModule::Start() {
  const std::lock_guard guard(GGuard);
  CheckedInc(GStarts);
  if (GStarts > 1) return;
  try {
    CallHook();
    // Never freed: threads may queue work until the process is gone.
    if (!GKept) GKept = TMainThreadExecute::Make().Detach();
    __atomic_store_n(&GMainThreadExecute, GKept, __ATOMIC_RELEASE);
    TAnimationClock::Init();
  } catch (...) {
    Close();  // the hook may have called Start itself: none of them counts
    throw;
  }
}

void ThreadingModule::End() {
  const std::lock_guard guard(GGuard);
  if (GStarts == 0 || --GStarts > 0) return;
  Close();
}

void ThreadingModule::SetHook(const TThreadingModuleHook& hook) {
  const std::lock_guard guard(GGuard);
  GHook = &hook;
  if (GStarts > 0) CallHook();
}

IMainThreadExecute* Detail::ProcessMainThreadExecute() noexcept {
  return __atomic_load_n(&GMainThreadExecute, __ATOMIC_ACQUIRE);
}

}  // namespace Talvo
