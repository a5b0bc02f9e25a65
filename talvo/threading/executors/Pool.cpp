// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/executors/Pool.h>

#include <algorithm>
#include <talvo/platform/Thread.h>
#include <talvo/threading/Guard.h>
#include <talvo/threading/threads/SwallowedExceptions.h>

namespace Talvo {

/// Wakes the threads that were given work, outside the section as far as it goes.
class TThreadPoolExecutor::TPool::TWakeUp {
 public:
  TWakeUp() = default;
  TWakeUp(const TWakeUp&) = delete;
  ~TWakeUp() {
    if (FQueue) FQueue->Wake();
  }
  void Add(Detail::TWorkQueue& queue) {
    if (FQueue) FQueue->Wake();
    FQueue = TRef(queue);
  }

 private:
  TRef<Detail::TWorkQueue> FQueue;
};

/// A stay in the section that changes the threads, the tasks or their limits.
class TThreadPoolExecutor::TPool::TChange {
 public:
  explicit TChange(TPool& pool) : FPool(pool) { FPool.Section.Enter(); }
  TChange(const TChange&) = delete;
  ~TChange() {
    FPool.NoteMore();
    FPool.Section.Leave();
  }

 private:
  TPool& FPool;
};

void TThreadPoolExecutor::TPool::SetCount(int32_t value) {
  const TChange change(*this);
  FCount = value;
}

void TThreadPoolExecutor::TPool::SetGroupSize(uint32_t value) {
  const TChange change(*this);
  FGroupSize = value;
}

void TThreadPoolExecutor::TPool::SetPriority(TThreadPriority value) {
  const Detail::TInside inside(Section);
  if (value == FPriority) return;
  FPriority = value;
  for (const auto& thread : FThreads) thread->SetPriority(value);
}

void TThreadPoolExecutor::TPool::Add(const TRef<TExecution>& task) {
  // Code that the pool's end waits for may still add work.
  if (!TryAdd(task)) task->Drop();
}

/// False when the pool has ended: the task is nowhere then.
bool TThreadPoolExecutor::TPool::TryAdd(const TRef<TExecution>& task) {
  TRef<TExecution> failed;
  TWakeUp wakeUp;
  const TChange change(*this);
  if (FHasEnded) {
    task->LeavePool();
    return false;
  }
  bool isListed = false;
  try {
    // What nothing waits in front of goes to a thread at once.
    if (TWorker* worker = FTasks.IsEmpty() ? FindThread() : nullptr) {
      TExecution::TItem item(*task);
      Give(item, *task, *worker, wakeUp);
      return true;
    }
    FTasks.Add(task);
    isListed = true;
    Dispatch(wakeUp);
    return true;
  } catch (...) {
    if (isListed) failed = FTasks.Take(*task);
    task->LeavePool();
    throw;
  }
}

void TThreadPoolExecutor::TPool::ProcessQueue() {
  TWakeUp wakeUp;
  const TChange change(*this);
  Dispatch(wakeUp);
}

/// A thread has worked off its queue and stays.
void TThreadPoolExecutor::TPool::AddMore() noexcept {
  if (HasSurplus()) return;
  try {
    TWakeUp wakeUp;
    Dispatch(wakeUp);
  } catch (...) {
    // It fails again in OnEmpty, which can tell.
  }
  NoteMore();
}

void TThreadPoolExecutor::TPool::NoteMore() {
  const bool hasMore = !FTasks.IsEmpty() || HasSurplus();
  if (FHasMore != hasMore) __atomic_store_n(&FHasMore, hasMore, __ATOMIC_RELAXED);
}

/// Gives the waiting tasks to the first threads that take more. Inside the section.
void TThreadPoolExecutor::TPool::Dispatch(TWakeUp& wakeUp) {
  while (!FTasks.IsEmpty()) {
    TWorker* worker = FindThread();
    if (!worker) worker = NewThread();
    if (!worker) return;
    // The list's reference goes along, once there is memory for a place in the queue.
    TExecution& task = FTasks.First();
    struct TLent {
      TExecution::TItem Item;
      ~TLent() { Item.Detach(); }
    } lent{TExecution::TItem::Adopt(&task)};
    Give(lent.Item, task, *worker, wakeUp);
    FTasks.Take(task).Detach();
  }
}

void TThreadPoolExecutor::TPool::Give(TExecution::TItem& item, TExecution& task, TWorker& worker,
                                      TWakeUp& wakeUp) {
  if (worker.Queue.AddInside(item)) wakeUp.Add(worker.Queue);
  task.SetPlace(TExecution::PlaceOf(&worker, TExecution::AtWorker));
}

TThreadPoolExecutor::TWorker* TThreadPoolExecutor::TPool::FindThread() const {
  for (const auto& thread : FThreads) {
    if (thread->Queue.IsWithin(FGroupSize)) return thread.Get();
  }
  return nullptr;
}

/// Null when the limit is reached, or when the system gives no more threads and there are some.
TThreadPoolExecutor::TWorker* TThreadPoolExecutor::TPool::NewThread() {
  if (static_cast<int64_t>(FThreads.size()) >= FCount) return nullptr;
  try {
    FThreads.reserve(FThreads.size() + 1);
    auto queue = Create<Detail::TWorkQueue>(
        TProcWithProcessingThread([self = TRef(*this)](const TRef<IProcessingThread>& thread) {
          self->OnEmpty(static_cast<TWorker&>(*thread->GetInstance()));
        }),
        &Section, this);
    TRef<TWorker> made = Create<TWorker>(FOwner, std::move(queue), Section);
    made->SetPriority(FPriority);
    FThreads.push_back(std::move(made));
  } catch (...) {
    if (FThreads.empty()) throw;
    return nullptr;  // those there are do the work
  }
  return FThreads.back().Get();
}

/// A thread has worked off its queue. Those too many end, one at a time; without a pool, all. One
/// that was given work meanwhile comes back when it has run that.
void TThreadPoolExecutor::TPool::OnEmpty(TWorker& worker) {
  if (!__atomic_load_n(&FHasMore, __ATOMIC_RELAXED)) return;
  TRef<TWorker> surplus;
  {
    const TChange change(*this);
    // The pool's end waits for no code on a thread that has left.
    if (!worker.Queue.IsWithin(0)) return;
    const auto found = std::ranges::find(FThreads, &worker, &TRef<TWorker>::Get);
    if (found == FThreads.end()) {
      surplus = TRef(worker);
    } else if (HasSurplus()) {
      surplus = std::move(*found);
      FThreads.erase(found);
    }
  }
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
  TTasks dropped;
  {
    const TChange change(*this);
    dropped = FTasks.Leave();
    FHasEnded = true;
    threads.swap(FThreads);
  }
  for (const auto& thread : threads) {
    // The thread that drops the pool runs what it has, behind the code it is in.
    if (!thread->IsInThread()) thread->End();
  }
  while (!dropped.IsEmpty()) dropped.Take(dropped.First())->Drop();
}

/// Ends the thread behind the code that runs. What waits is told that it will not run.
void TThreadPoolExecutor::TWorker::End() {
  Terminate();
  for (TRef<TWorkItem::TTarget> item;; item = nullptr) {
    {
      const Detail::TInside inside(Section);
      if (!Queue.PopInside(item)) return;
    }
    item->Invoke(TRef<IProcessingThread>(*this), /*isRun*/ false);
  }
}

}  // namespace Talvo
