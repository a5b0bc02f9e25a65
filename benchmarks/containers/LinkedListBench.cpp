// SPDX-License-Identifier: Apache-2.0
// Filling, walking and draining a linked list, beside std::list.
//
// Times are per round over so many items; filling includes making and ending the list.

#include <talvo/containers/list/LinkedList.h>

#include <benchmark/benchmark.h>
#include <list>
#include <memory>

namespace {

using Talvo::ILinkedList;
using Talvo::TLinkedList;
using Talvo::TRef;

struct TTalvo {
  TRef<ILinkedList<int32_t>> List = TLinkedList<int32_t>::Make();
  void Add(int32_t value) { List->Add(value); }
  int32_t Pop() { return List->PopFirst(); }
  void RemoveOdd() {
    List->RemoveAll([](int32_t n) { return n % 2 != 0; });
  }
  const auto& Range() const { return List; }
};

struct TStd {
  std::list<int32_t> List;
  void Add(int32_t value) { List.push_back(value); }
  int32_t Pop() {
    const int32_t value = List.front();
    List.pop_front();
    return value;
  }
  void RemoveOdd() {
    List.remove_if([](int32_t n) { return n % 2 != 0; });
  }
  const auto& Range() const { return List; }
};

template <class TList>
void BM_Fill(benchmark::State& state) {
  const auto count = static_cast<int32_t>(state.range(0));
  for (auto _ : state) {
    TList list;
    for (int32_t i = 0; i < count; ++i) list.Add(i);
    benchmark::DoNotOptimize(list);
  }
  state.SetItemsProcessed(state.iterations() * count);
}

template <class TList>
void BM_Walk(benchmark::State& state) {
  TList list;
  for (int32_t i = 0; i < state.range(0); ++i) list.Add(i);
  for (auto _ : state) {
    int32_t sum = 0;
    for (int32_t n : list.Range()) sum += n;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// One item comes, the oldest goes.
template <class TList>
void BM_Queue(benchmark::State& state) {
  TList list;
  for (int32_t i = 0; i < state.range(0); ++i) list.Add(i);
  for (auto _ : state) {
    list.Add(1);
    benchmark::DoNotOptimize(list.Pop());
  }
}

/// Fills the list and removes every other item.
template <class TList>
void BM_RemoveHalf(benchmark::State& state) {
  const auto count = static_cast<int32_t>(state.range(0));
  for (auto _ : state) {
    TList list;
    for (int32_t i = 0; i < count; ++i) list.Add(i);
    list.RemoveOdd();
    benchmark::DoNotOptimize(list);
  }
  state.SetItemsProcessed(state.iterations() * count);
}

template <class TList>
void Register(const std::string& implementation) {
  const auto add = [&](const char* name, void (*run)(benchmark::State&)) {
    return benchmark::RegisterBenchmark(
        ("BM_LinkedList" + std::string(name) + "/" + implementation).c_str(), run);
  };
  add("Fill", BM_Fill<TList>)->Arg(10)->Arg(1000)->Arg(100000);
  add("Walk", BM_Walk<TList>)->Arg(10)->Arg(1000)->Arg(100000);
  add("Queue", BM_Queue<TList>)->Arg(0)->Arg(1000);
  add("RemoveHalf", BM_RemoveHalf<TList>)->Arg(1000)->Arg(100000);
}

const bool GIsRegistered = [] {
  Register<TTalvo>("Talvo");
  Register<TStd>("Std");
  return true;
}();

}  // namespace
