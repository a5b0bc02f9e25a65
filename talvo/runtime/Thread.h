// SPDX-License-Identifier: Apache-2.0
#pragma once
// TThread: a thread as an object.
//
//   class TLoader : public TThread {
//     void Execute() override { while (!Terminated()) LoadOne(); }
//   };
//   auto loader = Create<TLoader>();     // runs from here on
//   loader->Terminate();
//   loader->WaitFor();
//
// The thread starts when its object is complete. The object's end terminates the thread and waits
// for it, unless it comes on that thread itself: then nothing of the object is touched afterwards,
// and the thread ends when it has returned from Execute.

#include <exception>
#include <talvo/runtime/Object.h>
#include <talvo/runtime/Text.h>
#include <talvo/runtime/ThreadPriority.h>

namespace Talvo {

namespace Detail {
class TThreadState;
}  // namespace Detail

/// A thread of its own; descendants say in Execute what it does. All operations may be called on
/// any thread as long as the object lives.
class TALVO_API TThread : public TBasicObject {
 public:
  /// A suspended thread waits for Start.
  explicit TThread(bool isSuspended = false);
  ~TThread() override;

  /// Starts a thread that was made suspended. Raises EThread when it runs already, or when the
  /// system has no room for another one.
  void Start();
  /// Asks the thread to end by setting a flag; Execute looks at it.
  virtual void Terminate();
  bool Terminated() const noexcept;
  /// Whether the thread has done all its work and sent its notices.
  bool Finished() const noexcept;
  /// Blocks until the thread has ended. At once on that thread itself, before it is started, and in
  /// a forked child, which has none of its parent's other threads.
  void WaitFor();

  /// The system's identifier; 0 before Start. Waits the moment that the system takes to start the
  /// thread.
  uint32_t ThreadID() const noexcept;
  /// What was set last; tpNormal at first.
  TThreadPriority GetPriority() const noexcept;
  /// The system lets an ordinary user lower a thread and refuses every raise, also back to what it
  /// was before; then the thread goes on as it did. A value that is no priority raises ERangeError.
  void SetPriority(TThreadPriority value);
  TThreadPriority Priority() const noexcept { return GetPriority(); }
  /// What left Execute or DoTerminate, the first of it; null when nothing did. Read it after
  /// WaitFor.
  std::exception_ptr FatalException() const noexcept;

  /// The object of the calling thread; null on threads that have none, the first one among them.
  static TThread* CurrentThread() noexcept;
  /// Shows a name for a thread to debuggers and system tools, which see the last 15 bytes of it.
  /// Without an identifier, for the calling thread.
  static void NameThreadForDebugging(u16string_view name,
                                     uint32_t threadId = static_cast<uint32_t>(-1));

 protected:
  /// What the thread does; runs on it.
  virtual void Execute() = 0;
  /// Runs on the thread when Execute has ended, in whatever way; not when the object has.
  virtual void DoTerminate();
  /// Terminates the thread and waits for it. What Terminate raises comes out, and the thread has
  /// ended all the same: it must not run on without its object.
  void Stop();
  /// Whether the caller is this very thread.
  bool IsCurrent() const noexcept;
  /// `notice` runs on the thread in place of DoTerminate when the object has ended on it.
  void SetOrphanNotice(void (*notice)()) noexcept;

  void AfterConstruction() override;
  void ConstructionFailed() noexcept override;
  void BeforeDestruction() override;

 private:
  friend class Detail::TThreadState;
  const TRef<Detail::TThreadState> FState;
};

}  // namespace Talvo
