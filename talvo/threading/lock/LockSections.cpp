// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/lock/LockSections.h>

#include <cstring>
#include <talvo/runtime/Exceptions.h>
#include <talvo/threading/lock/LockThread.h>

namespace Talvo {
namespace {

TLock* InstanceOf(const TRef<IBasicLock>& lock) {
  Assert(static_cast<bool>(lock));
  auto* instance = dynamic_cast<TLock*>(lock->GetInstance());
  Assert(instance != nullptr);
  return instance;
}

// Both kinds are stored alike for the sections to come.
static_assert(sizeof(TSimpleReadLockSection) == Detail::TLockThread::SectionSize);
static_assert(sizeof(TSimpleWriteLockSection) == Detail::TLockThread::SectionSize);

void StoreMemory(void* memory) noexcept {
  std::memset(memory, 0xFF, Detail::TLockThread::SectionSize);
  // Keeps the fill, which nobody seems to read.
  asm volatile("" : : "r"(memory) : "memory");
  Detail::TLockThread::Current().ReturnMemory(memory);
}

/// For destructors: there is nobody to tell that a count has come to its end, where it stays.
template <class TCode>
void Quietly(TCode code) noexcept {
  try {
    code();
  } catch (const EIntOverflow&) {
  }
}

}  // namespace

TSimpleReadLockSection::TSimpleReadLockSection(TRef<IBasicLock> lock,
                                               TRef<IBasicLock> unlockLock) noexcept
    : FOwnerIntf(std::move(lock)), FUnlockLock(std::move(unlockLock)) {}

void TSimpleReadLockSection::Construct() {
  TLock* owner = InstanceOf(FOwnerIntf);
  FLocked = owner->BeginSection(std::exchange(FUnlockLock, {}), FUnlockSection);
  FOwner = owner;
}

TSimpleReadLockSection::~TSimpleReadLockSection() {
  if (FOwner) FOwner->EndSection(!FOwnerIntf);
}

void TSimpleReadLockSection::operator delete(void* memory, size_t size) {
  if (size == sizeof(TSimpleReadLockSection)) {
    StoreMemory(memory);
  } else {
    TBasicInterfacedObject::operator delete(memory, size);
  }
}

TSimpleWriteLockSection::TSimpleWriteLockSection(TRef<IBasicLock> lock,
                                                 TRef<IBasicLock> unlockLock) noexcept
    : TSimpleLockSection(std::move(lock)), FUnlockLock(std::move(unlockLock)) {}

void TSimpleWriteLockSection::Construct() {
  TLock* owner = InstanceOf(FOwnerIntf);
  FLocked = owner->BeginSection(std::exchange(FUnlockLock, {}), FUnlockSection);
  FOwner = owner;
}

TSimpleWriteLockSection::~TSimpleWriteLockSection() {
  if (FOwner) FOwner->EndSection(!FOwnerIntf);
}

void TSimpleWriteLockSection::operator delete(void* memory, size_t size) {
  if (size == sizeof(TSimpleWriteLockSection)) {
    StoreMemory(memory);
  } else {
    TBasicInterfacedObject::operator delete(memory, size);
  }
}

TSimpleStopLockSection::TSimpleStopLockSection(TRef<IBasicLock> lock) noexcept
    : TSimpleLockSection(std::move(lock)) {}

void TSimpleStopLockSection::Construct() {
  TLock* owner = InstanceOf(FOwnerIntf);
  owner->AnnounceStop();
  // The stop has a count of its own from here on; the announcement's is taken back.
  struct TAnnounced {
    TLock* Owner;
    ~TAnnounced() { Owner->CountStop(-1); }
  } announced{owner};
  owner->BeginStop();
  FOwner = owner;
}

TSimpleStopLockSection::~TSimpleStopLockSection() {
  if (FOwner) Quietly([this] { FOwner->EndStop(); });
}

TSimpleUnlockSection::TSimpleUnlockSection(TRef<IBasicLock> lock,
                                           TRef<IBasicLock> firstLock) noexcept
    : TSimpleLockSection(std::move(lock)), FFirstLockIntf(std::move(firstLock)) {}

void TSimpleUnlockSection::Construct() {
  TLock* owner = InstanceOf(FOwnerIntf);
  owner->GiveUp(FCountLocks, FCountOtherLocks);
  FOwner = owner;
}

TSimpleUnlockSection::~TSimpleUnlockSection() {
  if (!FOwner) return;
  TRef<ILockSection> first;
  if (FFirstLockIntf) first = FFirstLockIntf->WriteLock();
  Quietly([this] { FOwner->IntBeginWrite(FCountLocks, FCountOtherLocks); });
}

}  // namespace Talvo
