// SPDX-License-Identifier: Apache-2.0
// Firing an event with an argument, beside a signal of another library and a vector of functions.

#include <talvo/containers/elements/MultiProc.h>

#include <benchmark/benchmark.h>
#include <functional>
#include <sigc++/sigc++.h>
#include <vector>

namespace {

constexpr int MaxSubscribers = 100;

// Each has a sum of its own: with one for all, the additions would wait for each other and hide
// what the calls cost.
int64_t GSums[MaxSubscribers];

struct TSubscriber {
  int64_t* Sum;
  void operator()(int64_t value) const { *Sum += value; }
};

struct TTalvo {
  Talvo::TMultiProc<int64_t> Changed;
  void Subscribe(TSubscriber subscriber) { Changed.Add(subscriber); }
  void Notify(int64_t value) { Changed.Notify(value); }
};

struct TSigc {
  sigc::signal<void, int64_t> Changed;
  void Subscribe(TSubscriber subscriber) { Changed.connect(subscriber); }
  void Notify(int64_t value) { Changed.emit(value); }
};

// The least that calls several functions; nobody may subscribe or unsubscribe meanwhile.
struct TVector {
  std::vector<std::function<void(int64_t)>> Changed;
  void Subscribe(TSubscriber subscriber) { Changed.push_back(subscriber); }
  void Notify(int64_t value) {
    for (const auto& subscriber : Changed) subscriber(value);
  }
};

template <class T>
void BM_MultiProc(benchmark::State& state) {
  T event;
  for (int64_t i = 0; i < state.range(0); ++i) event.Subscribe({&GSums[i]});
  benchmark::DoNotOptimize(event);
  for (auto _ : state) {
    event.Notify(1);
    benchmark::ClobberMemory();
  }
}

const bool GIsRegistered = [] {
  const auto add = [](const char* name, void (*run)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, run)->Arg(1)->Arg(10)->Arg(MaxSubscribers);
  };
  add("BM_MultiProc/Talvo", BM_MultiProc<TTalvo>);
  add("BM_MultiProc/Sigc++", BM_MultiProc<TSigc>);
  add("BM_MultiProc/Limit", BM_MultiProc<TVector>);
  return true;
}();

}  // namespace
