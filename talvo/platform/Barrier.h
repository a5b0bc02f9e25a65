// SPDX-License-Identifier: Apache-2.0
#pragma once
// A pair of memory barriers of which one side costs next to nothing.
//
// When thread A stores x and reads y, and thread B stores y and reads x, one of them has to see
// the other's store. A LightBarrier between A's two steps and a HeavyBarrier between B's see to
// that: the heavy one makes all other threads of the process pass a barrier.

namespace Talvo::Platform {

// Until the system has agreed to act on behalf of others, light barriers are full ones.
extern bool GHasHeavyBarrier __attribute__((visibility("hidden")));

/// For the side that is taken often: keeps the compiler from reordering, no more.
inline void LightBarrier() noexcept {
  if (GHasHeavyBarrier) [[likely]] {
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
  } else {
    __sync_synchronize();
  }
}

/// For the side that is taken seldom: some microseconds.
void HeavyBarrier() noexcept;

}  // namespace Talvo::Platform
