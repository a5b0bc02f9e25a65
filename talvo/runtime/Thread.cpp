// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Thread.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <talvo/platform/Thread.h>
#include <talvo/runtime/Exceptions.h>

namespace Talvo {
namespace Detail {
namespace {

// Asked after every piece of queued work: the model spares the call that finds a thread's data.
constinit thread_local TThreadState* GCurrent __attribute__((tls_model("initial-exec"))) = nullptr;

constexpr int NiceOf[] = {19, 10, 5, 0, -5, -10, -20};  // by priority

}  // namespace

/// What a thread and its object share; each holds a reference. The thread touches nothing else
/// once its object may have ended.
class TThreadState final : public TInterfacedObject {
 public:
  TThreadState(TThread* object, bool isSuspended) : IsSuspended(isSuspended), Object(object) {}

  void Start();
  void Join();
  /// The object ends, on this very thread.
  void Orphan();
  uint32_t WaitForId();
  void SetPriority(TThreadPriority value);

  const bool IsSuspended;
  TThread* Object;  // null when it ended on its own thread; used by that thread only
  void (*OrphanNotice)() = nullptr;
  enum TStart { NotStarted, Starting, Started };
  std::atomic<TStart> StartStep = NotStarted;
  std::atomic<bool> IsTerminated = false;
  std::atomic<bool> IsFinished = false;
  std::atomic<TThreadPriority> Priority = tpNormal;
  std::exception_ptr Failure;  // the thread's own until it has ended

 private:
  static void* Entry(void* argument);
  void Run();
  template <class F>
  void Guarded(F&& code) noexcept;

  enum TJoin { NotJoined, Joining, Joined };
  std::atomic<uint32_t> FId = 0;
  std::atomic<TJoin> FJoin = NotJoined;
  Platform::TThreadHandle FHandle = 0;  // of a thread that is started
  uint32_t FProcess = 0;                // where it was started
  std::mutex FPriorityLock;
  bool FIsRunning = false;  // guarded by FPriorityLock
};

void TThreadState::Start() {
  TStart expected = NotStarted;
  if (!StartStep.compare_exchange_strong(expected, Starting)) {
    throw EThread(u"The thread was started already");
  }
  const TRef<TThreadState> held(*this);
  TRef<TThreadState> threadsOwn(*this);
  FProcess = MainThreadId();
  const int error = Platform::StartThread(FHandle, Entry, threadsOwn.Get());
  if (error == 0) threadsOwn.Detach();
  StartStep = error == 0 ? Started : NotStarted;
  StartStep.notify_all();
  if (error == 0) return;
  throw EThread(u"Thread creation error: " + FromUtf8(std::strerror(error), TSurrogates::Replace));
}

void TThreadState::Join() {
  StartStep.wait(Starting);
  if (StartStep == NotStarted) return;
  // A forked child has none of its parent's other threads.
  if (FProcess != MainThreadId()) return;
  TJoin expected = NotJoined;
  if (FJoin.compare_exchange_strong(expected, Joining)) {
    Platform::JoinThread(FHandle);
    FJoin = Joined;
    FJoin.notify_all();
  } else {
    FJoin.wait(Joining);
  }
}

void TThreadState::Orphan() {
  Object = nullptr;
  TJoin expected = NotJoined;
  if (FJoin.compare_exchange_strong(expected, Joined)) Platform::DetachCurrentThread();
}

uint32_t TThreadState::WaitForId() {
  if (FId == 0) {
    StartStep.wait(Starting);
    if (StartStep == NotStarted) return 0;
    FId.wait(0);
  }
  return FId;
}

void TThreadState::SetPriority(TThreadPriority value) {
  if (value > tpTimeCritical) RaiseRangeError();
  const std::lock_guard guard(FPriorityLock);
  Priority = value;
  // Behind the thread's end its identifier may be another's.
  if (FIsRunning) Platform::SetThreadNice(FId, NiceOf[value]);
}

void* TThreadState::Entry(void* argument) {
  const auto state = TRef<TThreadState>::Adopt(static_cast<TThreadState*>(argument));
  GCurrent = state.Get();
  state->Run();
  GCurrent = nullptr;
  return nullptr;
}

void TThreadState::Run() {
  {
    const std::lock_guard guard(FPriorityLock);
    FIsRunning = true;
    const uint32_t id = CurrentThreadId();
    if (Priority != tpNormal) Platform::SetThreadNice(id, NiceOf[Priority]);
    FId = id;
  }
  FId.notify_all();
  Guarded([this] { Object->Execute(); });
  Guarded([this] {
    if (Object) {
      Object->DoTerminate();
    } else if (OrphanNotice) {
      OrphanNotice();
    }
  });
  {
    const std::lock_guard guard(FPriorityLock);
    FIsRunning = false;
  }
  IsFinished = true;
}

template <class F>
void TThreadState::Guarded(F&& code) noexcept {
  try {
    code();
  } catch (...) {
    if (!Failure) Failure = std::current_exception();
  }
}

}  // namespace Detail

TThread::TThread(bool isSuspended) : FState(Create<Detail::TThreadState>(this, isSuspended)) {}

TThread::~TThread() {
  if (IsCurrent()) {
    FState->Orphan();
  } else {
    // It has ended, unless a descendant's BeforeDestruction raised.
    FState->IsTerminated = true;
    FState->Join();
  }
}

void TThread::Stop() {
  struct TThen {
    TThread& Thread;
    ~TThen() {
      Thread.FState->IsTerminated = true;
      Thread.WaitFor();
    }
  } then{*this};
  Terminate();
}

void TThread::AfterConstruction() {
  TBasicObject::AfterConstruction();
  if (!FState->IsSuspended) Start();
}

/// The thread may have started, and be in what the destructors are about to take apart.
void TThread::ConstructionFailed() noexcept {
  if (FState->StartStep != Detail::TThreadState::NotStarted) {
    try {
      Stop();
    } catch (...) {
      // There is an exception under way already.
    }
  }
  TBasicObject::ConstructionFailed();
}

void TThread::BeforeDestruction() {
  Terminated() ? WaitFor() : Stop();
  TBasicObject::BeforeDestruction();
}

void TThread::Start() {
  FState->Start();
}

void TThread::Terminate() {
  FState->IsTerminated = true;
}

bool TThread::Terminated() const noexcept {
  return FState->IsTerminated;
}

bool TThread::Finished() const noexcept {
  return FState->IsFinished;
}

void TThread::WaitFor() {
  if (IsCurrent()) return;
  const TRef<Detail::TThreadState> state = FState;
  state->Join();
}

uint32_t TThread::ThreadID() const noexcept {
  return FState->WaitForId();
}

TThreadPriority TThread::GetPriority() const noexcept {
  return FState->Priority;
}

void TThread::SetPriority(TThreadPriority value) {
  FState->SetPriority(value);
}

std::exception_ptr TThread::FatalException() const noexcept {
  return FState->Failure;
}

TThread* TThread::CurrentThread() noexcept {
  return Detail::GCurrent ? Detail::GCurrent->Object : nullptr;
}

void TThread::NameThreadForDebugging(u16string_view name, uint32_t threadId) {
  if (threadId == static_cast<uint32_t>(-1)) threadId = CurrentThreadId();
  Platform::SetSystemThreadName(threadId, ToUtf8(name, TSurrogates::Replace));
}

void TThread::DoTerminate() {}

bool TThread::IsCurrent() const noexcept {
  return Detail::GCurrent == FState.Get();
}

void TThread::SetOrphanNotice(void (*notice)()) noexcept {
  FState->OrphanNotice = notice;
}

}  // namespace Talvo
