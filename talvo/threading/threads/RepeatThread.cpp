// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/threads/RepeatThread.h>

namespace Talvo {
namespace {

/// Calls `proc`, which may end `thread` and with it the place where `proc` came from.
void Call(TThreadProc::TProcWithThread proc, IThread& thread) {
  const Detail::TBorrowedRef<IThread> borrowed(thread);
  proc(borrowed.Get());
}

}  // namespace

TRepeatThread::TRepeatThread(string name, TThreadProc procThread, TProc<> procTerminate)
    : TBasicThread(std::move(name)),
      FProcThread(procThread.Proc()),
      FProcTerminate(std::move(procTerminate)) {}

TRepeatThread::TRepeatThread(const TComponent* owner, u16string_view name, TThreadProc procThread,
                             TProc<> procTerminate)
    : TBasicThread(owner, name),
      FProcThread(procThread.Proc()),
      FProcTerminate(std::move(procTerminate)) {}

TRepeatThread::~TRepeatThread() {
  // For a descendant that could not be made though the thread has started.
  TBasicThread::Terminate();
  WaitFor();
}

void TRepeatThread::Construct() {
  Assert(static_cast<bool>(FProcThread));
  TBasicThread::Construct();
}

void TRepeatThread::ExecuteLoop() {
  Call(FProcThread, *this);
}

void TRepeatThread::Terminate() {
  const TRef<IThread> held(*this);  // the procedure may drop the last reference
  struct TThen {
    TRepeatThread& Thread;
    ~TThen() { Thread.TBasicThread::Terminate(); }
  } then{*this};
  if (FProcTerminate) FProcTerminate();
}

TPeriodicThread::TPeriodicThread(string name, int32_t periodMs, TThreadProc procThread,
                                 TProc<> procTerminate)
    : TBasicThread(std::move(name)),
      FProcThread(procThread.Proc()),
      FProcTerminate(std::move(procTerminate)),
      FPeriodMs(periodMs) {}

TPeriodicThread::TPeriodicThread(const TComponent* owner, u16string_view name, int32_t periodMs,
                                 TThreadProc procThread, TProc<> procTerminate)
    : TBasicThread(owner, name),
      FProcThread(procThread.Proc()),
      FProcTerminate(std::move(procTerminate)),
      FPeriodMs(periodMs) {}

TPeriodicThread::~TPeriodicThread() {
  TBasicThread::Terminate();
  FEvent->Signal();
  WaitFor();
}

void TPeriodicThread::Construct() {
  Assert(static_cast<bool>(FProcThread));
  TBasicThread::Construct();
}

void TPeriodicThread::ExecuteLoop() {
  const TRef<IEvent> event = FEvent;
  const int32_t periodMs = FPeriodMs;
  Call(FProcThread, *this);
  if (periodMs < 0) RaiseRangeError();
  event->WaitFor(static_cast<uint32_t>(periodMs));
}

void TPeriodicThread::Terminate() {
  const TRef<IThread> held(*this);
  struct TThen {
    TPeriodicThread& Thread;
    ~TThen() {
      Thread.TBasicThread::Terminate();
      Thread.FEvent->Signal();
    }
  } then{*this};
  if (FProcTerminate) FProcTerminate();
}

}  // namespace Talvo
