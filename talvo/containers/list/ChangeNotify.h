// SPDX-License-Identifier: Apache-2.0
#pragma once
// Change notification for objects and containers, which costs a null pointer until somebody
// subscribes.
//
//   TProc<> link = list->AddChangeNotification([&] { redraw(); });
//   list->Add(1);                                  // calls it, on this thread
//   list->RemoveChangeNotification(link);
//
// Subscribers run in the order in which they were added, and each as often as it was added. They
// may subscribe, unsubscribe, change the object (which is not announced again on that thread) and
// drop its last reference. Several threads may be in a notification of one object at a time: the
// set of these threads is guarded. The lists of subscribers are not: whoever owns the object
// locks it.

#include <talvo/containers/common/Notification.h>

namespace Talvo {

template <class T>
class ILinkedList;

namespace Detail {
class TNotifyThreadSet;
}  // namespace Detail

/// Carries the subscribers of one object.
class IChangeNotifySupport : public virtual IInterface {
  TALVO_INTERFACE(IChangeNotifySupport, IInterface);
  /// Calls the subscribers to changes, unless this thread is about that already. What one of them
  /// raises comes out here, and those behind it are not called.
  virtual void ChangeNotify() = 0;
  /// Adds a subscriber and returns it, for the removal. An empty one is not added.
  virtual TProc<> AddChangeNotification(TProc<> proc) = 0;
  /// Removes a subscriber once. True when nobody subscribes any more, to changes or to the end:
  /// the owner may drop this object.
  virtual bool RemoveChangeNotification(const TProc<>& proc) = 0;
  virtual TProc<> AddDestroyNotification(TProc<> proc) = 0;
  virtual bool RemoveDestroyNotification(const TProc<>& proc) = 0;

  /// A subscriber is found by its identity, which a bare lambda does not have: keep what Add...
  /// returned.
  template <class F>
  requires(!std::is_same_v<F, TProc<>> &&
           std::is_invocable_v<const F&>) bool RemoveChangeNotification(const F& lambda) = delete;
  template <class F>
  requires(!std::is_same_v<F, TProc<>> &&
           std::is_invocable_v<const F&>) bool RemoveDestroyNotification(const F& lambda) = delete;
};

/// The subscribers of one object. Its end calls those to the end, which may find the object that
/// owned it still complete.
class TALVO_API TChangeNotifySupport
    : public TImplements<TBasicInterfacedObject, IChangeNotifySupport> {
 public:
  TChangeNotifySupport() noexcept;
  ~TChangeNotifySupport() override;
  static TRef<IChangeNotifySupport> Make();

  void ChangeNotify() override;
  TProc<> AddChangeNotification(TProc<> proc) override;
  bool RemoveChangeNotification(const TProc<>& proc) override;
  TProc<> AddDestroyNotification(TProc<> proc) override;
  bool RemoveDestroyNotification(const TProc<>& proc) override;
  using IChangeNotifySupport::RemoveChangeNotification;
  using IChangeNotifySupport::RemoveDestroyNotification;

 protected:
  void BeforeDestruction() override;

 private:
  bool IsUnused() const { return !FChangeNotifyList && !FDestroyNotifyList; }

  Detail::TNotifyThreadSet* FInNotifyThreadSet = nullptr;  // comes and goes with the next
  TRef<ILinkedList<TProc<>>> FChangeNotifyList;            // null without a subscriber
  TRef<ILinkedList<TProc<>>> FDestroyNotifyList;           // null without a subscriber
};

namespace Detail {

/// Adds change notification to a class.
template <class TBase>
class TChangeNotifier : public TImplements<TBase, IChangeNotification> {
 public:
  using TImplements<TBase, IChangeNotification>::TImplements;

  TProc<> AddChangeNotification(TProc<> proc) override {
    return proc ? Support().AddChangeNotification(std::move(proc)) : TProc<>();
  }
  void RemoveChangeNotification(const TProc<>& proc) override {
    if (FChangeNotifySupport && FChangeNotifySupport->RemoveChangeNotification(proc)) {
      FChangeNotifySupport = nullptr;
    }
  }
  TProc<> AddDestroyNotification(TProc<> proc) override {
    return proc ? Support().AddDestroyNotification(std::move(proc)) : TProc<>();
  }
  void RemoveDestroyNotification(const TProc<>& proc) override {
    if (FChangeNotifySupport && FChangeNotifySupport->RemoveDestroyNotification(proc)) {
      FChangeNotifySupport = nullptr;
    }
  }
  using IChangeNotification::RemoveChangeNotification;
  using IChangeNotification::RemoveDestroyNotification;

  /// Calls the subscribers to changes. One of them may drop the last reference to this object:
  /// nothing of it may be touched afterwards without a reference of one's own.
  void ChangeNotify() {
    if (FChangeNotifySupport) FChangeNotifySupport->ChangeNotify();
  }

 protected:
  /// Calls the subscribers to the end, by letting their list go.
  void BeforeDestruction() override {
    FChangeNotifySupport = nullptr;
    TBase::BeforeDestruction();
  }

  TRef<IChangeNotifySupport> FChangeNotifySupport;  // null until somebody subscribes

 private:
  IChangeNotifySupport& Support() {
    if (!FChangeNotifySupport) FChangeNotifySupport = TChangeNotifySupport::Make();
    return *FChangeNotifySupport;
  }
};

}  // namespace Detail

/// The base of counted objects that tell of their changes; `T` is the element type of
/// containers.
template <class T = void>
class TInterfacedChangeNotifyObject : public Detail::TChangeNotifier<TBasicInterfacedObject> {
 protected:
  TInterfacedChangeNotifyObject() = default;
};

/// One object with its two subscribers.
struct TInterfacedChangeNotifyItem {
  TObject* ObjectItem = nullptr;
  TProc<> OnChangeProc;
  TProc<> OnDestroyProc;
  TInterfacedChangeNotifyItem() = default;
  TInterfacedChangeNotifyItem(TObject* objectItem, TProc<> onChangeProc, TProc<> onDestroyProc)
      : ObjectItem(objectItem),
        OnChangeProc(std::move(onChangeProc)),
        OnDestroyProc(std::move(onDestroyProc)) {}
};

}  // namespace Talvo
