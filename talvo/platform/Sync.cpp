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

TEvent::TEvent(std::string_view name, bool isManual, bool isSignalled) noexcept
    : FOwn{isSignalled, 0, isManual}, FState(&FOwn) {
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
  // In one order with the waiter's count and look: either it sees the signal or we see the waiter.
  __atomic_store_n(&FState->IsSignalled, 1, __ATOMIC_SEQ_CST);
  if (__atomic_load_n(&FState->Waiters, __ATOMIC_SEQ_CST) == 0) return true;
  // A process may die between its wake-up and taking the signal, so there all are woken.
  const bool wakesAll = FState->IsManual || Scope() == TFutexScope::System;
  FutexWake(&FState->IsSignalled, wakesAll ? INT_MAX : 1, Scope());
  return true;
}

bool TEvent::Reset() noexcept {
  if (!FState) return false;
  __atomic_store_n(&FState->IsSignalled, 0, __ATOMIC_RELEASE);
  return true;
}

bool TEvent::TryTake() noexcept {
  if (FState->IsManual) return __atomic_load_n(&FState->IsSignalled, __ATOMIC_SEQ_CST) != 0;
  uint32_t expected = 1;
  return __atomic_compare_exchange_n(&FState->IsSignalled, &expected, 0, /*weak*/ false,
                                     __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
}

bool TEvent::Wait(uint32_t timeoutMs) noexcept {
  if (!FState) return false;
  if (TryTake()) return true;
  if (timeoutMs == 0) return false;
  const TDeadline deadline(timeoutMs);
  __atomic_add_fetch(&FState->Waiters, 1, __ATOMIC_SEQ_CST);
  bool isTaken = false;
  bool isInTime = true;
  while (!(isTaken = TryTake()) && isInTime) {
    isInTime = FutexWait(&FState->IsSignalled, 0, deadline, Scope());
  }
  __atomic_sub_fetch(&FState->Waiters, 1, __ATOMIC_RELAXED);
  return isTaken;
}

TSemaphore::TSemaphore(int32_t initial, int32_t maximum) noexcept
    : FCount(static_cast<uint32_t>(initial)),
      FMaximum(initial >= 0 && initial <= maximum ? maximum : 0) {}

bool TSemaphore::Increment(int32_t count) noexcept {
  if (!IsValid() || count < 1 || count > FMaximum) return false;
  uint32_t seen = __atomic_load_n(&FCount, __ATOMIC_RELAXED);
  do {
    if (seen > static_cast<uint32_t>(FMaximum - count)) return false;
  } while (!__atomic_compare_exchange_n(&FCount, &seen, seen + static_cast<uint32_t>(count),
                                        /*weak*/ true, __ATOMIC_SEQ_CST, __ATOMIC_RELAXED));
  if (__atomic_load_n(&FWaiters, __ATOMIC_SEQ_CST) != 0) FutexWake(&FCount, count);
  return true;
}

bool TSemaphore::TryTake() noexcept {
  uint32_t seen = __atomic_load_n(&FCount, __ATOMIC_SEQ_CST);
  while (seen != 0) {
    if (__atomic_compare_exchange_n(&FCount, &seen, seen - 1, /*weak*/ true, __ATOMIC_SEQ_CST,
                                    __ATOMIC_SEQ_CST)) {
      return true;
    }
  }
  return false;
}

bool TSemaphore::Decrement(uint32_t timeoutMs) noexcept {
  if (!IsValid()) return false;
  if (TryTake()) return true;
  if (timeoutMs == 0) return false;
  const TDeadline deadline(timeoutMs);
  __atomic_add_fetch(&FWaiters, 1, __ATOMIC_SEQ_CST);
  bool isTaken = false;
  bool isInTime = true;
  while (!(isTaken = TryTake()) && isInTime) isInTime = FutexWait(&FCount, 0, deadline);
  __atomic_sub_fetch(&FWaiters, 1, __ATOMIC_RELAXED);
  return isTaken;
}

}  // namespace Talvo::Platform
