// SPDX-License-Identifier: Apache-2.0
#pragma once
// Dictionary: values by key, held by reference. The pairs stand in the order in which their keys
// came.
//
//   auto ports = TDictionary<string, int32_t>::Make({{u"left", 1}, {u"right", 2}});
//   ports->Add(u"middle", 3).Remove(u"left");        // mutators return the dictionary
//   int32_t port = ports[u"right"];
//   for (const auto& [name, number] : ports) ...
//
// Not locked: whoever owns the dictionary locks it. Enumerators keep it alive.

#include <talvo/containers/dictionary/DictionaryVerbs.h>
#include <talvo/containers/list/ChangeNotify.h>

namespace Talvo {

/// Values by key. K needs a hash (see talvo/runtime/Hash.h) and operator==.
template <class K, class V>
class IDictionary : public TDictionaryVerbs<K, V, IDictionary<K, V>, IDictionaryCore<K, V>> {
  TALVO_INTERFACE(IDictionary, IPairCollection<K, V>);
};

/// The dictionary class behind the interface `I`: IDictionary<K, V>, or one derived from it with
/// verbs of its own.
///
/// Subscribers are told of every change of the content: also when a value is set to what it was,
/// and once for all that RemoveAll or Clear takes out. What changes nothing is not announced.
/// What leaves the dictionary may use it as it ends.
template <class K, class V, class I>
class TDictionaryIntf
    : public TImplements<
          Detail::TDictionaryHolder<Rtl::TDictionary<K, V>, TInterfacedChangeNotifyObject<>>, I,
          IList> {
 public:
  using TItem = TPair<K, V>;

  // IList: pairs as tagged values.
  TRef<ISizeEnumerator<TValue>> GetValueEnumerator() const override;
  void ClearValues() override { this->DoClear(); }
  TValue GetNewValue() const override { return TValue::From(TItem{}); }
  void AddValue(const TValue& value) override { this->AddPair(value.AsType<TItem>()); }

  // The core of the dictionary interface.
  TRef<ISizeEnumerator<TItem>> NewSizeEnumerator() const override;
  const Rtl::TDictionary<K, V>& GetDictionary() const override { return this->FDictionary; }
  bool DoStore(TLookupKey<K> key, V&& value, TPresentKey present) override {
    return Store(key, value, present);
  }
  bool DoStoreOwned(K&& key, V&& value, TPresentKey present) override {
    return Store(std::move(key), value, present);
  }
  bool DoRemove(TLookupKey<K> key) override { return this->RemoveKey(key); }
  TItem DoExtract(TLookupKey<K> key) override;
  bool DoRemoveIf(TFunctionRef<bool(const TItem&)> predicate, bool isOnce) override {
    return this->RemoveItems(predicate, isOnce);
  }
  bool DoClear() override { return this->ClearItems(); }
  void DoTrimExcess() override { this->FDictionary.TrimExcess(); }

 protected:
  // Descendants may fill FDictionary itself: with room reserved, and with keys hashed already.
  // What they do there is not announced.
  TDictionaryIntf() = default;

 private:
  template <class Q>
  bool Store(Q&& key, V& value, TPresentKey present);
};

/// The makers of a concrete dictionary class: `Create` answers the class, `Make` the interface.
template <class TClass, class K, class V, class TDict>
class TDictionaryMakers {
 public:
  /// Empty, without storage.
  static TRef<TClass> Create() { return Talvo::Create<TClass>(); }
  static TRef<TDict> Make() { return Create(); }
  /// The pairs of a list in braces; the last of equal keys counts.
  static TRef<TClass> Create(std::initializer_list<TPair<K, V>> pairs) {
    return CreateFrom(Detail::SourceOfBraces(pairs));
  }
  static TRef<TDict> Make(std::initializer_list<TPair<K, V>> pairs) { return Create(pairs); }
  /// The pairs of another dictionary, or of any other sequence. Asserts that there is one.
  template <Detail::SourceOf<TPair<K, V>> S>
  static TRef<TClass> Create(S&& pairs) {
    return CreateFrom(Detail::TSource<TPair<K, V>>(std::forward<S>(pairs)));
  }
  template <Detail::SourceOf<TPair<K, V>> S>
  static TRef<TDict> Make(S&& pairs) {
    return Create(std::forward<S>(pairs));
  }

 private:
  static TRef<TClass> CreateFrom(const Detail::TSource<TPair<K, V>>& pairs) {
    TRef<TClass> made = Create();
    pairs.ForEach([&](const TPair<K, V>& pair) { made->Add(pair.Key, pair.Value); });
    return made;
  }
};

/// The dictionary of any types of keys and values.
template <class K, class V>
class TDictionary : public TDictionaryIntf<K, V, IDictionary<K, V>>,
                    public TDictionaryMakers<TDictionary<K, V>, K, V, IDictionary<K, V>> {};

template <class K, class V, class I>
TRef<ISizeEnumerator<TValue>> TDictionaryIntf<K, V, I>::GetValueEnumerator() const {
  return Create<TGenricValueSizeEnumerator<TItem>>(NewSizeEnumerator());
}

template <class K, class V, class I>
TRef<ISizeEnumerator<TPair<K, V>>> TDictionaryIntf<K, V, I>::NewSizeEnumerator() const {
  return Create<Detail::TDictionaryEnumerator<Rtl::TDictionary<K, V>, TItem>>(
      TRef<IInterface>(const_cast<TDictionaryIntf&>(*this)), this->FDictionary);
}

template <class K, class V, class I>
template <class Q>
bool TDictionaryIntf<K, V, I>::Store(Q&& key, V& value, TPresentKey present) {
  const auto stored = this->FDictionary.TryAdd(std::forward<Q>(key), std::move(value));
  if (stored.IsNew) {
    this->ChangeNotify();
    return true;
  }
  if (present == TPresentKey::Refuse) RaiseDuplicateKey();
  [[maybe_unused]] const V outgoing = Detail::ExchangeValue(stored.Value, value);  // ends last
  this->ChangeNotify();
  return true;
}

template <class K, class V, class I>
TPair<K, V> TDictionaryIntf<K, V, I>::DoExtract(TLookupKey<K> key) {
  const bool isThere = this->FDictionary.ContainsKey(key);
  TItem extracted = this->FDictionary.ExtractPair(key);
  if (isThere) this->ChangeNotify();
  return extracted;
}

}  // namespace Talvo

// Dictionaries from text to common types are compiled once, in Dictionary.cpp.
#define TALVO_DICTIONARY(Template, K, V)                                                       \
  Template Detail::TDictionaryHolder<Rtl::TDictionary<K, V>, TInterfacedChangeNotifyObject<>>; \
  Template TDictionaryIntf<K, V, IDictionary<K, V>>;                                           \
  Template TDictionary<K, V>

namespace Talvo {
TALVO_DICTIONARY(extern template class TALVO_API, string, int32_t);
TALVO_DICTIONARY(extern template class TALVO_API, string, string);
TALVO_DICTIONARY(extern template class TALVO_API, string, TRef<IInterface>);
}  // namespace Talvo
