// SPDX-License-Identifier: Apache-2.0
#pragma once
// Function objects: reference-counted code with an identity.
//
//   TConstFunc<int32_t, bool> isOdd = [](int32_t n) { return n % 2 != 0; };
//   TProc<> onChange = [&] { redraw(); };
//   list->AddChangeNotification(onChange);      // ... and by the same handle:
//   list->RemoveChangeNotification(onChange);
//
// A handle is built from any callable in one allocation, may be empty, and equals another when
// both share one function object. A class may implement IFunction itself.

#include <type_traits>
#include <utility>
#include <talvo/runtime/Object.h>

namespace Talvo {

template <class S>
class IFunction;
template <class S>
class TFunction;

/// Code that can be held by reference.
template <class R, class... A>
class IFunction<R(A...)> : public virtual IInterface {
  TALVO_INTERFACE(IFunction, IInterface);
  virtual R Invoke(A... arguments) = 0;
};

namespace Detail {

/// What can be called and may be empty: a function pointer or a TFunction.
template <class F>
inline constexpr bool IsFunctionHandle = std::is_pointer_v<F>;
template <class S>
inline constexpr bool IsFunctionHandle<TFunction<S>> = true;

/// Procedures take only what returns nothing, so that no result is lost by mistake.
template <class F, class R, class... A>
concept CallableAs = !std::is_member_pointer_v<F> &&
                     (std::is_void_v<R> ? std::is_void_v<std::invoke_result_t<F&, A...>>
                                        : std::is_invocable_r_v<R, F&, A...>);

/// A function object of the caller's that is none of these handles: for overloads that say so.
template <class F, class... Handles>
concept MisfitFor =
    std::is_class_v<std::remove_reference_t<F>> && !(std::is_convertible_v<F, Handles> || ...);

/// Whether code may be called with these arguments, but returns something.
template <class F, class... A>
constexpr bool ReturnsSomething() {
  if constexpr (std::is_invocable_v<F&, A...>) {
    return !std::is_void_v<std::invoke_result_t<F&, A...>>;
  } else {
    return false;
  }
}

template <class F, class R, class... A>
class TCallable final : public TImplements<TInterfacedObject, IFunction<R(A...)>> {
 public:
  static constexpr bool RecyclesMemory = true;

  template <class G>
  explicit TCallable(G&& code) : FCode(static_cast<G&&>(code)) {}
  R Invoke(A... arguments) override { return FCode(static_cast<A&&>(arguments)...); }

 private:
  static void operator delete(void* memory) { GiveBlock<sizeof(TCallable)>(memory); }
  static void operator delete(void* memory, size_t size, std::align_val_t alignment) {
    TInterfacedObject::operator delete(memory, size, alignment);
  }

  F FCode;
};

/// How a value of type A travels into a function object: scalars by value, all else by const&.
template <class A>
using TArgument = std::conditional_t<std::is_scalar_v<A>, A, const A&>;

template <class Done, class... Rest>
struct TSignature;
template <class... Done, class Last>
struct TSignature<TTypeList<Done...>, Last> {
  using TType = Last(TArgument<Done>...);
};
template <class... Done, class Next, class... Rest>
requires(sizeof...(Rest) > 0) struct TSignature<TTypeList<Done...>, Next, Rest...>
    : TSignature<TTypeList<Done..., Next>, Rest...> {
};

}  // namespace Detail

/// The handle to a function object. Copies share it; equality is identity.
template <class R, class... A>
class TFunction<R(A...)> {
 public:
  using TTarget = IFunction<R(A...)>;

  TFunction() noexcept = default;
  TFunction(std::nullptr_t) noexcept {}
  TFunction(TRef<TTarget> function) noexcept : FFunction(std::move(function)) {}
  template <class I>
  requires std::is_base_of_v<TTarget, I> TFunction(const TRef<I>& function)
  noexcept : FFunction(function) {}
  /// Wraps a callable; a null function pointer or an empty handle gives an empty handle.
  template <class F>
  requires(!std::is_base_of_v<TFunction, std::decay_t<F>> && !IsReference<std::decay_t<F>> &&
           std::is_invocable_v<std::decay_t<F>&, A...> &&
           Detail::CallableAs<std::decay_t<F>, R, A...>) TFunction(F&& code) {
    if constexpr (Detail::IsFunctionHandle<std::remove_cvref_t<F>>) {
      if (!code) return;
    }
    FFunction = Create<Detail::TCallable<std::decay_t<F>, R, A...>>(static_cast<F&&>(code));
  }

  /// Calls it. An empty handle is an assertion failure.
  R Invoke(A... arguments) const {
    Assert(static_cast<bool>(FFunction));
    return FFunction->Invoke(static_cast<A&&>(arguments)...);
  }
  R operator()(A... arguments) const { return Invoke(static_cast<A&&>(arguments)...); }

  explicit operator bool() const noexcept { return static_cast<bool>(FFunction); }
  /// The function object behind the handle, by which handles are equal.
  const TRef<TTarget>& Object() const noexcept { return FFunction; }
  uint64_t HashValue() const noexcept { return FFunction.HashValue(); }

  friend bool operator==(const TFunction& left, const TFunction& right) noexcept {
    return left.FFunction == right.FFunction;
  }
  friend bool operator==(const TFunction& left, std::nullptr_t) noexcept { return !left.FFunction; }

 private:
  TRef<TTarget> FFunction;
};

/// Code that takes values and returns nothing.
template <class... A>
using TProc = TFunction<void(Detail::TArgument<A>...)>;
template <class... A>
using TConstProc = TProc<A...>;
/// Code that returns a value; the last type is the result.
template <class... A>
using TFunc = TFunction<typename Detail::TSignature<Detail::TTypeList<>, A...>::TType>;
template <class... A>
using TConstFunc = TFunc<A...>;
template <class... A>
using TConstResultFunc = TFunc<A...>;

template <class S>
class TFunctionRef;

/// A callable borrowed for one call: no count, no allocation. It must outlive the call.
template <class R, class... A>
class TFunctionRef<R(A...)> {
 public:
  TFunctionRef(std::nullptr_t = nullptr) noexcept {}
  template <class F>
  requires(!std::is_same_v<std::remove_cvref_t<F>, TFunctionRef> &&
           std::is_invocable_r_v<R, F&, A...>) TFunctionRef(F&& code)
  noexcept
      : FCode(const_cast<void*>(reinterpret_cast<const volatile void*>(std::addressof(code)))),
        FCall([](void* callee, A... arguments) -> R {
          return static_cast<R>((*reinterpret_cast<std::remove_reference_t<F>*>(callee))(
              static_cast<A&&>(arguments)...));
        }) {}
  R operator()(A... arguments) const { return FCall(FCode, static_cast<A&&>(arguments)...); }
  explicit operator bool() const noexcept { return FCall != nullptr; }

 private:
  void* FCode = nullptr;
  R (*FCall)(void*, A...) = nullptr;
};

}  // namespace Talvo
