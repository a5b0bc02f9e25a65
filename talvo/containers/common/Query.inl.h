// SPDX-License-Identifier: Apache-2.0
#pragma once
// Bodies of the query verbs.

#include <talvo/containers/common/Query.h>

namespace Talvo {
namespace Detail {

/// Stores `value` behind the `count` items, growing by the common rule when no slot is spare.
template <class T>
inline void StoreAtEnd(TArray<T>& items, TCountCell& count, const T& value) {
  if (items.Length() <= count) [[unlikely]] {
    T kept = value;  // `value` may stand in the storage that moves
    items.SetLength(CommonIncreaseCapacity(CheckedAdd<int32_t>(count, 1)));
    items[count] = std::move(kept);
  } else {
    items[count] = value;
  }
  count = count + 1;
}

/// Items for which a copy is as cheap as a test: they are stored first and kept if accepted.
template <class T>
inline constexpr bool IsCheapToStore = std::is_trivially_copyable_v<T> && sizeof(T) <= 16;

/// Adds the accepted ones of the first `sourceCount` items to `items`.
template <class T, class F>
void FilterInto(TArray<T>& items, TCountCell& count, const TArray<T>& source, int32_t sourceCount,
                F& accept) {
  int32_t i = 0;
  while (i < sourceCount) {
    const int32_t room = items.Length() - count;
    if (!IsCheapToStore<T> || room <= 0) {
      const T& item = source[i];
      if (accept(item)) StoreAtEnd(items, count, item);
      ++i;
      continue;
    }
    // Every item is written to the next slot and the slot moves on if it was accepted: nothing
    // for the branch predictor to miss.
    const int32_t end = sourceCount - i > room ? i + room : sourceCount;
    T* slot = items.Data() + count;
    for (; i < end; ++i) {
      *slot = source[i];
      slot += accept(*slot) ? 1 : 0;
    }
    count = static_cast<int32_t>(slot - items.Data());
    if (count < items.Length()) *slot = T{};
  }
}

}  // namespace Detail

template <class T>
template <class F>
bool IQuery<T>::Walk(F&& accept) const {
  const TArray<T>* items;
  const TCountCell* count;
  if (GetSourceArray(items, count)) {
    const int32_t end = *count;
    for (int32_t i = 0; i < end; ++i) {
      if (accept((*items)[i])) return true;
    }
    return false;
  }
  const TRef<ISizeEnumerator<T>> enumerator = NewSourceEnumerator();
  while (enumerator->MoveNext()) {
    if (accept(enumerator->Current())) return true;
  }
  return false;
}

template <class T>
template <class X, class Use>
auto IQuery<T>::WithTest(const X& valueOrPredicate, Use&& use) const {
  if constexpr (Detail::PredicateArgument<const X&, T>) {
    Detail::AssertCallable(valueOrPredicate);
    return use([&](const T& item) -> bool { return valueOrPredicate(item); });
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
template <class Next, class Current, class F>
bool IQuery<T>::EqualsWalk(Next&& otherNext, Current&& otherCurrent, F&& test,
                           bool& sourceEnded) const {
  const bool differ =
      Walk([&](const T& item) { return !otherNext() || !test(item, otherCurrent()); });
  sourceEnded = !differ;
  return !differ && !otherNext();
}

template <class T>
template <class F>
bool IQuery<T>::EqualsSource(const Detail::TSource<T>& other, F&& test) const {
  bool sourceEnded;
  if (other.IsBuffer()) {
    int32_t index = -1;
    return EqualsWalk([&] { return ++index < other.Size(); },
                      [&]() -> const T& { return other.Items()[index]; }, test, sourceEnded);
  }
  IEnumerator<T>* enumerator = other.Enumerator();
  return EqualsWalk([&] { return enumerator->MoveNext(); },
                    [&]() -> const T& { return enumerator->Current(); }, test, sourceEnded);
}

template <class T>
template <class F>
bool IQuery<T>::EqualsObject(TOwn<TEnumerator<T>>& other, F&& test) const {
  Assert(static_cast<bool>(other));
  bool sourceEnded;
  const bool equal = EqualsWalk([&] { return other->MoveNext(); },
                                [&]() -> const T& { return other->Current(); }, test, sourceEnded);
  if (sourceEnded) other = {};
  return equal;
}

template <class T>
template <class S>
requires(Detail::SourceOf<const S&, T> &&
         !Detail::EnumeratorObjectOf<S, T>) bool IQuery<T>::Equals(const S& other) const {
  return Equals(other, TConstFunc<T, T, bool>());
}

template <class T>
template <class S, class F>
requires(Detail::SourceOf<const S&, T> && !Detail::EnumeratorObjectOf<S, T> &&
         std::predicate<F&, const T&, const T&>) bool IQuery<T>::Equals(const S& other,
                                                                        F&& test) const {
  if constexpr (std::is_same_v<S, TArray<T>>) {
    if (other.IsEmpty()) RaiseRangeError();
  }
  const Detail::TSource<T> source(other);
  if constexpr (Detail::IsFunctionHandle<std::remove_cvref_t<F>>) {
    if (!test) {
      const IComparer<T>* equality = GetEquality();
      return EqualsSource(
          source, [&](const T& item, const T& value) { return ItemsEqual(equality, item, value); });
    }
  }
  return EqualsSource(source, test);
}

template <class T>
bool IQuery<T>::Equals(std::initializer_list<T> other) const {
  const IComparer<T>* equality = GetEquality();
  return EqualsSource(
      Detail::TSource<T>(other.begin(), Detail::CountOfSize(other.size())),
      [&](const T& item, const T& value) { return ItemsEqual(equality, item, value); });
}

template <class T>
template <class E>
requires std::is_convertible_v < E*, TEnumerator<T>
* > bool IQuery<T>::Equals(TOwn<E>& other) const {
  return Equals(other, TConstFunc<T, T, bool>());
}

template <class T>
template <class E, class F>
requires(std::is_convertible_v<E*, TEnumerator<T>*>&&
             std::predicate<F&, const T&, const T&>) bool IQuery<T>::Equals(TOwn<E>& other,
                                                                            F&& test) const {
  TOwn<TEnumerator<T>> walked(other.Get());
  struct TGiveBack {
    TOwn<E>& Owner;
    TOwn<TEnumerator<T>>& Walked;
    ~TGiveBack() {
      if (!Walked) Owner.Detach();
      Walked.Detach();
    }
  } giveBack{other, walked};
  if constexpr (Detail::IsFunctionHandle<std::remove_cvref_t<F>>) {
    if (!test) {
      const IComparer<T>* equality = GetEquality();
      return EqualsObject(
          walked, [&](const T& item, const T& value) { return ItemsEqual(equality, item, value); });
    }
  }
  return EqualsObject(walked, test);
}

template <class T>
template <class S>
requires(Detail::LeadsTo<S, ISizeEnumerable<T>> ||
         Detail::LeadsTo<S, IEnumerable<T>>) bool IQuery<T>::Intersects(const S& other) const {
  return Detail::TSource<T>(other).Find([&](const T& item) { return Contains(item); });
}

template <class T>
template <class X>
requires(Detail::ValueArgument<const X&, T> ||
         Detail::PredicateArgument<const X&, T>) bool IQuery<T>::Contains(const X& valueOrPredicate)
    const {
  return WithTest(valueOrPredicate, [&](auto&& test) { return Walk(test); });
}

template <class T>
template <class X>
requires(Detail::ValueArgument<const X&, T> || Detail::PredicateArgument<const X&, T>)
    int32_t IQuery<T>::CountOf(const X& valueOrPredicate)
const {
  return WithTest(valueOrPredicate, [&](auto&& test) {
    int32_t count = 0;
    Walk([&](const T& item) {
      if (test(item)) CheckedInc(count);
      return false;
    });
    return count;
  });
}

template <class T>
template <class F>
requires std::is_invocable_r_v<int32_t, F&, const T&> int32_t IQuery<T>::Sum(F&& number)
const {
  Detail::AssertCallable(number);
  int32_t sum = 0;
  Walk([&](const T& item) {
    sum = CheckedAdd(sum, static_cast<int32_t>(number(item)));
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
template <PredicateOf<T> F, ActionOn<T> A>
requires(!std::is_same_v<std::remove_cvref_t<A>, T>) bool IQuery<T>::IfFind(F&& predicate,
                                                                            A&& action) const {
  Detail::AssertCallable(predicate);
  Detail::AssertCallable(action);
  return Walk([&](const T& item) {
    if (!predicate(item)) return false;
    action(item);
    return true;
  });
}

template <class T>
bool IQuery<T>::IsEmpty() const {
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
  item = T{};
  return Walk([&](const T& first) {
    item = first;
    return true;
  });
}

template <class T>
template <class X>
requires(Detail::ValueArgument<const X&, T> ||
         Detail::PredicateArgument<const X&, T>) bool IQuery<T>::IndexOf(const X& valueOrPredicate,
                                                                         int32_t& index) const {
  int32_t position = -1;
  const bool found = WithTest(valueOrPredicate, [&](auto&& test) {
    return Walk([&](const T& item) {
      CheckedInc(position);
      return test(item);
    });
  });
  index = found ? position : -1;
  return found;
}

template <class T>
template <class X, ActionOn<int32_t> A>
requires(
    (Detail::ValueArgument<const X&, T> || Detail::PredicateArgument<const X&, T>)&&!std::is_same_v<
        std::remove_cvref_t<A>, int32_t>) bool IQuery<T>::IndexOf(const X& valueOrPredicate,
                                                                  A&& action) const {
  Detail::AssertCallable(action);
  int32_t index;
  if (!IndexOf(valueOrPredicate, index)) return false;
  action(index);
  return true;
}

template <class TResult, class T>
template <PredicateOf<T> F>
TRef<TResult> IBasicContainerQuery<TResult, T>::Filter(F&& predicate) const {
  Detail::AssertCallable(predicate);
  TRef<TResult> result = NewResult();
  IArrayListState<T>* state = GetResultState(result);
  const TArray<T>* items;
  const TCountCell* count;
  if (state && this->GetSourceArray(items, count)) {
    Detail::FilterInto(*state->GetArray(), *state->GetSizePtr(), *items, *count, predicate);
    return result;
  }
  this->Walk([&](const T& item) {
    if (predicate(item)) AddToResult(result, item);
    return false;
  });
  return result;
}

template <class TResult, class T>
TRef<TResult> IBasicContainerQuery<TResult, T>::Skip(int32_t count) const {
  TRef<TResult> result = NewResult();
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
template <PredicateOf<T> F, ActionOn<T> A>
requires(!std::is_same_v<std::remove_cvref_t<A>, T>)
    TRef<TCollection> IContainerQuery<TCollection, TResult, T>::Find(F&& predicate, A&& action)
const {
  this->IfFind(predicate, action);
  return GetCollection();
}

template <class TCollection, class TResult, class T>
template <class A>
requires(ActionOn<A, T> || std::invocable<A&, int32_t, const T&>)
    TRef<TCollection> IContainerQuery<TCollection, TResult, T>::ForEach(A&& action)
const {
  Detail::AssertCallable(action);
  [[maybe_unused]] int32_t index = 0;
  this->Walk([&](const T& item) {
    if constexpr (ActionOn<A, T>) {
      action(item);
    } else {
      action(index, item);
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
template <class A>
requires std::invocable < A&, const TRef<TCollection>
& > TRef<TCollection> IContainerQuery<TCollection, TResult, T>::DoOnce(A&& action) const {
  Detail::AssertCallable(action);
  TRef<TCollection> collection = GetCollection();
  action(collection);
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
    if (!createEnumerator) {
      // The access lives no longer than this query: a plain pointer is enough.
      createEnumerator = [this] { return this->NewSourceEnumerator(); };
    }
    FAccess = Create<TContainerQueryAccess<TCollection, TResult, T>>(std::move(createEnumerator),
                                                                     FCollection);
  }
  return FAccess.Get();
}

}  // namespace Talvo
