// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/executors/Pool.h>

#include <climits>
#include <talvo/platform/Futex.h>
#include <talvo/threading/Guard.h>

namespace Talvo {

using Detail::GWithdrawal;

constinit std::mutex Detail::GWithdrawal;

/// Has the code of an execution on the calling thread, for as long as it stands.
class TThreadPoolExecutor::TExecution::TOnThread {
 public:
  explicit TOnThread(const TExecution& execution) noexcept
      : FExecution(&execution), FOuter(std::exchange(GInnermost, this)) {}
  TOnThread(const TOnThread&) = delete;
  ~TOnThread() { GInnermost = FOuter; }

  static bool Is(const TExecution& execution) noexcept {
    const TOnThread* at = GInnermost;
    while (at && at->FExecution != &execution) at = at->FOuter;
    return at;
  }

 private:
  static constinit thread_local TOnThread* GInnermost __attribute__((tls_model("initial-exec")));
  const TExecution* const FExecution;
  TOnThread* const FOuter;
};

constinit thread_local TThreadPoolExecutor::TExecution::TOnThread*
    TThreadPoolExecutor::TExecution::TOnThread::GInnermost
    __attribute__((tls_model("initial-exec"))) = nullptr;

/// A stay at the place of a task, which does not end meanwhile. In a pool nothing moves, nor at its
/// threads.
class TThreadPoolExecutor::TExecution::TStay {
 public:
  explicit TStay(const TExecution& task) {
    for (uint32_t turn = 0; !TryEnter(task); ++turn) Platform::TakeTurn(turn);
  }
  TStay(const TStay&) = delete;
  ~TStay() {
    if (FSection) FSection->Leave();
    GWithdrawal.unlock();
  }

 private:
  bool TryEnter(const TExecution& task) {
    GWithdrawal.lock();
    // Inside, the pool may have given it to a thread, and the thread may have come to it.
    const uintptr_t place = task.Place();
    if (place == Nowhere || IsCounted(place)) return true;
    FSection =
        (place & KindOfPlace) == InPool ? &At<TPool>(place)->Section : &At<TWorker>(place)->Section;
    if (FSection->TryEnter()) return true;
    // Whoever is inside may come for GWithdrawal. The section may end with its pool meanwhile.
    FSection = nullptr;
    GWithdrawal.unlock();
    return false;
  }

  Platform::TCriticalSection* FSection = nullptr;
};

// --- The list -----------------------------------------------------------------------------------

void TThreadPoolExecutor::TTasks::Add(TRef<TExecution> task) noexcept {
  TExecution* added = task.Detach();
  added->FPrevious = FFirst ? FLast : nullptr;
  (FFirst ? FLast->FNext : FFirst) = added;
  FLast = added;
}

TRef<TThreadPoolExecutor::TExecution> TThreadPoolExecutor::TTasks::Take(TExecution& task) noexcept {
  (task.FPrevious ? task.FPrevious->FNext : FFirst) = task.FNext;
  (task.FNext ? task.FNext->FPrevious : FLast) = task.FPrevious;
  task.FPrevious = task.FNext = nullptr;
  return TRef<TExecution>::Adopt(&task);
}

TThreadPoolExecutor::TTasks TThreadPoolExecutor::TTasks::Leave() noexcept {
  for (TExecution* task = FFirst; task; task = task->FNext) task->LeavePool();
  return std::exchange(*this, {});
}

// --- The execution ------------------------------------------------------------------------------

TThreadPoolExecutor::TExecution::~TExecution() {
  LetCodeGo();
  if (IsCounted(FPlace)) ReleasePlace(FPlace);
}

void TThreadPoolExecutor::TExecution::ReleasePlace(uintptr_t place) noexcept {
  if ((place & KindOfPlace) == AtThread) {
    At<IProcessingThread>(place)->Release();
  } else {
    At<TPool>(place)->Release();
  }
}

/// It is where nothing has to be taken out any more. A thread that it was given to stays.
void TThreadPoolExecutor::TExecution::LeavePool() noexcept {
  if (!IsCounted(Place())) SetPlace(Nowhere);
}

void TThreadPoolExecutor::TExecution::LetCodeGo() noexcept {
  if (State() & GetsSelf) {
    FLambdaSelf = nullptr;
  } else {
    FLambda = nullptr;
  }
}

void TThreadPoolExecutor::TExecution::Set(uint32_t flags) noexcept {
  if (__atomic_fetch_or(&FState, flags, __ATOMIC_ACQ_REL) & Awaited) {
    Platform::FutexWake(&FState, INT_MAX);
  }
}

bool TThreadPoolExecutor::TExecution::Wait(uint32_t flag, uint32_t timeoutMs) noexcept {
  if (__atomic_load_n(&FState, __ATOMIC_ACQUIRE) & flag) return true;
  if (timeoutMs == 0) return false;
  const Platform::TDeadline deadline(timeoutMs);
  for (uint32_t looks = Platform::SpinLooks(); looks > 0; --looks) {
    Platform::SpinRest();
    if (__atomic_load_n(&FState, __ATOMIC_ACQUIRE) & flag) return true;
  }
  for (bool isInTime = true;;) {
    const uint32_t seen = __atomic_or_fetch(&FState, Awaited, __ATOMIC_ACQ_REL);
    if (seen & flag) return true;
    if (!isInTime) return false;
    isInTime = Platform::FutexWait(&FState, seen, deadline);
  }
}

void TThreadPoolExecutor::TExecution::Invoke(const TRef<IProcessingThread>&, bool isRun) {
  if (!isRun) return Drop();
  const bool isMine = TryBegin();
  LeavePool();
  if (isMine) Run();
}

/// Code that raises has ended too; the thread swallows what it raised.
void TThreadPoolExecutor::TExecution::Run() {
  struct TEnd {
    TExecution& Self;
    ~TEnd() { Self.Set(Ended | Completed); }
  } end{*this};
  const TOnThread onThread(*this);
  // What the code holds ends before anybody hears that it has run.
  if (State() & GetsSelf) {
    const TConstProc<TRef<IExecution>> lambda = std::move(FLambdaSelf);
    lambda.Invoke(TRef<IExecution>(*this));
  } else {
    const TProc<> lambda = std::move(FLambda);
    lambda.Invoke();
  }
}

void TThreadPoolExecutor::TExecution::Drop() {
  if (!TryBegin()) return LeavePool();
  const TRef<TExecution> self(*this);  // the code may hold the last reference
  LeavePool();
  {
    const TOnThread onThread(*this);
    LetCodeGo();
  }
  Set(Ended);
}

void TThreadPoolExecutor::TExecution::Terminate() {
  const TRef<TExecution> self(*this);
  // Before the wait: the code may look at it, to end early.
  Set(Terminated);
  if (TryBegin()) {
    const TOnThread onThread(*this);
    Withdraw();
    LetCodeGo();
  } else if (TOnThread::Is(*this)) {
    return;  // it ends when it returns
  } else {
    Wait(Ended, Platform::NoTimeLimit);
  }
  Set(Ended | Completed);
}

/// Takes the task out of where it waits. It never runs: this call has the code.
void TThreadPoolExecutor::TExecution::Withdraw() {
  TRef<TExecution> waiting;        // ends outside the locks
  TRef<IProcessingThread> thread;  // whose locks are others
  {
    const TStay stay(*this);
    const uintptr_t place = Place();
    if ((place & KindOfPlace) == AtThread) {
      thread = TRef(*At<IProcessingThread>(place));
    } else if ((place & KindOfPlace) == AtWorker) {
      At<TWorker>(place)->Queue.RemoveInside(this);
    } else if ((place & KindOfPlace) == InPool && place != Nowhere) {
      waiting = At<TPool>(place)->FTasks.Take(*this);
    }
    if (!IsCounted(place)) SetPlace(Nowhere);
  }
  if (thread) thread->Cancel(ThreadLambda());
}

void TThreadPoolExecutor::TPool::Remove(TExecution& task) {
  TRef<TExecution> removed;  // ends outside the locks
  const TExecution::TStay stay(task);
  if (task.Place() != TExecution::PlaceOf(this, TExecution::InPool)) return;
  removed = FTasks.Take(task);
  task.SetPlace(TExecution::PlaceOf(TRef(*this).Detach(), TExecution::OutOfPool));
}

void TThreadPoolExecutor::TExecution::SetThread(TRef<IProcessingThread> thread) {
  TRef<TExecution> waiting;  // these end outside the locks
  TRef<TPool> from;
  {
    const TStay stay(*this);
    const uintptr_t place = Place();
    TPool* pool = At<TPool>(place);
    Assert(thread && place != Nowhere);
    if ((place & KindOfPlace) == OutOfPool) {
      from = TRef<TPool>::Adopt(pool);
    } else {
      Assert((place & KindOfPlace) == InPool);
      from = TRef(*pool);
      waiting = pool->FTasks.Take(*this);
    }
    SetPlace(PlaceOf(TRef(thread).Detach(), AtThread));
  }
  try {
    thread->Process(ThreadLambda());
  } catch (...) {
    {
      const TStay stay(*this);
      SetPlace(PlaceOf(from.Detach(), OutOfPool));
    }
    thread->Release();  // the place's
    throw;
  }
}

}  // namespace Talvo
