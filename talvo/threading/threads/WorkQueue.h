// SPDX-License-Identifier: Apache-2.0
#pragma once
// The queue of a processing thread.

#include <talvo/containers/list/LinkedNodes.h>
#include <talvo/platform/Sync.h>
#include <talvo/threading/threads/ItemRing.h>

namespace Talvo::Detail {

class TBlockingItem;

/// Has work for queues that have none, whose section it shares.
class TWorkSource {
 public:
  /// A queue is empty: adds to it what there is. Inside the section.
  virtual void AddMore() noexcept = 0;

 protected:
  ~TWorkSource() = default;
};

/// What a processing thread works on. The thread keeps it to the end, which may come after that of
/// the object: whatever follows a call of a work item touches only this.
///
/// The section guards the list of items, the list of procedures for the end, and the gate. It is
/// recursive: who is called inside may come back.
///
/// The thread comes to the section once for many items: it borrows the first ones, and begins them
/// one after the other without the section. Whoever needs the list as it is takes back what has not
/// begun, and the thread has to come again. Nothing else can tell that there was a loan.
class TWorkQueue final : public TInterfacedObject {
 public:
  using TItem = TRef<TWorkItem::TTarget>;

  /// With `section`, a queue that others see into, who share that section and may have more work.
  /// What `onEmpty` holds keeps both.
  explicit TWorkQueue(TProcWithProcessingThread onEmpty,
                      Platform::TCriticalSection* section = nullptr, TWorkSource* source = nullptr)
      : FSection(section ? *section : FOwn), FSource(source), FOnEmpty(std::move(onEmpty)) {}
  ~TWorkQueue() override { TakeBack(); }

  void Add(const TProcessingThread& thread, const TWorkItem& item, bool isFirst);
  void AddTerminated(const TProcessingThread& thread, const TProc<>& proc);
  int32_t CountWaiting(const TProcessingThread& thread);
  void Cancel(TProcessingThread& thread, const TWorkItem& item);
  void Clear(TProcessingThread& thread);
  void Wake() noexcept { FEvent.Signal(); }

  // For those who share the section, and are inside.
  /// Adds an item, which is moved from if that succeeds; true when the thread has to be woken.
  bool AddInside(TItem& item);
  /// Whether no more than `limit` items wait.
  bool IsWithin(int64_t limit) const { return FItems.Count() <= limit || CountInside() <= limit; }
  void RemoveInside(const TWorkItem::TTarget* item);
  /// Takes the first item out; false when there is none.
  bool PopInside(TItem& item);

  /// Releases those who wait, all at once.
  void ReleaseWaiting();
  class TWaiting;

  /// On the thread: waits to be woken, runs what is queued, and tells that the queue is empty.
  void Turn(TProcessingThread& thread);
  /// On the thread, once: runs what is queued and what is added meanwhile.
  void Drain(TProcessingThread& thread);
  /// On the thread: runs the procedures for the end, inside the section.
  void RunTerminated();
  /// Nothing runs any more: blocking callers are released, those who come later at once.
  void End();

 private:
  using TTarget = TWorkItem::TTarget;
  class THold;

  void Enter(const TProcessingThread* thread);
  bool IsRunning() const;
  int32_t CountInside() const;
  bool BeginLent() noexcept;
  bool BeginNext(TProcessingThread& thread);
  static void Finish(uint32_t& step) noexcept;
  uint32_t TakeBack() noexcept;
  TItem TakeAt(int32_t index);
  void WaitForStep(uint32_t& at, uint32_t step);
  void Run(TProcessingThread& thread, const TWorkItem& item) noexcept;

  static constexpr size_t CacheLine = 64;

  // What those who post touch; all is guarded by FSection.
  alignas(CacheLine) Platform::TCriticalSection FOwn;
  Platform::TCriticalSection& FSection;  // FOwn, or another one
  // 1 while the section is held by a thread that waits in Cancel: all but the item it waits for
  // keep out. Set inside the section.
  uint32_t FGate = 0;     // atomic
  bool FIsAwake = false;  // the thread will look before it waits
  // While Clear tells the items: the index of the one it is at, and how many that it has not told
  // were added in front.
  bool FIsClearing = false;
  int32_t FCleared = 0;
  int32_t FAddedFirst = 0;
  TItemRing FItems;  // those lent come first
  TLinkedNodes<TProc<>> FTerminatedProcs;

  // What the thread touches. The step is twice the number of the items lent that have ended, and
  // one more while one runs. The thread counts up, without the section as long as it is not closed.
  static constexpr uint32_t Closed = 1U << 30;   // there is no loan: set inside the section
  static constexpr uint32_t Awaited = 1U << 29;  // somebody sleeps until the item has run
  static constexpr uint32_t StepMask = Awaited - 1;
  static constexpr int32_t MostLent = 64;
  alignas(CacheLine) uint32_t FStep = Closed;  // atomic
  // Changed by the thread inside the section. Who begins an item owns it.
  uint32_t FCountLent = 0;
  TTarget* FLent[MostLent];
  // The same for the items that Drain runs, one by one.
  uint32_t FDrainStep = 0;      // atomic
  TTarget* FDrained = nullptr;  // guarded by FSection
  TWorkSource* const FSource;
  const TProcWithProcessingThread FOnEmpty;

  alignas(CacheLine) Platform::TEvent FEvent{{}, /*isManual*/ false, /*isSignalled*/ false};
  Platform::TCriticalSection FBlockingSection;
  TLinkedNodes<TBlockingItem*> FBlocking;  // guarded by FBlockingSection
  bool FHasEnded = false;                  // guarded by FBlockingSection
};

/// A blocking caller, from before its item is queued until it goes on.
class TWorkQueue::TWaiting {
 public:
  TWaiting(TWorkQueue& queue, TBlockingItem& item);
  TWaiting(const TWaiting&) = delete;
  ~TWaiting();
  /// Until the item has run, or the caller is released.
  void Wait() const;

 private:
  TWorkQueue& FQueue;
  TBlockingItem& FItem;
  bool FIsListed = false;
};

/// A blocking caller's item: a work item, or a procedure, which hears nothing when it is told
/// false. It may outlive its caller, who was told to give up.
class TBlockingItem final : public TImplements<TInterfacedObject, TWorkItem::TTarget> {
 public:
  explicit TBlockingItem(TWorkItem item) : FItem(std::move(item)) {}
  explicit TBlockingItem(TProc<> proc) : FProc(std::move(proc)) {}
  void Invoke(const TRef<IProcessingThread>& thread, bool isRun) override;
  void Wait() noexcept { FEvent.Wait(Platform::NoTimeLimit); }
  void Signal() noexcept { FEvent.Signal(); }

 private:
  const TWorkItem FItem;
  const TProc<> FProc;
  Platform::TEvent FEvent{{}, /*isManual*/ false, /*isSignalled*/ false};
};

}  // namespace Talvo::Detail
