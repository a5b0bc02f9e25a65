// SPDX-License-Identifier: Apache-2.0
#pragma once
// What threads wait on: critical section, event, semaphore and mutex. Time-outs are milliseconds
// on the steady clock, NoTimeLimit for no limit. All operations may be called on any thread.

#include <cstdint>
#include <string_view>
#include <talvo/platform/Futex.h>
#include <talvo/platform/NamedMemory.h>

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
  /// False, with no effect, for a thread that is not inside.
  bool Leave() noexcept;
  bool IsHeldByCaller() const noexcept;

 private:
  uint32_t FState = 0;  // atomic: 0 free, 1 taken, 2 taken and somebody may sleep on it
  uint32_t FOwner = 0;  // atomic: only the owner finds its own identifier here
  uint32_t FDepth = 0;  // the owner's
};

/// A flag to wait for. Automatic ones let one waiter through and fall back; manual ones let through
/// all that wait. Those that a signal lets through get through also when a reset follows at once,
/// but with an automatic event of several processes, which only ever sets its flag. Whoever has got
/// through may end the event, though the call that signalled it has not returned.
class TEvent {
 public:
  /// An empty name makes an event of its own. A name that is in use opens what is there, whose
  /// kind and state stay.
  TEvent(std::string_view name, bool isManual, bool isSignalled) noexcept;

  /// False when the system has no room for the name: nothing comes of such an event.
  bool IsValid() const noexcept { return FState != nullptr; }
  bool Signal() noexcept;
  bool Reset() noexcept;
  bool Wait(uint32_t timeoutMs) noexcept;
  /// A look that takes nothing: an automatic one may fall back the next moment.
  bool IsSignalled() const noexcept {
    return FState && (__atomic_load_n(&FState->Word, __ATOMIC_RELAXED) & SignalledFlag) != 0;
  }

 private:
  static constexpr uint32_t SignalledFlag = 1;
  struct TState {
    uint64_t Word;  // atomic: the value, which is the flag and a count above it; the waiters
    uint32_t IsManual;
  };
  TFutexScope Scope() const noexcept {
    return FState == &FOwn ? TFutexScope::Process : TFutexScope::System;
  }

  TState FOwn;
  TNamedMemory FShared;
  TState* FState;
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

/// A lock that belongs to a thread, recursive. When its thread or process dies, the next one in
/// line gets it.
class TMutex {
 public:
  /// An empty name makes a mutex of its own.
  explicit TMutex(std::string_view name);
  /// The last object of a mutex in this process gives up what the calling thread holds.
  ~TMutex();
  TMutex(const TMutex&) = delete;
  TMutex& operator=(const TMutex&) = delete;

  /// False when the system has no room for the name.
  bool IsValid() const noexcept { return FState != nullptr; }
  /// False only when the time is up: a failed wait counts as acquired.
  bool Acquire(uint32_t timeoutMs) noexcept;
  /// False, with no effect, for a thread that does not hold it.
  bool Release() noexcept;

 private:
  struct TState;
  struct TTable;

  bool WaitForTurn(uint32_t timeoutMs) noexcept;

  TState* FState;
};

}  // namespace Talvo::Platform
