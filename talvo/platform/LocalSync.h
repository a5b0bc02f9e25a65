// SPDX-License-Identifier: Apache-2.0
#pragma once
// What only threads of one process wait on: critical section and semaphore. As in Sync.h, time-outs
// are milliseconds on the steady clock, and any thread may call.

#include <talvo/platform/Futex.h>

namespace Talvo::Platform {

/// A number that no other handle of this process has, given when it is first asked for.
class THandleNumber {
 public:
  uint32_t Get() noexcept;

 private:
  uint32_t FNumber = 0;  // atomic
};

/// A recursive lock of one process.
class TCriticalSection {
 public:
  void Enter() noexcept;
  /// Enters if that needs no wait.
  bool TryEnter() noexcept;
  /// False, with no effect, for a thread that is not inside.
  bool Leave() noexcept;
  bool IsHeldByCaller() const noexcept;

 private:
  uint32_t FState = 0;  // atomic: 0 free, 1 taken, 2 taken and somebody may sleep on it
  uint32_t FOwner = 0;  // atomic: only the owner finds its own identifier here
  uint32_t FDepth = 0;  // the owner's
};

/// A count that is waited for while it is 0. Whoever has got through may end it, as with events.
class TSemaphore {
 public:
  /// Valid when 0 <= initial <= maximum and maximum > 0.
  TSemaphore(int32_t initial, int32_t maximum) noexcept;

  /// Nothing comes of a semaphore that is not.
  bool IsValid() const noexcept { return FMaximum > 0; }
  /// False, with no effect, when `count` is below 1 or leads past the maximum.
  bool Increment(int32_t count) noexcept;
  bool Decrement(uint32_t timeoutMs) noexcept;

 private:
  uint64_t FWord;  // atomic: the value, which is the count, and the waiters
  int32_t FMaximum;
};

}  // namespace Talvo::Platform
