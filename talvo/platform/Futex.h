// SPDX-License-Identifier: Apache-2.0
#pragma once
// Waiting for a word of memory to change.

#include <cstdint>

namespace Talvo::Platform {

/// The time-out that never passes.
inline constexpr uint32_t NoTimeLimit = 4294967295;

/// A point in time on the steady clock.
class TDeadline {
 public:
  /// `timeoutMs` milliseconds from now; NoTimeLimit for never.
  explicit TDeadline(uint32_t timeoutMs) noexcept;
  bool IsNever() const noexcept { return FNanoseconds == Never; }
  /// The same for shorter times.
  static TDeadline AfterMicroseconds(uint32_t microseconds) noexcept;
  bool HasPassed() const noexcept;
  /// The earlier of this point and `sliceMs` milliseconds from now.
  TDeadline WithinSlice(uint32_t sliceMs) const noexcept;
  /// Nanoseconds of the steady clock.
  uint64_t Nanoseconds() const noexcept { return FNanoseconds; }

 private:
  static constexpr uint64_t Never = UINT64_MAX;
  uint64_t FNanoseconds;
};

/// Who waits on a word: threads of this process only, or of all that map it.
enum class TFutexScope { Process, System };

/// Sleeps while `word` is `expected`, until a wake-up or the deadline; false when the deadline
/// passed. May come back without a cause: the caller looks at its word again.
bool FutexWait(const uint32_t* word, uint32_t expected, const TDeadline& deadline,
               TFutexScope scope = TFutexScope::Process) noexcept;

/// Wakes up to `count` of those that sleep on `word`.
void FutexWake(const uint32_t* word, int32_t count,
               TFutexScope scope = TFutexScope::Process) noexcept;

/// Tells the processor that this thread spins.
inline void SpinPause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

/// How often it pays to look again, with a SpinRest between, before sleeping on a lock: 0 on a
/// single processor.
uint32_t SpinLooks() noexcept;

/// Leaves the cache line of a lock to its holder for a while: who looks without a break slows the
/// holder down, and gets the lock no sooner.
inline void SpinRest() noexcept {
  for (int turn = 0; turn < 40; ++turn) SpinPause();
}

/// Lets other threads run.
void YieldThread() noexcept;

/// Sleeps for a moment, so that threads run that would have to yield to this one.
void RestThread() noexcept;

/// How many turns TakeTurn takes in a millisecond or two, before it sleeps.
inline constexpr uint32_t TurnsAwake = 3000;

/// Passes the time between two looks, `turn` of which were in vain, at what another thread is about
/// to do. That thread may have a lower priority than all that look, or be stopped.
inline void TakeTurn(uint32_t turn) noexcept {
  if (turn < 100) {
    SpinPause();
  } else if (turn < TurnsAwake) {
    YieldThread();
  } else {
    RestThread();
  }
}

}  // namespace Talvo::Platform
