// SPDX-License-Identifier: Apache-2.0
#pragma once
// TMultiProc: a list of subscribers that is a value.
//
//   TMultiProc<string> renamed;
//   TProc<string> link = renamed.Add([&](const string& name) { caption = name; });
//   renamed.Notify(u"pump");
//   renamed.Remove(link);
//
// Costs a null pointer until somebody subscribes. All copies of one value share one list, which
// copying makes if need be. Not locked: the lock of the object that owns it guards it, and copying
// needs it as adding does.

#include <talvo/containers/elements/Reference.h>
#include <talvo/containers/list/LinkedList.h>

namespace Talvo {

/// Subscribers that are called with arguments of the types `A`.
template <class... A>
class TMultiProc {
 public:
  using TSubscriber = TProc<A...>;
  using TList = ILinkedList<TSubscriber>;

  TMultiProc() noexcept = default;
  /// Shares the subscribers of `other`: from here on both see what is added to either.
  TMultiProc(const TMultiProc& other) : FList(other.SharedList()) {}
  TMultiProc(TMultiProc&& other) noexcept = default;
  TMultiProc& operator=(const TMultiProc& other) {
    FList = other.SharedList();
    return *this;
  }
  TMultiProc& operator=(TMultiProc&& other) noexcept = default;

  /// The list of subscribers; a new empty one, which is not kept, when nobody subscribes.
  TRef<TList> GetNotifyList() const {
    TRef<TListClass> list;
    if (FList) list = FList->GetValue();
    return list ? list : TListClass::Create();
  }
  TRef<TList> NotifyList() const { return GetNotifyList(); }

  /// Calls the subscribers in the order in which they were added, and each as often as it was. They
  /// may subscribe, which is still heard in this round, unsubscribe themselves or others, and end
  /// this value. What one of them raises comes out here, and those behind it are not called.
  void Notify(Detail::TArgument<A>... arguments) const {
    if (!FList) return;
    const TRef<TListClass> list = FList->GetValue();
    if (!list) return;
    // Named with its class, this is no virtual call.
    list->TListClass::GetNodes().Find([&](const TSubscriber& subscriber) {
      subscriber.Invoke(arguments...);
      return false;
    });
  }

  /// Adds a subscriber, once more if it is there already, and returns it for the removal. An empty
  /// one is not added.
  TSubscriber Add(TSubscriber subscriber) {
    if (!subscriber) return subscriber;
    if (!FList) FList = Create<TCell>();
    TRef<TListClass> list = FList->GetValue();
    if (!list) FList->SetValue(list = TListClass::Create());
    list->Add(subscriber);
    return subscriber;
  }

  /// Removes a subscriber once; it is found by its identity. Within a notification, a second
  /// removal of what was removed in the same round finds the old entry, and leaves a newer one.
  void Remove(const TSubscriber& subscriber) {
    const TRef<TCell> cell = FList;  // this value may end with what the subscriber held
    if (!cell) return;
    const TRef<TListClass> list = cell->GetValue();
    if (!list) return;
    list->RemoveOne(subscriber);
    if (list->Count() == 0 && cell->GetValue() == list) cell->SetValue(nullptr);
  }
  /// Removes each subscriber of `other` once.
  void Remove(const TMultiProc& other) {
    if (!FList || !other.FList) return;
    TMultiProc kept(*this);
    const auto copied = TListClass::MakeCopy(other.GetNotifyList());  // it may be this list
    for (const TSubscriber& subscriber : copied) kept.Remove(subscriber);
  }
  /// A bare lambda has no identity: keep what Add returned.
  template <class F>
  requires(!std::is_same_v<F, TSubscriber> && !std::is_same_v<F, TMultiProc> &&
           std::is_invocable_v<const F&, Detail::TArgument<A>...>) void Remove(const F& lambda) =
      delete;

  /// Lets the subscribers go; other copies keep them.
  void Clear() { FList = nullptr; }
  /// Whether there is a list to share, with subscribers or without.
  bool Assigned() const noexcept { return static_cast<bool>(FList); }

 private:
  using TListClass = TInterfaceLinkedList<TSubscriber>;
  using TCell = TReferenceInterface<TRef<TListClass>>;

  TRef<TCell> SharedList() const {
    if (!FList) FList = Create<TCell>(TListClass::Create());
    return FList;
  }

  mutable TRef<TCell> FList;  // null until somebody subscribes or copies; its cell may be empty
};

}  // namespace Talvo
