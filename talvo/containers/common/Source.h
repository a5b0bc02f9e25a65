// SPDX-License-Identifier: Apache-2.0
#pragma once
// Sources: every way in which a sequence of T can be handed to a container, as one type.
//
// An argument is read as the first of these that it is: exactly T; ISizeEnumerator;
// IEnumerator; ISizeEnumerable; IEnumerable (each by TRef, reference or pointer);
// TOwn<TEnumerator<T>>; TArray<T>; anything contiguous (vector, span, array); a predicate or
// factory; whatever converts to T.

#include <talvo/containers/common/Enumerable.h>

namespace Talvo {

/// The raw view of an array list, for code that walks its storage. The addresses stay right as
/// long as the list lives; what stands there changes with the list.
template <class T>
class IArrayListState : public virtual IInterface {
  TALVO_INTERFACE(IArrayListState, IInterface);
  /// Whether the storage holds the items; false for a list that has yet to build them.
  virtual bool ArrayIsPopulated() const = 0;
  /// Whether the capacity equals the count.
  virtual bool GetArraySizeMatches() const = 0;
  virtual TArray<T>* GetArray() = 0;
  /// The capacity.
  virtual int32_t GetArraySize() const = 0;
  /// The address of the count.
  virtual TCountCell* GetSizePtr() = 0;
};

/// Says yes or no to one item.
template <class F, class T>
concept PredicateOf =
    std::predicate<F&, const T&> && !std::is_member_pointer_v<std::remove_cvref_t<F>>;
/// Takes one item and returns nothing of use.
template <class F, class T>
concept ActionOn =
    std::invocable<F&, const T&> && !std::is_member_pointer_v<std::remove_cvref_t<F>>;

namespace Detail {

template <class S>
struct TPointee {
  using TType = S;
  static S* Of(S& source) { return &source; }
};
template <class X>
struct TPointee<X*> {
  using TType = std::remove_cv_t<X>;
  static TType* Of(X* source) { return const_cast<TType*>(source); }
};
template <class X>
struct TPointee<TRef<X>> {
  using TType = X;
  static X* Of(const TRef<X>& source) { return source.Get(); }
};

/// Whether an argument is, points to or refers to an I.
template <class S, class I>
concept LeadsTo = std::is_base_of_v<I, typename TPointee<std::remove_cvref_t<S>>::TType>;

template <class S, class T>
concept EnumeratorObjectOf = std::is_convertible_v<S&&, TOwn<TEnumerator<T>>> &&
    !std::is_same_v<std::remove_cvref_t<S>, std::nullptr_t>;

/// A sequence of T in any of its forms, and not a T itself.
template <class S, class T>
concept SourceOf =
    !std::is_same_v<std::remove_cvref_t<S>, T> &&
    (LeadsTo<S, IEnumerator<T>> || LeadsTo<S, ISizeEnumerable<T>> || LeadsTo<S, IEnumerable<T>> ||
     EnumeratorObjectOf<S, T> || ContiguousOf<std::remove_cvref_t<S>, T>);

/// A source that can be walked without taking it over.
template <class S, class T>
concept BorrowedSourceOf = SourceOf<const S&, T> && !EnumeratorObjectOf<S, T>;
/// A container, by TRef, reference or pointer.
template <class S, class T>
concept EnumerableOf = LeadsTo<S, ISizeEnumerable<T>> || LeadsTo<S, IEnumerable<T>>;
/// An enumerator, by interface or as an object to be taken over.
template <class S, class T>
concept EnumeratorOf = LeadsTo<S, IEnumerator<T>> || EnumeratorObjectOf<S, T>;

template <class X, class T>
concept PredicateArgument =
    !std::is_same_v<std::remove_cvref_t<X>, T> && !SourceOf<X, T> && PredicateOf<X, T>;
template <class X, class T>
concept ValueArgument = std::is_convertible_v<X&&, T> && !PredicateArgument<X, T> &&
                        (std::is_same_v<std::remove_cvref_t<X>, T> || !SourceOf<X, T>);
/// A value to look for, or a predicate to look with.
template <class X, class T>
concept Sought = ValueArgument<X, T> || PredicateArgument<X, T>;
/// An action on items, where an item itself could stand too.
template <class A, class T>
concept ActionArgument = ActionOn<A, T> && !std::is_same_v<std::remove_cvref_t<A>, T>;

/// Asserts that a function argument is not an empty handle.
template <class F>
void AssertCallable(const F& function, const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
  if constexpr (IsFunctionHandle<F>) Assert(static_cast<bool>(function), file, line);
}

/// One sequence of T on its way into a container; lives for one call.
template <class T>
class TSource {
 public:
  TSource(const T* items, int32_t count) : FItems(items), FCount(count) {
    if (count < 0) RaiseRangeError();
    Assert(items != nullptr || count == 0);
  }

  /// Null references are assertion failures.
  template <class S>
  explicit TSource(S&& source) {
    using TArgument = std::remove_cvref_t<S>;
    if constexpr (LeadsTo<S, ISizeEnumerator<T>>) {
      ISizeEnumerator<T>* sized = Target<ISizeEnumerator<T>>(source);
      FSized = sized;
      FEnumerator = TRef<IEnumerator<T>>::Share(sized);
    } else if constexpr (LeadsTo<S, IEnumerator<T>>) {
      FEnumerator = TRef<IEnumerator<T>>::Share(Target<IEnumerator<T>>(source));
    } else if constexpr (LeadsTo<S, ISizeEnumerable<T>>) {
      const ISizeEnumerable<T>* enumerable = Target<ISizeEnumerable<T>>(source);
      FOrigin = enumerable;
      TRef<ISizeEnumerator<T>> sized = enumerable->NewSizeEnumerator();
      Assert(static_cast<bool>(sized));
      FSized = sized.Get();
      FEnumerator = std::move(sized);
    } else if constexpr (LeadsTo<S, IEnumerable<T>>) {
      const IEnumerable<T>* enumerable = Target<IEnumerable<T>>(source);
      FOrigin = enumerable;
      FEnumerator = enumerable->NewEnumerator();
      Assert(static_cast<bool>(FEnumerator));
    } else if constexpr (EnumeratorObjectOf<S, T>) {
      FEnumerator = Create<TEnumeratorDelegate<T>>(TOwn<TEnumerator<T>>(std::forward<S>(source)));
    } else if constexpr (std::is_same_v<TArgument, TArray<T>>) {
      FHeld = source;
      FItems = FHeld.Data();
      FCount = FHeld.Length();
    } else {
      FItems = DataOf<T>(source);
      FCount = SizeOf(source);
    }
  }

  /// Takes copies of items at hand that stand in `storage`, which is about to change.
  void KeepApartFrom(const TArray<T>& storage) {
    if (!storage.Holds(FItems)) return;
    FHeld = TArray<T>(FItems, FCount);
    FItems = FHeld.Data();
  }
  /// Whether the sequence is that very object.
  bool IsObject(const IInterface* object) const { return FOrigin && FOrigin == object; }
  /// Items at hand, null for an enumerator (and for no items).
  const T* Items() const { return FItems; }
  bool IsBuffer() const { return !FEnumerator; }
  IEnumerator<T>* Enumerator() const { return FEnumerator.Get(); }
  /// The enumerator when it knows its size.
  ISizeEnumerator<T>* Sized() const { return FSized; }
  bool KnowsSize() const { return IsBuffer() || FSized; }
  int32_t Size() const { return IsBuffer() ? FCount : FSized->GetSize(); }

  /// Calls `visit` with each item; an enumerator is reset first.
  template <class F>
  void ForEach(F&& visit) const {
    Find([&](const T& item) {
      visit(item);
      return false;
    });
  }
  /// Calls `accept` with each item until it answers true; whether it did.
  template <class F>
  bool Find(F&& accept) const {
    if (IsBuffer()) {
      for (int32_t i = 0; i < FCount; ++i) {
        if (accept(FItems[i])) return true;
      }
      return false;
    }
    FEnumerator->Reset();
    while (FEnumerator->MoveNext()) {
      if (accept(FEnumerator->Current())) return true;
    }
    return false;
  }

 private:
  template <class I, class S>
  static I* Target(S& source) {
    using TPointeeType = TPointee<std::remove_cvref_t<S>>;
    I* target = TPointeeType::Of(const_cast<std::remove_cvref_t<S>&>(source));
    Assert(target != nullptr);
    return target;
  }

  const T* FItems = nullptr;
  int32_t FCount = 0;
  TArray<T> FHeld;
  TRef<IEnumerator<T>> FEnumerator;
  ISizeEnumerator<T>* FSized = nullptr;  // FEnumerator, when it knows its size
  const IInterface* FOrigin = nullptr;
};

}  // namespace Detail
}  // namespace Talvo
