// SPDX-License-Identifier: Apache-2.0
#pragma once
// Mutexes: locks that belong to a thread, in this process or between processes.
//
//   auto mutex = TMutex::Make(u"installer", /*initialOwner*/ false);
//   mutex->Access()->Execute([] { install(); }, /*timeoutMs*/ 500);
//
// A mutex whose holder died, thread or process, goes to the next one that asks for it. What the
// holder was about when it died is for that one to put right.

#include <concepts>
#include <talvo/platform/Sync.h>
#include <talvo/runtime/Function.h>
#include <talvo/runtime/Text.h>
#include <talvo/threading/sync/SynchronizationObject.h>

namespace Talvo {

class TMutex;

/// A mutex.
class IMutex : public virtual IBasicSynchronizationObject {
  TALVO_INTERFACE(IMutex, IBasicSynchronizationObject);
  /// Waits until the caller holds it; false when the time is up first, which is the only way to
  /// fail. The holder gets it again at once and releases as often as it acquired.
  virtual bool MutexAcquire(uint32_t timeoutMs) = 0;
  /// False, with no effect, for a thread that does not hold it.
  virtual bool MutexRelease() = 0;
  /// This object, for the operations that run code while it is held. Valid as long as it.
  virtual TMutex* Access() = 0;
};

/// The mutex of the operating system.
///
/// One with a name is shared by all processes of a user that make one of that name. The name goes
/// with its last mutex, also when the process crashes. Names are told apart by case; an empty name
/// is none. When the system has no room for the name, or it is another user's, the mutex has the
/// handle 0 and excludes nobody. Dropping it gives up what the calling thread holds, unless this
/// process has the mutex open elsewhere. A forked child may use its parent's named mutex only as
/// long as the parent does: the parent's last drop removes the name.
class TALVO_API TMutex : public TImplements<TBasicNoCreateInterfacedObject, IMutex> {
 public:
  /// Code that a class implements and hands out by reference.
  using TProcStd = TRef<IFunction<void()>>;

  explicit TMutex(u16string_view name);
  ~TMutex() override;

  /// Nobody holds a new mutex, whatever `initialOwner` says.
  static TRef<TMutex> CreateObject(u16string_view name, std::same_as<bool> auto /*initialOwner*/) {
    return Create<TMutex>(name);
  }
  static TRef<TMutex> CreateObject(std::same_as<bool> auto initialOwner) {
    return CreateObject({}, initialOwner);
  }
  static TRef<TMutex> CreateObject() { return CreateObject(false); }
  /// CreateObject as an interface.
  static TRef<IMutex> Make(u16string_view name, std::same_as<bool> auto initialOwner) {
    return CreateObject(name, initialOwner);
  }
  static TRef<IMutex> Make(std::same_as<bool> auto initialOwner) {
    return CreateObject(initialOwner);
  }
  static TRef<IMutex> Make() { return CreateObject(); }

  uint32_t GetHandle() override;
  bool MutexAcquire(uint32_t timeoutMs) override;
  bool MutexRelease() override;
  TMutex* Access() override { return this; }

  /// Runs `proc` while the mutex is held; does nothing when the time is up first.
  void Execute(TFunctionRef<void()> proc, uint32_t timeoutMs);
  void Execute(const TProcStd& proc, uint32_t timeoutMs);
  /// The inverse, for the holder: releases once, runs `proc` and acquires again. False when that
  /// takes longer than `timeoutMs`: the caller does not hold the mutex then.
  bool ExecuteLeave(TFunctionRef<void()> proc, uint32_t timeoutMs);
  bool ExecuteLeave(const TProcStd& proc, uint32_t timeoutMs);

 private:
  Platform::TMutex FMutex;
  Platform::THandleNumber FHandle;
};

}  // namespace Talvo
