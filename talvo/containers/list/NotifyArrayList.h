// SPDX-License-Identifier: Apache-2.0
#pragma once
// Array lists that tell of their changes.
//
//   auto names = TNotifyArrayList<string>::Create();
//   TProc<> link = names->AddChangeNotification([&] { redraw(); });
//   names->Add(u"left");                              // calls it once
//
// Every call that changes the content tells of it once, when it is done; AppendUnique and RemoveAll
// do so for each item. What a source had given to Append when it raised is told of, too. A call
// that changes nothing tells nobody, nor does what is written through begin() and end() or straight
// into the storage.

#include <talvo/containers/list/ArrayList.h>
#include <talvo/containers/list/ChangeNotify.h>

namespace Talvo {

/// Adds notification to the array list class `TBase`. The object answers IChangeNotification.
template <class T, class I, class TBase = TBasicArrayListIntf<T, I>>
class TBasicNotifyArrayListIntf : public Detail::TChangeNotifier<TBase> {
 public:
  bool DoSetCount(int32_t count) override { return Tell(TBase::DoSetCount(count)); }
  bool DoSetItem(int32_t index, const T& value) override {
    return Tell(TBase::DoSetItem(index, value));
  }
  bool DoInsert(int32_t index, const T& value, int32_t count) override {
    // At the end it adds, which tells.
    if (index >= this->GetCount()) return TBase::DoInsert(index, value, count);
    return Tell(TBase::DoInsert(index, value, count));
  }
  bool DoInsertSource(int32_t index, const Detail::TSource<T>& source) override {
    // At the end it appends and into an empty list it assigns, which tells.
    if (this->GetCount() == 0 || index >= this->GetCount())
      return TBase::DoInsertSource(index, source);
    return Tell(TBase::DoInsertSource(index, source));
  }
  bool DoAdd(const T& value, int32_t count) override { return Tell(TBase::DoAdd(value, count)); }
  bool DoAddFront(const T& value) override { return Tell(TBase::DoAddFront(value)); }
  bool DoAppend(const Detail::TSource<T>& source) override {
    const int32_t before = this->GetCount();
    bool hasAdded = false;
    try {
      hasAdded = TBase::DoAppend(source);
    } catch (...) {
      Tell(this->GetCount() != before);
      throw;
    }
    return Tell(hasAdded);
  }
  bool DoAssign(const Detail::TSource<T>& source) override { return Tell(TBase::DoAssign(source)); }
  bool DoDelete(int32_t index, int32_t count) override {
    return Tell(TBase::DoDelete(index, count));
  }
  bool DoDeleteDirect(int32_t index) override { return Tell(TBase::DoDeleteDirect(index)); }
  bool DoRemoveEqual(const T& value) override {
    const TRef<TBasicNotifyArrayListIntf> hold(*this);  // each deletion tells
    return TBase::DoRemoveEqual(value);
  }
  bool DoRemoveIf(TFunctionRef<bool(const T&)> predicate,
                  TFunctionRef<void(const T&)> action) override {
    const TRef<TBasicNotifyArrayListIntf> hold(*this);
    return TBase::DoRemoveIf(predicate, action);
  }
  bool DoSwap(int32_t left, int32_t right) override { return Tell(TBase::DoSwap(left, right)); }
  bool DoMove(int32_t from, int32_t to) override { return Tell(TBase::DoMove(from, to)); }
  bool DoReverse() override { return Tell(TBase::DoReverse()); }
  bool DoClear() override { return Tell(TBase::DoClear()); }
  bool DoSort(Detail::TSorter<T> sorter) override { return Tell(TBase::DoSort(sorter)); }
  bool DoSetCapacity(int32_t capacity, bool allowsTruncation) override {
    return Tell(TBase::DoSetCapacity(capacity, allowsTruncation));
  }
  void ProcedureAdd(const T& value) override {
    TBase::ProcedureAdd(value);
    this->ChangeNotify();
  }

 protected:
  TBasicNotifyArrayListIntf() = default;
  bool IsWatched() const override { return static_cast<bool>(this->FChangeNotifySupport); }

 private:
  bool Tell(bool hasChanged) {
    if (hasChanged) this->ChangeNotify();
    return hasChanged;
  }
};

/// A notifying list of values.
template <class T, class I>
class TNotifyArrayListIntf : public TBasicNotifyArrayListIntf<T, I, TArrayListIntf<T, I>> {
 public:
  TRef<IArrayList<T>> CreateList() const override;

 protected:
  TNotifyArrayListIntf() = default;
};

/// A notifying list of interface references: equality is identity.
template <class T, class I>
class TInterfaceNotifyArrayListIntf
    : public TBasicNotifyArrayListIntf<T, I, TInterfaceArrayListIntf<T, I>> {
 public:
  TRef<IArrayList<T>> CreateList() const override;

 protected:
  TInterfaceNotifyArrayListIntf() = default;
};

/// The notifying array list of any element type.
template <class T>
class TNotifyArrayList : public TNotifyArrayListIntf<T, IArrayList<T>>,
                         public TListMakers<TNotifyArrayList<T>, T, IArrayList<T>> {};

/// The notifying array list of interface references.
template <class T>
class TInterfaceNotifyArrayList
    : public TInterfaceNotifyArrayListIntf<T, IArrayList<T>>,
      public TListMakers<TInterfaceNotifyArrayList<T>, T, IArrayList<T>> {};

template <class T, class I>
TRef<IArrayList<T>> TNotifyArrayListIntf<T, I>::CreateList() const {
  return TNotifyArrayList<T>::Make();
}

template <class T, class I>
TRef<IArrayList<T>> TInterfaceNotifyArrayListIntf<T, I>::CreateList() const {
  return TInterfaceNotifyArrayList<T>::Make();
}

}  // namespace Talvo
