// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Comparer.h>

#include <tests/TestTypes.h>
#include <talvo/runtime/Text.h>

#include <array>
#include <map>
#include <tuple>
#include <variant>
#include <vector>

namespace Talvo {
namespace {

template <class T>
void ExpectBefore(const T& low, const T& high) {
  const TRef<IComparer<T>>& comparer = TComparer<T>::Default();
  EXPECT_LT(comparer->Compare(low, high), 0);
  EXPECT_GT(comparer->Compare(high, low), 0);
  EXPECT_EQ(0, comparer->Compare(low, low));
}

TEST(ComparerTest, DefaultOrderByKindOfType) {
  ExpectBefore<int32_t>(INT32_MIN, INT32_MAX);  // a difference would wrap
  ExpectBefore<uint64_t>(1, UINT64_MAX);
  ExpectBefore(false, true);
  ExpectBefore<string>(u"B", u"a");
  ExpectBefore<string>(u"\U0001F600", u"\uFFFD");  // by code units: the surrogate is lower
  ExpectBefore<string>(u"ab", u"abc");
  const int items[2] = {};
  ExpectBefore(&items[0], &items[1]);
  ExpectBefore(TCounted(1), TCounted(2));
  TRef<IWatched> first = Create<TWatched>(), second = Create<TWatched>();
  if (first.Get() > second.Get()) first.Swap(second);
  ExpectBefore(first, second);  // by address
}

TEST(ComparerTest, TypesWithoutOrderHaveAtLeastAnEquality) {
  struct TEqualOnly {
    int Number;
    double Weight;
    bool operator==(const TEqualOnly&) const = default;
  };
  struct TNothing {
    double Weight;
  };
  EXPECT_EQ(0, DefaultCompare(TEqualOnly{1, 2}, TEqualOnly{1, 2}));
  EXPECT_NE(0, DefaultCompare(TEqualOnly{1, 2}, TEqualOnly{1, 3}));
  EXPECT_THROW(DefaultCompare(TNothing{1}, TNothing{1}), EAbstractError);
}

TEST(ComparerTest, ContainersCompareAsFarAsTheirElementsDo) {
  struct TNothing {
    double Weight;
  };
  const auto expectNothing = [](const auto& value) {
    EXPECT_THROW(DefaultCompare(value, value), EAbstractError);
  };
  expectNothing(std::vector<std::vector<TNothing>>());
  expectNothing(std::map<int, TNothing>());
  expectNothing(std::pair<int, TNothing>());
  expectNothing(std::tuple<TNothing>());
  expectNothing(std::array<TNothing, 2>());
  expectNothing(std::variant<int, TNothing>());
  ExpectBefore<std::map<int, string>>({{1, u"a"}}, {{1, u"b"}});
  ExpectBefore<std::vector<std::pair<int, int>>>({{1, 1}}, {{1, 2}});
  ExpectBefore<std::variant<int, string>>(1, u"a");
  std::vector<TNothing> items(2);
  ExpectBefore(items.begin(), items.end());
}

TEST(ComparerTest, DelegatesToAFunction) {
  const auto byLastDigit = TDelegatedComparer<int32_t>::Make(
      [](int32_t left, int32_t right) { return left % 10 - right % 10; });
  EXPECT_GT(byLastDigit->Compare(9, 18), 0);
  EXPECT_THROW(TDelegatedComparer<int32_t>::Make(nullptr), EAssertionFailed);
}

}  // namespace
}  // namespace Talvo
