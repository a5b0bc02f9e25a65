// SPDX-License-Identifier: Apache-2.0
// A first look at documents: reads JSON files, tells what they hold, asks them something, changes
// them, writes them and reads them back.
//
//   json_document FILE...
//
// Errors in a file are reported as file:line:column: message, all of them, and what could be
// recovered is shown all the same. The exit code is 1 if there were any.

#include <chrono>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <talvo/serialization/Talvo.Json.h>

using namespace Talvo;

namespace {

// --- How long each step took ------------------------------------------------------------------

class TStopwatch {
 public:
  /// Runs a step and remembers it if it is the slowest so far.
  template <class F>
  void Step(const char* name, F&& step) {
    const auto start = std::chrono::steady_clock::now();
    step();
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    if (took.count() <= FSlowestMs) return;
    FSlowestMs = took.count();
    FSlowest = name;
  }
  void Print() const {
    std::cout << "  slowest step: " << FSlowest << ", " << std::fixed << std::setprecision(1)
              << FSlowestMs << " ms\n";
  }

 private:
  const char* FSlowest = "none";
  double FSlowestMs = 0;
};

// --- Reading, with every error told -----------------------------------------------------------

/// The document of a file, empty when nothing could be recovered.
TRef<IJsonElement> Read(const string& path, bool& hasErrors) {
  // A callback makes the parser report each error and go on; without one the first would raise.
  const JsonParser::TOnError onError = [&](const string& text, uint32_t position, TJsonParserError,
                                           const string& message) {
    const TJsonTextPosition at = LineAndColumn(text, position);
    std::cerr << path << ':' << at.Line << ':' << at.Column << ": " << message << '\n';
    hasErrors = true;
  };
  TRef<IJsonElement> document;
  JsonParser::ParseFile(path, onError, document);
  return document;
}

// --- What is in it ----------------------------------------------------------------------------

struct TSummary {
  int32_t Objects = 0, Arrays = 0, Strings = 0, Numbers = 0, Booleans = 0, Nulls = 0;
  int32_t Depth = 0;
  TRef<IJsonArray> LargestTable = TJsonArray::Make();  // the longest array of objects
};

struct TVisit {
  TRef<IJsonElement> Element;
  int32_t Depth = 0;
};

bool IsTable(const TRef<IJsonArray>& array) {
  TRef<IJsonObject> row;
  return !array->Query()->Contains(
      [&](const TRef<IJsonElement>& item) { return !item->GetObject(row); });
}

/// Visits every element once. A list is the stack: documents may be deeper than any call stack.
TSummary Summarize(const TRef<IJsonElement>& document) {
  TSummary summary;
  auto pending = TArrayList<TVisit>::Make();
  pending->Add({document, 1});
  TVisit visit;
  while (pending->ExtractLast(visit)) {
    summary.Depth = std::max(summary.Depth, visit.Depth);
    TRef<IJsonArray> array;
    TRef<IJsonObject> object;
    string text;
    double number;
    bool isTrue;
    // Each accessor answers whether the element can give that kind. Numbers and booleans have a
    // text as well, so strings are asked for last.
    if (visit.Element->GetArray(array)) {
      ++summary.Arrays;
      if (array->Count() > summary.LargestTable->Count() && IsTable(array)) {
        summary.LargestTable = array;
      }
      for (const auto& item : array) pending->Add({item, visit.Depth + 1});
    } else if (visit.Element->GetObject(object)) {
      ++summary.Objects;
      for (const auto& [name, value] : object) pending->Add({value, visit.Depth + 1});
    } else if (visit.Element->GetReal(number)) {
      ++summary.Numbers;
    } else if (visit.Element->GetBoolean(isTrue)) {
      ++summary.Booleans;
    } else if (visit.Element->GetString(text)) {
      ++summary.Strings;
    } else {
      ++summary.Nulls;
    }
  }
  return summary;
}

void Print(const TSummary& summary) {
  std::cout << "  " << summary.Objects << " objects, " << summary.Arrays << " arrays, "
            << summary.Strings << " strings, " << summary.Numbers << " numbers, "
            << summary.Booleans << " booleans, " << summary.Nulls << " nulls; depth "
            << summary.Depth << '\n';
}

// --- Asking it something ----------------------------------------------------------------------

/// Takes the largest table of the document: which rows have a member that the first row lacks?
void RunQuery(const TSummary& summary) {
  const TRef<IJsonArray>& table = summary.LargestTable;
  if (table->Count() == 0) return;
  const TRef<IJsonObject> first = table[0]->Obj();
  const auto unusual = table->Query()->Filter([&](const TRef<IJsonElement>& row) {
    for (const auto& [name, value] : row->Obj()) {
      if (!first->ContainsKey(name)) return true;
    }
    return false;
  });
  std::cout << "  largest table: " << table->Count() << " rows, " << unusual->Count()
            << " with members that the first lacks\n";
  unusual->Query()->Take(2)->Query()->ForEach(
      [](const TRef<IJsonElement>& row) { std::cout << "    " << row->AsString() << '\n'; });
}

// --- Changing it ------------------------------------------------------------------------------

/// Stamps the document and shows what differs from before, as a document of its own.
void Change(const TRef<IJsonElement>& document) {
  document->ForObject([&](const TRef<IJsonObject>& root) {
    const TRef<IJsonElement> before = TObjectJsonElement::Make();
    before->Assign(document);  // a deep copy of the content
    root->Add(u"checked", TBooleanJsonElement::Make(true))
        .Add(u"checker", TStringJsonElement::Make(u"json_document"));
    TRef<IJsonElement> change;
    if (document->ElementChange(before, change)) {
      std::cout << "  changed: " << change->AsString() << '\n';
    }
  });
}

// --- Writing it and reading it back -----------------------------------------------------------

string InTemporaryFolder(const char* name) {
  return (std::filesystem::temp_directory_path() / name).u16string();
}

bool WriteAndReadBack(const TRef<IJsonElement>& document, TStopwatch& watch) {
  const string compactPath = InTemporaryFolder("talvo_compact.json");
  const string indentedPath = InTemporaryFolder("talvo_indented.json");
  watch.Step("write compact", [&] { SaveJsonFile(compactPath, document); });
  watch.Step("write indented",
             [&] { SaveJsonFile(indentedPath, document, TJsonIndentedFormatter::Make(2)); });
  TRef<IJsonElement> compact, indented;
  watch.Step("read compact", [&] { compact = JsonParser::ParseFile(compactPath); });
  watch.Step("read indented", [&] { indented = JsonParser::ParseFile(indentedPath); });
  bool isEqual = false;
  watch.Step("compare", [&] { isEqual = compact->ElementEquals(indented); });
  for (const string& path : {compactPath, indentedPath}) {
    std::cout << "  " << path << ": " << std::filesystem::file_size(path) << " bytes\n";
  }
  std::cout << "  read back: " << (isEqual ? "equal" : "DIFFERENT") << '\n';
  return isEqual;
}

/// Whether the file was faultless and came back as it was written.
bool Show(const string& path) {
  std::cout << path << '\n';
  TStopwatch watch;
  bool hasErrors = false;
  TRef<IJsonElement> document;
  watch.Step("parse", [&] { document = Read(path, hasErrors); });
  if (!document) {
    std::cout << "  nothing could be recovered\n";
    return false;
  }
  TSummary summary;
  watch.Step("summarize", [&] { summary = Summarize(document); });
  Print(summary);
  if (hasErrors) {
    std::cout << "  recovered: " << document->AsString().substr(0, 400) << '\n';
  }
  watch.Step("query", [&] { RunQuery(summary); });
  watch.Step("change", [&] { Change(document); });
  const bool isEqual = WriteAndReadBack(document, watch);
  watch.Print();
  return isEqual && !hasErrors;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: json_document FILE...\n";
    return 2;
  }
  bool isFine = true;
  for (int i = 1; i < argc; ++i) {
    const string path = FromUtf8(argv[i], TSurrogates::Keep);
    try {
      isFine &= Show(path);
    } catch (const std::exception& failure) {
      // An unreadable file, malformed UTF-8, a number that fits no type: each says what it met.
      std::cerr << path << ": " << failure.what() << '\n';
      isFine = false;
    }
  }
  return isFine ? 0 : 1;
}
