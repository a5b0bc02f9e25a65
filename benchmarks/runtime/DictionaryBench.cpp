// SPDX-License-Identifier: Apache-2.0
// Filling a dictionary and looking keys up, beside hash tables that people use instead.
//
// All get the same keys: text of 8 to 24 units, or integers. Keys looked up are objects of their
// own, in random order of the table but in the order of their own memory, as a reader meets them.
// Nobody reserves, and ending a table is not timed.

#include <talvo/runtime/Dictionary.h>

#include <QHash>
#include <QString>
#include <absl/container/flat_hash_map.h>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using Talvo::string;

constexpr uint64_t HeldSeed = 1, MissingSeed = 2;

template <class K>
std::vector<K> MakeKeys(int64_t count, uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<K> keys;
  while (keys.size() < static_cast<size_t>(count)) {
    if constexpr (std::is_integral_v<K>) {
      // Held and missing keys are the even and the odd numbers.
      keys.push_back(static_cast<K>(random() * 2 + seed % 2));
    } else {
      char16_t text[24];
      const size_t length = 8 + random() % 17;
      for (size_t at = 0; at < length; ++at) text[at] = static_cast<char16_t>(u'a' + random() % 26);
      if constexpr (std::is_same_v<K, QString>) {
        keys.emplace_back(reinterpret_cast<const QChar*>(text), static_cast<qsizetype>(length));
      } else {
        keys.emplace_back(text, length);
      }
    }
  }
  return keys;
}

/// Keys that share no memory with `keys`, in random order.
template <class K>
std::vector<K> ShuffledCopies(const std::vector<K>& keys) {
  std::vector<size_t> order(keys.size());
  for (size_t at = 0; at < order.size(); ++at) order[at] = at;
  std::shuffle(order.begin(), order.end(), std::mt19937_64(3));
  std::vector<K> copies;
  for (size_t at : order) {
    copies.push_back(keys[at]);
    if constexpr (std::is_same_v<K, QString>) copies.back().detach();
  }
  return copies;
}

template <class M>
struct TTable {  // the std interface
  using K = typename M::key_type;
  M Map;
  void Insert(const K& key, int32_t value) { Map.try_emplace(key, value); }
  bool Contains(const K& key) const { return Map.find(key) != Map.end(); }
  void Remove(const K& key) { Map.erase(key); }
};
template <class Key>
struct TTable<Talvo::Rtl::TDictionary<Key, int32_t>> {
  using K = Key;
  Talvo::Rtl::TDictionary<K, int32_t> Map;
  void Insert(const K& key, int32_t value) { Map.AddOrSetValue(key, value); }
  bool Contains(const K& key) const { return Map.Find(key) != nullptr; }
  void Remove(const K& key) { Map.Remove(key); }
};
template <class Key>
struct TTable<QHash<Key, int32_t>> {
  using K = Key;
  QHash<K, int32_t> Map;
  void Insert(const K& key, int32_t value) { Map.insert(key, value); }
  bool Contains(const K& key) const { return Map.constFind(key) != Map.cend(); }
  void Remove(const K& key) { Map.remove(key); }
};

template <class M>
void BM_Insert(benchmark::State& state) {
  const auto keys = MakeKeys<typename TTable<M>::K>(state.range(0), HeldSeed);
  while (state.KeepRunningBatch(state.range(0))) {
    auto table = std::make_unique<TTable<M>>();
    int32_t value = 0;
    for (const auto& key : keys) table->Insert(key, ++value);
    benchmark::DoNotOptimize(*table);
    state.PauseTiming();
    table.reset();
    state.ResumeTiming();
  }
}

template <class M>
void LookUp(benchmark::State& state, uint64_t probeSeed) {
  using K = typename TTable<M>::K;
  const auto keys = MakeKeys<K>(state.range(0), HeldSeed);
  const auto probes = ShuffledCopies(MakeKeys<K>(state.range(0), probeSeed));
  TTable<M> table;
  for (const auto& key : keys) table.Insert(key, 1);
  int64_t found = 0;
  while (state.KeepRunningBatch(state.range(0))) {
    for (const auto& key : probes) found += table.Contains(key);
  }
  benchmark::DoNotOptimize(found);
}
template <class M>
void BM_Hit(benchmark::State& state) {
  LookUp<M>(state, HeldSeed);
}
template <class M>
void BM_Miss(benchmark::State& state) {
  LookUp<M>(state, MissingSeed);
}

/// The oldest of so many items goes whenever a new one comes.
template <class M>
void BM_Churn(benchmark::State& state) {
  const auto keys = MakeKeys<typename TTable<M>::K>(4 * state.range(0), HeldSeed);
  TTable<M> table;
  size_t added = 0, removed = keys.size() - static_cast<size_t>(state.range(0));
  for (auto _ : state) {
    table.Remove(keys[removed]);
    table.Insert(keys[added], 1);
    if (++added == keys.size()) added = 0;
    if (++removed == keys.size()) removed = 0;
  }
}

template <class M>
void RegisterTable(const std::string& kind, const std::string& implementation) {
  using TCase = void (*)(benchmark::State&);
  const std::pair<const char*, TCase> cases[] = {
      {"Insert", BM_Insert<M>}, {"Hit", BM_Hit<M>}, {"Miss", BM_Miss<M>}, {"Churn", BM_Churn<M>}};
  for (auto [name, run] : cases) {
    const std::string full = "BM_Dictionary" + kind + name + "/" + implementation;
    benchmark::RegisterBenchmark(full.c_str(), run)->Arg(1000)->Arg(100000);
  }
}

const bool GIsRegistered = [] {
  RegisterTable<Talvo::Rtl::TDictionary<string, int32_t>>("Text", "Talvo");
  RegisterTable<QHash<QString, int32_t>>("Text", "Qt");
  RegisterTable<absl::flat_hash_map<string, int32_t>>("Text", "Abseil");
  RegisterTable<std::unordered_map<string, int32_t>>("Text", "Std");
  RegisterTable<Talvo::Rtl::TDictionary<int32_t, int32_t>>("Int", "Talvo");
  RegisterTable<QHash<int32_t, int32_t>>("Int", "Qt");
  RegisterTable<absl::flat_hash_map<int32_t, int32_t>>("Int", "Abseil");
  RegisterTable<std::unordered_map<int32_t, int32_t>>("Int", "Std");
  return true;
}();

}  // namespace
