// SPDX-License-Identifier: Apache-2.0
// Starts threads of every kind, gives them work without end, and leaves them alive.

#include <atomic>
#include <cstdio>
#include <thread>
#include <talvo/threading/Talvo.Threading.Utils.h>
#include <talvo/threading/Talvo.Threading.h>

using namespace Talvo;

namespace {

std::atomic<int> GLeft = 0;  // threads that are about to come where they stay

// Destroyed with the other statics: idle threads end there.
TRef<IProcessingThread> GIdle;
TRef<IThread> GPausing, GTicking;
TRef<IHiddenWindowThread> GListening;
TRef<IThreadPoolExecutor> GPool;
TRef<IExecution> GExecuted;

struct THandler final : TMessageHandler {
  void WndProc(TMessage&) override { std::puts("never"); }
};

void Never() {
  std::puts("never");
}

void Stay() {
  --GLeft;
  TEvent::Make()->WaitFor(NoTimeLimit);
}

/// Runs code that does not come back on a thread of its own.
template <class F>
void OnThread(F code) {
  ++GLeft;
  std::thread([code] {
    --GLeft;
    code();
    Never();
  }).detach();
}

void LeaveIdleThreads() {
  GIdle = TProcessingThread::MakeNamed(u"Idle");
  GPausing = TPeriodicThread::Make(u"Pausing", 3'600'000, [] {});
  GTicking = TAnimationClockThread::Make(
      u"Ticking", [] {}, 1000);
  GListening = THiddenWindowThread::Make(u"Listening");
  GListening->Process([] {});
  GPool = TThreadPoolExecutor::Make(2);
  GPool->Execute([] {})->WaitFor(NoTimeLimit);
  GExecuted = TThreadExecutor::Make()->Execute([] {});
}

void LeaveBusyThreads() {
  TRepeatThread::Make(u"Repeating", [] {}).Detach();
  TPeriodicThread::Make(u"Periodic", 1, [] {}).Detach();

  GLeft += 3;
  auto* busy = TProcessingThread::MakeNamed(u"Busy").Detach();
  auto* pool = TThreadPoolExecutor::Make(1).Detach();
  auto* listening = THiddenWindowThread::Make(u"Windowed").Detach();
  busy->Process(Stay);
  pool->Execute(Stay);
  TThreadExecutor::Make()->Execute(Stay).Detach();
  for (int i = 0; i < 1000; ++i) {
    busy->Process(Never);
    pool->Execute(Never);
  }
  busy->ProcessTerminated(Never);
  OnThread([=] { busy->ProcessBlocking(Never); });
  OnThread([=] { pool->Execute(Never)->WaitFor(NoTimeLimit); });
  ++GLeft;
  for (int i = 0; i < 2; ++i) {
    OnThread([=] { listening->Process(Stay); });  // one stays in it, one in front of it
  }

  TAnimationClock::SetTicksPerSecond(1000);
  TAnimationClock::Subscribe([] {});
}

/// What one thread holds for ever, and another one wants.
template <class F>
void LeaveHeld(F take) {
  for (int i = 0; i < 2; ++i) {
    OnThread([take] {
      const auto held = take();
      TEvent::Make()->WaitFor(NoTimeLimit);
    });
  }
}

void LeaveWaiters() {
  const auto lock = TLock::Make();
  LeaveHeld([=] { return lock->WriteLock(); });
  LeaveHeld([=] { return lock->StopLock(); });
  for (const string& name : {string(), string(u"talvo_exit")}) {
    const auto mutex = TMutex::Make(name, false);
    LeaveHeld([=] { return mutex->MutexAcquire(NoTimeLimit), mutex; });
    const auto event = TEvent::Make(name, false);
    OnThread([=] { event->WaitFor(NoTimeLimit); });
  }
  const auto section = TCriticalSection::Make();
  LeaveHeld([=] { return section->Enter(), section; });
  const auto semaphore = TSemaphore::Make(0, 1);
  OnThread([=] { semaphore->Decrement(NoTimeLimit); });
}

void LeaveWorkForTheMainThread() {
  static THandler handler;
  const TWindowHandle window = AllocateMainHWnd(handler);
  SetTimer(window, 1, 1);
  PostMessage(window, 1024, 0, 0);
  MainThread::WakeUpDescriptor();
  TMainThreadExecute::Make().Detach()->Execute(true, Never, false);
  OnThread([never = TProc<>(Never)] {
    for (;;) MainThread::Execute(nullptr, true, never, true);
  });
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void LeaveThreadsAlive() {
  RegisterThreadEndNotify([] { std::puts("a thread ended"); });
  LeaveIdleThreads();
  LeaveBusyThreads();
  LeaveWaiters();
  LeaveWorkForTheMainThread();
  while (GLeft > 0) std::this_thread::yield();
}

/// Threads that nobody ends, inside the library and in nothing of this module.
__attribute__((visibility("default"))) void LeaveLibraryThreadsAlive() {
  LeaveIdleThreads();
  GExecuted->WaitFor(NoTimeLimit);  // its code is this module's
  TProcessingThread::MakeNamed(u"Left").Detach();
  THiddenWindowThread::Make(u"Left").Detach();
  TProc<> link = TAnimationClock::Subscribe([] {});
  TAnimationClock::Unsubscribe(link);
}
}
