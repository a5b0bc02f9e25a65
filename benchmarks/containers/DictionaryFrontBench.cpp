// SPDX-License-Identifier: Apache-2.0
// What a dictionary costs by reference: the same work done with the runtime's dictionary that
// stands behind it, and with the standard library's. Ending a dictionary is not timed.

#include <talvo/containers/Talvo.Containers.Dictionary.h>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

using namespace Talvo;

template <class K>
struct TFront {
  TRef<IDictionary<K, int32_t>> Map = TDictionary<K, int32_t>::Make();
  void Add(const K& key, int32_t value) { Map->Add(key, value); }
  int32_t Get(const K& key) const { return Map[key]; }
  const auto& Items() const { return Map; }
};
template <class K>
struct TBehind {
  Rtl::TDictionary<K, int32_t> Map;
  void Add(const K& key, int32_t value) { Map.AddOrSetValue(key, value); }
  int32_t Get(const K& key) const { return Map.GetItem(key); }
  const auto& Items() const { return Map; }
};
template <class K>
struct TStandard {
  std::unordered_map<K, int32_t> Map;
  void Add(const K& key, int32_t value) { Map.insert_or_assign(key, value); }
  int32_t Get(const K& key) const { return Map.find(key)->second; }
  const auto& Items() const { return Map; }
};

template <class K>
std::vector<K> MakeKeys(int64_t count) {
  std::mt19937_64 random(1);
  std::vector<K> keys(static_cast<size_t>(count));
  for (K& key : keys) {
    if constexpr (std::is_integral_v<K>) {
      key = static_cast<K>(random());
    } else {
      key.resize(8 + random() % 17);
      for (char16_t& unit : key) unit = static_cast<char16_t>(u'a' + random() % 26);
    }
  }
  return keys;
}

template <template <class> class TMap, class K>
void BM_Insert(benchmark::State& state) {
  const auto keys = MakeKeys<K>(state.range(0));
  while (state.KeepRunningBatch(state.range(0))) {
    auto map = std::make_unique<TMap<K>>();
    for (const K& key : keys) map->Add(key, 1);
    benchmark::DoNotOptimize(*map);
    state.PauseTiming();
    map.reset();
    state.ResumeTiming();
  }
}

template <template <class> class TMap, class K>
void BM_Hit(benchmark::State& state) {
  auto keys = MakeKeys<K>(state.range(0));
  TMap<K> map;
  for (const K& key : keys) map.Add(key, 1);
  std::shuffle(keys.begin(), keys.end(), std::mt19937_64(2));
  int64_t sum = 0;
  while (state.KeepRunningBatch(state.range(0))) {
    for (const K& key : keys) sum += map.Get(key);
  }
  benchmark::DoNotOptimize(sum);
}

template <template <class> class TMap, class K>
void BM_Walk(benchmark::State& state) {
  TMap<K> map;
  for (const K& key : MakeKeys<K>(state.range(0))) map.Add(key, 1);
  int64_t sum = 0;
  while (state.KeepRunningBatch(state.range(0))) {
    for (const auto& [key, value] : map.Items()) sum += value;
  }
  benchmark::DoNotOptimize(sum);
}

template <template <class> class TMap, class K>
void RegisterMap(const std::string& kind, const std::string& implementation) {
  using TCase = void (*)(benchmark::State&);
  const std::pair<const char*, TCase> cases[] = {
      {"Insert", BM_Insert<TMap, K>}, {"Hit", BM_Hit<TMap, K>}, {"Walk", BM_Walk<TMap, K>}};
  for (auto [name, run] : cases) {
    const std::string full = "BM_DictionaryFront" + kind + name + "/" + implementation;
    benchmark::RegisterBenchmark(full.c_str(), run)->Arg(100)->Arg(10000);
  }
}

const bool GIsRegistered = [] {
  RegisterMap<TFront, string>("Text", "Talvo");
  RegisterMap<TBehind, string>("Text", "Limit");
  RegisterMap<TStandard, string>("Text", "Std");
  RegisterMap<TFront, int32_t>("Int", "Talvo");
  RegisterMap<TBehind, int32_t>("Int", "Limit");
  RegisterMap<TStandard, int32_t>("Int", "Std");
  return true;
}();

}  // namespace
