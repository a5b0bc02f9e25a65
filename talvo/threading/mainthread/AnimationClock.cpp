// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/mainthread/AnimationClock.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>
#include <talvo/platform/Sync.h>
#include <talvo/threading/Guard.h>
#include <talvo/threading/sync/Event.h>
#include <talvo/threading/threads/SwallowedExceptions.h>

namespace Talvo {
namespace {

using TClock = std::chrono::steady_clock;

constexpr int64_t Second = 1'000'000'000;  // in nanoseconds
constexpr int64_t Millisecond = 1'000'000;

int64_t Now() {
  return std::chrono::nanoseconds(TClock::now().time_since_epoch()).count();
}

uint32_t CheckedRate(uint32_t ticksPerSecond) {
  if (ticksPerSecond < 1 || ticksPerSecond > 1000) RaiseRangeError();
  return ticksPerSecond;
}

}  // namespace

// --- The thread ---------------------------------------------------------------------------------

TAnimationClockThread::TAnimationClockThread(string name, TProc<> onTick, uint32_t ticksPerSecond)
    : TImplements(std::move(name)),
      FOnTick(std::move(onTick)),
      FTicksPerSecond(CheckedRate(ticksPerSecond)),
      FEnabled(TEvent::Make(ermManual, true)),
      FChanged(TEvent::Make()) {}

TAnimationClockThread::~TAnimationClockThread() = default;

TRef<TAnimationClockThread> TAnimationClockThread::CreateObject(string name, TProc<> onTick,
                                                                uint32_t ticksPerSecond) {
  return Create<TAnimationClockThread>(std::move(name), std::move(onTick), ticksPerSecond);
}

TRef<IAnimationClockThread> TAnimationClockThread::Make(string name, TProc<> onTick,
                                                        uint32_t ticksPerSecond) {
  return CreateObject(std::move(name), std::move(onTick), ticksPerSecond);
}

void TAnimationClockThread::Stop() {
  FEnabled->Reset();
  FChanged->Signal();
}

void TAnimationClockThread::Start() {
  FEnabled->Signal();
}

void TAnimationClockThread::SetTicksPerSecond(uint32_t value) {
  __atomic_store_n(&FTicksPerSecond, CheckedRate(value), __ATOMIC_RELAXED);
  FChanged->Signal();
}

void TAnimationClockThread::Terminate() {
  const TRef<IEvent> enabled = FEnabled, changed = FChanged;
  TImplements::Terminate();
  enabled->Signal();
  changed->Signal();
}

void TAnimationClockThread::TerminateUnattended() {
  FSelf = TRef(*this);
  Terminate();
}

void TAnimationClockThread::DoTerminate() {
  TImplements::DoTerminate();
  const TRef<TAnimationClockThread> self = std::move(FSelf);  // may end this object
}

void TAnimationClockThread::ExecuteLoop() {
  FEnabled->WaitFor(NoTimeLimit);
  if (IsTerminated() || !WaitForNextTick() || !FEnabled->WaitFor(0) || IsTerminated()) return;
  const TProc<> onTick = FOnTick;  // the call may end this object
  onTick.Invoke();
}

/// Sleeps to the next point of the grid behind now. False when something has changed meanwhile:
/// the next grid begins afresh.
bool TAnimationClockThread::WaitForNextTick() {
  const int64_t rate = __atomic_load_n(&FTicksPerSecond, __ATOMIC_RELAXED);
  const int64_t now = Now();
  if (FGridRate != rate) {
    FGridRate = static_cast<uint32_t>(rate);
    FOrigin = now;
  }
  FOrigin += (now - FOrigin) / Second * Second;  // whole seconds are points of every grid
  const int64_t tick = (now - FOrigin) * rate / Second + 1;
  // Rounded up, so that a tick is never counted as the one before it.
  const int64_t due = FOrigin + (tick * Second + rate - 1) / rate;
  if (FChanged->WaitFor(static_cast<uint32_t>((due - now) / Millisecond))) {
    FGridRate = 0;
    return false;
  }
  std::this_thread::sleep_until(TClock::time_point(std::chrono::nanoseconds(due)));
  return true;
}

// --- The process's clock ------------------------------------------------------------------------

namespace {

struct TClockState {
  Platform::TCriticalSection CriticalSection;
  // All guarded by CriticalSection.
  std::vector<TProc<>> List;
  TRef<TAnimationClockThread> ClockThread;
  uint32_t TicksPerSecond = 60;
  bool IsOpen = false;

  /// Ticks while somebody subscribes.
  void Update() {
    if (!IsOpen || (List.empty() && !ClockThread)) return;
    if (List.empty()) return ClockThread->Stop();
    if (ClockThread) return ClockThread->Start();
    ClockThread = TAnimationClockThread::CreateObject(u"AnimationClock", TAnimationClock::Clock,
                                                      TicksPerSecond);
  }
};

/// Stays to the end of the process: its thread may outlive the static objects.
TClockState& State() {
  static TClockState& state = *new TClockState;
  return state;
}

}  // namespace

void TAnimationClock::Init() {
  const Detail::TInside inside(State().CriticalSection);
  State().IsOpen = true;
  State().Update();
}

void TAnimationClock::Close() {
  TRef<TAnimationClockThread> thread;  // ends outside the section
  const Detail::TInside inside(State().CriticalSection);
  State().IsOpen = false;
  thread.Swap(State().ClockThread);
  if (thread) thread->TerminateUnattended();
}

void TAnimationClock::Clock() {
  std::vector<TProc<>> list;
  try {
    const Detail::TInside inside(State().CriticalSection);
    list = State().List;
  } catch (...) {
    // Without memory there is no tick this time; the thread must stay for the next one.
    return ReportSwallowedException();
  }
  for (const TProc<>& proc : list) {
    try {
      proc.Invoke();
    } catch (...) {
      // The beat belongs to all subscribers: one that fails must not end it.
      ReportSwallowedException();
    }
  }
}

TProc<> TAnimationClock::Subscribe(TProc<> proc) {
  if (!proc) return proc;
  TClockState& state = State();
  const Detail::TInside inside(state.CriticalSection);
  state.List.push_back(proc);
  try {
    state.Update();
  } catch (...) {
    state.List.pop_back();
    throw;
  }
  return proc;
}

bool TAnimationClock::Unsubscribe(TProc<>& proc) {
  if (!proc) return false;
  const TProc<> removed = std::exchange(proc, nullptr);  // ends outside the section
  TClockState& state = State();
  const Detail::TInside inside(state.CriticalSection);
  const auto found = std::ranges::find(state.List, removed);
  if (found != state.List.end()) state.List.erase(found);
  state.Update();
  return true;
}

void TAnimationClock::SetTicksPerSecond(uint32_t value) {
  TClockState& state = State();
  const Detail::TInside inside(state.CriticalSection);
  state.TicksPerSecond = CheckedRate(value);
  if (state.ClockThread) state.ClockThread->SetTicksPerSecond(value);
}

uint32_t TAnimationClock::GetTicksPerSecond() {
  const Detail::TInside inside(State().CriticalSection);
  return State().TicksPerSecond;
}

}  // namespace Talvo
