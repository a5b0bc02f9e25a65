// SPDX-License-Identifier: Apache-2.0
#pragma once
// Threads of the operating system.

#include <cstdint>

namespace Talvo {

namespace Platform {
// Read in every lock: the model spares the call that finds a thread's data in a shared object.
extern constinit thread_local uint32_t GCurrentThreadId
    __attribute__((visibility("hidden"), tls_model("initial-exec")));
uint32_t AskCurrentThreadId() noexcept;
}  // namespace Platform

/// The system's identifier of the calling thread, never 0. Asks the system once per thread.
inline uint32_t CurrentThreadId() noexcept {
  const uint32_t id = Platform::GCurrentThreadId;
  return id != 0 ? id : Platform::AskCurrentThreadId();
}

}  // namespace Talvo
