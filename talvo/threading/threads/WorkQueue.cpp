// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/threads/WorkQueue.h>

#include <algorithm>
#include <climits>
#include <talvo/threading/Guard.h>
#include <talvo/threading/threads/SwallowedExceptions.h>

namespace Talvo::Detail {
namespace {

template <class T>
void AddLast(TLinkedNodes<T>& nodes, const T& item) {
  typename TLinkedNodes<T>::TChain added(nodes);
  added.Add(item);
  nodes.LinkLast(added);
}

}  // namespace

void TBlockingItem::Invoke(const TRef<IProcessingThread>& thread, bool isRun) {
  struct TThen {
    Platform::TEvent& Event;
    ~TThen() { Event.Signal(); }
  } then{FEvent};
  if (FItem) {
    FItem(thread, isRun);
  } else if (isRun) {
    FProc();
  }
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

bool TWorkQueue::IsRunning() const {
  return (__atomic_load_n(&FStep, __ATOMIC_RELAXED) |
          __atomic_load_n(&FDrainStep, __ATOMIC_RELAXED)) %
             2 !=
         0;
}

void TWorkQueue::Enter(const TProcessingThread* thread) {
  FSection.Enter();
  while (__atomic_load_n(&FGate, __ATOMIC_RELAXED) != 0) [[unlikely]] {
      // Whoever waits for the running item must not keep it from what it needs to end.
      if (thread && thread->IsInThread() && IsRunning()) return;
      FSection.Leave();
      Platform::FutexWait(&FGate, 1, Platform::TDeadline(Platform::NoTimeLimit));
      FSection.Enter();
    }
}

void TWorkQueue::Add(const TProcessingThread& thread, const TWorkItem& item, bool isFirst) {
  TRef<TWorkQueue> toWake;
  {
    const THold hold(*this, &thread);
    if (isFirst) {
      TakeBack();
      FItems.AddFirst(item.Object());
      if (FIsClearing) {
        ++FCleared;
        ++FAddedFirst;
      }
    } else {
      FItems.AddLast(TItem(item.Object()));
    }
    // From here on the item may run and end the thread object.
    if (!std::exchange(FIsAwake, true)) toWake = TRef<TWorkQueue>(*this);
  }
  if (toWake) toWake->Wake();
}

void TWorkQueue::AddTerminated(const TProcessingThread& thread, const TProc<>& proc) {
  const THold hold(*this, &thread);
  AddLast(FTerminatedProcs, proc);
}

int32_t TWorkQueue::CountWaiting(const TProcessingThread& thread) {
  const THold hold(*this, &thread);
  return CountInside();
}

int32_t TWorkQueue::CountInside() const {
  const uint32_t step = __atomic_load_n(&FStep, __ATOMIC_RELAXED);
  return FItems.Count() - (step & Closed ? 0 : static_cast<int32_t>((step + 1) / 2));
}

bool TWorkQueue::AddInside(TItem& item) {
  FItems.AddLast(std::move(item));
  return !std::exchange(FIsAwake, true);
}

void TWorkQueue::RemoveInside(const TWorkItem::TTarget* item) {
  TakeBack();
  const int32_t index = FItems.IndexOf(item);
  if (index >= 0) TakeAt(index);
}

bool TWorkQueue::PopInside(TItem& item) {
  TakeBack();
  if (FItems.Count() == 0) return false;
  item = TakeAt(0);
  return true;
}

TWorkQueue::TItem TWorkQueue::TakeAt(int32_t index) {
  if (FIsClearing) {
    if (FCleared >= index) --FCleared;
    if (FAddedFirst > index) --FAddedFirst;
  }
  return FItems.Remove(index);
}

/// Takes back all that is lent and not begun, and returns the step. Inside the section.
uint32_t TWorkQueue::TakeBack() noexcept {
  const uint32_t step = __atomic_fetch_or(&FStep, Closed, __ATOMIC_ACQ_REL);
  if (!(step & Closed)) FItems.GiveAway((step + 1) / 2);
  return step;
}

void TWorkQueue::Cancel(TProcessingThread& thread, const TWorkItem& item) {
  const THold hold(*this, &thread);
  const TTarget* target = item.Object().Get();
  const uint32_t step = TakeBack() & StepMask;
  const uint32_t drainStep = __atomic_load_n(&FDrainStep, __ATOMIC_ACQUIRE) & StepMask;
  const bool isRunning = step % 2 != 0 && FLent[step / 2] == target;
  if (isRunning || (drainStep % 2 != 0 && FDrained == target)) {
    if (thread.IsInThread()) return;
    return isRunning ? WaitForStep(FStep, step) : WaitForStep(FDrainStep, drainStep);
  }
  RemoveInside(target);
  item(TBorrowedRef<IProcessingThread>(thread).Get(), /*isRun*/ false);
}

/// Waits until `step` of `at` is over. The caller is inside, and the loan is closed.
void TWorkQueue::WaitForStep(uint32_t& at, uint32_t step) {
  const Platform::TDeadline never(Platform::NoTimeLimit);
  // The gate stands in for the section, which the item may need before it ends.
  __atomic_store_n(&FGate, 1, __ATOMIC_RELAXED);
  int depth = 0;
  while (FSection.Leave()) ++depth;
  uint32_t seen = __atomic_or_fetch(&at, Awaited, __ATOMIC_ACQ_REL);
  while ((seen & StepMask) == step) {
    Platform::FutexWait(&at, seen, never);
    seen = __atomic_load_n(&at, __ATOMIC_ACQUIRE);
  }
  while (depth-- > 0) FSection.Enter();
  __atomic_store_n(&FGate, 0, __ATOMIC_RELAXED);
  Platform::FutexWake(&FGate, INT_MAX);
}

void TWorkQueue::Clear(TProcessingThread& thread) {
  const THold hold(*this, &thread);
  // Called by an item that is told false: the call it is in goes on to the others.
  if (FIsClearing) return;
  TakeBack();
  TItemRing cleared;
  struct TDone {
    TWorkQueue& Queue;
    ~TDone() {
      Queue.FIsClearing = false;
      Queue.FAddedFirst = 0;
    }
  } done{*this};
  FIsClearing = true;
  const TBorrowedRef<IProcessingThread> borrowed(thread);
  const auto tell = [&](int32_t index) {
    const TRef<TTarget> item(FItems.At(index));
    item->Invoke(borrowed.Get(), /*isRun*/ false);
  };
  for (FCleared = 0; FCleared < FItems.Count(); ++FCleared) {
    tell(FCleared);
    while (FAddedFirst > 0) tell(--FAddedFirst);
  }
  FItems.Swap(cleared);
}

TWorkQueue::TWaiting::TWaiting(TWorkQueue& queue, TBlockingItem& item)
    : FQueue(queue), FItem(item) {
  const TInside hold(FQueue.FBlockingSection);
  if (FQueue.FHasEnded) return;
  AddLast(FQueue.FBlocking, &FItem);
  FIsListed = true;
}

TWorkQueue::TWaiting::~TWaiting() {
  if (!FIsListed) return;
  const TInside hold(FQueue.FBlockingSection);
  FQueue.FBlocking.RemoveOne([&](const TBlockingItem* blocking) { return blocking == &FItem; });
}

void TWorkQueue::TWaiting::Wait() const {
  if (FIsListed) FItem.Wait();
}

void TWorkQueue::ReleaseWaiting() {
  const TInside hold(FBlockingSection);
  FBlocking.Find([](TBlockingItem* blocking) {
    blocking->Signal();
    return false;
  });
}

void TWorkQueue::End() {
  const TInside hold(FBlockingSection);
  FHasEnded = true;
  ReleaseWaiting();
}

/// Begins the next item that is lent; false when there is none.
bool TWorkQueue::BeginLent() noexcept {
  uint32_t step = __atomic_load_n(&FStep, __ATOMIC_RELAXED);
  return step < 2 * FCountLent &&
         __atomic_compare_exchange_n(&FStep, &step, step + 1, /*weak*/ false, __ATOMIC_ACQ_REL,
                                     __ATOMIC_RELAXED);
}

/// Begins the next item, with a new loan if need be; false when the queue is empty or the thread is
/// to end.
bool TWorkQueue::BeginNext(TProcessingThread& thread) {
  if (thread.IsTerminated()) return false;
  if (BeginLent()) return true;
  const THold hold(*this, &thread);
  if (thread.IsTerminated()) return false;
  TakeBack();
  if (FItems.Count() == 0 && FSource) FSource->AddMore();
  if (FItems.Count() == 0) {
    FIsAwake = false;
    FItems.Trim();
    return false;
  }
  FCountLent = static_cast<uint32_t>(std::min(FItems.Count(), MostLent));
  for (uint32_t i = 0; i < FCountLent; ++i) {
    FLent[i] = FItems.At(static_cast<int32_t>(i));
    __builtin_prefetch(FLent[i], /*rw*/ 1);
  }
  __atomic_store_n(&FStep, 1, __ATOMIC_RELEASE);
  return true;
}

/// The step that runs is over.
void TWorkQueue::Finish(uint32_t& step) noexcept {
  if (__atomic_fetch_add(&step, 1, __ATOMIC_ACQ_REL) & Awaited) {
    Platform::FutexWake(&step, INT_MAX);
  }
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
  // Work often follows on work: a thread that sleeps costs its caller a system call.
  // Looking out pays for about as long as the system takes to wake a thread.
  const auto lookout = Platform::TDeadline::AfterMicroseconds(50);
  for (uint32_t looks = 0; !FEvent.IsSignalled(); ++looks) {
    if (looks < 40) {
      Platform::SpinPause();
    } else if (!lookout.HasPassed()) {
      Platform::YieldThread();
    } else {
      break;
    }
  }
  FEvent.Wait(Platform::NoTimeLimit);
  if (thread.IsTerminated()) return;
  while (BeginNext(thread)) {
    const uint32_t step = __atomic_load_n(&FStep, __ATOMIC_RELAXED) & StepMask;
    {
      // What it carries ends outside the section, when it is not the running item any more.
      const TWorkItem item(TRef<TTarget>::Adopt(FLent[step / 2]));
      Run(thread, item);
      Finish(FStep);
    }
    // The item, or what it carried, may have ended the object.
    if (!TThread::CurrentThread()) return;
  }
  if (FOnEmpty) FOnEmpty(TBorrowedRef<IProcessingThread>(thread).Get());
}

void TWorkQueue::Drain(TProcessingThread& thread) {
  for (TRef<TTarget> item;; item = nullptr) {
    {
      const THold hold(*this, &thread);
      // A Clear under way tells all that is there.
      if (FIsClearing || !PopInside(item)) return;
      FDrained = item.Get();
      __atomic_store_n(&FDrainStep, (FDrainStep & StepMask) + 1, __ATOMIC_RELEASE);
    }
    Run(thread, TWorkItem(item));
    Finish(FDrainStep);
  }
}

void TWorkQueue::RunTerminated() {
  const THold hold(*this, nullptr);
  for (TProc<> proc; FTerminatedProcs.PopFirst(proc) != TRemoval::Missed; proc = nullptr) proc();
}

}  // namespace Talvo::Detail
