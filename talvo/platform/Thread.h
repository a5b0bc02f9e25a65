// SPDX-License-Identifier: Apache-2.0
#pragma once
// Threads of the operating system.

#include <cstdint>
#include <string_view>

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
  /// Asks for a notice to the calling thread; null takes that back. From within a notice it
  /// asks for another one, behind the notices of others.
  void Set(void* value) noexcept;
  /// How many notices a thread gets at most.
  static const uint32_t Rounds;

 private:
  uint32_t FKey;  // atomic
};

}  // namespace Platform

/// The system's identifier of the calling thread, never 0. Asks the system once per thread.
inline uint32_t CurrentThreadId() noexcept {
  const uint32_t id = Platform::GCurrentThreadId;
  return id != 0 ? id : Platform::AskCurrentThreadId();
}

/// The identifier of the process's first thread, whoever loaded the library.
uint32_t MainThreadId() noexcept;

namespace Platform {

/// A thread that was started; it is joined or detached exactly once.
using TThreadHandle = uint64_t;

/// Starts a thread that runs `entry` with `argument`. 0, or the error code of the system.
int StartThread(TThreadHandle& handle, void* (*entry)(void*), void* argument) noexcept;
/// Blocks until the thread has ended, with all that belonged to it.
void JoinThread(TThreadHandle handle) noexcept;
/// Lets the calling thread end by itself.
void DetachCurrentThread() noexcept;

/// Shows `utf8` to debuggers and system tools as the thread's name. The system keeps 15 bytes: of
/// a longer name the end, which tells threads apart. Nothing happens when there is no such thread.
void SetSystemThreadName(uint32_t threadId, std::string_view utf8) noexcept;

/// The thread's share of the processor: 19 is the least, 0 what threads start with, -20 the most.
/// False when the system refuses, as it does to most users below 0.
bool SetThreadNice(uint32_t threadId, int nice) noexcept;

}  // namespace Platform
}  // namespace Talvo
