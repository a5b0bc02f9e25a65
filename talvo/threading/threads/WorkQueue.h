// SPDX-License-Identifier: Apache-2.0
#pragma once
// The queue of a processing thread.

#include <talvo/containers/list/LinkedNodes.h>
#include <talvo/platform/Sync.h>
#include <talvo/threading/threads/ProcessingThread.h>

namespace Talvo::Detail {

/// A blocking caller's item. The item may outlive its caller, who was told to give up.
class TBlockingItem;

/// What a processing thread works on. The thread keeps it to the end, which may come after that of
/// the object: whatever follows a call of a work item touches only this.
///
/// The section guards the list of items, the list of procedures for the end, and the gate. It is
/// recursive: who is called inside may come back.
class TWorkQueue final : public TInterfacedObject {
 public:
  explicit TWorkQueue(TProcWithProcessingThread onEmpty) : FOnEmpty(std::move(onEmpty)) {}

  void Add(const TProcessingThread& thread, const TWorkItem& item, bool isFirst);
  void AddTerminated(const TProcessingThread& thread, const TProc<>& proc);
  int32_t CountWaiting(const TProcessingThread& thread);
  void Cancel(TProcessingThread& thread, const TWorkItem& item);
  void Clear(TProcessingThread& thread);
  void Wake() noexcept { FEvent.Signal(); }

  /// Waits until `item` has run, or its caller is released.
  void WaitFor(TBlockingItem& item);
  void ReleaseWaiting();

  /// On the thread: waits to be woken, runs what is queued, and tells that the queue is empty.
  void Turn(TProcessingThread& thread);
  /// On the thread: runs what is queued and what is added meanwhile.
  void Drain(TProcessingThread& thread);
  /// On the thread: runs the procedures for the end, inside the section.
  void RunTerminated();
  /// Nothing runs any more: blocking callers are released, those who come later at once.
  void End();

 private:
  class THold;

  void Enter(const TProcessingThread* thread);
  bool Pop(TProcessingThread& thread, TWorkItem& item, bool isRecorded);
  void Run(TProcessingThread& thread, const TWorkItem& item) noexcept;
  void WaitForItem(uint32_t executed);

  Platform::TCriticalSection FSection;
  TLinkedNodes<TWorkItem> FItems;
  TLinkedNodes<TProc<>> FTerminatedProcs;
  Platform::TEvent FEvent{{}, /*isManual*/ false, /*isSignalled*/ false};
  const TProcWithProcessingThread FOnEmpty;

  // The item that runs. Set inside the section, and set back when it has run.
  const void* FInExecution = nullptr;  // atomic
  uint32_t FCountExecuted = 0;         // atomic
  uint32_t FCountCancelling = 0;       // atomic: threads that wait for FCountExecuted to change
  // 1 while the section is held by a thread that waits in Cancel: all but the item it waits for
  // keep out. Set inside the section.
  uint32_t FGate = 0;  // atomic

  Platform::TCriticalSection FBlockingSection;
  TLinkedNodes<TBlockingItem*> FBlocking;  // guarded by FBlockingSection
  bool FHasEnded = false;                  // guarded by FBlockingSection
};

class TBlockingItem final : public TImplements<TInterfacedObject, TWorkItem::TTarget> {
 public:
  explicit TBlockingItem(TWorkItem item) : FItem(std::move(item)) {}
  void Invoke(const TRef<IProcessingThread>& thread, bool isRun) override;
  void Wait() noexcept { FEvent.Wait(Platform::NoTimeLimit); }
  void Signal() noexcept { FEvent.Signal(); }

 private:
  const TWorkItem FItem;
  Platform::TEvent FEvent{{}, /*isManual*/ false, /*isSignalled*/ false};
};

}  // namespace Talvo::Detail
