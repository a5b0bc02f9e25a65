// SPDX-License-Identifier: Apache-2.0
#pragma once
// Linked lists that tell of their changes.
//
//   auto jobs = TNotifyLinkedList<string>::Create();
//   TProc<> link = jobs->AddChangeNotification([&] { wake(); });
//   jobs->Add(u"first");                              // calls it once
//
// Every call that changes the content tells of it once, when it is done; AddUnique, AppendUnique
// and RemoveAll of a sequence do so for each item. A call that changes nothing tells nobody, and a
// predicate that raises leaves nothing untold.

#include <talvo/containers/list/ChangeNotify.h>
#include <talvo/containers/list/LinkedList.h>

namespace Talvo {

/// Adds notification to the linked list class `TBase`. The object answers IChangeNotification.
template <class T, class I = ILinkedList<T>, class TBase = TBasicLinkedListIntf<T, I>>
class TBasicNotifyLinkedList : public Detail::TChangeNotifier<TBase> {
 public:
  bool DoAdd(const T& value, int32_t count) override { return Tell(TBase::DoAdd(value, count)); }
  void DoAddMoved(T&& value) override {
    TBase::DoAddMoved(std::move(value));
    this->ChangeNotify();
  }
  void DoAddFirst(const T& value) override {
    TBase::DoAddFirst(value);
    this->ChangeNotify();
  }
  bool DoAppend(const Detail::TSource<T>& source) override { return Tell(TBase::DoAppend(source)); }
  bool DoAssign(const Detail::TSource<T>& source) override { return Tell(TBase::DoAssign(source)); }
  Detail::TRemoval DoPopFirst(T& item) override { return Tell(TBase::DoPopFirst(item)); }
  Detail::TRemoval DoRemoveOne(TFunctionRef<bool(const T&)> accept) override {
    return Tell(TBase::DoRemoveOne(accept));
  }
  bool DoRemoveAll(TFunctionRef<bool(const T&)> accept) override {
    bool hasRemoved = false;
    try {
      TBase::DoRemoveAll([&](const T& item) {
        const bool isWanted = accept(item);
        hasRemoved |= isWanted;
        return isWanted;
      });
    } catch (...) {
      Tell(hasRemoved);
      throw;
    }
    return Tell(hasRemoved);
  }
  bool DoClear() override { return Tell(TBase::DoClear()); }

 protected:
  TBasicNotifyLinkedList() = default;

 private:
  bool Tell(bool hasChanged) {
    if (hasChanged) this->ChangeNotify();
    return hasChanged;
  }
  Detail::TRemoval Tell(Detail::TRemoval removal) {
    Tell(IsChange(removal));
    return removal;
  }
};

/// A notifying list of values.
template <class T, class I>
class TNotifyLinkedListIntf : public TBasicNotifyLinkedList<T, I, TLinkedListIntf<T, I>> {
 public:
  TRef<ILinkedList<T>> CreateList() const override;

 protected:
  TNotifyLinkedListIntf() = default;
};

/// A notifying list of interface references or function objects: equality is identity.
template <class T, class I>
class TInterfaceNotifyLinkedListIntf
    : public TBasicNotifyLinkedList<T, I, TInterfaceLinkedListIntf<T, I>> {
 public:
  TRef<ILinkedList<T>> CreateList() const override;

 protected:
  TInterfaceNotifyLinkedListIntf() = default;
};

/// The notifying linked list of any element type.
template <class T>
class TNotifyLinkedList : public TNotifyLinkedListIntf<T, ILinkedList<T>>,
                          public TLinkedListMakers<TNotifyLinkedList<T>, T, ILinkedList<T>> {};

/// The notifying linked list of interface references or function objects.
template <class T>
class TInterfaceNotifyLinkedList
    : public TInterfaceNotifyLinkedListIntf<T, ILinkedList<T>>,
      public TLinkedListMakers<TInterfaceNotifyLinkedList<T>, T, ILinkedList<T>> {};

template <class T, class I>
TRef<ILinkedList<T>> TNotifyLinkedListIntf<T, I>::CreateList() const {
  return TNotifyLinkedList<T>::Make();
}

template <class T, class I>
TRef<ILinkedList<T>> TInterfaceNotifyLinkedListIntf<T, I>::CreateList() const {
  return TInterfaceNotifyLinkedList<T>::Make();
}

}  // namespace Talvo
