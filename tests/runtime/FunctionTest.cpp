// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Function.h>

#include <tests/TestTypes.h>

namespace Talvo {
namespace {

int32_t Twice(int32_t n) {
  return 2 * n;
}

class TAdder : public TImplements<TBasicInterfacedObject, IFunction<int32_t(int32_t)>> {
 public:
  int32_t Invoke(int32_t n) override { return FSum += n; }

 private:
  int32_t FSum = 0;
};

TEST(FunctionTest, HoldsAnythingThatCanBeCalled) {
  int calls = 0;
  const auto adder = Create<TAdder>();
  const TFunc<int32_t, int32_t> functions[] = {&Twice,
                                               Twice,
                                               [](int32_t n) { return n + n; },
                                               [n = 2](int32_t m) mutable { return n *= m; },
                                               adder,
                                               TFunc<int32_t, int64_t>([&](int32_t n) {
                                                 ++calls;
                                                 return int64_t{n} * 2;
                                               })};
  for (const auto& function : functions)
    EXPECT_EQ(6, function(3) + (&function == &functions[4]) * 3);
  EXPECT_EQ(1, calls);
  EXPECT_EQ(4, adder->Invoke(1)) << "one object behind the handle";
}

TEST(FunctionTest, EqualityIsTheObject) {
  const auto lambda = [] {};
  const TProc<> first = lambda, second = lambda, copy = first;
  EXPECT_TRUE(first == copy && first != second && first != nullptr);
  EXPECT_EQ(first.HashValue(), copy.HashValue());
}

TEST(FunctionTest, EmptyHandlesAssert) {
  int32_t (*none)(int32_t) = nullptr;
  const TFunc<int32_t, int32_t> empty[] = {{}, nullptr, none, TFunc<int32_t, int64_t>()};
  for (const auto& function : empty) {
    EXPECT_FALSE(function);
    EXPECT_THROW(function(1), EAssertionFailed);
  }
}

template <class F, class C>
concept Takes = std::is_convertible_v<C, F>;
using TReturning = decltype([] { return 1; });
static_assert(Takes<TFunc<int32_t>, TReturning> && Takes<TFunc<double>, TReturning>);
static_assert(!Takes<TProc<>, TReturning>, "a result would be lost");
static_assert(!Takes<TFunc<string>, TReturning> &&
              !Takes<TFunc<TAdder*, int32_t>, int32_t TAdder::*>);
static_assert(std::is_same_v<TProc<string>, TConstProc<string>>);

TEST(FunctionTest, BorrowedCallablesNeedNoHandle) {
  const auto apply = [](TFunctionRef<int32_t(int32_t)> function) { return function(4); };
  int32_t seen = 0;
  EXPECT_EQ(8, apply(Twice));
  EXPECT_EQ(8, apply(&Twice));
  EXPECT_EQ(4, apply([&](int32_t n) { return seen = n; }));
  EXPECT_FALSE(TFunctionRef<void()>());
}

}  // namespace
}  // namespace Talvo
