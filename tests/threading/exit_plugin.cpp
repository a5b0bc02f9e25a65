// SPDX-License-Identifier: Apache-2.0
// Starts threads of every kind, gives them work without end, and leaves them alive.

#include <atomic>
#include <cstdio>
#include <talvo/threading/Talvo.Threading.Utils.h>
#include <talvo/threading/Talvo.Threading.h>

using namespace Talvo;

namespace {

std::atomic<bool> GIsBusy = false;

// Destroyed with the other statics: idle threads end there.
TRef<IProcessingThread> GIdle;
TRef<IThread> GPausing;

}  // namespace

extern "C" __attribute__((visibility("default"))) void LeaveThreadsAlive() {
  RegisterThreadEndNotify([] { std::puts("a thread ended"); });
  GIdle = TProcessingThread::MakeNamed(u"Idle");
  GPausing = TPeriodicThread::Make(u"Pausing", 3'600'000, [] {});

  // Nobody ends these.
  TRepeatThread::Make(u"Repeating", [] {}).Detach();
  TPeriodicThread::Make(u"Periodic", 1, [] {}).Detach();
  auto* busy = TProcessingThread::MakeNamed(u"Busy").Detach();
  busy->Process([] {
    GIsBusy = true;
    GIsBusy.notify_all();
    TEvent::Make()->WaitFor(NoTimeLimit);
  });
  for (int i = 0; i < 1000; ++i) busy->Process([] { std::puts("never"); });
  busy->ProcessTerminated([] { std::puts("never"); });
  GIsBusy.wait(false);
}
