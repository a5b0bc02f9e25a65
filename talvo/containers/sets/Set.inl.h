// SPDX-License-Identifier: Apache-2.0
#pragma once
// Bodies of the set class and its verbs.

#include <talvo/containers/sets/Set.h>

namespace Talvo {

template <class T, class TSetI, class TBase>
const T& TSetVerbs<T, TSetI, TBase>::GetItem(int32_t index) const {
  const auto& dictionary = this->GetDictionary();
  if (static_cast<uint32_t>(index) >= static_cast<uint32_t>(dictionary.Count())) [[unlikely]]
    RaiseIndexOutOfRange(index);
  auto at = dictionary.begin();
  for (; index > 0; --index) ++at;
  return at->Key;
}

template <class T, class TSetI, class TBase>
TRef<IContainerQuery<TSetI, IArrayList<T>, T>> TSetVerbs<T, TSetI, TBase>::Query() const {
  return Create<Detail::TDictionaryQuery<TSetI, T>>(Mutable());
}

template <class T, class TSetI, class TBase>
bool TSetVerbs<T, TSetI, TBase>::HoldsEqual(const T& value) const {
  for (const auto& item : this->GetDictionary()) {
    if (DefaultCompare(item.Key, value) == 0) return true;
  }
  return false;
}

template <class T, class TSetI, class TBase>
bool TSetVerbs<T, TSetI, TBase>::IsSubsetOfSource(const Detail::TSource<T>& source) const {
  if (!source.IsBuffer()) {
    TRecArray<T> items;
    source.ForEach([&](const T& item) { items.Add(item); });
    return IsSubsetOfSource(Detail::TSource<T>(items.Value.Data(), items.Size));
  }
  for (const auto& item : this->GetDictionary()) {
    const bool isThere =
        source.Find([&](const T& other) { return DefaultCompare(item.Key, other) == 0; });
    if (!isThere) return false;
  }
  return true;
}

template <class T, class I>
TRef<ISizeEnumerator<TValue>> TSet<T, I>::GetValueEnumerator() const {
  return Talvo::Create<TGenricValueSizeEnumerator<T>>(NewSizeEnumerator());
}

template <class T, class I>
TRef<ISizeEnumerator<T>> TSet<T, I>::NewSizeEnumerator() const {
  return Talvo::Create<Detail::TDictionaryEnumerator<TMap, T>>(
      TRef<IInterface>(const_cast<TSet&>(*this)), this->FDictionary);
}

template <class T, class I>
bool TSet<T, I>::DoAppend(const Detail::TSource<T>& source) {
  if (source.IsObject(this)) return false;
  return this->Change([&](bool& hasChanged) {
    source.ForEach([&](const T& item) {
      if (this->FDictionary.TryAdd(item, 0).IsNew) hasChanged = true;
    });
  });
}

template <class T, class I>
bool TSet<T, I>::DoAssign(const Detail::TSource<T>& source) {
  if (source.IsObject(this)) return false;
  TMap items;
  if (source.IsBuffer()) items.Reserve(source.Size());
  source.ForEach([&](const T& item) { items.TryAdd(item, 0); });
  if (items.Count() == 0) return this->DoClear();
  std::swap(this->FDictionary, items);  // the old items end last
  this->ChangeNotify();
  return true;
}

template <class T, class I>
bool TSet<T, I>::DoRemoveSource(const Detail::TSource<T>& source) {
  if (source.IsObject(this)) return this->DoClear();
  return this->Change([&](bool& hasChanged) {
    source.ForEach([&](const T& item) {
      if (this->FDictionary.Remove(item)) hasChanged = true;
    });
  });
}

template <class T, class I>
bool TSet<T, I>::DoRemoveIf(TFunctionRef<bool(const T&)> predicate, bool isOnce) {
  return this->RemoveItems([&](const auto& item) { return predicate(item.Key); }, isOnce);
}

template <class T, class I>
bool TSet<T, I>::DoIntersect(const Detail::TSource<T>& source) {
  if (source.IsObject(this)) return false;
  TMap held;
  source.ForEach([&](const T& item) {
    if (this->FDictionary.ContainsKey(item)) held.TryAdd(item, 0);
  });
  return this->RemoveItems([&](const auto& item) { return !held.ContainsKey(item.Key); },
                           /*isOnce*/ false);
}

}  // namespace Talvo
