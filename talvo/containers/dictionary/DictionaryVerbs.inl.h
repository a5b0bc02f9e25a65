// SPDX-License-Identifier: Apache-2.0
#pragma once
// Bodies of the dictionary verbs.

#include <talvo/containers/dictionary/DictionaryVerbs.h>

namespace Talvo {
namespace Detail {

/// The query of a dictionary or set, made in one allocation: results are array lists.
template <class TCollection, class T>
class TDictionaryQuery final : public TContainerQuery<TCollection, IArrayList<T>, T> {
 public:
  explicit TDictionaryQuery(TCollection& collection)
      : TContainerQuery<TCollection, IArrayList<T>, T>(TRef<TCollection>(collection),
                                                       TRef<IComparer<T>>()) {}
  TRef<ISizeEnumerator<T>> NewSourceEnumerator() const override {
    return this->FCollection->NewSizeEnumerator();
  }
  const IComparer<T>* GetEquality() const override { return nullptr; }
  TRef<IArrayList<T>> NewResult() const override { return TArrayList<T>::Make(); }
  void AddToResult(const TRef<IArrayList<T>>& result, const T& item) const override {
    const TListState<T> state = result->GetState();
    StoreAtEnd(*state.Items, *state.Count, item);
  }
};

}  // namespace Detail

template <class K, class V, class TDict, class TBase>
V TDictionaryVerbs<K, V, TDict, TBase>::GetValueOrDefault(TKey key, V fallback) const {
  const V* found = this->GetDictionary().Find(key);
  return found ? *found : std::move(fallback);
}

template <class K, class V, class TDict, class TBase>
template <Detail::FactoryOf<V> F>
V TDictionaryVerbs<K, V, TDict, TBase>::GetOrAddValue(TKey key, F&& factory) {
  Detail::AssertCallable(factory);
  if (const V* found = this->GetDictionary().Find(key)) return *found;
  // The factory may change what `key` looks at, and drop the dictionary.
  const TRef<TDict> hold(Self());
  K owned(key);
  V made = factory();
  this->DoStoreOwned(std::move(owned), V(made), TPresentKey::Replace);
  return made;
}

template <class K, class V, class TDict, class TBase>
template <ActionOn<V> A, Detail::NotFoundAction N>
TDict& TDictionaryVerbs<K, V, TDict, TBase>::ForItem(TKey key, A&& onFound, N&& onNotFound) const {
  Detail::AssertCallable(onFound);
  if (const V* found = this->GetDictionary().Find(key)) {
    const V value = *found;
    onFound(value);
  } else if constexpr (!std::is_null_pointer_v<std::remove_cvref_t<N>>) {
    if constexpr (Detail::IsFunctionHandle<std::remove_cvref_t<N>>) {
      if (!onNotFound) return Mutable();
    }
    onNotFound();
  }
  return Mutable();
}

template <class K, class V, class TDict, class TBase>
template <ActionOn<K> A>
TDict& TDictionaryVerbs<K, V, TDict, TBase>::ForKeys(A&& action) const {
  Detail::AssertCallable(action);
  for (const TItem& item : *this) action(item.Key);
  return Mutable();
}

template <class K, class V, class TDict, class TBase>
template <ActionOn<V> A>
TDict& TDictionaryVerbs<K, V, TDict, TBase>::ForValues(A&& action) const {
  Detail::AssertCallable(action);
  for (const TItem& item : *this) action(item.Value);
  return Mutable();
}

template <class K, class V, class TDict, class TBase>
template <ActionOn<V> A>
TDict& TDictionaryVerbs<K, V, TDict, TBase>::Remove(TKey key, A&& action) {
  if constexpr (Detail::IsFunctionHandle<std::remove_cvref_t<A>>) {
    if (!action) return Remove(key);
  }
  const V* found = this->GetDictionary().Find(key);
  if (!found) return Self();
  // The action may change what `key` looks at, and drop the dictionary.
  const TRef<TDict> hold(Self());
  const K owned(key);
  const V value = *found;
  action(value);
  this->DoRemove(owned);
  return Self();
}

template <class K, class V, class TDict, class TBase>
TRef<IContainerQuery<TDict, IArrayList<TPair<K, V>>, TPair<K, V>>>
TDictionaryVerbs<K, V, TDict, TBase>::Query() const {
  return Create<Detail::TDictionaryQuery<TDict, TItem>>(Mutable());
}

/// A list of `part` of each item; its storage is taken at once.
template <class K, class V, class TDict, class TBase>
template <class T, class F>
TRef<IArrayList<T>> TDictionaryVerbs<K, V, TDict, TBase>::ListOf(F&& part) const {
  const auto& dictionary = this->GetDictionary();
  TRef<TArrayList<T>> list = TArrayList<T>::Create();
  if (dictionary.Count() > 0)
    list->SetCapacity(CheckedAdd(dictionary.Count(), 1), /*allowsTruncation*/ false);
  for (const TItem& item : dictionary) list->ProcedureAdd(part(item));
  return list;
}

template <class K, class V, class TDict, class TBase>
auto TDictionaryVerbs<K, V, TDict, TBase>::GetPairs() const -> TRef<IArrayList<TItem>> {
  return ListOf<TItem>([](const TItem& item) -> const TItem& { return item; });
}

template <class K, class V, class TDict, class TBase>
TRef<IArrayList<K>> TDictionaryVerbs<K, V, TDict, TBase>::GetKeys() const {
  return ListOf<K>([](const TItem& item) -> const K& { return item.Key; });
}

template <class K, class V, class TDict, class TBase>
TRef<IArrayList<V>> TDictionaryVerbs<K, V, TDict, TBase>::GetValues() const {
  return ListOf<V>([](const TItem& item) -> const V& { return item.Value; });
}

}  // namespace Talvo
