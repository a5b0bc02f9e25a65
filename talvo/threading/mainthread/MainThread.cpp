// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/mainthread/MainThread.h>

#include <mutex>
#include <vector>
#include <talvo/containers/list/LinkedList.h>
#include <talvo/platform/Thread.h>
#include <talvo/threading/Guard.h>
#include <talvo/threading/mainthread/MainWindow.h>
#include <talvo/threading/mainthread/Module.h>
#include <talvo/threading/sync/CriticalSection.h>
#include <talvo/threading/threads/SwallowedExceptions.h>

namespace Talvo {
namespace {

std::mutex GGuard;                 // of the node and its list
TMainWindowNode* GNode = nullptr;  // guarded by GGuard

}  // namespace

// --- The window ---------------------------------------------------------------------------------

TMainWindowNode::TMainWindowNode()
    : FWindowHandle(AllocateMainHWnd(*this)),
      FNotifyList(TLinkedList<TMainThreadExecute*>::Make()) {}

TMainWindowNode::~TMainWindowNode() {
  DeallocateHWnd(FWindowHandle);
}

TMainWindowNode* TMainWindowNode::AddReff(TMainThreadExecute& execute) {
  const std::lock_guard guard(GGuard);
  if (!GNode) GNode = Create<TMainWindowNode>().Detach();
  GNode->FNotifyList->Add(&execute);
  return GNode;
}

void TMainWindowNode::RemoveReff(TMainThreadExecute& execute) {
  TOwn<TMainWindowNode> unused;  // ends behind the guard: its end waits for WndProc
  const std::lock_guard guard(GGuard);
  GNode->FNotifyList->RemoveOne(&execute);
  if (GNode->FNotifyList->Count() == 0) unused = TOwn(std::exchange(GNode, nullptr));
}

void TMainWindowNode::WndProc(TMessage& message) {
  if (message.Msg != WM_MAINTHREADEXECUTE) return DefWindowProc(message);
  TRef<TMainThreadExecute> found;
  {
    const std::lock_guard guard(GGuard);
    for (TMainThreadExecute* execute : FNotifyList) {
      if (reinterpret_cast<uintptr_t>(execute) == message.WParam) found = execute->FSelf.Lock();
    }
  }
  if (!found) return;
  {
    // A host's loop within the work is woken for what is queued from here on.
    const Detail::TInside inside(*found->FSection);
    found->FSignaled = false;
  }
  found->SyncNotify();  // may end this node
}

// --- The queue ----------------------------------------------------------------------------------

TMainThreadExecute::TMainThreadExecute(TDoNotUseThis)
    : TImplements(Do_Not_Use_This),
      FSection(TCriticalSection::Make()),
      FOnNotifyList(TLinkedList<TNotify>::Make()) {}

void TMainThreadExecute::Construct() {
  TImplements::Construct();
  FSelf = TRef(*this);
  FNode = TMainWindowNode::AddReff(*this);
}

TMainThreadExecute::~TMainThreadExecute() {
  TMainThreadExecute::Clear(nullptr);
  if (FNode) TMainWindowNode::RemoveReff(*this);
}

TRef<TMainThreadExecute> TMainThreadExecute::CreateObject() {
  return Create<TMainThreadExecute>(Do_Not_Use_This);
}

TRef<IMainThreadExecute> TMainThreadExecute::Make() {
  return CreateObject();
}

void TMainThreadExecute::Execute(bool forcePost, TProc<> onExecute, bool ignoreMultiple) {
  Execute(nullptr, forcePost, std::move(onExecute), ignoreMultiple);
}

void TMainThreadExecute::Execute(TOwnerKey object, bool forcePost, TProc<> onExecute,
                                 bool ignoreMultiple) {
  if (!forcePost && MainThread::IsCurrent()) return onExecute.Invoke();
  TNotify notify(object, std::move(onExecute));  // ends outside when it is not queued
  const Detail::TInside inside(*FSection);
  const bool isNew = !ignoreMultiple || !FOnNotifyList->Query()->Contains(notify);
  // First what may fail: a wake-up too many does no harm. It is not handled before this leaves.
  if (!FSignaled) {
    FSignaled =
        PostMessage(FNode->GetHandle(), WM_MAINTHREADEXECUTE, reinterpret_cast<uintptr_t>(this), 0);
  }
  if (isNew) FOnNotifyList->Add(notify);
}

void TMainThreadExecute::Clear(TOwnerKey object) {
  std::vector<TProc<>> dropped;  // ends outside the section: destructors may come back here
  const Detail::TInside inside(*FSection);
  FOnNotifyList->RemoveAll([&](const TNotify& notify) {
    if (object && notify.Item1 != object) return false;
    dropped.push_back(notify.Item2);
    return true;
  });
}

void TMainThreadExecute::ClearMainThread(TOwnerKey object) {
  if (MainThread::IsCurrent()) {
    RunAll(object);
  } else {
    Clear(object);
  }
}

void TMainThreadExecute::SyncNotify() {
  Assert(MainThread::IsCurrent());
  RunAll(nullptr);
}

void TMainThreadExecute::RunAll(TOwnerKey object) {
  const TRef self(*this);  // what runs may drop the last reference
  TNotify notify;
  while (TakeNext(object, notify)) {
    try {
      notify.Item2.Invoke();
    } catch (...) {
      // Whoever queued it has gone on long since, and the next one has done nothing wrong.
      ReportSwallowedException();
    }
    notify = {};
  }
}

/// Takes out the next one of this owner, or of all. When nothing is left at all, the wake-up that
/// may still wait unread has become pointless.
bool TMainThreadExecute::TakeNext(TOwnerKey object, TNotify& notify) {
  const Detail::TInside inside(*FSection);
  if (object) {
    return FOnNotifyList->FindAndRemoveOne(
        [&](const TNotify& item) { return item.Item1 == object; }, notify);
  }
  if (FOnNotifyList->IfPopFirst(notify)) return true;
  if (FSignaled) {
    RecallMessages(FNode->GetHandle(), WM_MAINTHREADEXECUTE, reinterpret_cast<uintptr_t>(this));
  }
  FSignaled = false;
  return false;
}

// --- The process's queue ------------------------------------------------------------------------

bool MainThread::IsCurrent() noexcept {
  return CurrentThreadId() == MainThreadId();
}

void MainThread::Execute(TOwnerKey object, bool forcePost, TProc<> onExecute, bool ignoreMultiple) {
  IMainThreadExecute* queue = Detail::ProcessMainThreadExecute();
  if (queue && onExecute) queue->Execute(object, forcePost, std::move(onExecute), ignoreMultiple);
}

void MainThread::ProcessExecuteQueue(TOwnerKey object) {
  if (auto* queue = Detail::ProcessMainThreadExecute()) queue->ClearMainThread(object);
}

void MainThread::ProcessExecuteQueueAll() {
  ProcessExecuteQueue(nullptr);
}

int MainThread::WakeUpDescriptor() {
  return MainWakeUpDescriptor();
}

int32_t MainThread::ProcessMessages() {
  return Talvo::ProcessMessages();
}

}  // namespace Talvo
