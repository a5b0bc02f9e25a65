// SPDX-License-Identifier: Apache-2.0
#pragma once
// What benchmarks of those who take posted work share: the hand-written peer, and the cases.

#include <benchmark/benchmark.h>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <latch>
#include <mutex>
#include <string>
#include <thread>

/// A deque with a lock and a condition variable, worked off by `Threads` threads.
template <int Threads>
class TLockedDeque {
 public:
  TLockedDeque() {
    for (std::thread& thread : FThreads) {
      thread = std::thread([this] { Run(); });
    }
  }
  ~TLockedDeque() {
    {
      const std::lock_guard guard(FGuard);
      FIsEnding = true;
    }
    FChanged.notify_all();
    for (std::thread& thread : FThreads) thread.join();
  }
  template <class F>
  void Post(F&& code) {
    {
      const std::lock_guard guard(FGuard);
      FTasks.emplace_back(std::forward<F>(code));
    }
    FChanged.notify_one();
  }

 private:
  void Run() {
    std::unique_lock guard(FGuard);
    for (;;) {
      FChanged.wait(guard, [this] { return FIsEnding || !FTasks.empty(); });
      if (FTasks.empty()) return;
      {
        const std::function<void()> task = std::move(FTasks.front());
        FTasks.pop_front();
        guard.unlock();
        task();
      }
      guard.lock();
    }
  }

  std::mutex FGuard;
  std::condition_variable FChanged;
  std::deque<std::function<void()>> FTasks;
  bool FIsEnding = false;
  std::thread FThreads[Threads];
};

template <class TPeer>
void BM_Flood(benchmark::State& state) {
  TPeer peer;
  const auto count = static_cast<std::ptrdiff_t>(state.range(0));
  for (auto _ : state) {
    std::latch done(count);
    for (std::ptrdiff_t i = 0; i < count; ++i) peer.Post([&done] { done.count_down(); });
    done.wait();
  }
  state.SetItemsProcessed(state.iterations() * count);
}

template <class TPeer>
void BM_RoundTrip(benchmark::State& state) {
  TPeer peer;
  for (auto _ : state) {
    std::latch done(1);
    peer.Post([&done] { done.count_down(); });
    done.wait();
  }
}

/// Both, as BM_<kind>Flood and BM_<kind>RoundTrip.
template <class TPeer>
void RegisterPosts(const std::string& kind, const std::string& implementation) {
  benchmark::RegisterBenchmark(("BM_" + kind + "Flood/" + implementation).c_str(), BM_Flood<TPeer>)
      ->Arg(100'000)
      ->UseRealTime();
  benchmark::RegisterBenchmark(("BM_" + kind + "RoundTrip/" + implementation).c_str(),
                               BM_RoundTrip<TPeer>)
      ->UseRealTime();
}
