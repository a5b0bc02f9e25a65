// SPDX-License-Identifier: Apache-2.0
#pragma once
// Threads that call one procedure again and again, at once or with a pause.
//
//   auto poller = TPeriodicThread::Make(u"Poller", /*periodMs*/ 500, [&] { Poll(); });
//   ...
//   poller = nullptr;                   // ends it and waits
//
// What the procedure raises ends the thread, and is kept as FatalException() of its object.

#include <talvo/runtime/Function.h>
#include <talvo/threading/sync/Event.h>
#include <talvo/threading/threads/BasicThread.h>

namespace Talvo {

/// What such a thread calls: code that takes the thread, or code that takes nothing.
class TThreadProc {
 public:
  using TProcWithThread = TConstProc<TRef<IThread>>;

  TThreadProc(std::nullptr_t = nullptr) noexcept {}
  template <class F>
  requires(!std::is_same_v<std::decay_t<F>, TThreadProc> &&
           std::is_convertible_v<F, TProcWithThread>) TThreadProc(F&& code)
      : FProc(std::forward<F>(code)) {}
  template <class F>
  requires(!std::is_convertible_v<F, TProcWithThread> && std::is_convertible_v<F, TProc<>>)
      TThreadProc(F&& code) {
    if constexpr (Detail::IsFunctionHandle<std::decay_t<F>>) {
      if (!code) return;
    }
    FProc = [code = std::decay_t<F>(std::forward<F>(code))](const TRef<IThread>&) mutable {
      code();
    };
  }
  /// As code that takes the thread; empty when there is none.
  const TProcWithThread& Proc() const noexcept { return FProc; }

 private:
  TProcWithThread FProc;
};

/// Calls its procedure again as soon as it has returned.
class TALVO_API TRepeatThread : public TBasicThread {
 public:
  using TProcWithThread = TThreadProc::TProcWithThread;

  TRepeatThread(string name, TThreadProc procThread, TProc<> procTerminate);
  TRepeatThread(const TComponent* owner, u16string_view name, TThreadProc procThread,
                TProc<> procTerminate);
  ~TRepeatThread() override;

  /// A thread that runs from here on. An empty procedure is an assertion failure; an empty
  /// `procTerminate` is none. Raises EThread when the system has no room for another thread.
  /// The thread in the procedure's argument is borrowed for the call: a copy of it may turn out to
  /// be the last reference, and when that goes so does the object, in mid-call.
  /// `Create...` answer the class, `Make...` the interface; `...Component` take the name from an
  /// owner, which may be null.
  static TRef<TRepeatThread> CreateObject(string name, TThreadProc procThread,
                                          TProc<> procTerminate = nullptr) {
    return Create<TRepeatThread>(std::move(name), std::move(procThread), std::move(procTerminate));
  }
  static TRef<IThread> Make(string name, TThreadProc procThread, TProc<> procTerminate = nullptr) {
    return CreateObject(std::move(name), std::move(procThread), std::move(procTerminate));
  }
  static TRef<TRepeatThread> CreateObjectComponent(const TComponent* owner, u16string_view name,
                                                   TThreadProc procThread,
                                                   TProc<> procTerminate = nullptr) {
    return Create<TRepeatThread>(owner, name, std::move(procThread), std::move(procTerminate));
  }
  static TRef<IThread> MakeComponent(const TComponent* owner, u16string_view name,
                                     TThreadProc procThread, TProc<> procTerminate = nullptr) {
    return CreateObjectComponent(owner, name, std::move(procThread), std::move(procTerminate));
  }

  /// Calls the terminate procedure, each time and on the caller's thread, then asks the thread to
  /// end. Does not wait. What the procedure raises comes out here; the thread ends all the same.
  void Terminate() override;

 protected:
  void ExecuteLoop() override;
  void Construct() override;

 private:
  const TProcWithThread FProcThread;
  const TProc<> FProcTerminate;
};

/// Calls its procedure, pauses, and calls it again: the call's own time is added to the period.
class TALVO_API TPeriodicThread : public TBasicThread {
 public:
  using TProcWithThread = TThreadProc::TProcWithThread;

  TPeriodicThread(string name, int32_t periodMs, TThreadProc procThread, TProc<> procTerminate);
  TPeriodicThread(const TComponent* owner, u16string_view name, int32_t periodMs,
                  TThreadProc procThread, TProc<> procTerminate);
  ~TPeriodicThread() override;

  /// As those of TRepeatThread. A period of 0 is no pause; one below 0 ends the thread after the
  /// first call with an ERangeError.
  static TRef<TPeriodicThread> CreateObject(string name, int32_t periodMs, TThreadProc procThread,
                                            TProc<> procTerminate = nullptr) {
    return Create<TPeriodicThread>(std::move(name), periodMs, std::move(procThread),
                                   std::move(procTerminate));
  }
  static TRef<IThread> Make(string name, int32_t periodMs, TThreadProc procThread,
                            TProc<> procTerminate = nullptr) {
    return CreateObject(std::move(name), periodMs, std::move(procThread), std::move(procTerminate));
  }
  static TRef<TPeriodicThread> CreateObjectComponent(const TComponent* owner, u16string_view name,
                                                     int32_t periodMs, TThreadProc procThread,
                                                     TProc<> procTerminate = nullptr) {
    return Create<TPeriodicThread>(owner, name, periodMs, std::move(procThread),
                                   std::move(procTerminate));
  }
  static TRef<IThread> MakeComponent(const TComponent* owner, u16string_view name, int32_t periodMs,
                                     TThreadProc procThread, TProc<> procTerminate = nullptr) {
    return CreateObjectComponent(owner, name, periodMs, std::move(procThread),
                                 std::move(procTerminate));
  }

  /// As that of TRepeatThread, and ends the pause at once.
  void Terminate() override;

 protected:
  void ExecuteLoop() override;
  void Construct() override;

 private:
  const TProcWithThread FProcThread;
  const TProc<> FProcTerminate;
  const TRef<IEvent> FEvent = TEvent::Make();  // ends the pause
  const int32_t FPeriodMs;
};

}  // namespace Talvo
