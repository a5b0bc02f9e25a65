// SPDX-License-Identifier: Apache-2.0
#pragma once
// Bodies of the query verbs.

#include <talvo/containers/common/Query.h>

namespace Talvo {
namespace Detail {

/// Grows by the common rule for one item more than `count`.
template <class T>
[[gnu::noinline]] void GrowForOne(TArray<T>& items, int32_t count) {
  items.SetLength(CommonIncreaseCapacity(CheckedAdd(count, 1)));
}

/// Stores `value` behind the `count` items, growing when no slot is spare.
template <class T>
inline void StoreAtEnd(TArray<T>& items, TCountCell& count, const T& value) {
  const int32_t index = count;
  if (items.Contains(index)) [[likely]] {
    items[index] = value;
  } else {
    T kept = value;  // `value` may stand in the storage that moves
    GrowForOne(items, index);
    items[index] = std::move(kept);
  }
  count = index + 1;
}

/// Items for which a copy is as cheap as a test: they are stored first and kept if accepted.
template <class T>
inline constexpr bool IsCheapToStore = std::is_trivially_copyable_v<T> && sizeof(T) <= 16;

/// Adds the accepted ones of the source's items `from` to `to` - 1 to `items`.
template <class T, class F>
void FilterInto(TArray<T>& items, TCountCell& count, const TArray<T>& source, int32_t from,
                int32_t to, F& accept) {
  while (from < to) {
    const int32_t room = items.Length() - count;
    if (!IsCheapToStore<T> || room <= 0) {
      // The item is read anew: the test may have changed the source.
      if (accept(std::as_const(source[from]))) StoreAtEnd(items, count, source[from]);
      ++from;
      continue;
    }
    // Every item is written to the next slot and the slot moves on if it was accepted: nothing
    // for the branch predictor to miss.
    const int32_t end = to - from > room ? from + room : to;
    T* const first = items.Data() + count;
    T* slot = first;
    for (; from < end; ++from) {
      // The test sees the source's own item, as everywhere: its address may mean something.
      const T& item = source[from];
      *slot = item;
      slot += accept(item) ? 1 : 0;
    }
    const auto stored = static_cast<int32_t>(slot - first);
    if (stored < room) *slot = T{};
    count = count + stored;
  }
}

}  // namespace Detail

template <class T>
template <class F, class U>
bool IQuery<T>::Walk(F&& accept, U&& use) const {
  const TArray<T>* items;
  const TCountCell* count;
  if (GetSourceArray(items, count)) {
    const int32_t end = *count;
    for (int32_t i = 0; i < end; ++i) {
      if (accept(std::as_const((*items)[i])) && use([&]() -> const T& { return (*items)[i]; })) {
        return true;
      }
    }
    return false;
  }
  const TRef<ISizeEnumerator<T>> enumerator = NewSourceEnumerator();
  Assert(static_cast<bool>(enumerator));
  while (enumerator->MoveNext()) {
    if (accept(enumerator->Current()) && use([&]() -> const T& { return enumerator->Current(); })) {
      return true;
    }
  }
  return false;
}

template <class T>
template <class F>
bool IQuery<T>::Walk(F&& accept) const {
  return Walk(accept, [](auto&&) { return true; });
}

template <class T>
template <class X, class U>
auto IQuery<T>::WithPredicate(X& valueOrPredicate, U&& use) const {
  if constexpr (Detail::PredicateArgument<X&, T>) {
    Detail::AssertCallable(valueOrPredicate);
    return use(valueOrPredicate);
  } else {
    const T& value = valueOrPredicate;
    const IComparer<T>* equality = GetEquality();
    if (equality) {
      return use([&](const T& item) { return equality->Compare(item, value) == 0; });
    }
    return use([&](const T& item) { return DefaultCompare(item, value) == 0; });
  }
}

template <class T>
template <class F, class U>
bool IQuery<T>::WithTest(F& test, U&& use) const {
  using TTest = std::remove_cvref_t<F>;
  const auto useOwnEquality = [&] {
    const IComparer<T>* equality = GetEquality();
    return use([&](const T& item, const T& value) {
      return (equality ? equality->Compare(item, value) : DefaultCompare(item, value)) == 0;
    });
  };
  if constexpr (std::is_null_pointer_v<TTest>) {
    return useOwnEquality();
  } else if constexpr (Detail::IsFunctionHandle<TTest>) {
    return test ? use(test) : useOwnEquality();
  } else {
    return use(test);
  }
}

template <class T>
template <class Next, class Current, class F>
bool IQuery<T>::EqualsWalk(Next&& otherNext, Current&& otherCurrent, F&& test,
                           bool& hasEnded) const {
  hasEnded = !Walk([](const T&) { return true; },
                   [&](auto&& item) { return !otherNext() || !test(item(), otherCurrent()); });
  return hasEnded && !otherNext();
}

template <class T>
template <class F>
bool IQuery<T>::EqualsSource(const Detail::TSource<T>& other, F& test) const {
  return WithTest(test, [&](auto&& isEqual) {
    bool hasEnded;
    if (other.IsBuffer()) {
      int32_t index = -1;
      return EqualsWalk([&] { return ++index < other.Size(); },
                        [&]() -> const T& { return other.Items()[index]; }, isEqual, hasEnded);
    }
    IEnumerator<T>* enumerator = other.Enumerator();
    return EqualsWalk([&] { return enumerator->MoveNext(); },
                      [&]() -> const T& { return enumerator->Current(); }, isEqual, hasEnded);
  });
}

template <class T>
template <Detail::BorrowedSourceOf<T> S, Detail::EqualityTestOf<T> F>
bool IQuery<T>::Equals(const S& other, F&& test) const {
  if constexpr (std::is_same_v<S, TArray<T>>) {
    if (other.IsEmpty()) RaiseRangeError();
  }
  return EqualsSource(Detail::TSource<T>(other), test);
}

template <class T>
template <Detail::EqualityTestOf<T> F>
bool IQuery<T>::Equals(std::initializer_list<T> other, F&& test) const {
  return EqualsSource(Detail::TSource<T>(other.begin(), Detail::CountOfSize(other.size())), test);
}

template <class T>
template <std::derived_from<TEnumerator<T>> E, Detail::EqualityTestOf<T> F>
bool IQuery<T>::Equals(TOwn<E>& other, F&& test) const {
  Assert(static_cast<bool>(other));
  return WithTest(test, [&](auto&& isEqual) {
    bool hasEnded;
    const bool areEqual =
        EqualsWalk([&] { return other->MoveNext(); },
                   [&]() -> const T& { return other->Current(); }, isEqual, hasEnded);
    if (hasEnded) other = {};
    return areEqual;
  });
}

template <class T>
template <Detail::EnumerableOf<T> S>
bool IQuery<T>::Intersects(const S& other) const {
  return Detail::TSource<T>(other).Find([&](const T& item) { return Contains(item); });
}

template <class T>
template <Detail::Sought<T> X>
bool IQuery<T>::Contains(X&& valueOrPredicate) const {
  return WithPredicate(valueOrPredicate, [&](auto&& accept) { return Walk(accept); });
}

template <class T>
template <Detail::Sought<T> X>
int32_t IQuery<T>::CountOf(X&& valueOrPredicate) const {
  return WithPredicate(valueOrPredicate, [&](auto&& accept) {
    int32_t count = 0;
    Walk([&](const T& item) {
      if (accept(item)) CheckedInc(count);
      return false;
    });
    return count;
  });
}

template <class T>
template <Detail::NumberOf<T> F>
int32_t IQuery<T>::Sum(F&& number) const {
  Detail::AssertCallable(number);
  int32_t sum = 0;
  Walk([&](const T& item) {
    // The plus sign makes an integer of bool, characters and enumerators.
    if (__builtin_add_overflow(sum, +number(item), &sum)) [[unlikely]]
      RaiseIntOverflow();
    return false;
  });
  return sum;
}

template <class T>
template <PredicateOf<T> F>
bool IQuery<T>::IfFind(F&& predicate, T& item) const {
  item = T{};
  return IfFind(predicate, [&](const T& found) { item = found; });
}

template <class T>
template <PredicateOf<T> F, Detail::ActionArgument<T> A>
bool IQuery<T>::IfFind(F&& predicate, A&& action) const {
  Detail::AssertCallable(predicate);
  Detail::AssertCallable(action);
  return Walk(predicate, [&](auto&& item) {
    action(item());
    return true;
  });
}

template <class T>
bool IQuery<T>::IsEmpty() const {
  const TArray<T>* items;
  const TCountCell* count;
  if (GetSourceArray(items, count)) return *count == 0;
  return !Walk([](const T&) { return true; });
}

template <class T>
T IQuery<T>::First() const {
  T item{};
  First(item);
  return item;
}

template <class T>
bool IQuery<T>::First(T& item) const {
  return IfFind([](const T&) { return true; }, item);
}

template <class T>
template <Detail::Sought<T> X>
bool IQuery<T>::IndexOf(X&& valueOrPredicate, int32_t& index) const {
  int32_t position = -1;
  const bool isFound = WithPredicate(valueOrPredicate, [&](auto&& accept) {
    return Walk([&](const T& item) {
      CheckedInc(position);
      return accept(item);
    });
  });
  index = isFound ? position : -1;
  return isFound;
}

template <class T>
template <Detail::Sought<T> X, Detail::ActionArgument<int32_t> A>
bool IQuery<T>::IndexOf(X&& valueOrPredicate, A&& action) const {
  Detail::AssertCallable(action);
  int32_t index;
  if (!IndexOf(valueOrPredicate, index)) return false;
  action(std::as_const(index));
  return true;
}

template <class TResult, class T>
template <class F>
bool IBasicContainerQuery<TResult, T>::FillDirectly(const TRef<TResult>& result, int32_t from,
                                                    int32_t to, F&& accept) const {
  IArrayListState<T>* state = GetResultState(result);
  const TArray<T>* items;
  const TCountCell* count;
  if (!state || !this->GetSourceArray(items, count)) return false;
  Detail::FilterInto(*state->GetArray(), *state->GetSizePtr(), *items, from,
                     to < *count ? to : int32_t{*count}, accept);
  return true;
}

template <class TResult, class T>
template <PredicateOf<T> F>
TRef<TResult> IBasicContainerQuery<TResult, T>::Filter(F&& predicate) const {
  Detail::AssertCallable(predicate);
  TRef<TResult> result = NewResult();
  if (FillDirectly(result, 0, INT32_MAX, predicate)) return result;
  this->Walk(predicate, [&](auto&& item) {
    AddToResult(result, item());
    return false;
  });
  return result;
}

template <class TResult, class T>
TRef<TResult> IBasicContainerQuery<TResult, T>::Skip(int32_t count) const {
  TRef<TResult> result = NewResult();
  const int32_t from = count > 0 ? count : 0;
  if (FillDirectly(result, from, INT32_MAX, [](const T&) { return true; })) return result;
  this->Walk([&](const T& item) {
    if (count > 0) {
      --count;
    } else {
      AddToResult(result, item);
    }
    return false;
  });
  return result;
}

template <class TResult, class T>
TRef<TResult> IBasicContainerQuery<TResult, T>::Take(int32_t count) const {
  TRef<TResult> result = NewResult();
  if (FillDirectly(result, 0, count, [](const T&) { return true; })) return result;
  if (count < 1) return result;
  this->Walk([&](const T& item) {
    AddToResult(result, item);
    return --count < 1;
  });
  return result;
}

template <class TCollection, class TResult, class T>
template <PredicateOf<T> F>
TRef<TCollection> IContainerQuery<TCollection, TResult, T>::Find(F&& predicate, T& item) const {
  this->IfFind(predicate, item);
  return GetCollection();
}

template <class TCollection, class TResult, class T>
template <PredicateOf<T> F, Detail::ActionArgument<T> A>
TRef<TCollection> IContainerQuery<TCollection, TResult, T>::Find(F&& predicate, A&& action) const {
  this->IfFind(predicate, action);
  return GetCollection();
}

template <class TCollection, class TResult, class T>
template <Detail::VisitorOf<T> A>
TRef<TCollection> IContainerQuery<TCollection, TResult, T>::ForEach(A&& action) const {
  Detail::AssertCallable(action);
  [[maybe_unused]] int32_t index = 0;
  this->Walk([&](const T& item) {
    if constexpr (ActionOn<A, T>) {
      action(item);
    } else {
      action(std::as_const(index), item);
      CheckedInc(index);
    }
    return false;
  });
  return GetCollection();
}

template <class TCollection, class TResult, class T>
template <ActionOn<T> A>
TRef<TCollection> IContainerQuery<TCollection, TResult, T>::ForFirst(A&& action) const {
  return ForFirst([](const T&) { return true; }, action);
}

template <class TCollection, class TResult, class T>
template <PredicateOf<T> F, ActionOn<T> A>
TRef<TCollection> IContainerQuery<TCollection, TResult, T>::ForFirst(F&& predicate,
                                                                     A&& action) const {
  this->IfFind(predicate, action);
  return GetCollection();
}

template <class TCollection, class TResult, class T>
template <ActionOn<TRef<TCollection>> A>
TRef<TCollection> IContainerQuery<TCollection, TResult, T>::DoOnce(A&& action) const {
  Detail::AssertCallable(action);
  TRef<TCollection> collection = GetCollection();
  action(std::as_const(collection));
  return collection;
}

template <class T>
bool TQuery<T>::GetAsObject(const T& item, TObject*& object) const {
  object = nullptr;
  if constexpr (IsReference<T>) {
    object = ObjectOf(item);
  } else if constexpr (std::is_convertible_v<T, TObject*>) {
    object = item;
    return true;
  } else {
    (void)item;
  }
  return object != nullptr;
}

template <class T>
bool TQuery<T>::GetAsInterface(const T& item, TRef<IInterface>& interface) const {
  interface = nullptr;
  if constexpr (IsReference<T> || std::is_convertible_v<T, TObject*>) {
    interface = Supports<IInterface>(item);
  } else {
    (void)item;
  }
  return static_cast<bool>(interface);
}

template <class TCollection, class TResult, class T>
TContainerQueryAccess<TCollection, TResult, T>* TContainerQuery<TCollection, TResult, T>::Access() {
  if (!FAccess) {
    TFunc<TRef<ISizeEnumerator<T>>> createEnumerator = this->FCreateEnumerator;
    if constexpr (std::is_base_of_v<ISizeEnumerable<T>, TCollection>) {
      // A copy of the function may outlive the query: it holds the collection alone.
      if (!createEnumerator) {
        createEnumerator = [source = FCollection] { return source->NewSizeEnumerator(); };
      }
    }
    FAccess = Create<TContainerQueryAccess<TCollection, TResult, T>>(std::move(createEnumerator),
                                                                     FCollection);
  }
  return FAccess.Get();
}

}  // namespace Talvo
