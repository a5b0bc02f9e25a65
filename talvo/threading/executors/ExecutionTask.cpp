// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/executors/ExecutionTask.h>

#include <talvo/containers/list/LinkedList.h>
#include <talvo/threading/sync/Event.h>

namespace Talvo {

TExecutionTask::TExecutionTask(TDoNotUseThis)
    : TImplements(Do_Not_Use_This), FExecutions(TInterfaceLinkedList<TRef<IExecution>>::Make()) {}

TExecutionTask::~TExecutionTask() = default;

TRef<TExecutionTask> TExecutionTask::CreateObject() {
  return Create<TExecutionTask>(Do_Not_Use_This);
}

TRef<IExecutionTask> TExecutionTask::Make() {
  return CreateObject();
}

void TExecutionTask::Add(TRef<IExecution> execution) {
  Assert(static_cast<bool>(execution));
  FExecutions->Add(std::move(execution));
}

bool TExecutionTask::WaitFor(uint32_t timeoutMs) {
  for (const TRef<IExecution>& execution : *FExecutions) {
    if (!execution->WaitFor(timeoutMs)) return false;
    if (timeoutMs != NoTimeLimit) timeoutMs = 0;
  }
  return true;
}

void TExecutionTask::Terminate() {
  for (const TRef<IExecution>& execution : *FExecutions) execution->Terminate();
  __atomic_store_n(&FTerminated, true, __ATOMIC_RELEASE);
}

bool TExecutionTask::IsTerminated() {
  return __atomic_load_n(&FTerminated, __ATOMIC_ACQUIRE);
}

void TExecutionTask::BeforeDestruction() {
  WaitFor(NoTimeLimit);
  TImplements::BeforeDestruction();
}

}  // namespace Talvo
