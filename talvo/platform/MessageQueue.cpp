// SPDX-License-Identifier: Apache-2.0
#include <talvo/platform/MessageQueue.h>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <unordered_map>
#include <vector>
#include <talvo/platform/Thread.h>

namespace Talvo {
namespace {

using TClock = std::chrono::steady_clock;
using TLocked = std::unique_lock<std::mutex>;

constexpr TClock::time_point Never = TClock::time_point::max();

struct TTimer {
  TWindowHandle Window;
  uintptr_t Id;
  TClock::duration Period;
  TClock::time_point Due;
};

/// One descriptor to poll: an eventfd for messages and a timerfd for timers below an epoll.
class TWakeUp {
 public:
  /// The descriptor to poll, opened by the first call.
  int Open() {
    if (FPoll >= 0) return FPoll;
    const int poll = epoll_create1(EPOLL_CLOEXEC);
    FEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    FTimer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (Watch(poll, FEvent) && Watch(poll, FTimer)) return FPoll = poll;
    for (int descriptor : {poll, FEvent, FTimer}) {
      if (descriptor >= 0) close(descriptor);
    }
    return -1;
  }

  /// Makes it readable, or not, by what waits.
  void Update(bool hasMessages, TClock::time_point due) {
    if (FPoll < 0) return;
    if (hasMessages != FIsSet) {
      uint64_t count = 1;
      [[maybe_unused]] const ssize_t done =
          hasMessages ? write(FEvent, &count, sizeof count) : read(FEvent, &count, sizeof count);
      FIsSet = hasMessages;
    }
    if (due != FDue) {
      const auto ns = due == Never ? std::chrono::nanoseconds(0) : due.time_since_epoch();
      itimerspec spec{};
      spec.it_value.tv_sec = ns.count() / 1'000'000'000;
      spec.it_value.tv_nsec = ns.count() % 1'000'000'000;
      timerfd_settime(FTimer, TFD_TIMER_ABSTIME, &spec, nullptr);
      FDue = due;
    }
  }

 private:
  static bool Watch(int poll, int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN;
    return poll >= 0 && descriptor >= 0 && !epoll_ctl(poll, EPOLL_CTL_ADD, descriptor, &event);
  }

  int FPoll = -1, FEvent = -1, FTimer = -1;
  bool FIsSet = false;
  TClock::time_point FDue = Never;
};

struct TPosted : TMessage {
  uint64_t Number;  // of the queue's messages, from 1
};

struct TThreadQueue {
  explicit TThreadQueue(uint32_t thread) : Thread(thread) {}

  TClock::time_point NextDue() const {
    TClock::time_point due = Never;
    for (const TTimer& timer : Timers) due = std::min(due, timer.Due);
    return due;
  }
  void Update() { WakeUp.Update(!Messages.empty() || IsNudged, NextDue()); }
  void Push(const TMessage& message) {
    Messages.push_back({message, LastNumber + 1});
    ++LastNumber;
    Update();
    Changed.notify_one();
  }
  bool Take(TMessage& message) {
    return TakeNudge(message) || TakeMessage(message, LastNumber) ||
           TakeTimer(message, TClock::now());
  }
  bool TakeNudge(TMessage& message);
  bool TakeMessage(TMessage& message, uint64_t lastNumber);
  bool TakeTimer(TMessage& message, TClock::time_point dueBy);
  void Drop(TWindowHandle window);

  const uint32_t Thread;
  std::deque<TPosted> Messages;
  uint64_t LastNumber = 0;
  bool IsNudged = false;  // a message to nobody that needs no memory
  std::vector<TTimer> Timers;
  std::condition_variable Changed;  // only the thread itself waits
  TWakeUp WakeUp;                   // opened for the main thread alone
};

bool TThreadQueue::TakeNudge(TMessage& message) {
  if (!IsNudged) return false;
  message = {};
  IsNudged = false;
  Update();
  return true;
}

/// The next message, unless it came behind the one with the last number.
bool TThreadQueue::TakeMessage(TMessage& message, uint64_t lastNumber) {
  if (Messages.empty() || Messages.front().Number > lastNumber) return false;
  message = Messages.front();
  Messages.pop_front();
  Update();
  return true;
}

/// The timer that has been due for longest.
bool TThreadQueue::TakeTimer(TMessage& message, TClock::time_point dueBy) {
  const auto earliest = std::min_element(
      Timers.begin(), Timers.end(), [](auto& left, auto& right) { return left.Due < right.Due; });
  if (earliest == Timers.end() || earliest->Due > dueBy) return false;
  const auto late = TClock::now() - earliest->Due;
  message = {earliest->Window, WM_TIMER, earliest->Id, 0, 0};
  earliest->Due += earliest->Period * (late / earliest->Period + 1);
  Update();
  return true;
}

void TThreadQueue::Drop(TWindowHandle window) {
  const auto isOfWindow = [&](const auto& item) { return item.Window == window; };
  std::erase_if(Messages, isOfWindow);
  std::erase_if(Timers, isOfWindow);
  Update();
}

struct TWindow {
  TThreadQueue* Queue;
  TMessageHandler* Handler;
  int32_t Calls = 0;  // of the handler, one within the other
  bool IsClosed = false;
};

/// All queues and windows of the process, under one lock, which nobody holds for long.
struct TState {
  std::mutex Guard;
  std::condition_variable CallEnded;
  std::unordered_map<TWindowHandle, TWindow> Windows;
  std::unordered_map<uint32_t, TThreadQueue*> Queues;
  TThreadQueue Main{MainThreadId()};
  TWindowHandle LastWindow = 0;
  Platform::TThreadEndNotice ThreadEnd{
      [](void* queue) { EndThread(static_cast<TThreadQueue*>(queue)); }};

  TState() { Queues.emplace(Main.Thread, &Main); }
  TThreadQueue& Own();
  TThreadQueue* QueueOf(uint32_t thread) {
    const auto found = Queues.find(thread);
    return found == Queues.end() ? nullptr : found->second;
  }
  TWindow* Find(TWindowHandle window) {
    const auto found = Windows.find(window);
    return found == Windows.end() || found->second.IsClosed ? nullptr : &found->second;
  }
  TWindowHandle Add(TThreadQueue& queue, TMessageHandler& handler) {
    Windows.emplace(++LastWindow, TWindow{&queue, &handler});
    return LastWindow;
  }
  static void EndThread(TThreadQueue* queue);
};

/// Stays to the end of the process: threads may post while it exits.
TState& State() {
  static TState& state = *new TState;
  return state;
}

/// The calling thread's queue, made when it has none.
TThreadQueue& TState::Own() {
  TThreadQueue*& own = Queues[CurrentThreadId()];
  if (!own) {
    own = new TThreadQueue(CurrentThreadId());
    ThreadEnd.Set(own);
  }
  return *own;
}

/// The windows of a thread go with it.
void TState::EndThread(TThreadQueue* queue) {
  TState& state = State();
  {
    const TLocked locked(state.Guard);
    std::erase_if(state.Windows, [&](const auto& item) { return item.second.Queue == queue; });
    state.Queues.erase(queue->Thread);
    state.CallEnded.notify_all();
  }
  delete queue;
}

}  // namespace

void TMessageHandler::WndProc(TMessage& message) {
  DefWindowProc(message);
}

TWindowHandle AllocateHWnd(TMessageHandler& handler) {
  TState& state = State();
  const TLocked locked(state.Guard);
  return state.Add(state.Own(), handler);
}

TWindowHandle AllocateMainHWnd(TMessageHandler& handler) {
  TState& state = State();
  const TLocked locked(state.Guard);
  return state.Add(state.Main, handler);
}

void DeallocateHWnd(TWindowHandle window) {
  TState& state = State();
  TLocked locked(state.Guard);
  const auto found = state.Windows.find(window);
  if (found == state.Windows.end()) return;
  TWindow& closed = found->second;  // another thread may be closing it already
  closed.IsClosed = true;
  closed.Queue->Drop(window);
  if (closed.Calls == 0) {
    state.Windows.erase(found);
  } else if (closed.Queue->Thread != CurrentThreadId()) {
    state.CallEnded.wait(locked, [&] { return !state.Windows.contains(window); });
  }
}

bool PostMessage(TWindowHandle window, uint32_t id, uintptr_t wParam, intptr_t lParam) {
  TState& state = State();
  const TLocked locked(state.Guard);
  const TWindow* found = state.Find(window);
  if (found) found->Queue->Push({window, id, wParam, lParam, 0});
  return found;
}

bool PostThreadMessage(uint32_t thread, uint32_t id, uintptr_t wParam, intptr_t lParam) {
  TState& state = State();
  const TLocked locked(state.Guard);
  TThreadQueue* queue = state.QueueOf(thread);
  if (queue) queue->Push({0, id, wParam, lParam, 0});
  return queue;
}

bool NudgeThread(uint32_t thread) noexcept {
  TState& state = State();
  const TLocked locked(state.Guard);
  TThreadQueue* queue = state.QueueOf(thread);
  if (!queue) return false;
  queue->IsNudged = true;
  queue->Update();
  queue->Changed.notify_one();
  return true;
}

void RecallMessages(TWindowHandle window, uint32_t id, uintptr_t wParam) {
  TState& state = State();
  const TLocked locked(state.Guard);
  const TWindow* found = state.Find(window);
  if (!found) return;
  std::erase_if(found->Queue->Messages, [&](const TMessage& message) {
    return message.Window == window && message.Msg == id && message.WParam == wParam;
  });
  found->Queue->Update();
}

bool GetMessage(TMessage& message) {
  TState& state = State();
  TLocked locked(state.Guard);
  TThreadQueue& own = state.Own();
  while (!own.Take(message)) {
    const TClock::time_point due = own.NextDue();
    if (due == Never) {
      own.Changed.wait(locked);
    } else {
      own.Changed.wait_until(locked, due);
    }
  }
  return message.Msg != WM_QUIT;
}

bool PeekMessage(TMessage& message) {
  TState& state = State();
  const TLocked locked(state.Guard);
  return state.Own().Take(message) && message.Msg != WM_QUIT;
}

intptr_t DispatchMessage(TMessage& message) {
  message.Result = 0;
  TState& state = State();
  TLocked locked(state.Guard);
  TWindow* window = state.Find(message.Window);
  if (!window || window->Queue->Thread != CurrentThreadId()) return 0;

  struct TCall {
    TState& State;
    TLocked& Locked;
    TWindowHandle Handle;
    TWindow& Window;  // stays where it is while it is called
    ~TCall() {
      Locked.lock();
      if (--Window.Calls > 0 || !Window.IsClosed) return;
      State.Windows.erase(Handle);
      State.CallEnded.notify_all();
    }
  } call{state, locked, message.Window, *window};
  ++window->Calls;
  TMessageHandler* handler = window->Handler;
  locked.unlock();
  handler->WndProc(message);
  return message.Result;
}

void DefWindowProc(TMessage& message) {
  message.Result = 0;
}

int32_t ProcessMessages() {
  TState& state = State();
  TLocked locked(state.Guard);
  TThreadQueue& own = state.Own();
  const auto start = TClock::now();
  int32_t count = 0;
  TMessage message;
  const auto dispatch = [&] {
    locked.unlock();
    DispatchMessage(message);
    ++count;
    locked.lock();
  };
  const uint64_t lastNumber = own.LastNumber;
  if (own.TakeNudge(message)) dispatch();
  while (own.TakeMessage(message, lastNumber)) dispatch();
  while (own.TakeTimer(message, start)) dispatch();
  return count;
}

bool SetTimer(TWindowHandle window, uintptr_t id, uint32_t periodMs) {
  TState& state = State();
  const TLocked locked(state.Guard);
  const TWindow* found = state.Find(window);
  if (!found) return false;
  TThreadQueue& queue = *found->Queue;
  const TClock::duration period = std::chrono::milliseconds(std::max(periodMs, 1u));
  std::erase_if(queue.Timers,
                [&](auto& timer) { return timer.Window == window && timer.Id == id; });
  queue.Timers.push_back({window, id, period, TClock::now() + period});
  queue.Update();
  queue.Changed.notify_one();
  return true;
}

void KillTimer(TWindowHandle window, uintptr_t id) {
  TState& state = State();
  const TLocked locked(state.Guard);
  const TWindow* found = state.Find(window);
  if (!found) return;
  TThreadQueue& queue = *found->Queue;
  std::erase_if(queue.Timers,
                [&](auto& timer) { return timer.Window == window && timer.Id == id; });
  queue.Update();
}

int MainWakeUpDescriptor() {
  TState& state = State();
  const TLocked locked(state.Guard);
  const int descriptor = state.Main.WakeUp.Open();
  state.Main.Update();
  return descriptor;
}

}  // namespace Talvo
