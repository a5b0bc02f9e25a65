// SPDX-License-Identifier: Apache-2.0
// Filling, walking, sorting and querying an array list of a million numbers.

#include <benchmark/benchmark.h>
#include <talvo/containers/Talvo.Containers.List.h>

#include <QList>
#include <algorithm>
#include <boost/sort/pdqsort/pdqsort.hpp>
#include <functional>
#include <iterator>
#include <numeric>
#include <random>
#include <vector>

namespace Talvo {
namespace {

constexpr int32_t Count = 1'000'000;

/// Random numbers from -`limit` to `limit`, new ones at each call.
std::vector<int32_t> RandomInts(int32_t limit = INT32_MAX) {
  static std::mt19937 engine(20);
  std::uniform_int_distribution<int32_t> numbers(-limit, limit);
  std::vector<int32_t> made(Count);
  std::generate(made.begin(), made.end(), [&] { return numbers(engine); });
  return made;
}

void SetItems(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * Count);
}

// --- Filling ----------------------------------------------------------------------------------

template <class F>
void Fill(benchmark::State& state, F fill) {
  for (auto _ : state) fill();
  SetItems(state);
}

void AppendTalvo(benchmark::State& state) {
  Fill(state, [] {
    const auto list = TArrayList<int32_t>::Create();
    for (int32_t i = 0; i < Count; ++i) list->ProcedureAdd(i);
    benchmark::DoNotOptimize(list->data());
  });
}
void AppendStdVector(benchmark::State& state) {
  Fill(state, [] {
    std::vector<int32_t> list;
    for (int32_t i = 0; i < Count; ++i) list.push_back(i);
    benchmark::DoNotOptimize(list.data());
  });
}
void AppendQList(benchmark::State& state) {
  Fill(state, [] {
    QList<int32_t> list;
    for (int32_t i = 0; i < Count; ++i) list.append(i);
    benchmark::DoNotOptimize(list.data());
  });
}
void AddTalvo(benchmark::State& state) {
  Fill(state, [] {
    const auto list = TArrayList<int32_t>::Make();
    for (int32_t i = 0; i < Count; ++i) list->Add(i);
    benchmark::DoNotOptimize(list->data());
  });
}
BENCHMARK(AppendTalvo)->Name("BM_AppendInts/Talvo");
BENCHMARK(AppendStdVector)->Name("BM_AppendInts/StdVector");
BENCHMARK(AppendQList)->Name("BM_AppendInts/QList");
BENCHMARK(AddTalvo)->Name("BM_AddInts/Talvo");
BENCHMARK(AppendQList)->Name("BM_AddInts/QList");

// --- Walking ----------------------------------------------------------------------------------

void WalkTalvo(benchmark::State& state) {
  const auto list = TArrayList<int32_t>::MakeArray(RandomInts());
  for (auto _ : state) {
    uint32_t sum = 0;
    for (const int32_t item : list) sum += static_cast<uint32_t>(item);
    benchmark::DoNotOptimize(sum);
  }
  SetItems(state);
}
void WalkLimit(benchmark::State& state) {
  const std::vector<int32_t> list = RandomInts();
  for (auto _ : state) {
    uint32_t sum = 0;
    const int32_t* items = list.data();
    const size_t count = list.size();
    for (size_t i = 0; i < count; ++i) sum += static_cast<uint32_t>(items[i]);
    benchmark::DoNotOptimize(sum);
  }
  SetItems(state);
}
void EnumerateTalvo(benchmark::State& state) {
  const auto list = TArrayList<int32_t>::MakeArray(RandomInts());
  for (auto _ : state) {
    uint32_t sum = 0;
    const TRef<ISizeEnumerator<int32_t>> walk = list->GetEnumerator();
    while (walk->MoveNext()) sum += static_cast<uint32_t>(walk->Current());
    benchmark::DoNotOptimize(sum);
  }
  SetItems(state);
}
BENCHMARK(WalkTalvo)->Name("BM_RangeFor/Talvo");
BENCHMARK(WalkLimit)->Name("BM_RangeFor/Limit");
BENCHMARK(EnumerateTalvo)->Name("BM_Enumerate/Talvo");

// --- Sorting ----------------------------------------------------------------------------------

/// Times `sort` over a fresh container each time, made of random numbers by `make`.
template <class M, class S>
void SortFresh(benchmark::State& state, M make, S sort) {
  for (auto _ : state) {
    state.PauseTiming();
    auto list = make(RandomInts());
    state.ResumeTiming();
    sort(list);
  }
  SetItems(state);
}
const auto MakeList = [](const std::vector<int32_t>& items) {
  return TArrayList<int32_t>::MakeArray(items);
};
const auto KeepVector = [](std::vector<int32_t> items) { return items; };
const auto CompareDown = [](int32_t left, int32_t right) {
  return left > right ? -1 : left < right;
};

void SortTalvo(benchmark::State& state) {
  SortFresh(state, MakeList, [](const TRef<IArrayList<int32_t>>& list) { list->Sort(); });
}
void SortStd(benchmark::State& state) {
  SortFresh(state, KeepVector, [](auto& list) { std::sort(list.begin(), list.end()); });
}
void SortPdq(benchmark::State& state) {
  SortFresh(state, KeepVector,
            [](auto& list) { boost::sort::pdqsort_branchless(list.begin(), list.end()); });
}
BENCHMARK(SortTalvo)->Name("BM_SortInts/Talvo");
BENCHMARK(SortPdq)->Name("BM_SortInts/PdqsortBranchless");
BENCHMARK(SortStd)->Name("BM_SortInts/StdSort");

void SortLambdaTalvo(benchmark::State& state) {
  SortFresh(state, MakeList,
            [](const TRef<IArrayList<int32_t>>& list) { list->Sort(CompareDown); });
}
void SortHandleTalvo(benchmark::State& state) {
  const TComparison<int32_t> comparison = CompareDown;
  SortFresh(state, MakeList,
            [&](const TRef<IArrayList<int32_t>>& list) { list->Sort(comparison); });
}
void SortStdFunction(benchmark::State& state) {
  const std::function<bool(int32_t, int32_t)> isBefore = std::greater<int32_t>();
  SortFresh(state, KeepVector, [&](auto& list) { std::sort(list.begin(), list.end(), isBefore); });
}
BENCHMARK(SortLambdaTalvo)->Name("BM_SortByOwnLambda/Talvo");
BENCHMARK(SortStdFunction)->Name("BM_SortByOwnLambda/StdFunction");
BENCHMARK(SortHandleTalvo)->Name("BM_SortByOwnHandle/Talvo");
BENCHMARK(SortStdFunction)->Name("BM_SortByOwnHandle/StdFunction");

// --- Querying ---------------------------------------------------------------------------------

constexpr int32_t SmallLimit = 1000;  // the sum of a million fits
const auto IsPositive = [](int32_t n) { return n > 0; };

void FilterTalvo(benchmark::State& state) {
  const auto list = TArrayList<int32_t>::MakeArray(RandomInts(SmallLimit));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        list->Query()->Filter(IsPositive)->Query()->Sum([](int32_t n) { return n; }));
  }
  SetItems(state);
}
template <template <class...> class TList>
void FilterPeer(benchmark::State& state) {
  const std::vector<int32_t> items = RandomInts(SmallLimit);
  const TList<int32_t> list(items.begin(), items.end());
  for (auto _ : state) {
    TList<int32_t> positive;
    std::copy_if(list.begin(), list.end(), std::back_inserter(positive), IsPositive);
    benchmark::DoNotOptimize(std::accumulate(positive.begin(), positive.end(), int32_t{0}));
  }
  SetItems(state);
}
BENCHMARK(FilterTalvo)->Name("BM_FilterSum/Talvo");
BENCHMARK(FilterPeer<std::vector>)->Name("BM_FilterSum/StdVector");
BENCHMARK(FilterPeer<QList>)->Name("BM_FilterSum/QList");

}  // namespace
}  // namespace Talvo
