// SPDX-License-Identifier: Apache-2.0
#include <talvo/platform/Sync.h>

#include <cerrno>
#include <mutex>
#include <new>
#include <pthread.h>
#include <string>
#include <talvo/platform/Thread.h>

namespace Talvo::Platform {
namespace {

// How long the death of a holder may go unnoticed.
constexpr uint32_t LookAgainMs = 50;

/// What the threads of one or several processes share. The system keeps a list of the mutexes that
/// a thread holds and marks them when the thread or its process dies. Waiting is done beside it:
/// whoever lets go counts Releases up; a death tells nobody and is found by looking again.
struct TBlock {
  pthread_mutex_t Mutex;
  uint32_t Holder;    // atomic: the thread; a dead one's number stays
  uint32_t Depth;     // the holder's
  uint32_t Releases;  // atomic
  uint32_t Waiters;   // atomic

  static void Make(void* block, const void* isShared) noexcept {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    if (isShared) pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(&(::new (block) TBlock())->Mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }

  bool IsHeldByCaller() const noexcept {
    return __atomic_load_n(&Holder, __ATOMIC_RELAXED) == CurrentThreadId();
  }

  /// False when another thread holds it.
  bool TryTake() noexcept {
    const int result = pthread_mutex_trylock(&Mutex);
    if (result == EBUSY) return false;
    if (result == EOWNERDEAD) pthread_mutex_consistent(&Mutex);
    if (result == 0 && IsHeldByCaller()) {
      ++Depth;
    } else if (result == 0 || result == EOWNERDEAD) {
      __atomic_store_n(&Holder, CurrentThreadId(), __ATOMIC_RELAXED);
      Depth = 1;
    }
    return true;
  }

  bool Release(TFutexScope scope) noexcept {
    if (!IsHeldByCaller()) return false;
    const bool isLast = --Depth == 0;
    if (isLast) __atomic_store_n(&Holder, 0, __ATOMIC_RELAXED);
    if (pthread_mutex_unlock(&Mutex) != 0) return false;
    if (!isLast) return true;
    __atomic_add_fetch(&Releases, 1, __ATOMIC_SEQ_CST);
    if (__atomic_load_n(&Waiters, __ATOMIC_SEQ_CST) != 0) FutexWake(&Releases, 1, scope);
    return true;
  }
};

}  // namespace

struct TMutex::TState {
  TBlock Own;
  TBlock* Block = &Own;
  TNamedMemory Shared;
  std::string Name;
  int32_t Users = 1;       // named: guarded by the table
  TState* Next = nullptr;  // guarded by the table

  TFutexScope Scope() const noexcept {
    return Block == &Own ? TFutexScope::Process : TFutexScope::System;
  }

  /// Gives up what the caller holds. False when another thread holds it: its memory is then on
  /// that thread's list and has to stay.
  bool TryRetire() noexcept {
    while (Block->Release(Scope())) {
    }
    if (!Block->TryTake()) return false;
    Block->Release(Scope());
    if (Block == &Own) pthread_mutex_destroy(&Own.Mutex);
    return true;
  }
};

/// The named mutexes of this process, one state for each name however many objects it has, and
/// the states that no object uses but some thread still holds.
struct TMutex::TTable {
  std::mutex Lock;
  TState* First = nullptr;  // guarded by Lock
  bool HasOrphans = false;  // atomic

  // Never destroyed: objects may end after the statics of this module.
  static TTable& Instance() {
    static auto* table = new TTable;
    return *table;
  }

  TState* Open(std::string_view name) {
    const std::lock_guard<std::mutex> guard(Lock);
    for (TState* state = First; state; state = state->Next) {
      if (state->Name == name) {
        ++state->Users;
        return state;
      }
    }
    auto* state = new TState;
    state->Name = name;
    const bool isShared = true;
    if (!state->Shared.Open("mutex", name, sizeof(TBlock), TBlock::Make, &isShared)) {
      delete state;
      return nullptr;
    }
    state->Block = static_cast<TBlock*>(state->Shared.Block());
    state->Next = First;
    First = state;
    return state;
  }

  void Close(TState* state) noexcept {
    if (state->Name.empty()) {
      if (state->TryRetire()) {
        delete state;
        if (!__atomic_load_n(&HasOrphans, __ATOMIC_RELAXED)) return;
        state = nullptr;
      }
    }
    const std::lock_guard<std::mutex> guard(Lock);
    if (state) {
      --state->Users;
      if (state->Name.empty()) {
        state->Next = First;
        First = state;
      }
    }
    RetireUnused();
  }

  void RetireUnused() noexcept {
    bool hasOrphans = false;
    for (TState** link = &First; *link;) {
      TState* state = *link;
      if (state->Users == 0 && state->TryRetire()) {
        *link = state->Next;
        delete state;
      } else {
        hasOrphans |= state->Users == 0;
        link = &state->Next;
      }
    }
    __atomic_store_n(&HasOrphans, hasOrphans, __ATOMIC_RELAXED);
  }
};

TMutex::TMutex(std::string_view name) {
  if (!name.empty()) {
    FState = TTable::Instance().Open(name);
    return;
  }
  FState = new TState;
  TBlock::Make(&FState->Own, nullptr);
}

TMutex::~TMutex() {
  if (FState) TTable::Instance().Close(FState);
}

bool TMutex::Acquire(uint32_t timeoutMs) noexcept {
  return !FState || FState->Block->TryTake() || (timeoutMs != 0 && WaitForTurn(timeoutMs));
}

bool TMutex::WaitForTurn(uint32_t timeoutMs) noexcept {
  TBlock& block = *FState->Block;
  const TDeadline deadline(timeoutMs);
  __atomic_add_fetch(&block.Waiters, 1, __ATOMIC_SEQ_CST);
  bool isTaken = false;
  for (;;) {
    const uint32_t releases = __atomic_load_n(&block.Releases, __ATOMIC_SEQ_CST);
    isTaken = block.TryTake();
    if (isTaken || deadline.HasPassed()) break;
    FutexWait(&block.Releases, releases, deadline.WithinSlice(LookAgainMs), FState->Scope());
  }
  __atomic_sub_fetch(&block.Waiters, 1, __ATOMIC_RELAXED);
  return isTaken;
}

bool TMutex::Release() noexcept {
  return FState && FState->Block->Release(FState->Scope());
}

}  // namespace Talvo::Platform
