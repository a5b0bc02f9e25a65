// SPDX-License-Identifier: Apache-2.0
// Parsing and writing JSON documents, beside the parsers that others use; simdjson is the limit.
//
// Parse       UTF-8 to a tree, and the end of the tree
// ParseVisit  the same, with every key and value read once in between
// Write       a tree to compact text. Each writer has its own idea of what to escape and how many
//             digits to give, so the rate is that of its own characters
//
// Rates are in bytes of the document or characters of the text.

#include <benchmark/benchmark.h>

#include "JsonDocuments.h"
#include "JsonPeers.h"

namespace {

template <class T>
void Parse(benchmark::State& state, const TJsonDocument& document) {
  for (auto _ : state) {
    const auto tree = T::Parse(document.Text);
    benchmark::DoNotOptimize(&tree);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(document.Text.size()));
}

template <class T>
void ParseVisit(benchmark::State& state, const TJsonDocument& document) {
  for (auto _ : state) {
    const auto tree = T::Parse(document.Text);
    benchmark::DoNotOptimize(T::Visit(tree));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(document.Text.size()));
}

template <class T>
void Write(benchmark::State& state, const TJsonDocument& document) {
  const auto tree = T::Parse(document.Text);
  int64_t length = 0;
  for (auto _ : state) {
    const auto text = T::Write(tree);
    length = static_cast<int64_t>(text.size());
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(state.iterations() * length);
}

using TWork = void (*)(benchmark::State& state, const TJsonDocument& document);

struct TEntry {
  const char* Implementation;
  TWork Work;
};

void Register(const std::string& name, std::initializer_list<TEntry> entries) {
  for (const TJsonDocument& document : JsonDocuments()) {
    for (const auto& [implementation, work] : entries) {
      const std::string full = "BM_" + name + '_' + document.Name + '/' + implementation;
      benchmark::RegisterBenchmark(full.c_str(), [work = work, &document](benchmark::State& state) {
        work(state, document);
      })->Unit(benchmark::kMillisecond);
    }
  }
}

template <class... T>
void RegisterParse() {
  Register("JsonParse", {{T::Name, Parse<T>}...});
}
template <class... T>
void RegisterParseVisit() {
  Register("JsonParseVisit", {{T::Name, ParseVisit<T>}...});
}
template <class... T>
void RegisterWrite(const char* name) {
  Register(name, {{T::Name, Write<T>}...});
}

const bool isRegistered = [] {
  RegisterParse<TTalvoJson, TRapidJsonUtf16, TRapidJsonUtf16Exact, TRapidJsonUtf8, TQtJson,
                TNlohmannJson, TJsonCpp, TPocoJson, TSimdJson>();
  RegisterParseVisit<TTalvoJson, TRapidJsonUtf16, TQtJson, TNlohmannJson>();
  RegisterWrite<TTalvoJson, TRapidJsonUtf16, TQtJson, TNlohmannJson>("JsonWrite");
  RegisterWrite<TTalvoJsonUtf8, TRapidJsonUtf8, TQtJson, TNlohmannJson>("JsonWriteUtf8");
  return true;
}();

}  // namespace
