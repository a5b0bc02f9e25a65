// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/executors/ThreadPoolExecutor.h>

#include <algorithm>
#include <talvo/threading/executors/Pool.h>

namespace Talvo {

TThreadPoolExecutor::TThreadPoolExecutor(TDoNotUseThis, TComponent* owner, int32_t count)
    : TImplements(Do_Not_Use_This, owner), FPool(Create<TPool>(owner, count)) {}

TThreadPoolExecutor::~TThreadPoolExecutor() = default;

TRef<TThreadPoolExecutor> TThreadPoolExecutor::CreateObject(int32_t count) {
  return CreateObjectComponent(nullptr, count);
}

TRef<IThreadPoolExecutor> TThreadPoolExecutor::Make(int32_t count) {
  return CreateObject(count);
}

TRef<TThreadPoolExecutor> TThreadPoolExecutor::CreateObjectComponent(TComponent* owner,
                                                                     int32_t count) {
  return Create<TThreadPoolExecutor>(Do_Not_Use_This, owner, count);
}

TRef<IThreadPoolExecutor> TThreadPoolExecutor::MakeComponent(TComponent* owner, int32_t count) {
  return CreateObjectComponent(owner, count);
}

TRef<IExecution> TThreadPoolExecutor::Execute(TProc<> executeLambda) {
  Assert(static_cast<bool>(executeLambda));
  return Queue(Create<TExecution>(*FPool, std::move(executeLambda)));
}

TRef<IExecution> TThreadPoolExecutor::Execute(TConstProc<TRef<IExecution>> executeLambda) {
  Assert(static_cast<bool>(executeLambda));
  return Queue(Create<TExecution>(*FPool, std::move(executeLambda)));
}

TRef<IExecution> TThreadPoolExecutor::Queue(TRef<TExecution> task) {
  FPool->Add(task);
  return task;
}

IThreadPoolExecutor& TThreadPoolExecutor::SetCount(uint32_t value) {
  if (value > INT32_MAX) RaiseRangeError();
  FPool->SetCount(std::max(static_cast<int32_t>(value), 1));
  return *this;
}

IThreadPoolExecutor& TThreadPoolExecutor::SetGroupSize(uint32_t value) {
  FPool->SetGroupSize(value);
  return *this;
}

void TThreadPoolExecutor::SetPriority(TThreadPriority value) {
  if (value > tpTimeCritical) RaiseRangeError();
  FPool->SetPriority(value);
}

void TThreadPoolExecutor::ProcessQueue() {
  FPool->ProcessQueue();
}

void TThreadPoolExecutor::RemoveTask(const TRef<IExecutionExt>& task) {
  if (auto* own = ObjectAs<TExecution>(task)) FPool->Remove(*own);
}

void TThreadPoolExecutor::BeforeDestroyDefaults() {
  try {
    TImplements::BeforeDestroyDefaults();
  } catch (...) {
    FPool->End();
    throw;
  }
  FPool->End();
}

void TThreadPoolExecutor::ConstructionFailed() noexcept {
  try {
    FPool->End();
  } catch (...) {
    // What failed already is told.
  }
  TImplements::ConstructionFailed();
}

}  // namespace Talvo
