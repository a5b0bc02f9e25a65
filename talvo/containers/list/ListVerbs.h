// SPDX-License-Identifier: Apache-2.0
#pragma once
// The verbs of array lists: what callers write, in two layers.
//
// IArrayListCore<T> is the virtual core, one operation per thing that a list can do. TListVerbs
// stands on it without a virtual call of its own: it picks the overload, takes lambdas in
// place, and answers the caller's own list interface, so that
// `list->Add(1).Add(2).Sort()` keeps its type through every derived list.

#include <talvo/containers/common/Query.h>

namespace Talvo {

template <class T>
class IArrayList;

/// The count of ExtractFirst and ExtractLast where T is integral itself.
struct TItemCount {
  int32_t Value;
};

namespace Detail {

/// Converts to T, and not only as a pointer does through bool: that way braces refuse.
template <class F, class T>
concept ConvertsAsItself =
    std::is_convertible_v<F, T> && !std::is_arithmetic_v<T> && requires(F && value) {
  T{static_cast<F&&>(value)};
};
/// Makes a value on demand, and is none itself.
template <class F, class T>
concept FactoryOf = std::invocable<F&> && !std::is_same_v<std::remove_cvref_t<F>, T> &&
                    std::is_convertible_v<std::invoke_result_t<F&>, T> && !ConvertsAsItself<F, T>;
/// A value, or a factory of values.
template <class V, class T>
concept ValueOrFactory = FactoryOf<V, T> || std::is_convertible_v<V&&, T>;

/// A pointer to items, not to a class derived from theirs.
template <class P, class T>
concept PointerTo =
    std::is_pointer_v<P> && std::is_same_v<std::remove_cv_t<std::remove_pointer_t<P>>, T>;

/// An action on items that may be left out.
template <class A, class T>
concept OptionalActionOn = std::is_null_pointer_v<std::remove_cvref_t<A>> || ActionOn<A, T>;

/// Compares two items: a number or an ordering below, at or above 0.
template <class C, class T>
concept ComparisonOf = requires(C& compare, const T& item) {
  { compare(item, item) < 0 } -> std::convertible_to<bool>;
  { compare(item, item) > 0 } -> std::convertible_to<bool>;
};

/// A count as a caller has it, cut to what an int32_t can hold.
template <std::integral N>
int32_t ClipCount(N count) {
  int32_t clipped;
  return !__builtin_add_overflow(+count, 0, &clipped) ? clipped : count > N{} ? INT32_MAX : -1;
}

/// Arranges `count` items at `items` in place.
template <class T>
using TSorter = TFunctionRef<void(T* items, int32_t count)>;

/// A list's storage and count, at addresses that stay right while the list lives. The count may
/// pass the storage's length after a failed Assign; every access is checked against the storage.
template <class T>
struct TListState {
  TArray<T>* Items;
  TCountCell* Count;
  int32_t SafeCount() const {
    const int32_t length = Items->Length();
    return *Count > length ? length : *Count > 0 ? int32_t{*Count} : 0;
  }
};

}  // namespace Detail

/// The virtual core of array lists. Mutators answer whether the content changed.
template <class T>
class IArrayListCore : public virtual IReverseIndexedEnumerable<T> {
 public:
  using TItem = T;

  /// Count and items, as the verbs of these names tell.
  virtual int32_t GetCount() const = 0;
  virtual const T& GetItem(int32_t index) const = 0;
  /// Storage and count; a list that builds its items on demand builds them first.
  virtual Detail::TListState<T> GetState() const = 0;
  /// How items are compared for equality; null for the default order of T.
  virtual const IComparer<T>* GetEquality() const = 0;
  /// A new empty list of the same class, for results.
  virtual TRef<IArrayList<T>> CreateList() const = 0;

  // What the verbs do, each once for all of its forms. The arguments are as the caller gave them.

  /// Behind SetCount, SetItem, Insert, Add, AddFront, Append, Assign and Delete.
  virtual bool DoSetCount(int32_t count) = 0;
  virtual bool DoSetItem(int32_t index, const T& value) = 0;
  virtual bool DoInsert(int32_t index, const T& value, int32_t count) = 0;
  virtual bool DoInsertSource(int32_t index, const Detail::TSource<T>& source) = 0;
  virtual bool DoAdd(const T& value, int32_t count) = 0;
  virtual bool DoAddFront(const T& value) = 0;
  virtual bool DoAppend(const Detail::TSource<T>& source) = 0;
  virtual bool DoAssign(const Detail::TSource<T>& source) = 0;
  virtual bool DoDelete(int32_t index, int32_t count) = 0;
  /// Deletes the item at `index`, which is there, from the storage itself.
  virtual bool DoDeleteDirect(int32_t index) = 0;
  virtual bool DoRemoveEqual(const T& value) = 0;
  virtual bool DoRemoveIf(TFunctionRef<bool(const T&)> predicate,
                          TFunctionRef<void(const T&)> action) = 0;
  virtual bool DoSwap(int32_t left, int32_t right) = 0;
  virtual bool DoMove(int32_t from, int32_t to) = 0;
  virtual bool DoReverse() = 0;
  virtual bool DoClear() = 0;
  /// An empty sorter means the list's own order.
  virtual bool DoSort(Detail::TSorter<T> sorter) = 0;
  virtual bool DoSetCapacity(int32_t capacity, bool allowsTruncation) = 0;
  virtual TArray<T> ToArray() const = 0;

 protected:
  ~IArrayListCore() = default;
};

/// The verbs over the core of `TBase`, answering TList&.
template <class T, class TList, class TBase>
class TListVerbs : public virtual TBase {
 public:
  // --- Count and items ----------------------------------------------------------------------

  /// The number of items.
  int32_t Count() const { return this->GetCount(); }
  /// Cuts the list, or fills it up with default items; storage grows to exactly `count` and never
  /// shrinks. Raises ERangeError when `count` is below 0.
  void SetCount(int32_t count) { this->DoSetCount(count); }

  /// The item at `index`, counted from 0; valid until the next call that changes the list.
  /// Raises ERangeError "Index out of range = %u" outside 0 to Count() - 1. O(1).
  const T& Items(int32_t index) const { return this->GetItem(index); }
  const T& operator[](int32_t index) const { return this->GetItem(index); }
  /// Replaces the item at `index`; raises as Items does.
  void SetItem(int32_t index, const T& value) { this->DoSetItem(index, value); }

  /// The items as plain pointers, taken once: invalid after a change of length. What is written
  /// through them is not announced to anybody.
  T* begin() const { return this->GetState().Items->Data(); }
  T* end() const {
    const Detail::TListState<T> state = this->GetState();
    return state.Items->Data() + state.SafeCount();
  }
  T* data() const { return begin(); }
  size_t size() const { return static_cast<size_t>(this->GetState().SafeCount()); }

  // --- Adding -------------------------------------------------------------------------------

  /// Adds `count` copies at the end. Amortised O(count). Raises ERangeError when `count` is below
  /// 0.
  TList& Add(const T& value, int32_t count = 1) {
    TList& self = Self();
    if constexpr (std::is_scalar_v<T>) {
      // A copy of its own leaves the caller's variable in its register.
      const T copy = value;
      this->DoAdd(copy, count);
    } else {
      this->DoAdd(value, count);
    }
    return self;
  }
  /// Adds in front of the first item. O(capacity).
  TList& AddFront(const T& value) {
    TList& self = Self();
    this->DoAddFront(value);
    return self;
  }
  /// Adds `value` unless an equal item is there. O(Count()).
  TList& AddUnique(const T& value) {
    TList& self = Self();
    IfAddUnique(value);
    return self;
  }
  /// The same; whether it added.
  bool IfAddUnique(const T& value) {
    if (FindEqual(value) >= 0) return false;
    this->DoAdd(value, 1);
    return true;
  }
  /// The same; the index of the item that was there or was added.
  int32_t AddUniqueIndex(const T& value) {
    const int32_t index = FindEqual(value);
    if (index >= 0) return index;
    const TRef<TList> hold(Self());
    this->DoAdd(value, 1);
    return Count() - 1;
  }
  /// The first item that satisfies the predicate; without one, adds the factory's result (or the
  /// value) and answers that.
  template <PredicateOf<T> F, Detail::ValueOrFactory<T> V>
  T FindOrAdd(F&& predicate, V&& valueOrFactory);

  /// Inserts `count` copies in front of the item at `index`; at or past the end it adds. A
  /// negative index or count raises ERangeError. O(capacity).
  TList& Insert(int32_t index, const T& value, int32_t count = 1) {
    TList& self = Self();
    this->DoInsert(index, value, count);
    return self;
  }
  /// Inserts a sequence; into an empty list it is assigned, at or past the end appended.
  template <Detail::SourceOf<T> S>
  TList& Insert(int32_t index, S&& source) {
    TList& self = Self();
    this->DoInsertSource(index, Detail::TSource<T>(std::forward<S>(source)));
    return self;
  }
  template <Detail::PointerTo<T> P>
  TList& Insert(int32_t index, P items, int32_t count) {
    TList& self = Self();
    this->DoInsertSource(index, Detail::TSource<T>(items, count));
    return self;
  }
  TList& Insert(int32_t index, std::initializer_list<T> items) {
    return Insert(index, items.begin(), Detail::CountOfSize(items.size()));
  }

  /// Adds a sequence. Spare slots are filled first; if they do not hold all of it, the capacity
  /// afterwards equals the count. A sized enumerator is trusted: one that yields more than it
  /// said raises ERangeError. Appending a list to itself does nothing.
  template <Detail::SourceOf<T> S>
  TList& Append(S&& source) {
    TList& self = Self();
    this->DoAppend(Detail::TSource<T>(std::forward<S>(source)));
    return self;
  }
  template <Detail::PointerTo<T> P>
  TList& Append(P items, int32_t count) {
    TList& self = Self();
    this->DoAppend(Detail::TSource<T>(items, count));
    return self;
  }
  TList& Append(std::initializer_list<T> items) {
    return Append(items.begin(), Detail::CountOfSize(items.size()));
  }

  /// AddUnique for each item of a sequence. O(n * m).
  template <Detail::SourceOf<T> S>
  TList& AppendUnique(S&& source) {
    return AppendUniqueSource(Detail::TSource<T>(std::forward<S>(source)));
  }
  template <Detail::PointerTo<T> P>
  TList& AppendUnique(P items, int32_t count) {
    return AppendUniqueSource(Detail::TSource<T>(items, count));
  }
  TList& AppendUnique(std::initializer_list<T> items) {
    return AppendUnique(items.begin(), Detail::CountOfSize(items.size()));
  }

  /// Replaces the content. The capacity does not fall for a sequence that knows its size.
  /// An enumerator without a size that yields fewer items than the list holds raises
  /// ERangeError; the capacity then is the number of items it yielded and the count is unchanged.
  /// Assigning a list to itself does nothing.
  template <Detail::SourceOf<T> S>
  TList& Assign(S&& source) {
    TList& self = Self();
    this->DoAssign(Detail::TSource<T>(std::forward<S>(source)));
    return self;
  }
  template <Detail::PointerTo<T> P>
  TList& Assign(P items, int32_t count) {
    TList& self = Self();
    this->DoAssign(Detail::TSource<T>(items, count));
    return self;
  }
  TList& Assign(std::initializer_list<T> items) {
    return Assign(items.begin(), Detail::CountOfSize(items.size()));
  }

  // --- Taking out ---------------------------------------------------------------------------

  /// Takes the first (last) item out. False, and a default item, from an empty list.
  bool ExtractFirst(T& item) { return ExtractAt(0, item); }
  bool ExtractLast(T& item) { return ExtractAt(Count() - 1, item); }
  /// Takes the first (last) `count` items out, in their order, as a new list.
  TRef<IArrayList<T>> ExtractFirst(TItemCount count);
  TRef<IArrayList<T>> ExtractLast(TItemCount count);
  template <std::integral N>
  requires(!std::integral<T>) TRef<IArrayList<T>> ExtractFirst(N count) {
    return ExtractFirst(TItemCount{Detail::ClipCount(count)});
  }
  template <std::integral N>
  requires(!std::integral<T>) TRef<IArrayList<T>> ExtractLast(N count) {
    return ExtractLast(TItemCount{Detail::ClipCount(count)});
  }

  /// Deletes the first item equal to `value`; whether there was one.
  bool FindAndRemoveOne(const T& value) {
    const int32_t index = FindEqual(value);
    return index >= 0 && this->DoDelete(index, 1);
  }
  /// Deletes the first item that satisfies the predicate and hands it out.
  template <PredicateOf<T> F>
  bool FindAndRemoveOne(F&& predicate, T& item);
  /// The same, handed to `action` when it is gone from the list.
  template <PredicateOf<T> F, Detail::ActionArgument<T> A>
  TList& FindAndRemoveOne(F&& predicate, A&& action);

  /// Deletes the first item equal to `value`; its index, or -1.
  template <Detail::ValueArgument<T> V>
  int32_t RemoveOne(V&& value) {
    const int32_t index = FindEqual(static_cast<V&&>(value));
    if (index >= 0) this->DoDeleteDirect(index);
    return index;
  }
  /// Deletes the first item that satisfies the predicate.
  template <Detail::PredicateArgument<T> F>
  TList& RemoveOne(F&& predicate) {
    TList& self = Self();
    IfRemoveOne(predicate);
    return self;
  }
  /// The same; whether there was one.
  template <PredicateOf<T> F>
  bool IfRemoveOne(F&& predicate) {
    const int32_t index = FindIf(predicate);
    return index >= 0 && this->DoDelete(index, 1);
  }

  /// Deletes all items equal to `value`. O(Count()).
  template <Detail::ValueArgument<T> V>
  TList& RemoveAll(V&& value) {
    TList& self = Self();
    this->DoRemoveEqual(static_cast<V&&>(value));
    return self;
  }
  /// For each item of a sequence, deletes all that equal it. O(n * m).
  template <Detail::SourceOf<T> S>
  TList& RemoveAll(S&& source) {
    return RemoveAllSource(Detail::TSource<T>(std::forward<S>(source)));
  }
  template <Detail::PointerTo<T> P>
  TList& RemoveAll(P items, int32_t count) {
    return RemoveAllSource(Detail::TSource<T>(items, count));
  }
  TList& RemoveAll(std::initializer_list<T> items) {
    return RemoveAll(items.begin(), Detail::CountOfSize(items.size()));
  }
  /// Deletes all items that satisfy the predicate, which is asked from the last item to the
  /// first. O(Count()) for lists that nobody watches.
  template <Detail::PredicateArgument<T> F>
  TList& RemoveAll(F&& predicate) {
    TList& self = Self();
    Detail::AssertCallable(predicate);
    this->DoRemoveIf(predicate, nullptr);
    return self;
  }
  /// The same; each item is handed to `action` when it is gone from the list, the last matching
  /// one first. The action may be null or an empty handle. O(Count() * matches).
  template <Detail::PredicateArgument<T> F, Detail::OptionalActionOn<T> A>
  TList& RemoveAll(F&& predicate, A&& action) {
    if constexpr (std::is_null_pointer_v<std::remove_cvref_t<A>>) return RemoveAll(predicate);
    if constexpr (Detail::IsFunctionHandle<std::remove_cvref_t<A>>) {
      if (!action) return RemoveAll(predicate);
    }
    TList& self = Self();
    Detail::AssertCallable(predicate);
    this->DoRemoveIf(predicate, action);
    return self;
  }

  /// Deletes the item at `index`; outside the list nothing happens.
  TList& Delete(int32_t index) {
    TList& self = Self();
    this->DoDelete(index, 1);
    return self;
  }
  /// Deletes up to `count` items from `index` on; outside the list nothing happens. Raises
  /// ERangeError when `index` is inside and `count` below 0.
  TList& Delete(int32_t index, int32_t count) {
    TList& self = Self();
    this->DoDelete(index, count);
    return self;
  }
  /// Deletes all items and drops the storage; an empty list keeps its capacity.
  TList& Clear() {
    TList& self = Self();
    this->DoClear();
    return self;
  }

  // --- Order --------------------------------------------------------------------------------

  /// Exchanges two items. Indexes are checked against the capacity alone, so a spare slot can
  /// be swapped in; past it ERangeError.
  TList& Swap(int32_t left, int32_t right) {
    TList& self = Self();
    this->DoSwap(left, right);
    return self;
  }
  /// Moves an item to another place; what stands between moves up by one. With an index
  /// outside the list nothing happens.
  TList& Move(int32_t from, int32_t to) {
    TList& self = Self();
    this->DoMove(from, to);
    return self;
  }
  TList& Reverse() {
    TList& self = Self();
    this->DoReverse();
    return self;
  }
  /// Sorts by the list's own order: default comparer, or address for objects and interfaces.
  /// Equal items come in any order. O(n log n); numbers in O(n).
  TList& Sort() {
    TList& self = Self();
    this->DoSort(nullptr);
    return self;
  }
  TList& Sort(std::nullptr_t) { return Sort(); }
  /// Sorts by a comparison that answers below, at or above 0, as a number or as `<=>` does. An
  /// empty handle means Sort().
  template <Detail::ComparisonOf<T> C>
  TList& Sort(C&& comparison);

  // --- Storage and views --------------------------------------------------------------------

  /// Sets the capacity: to `capacity` exactly, cutting the list with it if that is allowed, else
  /// to no less than the count. Raises ERangeError when `capacity` is below 0.
  TList& SetCapacity(int32_t capacity, bool allowsTruncation) {
    TList& self = Self();
    this->DoSetCapacity(capacity, allowsTruncation);
    return self;
  }
  /// The read-side verbs. Over a filled list they run forward, whatever `isReverse` says; only a
  /// list that builds its items on demand is seen backward.
  TRef<IContainerQuery<TList, IArrayList<T>, T>> Query(bool isReverse = false) const;

  /// A walk over the items from the first. It reads live, and does not keep the list alive.
  TRef<ISizeEnumerator<T>> GetEnumerator() const { return this->NewSizeEnumerator(); }

 protected:
  ~TListVerbs() = default;

 private:
  // Taken before a change: whoever is told of it may drop the last reference to the list.
  TList& Self() { return static_cast<TList&>(*this); }
  int32_t FindEqual(const T& value) const;
  template <class F>
  int32_t FindIf(F& predicate) const;
  bool ExtractAt(int32_t index, T& item);
  TRef<IArrayList<T>> Extract(int32_t index, int32_t count);
  TList& AppendUniqueSource(Detail::TSource<T>&& source);
  TList& RemoveAllSource(Detail::TSource<T>&& source);
};

}  // namespace Talvo
