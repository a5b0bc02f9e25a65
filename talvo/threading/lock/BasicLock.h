// SPDX-License-Identifier: Apache-2.0
#pragma once
// The vocabulary of locks: a lock whose every acquisition is a section object.
//
//   if (auto section = lock->WriteLock()) {      // until `section` goes
//     value = 1;
//   }                                            // else: refused, leave the object alone
//
// Besides reading and writing there is a third mode. Whoever wants to shut an object down takes a
// stop section: from that moment all other threads that ask for a section get an empty one at
// once, those that wait already within 20 ms, and walk away instead of queueing up behind the end.
// Only the thread that is inside at that moment goes on, and deeper, until it is out.
//
//   auto stop = lock->StopLock();                // waits for whoever is inside, no longer
//   ...                                          // nobody else comes in while `stop` lives

#include <talvo/runtime/Function.h>
#include <talvo/runtime/Object.h>

namespace Talvo {

/// A hold on a lock; dropping the last reference ends it. Any thread may do that. Dropping what
/// UnlockAll gave waits for the lock, and the thread that drops it becomes the owner.
class ILockSection : public virtual IInterface {
  TALVO_INTERFACE(ILockSection, IInterface);
};

/// A lock. Any thread may call.
class IBasicLock : public virtual IInterface {
  TALVO_INTERFACE(IBasicLock, IInterface);
  /// The object that does the locking: a TLock, for locks that its sections can hold.
  virtual TObject* GetInstance() = 0;

  /// Waits until the caller may read, and keeps others from writing. Empty when refused: another
  /// thread is stopping the object, whose state must not be touched.
  virtual TRef<ILockSection> ReadLock() = 0;
  /// Waits until the caller may write, and keeps others out. Empty when refused, as with ReadLock.
  virtual TRef<ILockSection> WriteLock() = 0;
  /// Announces a stop, then waits until the caller has the lock. Never empty. While the section
  /// lives, and from the announcement on, other threads' requests are refused; those that wait
  /// already come back empty within 20 ms. The owner of the moment is not refused: while the caller
  /// waits for it, it may still go deeper.
  virtual TRef<ILockSection> StopLock() = 0;
  /// Gives up all that the calling thread holds of this lock, however deep; the end of the section
  /// takes it back at the same depth. Without effect when another thread holds the lock.
  ///
  /// Dropping the section blocks until the lock is had, and the thread that drops it is the owner
  /// then. While another thread stops the object it does not block, and nothing is taken back: the
  /// caller goes on without the lock, and its sections end without one.
  virtual TRef<ILockSection> UnlockAll() = 0;
  /// The same, but the end of the section takes a write section of `firstLock` first and lets it
  /// go last: so a thread that holds this lock waits for something and comes back in the order
  /// firstLock, this lock. When `firstLock` refuses, this lock is taken back without it. An empty
  /// `firstLock` makes it UnlockAll.
  virtual TRef<ILockSection> UnlockAllLockInOrder(const TRef<IBasicLock>& firstLock) = 0;

  /// Runs `proc` inside a read section. A refused body still runs: it has to live with a stop that
  /// is under way. Where that will not do, take the section and look at it. Here and below an empty
  /// `proc` is an assertion failure, and the lock is left alone.
  virtual void ExecuteRead(TFunctionRef<void()> proc) = 0;
  /// Runs `proc` inside a write section; a refused body still runs.
  virtual void ExecuteWrite(TFunctionRef<void()> proc) = 0;
  /// Runs `proc` inside a stop section.
  virtual void ExecuteStop(TFunctionRef<void()> proc) = 0;
  /// Runs `proc` while all that the calling thread holds is given up, as with UnlockAll.
  virtual void ExecuteUnlockAll(TFunctionRef<void()> proc) = 0;
  /// The same, with the lock taken back as by UnlockAllLockInOrder: behind a write section of
  /// `firstLock`, which may be empty. Blocks for both when `proc` has returned, or raised.
  virtual void ExecuteUnlockAllLockInOrder(const TRef<IBasicLock>& firstLock,
                                           TFunctionRef<void()> proc) = 0;
};

/// The part that all locks share: running code inside a section. The section ends after the code,
/// also when that raises.
class TALVO_API TBasicLock : public TImplements<TBasicNoCreateInterfacedObject, IBasicLock> {
 public:
  TObject* GetInstance() override { return this; }
  void ExecuteRead(TFunctionRef<void()> proc) override;
  void ExecuteWrite(TFunctionRef<void()> proc) override;
  void ExecuteStop(TFunctionRef<void()> proc) override;
  void ExecuteUnlockAll(TFunctionRef<void()> proc) override;
  void ExecuteUnlockAllLockInOrder(const TRef<IBasicLock>& firstLock,
                                   TFunctionRef<void()> proc) override;

 protected:
  using TImplements::TImplements;
};

/// The base of section classes.
class TALVO_API TLockSection : public TImplements<TBasicInterfacedObject, ILockSection> {
 protected:
  TLockSection() noexcept = default;
};

}  // namespace Talvo
