// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/Talvo.Threading.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <thread>

// Threads take their identity from here when they first begin something.
static thread_local bool GHasNoAlignedMemory = false;

void* operator new(size_t size, std::align_val_t alignment) {
  const auto unit = static_cast<size_t>(alignment);
  void* memory =
      GHasNoAlignedMemory ? nullptr : std::aligned_alloc(unit, (size + unit - 1) & -unit);
  return memory ? memory : throw std::bad_alloc();
}
void operator delete(void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t, std::align_val_t) noexcept {
  std::free(memory);
}

namespace Talvo {
namespace {

TEST(LockMemoryTest, EndsNeedNoMemory) {
  const auto lock = TLock::CreateObject();
  const auto endElsewhere = [](TRef<ILockSection>& section) {
    std::thread([&] {
      GHasNoAlignedMemory = true;
      section = nullptr;
      GHasNoAlignedMemory = false;
    }).join();
  };
  TRef<ILockSection> section = lock->WriteLock();
  endElsewhere(section);
  EXPECT_EQ(TLockCounters(), lock->Counters());
  section = lock->StopLock();
  endElsewhere(section);
  EXPECT_EQ(0, lock->Counters().InStopCount);
  lock->EndWrite();
  EXPECT_EQ(TLockCounters(), lock->Counters());
  section = lock->WriteLock();
  TRef<ILockSection> unlock = lock->UnlockAll();
  endElsewhere(unlock);
  EXPECT_EQ(1, lock->Counters().CountLocks);
  section = nullptr;
  EXPECT_EQ(TLockCounters(), lock->Counters());
}

}  // namespace
}  // namespace Talvo
