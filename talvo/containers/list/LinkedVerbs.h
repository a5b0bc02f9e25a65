// SPDX-License-Identifier: Apache-2.0
#pragma once
// The verbs of linked lists: what callers write, in two layers.
//
// ILinkedListCore<T> is the virtual core, one operation per thing that a list can do.
// TLinkedListVerbs stands on it without a virtual call of its own: it picks the overload, takes
// lambdas in place, and answers the caller's own list interface.

#include <talvo/containers/common/Query.h>
#include <talvo/containers/list/LinkedNodes.h>
#include <talvo/containers/list/ListVerbs.h>

namespace Talvo {

template <class T>
class ILinkedList;

namespace Detail {

struct TLinkedEnd {};

/// Walks a linked list in a range-for. Counts as a live enumerator and keeps the list alive until
/// the loop ends; it moves and does not copy.
template <class T>
class TLinkedIterator {
 public:
  using value_type = T;
  using difference_type = std::ptrdiff_t;

  TLinkedIterator(TRef<IInterface> list, TLinkedNodes<T>& nodes)
      : FList(std::move(list)), FWalk(nodes), FNode(nodes.FirstLive()) {}
  TLinkedIterator(TLinkedIterator&&) noexcept = default;
  TLinkedIterator& operator=(TLinkedIterator&& other) noexcept {
    // The old walk must end before the last reference to its list goes: `other` sees to it.
    FList.Swap(other.FList);
    FWalk = std::move(other.FWalk);
    std::swap(FNode, other.FNode);
    return *this;
  }
  const T& operator*() const { return FNode->Data; }
  const T* operator->() const { return &FNode->Data; }
  TLinkedIterator& operator++() {
    FNode = TLinkedNodes<T>::NextLive(FNode);
    return *this;
  }
  void operator++(int) { ++*this; }
  friend bool operator==(const TLinkedIterator& at, TLinkedEnd) { return !at.FNode; }

 private:
  TRef<IInterface> FList;
  typename TLinkedNodes<T>::TWalk FWalk;
  TLinkedNode<T>* FNode;
};

}  // namespace Detail

/// The virtual core of linked lists. Mutators answer whether the content changed.
template <class T>
class ILinkedListCore : public virtual ISizeEnumerable<T> {
 public:
  using TItem = T;

  /// The number of items, those marked as removed not among them.
  virtual int32_t GetCount() const = 0;
  /// The nodes, for loops that walk them directly; the caller keeps the list alive.
  virtual Detail::TLinkedNodes<T>& GetNodes() const = 0;
  /// A new empty list of the same kind, for results.
  virtual TRef<ILinkedList<T>> CreateList() const = 0;

  /// Behind the verbs of these names, each once for all of its forms.
  virtual bool DoAdd(const T& value, int32_t count) = 0;
  virtual void DoAddMoved(T&& value) = 0;
  virtual void DoAddFirst(const T& value) = 0;
  virtual bool DoAppend(const Detail::TSource<T>& source) = 0;
  virtual bool DoAssign(const Detail::TSource<T>& source) = 0;
  virtual Detail::TRemoval DoPopFirst(T& item) = 0;
  virtual Detail::TRemoval DoRemoveOne(TFunctionRef<bool(const T&)> accept) = 0;
  virtual bool DoRemoveAll(TFunctionRef<bool(const T&)> accept) = 0;
  virtual bool DoClear() = 0;

 protected:
  ~ILinkedListCore() = default;
};

/// The verbs over the core of `TBase`, answering TList&.
///
/// Items are equal when their default comparison says so; references and pointers by identity.
/// What raises in the middle (a predicate, a factory, the copy of an item) leaves a sound list.
/// A list that is removed from by a predicate counts as enumerated while the predicate runs.
template <class T, class TList, class TBase>
class TLinkedListVerbs : public virtual TBase {
 public:
  // --- Looking ------------------------------------------------------------------------------

  /// The number of items. Removal under an enumerator does not lower it, ever; Clear sets it to 0
  /// at once.
  int32_t Count() const { return this->GetCount(); }
  /// The last item, or the default value of T. O(1).
  T Last() const {
    T item{};
    Last(item);
    return item;
  }
  /// The same; whether there was one.
  bool Last(T& item) const;
  /// Calls `action` with the last item, if there is one.
  template <ActionOn<T> A>
  TList& ForLast(A&& action);
  /// The read-side verbs.
  TRef<IContainerQuery<TList, ILinkedList<T>, T>> Query() const;

  /// The loop counts as an enumerator until it ends: items may be removed and added in it, and
  /// what is added at the end is met.
  Detail::TLinkedIterator<T> begin() const {
    Detail::TLinkedNodes<T>& nodes = this->GetNodes();
    return {TRef<IInterface>(Mutable()), nodes};
  }
  Detail::TLinkedEnd end() const { return {}; }

  // --- Adding -------------------------------------------------------------------------------

  /// Adds `count` copies at the end. Raises ERangeError when `count` is below 0. O(count).
  TList& Add(const T& value, int32_t count = 1) {
    TList& self = Self();
    this->DoAdd(value, count);
    return self;
  }
  TList& Add(T&& value) {
    TList& self = Self();
    this->DoAddMoved(std::move(value));
    return self;
  }
  /// Adds in front of the first item. O(1).
  TList& AddFirst(const T& value) {
    TList& self = Self();
    this->DoAddFirst(value);
    return self;
  }
  /// Adds `value` unless an equal item is there. O(Count()).
  TList& AddUnique(const T& value) {
    TList& self = Self();
    IfAddUnique(value);
    return self;
  }
  /// The same; whether it added.
  bool IfAddUnique(const T& value);
  /// The first item that satisfies the predicate; without one, adds the factory's result (or the
  /// value) and answers that.
  template <PredicateOf<T> F, class V>
  requires(Detail::FactoryOf<V, T> || std::is_convertible_v<V&&, T>) T
      FindOrAdd(F&& predicate, V&& valueOrFactory);

  /// Adds a sequence, as it is when the call is made: a list may be appended to itself. When the
  /// sequence raises, nothing is added.
  template <class S>
  requires Detail::SourceOf<S, T> TList& Append(S&& source) {
    TList& self = Self();
    this->DoAppend(Detail::TSource<T>(std::forward<S>(source)));
    return self;
  }
  TList& Append(const T* items, int32_t count) {
    TList& self = Self();
    this->DoAppend(Detail::TSource<T>(items, count));
    return self;
  }
  TList& Append(std::initializer_list<T> items) {
    return Append(items.begin(), Detail::CountOfSize(items.size()));
  }

  /// AddUnique for each item of a sequence. O(n * m).
  template <class S>
  requires Detail::SourceOf<S, T> TList& AppendUnique(S&& source) {
    return AppendUniqueSource(Detail::TSource<T>(std::forward<S>(source)));
  }
  TList& AppendUnique(const T* items, int32_t count) {
    return AppendUniqueSource(Detail::TSource<T>(items, count));
  }
  TList& AppendUnique(std::initializer_list<T> items) {
    return AppendUnique(items.begin(), Detail::CountOfSize(items.size()));
  }

  /// Clears the list and adds a sequence. Assigning a list to itself does nothing; when the
  /// sequence raises, the list is as it was.
  template <class S>
  requires Detail::SourceOf<S, T> TList& Assign(S&& source) {
    TList& self = Self();
    this->DoAssign(Detail::TSource<T>(std::forward<S>(source)));
    return self;
  }
  TList& Assign(const T* items, int32_t count) {
    TList& self = Self();
    this->DoAssign(Detail::TSource<T>(items, count));
    return self;
  }
  TList& Assign(std::initializer_list<T> items) {
    return Assign(items.begin(), Detail::CountOfSize(items.size()));
  }

  // --- Taking out ---------------------------------------------------------------------------
  //
  // Without a live enumerator an item goes at once. Under one it is marked: walks pass it by, and
  // it goes when the last enumerator ends; Count() stays. The verbs for one item still find it
  // until then.

  /// Takes the first item out; the default value of T from an empty list. Under an enumerator the
  /// same item comes again at the next call. O(1).
  T PopFirst() {
    T item{};
    this->DoPopFirst(item);
    return item;
  }
  TList& PopFirst(T& item) {
    TList& self = Self();
    this->DoPopFirst(item);
    return self;
  }
  /// The same, handed to `action`; from an empty list nothing.
  template <ActionOn<T> A>
  requires(!std::is_same_v<std::remove_cvref_t<A>, T>) TList& PopFirst(A&& action) {
    TList& self = Self();
    IfPopFirst(action);
    return self;
  }
  /// The same; whether there was one.
  bool IfPopFirst(T& item) { return this->DoPopFirst(item) != Detail::TRemoval::Missed; }
  template <ActionOn<T> A>
  requires(!std::is_same_v<std::remove_cvref_t<A>, T>) bool IfPopFirst(A&& action);

  /// Removes the first item equal to `value`; whether there was one.
  bool FindAndRemoveOne(const T& value);
  /// Removes the first item that satisfies the predicate. `item` gets it when it is gone at once,
  /// and stays cleared when it is only marked.
  template <PredicateOf<T> F>
  bool FindAndRemoveOne(F&& predicate, T& item);
  /// The same, handed to `action` in either case.
  template <PredicateOf<T> F, ActionOn<T> A>
  requires(!std::is_same_v<std::remove_cvref_t<A>, T>) TList& FindAndRemoveOne(F&& predicate,
                                                                               A&& action);
  /// Removes the first item that equals `value` or satisfies the predicate. O(Count()).
  template <class X>
  requires(Detail::ValueArgument<X, T> ||
           Detail::PredicateArgument<X, T>) TList& RemoveOne(X&& valueOrPredicate);

  /// Removes all items that equal `value` or satisfy the predicate, which is asked from the first
  /// item to the last. O(Count()).
  template <class X>
  requires(Detail::ValueArgument<X, T> ||
           Detail::PredicateArgument<X, T>) TList& RemoveAll(X&& valueOrPredicate);
  /// RemoveOne for each item of a sequence. O(n * m).
  template <class S>
  requires Detail::SourceOf<S, T> TList& RemoveAll(S&& source) {
    return RemoveAllSource(Detail::TSource<T>(std::forward<S>(source)));
  }
  TList& RemoveAll(const T* items, int32_t count) {
    return RemoveAllSource(Detail::TSource<T>(items, count));
  }
  TList& RemoveAll(std::initializer_list<T> items) {
    return RemoveAll(items.begin(), Detail::CountOfSize(items.size()));
  }

  /// Removes all items and sets Count() to 0. Under an enumerator the first one stays.
  TList& Clear() {
    TList& self = Self();
    this->DoClear();
    return self;
  }

 protected:
  ~TLinkedListVerbs() = default;

 private:
  // Taken before a change: whoever is told of it may drop the last reference to the list.
  TList& Self() { return static_cast<TList&>(*this); }
  TList& Mutable() const { return const_cast<TLinkedListVerbs*>(this)->Self(); }
  template <class F>
  Detail::TRemoval RemoveOneInto(T& found, F& predicate);
  TList& AppendUniqueSource(const Detail::TSource<T>& source);
  TList& RemoveAllSource(const Detail::TSource<T>& source);
};

}  // namespace Talvo
