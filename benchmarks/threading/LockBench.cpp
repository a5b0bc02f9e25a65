// SPDX-License-Identifier: Apache-2.0
// Locks beside those of the standard library and of Qt. "Mutex" is the lock underneath a section;
// the hand-written limit is an inline lock without owner, depth or object.

#include <talvo/threading/Talvo.Threading.h>

#include <QRecursiveMutex>
#include <benchmark/benchmark.h>
#include <mutex>
#include <thread>

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

}  // namespace
}  // namespace Talvo
