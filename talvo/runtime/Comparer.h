// SPDX-License-Identifier: Apache-2.0
#pragma once
// Order of values: by default numbers by value, text by code units, pointers, objects and
// references by address.

#include <talvo/runtime/Function.h>

namespace Talvo {

/// An order of values of type T.
template <class T>
class IComparer : public virtual IInterface {
  TALVO_INTERFACE(IComparer, IInterface);
  /// Below 0 when left comes before right, above 0 when behind it, 0 when they are equal.
  virtual int32_t Compare(const T& left, const T& right) const = 0;
  /// Whether this is the default order of T, which callers may then follow without calls. The
  /// address tells nothing: each module has a default comparer of its own.
  virtual bool IsDefault() const { return false; }
};

/// An order as a function object.
template <class T>
using TComparison = TFunction<int32_t(const T&, const T&)>;

namespace Detail {

/// What the elements of T are, if T is a standard container, pair, tuple or variant.
template <class T>
struct TElementsOf {
  using TType = TTypeList<>;
};
template <class E, auto N, template <class, auto> class C>
struct TElementsOf<C<E, N>> {
  using TType = TTypeList<E>;
};
template <class... A, template <class...> class C>
struct TElementsOf<C<A...>> {
  static auto Pick() {
    if constexpr (requires(const C<A...>& value) {
                    typename C<A...>::value_type;
                    value.begin();
                  }) {
      return TTypeList<std::remove_cv_t<typename C<A...>::value_type>>();
    } else if constexpr (
        requires { std::tuple_size<C<A...>>::value; } ||
        requires(const C<A...>& value) { value.valueless_by_exception(); }) {
      return TTypeList<std::remove_cv_t<A>...>();
    } else {
      return TTypeList<>();
    }
  }
  using TType = decltype(Pick());
};

struct TEqual {
  template <class T>
  static constexpr bool Has = requires(const T& left, const T& right) {
    { left == right } -> std::convertible_to<bool>;
  };
};
struct TLess {
  template <class T>
  static constexpr bool Has = requires(const T& left, const T& right) {
    { left < right } -> std::convertible_to<bool>;
  };
};

/// Whether values of T can be compared by `Operator`. Standard containers declare theirs whatever
/// their elements can, so the elements are asked too.
template <class Operator, class T>
constexpr bool Compares() {
  if constexpr (Operator::template Has<T>) {
    return []<class... E>(TTypeList<E...>) {
      return (Compares<Operator, E>() && ...);
    }(typename TElementsOf<T>::TType());
  } else {
    return false;
  }
}

}  // namespace Detail

/// The default order of two values; NaN equals itself and comes last. A type with nothing but ==
/// has an equality and no order: its unequal values compare as 1. A type without any comparison
/// raises EAbstractError.
template <class T>
inline int32_t DefaultCompare(const T& left, const T& right) {
  if constexpr (std::is_pointer_v<T>) {
    const auto l = reinterpret_cast<uintptr_t>(left), r = reinterpret_cast<uintptr_t>(right);
    return l < r ? -1 : l > r;
  } else if constexpr (std::is_floating_point_v<T>) {
    if (left < right) return -1;
    if (left > right) return 1;
    return left == right
               ? 0
               : static_cast<int32_t>(left != left) - static_cast<int32_t>(right != right);
  } else if constexpr (requires {
                         { left.compare(right) } -> std::same_as<int>;
                       }) {
    return left.compare(right);
  } else if constexpr (Detail::Compares<Detail::TLess, T>()) {
    return left < right ? -1 : right < left ? 1 : 0;
  } else if constexpr (Detail::Compares<Detail::TEqual, T>()) {
    if (left == right) return 0;
    if constexpr (requires { left.HashValue(); }) {
      return left.HashValue() < right.HashValue() ? -1 : 1;
    } else {
      return 1;
    }
  } else if constexpr (std::has_unique_object_representations_v<T>) {
    return __builtin_memcmp(&left, &right, sizeof(T));
  } else {
    RaiseAbstractError();
  }
}

/// The default comparer of a type.
template <class T>
class TComparer final : public TImplements<TInterfacedObject, IComparer<T>> {
 public:
  int32_t Compare(const T& left, const T& right) const override {
    return DefaultCompare(left, right);
  }
  bool IsDefault() const override { return true; }
  /// One object for the whole module; it lives until the process ends.
  static const TRef<IComparer<T>>& Default() {
    static const auto& comparer = *new TRef<IComparer<T>>(Create<TComparer>());
    return comparer;
  }
};

/// A function object as a comparer.
template <class T>
class TDelegatedComparer final : public TImplements<TInterfacedObject, IComparer<T>> {
 public:
  explicit TDelegatedComparer(TComparison<T> comparison) : FComparison(std::move(comparison)) {}
  int32_t Compare(const T& left, const T& right) const override { return FComparison(left, right); }
  static TRef<IComparer<T>> Make(TComparison<T> comparison) {
    Assert(static_cast<bool>(comparison));
    return Create<TDelegatedComparer>(std::move(comparison));
  }

 private:
  TComparison<T> FComparison;
};

}  // namespace Talvo
