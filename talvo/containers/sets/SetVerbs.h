// SPDX-License-Identifier: Apache-2.0
#pragma once
// The verbs of sets: what callers write, in two layers.
//
// ISetCore<T> is the virtual core, one operation per thing that a set can do. TSetVerbs stands on
// it without a virtual call of its own: it picks the overload, takes lambdas in place, and answers
// the caller's own set interface.

#include <talvo/containers/dictionary/DictionaryVerbs.h>

namespace Talvo {
namespace Detail {

/// One item to look for, and no sequence of items.
template <class X, class T>
concept ItemArgument = std::is_same_v<std::remove_cvref_t<X>, T> ||
    (std::convertible_to<X&, TLookupKey<T>> && !SourceOf<X, T>);

}  // namespace Detail

/// The virtual core of sets. Mutators answer whether the content changed.
template <class T>
class ISetCore : public virtual ISizeEnumerable<T> {
 public:
  using TItem = T;

  /// The items as keys, for lookups and walks; the caller keeps this object alive.
  virtual const Rtl::TDictionary<T, int32_t>& GetDictionary() const = 0;

  /// Behind the verbs of these names, each once for all of its forms; DoAddOwned takes the item
  /// over, DoRemoveIf ends after the first one if `isOnce`.
  virtual bool DoAdd(TLookupKey<T> item) = 0;
  virtual bool DoAddOwned(T&& item) = 0;
  virtual bool DoAppend(const Detail::TSource<T>& source) = 0;
  virtual bool DoAssign(const Detail::TSource<T>& source) = 0;
  virtual bool DoRemove(TLookupKey<T> item) = 0;
  virtual bool DoRemoveSource(const Detail::TSource<T>& source) = 0;
  virtual bool DoRemoveIf(TFunctionRef<bool(const T&)> predicate, bool isOnce) = 0;
  virtual bool DoIntersect(const Detail::TSource<T>& source) = 0;
  virtual bool DoClear() = 0;

 protected:
  ~ISetCore() = default;
};

/// The verbs over the core of `TBase`, answering TSetI&.
///
/// A source is a sequence in any form: an enumerable or enumerator with or without a size, an
/// enumerator object, an array, vector, span or list in braces; the set itself will do. Items of
/// text are looked up by a view. A reference to an item, and what a predicate gets, is valid until
/// the set changes. Walks may change it: they meet what is there throughout, items that are added
/// at the end, and nothing that is gone.
template <class T, class TSetI, class TBase>
class TSetVerbs : public virtual TBase {
 public:
  using TKey = TLookupKey<T>;

  // --- Items ----------------------------------------------------------------------------------

  /// The number of items.
  int32_t GetCount() const { return this->GetDictionary().Count(); }
  int32_t Count() const { return GetCount(); }
  /// The item at `index`, counted from 0 in the order in which the items came. Raises ERangeError
  /// "Index out of range = %u" outside 0 to Count() - 1. O(index): walk the set where you can.
  const T& GetItem(int32_t index) const;
  const T& Items(int32_t index) const { return GetItem(index); }
  const T& operator[](int32_t index) const { return GetItem(index); }
  bool Contains(TKey item) const { return this->GetDictionary().ContainsKey(item); }

  /// `for (const T& item : set)`; keeps the set alive until the loop ends.
  auto begin() const {
    const auto& dictionary = this->GetDictionary();
    return Detail::TDictionaryIterator<Rtl::TDictionary<T, int32_t>, T>(Mutable(), dictionary);
  }
  Detail::TDictionaryEnd end() const { return {}; }

  /// The read-side verbs; their results are lists.
  TRef<IContainerQuery<TSetI, IArrayList<T>, T>> Query() const;

  // --- Adding ---------------------------------------------------------------------------------

  /// Adds an item that is not there yet, behind the others. Amortised O(1).
  template <Detail::KeyFor<T> Q = T>
  TSetI& Add(Q&& item) {
    TSetI& self = Self();
    IfAdd(std::forward<Q>(item));
    return self;
  }
  /// The same; whether it added.
  template <Detail::KeyFor<T> Q = T>
  bool IfAdd(Q&& item) {
    if constexpr (Detail::BorrowedKey<Q, T>) {
      return this->DoAdd(item);
    } else {
      return this->DoAddOwned(std::forward<Q>(item));
    }
  }

  /// Adds each item of a source that is not there yet.
  template <Detail::SourceOf<T> S>
  TSetI& Append(S&& source) {
    TSetI& self = Self();
    this->DoAppend(Detail::TSource<T>(std::forward<S>(source)));
    return self;
  }
  TSetI& Append(std::initializer_list<T> items) {
    TSetI& self = Self();
    this->DoAppend(Detail::SourceOfBraces(items));
    return self;
  }
  /// As Append.
  template <Detail::SourceOf<T> S>
  TSetI& Union(S&& source) {
    return Append(std::forward<S>(source));
  }
  TSetI& Union(std::initializer_list<T> items) { return Append(items); }

  /// Replaces the content by the items of a source, in its order. When the source raises, the set
  /// is as it was. A walk that is under way ends or goes on among the new items.
  template <Detail::SourceOf<T> S>
  TSetI& Assign(S&& source) {
    TSetI& self = Self();
    this->DoAssign(Detail::TSource<T>(std::forward<S>(source)));
    return self;
  }
  TSetI& Assign(std::initializer_list<T> items) {
    TSetI& self = Self();
    this->DoAssign(Detail::SourceOfBraces(items));
    return self;
  }

  // --- Taking out -----------------------------------------------------------------------------

  /// Removes an item, if it is there.
  template <Detail::ItemArgument<T> X>
  TSetI& Remove(X&& item) {
    TSetI& self = Self();
    this->DoRemove(item);
    return self;
  }
  /// Removes each item of a source.
  template <Detail::SourceOf<T> S>
  TSetI& Remove(S&& source) {
    TSetI& self = Self();
    this->DoRemoveSource(Detail::TSource<T>(std::forward<S>(source)));
    return self;
  }
  TSetI& Remove(std::initializer_list<T> items) {
    TSetI& self = Self();
    this->DoRemoveSource(Detail::SourceOfBraces(items));
    return self;
  }
  /// Removes an item; whether it was there.
  bool IfRemove(TKey item) { return this->DoRemove(item); }
  /// Removes the first item, or all items, that the predicate says yes to. When the predicate
  /// itself changes the set, it may be asked again.
  template <PredicateOf<T> F>
  TSetI& RemoveOne(F&& predicate) {
    TSetI& self = Self();
    Detail::AssertCallable(predicate);
    this->DoRemoveIf(predicate, /*isOnce*/ true);
    return self;
  }
  template <PredicateOf<T> F>
  TSetI& RemoveAll(F&& predicate) {
    TSetI& self = Self();
    Detail::AssertCallable(predicate);
    this->DoRemoveIf(predicate, /*isOnce*/ false);
    return self;
  }
  /// Removes what the source does not hold. When the source raises, the set is as it was.
  template <Detail::SourceOf<T> S>
  TSetI& Intersect(S&& source) {
    TSetI& self = Self();
    this->DoIntersect(Detail::TSource<T>(std::forward<S>(source)));
    return self;
  }
  TSetI& Intersect(std::initializer_list<T> items) {
    TSetI& self = Self();
    this->DoIntersect(Detail::SourceOfBraces(items));
    return self;
  }
  /// Removes everything and gives the memory back.
  TSetI& Clear() {
    TSetI& self = Self();
    this->DoClear();
    return self;
  }

  // --- Comparing ------------------------------------------------------------------------------
  //
  // These compare each item with each by the default comparer of T, not by hash. O(n * m).

  /// Whether the source holds all items of this set. A source without items at hand is walked
  /// once, into a copy.
  template <Detail::SourceOf<T> S>
  bool IsSubsetOf(S&& source) const {
    return IsSubsetOfSource(Detail::TSource<T>(std::forward<S>(source)));
  }
  bool IsSubsetOf(std::initializer_list<T> items) const {
    return IsSubsetOfSource(Detail::SourceOfBraces(items));
  }
  /// Whether this set holds all items of the source.
  template <Detail::SourceOf<T> S>
  bool IsSupersetOf(S&& source) const {
    return IsSupersetOfSource(Detail::TSource<T>(std::forward<S>(source)));
  }
  bool IsSupersetOf(std::initializer_list<T> items) const {
    return IsSupersetOfSource(Detail::SourceOfBraces(items));
  }
  /// Whether this set holds any item of the source.
  template <Detail::SourceOf<T> S>
  bool Overlaps(S&& source) const {
    return OverlapsSource(Detail::TSource<T>(std::forward<S>(source)));
  }
  bool Overlaps(std::initializer_list<T> items) const {
    return OverlapsSource(Detail::SourceOfBraces(items));
  }

 protected:
  ~TSetVerbs() = default;

 private:
  TSetI& Self() { return static_cast<TSetI&>(*this); }
  TSetI& Mutable() const { return const_cast<TSetVerbs*>(this)->Self(); }
  bool HoldsEqual(const T& value) const;
  bool IsSubsetOfSource(const Detail::TSource<T>& source) const;
  bool IsSupersetOfSource(const Detail::TSource<T>& source) const {
    return !source.Find([this](const T& item) { return !HoldsEqual(item); });
  }
  bool OverlapsSource(const Detail::TSource<T>& source) const {
    return source.Find([this](const T& item) { return HoldsEqual(item); });
  }
};

}  // namespace Talvo
