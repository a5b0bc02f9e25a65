// SPDX-License-Identifier: Apache-2.0
#pragma once
// What the JSON benchmarks parse and write.

#include <string>
#include <vector>

/// A document: its name in the tables, and its text in UTF-8.
struct TJsonDocument {
  std::string Name;
  std::string Text;
};

/// The files "*.json" of the folder that TALVO_BENCH_DATA names, by name. Without it, the languages
/// of the package iso-codes if it is installed, and documents that are made here, the same in every
/// run, in the shapes that real ones have: "twitter_like" (nested records with much text beyond
/// ASCII), "canada_like" (numbers of 17 digits), "citm_catalog_like" (small records and short
/// arrays, deeply indented).
const std::vector<TJsonDocument>& JsonDocuments();
