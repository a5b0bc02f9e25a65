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

/// Tells of the end of threads: `atEnd` gets what a thread has set, on that thread, behind the ends
/// of its thread_local objects. Not told of threads that end after this object.
class TThreadEndNotice {
 public:
  explicit TThreadEndNotice(void (*atEnd)(void* value)) noexcept;
  ~TThreadEndNotice();
  TThreadEndNotice(const TThreadEndNotice&) = delete;
  TThreadEndNotice& operator=(const TThreadEndNotice&) = delete;
  /// Asks for a notice to the calling thread; `value` must not be null.
  void Set(void* value) noexcept;

 private:
  uint32_t FKey;
};

}  // namespace Platform

/// The system's identifier of the calling thread, never 0. Asks the system once per thread.
inline uint32_t CurrentThreadId() noexcept {
  const uint32_t id = Platform::GCurrentThreadId;
  return id != 0 ? id : Platform::AskCurrentThreadId();
}

}  // namespace Talvo
