// SPDX-License-Identifier: Apache-2.0
#pragma once
// The main thread: how other threads hand it work.
//
//   MainThread::Execute(this, false, [this] { Redraw(); }, true);   // on any thread
//   MainThread::ProcessExecuteQueue(this);                          // in the destructor
//
// The main thread is the first thread of the process, whoever loaded the library. It runs what is
// queued when it takes messages (GetMessage, ProcessMessages), or when it is told to by hand. A
// host's own loop polls MainThread::WakeUpDescriptor() and calls MainThread::ProcessMessages().

#include <talvo/containers/elements/Tuple.h>
#include <talvo/platform/MessageQueue.h>
#include <talvo/runtime/Function.h>
#include <talvo/runtime/WeakReference.h>
#include <talvo/threading/mainthread/OwnerKey.h>

namespace Talvo {

template <class T>
class ILinkedList;
class ICriticalSection;
class TMainWindowNode;

/// The message by which the main thread is told that work waits for it.
inline constexpr uint32_t WM_MAINTHREADEXECUTE = 0x8600;

/// A queue of work for the main thread, first in, first out. Work may queue more work, drop its
/// owner and drop the queue; what it raises is swallowed and does not stop what follows.
class IMainThreadExecute : public virtual IInterface {
  TALVO_INTERFACE(IMainThreadExecute, IInterface);
  /// Execute for work that nobody owns.
  virtual void Execute(bool forcePost, TProc<> onExecute, bool ignoreMultiple) = 0;
  /// Runs `onExecute` on the main thread. There it runs at once, before what is queued already,
  /// and what it raises comes out here; on other threads, and with `forcePost`, it is queued and
  /// the main thread is woken once for all that waits. With `ignoreMultiple` it is not queued
  /// when the same function object of the same owner waits already. Any thread; never blocks.
  virtual void Execute(TOwnerKey object, bool forcePost, TProc<> onExecute,
                       bool ignoreMultiple) = 0;
  /// Drops what waits for this owner without running it; without an owner, all that waits. Any
  /// thread. What the main thread runs at the moment is not waited for.
  virtual void Clear(TOwnerKey object) = 0;
  /// On the main thread, runs what waits for this owner, or all of it without one. On any other
  /// thread the same as Clear: what waits is dropped.
  virtual void ClearMainThread(TOwnerKey object) = 0;
  /// Runs all that waits, and all that is queued meanwhile. On the main thread only, else an
  /// assertion failure.
  virtual void SyncNotify() = 0;
};

/// The queue. It may be made and dropped on any thread; what waits in it at its end is dropped.
class TALVO_API TMainThreadExecute
    : public TImplements<TBasicNoCreateInterfacedObject, IMainThreadExecute> {
 public:
  explicit TMainThreadExecute(TDoNotUseThis);
  ~TMainThreadExecute() override;
  static TRef<TMainThreadExecute> CreateObject();
  static TRef<IMainThreadExecute> Make();

  void Execute(bool forcePost, TProc<> onExecute, bool ignoreMultiple) override;
  void Execute(TOwnerKey object, bool forcePost, TProc<> onExecute, bool ignoreMultiple) override;
  void Clear(TOwnerKey object) override;
  void ClearMainThread(TOwnerKey object) override;
  void SyncNotify() override;

 protected:
  void Construct() override;

 private:
  friend class TMainWindowNode;
  using TNotify = TRecTuple<TOwnerKey, TProc<>>;  // the owner, and what to run

  void RunAll(TOwnerKey object);
  bool TakeNext(TOwnerKey object, TNotify& notify);

  const TRef<ICriticalSection> FSection;
  const TRef<ILinkedList<TNotify>> FOnNotifyList;  // guarded by FSection
  bool FSignaled = false;                          // guarded by FSection: a wake-up is on its way
  TMainWindowNode* FNode = nullptr;
  TWeakRef<TMainThreadExecute> FSelf;
};

/// The main thread of the process and its one queue.
class TALVO_API MainThread {
 public:
  MainThread() = delete;

  /// Whether the caller is on the main thread.
  static bool IsCurrent() noexcept;

  /// IMainThreadExecute::Execute of the process's queue. Nothing happens when `onExecute` is
  /// empty, and at the end of the process, when the library has been shut down.
  static void Execute(TOwnerKey object, bool forcePost, TProc<> onExecute, bool ignoreMultiple);
  /// On the main thread, runs what waits for this owner; on any other thread drops it. An owner
  /// calls this before it ends. On another thread that is not enough for work that touches it: the
  /// main thread may be in it just then, and is not waited for.
  static void ProcessExecuteQueue(TOwnerKey object);
  /// The same for all that waits: for a main thread that takes no messages.
  static void ProcessExecuteQueueAll();

  /// A descriptor that can be read from as long as anything waits for the main thread: work,
  /// messages or due timers. It is for polling only, stays open, and is the same at every call;
  /// -1 when the system gives no more descriptors. Any thread.
  static int WakeUpDescriptor();
  /// Handles the messages and timers that wait for the calling thread now, and on the main thread
  /// with them all queued work, and returns without waiting. How many messages there were. What a
  /// handler raises comes out here, and the rest stays for the next call.
  static int32_t ProcessMessages();
};

}  // namespace Talvo
