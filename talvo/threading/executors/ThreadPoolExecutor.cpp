// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/executors/ThreadPoolExecutor.h>

#include <algorithm>
#include <climits>
#include <mutex>
#include <vector>
#include <talvo/platform/Futex.h>
#include <talvo/platform/Thread.h>
#include <talvo/threading/Guard.h>
#include <talvo/threading/threads/SwallowedExceptions.h>
#include <talvo/threading/threads/WorkQueue.h>

namespace Talvo {
namespace {

// Held by whoever follows a task to where it waits. Pools and their threads do not end meanwhile.
// The lock order is this one, then a pool's section.
constinit std::mutex GWithdrawal;

}  // namespace

// --- The parts ----------------------------------------------------------------------------------

/// Tasks in their order; each is owned.
class TThreadPoolExecutor::TTasks {
 public:
  bool IsEmpty() const noexcept { return !FFirst; }
  TExecution& First() const noexcept { return *FFirst; }
  void Add(TRef<TExecution> task) noexcept;
  TRef<TExecution> Take(TExecution& task) noexcept;
  /// The tasks, which are in no pool any more.
  TTasks Leave() noexcept;

 private:
  TExecution* FFirst = nullptr;
  TExecution* FLast = nullptr;  // says nothing while FFirst is null
};

/// What a pool and its threads share: it outlives the pool as long as a thread needs it.
///
/// The queues of the threads are guarded by the pool's section too, so that work is handed out, and
/// its place found again, in one stay.
class TThreadPoolExecutor::TPool final : public TInterfacedObject, public Detail::TWorkSource {
 public:
  TPool(TComponent* owner, int32_t count) : FOwner(owner), FCount(count) {}

  void SetCount(int32_t value);
  void SetGroupSize(uint32_t value);
  void SetPriority(TThreadPriority value);

  void Add(const TRef<TExecution>& task);
  void Remove(TExecution& task);
  void ProcessQueue();
  void AddMore() noexcept override;
  void End();

  Platform::TCriticalSection Section;

 protected:
  void BeforeDestruction() override {
    const std::lock_guard<std::mutex> nobodyComes(GWithdrawal);
    TInterfacedObject::BeforeDestruction();
  }

 private:
  friend class TExecution;
  class TInside;
  class TWakeUp;

  void Dispatch(TWakeUp& wakeUp);
  void Give(TRef<TWorkItem::TTarget>& item, TExecution& task, TWorker& worker, TWakeUp& wakeUp);
  TWorker* FindThread() const;
  TWorker* NewThread();
  void OnEmpty(TWorker& worker);
  bool HasSurplus() const { return static_cast<int64_t>(FThreads.size()) > FCount; }
  void NoteMore();

  TComponent* const FOwner;
  // All guarded by Section.
  int32_t FCount;
  uint32_t FGroupSize = 0;
  TThreadPriority FPriority = tpIdle;
  std::vector<TRef<TWorker>> FThreads;  // in the order in which they were made
  TTasks FTasks;                        // not given to a thread yet
  // Atomic: whether there is something to do for a thread that has run dry. What was done before
  // the thread found its queue empty shows here; later work goes to that thread anyway.
  bool FHasMore = false;
};

/// A thread of the pool.
class TThreadPoolExecutor::TWorker final : public TProcessingThread {
 public:
  TWorker(const TComponent* owner, const TRef<Detail::TWorkQueue>& queue,
          Platform::TCriticalSection& section)
      : TProcessingThread(owner, u"TProcessingThread", queue), Queue(*queue), Section(section) {}

  void End();

  Detail::TWorkQueue& Queue;            // the base's
  Platform::TCriticalSection& Section;  // the pool's

 protected:
  /// A thread that has left the pool ends on itself: behind a turn, not within one.
  void ExecuteLoop() override {
    const TRef<TWorker> self(*this);
    TProcessingThread::ExecuteLoop();
  }
  void BeforeDestruction() override {
    TProcessingThread::BeforeDestruction();
    const std::lock_guard<std::mutex> nobodyComes(GWithdrawal);
  }
};

/// Code on its way through the pool; it is its own work item at the thread.
///
/// Whoever sets Begun has the code: to run it, or to see that it never runs. Small on purpose: a
/// flood of tasks costs what its memory costs.
class TThreadPoolExecutor::TExecution final
    : public TImplements<TBasicInterfacedObject, IExecutionExt, TWorkItem::TTarget> {
 public:
  static constexpr bool RecyclesMemory = true;

  TExecution(TPool& pool, TProc<> lambda) noexcept
      : FPlace(PlaceOf(&pool, InPool)), FLambda(std::move(lambda)) {}
  TExecution(TPool& pool, TConstProc<TRef<IExecution>> lambda) noexcept
      : FState(GetsSelf), FPlace(PlaceOf(&pool, InPool)), FLambdaSelf(std::move(lambda)) {}
  ~TExecution() override;

  bool WaitFor(uint32_t timeoutMs) override { return Wait(Completed, timeoutMs); }
  void Terminate() override;
  bool IsTerminated() override { return State() & Terminated; }
  void SetThread(TRef<IProcessingThread> thread) override;
  void Invoke(const TRef<IProcessingThread>& thread, bool isRun) override;

  /// Lets go what the code holds, if it has not begun: it never will.
  void Drop();

 private:
  friend class TPool;
  friend class TTasks;
  class TOnThread;
  using TItem = TRef<TWorkItem::TTarget>;

  enum : uint32_t {
    Begun = 1,
    Ended = 2,      // the code has returned, or raised, or been let go
    Completed = 4,  // what WaitFor waits for
    Terminated = 8,
    Awaited = 16,  // somebody sleeps until one of those is set
    GetsSelf = 32  // which kind of code it is; set from the beginning
  };
  // Where a task is, beside a pointer. The first two do not count as references.
  enum : uintptr_t {
    InPool = 0,       // in the list of this pool
    AtWorker = 1,     // in the queue of this thread of the pool
    AtThread = 2,     // given to this thread by SetThread
    OutOfPool = 3,    // removed from this pool
    KindOfPlace = 3,  // the bits
    Nowhere = 0       // has begun, or never will
  };
  static uintptr_t PlaceOf(void* pointer, uintptr_t kind) noexcept {
    return reinterpret_cast<uintptr_t>(pointer) | kind;
  }
  template <class T>
  static T* At(uintptr_t place) noexcept {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the kind lives in the pointer
    return reinterpret_cast<T*>(place & ~KindOfPlace);
  }
  uintptr_t Place() const noexcept { return __atomic_load_n(&FPlace, __ATOMIC_ACQUIRE); }
  void SetPlace(uintptr_t place) noexcept { __atomic_store_n(&FPlace, place, __ATOMIC_RELEASE); }
  static bool IsCounted(uintptr_t place) noexcept { return (place & KindOfPlace) >= AtThread; }
  static void ReleasePlace(uintptr_t place) noexcept;

  uint32_t State() const noexcept { return __atomic_load_n(&FState, __ATOMIC_ACQUIRE); }
  bool TryBegin() noexcept {
    return !(__atomic_fetch_or(&FState, Begun, __ATOMIC_ACQ_REL) & Begun);
  }
  void Run();
  void Withdraw();
  void LeavePool() noexcept;
  void LetCodeGo() noexcept;
  void Set(uint32_t flags) noexcept;
  bool Wait(uint32_t flag, uint32_t timeoutMs) noexcept;
  TWorkItem ThreadLambda() { return TWorkItem(TItem(*this)); }

  static void operator delete(void* memory) {
    Detail::Poison(memory, sizeof(TExecution));
    Detail::GiveBlock<sizeof(TExecution)>(memory);
  }

  uint32_t FState = 0;  // atomic
  // Atomic. Followed under GWithdrawal; set inside the pool's section, or under GWithdrawal where
  // it is counted, or to nowhere.
  uintptr_t FPlace;
  union {
    TProc<> FLambda;
    TConstProc<TRef<IExecution>> FLambdaSelf;
  };
  // The neighbours in the pool's list, guarded by its section.
  TExecution* FPrevious = nullptr;
  TExecution* FNext = nullptr;
};

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

static_assert(sizeof(TThreadPoolExecutor::TExecution) == 64);

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
    const std::lock_guard<std::mutex> placesStay(GWithdrawal);
    uintptr_t place = Place();
    if (place != Nowhere && !IsCounted(place)) {
      const Detail::TInside inside((place & KindOfPlace) == InPool ? At<TPool>(place)->Section
                                                                   : At<TWorker>(place)->Section);
      // The pool may have given it to a thread, and the thread may have come to it.
      place = Place();
      if ((place & KindOfPlace) == AtWorker) {
        At<TWorker>(place)->Queue.RemoveInside(this);
      } else if (place != Nowhere) {
        waiting = At<TPool>(place)->FTasks.Take(*this);
      }
      SetPlace(Nowhere);
    } else if ((place & KindOfPlace) == AtThread) {
      thread = TRef(*At<IProcessingThread>(place));
    }
  }
  if (thread) thread->Cancel(ThreadLambda());
}

void TThreadPoolExecutor::TExecution::SetThread(TRef<IProcessingThread> thread) {
  TRef<TExecution> waiting;  // these end outside the locks
  TRef<TPool> outOf;
  {
    const std::lock_guard<std::mutex> placesStay(GWithdrawal);
    const uintptr_t place = Place();
    TPool* pool = At<TPool>(place);
    Assert(thread && place != Nowhere);
    if ((place & KindOfPlace) == OutOfPool) {
      outOf = TRef<TPool>::Adopt(pool);
    } else {
      Assert((place & KindOfPlace) == InPool);
      const Detail::TInside inside(pool->Section);
      Assert(Place() == place);
      waiting = pool->FTasks.Take(*this);
    }
    SetPlace(PlaceOf(TRef(thread).Detach(), AtThread));
  }
  thread->Process(ThreadLambda());
}

// --- The pool -----------------------------------------------------------------------------------

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
class TThreadPoolExecutor::TPool::TInside {
 public:
  explicit TInside(TPool& pool) : FPool(pool) { FPool.Section.Enter(); }
  TInside(const TInside&) = delete;
  ~TInside() {
    FPool.NoteMore();
    FPool.Section.Leave();
  }

 private:
  TPool& FPool;
};

void TThreadPoolExecutor::TPool::SetCount(int32_t value) {
  const TInside inside(*this);
  FCount = value;
}

void TThreadPoolExecutor::TPool::SetGroupSize(uint32_t value) {
  const TInside inside(*this);
  FGroupSize = value;
}

void TThreadPoolExecutor::TPool::SetPriority(TThreadPriority value) {
  const Detail::TInside inside(Section);
  if (value == FPriority) return;
  FPriority = value;
  for (const auto& thread : FThreads) thread->SetPriority(value);
}

void TThreadPoolExecutor::TPool::Add(const TRef<TExecution>& task) {
  TRef<TExecution> failed;
  TWakeUp wakeUp;
  const TInside inside(*this);
  bool isListed = false;
  try {
    // What nothing waits in front of goes to a thread at once.
    if (TWorker* worker = FTasks.IsEmpty() ? FindThread() : nullptr) {
      TExecution::TItem item(*task);
      return Give(item, *task, *worker, wakeUp);
    }
    FTasks.Add(task);
    isListed = true;
    Dispatch(wakeUp);
  } catch (...) {
    if (isListed) failed = FTasks.Take(*task);
    task->LeavePool();
    throw;
  }
}

void TThreadPoolExecutor::TPool::Remove(TExecution& task) {
  TRef<TExecution> removed;
  const std::lock_guard<std::mutex> placesStay(GWithdrawal);
  const Detail::TInside inside(Section);
  if (task.Place() != TExecution::PlaceOf(this, TExecution::InPool)) return;
  removed = FTasks.Take(task);
  task.SetPlace(TExecution::PlaceOf(TRef(*this).Detach(), TExecution::OutOfPool));
}

void TThreadPoolExecutor::TPool::ProcessQueue() {
  TWakeUp wakeUp;
  const TInside inside(*this);
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

/// A thread has worked off its queue. Those too many end, one at a time; without a pool, all.
void TThreadPoolExecutor::TPool::OnEmpty(TWorker& worker) {
  if (!__atomic_load_n(&FHasMore, __ATOMIC_RELAXED)) return;
  TRef<TWorker> surplus;
  {
    const TInside inside(*this);
    const auto found = std::ranges::find(FThreads, &worker, &TRef<TWorker>::Get);
    if (found == FThreads.end()) {
      surplus = TRef(worker);
    } else if (HasSurplus()) {
      surplus = std::move(*found);
      FThreads.erase(found);
    }
  }
  // What it was given meanwhile runs here.
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
    const TInside inside(*this);
    dropped = FTasks.Leave();
    FCount = -1;  // too many is any thread
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

void TThreadPoolExecutor::BeforeDestruction() {
  FPool->End();
  TImplements::BeforeDestruction();
}

}  // namespace Talvo
