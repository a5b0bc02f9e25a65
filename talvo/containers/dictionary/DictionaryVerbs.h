// SPDX-License-Identifier: Apache-2.0
#pragma once
// The verbs of dictionaries: what callers write, in two layers.
//
// IDictionaryCore<K, V> is the virtual core, one operation per thing that a dictionary can do.
// TDictionaryVerbs stands on it without a virtual call of its own: it picks the overload, takes
// lambdas in place, and answers the caller's own dictionary interface, so that
// `dictionary->Add(u"a", 1).Remove(u"b")` keeps its type through every derived interface.

#include <talvo/containers/dictionary/DictionaryHolder.h>
#include <talvo/containers/list/ArrayList.h>

namespace Talvo {

/// Pairs that can be walked and counted.
template <class K, class V>
using IPairCollection = ISizeEnumerable<TPair<K, V>>;

/// What storing a value does with a key that is there already.
enum class TPresentKey {
  Replace,  ///< Sets its value.
  Refuse    ///< Raises EDuplicateKey.
};

namespace Detail {

/// A key that is looked up first and copied only when it is new.
template <class Q, class K>
concept BorrowedKey = std::is_scalar_v<K> ||(DirectKeyFor<Q, K> && !std::is_same_v<Q, K>);

/// Code for the case that a key is missing, or null for none.
template <class F>
concept NotFoundAction = std::is_null_pointer_v<std::remove_cvref_t<F>> || std::invocable<F&>;

/// The items of a list in braces as a source.
template <class T>
TSource<T> SourceOfBraces(std::initializer_list<T> items) {
  return TSource<T>(items.begin(), CountOfSize(items.size()));
}

}  // namespace Detail

/// The virtual core of dictionaries. Mutators answer whether the content changed.
template <class K, class V>
class IDictionaryCore : public virtual IPairCollection<K, V> {
 public:
  using TItem = TPair<K, V>;

  /// The items, for lookups and walks; the caller keeps this object alive.
  virtual const Rtl::TDictionary<K, V>& GetDictionary() const = 0;

  /// Adds a key, or does what `present` says to one that is there; the second form takes the key
  /// over.
  virtual bool DoStore(TLookupKey<K> key, V&& value, TPresentKey present) = 0;
  virtual bool DoStoreOwned(K&& key, V&& value, TPresentKey present) = 0;
  /// Removes a key.
  virtual bool DoRemove(TLookupKey<K> key) = 0;
  /// Removes a key and hands it out; a missing one comes back with V{}.
  virtual TPair<K, V> DoExtract(TLookupKey<K> key) = 0;
  virtual bool DoRemoveIf(TFunctionRef<bool(const TPair<K, V>&)> predicate, bool isOnce) = 0;
  virtual bool DoClear() = 0;
  virtual void DoTrimExcess() = 0;

 protected:
  ~IDictionaryCore() = default;
};

/// The verbs over the core of `TBase`, answering TDict&.
///
/// Keys of text are looked up by a view, so literals and parts of other texts need no copy.
/// A reference to an item, key or value, and what a predicate or action gets of a walk, is valid
/// until the dictionary changes. Walks may change it: they meet what is there throughout once,
/// keys that are added at the end, and nothing that is gone. Only when gaps that removed keys
/// have left are closed, by adding or by TrimExcess, may some be met twice.
template <class K, class V, class TDict, class TBase>
class TDictionaryVerbs : public virtual TBase {
 public:
  using TItem = TPair<K, V>;
  using TKey = TLookupKey<K>;

  // --- Looking up -----------------------------------------------------------------------------

  /// The number of keys.
  int32_t GetCount() const { return this->GetDictionary().Count(); }
  int32_t Count() const { return GetCount(); }

  /// Whether there is such a key.
  bool ContainsKey(TKey key) const { return this->GetDictionary().ContainsKey(key); }
  /// Whether a key has this value, by operator==. O(Count()).
  bool ContainsValue(const V& value) const { return this->GetDictionary().ContainsValue(value); }

  /// The value of a key. Raises EKeyNotFound.
  const V& GetItem(TKey key) const { return this->GetDictionary().GetItem(key); }
  const V& Items(TKey key) const { return GetItem(key); }
  const V& operator[](TKey key) const { return GetItem(key); }
  /// Copies the value of a key; V{} and false when it is missing.
  bool GetValue(TKey key, V& value) const { return this->GetDictionary().TryGetValue(key, value); }
  /// The value of a key; V{}, or `fallback`, when it is missing.
  V GetValueOrDefault(TKey key) const { return GetValueOrDefault(key, V{}); }
  V GetValueOrDefault(TKey key, V fallback) const;
  /// The value of a key. A missing key is added with what the factory makes; the factory may
  /// change the dictionary, and what it makes replaces a value that it has set itself.
  template <Detail::FactoryOf<V> F>
  V GetOrAddValue(TKey key, F&& factory);

  /// Calls `onFound` with a copy of the value, or `onNotFound` when the key is missing. Both may
  /// change the dictionary.
  template <ActionOn<V> A, Detail::NotFoundAction N = std::nullptr_t>
  TDict& ForItem(TKey key, A&& onFound, N&& onNotFound = nullptr) const;
  /// Calls `action` with each key, or value.
  template <ActionOn<K> A>
  TDict& ForKeys(A&& action) const;
  template <ActionOn<V> A>
  TDict& ForValues(A&& action) const;

  // --- Storing --------------------------------------------------------------------------------

  /// Sets the value of a key; a missing key is added, behind the others. A key that is there keeps
  /// its place. Amortised O(1).
  template <Detail::KeyFor<K> Q = K>
  TDict& Add(Q&& key, V value) {
    TDict& self = Self();
    Store(std::forward<Q>(key), value, TPresentKey::Replace);
    return self;
  }
  TDict& Add(TItem pair) { return Add(std::move(pair.Key), std::move(pair.Value)); }
  TDict& AddPair(TItem pair) { return Add(std::move(pair)); }
  template <Detail::KeyFor<K> Q = K>
  void SetItem(Q&& key, V value) {
    Store(std::forward<Q>(key), value, TPresentKey::Replace);
  }
  /// Adds a key. Raises EDuplicateKey when it is there already.
  template <Detail::KeyFor<K> Q = K>
  TDict& AddExclusive(Q&& key, V value) {
    TDict& self = Self();
    Store(std::forward<Q>(key), value, TPresentKey::Refuse);
    return self;
  }

  // --- Taking out -----------------------------------------------------------------------------

  /// Removes a key, if it is there.
  TDict& Remove(TKey key) {
    TDict& self = Self();
    this->DoRemove(key);
    return self;
  }
  /// The same; a key that is there is removed after `action` has got a copy of its value. An empty
  /// action handle is fine.
  template <ActionOn<V> A>
  TDict& Remove(TKey key, A&& action);
  /// The same; whether it was there.
  bool IfRemove(TKey key) { return this->DoRemove(key); }
  /// Removes a key and hands it out with its value; a missing one comes back with V{}.
  TItem ExtractPair(TKey key) { return this->DoExtract(key); }

  /// Removes the first pair, or all pairs, that the predicate says yes to. When the predicate
  /// itself changes the dictionary, it may be asked again.
  template <PredicateOf<TItem> F>
  TDict& RemoveOne(F&& predicate) {
    TDict& self = Self();
    Detail::AssertCallable(predicate);
    this->DoRemoveIf(predicate, /*isOnce*/ true);
    return self;
  }
  template <PredicateOf<TItem> F>
  TDict& RemoveAll(F&& predicate) {
    TDict& self = Self();
    Detail::AssertCallable(predicate);
    this->DoRemoveIf(predicate, /*isOnce*/ false);
    return self;
  }

  /// Removes everything and gives the memory back.
  TDict& Clear() {
    TDict& self = Self();
    this->DoClear();
    return self;
  }
  /// Gives back what memory the items do not need. O(Count()).
  TDict& TrimExcess() {
    TDict& self = Self();
    this->DoTrimExcess();
    return self;
  }

  // --- Views ----------------------------------------------------------------------------------

  /// `for (const auto& [key, value] : dictionary)`; keeps the dictionary alive until the loop ends.
  auto begin() const {
    const auto& dictionary = this->GetDictionary();
    return Detail::TDictionaryIterator<Rtl::TDictionary<K, V>, TItem>(Mutable(), dictionary);
  }
  Detail::TDictionaryEnd end() const { return {}; }

  /// The read-side verbs over the pairs.
  TRef<IContainerQuery<TDict, IArrayList<TItem>, TItem>> Query() const;

  /// A new list of the pairs (keys, values), in the order in which the keys came.
  TRef<IArrayList<TItem>> GetPairs() const;
  TRef<IArrayList<K>> GetKeys() const;
  TRef<IArrayList<V>> GetValues() const;
  /// The same as an out argument, so that a chain goes on.
  TDict& GetPairs(TRef<IArrayList<TItem>>& pairs) const {
    pairs = GetPairs();
    return Mutable();
  }
  TDict& GetKeys(TRef<IArrayList<K>>& keys) const {
    keys = GetKeys();
    return Mutable();
  }
  TDict& GetValues(TRef<IArrayList<V>>& values) const {
    values = GetValues();
    return Mutable();
  }

 protected:
  ~TDictionaryVerbs() = default;

 private:
  TDict& Self() { return static_cast<TDict&>(*this); }
  TDict& Mutable() const { return const_cast<TDictionaryVerbs*>(this)->Self(); }
  template <class Q>
  void Store(Q&& key, V& value, TPresentKey present) {
    if constexpr (Detail::BorrowedKey<Q, K>) {
      this->DoStore(key, std::move(value), present);
    } else {
      this->DoStoreOwned(std::forward<Q>(key), std::move(value), present);
    }
  }
  template <class T, class F>
  TRef<IArrayList<T>> ListOf(F&& part) const;
};

}  // namespace Talvo

#include <talvo/containers/dictionary/DictionaryVerbs.inl.h>
