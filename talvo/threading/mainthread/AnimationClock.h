// SPDX-License-Identifier: Apache-2.0
#pragma once
// The animation clock: one beat for the whole process.
//
//   TProc<> link = TAnimationClock::Subscribe([&] { phase += step; });   // on the clock's thread
//   TAnimationClock::Unsubscribe(link);
//
// Sixty ticks a second unless set otherwise, on a grid of its own: a late tick does not delay the
// next, and one that comes too late altogether is left out. While nobody subscribes, nothing runs.

#include <talvo/runtime/Function.h>
#include <talvo/threading/threads/BasicThread.h>

namespace Talvo {

class IEvent;

/// A thread that calls a function in a regular beat. All operations may be called on any thread.
class IAnimationClockThread : public virtual IThread {
  TALVO_INTERFACE(IAnimationClockThread, IThread);
  /// No tick begins after this, until Start. Does not wait for one that is under way.
  virtual void Stop() = 0;
  /// Goes on ticking, on a new grid that begins now. Nothing happens when it ticks already.
  virtual void Start() = 0;
};

/// Ticks from the start, until it is stopped or terminated. What the function raises ends it.
class TALVO_API TAnimationClockThread : public TImplements<TBasicThread, IAnimationClockThread> {
 public:
  TAnimationClockThread(string name, TProc<> onTick, uint32_t ticksPerSecond);
  ~TAnimationClockThread() override;
  /// `ticksPerSecond` is 1 to 1000, else ERangeError.
  static TRef<TAnimationClockThread> CreateObject(string name, TProc<> onTick,
                                                  uint32_t ticksPerSecond = 60);
  static TRef<IAnimationClockThread> Make(string name, TProc<> onTick,
                                          uint32_t ticksPerSecond = 60);

  void Stop() override;
  void Start() override;
  /// Takes effect with the next tick; 1 to 1000, else ERangeError.
  void SetTicksPerSecond(uint32_t value);
  void Terminate() override;

 protected:
  void ExecuteLoop() override;
  void DoTerminate() override;

 private:
  friend class TAnimationClock;
  bool WaitForNextTick();
  /// Terminates the thread and lets it keep itself alive until it has ended: nobody else's last
  /// reference waits for it. Called once, of a thread whose function does not raise.
  void TerminateUnattended();

  const TProc<> FOnTick;
  uint32_t FTicksPerSecond;     // atomic
  const TRef<IEvent> FEnabled;  // set while it ticks
  const TRef<IEvent> FChanged;  // wakes it between two ticks
  // The grid counts from here on: nanoseconds of the steady clock. The thread's own.
  int64_t FOrigin = 0;
  uint32_t FGridRate = 0;             // 0 to begin a new grid
  TRef<TAnimationClockThread> FSelf;  // set in front of the termination, dropped on the thread
};

/// The process's clock. All operations may be called on any thread, subscribers included.
class TALVO_API TAnimationClock : public TBasicObject {
 public:
  TAnimationClock() = delete;

  /// Called by the module at its start and its end. The clock's thread is asked to end and not
  /// waited for.
  static void Init();
  static void Close();

  /// Calls the subscribers of this moment in their order. The clock's thread calls it at each
  /// tick. What a subscriber raises is swallowed and does not stop those behind it.
  static void Clock();

  /// Adds a subscriber, once more if it is there already, and returns it for the removal. The
  /// first one starts the clock. An empty one is not added.
  static TProc<> Subscribe(TProc<> proc);
  /// Removes a subscriber once and empties `proc`; false when `proc` is empty already. A call that
  /// is under way on the clock's thread is not waited for.
  static bool Unsubscribe(TProc<>& proc);

  /// Ticks a second, 1 to 1000, else ERangeError. Takes effect with the next tick.
  static void SetTicksPerSecond(uint32_t value);
  static uint32_t GetTicksPerSecond();
};

}  // namespace Talvo
