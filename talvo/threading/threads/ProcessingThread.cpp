// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/threads/ProcessingThread.h>

#include <talvo/threading/threads/WorkQueue.h>

namespace Talvo {
namespace {

/// A procedure as an item; it is not called when the item is told false.
TWorkItem WorkItemOf(TProc<> proc) {
  Assert(static_cast<bool>(proc));
  return [proc = std::move(proc)](const TRef<IProcessingThread>&, bool isRun) {
    if (isRun) proc();
  };
}

}  // namespace

TProcessingThread::TProcessingThread(string name, TProcWithProcessingThread onEmpty)
    : TImplements(std::move(name)), FQueue(Create<Detail::TWorkQueue>(std::move(onEmpty))) {}

TProcessingThread::TProcessingThread(const TComponent* owner, u16string_view name,
                                     TProcWithProcessingThread onEmpty)
    : TImplements(owner, name), FQueue(Create<Detail::TWorkQueue>(std::move(onEmpty))) {}

TProcessingThread::TProcessingThread(const TComponent* owner, u16string_view name,
                                     TRef<Detail::TWorkQueue> queue)
    : TImplements(owner, name), FQueue(std::move(queue)) {}

TProcessingThread::~TProcessingThread() {
  TProcessingThread::Terminate();
}

TRef<TProcessingThread> TProcessingThread::CreateObjectNamed(string name,
                                                             TProcWithProcessingThread onEmpty) {
  return Talvo::Create<TProcessingThread>(std::move(name), std::move(onEmpty));
}

TRef<IProcessingThread> TProcessingThread::MakeNamed(string name,
                                                     TProcWithProcessingThread onEmpty) {
  return CreateObjectNamed(std::move(name), std::move(onEmpty));
}

TRef<TProcessingThread> TProcessingThread::CreateObject(const TComponent* owner,
                                                        TProcWithProcessingThread onEmpty) {
  return CreateObjectComponent(owner, u"TProcessingThread", std::move(onEmpty));
}

TRef<IProcessingThread> TProcessingThread::Make(const TComponent* owner,
                                                TProcWithProcessingThread onEmpty) {
  return CreateObject(owner, std::move(onEmpty));
}

TRef<TProcessingThread> TProcessingThread::CreateObjectComponent(
    const TComponent* owner, u16string_view name, TProcWithProcessingThread onEmpty) {
  return Talvo::Create<TProcessingThread>(owner, name, std::move(onEmpty));
}

TRef<IProcessingThread> TProcessingThread::MakeComponent(const TComponent* owner,
                                                         u16string_view name,
                                                         TProcWithProcessingThread onEmpty) {
  return CreateObjectComponent(owner, name, std::move(onEmpty));
}

void TProcessingThread::AfterConstruction() {
  SetPriority(tpHighest);
  TImplements::AfterConstruction();
}

void TProcessingThread::Execute() {
  const TRef<Detail::TWorkQueue> queue = FQueue;
  struct TEnd {
    Detail::TWorkQueue& Queue;
    ~TEnd() { Queue.End(); }
  } end{*queue};
  TBasicThread::Execute();
}

void TProcessingThread::IntExecute() {
  const TRef<Detail::TWorkQueue> queue = FQueue;
  TBasicThread::IntExecute();
  queue->RunTerminated();
}

void TProcessingThread::ExecuteLoop() {
  const TRef<Detail::TWorkQueue> queue = FQueue;
  queue->Turn(*this);
}

void TProcessingThread::Terminate() {
  if (IsTerminated()) return;
  const TRef<IThread> held(*this);  // work that is run here may drop the last reference
  TBasicThread::Terminate();
  FQueue->Wake();
  if (IsInThread()) {
    FQueue->Drain(*this);
  } else {
    WaitFor();
  }
}

TWorkItem TProcessingThread::Process(TProc<> proc, bool isFirst) {
  return Process(WorkItemOf(std::move(proc)), isFirst);
}

TWorkItem TProcessingThread::Process(TWorkItem item, bool isFirst) {
  Assert(static_cast<bool>(item));
  FQueue->Add(*this, item, isFirst);
  return item;
}

TProc<> TProcessingThread::ProcessTerminated(TProc<> proc) {
  Assert(static_cast<bool>(proc));
  FQueue->AddTerminated(*this, proc);
  return proc;
}

void TProcessingThread::ProcessBlocking(TProc<> proc, bool isFirst) {
  Assert(static_cast<bool>(proc));
  if (IsInThread()) {
    proc();
  } else {
    WaitForItem(Talvo::Create<Detail::TBlockingItem>(std::move(proc)), isFirst);
  }
}

void TProcessingThread::ProcessBlocking(TWorkItem item, bool isFirst) {
  Assert(static_cast<bool>(item));
  if (IsInThread()) {
    item(Detail::TBorrowedRef<IProcessingThread>(*this).Get(), /*isRun*/ true);
  } else {
    WaitForItem(Talvo::Create<Detail::TBlockingItem>(std::move(item)), isFirst);
  }
}

void TProcessingThread::WaitForItem(const TRef<Detail::TBlockingItem>& item, bool isFirst) {
  const TRef<Detail::TWorkQueue> queue = FQueue;
  const Detail::TWorkQueue::TWaiting waiting(*queue, *item);
  queue->Add(*this, TWorkItem(item), isFirst);
  waiting.Wait();
}

void TProcessingThread::AbortBlocking() {
  FQueue->ReleaseWaiting();
}

void TProcessingThread::Cancel(const TWorkItem& item) {
  if (!item) return;
  const TRef<Detail::TWorkQueue> queue = FQueue;
  queue->Cancel(*this, item);
}

void TProcessingThread::Clear() {
  const TRef<Detail::TWorkQueue> queue = FQueue;
  queue->Clear(*this);
}

int32_t TProcessingThread::GetCountWaiting() const {
  return FQueue->CountWaiting(*this);
}

}  // namespace Talvo
