// SPDX-License-Identifier: Apache-2.0
#pragma once
// What threads wait on: critical section, event, semaphore and mutex. Time-outs are milliseconds
// on the steady clock, NoTimeLimit for no limit. All operations may be called on any thread.

#include <cstdint>
#include <string_view>
#include <talvo/platform/Futex.h>
#include <talvo/platform/LocalSync.h>
#include <talvo/platform/NamedMemory.h>

namespace Talvo::Platform {

/// A flag to wait for. Automatic ones let one waiter through and fall back; manual ones let through
/// all that wait. Those that a signal lets through get through also when a reset follows at once,
/// except for an automatic event with a name, which only ever sets its flag. Whoever has got
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
