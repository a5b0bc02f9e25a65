// SPDX-License-Identifier: Apache-2.0
#pragma once
// A thread with a window and a message loop of its own.
//
//   auto thread = THiddenWindowThread::Make(u"Device");
//   thread->Process([&] { handle = OpenDevice(); });     // runs there, and returns then
//
// For what has to stay on one thread, or wants window messages off the main one.

#include <talvo/platform/MessageQueue.h>
#include <talvo/runtime/Function.h>
#include <talvo/threading/threads/BasicThread.h>

namespace Talvo {

/// The message by which such a thread is told that a function waits for it.
inline constexpr uint32_t WM_HIDDENWINDOWPROCESS = 1124;

/// A thread that owns a window. All operations may be called on any thread.
class IHiddenWindowThread : public virtual IThread {
  TALVO_INTERFACE(IHiddenWindowThread, IThread);
  /// The window, for PostMessage; 0 before it is there, after WM_DESTROY was posted to it, and at
  /// the thread's end.
  virtual TWindowHandle GetWindowHandle() const = 0;
  /// Whether the window has been made. Does not wait.
  virtual bool GetWindowReady() const = 0;
  /// Runs `proc` on the thread, behind what others have asked for, and blocks until it has run and
  /// what it carried has ended; on the thread itself it runs at once. What it raises comes out
  /// here. Raises EThread when the thread was told to end before, or ends before it comes to it.
  virtual void Process(TProc<> proc) = 0;

  TWindowHandle WindowHandle() const { return GetWindowHandle(); }
  bool WindowReady() const { return GetWindowReady(); }
};

/// The thread. It ends behind the message that it is at and what has been asked for by then;
/// Terminate does not wait for that. WM_QUIT, posted to the thread, ends it too.
class TALVO_API THiddenWindowThread : public TImplements<TBasicThread, IHiddenWindowThread> {
 public:
  explicit THiddenWindowThread(string name);
  THiddenWindowThread(const TComponent* owner, u16string_view name);
  ~THiddenWindowThread() override;

  /// A thread that runs from here on. `Create...` answer the class, `Make...` the interface;
  /// `...Component` take the name from an owner, which may be null.
  static TRef<THiddenWindowThread> CreateObject(string name);
  static TRef<IHiddenWindowThread> Make(string name);
  static TRef<THiddenWindowThread> CreateObjectComponent(const TComponent* owner,
                                                         u16string_view name);
  static TRef<IHiddenWindowThread> MakeComponent(const TComponent* owner, u16string_view name);

  void Terminate() override;
  TWindowHandle GetWindowHandle() const override;
  bool GetWindowReady() const override;
  void Process(TProc<> proc) override;

 protected:
  void IntExecute() override;
  /// A message to the window, on the thread. Passes it to DefWindowProc.
  virtual void WndProc(TMessage& message);

 private:
  class TWindow;

  const TRef<TWindow> FWindow;
};

}  // namespace Talvo
