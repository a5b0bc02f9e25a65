// SPDX-License-Identifier: Apache-2.0
#include <talvo/platform/Sync.h>

#include <climits>
#include <talvo/platform/Thread.h>

namespace Talvo::Platform {

uint32_t THandleNumber::Get() noexcept {
  static uint32_t last = 0;
  uint32_t number = __atomic_load_n(&FNumber, __ATOMIC_RELAXED);
  if (number != 0) return number;
  const uint32_t made = __atomic_add_fetch(&last, 1, __ATOMIC_RELAXED);
  return __atomic_compare_exchange_n(&FNumber, &number, made, /*weak*/ false, __ATOMIC_RELAXED,
                                     __ATOMIC_RELAXED)
             ? made
             : number;
}

namespace {

enum : uint32_t { Free, Taken, TakenWithSleepers };

bool TryTakeFree(uint32_t* state) noexcept {
  uint32_t expected = Free;
  return __atomic_compare_exchange_n(state, &expected, Taken, /*weak*/ false, __ATOMIC_ACQUIRE,
                                     __ATOMIC_RELAXED);
}

[[gnu::noinline]] void TakeSlowly(uint32_t* state) noexcept {
  for (uint32_t looks = SpinLooks(); looks > 0; --looks) {
    SpinRest();
    if (__atomic_load_n(state, __ATOMIC_RELAXED) == Free && TryTakeFree(state)) return;
  }
  static const TDeadline never(NoTimeLimit);
  while (__atomic_exchange_n(state, TakenWithSleepers, __ATOMIC_ACQUIRE) != Free) {
    FutexWait(state, TakenWithSleepers, never);
  }
}

}  // namespace

void TCriticalSection::Enter() noexcept {
  const uint32_t self = CurrentThreadId();
  if (__atomic_load_n(&FOwner, __ATOMIC_RELAXED) == self) {
    ++FDepth;
    return;
  }
  if (!TryTakeFree(&FState)) TakeSlowly(&FState);
  __atomic_store_n(&FOwner, self, __ATOMIC_RELAXED);
  FDepth = 1;
}

bool TCriticalSection::TryEnter() noexcept {
  const uint32_t self = CurrentThreadId();
  if (__atomic_load_n(&FOwner, __ATOMIC_RELAXED) == self) {
    ++FDepth;
    return true;
  }
  if (!TryTakeFree(&FState)) return false;
  __atomic_store_n(&FOwner, self, __ATOMIC_RELAXED);
  FDepth = 1;
  return true;
}

bool TCriticalSection::IsHeldByCaller() const noexcept {
  return __atomic_load_n(&FOwner, __ATOMIC_RELAXED) == CurrentThreadId();
}

bool TCriticalSection::Leave() noexcept {
  if (!IsHeldByCaller()) return false;
  if (--FDepth > 0) return true;
  __atomic_store_n(&FOwner, 0, __ATOMIC_RELAXED);
  if (__atomic_exchange_n(&FState, Free, __ATOMIC_RELEASE) == TakenWithSleepers) {
    FutexWake(&FState, 1);
  }
  return true;
}

// ---- Events and semaphores --------------------------------------------------------------------

namespace {

// Both are a value and, in the upper half of the word, the number of those who wait for it. So
// whoever changes the value learns of waiters in the same step, and has done with the word.
constexpr uint64_t OneWaiter = uint64_t{1} << 32;

constexpr uint32_t ValueOf(uint64_t word) noexcept {
  return static_cast<uint32_t>(word);
}
const uint32_t* ValueIn(const uint64_t* word) noexcept {
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
  return reinterpret_cast<const uint32_t*>(word);
}

/// Lets `take(next)` change a copy of the word, and puts that in the word's place. When there is
/// nothing to be had, `take` is false, and the copy of no use. `seen` is the word that decided.
template <class TTake>
bool TryTake(uint64_t* word, uint64_t& seen, TTake take) noexcept {
  seen = __atomic_load_n(word, __ATOMIC_ACQUIRE);
  for (;;) {
    uint64_t next = seen;
    if (!take(next)) return false;
    if (next == seen || __atomic_compare_exchange_n(word, &seen, next, /*weak*/ true,
                                                    __ATOMIC_ACQUIRE, __ATOMIC_ACQUIRE)) {
      return true;
    }
  }
}

/// Waits until `take(next, waiter, valueAtFirst)` lets the caller through. `waiter` is OneWaiter
/// when the word counts the caller, else 0; whoever is let through takes it from `next`, unless the
/// signal has already. While `isForOthers(value)`, the caller is not counted, for it would get what
/// those are to have who came before.
template <class TTake, class TIsForOthers>
bool TakeInTime(uint64_t* word, uint32_t timeoutMs, TFutexScope scope, TTake take,
                TIsForOthers isForOthers) noexcept {
  // They are awake, or about to be. Unless they are gone: a forked child has none of them.
  constexpr uint32_t mostTurns = TurnsAwake + 10;
  const auto takeUncounted = [&](uint64_t& next) { return take(next, 0, ValueOf(next)); };
  uint64_t seen;
  if (TryTake(word, seen, takeUncounted)) return true;
  if (timeoutMs == 0) return false;
  const TDeadline deadline(timeoutMs);
  for (uint32_t turn = 0;;) {
    if (turn < mostTurns && isForOthers(ValueOf(seen))) {
      if (deadline.HasPassed()) return false;
      TakeTurn(turn++);
    } else if (__atomic_compare_exchange_n(word, &seen, seen + OneWaiter, /*weak*/ false,
                                           __ATOMIC_RELAXED, __ATOMIC_RELAXED)) {
      break;
    }
    if (TryTake(word, seen, takeUncounted)) return true;
  }
  const uint32_t first = ValueOf(seen);
  for (bool isInTime = true;;) {
    if (TryTake(word, seen, [&](uint64_t& next) { return take(next, OneWaiter, first); })) {
      return true;
    }
    if (isInTime) {
      isInTime = FutexWait(ValueIn(word), ValueOf(seen), deadline, scope);
    } else if (__atomic_compare_exchange_n(word, &seen, seen - OneWaiter, /*weak*/ false,
                                           __ATOMIC_RELAXED, __ATOMIC_RELAXED)) {
      return false;
    }
  }
}

constexpr bool IsForAll(uint32_t /*value*/) noexcept {
  return false;
}

// The value of an event is a flag, and above it, for a manual one, how often it was signalled. For
// an automatic one it is how many waiters have been granted their pass: they are no longer counted
// as waiters, and no reset takes that back.
constexpr uint32_t OneSignal = 2;
constexpr uint32_t OneGrant = 2;

}  // namespace

TEvent::TEvent(std::string_view name, bool isManual, bool isSignalled) noexcept
    : FOwn{isSignalled ? SignalledFlag : 0, isManual}, FState(&FOwn) {
  if (name.empty()) return;
  const auto initialize = [](void* block, const void* context) {
    *static_cast<TState*>(block) = *static_cast<const TState*>(context);
  };
  FState = FShared.Open("event", name, sizeof(TState), initialize, &FOwn)
               ? static_cast<TState*>(FShared.Block())
               : nullptr;
}

bool TEvent::Signal() noexcept {
  if (!FState) return false;
  uint64_t* word = &FState->Word;
  const TFutexScope scope = Scope();
  const bool isManual = FState->IsManual;
  // Waiters of other processes may die, and would leave what they have been granted. So there the
  // flag is set, and all are woken, one of whom takes it.
  const bool grants = !isManual && scope == TFutexScope::Process;
  uint64_t seen = __atomic_load_n(word, __ATOMIC_RELAXED);
  uint64_t next;
  do {
    if (grants && seen >= OneWaiter) {
      next = seen - OneWaiter + OneGrant;
    } else if (isManual) {
      const uint32_t value = (ValueOf(seen) + OneSignal) | SignalledFlag;
      next = (seen & ~uint64_t{UINT32_MAX}) | value;
    } else {
      next = seen | SignalledFlag;
    }
  } while (!__atomic_compare_exchange_n(word, &seen, next, /*weak*/ true, __ATOMIC_RELEASE,
                                        __ATOMIC_RELAXED));
  // The event may be gone: what is left of it here is an address.
  if (seen >= OneWaiter) FutexWake(ValueIn(word), grants ? 1 : INT_MAX, scope);
  return true;
}

bool TEvent::Reset() noexcept {
  if (!FState) return false;
  __atomic_fetch_and(&FState->Word, ~uint64_t{SignalledFlag}, __ATOMIC_RELEASE);
  return true;
}

bool TEvent::Wait(uint32_t timeoutMs) noexcept {
  if (!FState) return false;
  if (FState->IsManual) {
    return TakeInTime(
        &FState->Word, timeoutMs, Scope(),
        [](uint64_t& next, uint64_t waiter, uint32_t first) {
          const uint32_t value = ValueOf(next);
          const bool wasSignalled = (value ^ first) >= OneSignal;
          if ((value & SignalledFlag) == 0 && !wasSignalled) return false;
          next -= waiter;
          return true;
        },
        IsForAll);
  }
  return TakeInTime(
      &FState->Word, timeoutMs, Scope(),
      [](uint64_t& next, uint64_t waiter, uint32_t /*first*/) {
        if (waiter != 0 && ValueOf(next) >= OneGrant) {
          next -= OneGrant;
        } else if ((next & SignalledFlag) != 0) {
          next -= SignalledFlag + waiter;
        } else {
          return false;
        }
        return true;
      },
      [](uint32_t value) { return value >= OneGrant; });
}

TSemaphore::TSemaphore(int32_t initial, int32_t maximum) noexcept
    : FWord(static_cast<uint32_t>(initial)),
      FMaximum(initial >= 0 && initial <= maximum ? maximum : 0) {}

bool TSemaphore::Increment(int32_t count) noexcept {
  if (!IsValid() || count < 1 || count > FMaximum) return false;
  const auto room = static_cast<uint32_t>(FMaximum - count);
  uint64_t seen = __atomic_load_n(&FWord, __ATOMIC_RELAXED);
  do {
    if (ValueOf(seen) > room) return false;
  } while (!__atomic_compare_exchange_n(&FWord, &seen, seen + static_cast<uint32_t>(count),
                                        /*weak*/ true, __ATOMIC_RELEASE, __ATOMIC_RELAXED));
  if (seen >= OneWaiter) FutexWake(ValueIn(&FWord), count);
  return true;
}

bool TSemaphore::Decrement(uint32_t timeoutMs) noexcept {
  return IsValid() && TakeInTime(
                          &FWord, timeoutMs, TFutexScope::Process,
                          [](uint64_t& next, uint64_t waiter, uint32_t /*first*/) {
                            if (ValueOf(next) == 0) return false;
                            next -= 1 + waiter;
                            return true;
                          },
                          IsForAll);
}

}  // namespace Talvo::Platform
