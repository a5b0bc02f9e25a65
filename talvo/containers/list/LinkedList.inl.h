// SPDX-License-Identifier: Apache-2.0
#pragma once
// Bodies of the linked list classes and their verbs.

#include <talvo/containers/list/LinkedList.h>

namespace Talvo {
namespace Detail {

/// The query of a linked list, made in one allocation: the list itself makes enumerators and
/// results.
template <class TList, class T>
class TLinkedListQuery final : public TContainerQuery<TList, ILinkedList<T>, T> {
 public:
  explicit TLinkedListQuery(TList& list)
      : TContainerQuery<TList, ILinkedList<T>, T>(TRef<TList>(list), TRef<IComparer<T>>()) {}
  TRef<ISizeEnumerator<T>> NewSourceEnumerator() const override {
    return this->FCollection->NewSizeEnumerator();
  }
  const IComparer<T>* GetEquality() const override { return nullptr; }
  TRef<ILinkedList<T>> NewResult() const override { return this->FCollection->CreateList(); }
  void AddToResult(const TRef<ILinkedList<T>>& result, const T& item) const override {
    result->Add(item);
  }
};

/// Whether an item equals `value`, the item standing left.
template <class T>
auto EqualTo(const T& value) {
  return [&value](const T& item) { return DefaultCompare(item, value) == 0; };
}

}  // namespace Detail

template <class T, class TList, class TBase>
bool TLinkedListVerbs<T, TList, TBase>::Last(T& item) const {
  const auto* last = this->GetNodes().Last();
  item = last ? last->Data : T{};
  return last;
}

template <class T, class TList, class TBase>
template <ActionOn<T> A>
TList& TLinkedListVerbs<T, TList, TBase>::ForLast(A&& action) {
  Detail::AssertCallable(action);
  TList& self = Self();
  T item;
  if (Last(item)) action(std::as_const(item));
  return self;
}

template <class T, class TList, class TBase>
TRef<IContainerQuery<TList, ILinkedList<T>, T>> TLinkedListVerbs<T, TList, TBase>::Query() const {
  return Create<Detail::TLinkedListQuery<TList, T>>(Mutable());
}

template <class T, class TList, class TBase>
bool TLinkedListVerbs<T, TList, TBase>::IfAddUnique(const T& value) {
  if (this->GetNodes().Find(Detail::EqualTo(value))) return false;
  this->DoAdd(value, 1);
  return true;
}

template <class T, class TList, class TBase>
template <PredicateOf<T> F, class V>
requires(Detail::FactoryOf<V, T> || std::is_convertible_v<V&&, T>) T
    TLinkedListVerbs<T, TList, TBase>::FindOrAdd(F&& predicate, V&& valueOrFactory) {
  Detail::AssertCallable(predicate);
  const TRef<TList> hold(Self());
  T found{};
  const bool isThere = this->GetNodes().Find([&](const T& item) {
    if (!predicate(item)) return false;
    found = item;
    return true;
  });
  if (isThere) return found;
  if constexpr (Detail::FactoryOf<V, T>) {
    Detail::AssertCallable(valueOrFactory);
    found = valueOrFactory();
  } else {
    found = std::forward<V>(valueOrFactory);
  }
  this->DoAdd(found, 1);
  return found;
}

template <class T, class TList, class TBase>
template <ActionOn<T> A>
requires(!std::is_same_v<std::remove_cvref_t<A>,
                         T>) bool TLinkedListVerbs<T, TList, TBase>::IfPopFirst(A&& action) {
  Detail::AssertCallable(action);
  T item{};
  if (!IfPopFirst(item)) return false;
  action(std::as_const(item));
  return true;
}

template <class T, class TList, class TBase>
bool TLinkedListVerbs<T, TList, TBase>::FindAndRemoveOne(const T& value) {
  return this->DoRemoveOne(Detail::EqualTo(value)) != Detail::TRemoval::Missed;
}

template <class T, class TList, class TBase>
template <class F>
Detail::TRemoval TLinkedListVerbs<T, TList, TBase>::RemoveOneInto(T& found, F& predicate) {
  Detail::AssertCallable(predicate);
  const TRef<TList> hold(Self());
  return this->DoRemoveOne([&](const T& item) {
    if (!predicate(item)) return false;
    found = item;
    return true;
  });
}

template <class T, class TList, class TBase>
template <PredicateOf<T> F>
bool TLinkedListVerbs<T, TList, TBase>::FindAndRemoveOne(F&& predicate, T& item) {
  item = T{};
  T found{};
  const Detail::TRemoval removal = RemoveOneInto(found, predicate);
  if (removal == Detail::TRemoval::Removed) item = std::move(found);
  return removal != Detail::TRemoval::Missed;
}

template <class T, class TList, class TBase>
template <PredicateOf<T> F, ActionOn<T> A>
requires(!std::is_same_v<std::remove_cvref_t<A>, T>)
    TList& TLinkedListVerbs<T, TList, TBase>::FindAndRemoveOne(F&& predicate, A&& action) {
  Detail::AssertCallable(action);
  TList& self = Self();
  T found{};
  if (RemoveOneInto(found, predicate) != Detail::TRemoval::Missed) action(std::as_const(found));
  return self;
}

template <class T, class TList, class TBase>
template <class X>
requires(Detail::ValueArgument<X, T> || Detail::PredicateArgument<X, T>)
    TList& TLinkedListVerbs<T, TList, TBase>::RemoveOne(X&& valueOrPredicate) {
  TList& self = Self();
  if constexpr (Detail::PredicateArgument<X, T>) {
    Detail::AssertCallable(valueOrPredicate);
    const TRef<TList> hold(self);
    this->DoRemoveOne(valueOrPredicate);
  } else {
    FindAndRemoveOne(static_cast<X&&>(valueOrPredicate));
  }
  return self;
}

template <class T, class TList, class TBase>
template <class X>
requires(Detail::ValueArgument<X, T> || Detail::PredicateArgument<X, T>)
    TList& TLinkedListVerbs<T, TList, TBase>::RemoveAll(X&& valueOrPredicate) {
  TList& self = Self();
  if constexpr (Detail::PredicateArgument<X, T>) {
    Detail::AssertCallable(valueOrPredicate);
    const TRef<TList> hold(self);
    this->DoRemoveAll(valueOrPredicate);
  } else {
    const T& value = static_cast<X&&>(valueOrPredicate);
    this->DoRemoveAll(Detail::EqualTo(value));
  }
  return self;
}

template <class T, class TList, class TBase>
TList& TLinkedListVerbs<T, TList, TBase>::AppendUniqueSource(const Detail::TSource<T>& source) {
  const TRef<TList> hold(Self());
  source.ForEach([this](const T& item) { IfAddUnique(item); });
  return *hold;
}

template <class T, class TList, class TBase>
TList& TLinkedListVerbs<T, TList, TBase>::RemoveAllSource(const Detail::TSource<T>& source) {
  const TRef<TList> hold(Self());
  source.ForEach([this](const T& item) { FindAndRemoveOne(item); });
  return *hold;
}

template <class T, class I>
TRef<ISizeEnumerator<T>> TBasicLinkedListIntf<T, I>::NewSizeEnumerator() const {
  return Create<TEnumerator>(const_cast<TBasicLinkedListIntf&>(*this));
}

template <class T, class I>
bool TBasicLinkedListIntf<T, I>::DoAdd(const T& value, int32_t count) {
  if (count < 0) RaiseRangeError();
  typename Detail::TLinkedNodes<T>::TChain added(FNodes);
  for (; count > 0; --count) added.Add(value);
  return FNodes.LinkLast(added);
}

template <class T, class I>
void TBasicLinkedListIntf<T, I>::DoAddMoved(T&& value) {
  typename Detail::TLinkedNodes<T>::TChain added(FNodes);
  added.Add(std::move(value));
  FNodes.LinkLast(added);
}

template <class T, class I>
bool TBasicLinkedListIntf<T, I>::DoAppend(const Detail::TSource<T>& source) {
  // Linked when the source has ended: it may be this very list.
  typename Detail::TLinkedNodes<T>::TChain added(FNodes);
  source.ForEach([&](const T& item) { added.Add(item); });
  return FNodes.LinkLast(added);
}

template <class T, class I>
bool TBasicLinkedListIntf<T, I>::DoAssign(const Detail::TSource<T>& source) {
  if (source.IsObject(this)) return false;
  typename Detail::TLinkedNodes<T>::TChain added(FNodes);
  source.ForEach([&](const T& item) { added.Add(item); });
  const bool hasCleared = InternalClear();
  return FNodes.LinkLast(added) || hasCleared;
}

template <class T, class I>
TRef<ILinkedList<T>> TLinkedListIntf<T, I>::CreateList() const {
  return TLinkedList<T>::Make();
}

template <class T, class I>
TRef<ILinkedList<T>> TInterfaceLinkedListIntf<T, I>::CreateList() const {
  return TInterfaceLinkedList<T>::Make();
}

}  // namespace Talvo
