// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/threads/WorkQueue.h>

#include <climits>
#include <talvo/threading/threads/SwallowedExceptions.h>

namespace Talvo::Detail {
namespace {

template <class T>
void AddLast(TLinkedNodes<T>& nodes, const T& item) {
  typename TLinkedNodes<T>::TChain added(nodes);
  added.Add(item);
  nodes.LinkLast(added);
}

class TBlockingHold {
 public:
  explicit TBlockingHold(Platform::TCriticalSection& section) : FSection(section) {
    FSection.Enter();
  }
  ~TBlockingHold() { FSection.Leave(); }

 private:
  Platform::TCriticalSection& FSection;
};

}  // namespace

void TBlockingItem::Invoke(const TRef<IProcessingThread>& thread, bool isRun) {
  struct TThen {
    Platform::TEvent& Event;
    ~TThen() { Event.Signal(); }
  } then{FEvent};
  FItem(thread, isRun);
}

/// Is inside the section, past the gate.
class TWorkQueue::THold {
 public:
  THold(TWorkQueue& queue, const TProcessingThread* thread) : FQueue(queue) {
    FQueue.Enter(thread);
  }
  ~THold() { FQueue.FSection.Leave(); }

 private:
  TWorkQueue& FQueue;
};

void TWorkQueue::Enter(const TProcessingThread* thread) {
  FSection.Enter();
  while (__atomic_load_n(&FGate, __ATOMIC_RELAXED) != 0) [[unlikely]] {
      // Whoever waits for the running item must not keep it from what it needs to end.
      const bool isItem =
          thread && thread->IsInThread() && __atomic_load_n(&FInExecution, __ATOMIC_RELAXED);
      if (isItem) return;
      FSection.Leave();
      Platform::FutexWait(&FGate, 1, Platform::TDeadline(Platform::NoTimeLimit));
      FSection.Enter();
    }
}

void TWorkQueue::Add(const TProcessingThread& thread, const TWorkItem& item, bool isFirst) {
  {
    const THold hold(*this, &thread);
    if (isFirst) {
      FItems.AddFirst(item);
    } else {
      AddLast(FItems, item);
    }
  }
  FEvent.Signal();
}

void TWorkQueue::AddTerminated(const TProcessingThread& thread, const TProc<>& proc) {
  const THold hold(*this, &thread);
  AddLast(FTerminatedProcs, proc);
}

int32_t TWorkQueue::CountWaiting(const TProcessingThread& thread) {
  const THold hold(*this, &thread);
  return FItems.Count();
}

void TWorkQueue::Cancel(TProcessingThread& thread, const TWorkItem& item) {
  const THold hold(*this, &thread);
  const uint32_t executed = __atomic_load_n(&FCountExecuted, __ATOMIC_ACQUIRE);
  if (__atomic_load_n(&FInExecution, __ATOMIC_ACQUIRE) == item.Object().Get()) {
    if (!thread.IsInThread()) WaitForItem(executed);
    return;
  }
  FItems.RemoveOne([&](const TWorkItem& queued) { return queued == item; });
  item(TBorrowedRef<IProcessingThread>(thread).Get(), /*isRun*/ false);
}

/// Waits until the number of items that have run is not `executed` any more. The caller is inside.
void TWorkQueue::WaitForItem(uint32_t executed) {
  const Platform::TDeadline never(Platform::NoTimeLimit);
  // The gate stands in for the section, which the item may need before it ends.
  __atomic_store_n(&FGate, 1, __ATOMIC_RELAXED);
  int depth = 0;
  while (FSection.Leave()) ++depth;
  __atomic_add_fetch(&FCountCancelling, 1, __ATOMIC_SEQ_CST);
  while (__atomic_load_n(&FCountExecuted, __ATOMIC_SEQ_CST) == executed) {
    Platform::FutexWait(&FCountExecuted, executed, never);
  }
  __atomic_sub_fetch(&FCountCancelling, 1, __ATOMIC_RELAXED);
  while (depth-- > 0) FSection.Enter();
  __atomic_store_n(&FGate, 0, __ATOMIC_RELAXED);
  Platform::FutexWake(&FGate, INT_MAX);
}

void TWorkQueue::Clear(TProcessingThread& thread) {
  const THold hold(*this, &thread);
  const TBorrowedRef<IProcessingThread> borrowed(thread);
  for (TWorkItem item; FItems.PopFirst(item) != TRemoval::Missed; item = nullptr) {
    item(borrowed.Get(), /*isRun*/ false);
  }
}

void TWorkQueue::WaitFor(TBlockingItem& item) {
  {
    const TBlockingHold hold(FBlockingSection);
    if (FHasEnded) return;
    AddLast(FBlocking, &item);
  }
  item.Wait();
  const TBlockingHold hold(FBlockingSection);
  FBlocking.RemoveOne([&](const TBlockingItem* blocking) { return blocking == &item; });
}

void TWorkQueue::ReleaseWaiting() {
  const TBlockingHold hold(FBlockingSection);
  FBlocking.Find([](TBlockingItem* blocking) {
    blocking->Signal();
    return false;
  });
}

void TWorkQueue::End() {
  const TBlockingHold hold(FBlockingSection);
  FHasEnded = true;
  ReleaseWaiting();
}

bool TWorkQueue::Pop(TProcessingThread& thread, TWorkItem& item, bool isRecorded) {
  const THold hold(*this, &thread);
  if (isRecorded && thread.IsTerminated()) return false;
  if (FItems.PopFirst(item) == TRemoval::Missed) return false;
  if (isRecorded) __atomic_store_n(&FInExecution, item.Object().Get(), __ATOMIC_RELAXED);
  return true;
}

void TWorkQueue::Run(TProcessingThread& thread, const TWorkItem& item) noexcept {
  const TBorrowedRef<IProcessingThread> borrowed(thread);
  try {
    item(borrowed.Get(), /*isRun*/ true);
  } catch (...) {
    // One item that fails must not take those behind it along.
    ReportSwallowedException();
  }
}

void TWorkQueue::Turn(TProcessingThread& thread) {
  FEvent.Wait(Platform::NoTimeLimit);
  if (thread.IsTerminated()) return;
  for (TWorkItem item; Pop(thread, item, /*isRecorded*/ true);) {
    Run(thread, item);
    __atomic_store_n(&FInExecution, nullptr, __ATOMIC_RELEASE);
    __atomic_add_fetch(&FCountExecuted, 1, __ATOMIC_SEQ_CST);
    if (__atomic_load_n(&FCountCancelling, __ATOMIC_SEQ_CST) != 0) {
      Platform::FutexWake(&FCountExecuted, INT_MAX);
    }
    item = nullptr;  // what it carries ends outside the section
    // The item, or what it carried, may have ended the object.
    if (!TThread::CurrentThread()) return;
  }
  if (FOnEmpty) FOnEmpty(TBorrowedRef<IProcessingThread>(thread).Get());
}

void TWorkQueue::Drain(TProcessingThread& thread) {
  for (TWorkItem item; Pop(thread, item, /*isRecorded*/ false); item = nullptr) Run(thread, item);
}

void TWorkQueue::RunTerminated() {
  const THold hold(*this, nullptr);
  for (TProc<> proc; FTerminatedProcs.PopFirst(proc) != TRemoval::Missed; proc = nullptr) proc();
}

}  // namespace Talvo::Detail
