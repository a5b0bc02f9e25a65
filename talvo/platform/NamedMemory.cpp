// SPDX-License-Identifier: Apache-2.0
#include <talvo/platform/NamedMemory.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Talvo::Platform {
namespace {

// In front of each block. Users hold a shared lock on the file; whoever gets the exclusive lock is
// alone with it, so what a crashed process left there is known to be nobody's.
struct alignas(64) THeader {
  uint32_t IsReady;
};

uint64_t Hash(std::string_view text, uint64_t seed) noexcept {
  for (const char c : text) seed = (seed ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return seed;
}

bool IsPlain(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_' || c == '.';
}

/// Writes "/talvo-<user>-<kind>-<name>": what no file name may hold is escaped, and of a name that
/// is too long a hash stands for the end.
void WritePath(char (&path)[256], std::string_view kind, std::string_view name) noexcept {
  constexpr size_t longest = 160;
  auto length = static_cast<size_t>(std::snprintf(path, sizeof(path), "/talvo-%u-%.*s-", geteuid(),
                                                  static_cast<int>(kind.size()), kind.data()));
  for (size_t at = 0; at < name.size(); ++at) {
    if (length > longest) {
      std::snprintf(path + length, sizeof(path) - length, "%%#%016llx%016llx",
                    static_cast<unsigned long long>(Hash(name, 0xcbf29ce484222325)),
                    static_cast<unsigned long long>(Hash(name, 0x9e3779b97f4a7c15)));
      return;
    }
    if (IsPlain(name[at])) {
      path[length++] = name[at];
      path[length] = 0;
    } else {
      length += static_cast<size_t>(std::snprintf(path + length, sizeof(path) - length, "%%%02x",
                                                  static_cast<unsigned char>(name[at])));
    }
  }
}

/// Takes a step, which tells 0 or its error, again when a signal came in between.
template <class TStep>
bool Succeeds(TStep step) noexcept {
  int error;
  do {
    error = step();
  } while (error == EINTR);
  return error == 0;
}

bool Lock(int file, int operation) noexcept {
  return Succeeds([&] { return flock(file, operation) == 0 ? 0 : errno; });
}

bool MakeEmpty(int file, off_t size) noexcept {
  return Succeeds([&] { return ftruncate(file, 0) == 0 ? 0 : errno; }) &&
         Succeeds([&] { return posix_fallocate(file, 0, size); });
}

/// Whether nobody but this user can have made the file or get at it. Anybody may have taken the
/// name before us.
bool IsPrivate(int file) noexcept {
  struct stat status;
  return fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
         (status.st_mode & 077) == 0 && status.st_nlink <= 1;
}

/// Whether the file is still the one that its name leads to, and has `size` bytes.
bool IsLinked(int file, off_t size) noexcept {
  struct stat status;
  return fstat(file, &status) == 0 && status.st_nlink > 0 && status.st_size >= size;
}

}  // namespace

TNamedMemory::TNamedMemory(TNamedMemory&& other) noexcept
    : FFile(std::exchange(other.FFile, -1)),
      FMapping(std::exchange(other.FMapping, nullptr)),
      FMappingSize(other.FMappingSize),
      FProcess(other.FProcess) {
  std::memcpy(FPath, other.FPath, sizeof(FPath));
}

TNamedMemory::~TNamedMemory() {
  Close();
}

void* TNamedMemory::Block() const noexcept {
  return FMapping ? static_cast<char*>(FMapping) + sizeof(THeader) : nullptr;
}

bool TNamedMemory::Open(std::string_view kind, std::string_view name, size_t size,
                        TInitialize initialize, const void* context) noexcept {
  WritePath(FPath, kind, name);
  FMappingSize = sizeof(THeader) + size;
  // A try fails when the last user takes the name away under us, or dies while making the block.
  bool isFinal = false;
  for (int tries = 0; tries < 1000 && !isFinal; ++tries) {
    if (TryOpen(initialize, context, isFinal)) {
      FProcess = getpid();
      return true;
    }
    if (FMapping) munmap(std::exchange(FMapping, nullptr), FMappingSize);
    if (FFile >= 0) close(std::exchange(FFile, -1));
  }
  return false;
}

bool TNamedMemory::TryOpen(TInitialize initialize, const void* context, bool& isFinal) noexcept {
  const auto size = static_cast<off_t>(FMappingSize);
  isFinal = true;
  FFile = shm_open(FPath, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (FFile < 0 || !IsPrivate(FFile)) return false;
  const bool isAlone = Lock(FFile, LOCK_EX | LOCK_NB);
  // Emptied first, so that no user finds what another one left.
  if (isAlone && !MakeEmpty(FFile, size)) return false;
  if (!isAlone && !Lock(FFile, LOCK_SH)) return false;

  struct stat status;
  if (fstat(FFile, &status) != 0) return false;
  isFinal = false;
  if (status.st_size < size) return false;
  FMapping = mmap(nullptr, FMappingSize, PROT_READ | PROT_WRITE, MAP_SHARED, FFile, 0);
  if (FMapping == MAP_FAILED) {
    FMapping = nullptr;
    isFinal = true;
    return false;
  }
  if (isAlone) {
    initialize(Block(), context);
    __atomic_store_n(&static_cast<THeader*>(FMapping)->IsReady, 1, __ATOMIC_RELEASE);
    // Going from exclusive to shared lets others in between, who may make the block anew, as nobody
    // uses it yet, or die when they have emptied the file.
    if (!Lock(FFile, LOCK_SH)) return false;
  }
  return IsLinked(FFile, size) &&
         __atomic_load_n(&static_cast<THeader*>(FMapping)->IsReady, __ATOMIC_ACQUIRE) != 0;
}

void TNamedMemory::Close() noexcept {
  if (FMapping) munmap(FMapping, FMappingSize);
  if (FFile < 0) return;
  // Going from shared to exclusive drops the shared lock first, so of several that leave at a time
  // one finds itself alone.
  // A forked child shares its parent's lock and leaves it alone.
  if (FProcess == getpid() && Lock(FFile, LOCK_EX | LOCK_NB) && IsLinked(FFile, 0)) {
    shm_unlink(FPath);
  }
  close(FFile);
}

}  // namespace Talvo::Platform
