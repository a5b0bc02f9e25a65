// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/executors/DirectExecutor.h>

namespace Talvo {

TDirectExecutor::TDirectExecutor(TDoNotUseThis) noexcept : TImplements(Do_Not_Use_This) {}

TRef<TDirectExecutor> TDirectExecutor::CreateObject() {
  return Create<TDirectExecutor>(Do_Not_Use_This);
}

TRef<IExecutor> TDirectExecutor::Make() {
  return CreateObject();
}

TRef<IExecution> TDirectExecutor::Execute(TProc<> executeLambda) {
  executeLambda.Invoke();
  return Create<TExecution>();
}

TRef<IExecution> TDirectExecutor::Execute(TConstProc<TRef<IExecution>> executeLambda) {
  const TRef<IExecution> execution = Create<TExecution>();
  executeLambda.Invoke(execution);
  return execution;
}

bool TDirectExecutor::TExecution::WaitFor(uint32_t) {
  return true;
}

void TDirectExecutor::TExecution::Terminate() {}

bool TDirectExecutor::TExecution::IsTerminated() {
  return false;
}

}  // namespace Talvo
