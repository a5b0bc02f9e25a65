// SPDX-License-Identifier: Apache-2.0
#pragma once
// What a pool of threads is made of: the shared part, its threads, its tasks.
//
// The lock order is a pool's section, then GWithdrawal: whoever holds GWithdrawal enters a section
// only if that needs no wait. The pool calls code of users, and lets go what it holds, outside
// both; but a thread tells items false inside the section, and those may call off others.

#include <mutex>
#include <vector>
#include <talvo/platform/Sync.h>
#include <talvo/threading/executors/ThreadPoolExecutor.h>
#include <talvo/threading/threads/WorkQueue.h>

namespace Talvo {
namespace Detail {

// Held by whoever follows a task to where it waits. Pools and their threads do not end meanwhile.
extern constinit std::mutex GWithdrawal;

}  // namespace Detail

/// @cond INTERNAL

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
    const std::lock_guard<std::mutex> nobodyComes(Detail::GWithdrawal);
    TInterfacedObject::BeforeDestruction();
  }

 private:
  friend class TExecution;
  class TChange;
  class TWakeUp;

  bool TryAdd(const TRef<TExecution>& task);
  void Dispatch(TWakeUp& wakeUp);
  void Give(TRef<TWorkItem::TTarget>& item, TExecution& task, TWorker& worker, TWakeUp& wakeUp);
  TWorker* FindThread() const;
  TWorker* NewThread();
  void OnEmpty(TWorker& worker);
  bool HasSurplus() const { return FHasEnded || static_cast<int64_t>(FThreads.size()) > FCount; }
  void NoteMore();

  TComponent* const FOwner;
  // All guarded by Section.
  int32_t FCount;
  uint32_t FGroupSize = 0;
  TThreadPriority FPriority = tpIdle;
  std::vector<TRef<TWorker>> FThreads;  // in the order in which they were made
  TTasks FTasks;                        // not given to a thread yet
  bool FHasEnded = false;               // takes no more work, and any thread is too many
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
    const std::lock_guard<std::mutex> nobodyComes(Detail::GWithdrawal);
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
  class TStay;
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

static_assert(sizeof(TThreadPoolExecutor::TExecution) == 64);

/// @endcond

}  // namespace Talvo
