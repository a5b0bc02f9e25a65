// SPDX-License-Identifier: Apache-2.0
// How much memory parsing takes: a Markdown table of the peak, in bytes for a byte of the document.
// The text itself is not counted.

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "JsonDocuments.h"
#include "JsonPeers.h"

namespace {

/// A field of /proc/self/status in bytes.
double StatusBytes(const char* name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name)) return 1024 * std::atof(line.c_str() + std::strlen(name));
  }
  throw std::runtime_error("The system does not tell the peak of memory");
}

/// How far the peak of the memory in use rises above what is in use at the start.
template <class T>
double PeakOfParse(const std::string& text) {
  // Brings in the code, which is no cost of this document.
  T::Parse(R"([{"a":[1,-2,3.25e1,true,false,null,"b\n\u00e9"]}])");
  std::ofstream("/proc/self/clear_refs") << '5';
  const double start = StatusBytes("VmRSS:");
  const auto tree = T::Parse(text);
  return StatusBytes("VmHWM:") - start;
}

/// The peak in a process of its own, where nothing is left over from the parse before.
template <class T>
double PeakInChild(const std::string& text) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("No pipe");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("No process");
  double peak = 0;
  if (child == 0) {
    peak = PeakOfParse<T>(text);
    _exit(write(ends[1], &peak, sizeof peak) == sizeof peak ? 0 : 1);
  }
  close(ends[1]);
  const bool isTold = read(ends[0], &peak, sizeof peak) == sizeof peak;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (!isTold) throw std::runtime_error("The child failed");
  return peak;
}

template <class... T>
void PrintTable() {
  std::printf("| Document | MB |");
  (std::printf(" %s |", T::Name), ...);
  std::printf("\n| --- | ---: |");
  for (size_t i = 0; i < sizeof...(T); ++i) std::printf(" ---: |");
  for (const auto& [name, text] : JsonDocuments()) {
    const auto size = static_cast<double>(text.size());
    std::printf("\n| %s | %.2f |", name.c_str(), size / 1e6);
    std::fflush(stdout);
    (std::printf(" %.1f |", PeakInChild<T>(text) / size), ...);
  }
  std::printf("\n");
}

}  // namespace

int main() {
  JsonDocuments();
  malloc_trim(0);
  PrintTable<TTalvoJson, TRapidJsonUtf16, TRapidJsonUtf8, TQtJson, TNlohmannJson, TJsonCpp,
             TPocoJson, TSimdJson>();
}
