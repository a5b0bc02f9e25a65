// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/lock/LockSections.h>

#include <cstring>
#include <new>
#include <talvo/runtime/Exceptions.h>
#include <talvo/threading/lock/LockWindow.h>

namespace Talvo {

using Detail::TLockThread;

namespace {

TLock* InstanceOf(const TRef<IBasicLock>& lock) {
  Assert(static_cast<bool>(lock));
  auto* instance = dynamic_cast<TLock*>(lock->GetInstance());
  Assert(instance != nullptr);
  return instance;
}

/// For destructors: there is nobody to tell that a count has come to its end, where it stays, or
/// that another lock cannot be had.
template <class TCode>
void Quietly(TCode code) noexcept {
  try {
    code();
  } catch (...) {
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
  if (FOwner) FOwner->EndSection();
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
  if (FOwner) FOwner->EndSection();
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
  FReserve = TLockThread::Reserve();
  owner->GiveUp(FCountLocks, FCountOtherLocks);
  FOwner = owner;
}

TSimpleUnlockSection::~TSimpleUnlockSection() {
  if (FReserve) TLockThread::EndReserve(FReserve);
  if (!FOwner) return;
  TRef<ILockSection> first;
  if (FFirstLockIntf) Quietly([&] { first = FFirstLockIntf->WriteLock(); });
  Quietly([this] { FOwner->IntBeginWrite(FCountLocks, FCountOtherLocks); });
}

// ---- What locks make --------------------------------------------------------------------------

/// A section that its lock counts, in memory that threads keep for sections.
template <class TSection>
class __attribute__((visibility("hidden"))) TLock::TKept : public TSection {
 public:
  explicit TKept(TLock& owner) noexcept : TSection(owner) {}

 protected:
  // Ends the section without the destructors: of what they would let go it has nothing.
  static void operator delete(TKept* section, std::destroying_delete_t) {
    static_assert(sizeof(TKept) == TLockThread::SectionSize);
    TLockThread& self = TLockThread::CurrentOrNobody();
    section->FOwner->EndKept(self);
    std::memset(static_cast<void*>(section), 0xFF, sizeof(TKept));
    // Keeps the fill, which nobody seems to read.
    asm volatile("" : : "r"(section) : "memory");
    self.ReturnMemory(section);
  }
};

/// They go by the names of what they are to callers. As classes that nobody else knows they are
/// made by plain stores.
struct __attribute__((visibility("hidden"))) TLock::TKeptAs {
  class TSimpleReadLockSection final : public TKept<Talvo::TSimpleReadLockSection> {
    using TKept::TKept;
  };
  class TSimpleWriteLockSection final : public TKept<Talvo::TSimpleWriteLockSection> {
    using TKept::TKept;
  };
};

template <class TSection>
[[gnu::always_inline]] inline TRef<ILockSection> TLock::NewSection() {
  TLockThread& self = TLockThread::Current();
  struct TMemory {
    TLockThread& Self;
    void* Place = Self.TakeMemory();
    ~TMemory() {
      if (Place) Self.ReturnMemory(Place);
    }
  } memory{self};
  if (!TryBegin(self, 1) && !BeginKept(self)) return {};
  void* place = std::exchange(memory.Place, nullptr);
  return TRef<ILockSection>::Adopt(::new (place) TSection(*this));
}

/// Waits for a turn of a section that the lock counts; false when it is refused.
bool TLock::BeginKept(TLockThread& self) {
  TRef<ILockSection> none;
  if (WaitForTurn(self, 1, {}, none)) return true;
  CountRefused(self);
  return false;
}

TRef<ILockSection> TLock::ReadLock() {
  return NewSection<TKeptAs::TSimpleReadLockSection>();
}
TRef<ILockSection> TLock::WriteLock() {
  return NewSection<TKeptAs::TSimpleWriteLockSection>();
}
TRef<ILockSection> TLock::StopLock() {
  return TSimpleStopLockSection::Make(TRef<IBasicLock>(*this));
}
TRef<ILockSection> TLock::UnlockAll() {
  return TSimpleUnlockSection::Make(TRef<IBasicLock>(*this));
}
TRef<ILockSection> TLock::UnlockAllLockInOrder(const TRef<IBasicLock>& firstLock) {
  return TSimpleUnlockSection::Make(TRef<IBasicLock>(*this), firstLock);
}

}  // namespace Talvo
