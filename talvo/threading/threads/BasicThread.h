// SPDX-License-Identifier: Apache-2.0
#pragma once
// Threads by reference: the last reference to a thread stops it and waits for it.

#include <talvo/runtime/Component.h>
#include <talvo/runtime/Thread.h>

namespace Talvo {

class TBasicThread;

/// A thread. All operations may be called on any thread.
class IThread : public virtual IInterface {
  TALVO_INTERFACE(IThread, IInterface);
  /// Asks the thread to end. What the kinds of thread do about it stands with their classes.
  virtual void Terminate() = 0;
  virtual bool IsTerminated() const = 0;
  /// Whether the caller is this very thread.
  virtual bool IsInThread() const = 0;
  /// The object behind the interface.
  virtual TBasicThread* GetInstance() = 0;
  /// The system's identifier.
  virtual uint32_t GetThreadID() const = 0;
  /// Blocks until the thread has ended; at once on the thread itself.
  virtual void WaitFor() = 0;
  /// What was set last. To ordinary users the system refuses every raise. A value that is no
  /// priority raises ERangeError.
  virtual TThreadPriority GetPriority() const = 0;
  virtual void SetPriority(TThreadPriority value) = 0;

  bool Terminated() const { return IsTerminated(); }
  uint32_t ThreadID() const { return GetThreadID(); }
  TThreadPriority Priority() const { return GetPriority(); }
};

/// The base of the library's threads. The thread starts when the object is complete, and runs
/// ExecuteLoop again and again until it is terminated.
///
/// Its last reference terminates it and waits for it. When that goes on the thread itself, nobody
/// waits: the object ends at once, and the thread when the call that it is in has returned.
///
/// Descendants call the inherited AfterConstruction last: the thread starts there. A descendant
/// whose construction may fail behind it waits for the thread in its destructor.
class TALVO_API TBasicThread : public TImplements<TThread, IThread> {
 public:
  static constexpr bool CountsReferences = true;

  explicit TBasicThread(string name);
  /// The name of a thread that belongs to a component: the owner's name, or its class name when it
  /// has none, then "." and `name`; just `name` without an owner. The owner is only looked at here.
  TBasicThread(const TComponent* owner, u16string_view name);
  ~TBasicThread() override;

  void Terminate() override;
  bool IsTerminated() const override { return TThread::Terminated(); }
  bool IsInThread() const final { return IsCurrent(); }
  TBasicThread* GetInstance() final { return this; }
  uint32_t GetThreadID() const final { return TThread::ThreadID(); }
  void WaitFor() final { TThread::WaitFor(); }
  TThreadPriority GetPriority() const final { return TThread::GetPriority(); }
  void SetPriority(TThreadPriority value) final { TThread::SetPriority(value); }
  using TThread::Priority;
  using TThread::Terminated;
  using TThread::ThreadID;

  uint32_t QueryInterface(const TGuid& id, void** out) final;
  int32_t AddRef() final;
  int32_t Release() final;

  /// The system's identifier of the calling thread.
  static uint32_t GetCurrentThreadId() noexcept;
  /// The name of the calling thread, not of this object.
  static string GetName();

 protected:
  /// Tells of the start, names the thread and runs IntExecute.
  void Execute() override;
  /// The loop: ExecuteLoop until the thread is terminated. Overriding functions call out last, or
  /// touch nothing of this object afterwards unless CurrentThread() still answers it.
  virtual void IntExecute();
  /// One turn of the loop.
  virtual void ExecuteLoop();
  /// Has the class-defaults hook fill the fields that are still empty; runs before the start.
  virtual void InitDefaults();
  /// Tells of the end.
  void DoTerminate() override;
  /// Gives the calling thread, which is this one, its name.
  void SetName();

  void Construct() override;
  void BeforeDestruction() override;

 private:
  const string FName;
  uint32_t FRefCount = 1;  // atomic; the maker's
};

namespace Detail {

/// A reference that does not count, for the length of a call on the thread itself: a call may hold
/// up the last release, but is none.
template <class I>
class TBorrowedRef {
 public:
  explicit TBorrowedRef(I& object) noexcept : FRef(TRef<I>::Adopt(&object)) {}
  TBorrowedRef(const TBorrowedRef&) = delete;
  ~TBorrowedRef() { FRef.Detach(); }
  const TRef<I>& Get() const noexcept { return FRef; }

 private:
  TRef<I> FRef;
};

}  // namespace Detail
}  // namespace Talvo
