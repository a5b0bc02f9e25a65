// SPDX-License-Identifier: Apache-2.0
#pragma once
// A thread that works off a queue.
//
//   auto worker = TProcessingThread::MakeNamed(u"Worker", nullptr);
//   TWorkItem item = worker->Process([&] { Load(); });       // returns at once
//   worker->Cancel(item);                                    // withdrawn, or has ended
//   worker->ProcessBlocking([&] { Save(); });                // returns when it has run

#include <talvo/runtime/Function.h>
#include <talvo/threading/threads/BasicThread.h>

namespace Talvo {

class IProcessingThread;

/// Work for a processing thread. The flag is true to run, and false to say that it will not: what
/// it carries may go. The thread is borrowed for the call: a copy of it may turn out to be the last
/// reference, and when that goes so does the object, in mid-call.
using TWorkItem = TConstProc<TRef<IProcessingThread>, bool>;
using TProcWithProcessingThread = TConstProc<TRef<IProcessingThread>>;

namespace Detail {
class TBlockingItem;
class TWorkQueue;
}  // namespace Detail

/// A thread with a queue of work. All operations may be called on any thread, also by work on the
/// thread itself.
///
/// What an item raises when it runs is swallowed, and the queue goes on; see
/// SetSwallowedExceptionHook. Items run one at a time with no lock held. Items that are told false
/// are called inside the thread's section: other threads that come to the queue, and the thread
/// itself, wait until they return. So such an item must not end the thread, let its last reference
/// go, or block on it; and what it raises comes out of the call that told it.
class IProcessingThread : public virtual IThread {
  TALVO_INTERFACE(IProcessingThread, IThread);
  /// Adds work at the end of the queue, or in front of all other, and returns the work item, for
  /// Cancel. An empty `proc` or `item` is an assertion failure, here and in what follows. Once the
  /// thread has ended, what is added neither runs nor is told anything.
  virtual TWorkItem Process(TProc<> proc, bool isFirst = false) = 0;
  virtual TWorkItem Process(TWorkItem item, bool isFirst = false) = 0;
  /// Adds a procedure that runs once as the thread ends, behind those added before, on the thread
  /// and inside its section. Returns `proc`. What one raises ends the thread, and those behind it
  /// do not run; none runs when the on-empty function has ended the thread by raising, or when it
  /// was added behind the end.
  virtual TProc<> ProcessTerminated(TProc<> proc) = 0;
  /// Adds work and blocks until it has run, has been told false, or AbortBlocking was called; until
  /// the thread has ended, if it does not come to that. On the thread itself the work is done at
  /// once, before all that waits, and what it raises comes out here.
  virtual void ProcessBlocking(TProc<> proc, bool isFirst = false) = 0;
  virtual void ProcessBlocking(TWorkItem item, bool isFirst = false) = 0;
  /// Lets all who block in ProcessBlocking return. Their work stays in the queue.
  virtual void AbortBlocking() = 0;
  /// Withdraws `item`, once if it is queued several times. One that runs at the moment is waited
  /// for, except by itself, and stays where it is queued again; other threads that come to the
  /// queue wait as long. Any other is taken out of the queue, and told false whether it was there
  /// or not: what it raises comes out here. Empty ones are none.
  virtual void Cancel(const TWorkItem& item) = 0;
  /// Tells all items in the queue false, in their order and those that are added meanwhile too, and
  /// takes them out together when all are told. What one of them raises comes out here: then those
  /// behind it are not told, and all stay in the queue. Does nothing when an item that is told
  /// calls it, since the call it is in goes on to the others.
  virtual void Clear() = 0;
  /// The number of items in the queue; the one that runs is not in it.
  virtual int32_t GetCountWaiting() const = 0;

  int32_t CountWaiting() const { return GetCountWaiting(); }

  /// As with a procedure, in one allocation.
  template <class F>
  requires(!Detail::IsFunctionHandle<std::decay_t<F>> && !std::is_convertible_v<F, TWorkItem> &&
           std::is_convertible_v<F, TProc<>> && std::is_invocable_v<std::decay_t<F>&>) TWorkItem
      Process(F&& code, bool isFirst = false) {
    return Process(TWorkItem([code = std::decay_t<F>(std::forward<F>(code))](
                                 const TRef<IProcessingThread>&, bool isRun) mutable {
                     if (isRun) code();
                   }),
                   isFirst);
  }
  /// Tells at compile time what is wrong with code that none of the others takes.
  template <Detail::MisfitFor<TProc<>, TWorkItem> F>
  TWorkItem Process(F&& /*code*/, bool /*isFirst*/ = false) {
    ExplainMisfit<F>();
    return nullptr;
  }
  template <Detail::MisfitFor<TProc<>, TWorkItem> F>
  void ProcessBlocking(F&& /*code*/, bool /*isFirst*/ = false) {
    ExplainMisfit<F>();
  }
  /// An item is found by its identity, which a bare lambda does not have: keep what Process
  /// returned.
  template <class F>
  requires(!std::is_same_v<F, TWorkItem> &&
           (std::is_invocable_v<F&> ||
            std::is_invocable_v<F&, const TRef<IProcessingThread>&,
                                bool>)) void Cancel(const F& lambda) = delete;

 private:
  template <class F>
  static constexpr void ExplainMisfit() {
    constexpr bool returnsNothing =
        !Detail::ReturnsSomething<F>() &&
        !Detail::ReturnsSomething<F, const TRef<IProcessingThread>&, bool>();
    static_assert(returnsNothing, "Work returns nothing; use a variable that it captures.");
    static_assert(!returnsNothing,
                  "Work takes no argument, or these: const TRef<IProcessingThread>&, bool.");
  }
};

/// The worker with a queue. It has the priority tpHighest.
///
/// Terminated from another thread, it ends behind the item that runs, and Terminate waits for that;
/// what is queued never runs and is told nothing. Terminated on the thread itself, it runs what is
/// queued before Terminate returns. The same goes for its last reference.
class TALVO_API TProcessingThread : public TImplements<TBasicThread, IProcessingThread> {
 public:
  TProcessingThread(string name, TProcWithProcessingThread onEmpty);
  TProcessingThread(const TComponent* owner, u16string_view name,
                    TProcWithProcessingThread onEmpty);
  ~TProcessingThread() override;

  /// A thread that runs from here on. `onEmpty`, which may be empty, is called on it each time the
  /// queue has been worked off, and when it is terminated at work, with no lock held; what it
  /// raises ends the thread. Raises EThread when the system has no room for another thread.
  /// `Create...` answer the class, `Make...` the interface. The name is `name`, or for those with
  /// an owner the owner's, "." and `name`; without a name, that of the class takes its place.
  static TRef<TProcessingThread> CreateObjectNamed(string name,
                                                   TProcWithProcessingThread onEmpty = nullptr);
  static TRef<IProcessingThread> MakeNamed(string name,
                                           TProcWithProcessingThread onEmpty = nullptr);
  static TRef<TProcessingThread> CreateObject(const TComponent* owner = nullptr,
                                              TProcWithProcessingThread onEmpty = nullptr);
  static TRef<IProcessingThread> Make(const TComponent* owner = nullptr,
                                      TProcWithProcessingThread onEmpty = nullptr);
  static TRef<TProcessingThread> CreateObjectComponent(const TComponent* owner, u16string_view name,
                                                       TProcWithProcessingThread onEmpty = nullptr);
  static TRef<IProcessingThread> MakeComponent(const TComponent* owner, u16string_view name,
                                               TProcWithProcessingThread onEmpty = nullptr);

  void Terminate() override;

  TWorkItem Process(TProc<> proc, bool isFirst = false) override;
  TWorkItem Process(TWorkItem item, bool isFirst = false) override;
  TProc<> ProcessTerminated(TProc<> proc) override;
  void ProcessBlocking(TProc<> proc, bool isFirst = false) override;
  void ProcessBlocking(TWorkItem item, bool isFirst = false) override;
  void AbortBlocking() override;
  void Cancel(const TWorkItem& item) override;
  void Clear() override;
  int32_t GetCountWaiting() const override;
  using IProcessingThread::Cancel;
  using IProcessingThread::Process;
  using IProcessingThread::ProcessBlocking;

 protected:
  /// For those who see into the queue.
  TProcessingThread(const TComponent* owner, u16string_view name, TRef<Detail::TWorkQueue> queue);

  void Execute() override;
  void IntExecute() override;
  void ExecuteLoop() override;
  void AfterConstruction() override;

 private:
  void WaitForItem(const TRef<Detail::TBlockingItem>& item, bool isFirst);

  const TRef<Detail::TWorkQueue> FQueue;
};

}  // namespace Talvo
