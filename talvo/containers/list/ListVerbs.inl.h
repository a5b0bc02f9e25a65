// SPDX-License-Identifier: Apache-2.0
#pragma once
// Bodies of the array list verbs; included by ArrayList.h, whose classes they make.

#include <talvo/containers/list/ListVerbs.h>
#include <talvo/containers/list/Sort.h>

namespace Talvo {
namespace Detail {

/// The query of a list, made in one allocation: the list itself makes enumerators and results.
template <class TBase, class TList, class T>
class TListQueryOver final : public TBase {
 public:
  template <class... A>
  TListQueryOver(const TRef<TList>& list, bool isReverse, A&&... state)
      : TBase(list, TRef<IComparer<T>>(), static_cast<A&&>(state)...) {
    if (isReverse) this->FCreateEnumerator = [list] { return list->GetReverseEnumerator(); };
  }

  TRef<ISizeEnumerator<T>> NewSourceEnumerator() const override {
    return this->FCreateEnumerator ? this->FCreateEnumerator()
                                   : this->FCollection->NewSizeEnumerator();
  }
  const IComparer<T>* GetEquality() const override { return this->FCollection->GetEquality(); }
  TRef<IArrayList<T>> NewResult() const override { return this->FCollection->CreateList(); }
  void AddToResult(const TRef<IArrayList<T>>& result, const T& item) const override {
    const TListState<T> state = result->GetState();
    StoreAtEnd(*state.Items, *state.Count, item);
  }
  IArrayListState<T>* GetResultState(const TRef<IArrayList<T>>& result) const override {
    return Supports<IArrayListState<T>>(result).Get();  // the result keeps it alive
  }
};

template <class TList, class T>
struct TListQueryKinds {
  template <template <class, class, class> class Plain,
            template <class, class, class> class Objects,
            template <class, class, class> class Interfaces>
  static auto Pick() {
    if constexpr (IsReference<T>) {
      return std::type_identity<Interfaces<TList, IArrayList<T>, T>>();
    } else if constexpr (std::is_convertible_v<T, TObject*> && std::is_pointer_v<T>) {
      return std::type_identity<Objects<TList, IArrayList<T>, T>>();
    } else {
      return std::type_identity<Plain<TList, IArrayList<T>, T>>();
    }
  }
  using TPlain = TListQueryOver<typename decltype(Pick<TContainerQuery, TObjectContainerQuery,
                                                       TInterfaceContainerQuery>())::type,
                                TList, T>;
  using TArraySize = TListQueryOver<
      typename decltype(Pick<TArraySizeContainerQuery, TObjectArraySizeContainerQuery,
                             TInterfaceArraySizeContainerQuery>())::type,
      TList, T>;
};

}  // namespace Detail

template <class T, class TList, class TBase>
TRef<IContainerQuery<TList, IArrayList<T>, T>> TListVerbs<T, TList, TBase>::Query(
    bool isReverse) const {
  using TKinds = Detail::TListQueryKinds<TList, T>;
  const auto list = TRef<TList>::Share(const_cast<TList*>(static_cast<const TList*>(this)));
  const TRef<IArrayListState<T>> state = Supports<IArrayListState<T>>(list);
  if (state && state->ArrayIsPopulated()) {
    return Create<typename TKinds::TArraySize>(list, isReverse, state->GetArray(),
                                               state->GetSizePtr());
  }
  return Create<typename TKinds::TPlain>(list, isReverse);
}

template <class T, class TList, class TBase>
int32_t TListVerbs<T, TList, TBase>::FindEqual(const T& value) const {
  const IComparer<T>* equality = this->GetEquality();
  auto isEqual = [&](const T& item) {
    return (equality ? equality->Compare(item, value) : DefaultCompare(item, value)) == 0;
  };
  return FindIf(isEqual);
}

template <class T, class TList, class TBase>
template <class F>
int32_t TListVerbs<T, TList, TBase>::FindIf(F& predicate) const {
  Detail::AssertCallable(predicate);
  const Detail::TListState<T> state = this->GetState();
  for (int32_t i = 0; i < *state.Count; ++i) {
    if (predicate(std::as_const((*state.Items)[i]))) return i;
  }
  return -1;
}

template <class T, class TList, class TBase>
template <PredicateOf<T> F, Detail::ValueOrFactory<T> V>
T TListVerbs<T, TList, TBase>::FindOrAdd(F&& predicate, V&& valueOrFactory) {
  const int32_t index = FindIf(predicate);
  if (index >= 0) return this->GetItem(index);
  if constexpr (Detail::FactoryOf<V, T>) {
    Detail::AssertCallable(valueOrFactory);
    T made = valueOrFactory();
    this->DoAdd(made, 1);
    return made;
  } else {
    T value = std::forward<V>(valueOrFactory);
    this->DoAdd(value, 1);
    return value;
  }
}

template <class T, class TList, class TBase>
bool TListVerbs<T, TList, TBase>::ExtractAt(int32_t index, T& item) {
  item = T{};
  if (index < 0 || Count() == 0) return false;
  item = this->GetItem(index);
  this->DoDelete(index, 1);
  return true;
}

template <class T, class TList, class TBase>
TRef<IArrayList<T>> TListVerbs<T, TList, TBase>::Extract(int32_t index, int32_t count) {
  TRef<IArrayList<T>> extracted = TArrayList<T>::Make();
  if (count <= 0) return extracted;
  const Detail::TListState<T> state = this->GetState();
  if (index < 0 || count > state.SafeCount() - index) RaiseRangeError();
  extracted->Assign(state.Items->Data() + index, count);
  this->DoDelete(index, count);
  return extracted;
}

template <class T, class TList, class TBase>
TRef<IArrayList<T>> TListVerbs<T, TList, TBase>::ExtractFirst(TItemCount count) {
  return Extract(0, count.Value < Count() ? count.Value : Count());
}

template <class T, class TList, class TBase>
TRef<IArrayList<T>> TListVerbs<T, TList, TBase>::ExtractLast(TItemCount count) {
  const int32_t taken = count.Value < Count() ? count.Value : Count();
  return Extract(Count() - (taken > 0 ? taken : 0), taken);
}

template <class T, class TList, class TBase>
template <PredicateOf<T> F>
bool TListVerbs<T, TList, TBase>::FindAndRemoveOne(F&& predicate, T& item) {
  item = T{};
  const int32_t index = FindIf(predicate);
  if (index < 0) return false;
  item = this->GetItem(index);
  this->DoDelete(index, 1);
  return true;
}

template <class T, class TList, class TBase>
template <PredicateOf<T> F, Detail::ActionArgument<T> A>
TList& TListVerbs<T, TList, TBase>::FindAndRemoveOne(F&& predicate, A&& action) {
  TList& self = Self();
  Detail::AssertCallable(action);
  T item{};
  if (FindAndRemoveOne(predicate, item)) action(std::as_const(item));
  return self;
}

template <class T, class TList, class TBase>
TList& TListVerbs<T, TList, TBase>::AppendUniqueSource(Detail::TSource<T>&& source) {
  TList& self = Self();
  const TRef<TList> hold(self);
  source.KeepApartFrom(*this->GetState().Items);
  if (!source.IsObject(this)) source.ForEach([this](const T& item) { IfAddUnique(item); });
  return self;
}

template <class T, class TList, class TBase>
TList& TListVerbs<T, TList, TBase>::RemoveAllSource(Detail::TSource<T>&& source) {
  TList& self = Self();
  const TRef<TList> hold(self);
  source.KeepApartFrom(*this->GetState().Items);
  source.ForEach([this](const T& item) {
    const T value = item;  // the item may be one of the list's own
    this->DoRemoveEqual(value);
  });
  return self;
}

template <class T, class TList, class TBase>
template <Detail::ComparisonOf<T> C>
TList& TListVerbs<T, TList, TBase>::Sort(C&& comparison) {
  static_assert(
      !std::is_same_v<decltype(comparison(std::declval<const T&>(), std::declval<const T&>())),
                      bool>,
      "Sort takes a comparison that answers below, at or above 0, not a less-than.");
  if constexpr (Detail::IsFunctionHandle<std::remove_cvref_t<C>>) {
    if (!comparison) return Sort();
  }
  TList& self = Self();
  this->DoSort([&](T* items, int32_t count) { Detail::SortItems(items, count, comparison); });
  return self;
}

}  // namespace Talvo
