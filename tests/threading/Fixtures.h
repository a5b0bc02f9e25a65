// SPDX-License-Identifier: Apache-2.0
#pragma once
// What tests of threads share: gates, threads that are stuck, crowds, and counts of what happens.

#include <atomic>
#include <fstream>
#include <latch>
#include <memory>
#include <string>
#include <tests/TestTypes.h>
#include <tests/threading/Workers.h>
#include <thread>
#include <vector>
#include <talvo/threading/Talvo.Threading.Utils.h>
#include <talvo/threading/threads/BasicThread.h>
#include <talvo/threading/threads/SwallowedExceptions.h>

namespace Talvo::Testing {

using TEngine = std::mt19937_64;

/// Returns when `holds` is true, for what cannot be waited for.
template <class F>
void WaitUntil(F&& holds) {
  while (!holds()) std::this_thread::yield();
}

/// Waits until the system shows the thread asleep.
inline void WaitUntilAsleep(uint32_t threadId) {
  WaitUntil([&] {
    std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/stat");
    std::string id, name, state;
    file >> id >> name >> state;
    return state == "S";
  });
}

/// Code that says that it runs, and stays until it may go on. Copies are one gate.
class TGate {
 public:
  void operator()() const {
    FState->Thread = TBasicThread::GetCurrentThreadId();
    FState->Thread.notify_all();
    FState->IsOpen.wait(false);
  }
  void WaitUntilEntered() const { FState->Thread.wait(0); }
  /// The thread that has come here; 0 before.
  uint32_t Thread() const { return FState->Thread; }
  void Open() const {
    FState->IsOpen = true;
    FState->IsOpen.notify_all();
  }

 private:
  struct TState {
    std::atomic<uint32_t> Thread = 0;
    std::atomic<bool> IsOpen = false;
  };
  std::shared_ptr<TState> FState = std::make_shared<TState>();
};

/// A thread that is stuck in `step`. Its end waits for the step's.
class TStuck : public TWorker {
 public:
  explicit TStuck(std::function<void()> step) {
    Start(std::move(step));
    WaitUntilBlocked();
  }
  ~TStuck() { Wait(); }
};

/// Threads that run `body` at once, each with random numbers of its own. Its end waits for them.
class TCrowd {
 public:
  template <class F>
  TCrowd(int count, TEngine& engine, F body) : FStart(count), FBusy(count) {
    for (int i = 0; i < count; ++i) {
      FThreads.emplace_back([this, body, seed = engine()]() mutable {
        TEngine own(seed);
        FStart.arrive_and_wait();
        body(own);
        --FBusy;
      });
    }
  }
  bool IsBusy() const { return FBusy > 0; }

 private:
  std::latch FStart;
  std::atomic<int> FBusy;
  std::vector<std::jthread> FThreads;
};

/// Counts the threads of the library that begin and end while it stands.
class TNotices {
 public:
  std::atomic<int> Starts = 0, Ends = 0;

  ~TNotices() {
    UnRegisterThreadStartNotify(FStart);
    UnRegisterThreadEndNotify(FEnd);
  }
  void WaitForEnds(int count) const {
    for (int seen = Ends; seen < count; seen = Ends) Ends.wait(seen);
  }

 private:
  const TProc<> FStart = RegisterThreadStartNotify([this] { ++Starts; });
  const TProc<> FEnd = RegisterThreadEndNotify([this] {
    ++Ends;
    Ends.notify_all();
  });
};

/// What ended the thread: "EConvertError: no", or nothing. After WaitFor.
inline std::string FailureOf(IThread& thread) {
  const std::exception_ptr failure = thread.GetInstance()->FatalException();
  return Raised([&] {
    if (failure) std::rethrow_exception(failure);
  });
}

}  // namespace Talvo::Testing
