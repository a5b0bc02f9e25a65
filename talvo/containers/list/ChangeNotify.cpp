// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/list/ChangeNotify.h>

#include <talvo/containers/list/LinkedList.h>
#include <talvo/platform/Thread.h>

namespace Talvo {
namespace Detail {

using TProcList = TRef<ILinkedList<TProc<>>>;

/// The threads that are in a notification of one object. Any number of them may come and go at a
/// time; each asks for itself alone.
class TNotifyThreadSet {
 public:
  struct TEntry {
    uint32_t Thread = 0;  // atomic; 0 while the entry is free
    // Where to leave the list when a subscriber ends the support object.
    TProcList* LeftBehind = nullptr;
  };

  ~TNotifyThreadSet() { delete FMore; }

  TEntry* Find(uint32_t thread) {
    for (TNotifyThreadSet* part = this; part; part = part->LoadMore()) {
      for (TEntry& entry : part->FEntries) {
        if (__atomic_load_n(&entry.Thread, __ATOMIC_RELAXED) == thread) return &entry;
      }
    }
    return nullptr;
  }
  TEntry& Add(uint32_t thread, TProcList& leftBehind) {
    for (TNotifyThreadSet* part = this;; part = part->GetMore()) {
      for (TEntry& entry : part->FEntries) {
        uint32_t free = 0;
        if (__atomic_load_n(&entry.Thread, __ATOMIC_RELAXED) == free &&
            __atomic_compare_exchange_n(&entry.Thread, &free, thread, /*weak*/ false,
                                        __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) {
          entry.LeftBehind = &leftBehind;
          return entry;
        }
      }
    }
  }
  static void Remove(TEntry& entry) { __atomic_store_n(&entry.Thread, 0, __ATOMIC_RELEASE); }

 private:
  TNotifyThreadSet* LoadMore() const { return __atomic_load_n(&FMore, __ATOMIC_ACQUIRE); }
  /// The next part of the set, made when all entries of this one are taken.
  TNotifyThreadSet* GetMore() {
    TNotifyThreadSet* more = LoadMore();
    if (more) return more;
    auto* made = new TNotifyThreadSet;
    if (__atomic_compare_exchange_n(&FMore, &more, made, /*weak*/ false, __ATOMIC_ACQ_REL,
                                    __ATOMIC_ACQUIRE)) {
      return made;
    }
    delete made;
    return more;
  }

  TEntry FEntries[4];
  TNotifyThreadSet* FMore = nullptr;  // atomic
};

/// The subscribers to changes, and with them the set of threads.
class TChangeList final : public TLinkedList<TProc<>> {
 public:
  TChangeList() {}
  TNotifyThreadSet Threads;
};

namespace {

/// Calls all subscribers of a list that stays where it is meanwhile. None of them is empty.
void InvokeAll(const TProcList& list) {
  list->GetNodes().Find([](const TProc<>& proc) {
    proc.Object()->Invoke();
    return false;
  });
}

void Unsubscribe(TProcList& list, const TProc<>& proc) {
  list->RemoveOne(proc);
  if (list->Count() == 0) list = nullptr;
}

}  // namespace
}  // namespace Detail

TChangeNotifySupport::TChangeNotifySupport() noexcept = default;

TChangeNotifySupport::~TChangeNotifySupport() {
  if (!FInNotifyThreadSet) return;
  if (auto* entry = FInNotifyThreadSet->Find(CurrentThreadId())) {
    *entry->LeftBehind = std::move(FChangeNotifyList);
  }
}

TRef<IChangeNotifySupport> TChangeNotifySupport::Make() {
  return Create<TChangeNotifySupport>();
}

void TChangeNotifySupport::ChangeNotify() {
  if (!FChangeNotifyList) return;
  const uint32_t thread = CurrentThreadId();
  if (FInNotifyThreadSet->Find(thread)) return;
  Detail::TProcList leftBehind;
  struct TPresence {
    Detail::TNotifyThreadSet::TEntry& Entry;
    ~TPresence() { Detail::TNotifyThreadSet::Remove(Entry); }
  } presence{FInNotifyThreadSet->Add(thread, leftBehind)};
  // The list is not dropped under a walk, and outlives this object if need be.
  Detail::InvokeAll(FChangeNotifyList);
}

TProc<> TChangeNotifySupport::AddChangeNotification(TProc<> proc) {
  if (!proc) return proc;
  if (!FChangeNotifyList) {
    const auto made = Create<Detail::TChangeList>();
    FInNotifyThreadSet = &made->Threads;
    FChangeNotifyList = made;
  }
  FChangeNotifyList->Add(proc);
  return proc;
}

bool TChangeNotifySupport::RemoveChangeNotification(const TProc<>& proc) {
  if (FChangeNotifyList) {
    Detail::Unsubscribe(FChangeNotifyList, proc);
    if (!FChangeNotifyList) FInNotifyThreadSet = nullptr;
  }
  return IsUnused();
}

TProc<> TChangeNotifySupport::AddDestroyNotification(TProc<> proc) {
  if (!proc) return proc;
  if (!FDestroyNotifyList) FDestroyNotifyList = TLinkedList<TProc<>>::Make();
  FDestroyNotifyList->Add(proc);
  return proc;
}

bool TChangeNotifySupport::RemoveDestroyNotification(const TProc<>& proc) {
  if (FDestroyNotifyList) Detail::Unsubscribe(FDestroyNotifyList, proc);
  return IsUnused();
}

void TChangeNotifySupport::BeforeDestruction() {
  if (FDestroyNotifyList) Detail::InvokeAll(FDestroyNotifyList);
  TBasicInterfacedObject::BeforeDestruction();
}

}  // namespace Talvo
