// SPDX-License-Identifier: Apache-2.0
#include <talvo/platform/Barrier.h>

#include <linux/membarrier.h>
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

}  // namespace

void HeavyBarrier() noexcept {
  __sync_synchronize();
  if (GHasHeavyBarrier) Membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED);
}

}  // namespace Talvo::Platform
