// SPDX-License-Identifier: Apache-2.0
#pragma once
// Critical sections: short, recursive locks of one process.
//
//   auto section = TCriticalSection::Make();
//   section->Access()->Execute([&] { ++count; });          // leaves also when the code raises
//   auto inside = TCriticalSectionLock::Make(section);     // ... until `inside` goes
//
// A thread may enter again what it is in, and leaves as often as it entered.

#include <talvo/platform/LocalSync.h>
#include <talvo/runtime/Function.h>
#include <talvo/threading/sync/SynchronizationObject.h>

namespace Talvo {

class TLockAccess;

/// A critical section.
class ICriticalSection : public virtual IBasicSynchronizationObject {
  TALVO_INTERFACE(ICriticalSection, IBasicSynchronizationObject);
  /// Waits until no other thread is inside, and goes in. Going in more often than int32 counts
  /// raises EIntOverflow and changes nothing.
  virtual void Enter() = 0;
  /// Goes out once. An assertion failure, with no effect, for a thread that is not inside.
  virtual void Leave() = 0;
  /// This object, for the operations that run code inside or outside. Valid as long as it.
  virtual TLockAccess* Access() = 0;
};

/// Runs code inside or outside what can be entered and left. Code that raises changes nothing
/// about that: the thread is afterwards where it was before.
class TALVO_API TLockAccess : public TBasicNoCreateInterfacedObject {
 public:
  /// Code that a class implements and hands out by reference.
  using TProcStd = TRef<IFunction<void()>>;

  /// Waits until it may be entered, and goes out again; as often as one has gone in.
  virtual void Enter() = 0;
  virtual void Leave() = 0;

  /// Runs `proc` inside. Here and in ExecuteLeave an empty `proc` is an assertion failure.
  void Execute(TFunctionRef<void()> proc);
  void Execute(const TProcStd& proc);
  /// The inverse, for a thread that is inside: leaves once, runs `proc` and enters again. On any
  /// other thread an assertion failure, and nothing is run.
  void ExecuteLeave(TFunctionRef<void()> proc);
  void ExecuteLeave(const TProcStd& proc);
  /// Reads the slot `proc` inside and runs what it held outside; an empty slot runs nothing. So
  /// fires a callback that another thread may clear at any time inside this section.
  void ExecuteAssigned(const TProc<>& proc);
  void ExecuteAssigned(const TProcStd& proc);

  /// This object.
  TLockAccess* Access() { return this; }

 protected:
  using TBasicNoCreateInterfacedObject::TBasicNoCreateInterfacedObject;
};

/// The critical section of the operating system.
class TALVO_API TCriticalSection : public TImplements<TLockAccess, ICriticalSection> {
 public:
  TCriticalSection() noexcept : TImplements(Do_Not_Use_This) {}
  static TRef<TCriticalSection> CreateObject() { return Create<TCriticalSection>(); }
  static TRef<ICriticalSection> Make() { return CreateObject(); }

  uint32_t GetHandle() override;
  void Enter() override;
  void Leave() override;
  TLockAccess* Access() override { return this; }

 private:
  Platform::TCriticalSection FSection;
  int32_t FEnterCount = 0;  // entries not yet left; guarded by FSection
  Platform::THandleNumber FHandle;
};

/// The hold of a TCriticalSectionLock.
class ICriticalSectionLock : public virtual IInterface {
  TALVO_INTERFACE(ICriticalSectionLock, IInterface);
};

/// Is inside a critical section for as long as it lives: enters when it is made and leaves with
/// its last reference, which has to go on the same thread.
class TALVO_API TCriticalSectionLock
    : public TImplements<TBasicNoCreateInterfacedObject, ICriticalSectionLock> {
 public:
  explicit TCriticalSectionLock(TRef<ICriticalSection> section) noexcept
      : TImplements(Do_Not_Use_This), FSection(std::move(section)) {}
  ~TCriticalSectionLock() override;
  /// An empty `section` is an assertion failure.
  static TRef<TCriticalSectionLock> CreateObject(TRef<ICriticalSection> section) {
    return Create<TCriticalSectionLock>(std::move(section));
  }
  static TRef<ICriticalSectionLock> Make(TRef<ICriticalSection> section) {
    return CreateObject(std::move(section));
  }

 protected:
  void Construct() override;

 private:
  TRef<ICriticalSection> FSection;
  bool FIsInside = false;
};

}  // namespace Talvo
