// SPDX-License-Identifier: Apache-2.0
#pragma once
// Executions that a std::stop_token calls off.
//
//   std::stop_source stop;
//   auto job = ExecuteUntil(pool, stop.get_token(), [](const TRef<IExecution>& self) {
//     while (!self->IsTerminated()) Step();
//   });
//   stop.request_stop();             // returns at once
//
// As Terminate does, a stop request reaches code while it runs; unlike Terminate it does not wait
// for it. A header of its own: <stop_token> is a large one.

#include <stop_token>
#include <talvo/threading/executors/Executor.h>

namespace Talvo {

namespace Detail {

/// An execution that counts as terminated from the stop request on.
class TStoppableExecution final : public TImplements<TBasicInterfacedObject, IExecution> {
 public:
  TStoppableExecution(TRef<IExecution> execution, std::stop_token stop)
      : FExecution(std::move(execution)), FStop(std::move(stop)) {}
  bool WaitFor(uint32_t timeoutMs) override { return FExecution->WaitFor(timeoutMs); }
  void Terminate() override { FExecution->Terminate(); }
  bool IsTerminated() override { return FStop.stop_requested() || FExecution->IsTerminated(); }

 private:
  const TRef<IExecution> FExecution;
  const std::stop_token FStop;
};

}  // namespace Detail

/// Has the executor run code that a stop request calls off: when its turn comes after the request
/// it does not run, and while it runs it may look at IsTerminated, which is true from the request
/// on. The request does not shorten WaitFor: the execution is completed when its turn has come.
/// Since code may be skipped, what must happen in any case (a permit given back) belongs into the
/// destructor of something that the code captures.
inline TRef<IExecution> ExecuteUntil(const TRef<IExecutor>& executor, std::stop_token stop,
                                     TProc<> executeLambda) {
  Assert(executor && executeLambda);
  TRef<IExecution> execution = executor->Execute(TProc<>([stop, executeLambda] {
    if (!stop.stop_requested()) executeLambda();
  }));
  return Create<Detail::TStoppableExecution>(std::move(execution), std::move(stop));
}

/// The same for code that gets its execution.
inline TRef<IExecution> ExecuteUntil(const TRef<IExecutor>& executor, std::stop_token stop,
                                     TConstProc<TRef<IExecution>> executeLambda) {
  Assert(executor && executeLambda);
  TRef<IExecution> execution = executor->Execute(
      TConstProc<TRef<IExecution>>([stop, executeLambda](const TRef<IExecution>& self) {
        if (stop.stop_requested()) return;
        executeLambda(TRef<IExecution>(Create<Detail::TStoppableExecution>(self, stop)));
      }));
  return Create<Detail::TStoppableExecution>(std::move(execution), std::move(stop));
}

}  // namespace Talvo
