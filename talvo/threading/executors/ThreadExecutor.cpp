// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/executors/ThreadExecutor.h>

#include <talvo/platform/Sync.h>
#include <talvo/threading/threads/ProcessingThread.h>

namespace Talvo {

/// Code with its thread. Terminate ends the thread, and IsTerminated is true while it waits for it.
class TThreadExecutor::TExecution final : public TImplements<TBasicInterfacedObject, IExecution> {
 public:
  /// Exactly one of `lambda` and `lambdaSelf` is there.
  TExecution(TComponent* owner, TThreadPriority priority, TProc<> lambda,
             TConstProc<TRef<IExecution>> lambdaSelf);

  bool WaitFor(uint32_t timeoutMs) override;
  void Terminate() override;
  bool IsTerminated() override;

 protected:
  void Construct() override;

 private:
  void Run(TProc<> lambda, TConstProc<TRef<IExecution>> lambdaSelf);

  Platform::TEvent FCompletedEvent{{}, /*isManual*/ true, /*isSignalled*/ false};
  const TRef<IProcessingThread> FThread;
  // Until the thread has them.
  TProc<> FLambda;
  TConstProc<TRef<IExecution>> FLambdaSelf;
};

TRef<IExecution> TThreadExecutor::Execute(TProc<> executeLambda) {
  Assert(static_cast<bool>(executeLambda));
  return Create<TExecution>(FOwner, __atomic_load_n(&FPriority, __ATOMIC_RELAXED),
                            std::move(executeLambda), nullptr);
}

TRef<IExecution> TThreadExecutor::Execute(TConstProc<TRef<IExecution>> executeLambda) {
  Assert(static_cast<bool>(executeLambda));
  return Create<TExecution>(FOwner, __atomic_load_n(&FPriority, __ATOMIC_RELAXED), nullptr,
                            std::move(executeLambda));
}

void TThreadExecutor::SetPriority(TThreadPriority value) {
  if (value > tpTimeCritical) RaiseRangeError();
  __atomic_store_n(&FPriority, value, __ATOMIC_RELAXED);
}

TThreadExecutor::TExecution::TExecution(TComponent* owner, TThreadPriority priority, TProc<> lambda,
                                        TConstProc<TRef<IExecution>> lambdaSelf)
    : FThread(TProcessingThread::MakeComponent(owner, u"ThreadExecutor")),
      FLambda(std::move(lambda)),
      FLambdaSelf(std::move(lambdaSelf)) {
  FThread->SetPriority(priority);
}

void TThreadExecutor::TExecution::Construct() {
  TImplements::Construct();
  FThread->Process([self = TRef(*this), lambda = std::move(FLambda),
                    lambdaSelf = std::move(FLambdaSelf)]() mutable {
    self->Run(std::move(lambda), std::move(lambdaSelf));
  });
}

void TThreadExecutor::TExecution::Run(TProc<> lambda, TConstProc<TRef<IExecution>> lambdaSelf) {
  // Code that raises has ended too; the thread swallows what it raised.
  struct TEnd {
    Platform::TEvent& Completed;
    ~TEnd() { Completed.Signal(); }
  } end{FCompletedEvent};
  // What the code holds ends before anybody hears that it has run.
  const TProc<> plain = std::move(lambda);
  const TConstProc<TRef<IExecution>> withSelf = std::move(lambdaSelf);
  if (plain) {
    plain.Invoke();
  } else {
    withSelf.Invoke(TRef<IExecution>(*this));
  }
}

bool TThreadExecutor::TExecution::WaitFor(uint32_t timeoutMs) {
  return FCompletedEvent.Wait(timeoutMs);
}

void TThreadExecutor::TExecution::Terminate() {
  FThread->Terminate();
  if (FThread->IsInThread()) return;
  FThread->WaitFor();  // it may be another call that has ended the thread
  // Code that had not begun never will. It would hold this object, and so the thread.
  FThread->Clear();
  FCompletedEvent.Signal();
}

bool TThreadExecutor::TExecution::IsTerminated() {
  return FThread->IsTerminated();
}

}  // namespace Talvo
