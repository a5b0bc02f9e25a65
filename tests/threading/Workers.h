// SPDX-License-Identifier: Apache-2.0
#pragma once
// Threads that a test drives step by step.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Talvo::Testing {

/// A thread that does one step at a time.
class TWorker {
 public:
  TWorker() : FThread([this] { Loop(); }) {
    Run([this] { FId = static_cast<uint32_t>(gettid()); });
  }
  ~TWorker() { End(); }

  /// Does a step and waits until it is done.
  void Run(std::function<void()> step) {
    Start(std::move(step));
    Wait();
  }
  /// Begins a step, which may block.
  void Start(std::function<void()> step) {
    const std::lock_guard<std::mutex> guard(FMutex);
    FStep = std::move(step);
    FIsBusy = true;
    FChanged.notify_all();
  }
  /// Waits for the step to end.
  void Wait() {
    std::unique_lock<std::mutex> guard(FMutex);
    FChanged.wait(guard, [this] { return !FIsBusy; });
  }
  bool IsBusy() {
    const std::lock_guard<std::mutex> guard(FMutex);
    return FIsBusy;
  }
  /// Waits until the system shows the thread asleep inside its step. Whoever waits in slices is
  /// asleep most of the time.
  void WaitUntilBlocked() {
    while (!FIsInStep || State() != 'S') std::this_thread::yield();
    ASSERT_TRUE(IsBusy());
  }
  /// Ends the thread, with whatever it holds.
  void End() {
    if (!FThread.joinable()) return;
    Wait();  // for the step that may have begun
    Start(nullptr);
    FThread.join();
  }
  uint32_t Id() const { return FId; }

 private:
  void Loop() {
    for (;;) {
      std::unique_lock<std::mutex> guard(FMutex);
      FChanged.wait(guard, [this] { return FIsBusy; });
      if (!FStep) return;
      const auto step = std::move(FStep);
      guard.unlock();
      FIsInStep = true;
      step();
      FIsInStep = false;
      guard.lock();
      FIsBusy = false;
      FChanged.notify_all();
    }
  }
  char State() const {
    const std::string path = "/proc/self/task/" + std::to_string(FId) + "/stat";
    char state = 0;
    if (std::FILE* file = std::fopen(path.c_str(), "r")) {
      (void)!std::fscanf(file, "%*d (%*[^)]) %c", &state);
      std::fclose(file);
    }
    return state;
  }

  std::mutex FMutex;
  std::condition_variable FChanged;
  std::function<void()> FStep;  // guarded by FMutex, as is the next
  bool FIsBusy = false;
  std::atomic<bool> FIsInStep = false;
  uint32_t FId = 0;
  std::thread FThread;
};

/// Threads that block in one and the same step. Their end waits for the step's.
class TBlocked {
 public:
  TBlocked(size_t count, const std::function<void()>& step) : FThreads(count) {
    for (TWorker& thread : FThreads) thread.Start(step);
    for (TWorker& thread : FThreads) thread.WaitUntilBlocked();
  }
  ~TBlocked() {
    for (TWorker& thread : FThreads) thread.Wait();
  }

 private:
  std::deque<TWorker> FThreads;
};

/// Runs `code(number)` on threads 1, 2, ... all at once, until the last one is done.
template <class TCode>
void RunAtATime(uint32_t count, TCode code) {
  std::vector<std::thread> threads;
  for (uint32_t number = 1; number <= count; ++number) {
    threads.emplace_back([&code, number] { code(number); });
  }
  for (std::thread& thread : threads) thread.join();
}

/// Runs `child` in a forked process; `parent` meanwhile in this one. `signal` ends the child.
inline void InTwoProcesses(
    const std::function<void()>& child, const std::function<void()>& parent = [] {},
    int signal = 0) {
  const pid_t process = fork();
  ASSERT_GE(process, 0);
  if (process == 0) {
    child();
    _exit(::testing::Test::HasFailure());
  }
  parent();
  int status = -1;
  ASSERT_EQ(process, waitpid(process, &status, 0));
  EXPECT_EQ(signal, status);
}

}  // namespace Talvo::Testing
