// SPDX-License-Identifier: Apache-2.0
#include <talvo/platform/Barrier.h>

#include <cstdlib>
#include <linux/membarrier.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Talvo::Platform {
namespace {

bool Membarrier(int command) noexcept {
  return syscall(SYS_membarrier, command, 0, 0) == 0;
}

}  // namespace

constinit bool GHasHeavyBarrier = false;

namespace {

// While the library is being loaded.
[[maybe_unused]] const bool GIsRegistered = GHasHeavyBarrier =
    Membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED);

/// Takes rights away from a page in use: the system interrupts all processors that run threads of
/// this process, so that they forget them. False where processors tell each other.
bool InterruptProcessors() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  constexpr size_t size = 1;
  void* page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) return false;
  *static_cast<volatile char*>(page) = 1;
  const bool isDone = mprotect(page, size, PROT_NONE) == 0;
  munmap(page, size);
  return isDone;
#else
  return false;
#endif
}

}  // namespace

void HeavyBarrier() noexcept {
  __sync_synchronize();
  if (!GHasHeavyBarrier || Membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED)) return;
  // The process has been confined since it was loaded, and the light sides count on us.
  if (!InterruptProcessors()) std::abort();
}

}  // namespace Talvo::Platform
