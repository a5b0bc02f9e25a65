// SPDX-License-Identifier: Apache-2.0
#include <talvo/platform/Barrier.h>

#include <cstdlib>
#include <linux/membarrier.h>
#include <mutex>
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

#if defined(__x86_64__)
std::mutex GPageLock;
void* GPage = MAP_FAILED;  // guarded by GPageLock, never freed
#endif

/// Takes rights away from a page in use. This assumes that the system then interrupts all
/// processors that run threads of this process, so that they forget them, and comes back when they
/// have done so. It need not where processors tell each other, and false is the answer there.
bool InterruptProcessors() noexcept {
#if defined(__x86_64__)
  constexpr size_t size = 1;
  const std::lock_guard<std::mutex> guard(GPageLock);
  if (GPage == MAP_FAILED) {
    GPage = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (GPage == MAP_FAILED) return false;
  }
  // A page that is not in memory has no rights that a processor could know of. Locking it there
  // each time serves forked children, who do not inherit that. Sanitizers leave mlock out.
  if (mprotect(GPage, size, PROT_READ | PROT_WRITE) != 0 || syscall(SYS_mlock, GPage, size) != 0) {
    return false;
  }
  *static_cast<volatile char*>(GPage) = 1;
  return mprotect(GPage, size, PROT_NONE) == 0;
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
