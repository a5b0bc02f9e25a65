// SPDX-License-Identifier: Apache-2.0
// Feeds every file below the folders it is given to a fuzz target, once.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

static void Replay(const fs::path& path) {
  const size_t size = fs::file_size(path);
  // Exactly as large as the input, so that a sanitizer sees a read past its end.
  const auto data = std::make_unique<char[]>(size);
  if (!std::ifstream(path, std::ios::binary).read(data.get(), static_cast<std::streamsize>(size))) {
    std::fprintf(stderr, "Cannot read %s\n", path.c_str());
    std::exit(EXIT_FAILURE);
  }
  // Told before it is run: a crash leaves the file's name as the last line.
  std::fprintf(stderr, "%s\n", path.c_str());
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(data.get()), size);
}

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    if (!fs::exists(argv[i])) continue;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      Replay(entry.path());
      ++count;
    }
  }
  std::printf("%d inputs replayed\n", count);
  return count > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
