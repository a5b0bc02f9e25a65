// SPDX-License-Identifier: Apache-2.0
#pragma once
// Queries: the read-side verbs of every container.
//
//   auto large = list->Query()->Filter([](int32_t n) { return n > 9; });   // a new list
//   int32_t sum = large->Query()->Sum([](int32_t n) { return n; });
//
// A query is eager: each verb walks the source as it is at that moment and is done when it
// returns. It keeps its source alive, takes no lock and belongs to one thread. Lambdas run in
// place; over an array list no enumerator is made. Null functions are assertion failures.

#include <talvo/containers/common/Data.h>
#include <talvo/containers/common/Source.h>
#include <talvo/runtime/Comparer.h>

namespace Talvo {
namespace Detail {

/// Compares two items; null stands for the equality of the source.
template <class F, class T>
concept EqualityTestOf =
    std::is_null_pointer_v<std::remove_cvref_t<F>> || std::predicate<F&, const T&, const T&>;
/// Makes a whole number of an item.
template <class F, class T>
concept NumberOf = std::is_invocable_r_v<int32_t, F&, const T&> &&
    !std::is_floating_point_v<std::remove_cvref_t<std::invoke_result_t<F&, const T&>>>;
/// Takes an item, or a position and an item.
template <class A, class T>
concept VisitorOf = ActionOn<A, T> || std::invocable<A&, int32_t, const T&>;

}  // namespace Detail

/// Verbs that look at a sequence of T. Descendants give the three operations at the end.
template <class T>
class IQuery : public virtual IInterface {
  TALVO_INTERFACE(IQuery, IInterface);

  /// Whether the items equal those of `other`, one by one and in number. Items are compared by
  /// `test`, or without one by the source's equality; the source's item stands on the left. An
  /// empty TArray raises ERangeError.
  template <Detail::BorrowedSourceOf<T> S, Detail::EqualityTestOf<T> F = std::nullptr_t>
  bool Equals(const S& other, F&& test = nullptr) const;
  template <Detail::EqualityTestOf<T> F = std::nullptr_t>
  bool Equals(std::initializer_list<T> other, F&& test = nullptr) const;
  /// Against an enumerator object: it is freed when the source was walked to its end, and stays
  /// with the caller when the answer was an early false.
  template <std::derived_from<TEnumerator<T>> E, Detail::EqualityTestOf<T> F = std::nullptr_t>
  bool Equals(TOwn<E>& other, F&& test = nullptr) const;

  /// Whether any item of `other` is contained here.
  template <Detail::EnumerableOf<T> S>
  bool Intersects(const S& other) const;

  /// Whether an item equals `value`, or satisfies the predicate.
  template <Detail::Sought<T> X>
  bool Contains(X&& valueOrPredicate) const;
  /// The number of items that equal `value`, or satisfy the predicate.
  template <Detail::Sought<T> X>
  int32_t CountOf(X&& valueOrPredicate) const;
  /// The sum of a whole number from each item; EIntOverflow when it does not fit on the way.
  template <Detail::NumberOf<T> F>
  int32_t Sum(F&& number) const;

  /// The first item that satisfies the predicate; false and the default value without one.
  template <PredicateOf<T> F>
  bool IfFind(F&& predicate, T& item) const;
  /// Calls `action` with that item, if there is one.
  template <PredicateOf<T> F, Detail::ActionArgument<T> A>
  bool IfFind(F&& predicate, A&& action) const;

  bool IsEmpty() const;
  /// The first item, or the default value of T.
  T First() const;
  bool First(T& item) const;

  /// The position of the first item that equals `value` or satisfies the predicate; -1 and false
  /// without one.
  template <Detail::Sought<T> X>
  bool IndexOf(X&& valueOrPredicate, int32_t& index) const;
  /// Calls `action` with that position, if there is one.
  template <Detail::Sought<T> X, Detail::ActionArgument<int32_t> A>
  bool IndexOf(X&& valueOrPredicate, A&& action) const;

  /// A fresh walk over the source.
  virtual TRef<ISizeEnumerator<T>> NewSourceEnumerator() const = 0;
  /// The source's storage when the verbs may walk it directly; they then read the count once.
  /// False when they have to use an enumerator.
  virtual bool GetSourceArray(const TArray<T>*& items, const TCountCell*& count) const = 0;
  /// How items are compared for equality; null for the default order of T.
  virtual const IComparer<T>* GetEquality() const = 0;

 protected:
  /// Calls `accept` with the items in turn until it answers true; whether it did.
  template <class F>
  bool Walk(F&& accept) const;
  /// For each item that `accept` answers true for, calls `use` with a reader of that item, until
  /// `use` answers true. The reader is safe even if `accept` has changed the source.
  template <class F, class U>
  bool Walk(F&& accept, U&& use) const;
  /// Calls `use` with `valueOrPredicate` as a predicate on items.
  template <class X, class U>
  auto WithPredicate(X& valueOrPredicate, U&& use) const;
  /// Calls `use` with `test`, or with the source's equality in its stead.
  template <class F, class U>
  bool WithTest(F& test, U&& use) const;
  template <class Next, class Current, class F>
  bool EqualsWalk(Next&& otherNext, Current&& otherCurrent, F&& test, bool& hasEnded) const;
  template <class F>
  bool EqualsSource(const Detail::TSource<T>& other, F& test) const;
};

/// Adds the verbs that make a new collection of type TResult.
template <class TResult, class T>
class IBasicContainerQuery : public virtual IQuery<T> {
  TALVO_INTERFACE(IBasicContainerQuery, IQuery<T>);

  /// A new collection of the items that satisfy the predicate.
  template <PredicateOf<T> F>
  TRef<TResult> Filter(F&& predicate) const;
  /// A new collection without the first `count` items.
  TRef<TResult> Skip(int32_t count) const;
  /// A new collection of the first `count` items.
  TRef<TResult> Take(int32_t count) const;

  virtual TRef<TResult> NewResult() const = 0;
  virtual void AddToResult(const TRef<TResult>& result, const T& item) const = 0;
  /// The storage of a result that may be filled directly, or null.
  virtual IArrayListState<T>* GetResultState(const TRef<TResult>& result) const = 0;

 private:
  /// Adds the accepted ones of the items `from` to `to` - 1, if the source is an array.
  template <class F>
  bool FillDirectly(const TRef<TResult>& result, int32_t from, int32_t to, F&& accept) const;
};

/// What a query is made of, for generic code above the library.
template <class TCollection, class TResult, class T>
class TContainerQueryAccess final : public TObject {
 public:
  TContainerQueryAccess(TFunc<TRef<ISizeEnumerator<T>>> createEnumerator,
                        TRef<TCollection> collection)
      : FCreateEnumerator(std::move(createEnumerator)), FCollection(std::move(collection)) {}
  const TFunc<TRef<ISizeEnumerator<T>>>& CreateEnumerator() const { return FCreateEnumerator; }
  const TRef<TCollection>& Collection() const { return FCollection; }

 private:
  TFunc<TRef<ISizeEnumerator<T>>> FCreateEnumerator;
  TRef<TCollection> FCollection;
};

/// Adds the verbs that answer the queried collection itself, so that a chain goes on with it.
template <class TCollection, class TResult, class T>
class IContainerQuery : public virtual IBasicContainerQuery<TResult, T> {
  TALVO_INTERFACE(IContainerQuery, IBasicContainerQuery<TResult, T>);

  /// As IfFind; the answer is the collection.
  template <PredicateOf<T> F>
  TRef<TCollection> Find(F&& predicate, T& item) const;
  template <PredicateOf<T> F, Detail::ActionArgument<T> A>
  TRef<TCollection> Find(F&& predicate, A&& action) const;
  /// Calls `action` with each item, or with each position (from 0) and item.
  template <Detail::VisitorOf<T> A>
  TRef<TCollection> ForEach(A&& action) const;
  /// Calls `action` with the first item, if there is one.
  template <ActionOn<T> A>
  TRef<TCollection> ForFirst(A&& action) const;
  /// Calls `action` with the first item that satisfies the predicate, if there is one.
  template <PredicateOf<T> F, ActionOn<T> A>
  TRef<TCollection> ForFirst(F&& predicate, A&& action) const;
  /// Calls `action` with the collection.
  template <ActionOn<TRef<TCollection>> A>
  TRef<TCollection> DoOnce(A&& action) const;
  /// The collection and a maker of enumerators; owned by the query.
  virtual TContainerQueryAccess<TCollection, TResult, T>* Access() = 0;

  virtual TRef<TCollection> GetCollection() const = 0;
};

/// The verbs over a function that makes enumerators.
template <class T>
class TQuery : public TImplements<TBasicInterfacedObject, IQuery<T>> {
 public:
  /// Asserts that there is a function. Without a comparer the default one of T serves.
  explicit TQuery(TFunc<TRef<ISizeEnumerator<T>>> createEnumerator,
                  TRef<IComparer<T>> comparer = nullptr)
      : FCreateEnumerator(std::move(createEnumerator)), FComparer(std::move(comparer)) {
    Assert(static_cast<bool>(FCreateEnumerator));
  }

  /// The object that an item is or leads to; false when items are none or the interface is null.
  virtual bool GetAsObject(const T& item, TObject*& object) const;
  /// The interface that an item is or leads to; false when there is none.
  virtual bool GetAsInterface(const T& item, TRef<IInterface>& interface) const;

  TRef<ISizeEnumerator<T>> NewSourceEnumerator() const override { return FCreateEnumerator(); }
  bool GetSourceArray(const TArray<T>*&, const TCountCell*&) const override { return false; }
  const IComparer<T>* GetEquality() const override {
    return FComparer && !FComparer->IsDefault() ? FComparer.Get() : nullptr;
  }

 protected:
  /// For descendants that make their enumerators themselves, when there is no function.
  explicit TQuery(TRef<IComparer<T>> comparer) : FComparer(std::move(comparer)) {}

  TFunc<TRef<ISizeEnumerator<T>>> FCreateEnumerator;
  TRef<IComparer<T>> FComparer;  // none: the default one
};

/// The verbs over a collection that makes enumerators and results by functions.
template <class TCollection, class TResult, class T>
class TContainerQuery : public TImplements<TQuery<T>, IContainerQuery<TCollection, TResult, T>> {
  using TBase = TImplements<TQuery<T>, IContainerQuery<TCollection, TResult, T>>;

 public:
  /// Makes an empty result, and adds an item to one.
  using TCreateCollection = TFunc<TRef<TResult>>;
  using TAddToCollection = TConstProc<TRef<TResult>, T>;

  TContainerQuery(TFunc<TRef<ISizeEnumerator<T>>> createEnumerator,
                  TCreateCollection createCollection, TAddToCollection addToCollection,
                  TRef<TCollection> collection, TRef<IComparer<T>> comparer = nullptr)
      : TBase(std::move(createEnumerator), std::move(comparer)),
        FCreateCollection(std::move(createCollection)),
        FAddToCollection(std::move(addToCollection)),
        FCollection(std::move(collection)) {
    Assert(FCreateCollection && FAddToCollection);
  }

  TContainerQueryAccess<TCollection, TResult, T>* Access() override;
  TRef<TCollection> GetCollection() const override { return FCollection; }
  TRef<TResult> NewResult() const override { return FCreateCollection(); }
  void AddToResult(const TRef<TResult>& result, const T& item) const override {
    FAddToCollection(result, item);
  }
  IArrayListState<T>* GetResultState(const TRef<TResult>&) const override { return nullptr; }

 protected:
  TContainerQuery(TRef<TCollection> collection, TRef<IComparer<T>> comparer)
      : TBase(std::move(comparer)), FCollection(std::move(collection)) {}

  TCreateCollection FCreateCollection;
  TAddToCollection FAddToCollection;
  TRef<TCollection> FCollection;
  TOwn<TContainerQueryAccess<TCollection, TResult, T>> FAccess;
};

/// The same verbs over the storage of an array list: no enumerator, no virtual calls per item. They
/// run forward from index 0.
template <class TCollection, class TResult, class T>
class TArraySizeContainerQuery : public TContainerQuery<TCollection, TResult, T> {
  using TBase = TContainerQuery<TCollection, TResult, T>;

 public:
  /// `items` and `count` are the addresses of the collection's storage and count.
  TArraySizeContainerQuery(TFunc<TRef<ISizeEnumerator<T>>> createEnumerator,
                           typename TBase::TCreateCollection createCollection,
                           typename TBase::TAddToCollection addToCollection,
                           TRef<TCollection> collection, const TArray<T>* items,
                           const TCountCell* count, TRef<IComparer<T>> comparer = nullptr)
      : TBase(std::move(createEnumerator), std::move(createCollection), std::move(addToCollection),
              std::move(collection), std::move(comparer)),
        FArrayPrt(items),
        FCountPtr(count) {}

  bool GetSourceArray(const TArray<T>*& items, const TCountCell*& count) const override {
    items = FArrayPrt;
    count = FCountPtr;
    return true;
  }

 protected:
  TArraySizeContainerQuery(TRef<TCollection> collection, TRef<IComparer<T>> comparer,
                           const TArray<T>* items, const TCountCell* count)
      : TBase(std::move(collection), std::move(comparer)), FArrayPrt(items), FCountPtr(count) {}

  const TArray<T>* FArrayPrt;
  const TCountCell* FCountPtr;
};

namespace Detail {

/// A query whose items are equal when they are the same object or interface.
template <class TBase, class T>
class TIdentityQuery : public TBase {
 public:
  using TBase::TBase;
  const IComparer<T>* GetEquality() const override { return nullptr; }
};

}  // namespace Detail

/// For items that are objects: equality is identity.
template <class TCollection, class TResult, class T>
class TObjectContainerQuery
    : public Detail::TIdentityQuery<TContainerQuery<TCollection, TResult, T>, T> {
  static_assert(std::is_pointer_v<T>, "The items of an object query are pointers to objects.");
  using Detail::TIdentityQuery<TContainerQuery<TCollection, TResult, T>, T>::TIdentityQuery;
};
template <class TCollection, class TResult, class T>
class TObjectArraySizeContainerQuery
    : public Detail::TIdentityQuery<TArraySizeContainerQuery<TCollection, TResult, T>, T> {
  static_assert(std::is_pointer_v<T>, "The items of an object query are pointers to objects.");
  using Detail::TIdentityQuery<TArraySizeContainerQuery<TCollection, TResult, T>,
                               T>::TIdentityQuery;
};
/// For items that are interfaces: equality is identity of the reference.
template <class TCollection, class TResult, class T>
class TInterfaceContainerQuery
    : public Detail::TIdentityQuery<TContainerQuery<TCollection, TResult, T>, T> {
  static_assert(IsReference<T>, "The items of an interface query are references.");
  using Detail::TIdentityQuery<TContainerQuery<TCollection, TResult, T>, T>::TIdentityQuery;
};
template <class TCollection, class TResult, class T>
class TInterfaceArraySizeContainerQuery
    : public Detail::TIdentityQuery<TArraySizeContainerQuery<TCollection, TResult, T>, T> {
  static_assert(IsReference<T>, "The items of an interface query are references.");
  using Detail::TIdentityQuery<TArraySizeContainerQuery<TCollection, TResult, T>,
                               T>::TIdentityQuery;
};

}  // namespace Talvo

#include <talvo/containers/common/Query.inl.h>
