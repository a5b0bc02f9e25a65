// SPDX-License-Identifier: Apache-2.0
#pragma once
// What each thread keeps for its locks. For the insides of the library only.

#include <cstddef>
#include <cstdint>

#if defined(__SANITIZE_ADDRESS__)
#define TALVO_SECTION_STORE 0
#elif defined(__clang__)
#if __has_feature(address_sanitizer)
#define TALVO_SECTION_STORE 0
#endif
#endif
#ifndef TALVO_SECTION_STORE
#define TALVO_SECTION_STORE 8
#endif

namespace Talvo {

class TLock;

namespace Platform {
class TThreadEndNotice;
}  // namespace Platform

namespace Detail {

/// The identity of a thread as the owner of locks, and its store of section memory. A thread gets
/// one when it first begins something, which needs memory. Identities are used again but never
/// freed; that of a thread that ended as an owner waits until its locks have been set free.
class alignas(64) TLockThread {
 public:
  static TLockThread& Current() {
    TLockThread* current = GCurrent;
    return current ? *current : Begin();
  }
  /// For ends, which must not fail: a thread without an identity shares one that never owns a lock
  /// nor stores memory.
  static TLockThread& CurrentOrNobody() noexcept {
    TLockThread* current = GCurrent;
    return current ? *current : GNobody;
  }

  /// An identity kept ready for whichever thread is to begin something that must not fail.
  static TLockThread* Reserve();
  /// Gives it to the calling thread if that has none, else back.
  static void EndReserve(TLockThread* reserve) noexcept;

  /// Tells that this thread is about to look at `lock` and change it; null when it has done so.
  void SetBusy(const TLock* lock) noexcept { __atomic_store_n(&FBusy, lock, __ATOMIC_RELEASE); }
  /// Waits until the thread is done with `lock`.
  void WaitWhileBusy(const TLock* lock) const noexcept;

  /// Counts the locks that this thread owns, on the thread itself.
  void CountTaken() noexcept { ++FTaken; }
  void CountReleased() noexcept { --FTaken; }
  /// Takes one away on any thread, which has just set that lock free.
  void CountReleasedByOther() noexcept {
    __atomic_add_fetch(&FReleased, 1, __ATOMIC_SEQ_CST);
    Retire();
  }
  /// Whether the thread ended as an owner.
  bool IsDead() const noexcept { return __atomic_load_n(&FIsDead, __ATOMIC_SEQ_CST); }

  /// Memory for a read or write section.
  void* TakeMemory() { return FStored > 0 ? FStore[--FStored] : AllocateMemory(); }
  void ReturnMemory(void* memory) noexcept {
    if (FStored < StoreSize) {
      FStore[FStored++] = memory;
    } else {
      FreeMemory(memory);
    }
  }
  static constexpr size_t SectionSize = 64;

 private:
  // AddressSanitizer is to see the end of every section.
  static constexpr uint32_t StoreSize = TALVO_SECTION_STORE;

  constexpr TLockThread() noexcept = default;
  /// One that stores nothing.
  explicit constexpr TLockThread(uint32_t stored) noexcept : FStored(stored) {}

  static Platform::TThreadEndNotice& EndNotice() noexcept;
  static TLockThread& Begin();
  static void Begin(TLockThread* thread) noexcept;
  static void AtEnd(void* thread);
  void Retire() noexcept;
  bool OwnsAny() const noexcept { return FTaken != __atomic_load_n(&FReleased, __ATOMIC_SEQ_CST); }
  static void* AllocateMemory();
  static void FreeMemory(void* memory) noexcept;

  static constinit thread_local TLockThread* GCurrent __attribute__((tls_model("initial-exec")));
  static constinit TLockThread GNobody;

  const TLock* FBusy = nullptr;  // atomic
  uint32_t FTaken = 0;
  uint32_t FReleased = 0;  // atomic
  bool FIsDead = false;    // atomic
  uint32_t FRoundsLeft = 0;
  uint32_t FStored = 0;
  void* FStore[StoreSize + 1] = {};
  TLockThread* FNextFree = nullptr;  // while no thread has it
};

}  // namespace Detail
}  // namespace Talvo
