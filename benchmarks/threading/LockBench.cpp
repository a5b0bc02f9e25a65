// SPDX-License-Identifier: Apache-2.0
// Locks beside those of the standard library and of Qt.

#include <talvo/threading/Talvo.Threading.h>

#include <QRecursiveMutex>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace Talvo {
namespace {

// The standard library's mutexes leave out atomic steps until a process has its first thread.
[[maybe_unused]] const bool GHasThreads = (std::thread([] {}).join(), true);

struct TTalvo {
  TRef<IBasicLock> Lock = TLock::Make();
  struct THold {
    TRef<ILockSection> Section;
    explicit THold(TTalvo& lock) : Section(lock.Lock->WriteLock()) {}
  };
};

struct TQt {
  QRecursiveMutex Mutex;
  struct THold {
    QRecursiveMutex& Mutex;
    explicit THold(TQt& lock) : Mutex(lock.Mutex) { Mutex.lock(); }
    ~THold() { Mutex.unlock(); }
  };
};

struct TStd {
  std::recursive_mutex Mutex;
  struct THold {
    std::lock_guard<std::recursive_mutex> Guard;
    explicit THold(TStd& lock) : Guard(lock.Mutex) {}
  };
};

struct TTalvoCriticalSection {
  TRef<ICriticalSection> Section = TCriticalSection::Make();
  struct THold {
    ICriticalSection& Section;
    explicit THold(TTalvoCriticalSection& lock) : Section(*lock.Section) { Section.Enter(); }
    ~THold() { Section.Leave(); }
  };
};

template <class TLocking>
void BM_TakeAndDrop(benchmark::State& state) {
  TLocking lock;
  for (auto _ : state) {
    const typename TLocking::THold hold(lock);
    benchmark::DoNotOptimize(&hold);
  }
}
BENCHMARK(BM_TakeAndDrop<TTalvo>)->Name("BM_LockTakeAndDrop/Talvo");
BENCHMARK(BM_TakeAndDrop<TQt>)->Name("BM_LockTakeAndDrop/QRecursiveMutex");
BENCHMARK(BM_TakeAndDrop<TStd>)->Name("BM_LockTakeAndDrop/StdRecursiveMutex");

BENCHMARK(BM_TakeAndDrop<TTalvoCriticalSection>)->Name("BM_CriticalSection/Talvo");
BENCHMARK(BM_TakeAndDrop<TQt>)->Name("BM_CriticalSection/QRecursiveMutex");
BENCHMARK(BM_TakeAndDrop<TStd>)->Name("BM_CriticalSection/StdRecursiveMutex");

template <class TLocking>
void BM_Nested(benchmark::State& state) {
  TLocking lock;
  const typename TLocking::THold outer(lock);
  for (auto _ : state) {
    const typename TLocking::THold hold(lock);
    benchmark::DoNotOptimize(&hold);
  }
}
BENCHMARK(BM_Nested<TTalvo>)->Name("BM_LockNested/Talvo");
BENCHMARK(BM_Nested<TQt>)->Name("BM_LockNested/QRecursiveMutex");
BENCHMARK(BM_Nested<TStd>)->Name("BM_LockNested/StdRecursiveMutex");

template <class TLocking>
void BM_Contended(benchmark::State& state) {
  static TLocking lock;
  static int64_t count = 0;
  for (auto _ : state) {
    const typename TLocking::THold hold(lock);
    benchmark::DoNotOptimize(++count);
  }
}
BENCHMARK(BM_Contended<TTalvo>)->Name("BM_LockContended/Talvo")->Threads(2)->UseRealTime();
BENCHMARK(BM_Contended<TQt>)->Name("BM_LockContended/QRecursiveMutex")->Threads(2)->UseRealTime();
BENCHMARK(BM_Contended<TStd>)
    ->Name("BM_LockContended/StdRecursiveMutex")
    ->Threads(2)
    ->UseRealTime();

void BM_Refused(benchmark::State& state) {
  const TRef<IBasicLock> lock = TLock::Make();
  TRef<ILockSection> stop;
  std::thread([&] { stop = lock->StopLock(); }).join();
  for (auto _ : state) {
    if (lock->WriteLock()) state.SkipWithError("not refused");
  }
}
BENCHMARK(BM_Refused)->Name("BM_LockRefused/Talvo");

// From the announcement of a stop until a request that waits for the lock has come back.
void BM_WaiterLeaves(benchmark::State& state) {
  using TClock = std::chrono::steady_clock;
  const TRef<IBasicLock> lock = TLock::Make();
  std::vector<double> seconds;
  for (auto _ : state) {
    TRef<ILockSection> held = lock->WriteLock();
    TClock::time_point left;
    std::thread waiter([&] {
      if (lock->WriteLock()) state.SkipWithError("not refused");
      left = TClock::now();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    const auto announced = TClock::now();
    const TRef<ILockSection> stop = lock->StopLock();
    waiter.join();
    seconds.push_back(std::chrono::duration<double>(left - announced).count());
    state.SetIterationTime(seconds.back());
  }
  std::sort(seconds.begin(), seconds.end());
  state.counters["p99_ms"] = 1000 * seconds[seconds.size() * 99 / 100];
}
BENCHMARK(BM_WaiterLeaves)->Name("BM_LockWaiterLeaves/Talvo")->UseManualTime()->Iterations(200);

}  // namespace
}  // namespace Talvo
