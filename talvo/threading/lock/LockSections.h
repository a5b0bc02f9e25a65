// SPDX-License-Identifier: Apache-2.0
#pragma once
// The sections of a TLock. Callers get them from the operations of a lock; made by hand they can
// do a little more:
//
//   TRef<ILockSection> section = TSimpleWriteLockSection::Make(lock, otherLock);
//
// waits for `lock`, and when that takes longer than some 200 ms gives up, once, all that the
// calling thread holds of `otherLock`; that is taken back when the section has ended. While
// another thread stops `lock` such a section is made all the same, without a hold: only a lock's
// own ReadLock and WriteLock refuse.
//
// Making a section of a lock whose instance is no TLock is an assertion failure.

#include <talvo/threading/lock/Lock.h>

namespace Talvo {

/// A section that keeps its lock alive.
class TALVO_API TSimpleLockSection : public TLockSection {
 protected:
  explicit TSimpleLockSection(TRef<IBasicLock> lock) noexcept : FOwnerIntf(std::move(lock)) {}
  explicit TSimpleLockSection(TLock& owner) noexcept : FOwner(&owner) {}

  TRef<IBasicLock> FOwnerIntf;  // empty when the lock itself counts the section
  TLock* FOwner = nullptr;      // null until the section has begun
};

/// A read section.
class TALVO_API TSimpleReadLockSection : public TLockSection {
 public:
  explicit TSimpleReadLockSection(TRef<IBasicLock> lock,
                                  TRef<IBasicLock> unlockLock = nullptr) noexcept;
  ~TSimpleReadLockSection() override;
  static TRef<ILockSection> Make(TRef<IBasicLock> lock, TRef<IBasicLock> unlockLock = nullptr) {
    return Create<TSimpleReadLockSection>(std::move(lock), std::move(unlockLock));
  }
  /// False for a section without a hold of the lock.
  bool IsLocked() const noexcept { return FLocked; }

 protected:
  explicit TSimpleReadLockSection(TLock& owner) noexcept : FOwner(&owner), FLocked(true) {}
  void Construct() override;

  TRef<IBasicLock> FOwnerIntf;  // empty when the lock itself counts the section
  TLock* FOwner = nullptr;      // null until the section has begun

 private:
  TRef<IBasicLock> FUnlockLock;
  TRef<ILockSection> FUnlockSection;
  bool FLocked = false;
};

/// A write section.
class TALVO_API TSimpleWriteLockSection : public TSimpleLockSection {
 public:
  explicit TSimpleWriteLockSection(TRef<IBasicLock> lock,
                                   TRef<IBasicLock> unlockLock = nullptr) noexcept;
  ~TSimpleWriteLockSection() override;
  static TRef<ILockSection> Make(TRef<IBasicLock> lock, TRef<IBasicLock> unlockLock = nullptr) {
    return Create<TSimpleWriteLockSection>(std::move(lock), std::move(unlockLock));
  }
  /// False for a section without a hold of the lock.
  bool IsLocked() const noexcept { return FLocked; }

 protected:
  explicit TSimpleWriteLockSection(TLock& owner) noexcept
      : TSimpleLockSection(owner), FLocked(true) {}
  void Construct() override;

 private:
  TRef<IBasicLock> FUnlockLock;
  TRef<ILockSection> FUnlockSection;
  bool FLocked = false;
};

/// A stop section: announces the stop, then waits for the lock.
class TALVO_API TSimpleStopLockSection : public TSimpleLockSection {
 public:
  explicit TSimpleStopLockSection(TRef<IBasicLock> lock) noexcept;
  ~TSimpleStopLockSection() override;
  static TRef<ILockSection> Make(TRef<IBasicLock> lock) {
    return Create<TSimpleStopLockSection>(std::move(lock));
  }

 protected:
  void Construct() override;
};

/// Gives up what the calling thread holds of a lock and takes it back at its end, on whichever
/// thread that comes. What a lock owes to passing stops travels along.
class TALVO_API TSimpleUnlockSection : public TSimpleLockSection {
 public:
  explicit TSimpleUnlockSection(TRef<IBasicLock> lock,
                                TRef<IBasicLock> firstLock = nullptr) noexcept;
  ~TSimpleUnlockSection() override;
  static TRef<ILockSection> Make(TRef<IBasicLock> lock, TRef<IBasicLock> firstLock = nullptr) {
    return Create<TSimpleUnlockSection>(std::move(lock), std::move(firstLock));
  }

 protected:
  void Construct() override;

 private:
  int32_t FCountLocks = 0;
  int32_t FCountOtherLocks = 0;
  TRef<IBasicLock> FFirstLockIntf;
  Detail::TLockThread* FReserve = nullptr;  // for the thread of its end
};

}  // namespace Talvo
