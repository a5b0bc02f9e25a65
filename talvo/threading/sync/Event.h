// SPDX-License-Identifier: Apache-2.0
#pragma once
// Events: flags that threads wait for.
//
//   auto ready = TEvent::Make();          // automatic, not signalled
//   ready->Signal();                      // on one thread: lets one waiter through
//   if (ready->WaitFor(100)) { ... }      // on another

#include <concepts>
#include <talvo/platform/Sync.h>
#include <talvo/runtime/Text.h>
#include <talvo/threading/sync/SynchronizationObject.h>

namespace Talvo {

/// What becomes of the signal when a waiter has got through.
enum TEventResetMode {
  ermAutomatic = 0,  ///< it is taken: of all that wait one gets through
  ermManual = 1      ///< it stays until Reset: all get through
};

/// An event. Any thread may call.
class IEvent : public virtual IBasicSynchronizationObject {
  TALVO_INTERFACE(IEvent, IBasicSynchronizationObject);
  /// Lets waiters through: of those that wait for an automatic event one, for a manual one all,
  /// also when Reset follows at once. Without a waiter it stays set until one comes, or until
  /// Reset; such signals do not add up.
  virtual void Signal() = 0;
  /// Takes the signal back that nobody waited for.
  virtual void Reset() = 0;
  /// True signals, false resets.
  virtual void SetState(bool isSignalled) = 0;
  /// Waits for the signal; false when the time is up first. 0 only looks.
  virtual bool WaitFor(uint32_t timeoutMs) = 0;
};

/// The event of the operating system.
///
/// One with a name is shared by all processes of a user that make one of that name; whoever comes
/// later gets the mode and the state that are there. The name goes with its last event, also when
/// the process crashes. Names are told apart by case; an empty name is none. When the system has
/// no room for the name, or it is another user's, the event has the handle 0, and waiting for it
/// fails at once.
///
/// An automatic event with a name only ever sets its flag, as a waiter may die with its process:
/// signals that follow each other before a waiter has woken up let one through, and Reset takes
/// back what none has taken yet.
///
/// A forked child may use its parent's named event only as long as the parent does: the parent's
/// last drop removes the name. One without a name that threads of the parent wait for is not for
/// the child: they are counted there too, and never come.
class TALVO_API TEvent : public TImplements<TBasicNoCreateInterfacedObject, IEvent> {
 public:
  TEvent(u16string_view name, TEventResetMode resetMode, bool isSignalled);
  ~TEvent() override;

  /// Leaving something out means: automatic, not signalled, without a name.
  static TRef<TEvent> CreateObject(u16string_view name, TEventResetMode resetMode,
                                   bool isSignalled) {
    return Create<TEvent>(name, resetMode, isSignalled);
  }
  static TRef<TEvent> CreateObject(TEventResetMode resetMode, std::same_as<bool> auto isSignalled) {
    return CreateObject({}, resetMode, isSignalled);
  }
  static TRef<TEvent> CreateObject(u16string_view name, std::same_as<bool> auto isSignalled) {
    return CreateObject(name, ermAutomatic, isSignalled);
  }
  static TRef<TEvent> CreateObject(std::same_as<bool> auto isSignalled) {
    return CreateObject({}, ermAutomatic, isSignalled);
  }
  static TRef<TEvent> CreateObject() { return CreateObject({}, ermAutomatic, false); }

  /// CreateObject as an interface.
  static TRef<IEvent> Make(u16string_view name, TEventResetMode resetMode, bool isSignalled) {
    return CreateObject(name, resetMode, isSignalled);
  }
  static TRef<IEvent> Make(TEventResetMode resetMode, std::same_as<bool> auto isSignalled) {
    return CreateObject(resetMode, isSignalled);
  }
  static TRef<IEvent> Make(u16string_view name, std::same_as<bool> auto isSignalled) {
    return CreateObject(name, isSignalled);
  }
  static TRef<IEvent> Make(std::same_as<bool> auto isSignalled) {
    return CreateObject(isSignalled);
  }
  static TRef<IEvent> Make() { return CreateObject(); }

  uint32_t GetHandle() override;
  void Signal() override;
  void Reset() override;
  void SetState(bool isSignalled) override;
  bool WaitFor(uint32_t timeoutMs) override;

 private:
  Platform::TEvent FEvent;
  Platform::THandleNumber FHandle;
};

}  // namespace Talvo
