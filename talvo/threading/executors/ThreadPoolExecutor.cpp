// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/executors/ThreadPoolExecutor.h>

#include <algorithm>
#include <vector>
#include <talvo/containers/list/LinkedNodes.h>
#include <talvo/threading/Guard.h>
#include <talvo/threading/threads/SwallowedExceptions.h>

namespace Talvo {

// --- The parts ----------------------------------------------------------------------------------

/// What a pool, its threads and its executions share: it outlives the pool as long as one of them
/// needs it. The lock order is Section, then a thread's own.
class TThreadPoolExecutor::TPool final : public TInterfacedObject {
 public:
  TPool(TComponent* owner, int32_t count) : FOwner(owner), FCount(count) {}

  void SetCount(int32_t value);
  void SetGroupSize(uint32_t value);
  void SetPriority(TThreadPriority value);

  void Add(const TRef<TExecution>& task);
  void Remove(const IExecutionExt* task);
  void ProcessQueue();
  void End();

  Platform::TCriticalSection Section;

 private:
  bool DispatchOne();
  IProcessingThread* FindThread() const;
  IProcessingThread* NewThread();
  void OnEmpty(IProcessingThread& thread);

  TComponent* const FOwner;
  // All guarded by Section.
  int32_t FCount;
  uint32_t FGroupSize = 0;
  TThreadPriority FPriority = tpIdle;
  std::vector<TRef<IProcessingThread>> FThreads;  // in the order in which they were made
  Detail::TLinkedNodes<TRef<TExecution>> FTasks;  // not given to a thread yet
};

/// Code on its way through the pool; it is its own work item at the thread.
class TThreadPoolExecutor::TExecution final
    : public TImplements<TBasicInterfacedObject, IExecutionExt, TWorkItem::TTarget> {
 public:
  TExecution(TRef<TPool> owner, TProc<> lambda, TConstProc<TRef<IExecution>> lambdaSelf)
      : FOwner(std::move(owner)), FLambda(std::move(lambda)), FLambdaSelf(std::move(lambdaSelf)) {}

  bool WaitFor(uint32_t timeoutMs) override { return FCompletedEvent.Wait(timeoutMs); }
  void Terminate() override;
  bool IsTerminated() override { return __atomic_load_n(&FTerminated, __ATOMIC_ACQUIRE); }
  void SetThread(TRef<IProcessingThread> thread) override;
  void Invoke(const TRef<IProcessingThread>& thread, bool isRun) override;

  /// Lets go what the code holds. It has run, or never will.
  void DropCode();
  /// SetThread for a task that has been taken out of the pool, inside its section.
  void GiveTo(IProcessingThread& thread);

 private:
  TWorkItem ThreadLambda() { return TWorkItem(TRef<TWorkItem::TTarget>(*this)); }

  Platform::TEvent FCompletedEvent{{}, /*isManual*/ true, /*isSignalled*/ false};
  const TRef<TPool> FOwner;
  // One of the two, until it has run.
  TProc<> FLambda;
  TConstProc<TRef<IExecution>> FLambdaSelf;
  TRef<IProcessingThread> FThread;  // guarded by the pool's section; set once
  bool FTerminated = false;         // atomic
  bool FIsRunning = false;          // belongs to the thread that runs it
};

// --- The execution ------------------------------------------------------------------------------

void TThreadPoolExecutor::TExecution::SetThread(TRef<IProcessingThread> thread) {
  const Detail::TInside inside(FOwner->Section);
  Assert(thread && !FThread);
  GiveTo(*thread);
  FOwner->Remove(this);
}

void TThreadPoolExecutor::TExecution::GiveTo(IProcessingThread& thread) {
  thread.Process(ThreadLambda());
  FThread = TRef(thread);
}

void TThreadPoolExecutor::TExecution::Invoke(const TRef<IProcessingThread>&, bool isRun) {
  if (!isRun) return;
  // Code that raises has ended too; the thread swallows what it raised.
  struct TRun {
    TExecution& Self;
    ~TRun() {
      Self.FIsRunning = false;
      Self.FCompletedEvent.Signal();
    }
  } run{*this};
  FIsRunning = true;
  if (TProc<> lambda = std::move(FLambda)) return lambda.Invoke();
  TConstProc<TRef<IExecution>> lambdaSelf = std::move(FLambdaSelf);
  lambdaSelf.Invoke(TRef<IExecution>(*this));
}

void TThreadPoolExecutor::TExecution::Terminate() {
  // Before the wait: the code may look at it, to end early.
  __atomic_store_n(&FTerminated, true, __ATOMIC_RELEASE);
  const TRef<TExecution> self(*this);
  TRef<IProcessingThread> thread;
  {
    const Detail::TInside inside(FOwner->Section);
    thread = FThread;
    if (!thread) FOwner->Remove(this);
  }
  if (thread) {
    if (thread->IsInThread() && FIsRunning) return;  // it ends when it returns
    thread->Cancel(ThreadLambda());
  }
  DropCode();
  FCompletedEvent.Signal();
}

void TThreadPoolExecutor::TExecution::DropCode() {
  TProc<> lambda;  // these end outside the section
  TConstProc<TRef<IExecution>> lambdaSelf;
  const Detail::TInside inside(FOwner->Section);
  lambda = std::move(FLambda);
  lambdaSelf = std::move(FLambdaSelf);
}

// --- The pool -----------------------------------------------------------------------------------

void TThreadPoolExecutor::TPool::SetCount(int32_t value) {
  const Detail::TInside inside(Section);
  FCount = value;
}

void TThreadPoolExecutor::TPool::SetGroupSize(uint32_t value) {
  const Detail::TInside inside(Section);
  FGroupSize = value;
}

void TThreadPoolExecutor::TPool::SetPriority(TThreadPriority value) {
  const Detail::TInside inside(Section);
  if (value == FPriority) return;
  FPriority = value;
  for (const auto& thread : FThreads) thread->SetPriority(value);
}

void TThreadPoolExecutor::TPool::Add(const TRef<TExecution>& task) {
  const Detail::TInside inside(Section);
  Detail::TLinkedNodes<TRef<TExecution>>::TChain added(FTasks);
  added.Add(task);
  FTasks.LinkLast(added);
  try {
    while (DispatchOne()) {
    }
  } catch (...) {
    Remove(task.Get());
    throw;
  }
}

void TThreadPoolExecutor::TPool::Remove(const IExecutionExt* task) {
  const Detail::TInside inside(Section);
  FTasks.RemoveOne([&](const TRef<TExecution>& item) { return item.Get() == task; });
}

void TThreadPoolExecutor::TPool::ProcessQueue() {
  for (;;) {
    const Detail::TInside inside(Section);
    if (!DispatchOne()) return;
  }
}

/// Gives the first waiting task to the first thread that takes more. Inside the section.
bool TThreadPoolExecutor::TPool::DispatchOne() {
  if (FTasks.Count() == 0) return false;
  IProcessingThread* thread = FindThread();
  if (!thread) thread = NewThread();
  if (!thread) return false;
  TRef<TExecution> task;
  FTasks.PopFirst(task);
  task->GiveTo(*thread);
  return true;
}

IProcessingThread* TThreadPoolExecutor::TPool::FindThread() const {
  for (const auto& thread : FThreads) {
    if (int64_t{thread->GetCountWaiting()} <= int64_t{FGroupSize}) return thread.Get();
  }
  return nullptr;
}

/// Null when the limit is reached, or when the system gives no more threads and there are some.
IProcessingThread* TThreadPoolExecutor::TPool::NewThread() {
  if (static_cast<int64_t>(FThreads.size()) >= FCount) return nullptr;
  try {
    FThreads.reserve(FThreads.size() + 1);
    const TRef<IProcessingThread> made = TProcessingThread::Make(
        FOwner,
        [self = TRef(*this)](const TRef<IProcessingThread>& thread) { self->OnEmpty(*thread); });
    made->SetPriority(FPriority);
    FThreads.push_back(made);
  } catch (...) {
    if (FThreads.empty()) throw;
    return nullptr;  // those there are do the work
  }
  return FThreads.back().Get();
}

/// A thread has worked off its queue. Those too many end, one at a time.
void TThreadPoolExecutor::TPool::OnEmpty(IProcessingThread& thread) {
  TRef<IProcessingThread> surplus;
  {
    const Detail::TInside inside(Section);
    const auto found = std::ranges::find(FThreads, &thread, &TRef<IProcessingThread>::Get);
    if (static_cast<int64_t>(FThreads.size()) > FCount && found != FThreads.end()) {
      surplus = std::move(*found);
      FThreads.erase(found);
    }
  }
  // Executions that were at this thread may hold it: it has to be told. What it was given
  // meanwhile runs here.
  if (surplus) surplus->Terminate();
  try {
    ProcessQueue();
  } catch (...) {
    // Without memory to hand out the work, the thread must stay for what it has.
    ReportSwallowedException();
  }
}

void TThreadPoolExecutor::TPool::End() {
  decltype(FThreads) threads;
  std::vector<TRef<TExecution>> dropped;  // ends outside the section, with what its code holds
  {
    const Detail::TInside inside(Section);
    dropped.resize(FTasks.Count());
    for (TRef<TExecution>& task : dropped) FTasks.PopFirst(task);
    FCount = 0;
    threads.swap(FThreads);
  }
  for (const auto& thread : threads) {
    thread->Terminate();
    thread->Clear();  // what was queued holds on to the thread
  }
  for (const auto& task : dropped) task->DropCode();
}

// --- The executor -------------------------------------------------------------------------------

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
  return Queue(std::move(executeLambda), nullptr);
}

TRef<IExecution> TThreadPoolExecutor::Execute(TConstProc<TRef<IExecution>> executeLambda) {
  Assert(static_cast<bool>(executeLambda));
  return Queue(nullptr, std::move(executeLambda));
}

TRef<IExecution> TThreadPoolExecutor::Queue(TProc<> lambda,
                                            TConstProc<TRef<IExecution>> lambdaSelf) {
  TRef<TExecution> task = Create<TExecution>(FPool, std::move(lambda), std::move(lambdaSelf));
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
  FPool->Remove(task.Get());
}

void TThreadPoolExecutor::BeforeDestruction() {
  FPool->End();
  TImplements::BeforeDestruction();
}

}  // namespace Talvo
