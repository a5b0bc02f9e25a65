// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/mainthread/HiddenWindowThread.h>

#include <talvo/containers/list/LinkedNodes.h>
#include <talvo/platform/Sync.h>
#include <talvo/platform/Thread.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/threading/Guard.h>

namespace Talvo {

/// What the thread works on. It keeps this to its end, which may come after that of the object.
class THiddenWindowThread::TWindow final : public TInterfacedObject, private TMessageHandler {
 public:
  /// On the thread.
  void Open();
  void Close();
  void Handle(TMessage& message);
  void RunAll();

  void Run(TProc<> proc);
  /// What waits still runs, if the thread comes to it; nothing more is taken.
  void End();
  TWindowHandle GetHandle() const { return __atomic_load_n(&FHiddenWnd, __ATOMIC_ACQUIRE); }
  bool IsReady() { return FWindowReady.Wait(0); }

 private:
  /// A caller that waits for its function. The thread may come back from the signal later than the
  /// caller.
  struct TCall final : TInterfacedObject {
    explicit TCall(TProc<> proc) : Proc(std::move(proc)) {}
    /// Lets the caller go; what its function carried has ended by then.
    void Complete() {
      Proc = nullptr;
      Completed.Signal();
    }
    TProc<> Proc;
    std::exception_ptr Failure;
    Platform::TEvent Completed{{}, /*isManual*/ false, /*isSignalled*/ false};
  };

  void WndProc(TMessage& message) override;
  void Wake();
  TRef<TCall> TakeFirst();
  void SetHandle(TWindowHandle handle) { __atomic_store_n(&FHiddenWnd, handle, __ATOMIC_RELEASE); }

  TWindowHandle FHiddenWnd = 0;  // atomic
  Platform::TCriticalSection FSection;
  Detail::TLinkedNodes<TRef<TCall>> FOnNotifyList;  // guarded by FSection, as are the next two
  uint32_t FThread = 0;
  bool FIsEnding = false;
  Platform::TEvent FWindowReady{{}, /*isManual*/ true, /*isSignalled*/ false};
};

void THiddenWindowThread::TWindow::Open() {
  SetHandle(AllocateHWnd(*this));
  {
    const Detail::TInside inside(FSection);
    FThread = CurrentThreadId();
  }
  FWindowReady.Signal();
  RunAll();  // what came before there was a queue to wake
}

/// Whoever waits, and whoever comes later, is told that nothing runs any more.
void THiddenWindowThread::TWindow::Close() {
  DeallocateHWnd(GetHandle());
  SetHandle(0);
  {
    const Detail::TInside inside(FSection);
    FIsEnding = true;
    FThread = 0;  // may be another's soon
  }
  while (const TRef<TCall> call = TakeFirst()) {
    call->Failure = std::make_exception_ptr(EThread(u"The thread has ended"));
    call->Complete();
  }
}

void THiddenWindowThread::TWindow::Handle(TMessage& message) {
  DispatchMessage(message);
  if (message.Msg != WM_DESTROY || message.Window != GetHandle()) return;
  SetHandle(0);
  DeallocateHWnd(message.Window);
}

void THiddenWindowThread::TWindow::RunAll() {
  while (const TRef<TCall> call = TakeFirst()) {
    try {
      call->Proc.Invoke();
    } catch (...) {
      call->Failure = std::current_exception();
    }
    call->Complete();
  }
}

TRef<THiddenWindowThread::TWindow::TCall> THiddenWindowThread::TWindow::TakeFirst() {
  const Detail::TInside inside(FSection);
  TRef<TCall> call;
  FOnNotifyList.PopFirst(call);
  return call;
}

void THiddenWindowThread::TWindow::Run(TProc<> proc) {
  const auto call = Create<TCall>(std::move(proc));
  {
    const Detail::TInside inside(FSection);
    if (FIsEnding) throw EThread(u"The thread has ended");
    Detail::TLinkedNodes<TRef<TCall>>::TChain added(FOnNotifyList);
    added.Add(call);
    Wake();  // may fail; the thread comes to the list when this has left
    FOnNotifyList.LinkLast(added);
  }
  call->Completed.Wait(Platform::NoTimeLimit);
  if (call->Failure) std::rethrow_exception(call->Failure);
}

void THiddenWindowThread::TWindow::End() {
  const Detail::TInside inside(FSection);  // the thread, and with it its number, is there
  FIsEnding = true;
  if (FThread) NudgeThread(FThread);
}

/// Inside the section.
void THiddenWindowThread::TWindow::Wake() {
  if (PostMessage(GetHandle(), WM_HIDDENWINDOWPROCESS, 0, 0)) return;
  if (FThread) PostThreadMessage(FThread, WM_HIDDENWINDOWPROCESS, 0, 0);
}

void THiddenWindowThread::TWindow::WndProc(TMessage& message) {
  // The object may have ended on this thread.
  auto* thread = static_cast<THiddenWindowThread*>(TThread::CurrentThread());
  if (thread) {
    thread->WndProc(message);
  } else {
    DefWindowProc(message);
  }
}

// --- The thread ---------------------------------------------------------------------------------

THiddenWindowThread::THiddenWindowThread(string name)
    : TImplements(std::move(name)), FWindow(Create<TWindow>()) {}

THiddenWindowThread::THiddenWindowThread(const TComponent* owner, u16string_view name)
    : TImplements(owner, name), FWindow(Create<TWindow>()) {}

THiddenWindowThread::~THiddenWindowThread() = default;

TRef<THiddenWindowThread> THiddenWindowThread::CreateObject(string name) {
  return Create<THiddenWindowThread>(std::move(name));
}

TRef<IHiddenWindowThread> THiddenWindowThread::Make(string name) {
  return CreateObject(std::move(name));
}

TRef<THiddenWindowThread> THiddenWindowThread::CreateObjectComponent(const TComponent* owner,
                                                                     u16string_view name) {
  return Create<THiddenWindowThread>(owner, name);
}

TRef<IHiddenWindowThread> THiddenWindowThread::MakeComponent(const TComponent* owner,
                                                             u16string_view name) {
  return CreateObjectComponent(owner, name);
}

void THiddenWindowThread::IntExecute() {
  struct TOpened {
    TRef<TWindow> Window;
    ~TOpened() { Window->Close(); }
  } const opened{FWindow};
  opened.Window->Open();
  TMessage message;
  while (CurrentThread() && !IsTerminated() && GetMessage(message)) {
    opened.Window->Handle(message);
    opened.Window->RunAll();
  }
}

void THiddenWindowThread::Terminate() {
  const TRef<TWindow> window = FWindow;
  TImplements::Terminate();
  window->End();
}

TWindowHandle THiddenWindowThread::GetWindowHandle() const {
  return FWindow->GetHandle();
}

bool THiddenWindowThread::GetWindowReady() const {
  return FWindow->IsReady();
}

void THiddenWindowThread::Process(TProc<> proc) {
  Assert(static_cast<bool>(proc));
  if (IsInThread()) return proc.Invoke();
  const TRef<TWindow> window = FWindow;
  window->Run(std::move(proc));
}

void THiddenWindowThread::WndProc(TMessage& message) {
  DefWindowProc(message);
}

}  // namespace Talvo
