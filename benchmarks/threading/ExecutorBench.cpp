// SPDX-License-Identifier: Apache-2.0
// Pools of two threads beside each other: a flood of small tasks from one thread, and the round
// trip of one task. The hand-written limit of the flood is a deque with a lock.
//
// All have two threads of their own, of ordinary priority, that stay; the caller takes no part, and
// nobody keeps what posting answers. Talvo is told how much may wait at a thread that gets more
// (64), the others have no such number: oneTBB enqueues into an arena without a slot for the
// caller, QThreadPool's threads do not expire, asio and the deque take what they are made with.
// Talvo alone answers an execution for each task, which can be waited for and called off.

#include <talvo/threading/Talvo.Threading.h>

#define QT_NO_KEYWORDS  // "emit" is a name in oneTBB
#include <QThreadPool>
#include <benchmark/benchmark.h>
#include <boost/asio.hpp>
#include <condition_variable>
#include <deque>
#include <functional>
#include <latch>
#include <mutex>
#include <oneapi/tbb/task_arena.h>
#include <string>
#include <thread>

namespace {

constexpr int Threads = 2;

struct TTalvo {
  Talvo::TRef<Talvo::IThreadPoolExecutor> Pool = Talvo::TThreadPoolExecutor::Make(Threads);
  TTalvo() {
    Pool->SetPriority(Talvo::tpNormal);
    Pool->SetGroupSize(64);
  }
  template <class F>
  void Post(F&& code) {
    Pool->Execute(std::forward<F>(code));
  }
};

struct TTbb {
  // Tasks are enqueued from outside: no slot is kept for the caller.
  oneapi::tbb::task_arena Arena{Threads, 0};
  template <class F>
  void Post(F&& code) {
    Arena.enqueue(std::forward<F>(code));
  }
};

struct TQt {
  QThreadPool Pool;
  TQt() {
    Pool.setMaxThreadCount(Threads);
    Pool.setExpiryTimeout(-1);
  }
  template <class F>
  void Post(F&& code) {
    Pool.start(std::function<void()>(std::forward<F>(code)));
  }
};

struct TAsio {
  boost::asio::thread_pool Pool{Threads};
  template <class F>
  void Post(F&& code) {
    boost::asio::post(Pool, std::forward<F>(code));
  }
  ~TAsio() { Pool.join(); }
};

class TDeque {
 public:
  TDeque() {
    for (std::thread& thread : FThreads) {
      thread = std::thread([this] { Run(); });
    }
  }
  ~TDeque() {
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
      const std::function<void()> task = std::move(FTasks.front());
      FTasks.pop_front();
      guard.unlock();
      task();
      guard.lock();
    }
  }

  std::mutex FGuard;
  std::condition_variable FChanged;
  std::deque<std::function<void()>> FTasks;
  bool FIsEnding = false;
  std::thread FThreads[Threads];
};

template <class TPool>
void BM_PoolFlood(benchmark::State& state) {
  TPool pool;
  const auto count = static_cast<std::ptrdiff_t>(state.range(0));
  for (auto _ : state) {
    std::latch done(count);
    for (std::ptrdiff_t i = 0; i < count; ++i) pool.Post([&done] { done.count_down(); });
    done.wait();
  }
  state.SetItemsProcessed(state.iterations() * count);
}

template <class TPool>
void BM_PoolRoundTrip(benchmark::State& state) {
  TPool pool;
  for (auto _ : state) {
    std::latch done(1);
    pool.Post([&done] { done.count_down(); });
    done.wait();
  }
}

template <class TPool>
void Register(const std::string& implementation) {
  benchmark::RegisterBenchmark(("BM_PoolFlood/" + implementation).c_str(), BM_PoolFlood<TPool>)
      ->Arg(100'000)
      ->UseRealTime();
  benchmark::RegisterBenchmark(("BM_PoolRoundTrip/" + implementation).c_str(),
                               BM_PoolRoundTrip<TPool>)
      ->UseRealTime();
}

const bool GIsRegistered = [] {
  Register<TTalvo>("Talvo");
  Register<TTbb>("oneTBB");
  Register<TQt>("QThreadPool");
  Register<TAsio>("Boost.Asio");
  Register<TDeque>("Deque");
  return true;
}();

}  // namespace
