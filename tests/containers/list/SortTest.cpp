// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/Talvo.Containers.List.h>

#include <tests/containers/Sources.h>

#include <cmath>
#include <numeric>

namespace Talvo {
namespace {

using TInts = std::vector<int32_t>;

TInts Made(int count, TFunctionRef<int64_t(int)> item) {
  TInts items;
  for (int i = 0; i < count; ++i) items.push_back(static_cast<int32_t>(item(i)));
  return items;
}

/// Sorts with a comparison that decides as late as it can, always against the sort (M. McIlroy,
/// "A Killer Adversary for Quicksort"), and answers the order that it settled on.
TInts KillerSequence(int count) {
  const int32_t open = count;
  TInts values(count, open), order(count);
  std::iota(order.begin(), order.end(), 0);
  int32_t settled = 0, candidate = 0;
  TArrayList<int32_t>::MakeArray(order)->Sort([&](int32_t left, int32_t right) {
    if (values[left] == open && values[right] == open) {
      values[left == candidate ? left : right] = settled++;
    }
    if (values[left] == open) candidate = left;
    if (values[right] == open) candidate = right;
    return values[left] - values[right];
  });
  return values;
}

TEST(SortTest, NeverQuadratic) {
  TALVO_SEEDED(engine);
  constexpr int count = 50'000;
  const std::pair<const char*, TInts> inputs[] = {
      {"random", Made(count, [&](int) { return engine(); })},
      {"few values", Made(count, [&](int) { return engine() % 5; })},
      {"equal", TInts(count, 7)},
      {"up", Made(count, [](int i) { return i; })},
      {"down", Made(count, [](int i) { return -i; })},
      {"organ pipe", Made(count, [](int i) { return std::min(i, count - i); })},
      {"saw", Made(count, [](int i) { return i % 100; })},
      {"killer", KillerSequence(count)}};
  for (const auto& [name, input] : inputs) {
    SCOPED_TRACE(name);
    int64_t comparisons = 0;
    const auto list = TArrayList<int32_t>::MakeArray(input);
    list->Sort([&](int32_t left, int32_t right) { return ++comparisons, left <=> right; });
    TInts sorted = input;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_TRUE(std::ranges::equal(sorted, *list));
    EXPECT_LT(comparisons, 4 * count * std::log2(count));
  }
}

template <class T>
class SortByDefaultTest : public testing::Test {};
using TSorted = testing::Types<int8_t, uint8_t, int16_t, char16_t, int32_t, uint32_t, int64_t,
                               uint64_t, float, double, bool, string, TCounted, TCopied>;
TYPED_TEST_SUITE(SortByDefaultTest, TSorted);

TYPED_TEST(SortByDefaultTest, AllSizesAsTheStandardSorts) {
  TALVO_SEEDED(engine);
  for (const int count : {0, 1, 2, 3, 15, 16, 17, 18, 100, 511, 512, 513, 3000}) {
    SCOPED_TRACE(count);
    std::vector<TypeParam> items;
    for (int i = 0; i < count; ++i) {
      const uint64_t bits = engine() >> engine() % 64;
      if constexpr (std::is_same_v<TypeParam, string>) {
        items.push_back(string(engine() % 30, static_cast<char16_t>(bits)));
      } else if constexpr (std::is_class_v<TypeParam>) {
        items.push_back(static_cast<int>(bits % 1000));
      } else if constexpr (std::is_floating_point_v<TypeParam>) {
        items.push_back(std::ldexp(static_cast<TypeParam>(static_cast<int64_t>(bits)),
                                   static_cast<int>(engine() % 120) - 60));
      } else {
        items.push_back(static_cast<TypeParam>(bits));
      }
    }
    std::vector<TypeParam> sorted = items;
    std::sort(sorted.begin(), sorted.end());
    const auto buffer = std::make_unique<TypeParam[]>(count + 1);
    std::copy(items.begin(), items.end(), buffer.get());
    Detail::SortByDefault(buffer.get(), count);
    ASSERT_TRUE(std::equal(sorted.begin(), sorted.end(), buffer.get()));
    EXPECT_TRUE(buffer[count] == TypeParam()) << "written past the end";
  }
}

TEST(SortTest, ComparisonsComeInManyForms) {
  const auto list = TArrayList<int64_t>::MakeArray({50, INT64_MIN, 70, INT64_MAX, 50});
  const auto down = [](int64_t l, int64_t r) { return l < r ? 1 : l > r ? -1 : 0; };
  const auto far = [](int64_t l, int64_t r) { return l / 4 - r / 4; };  // more than 32 bits
  const auto isUp = [](const auto& sorted) { return std::ranges::is_sorted(sorted); };
  const auto isDown = [](const auto& s) { return std::ranges::is_sorted(s, std::greater<>()); };
  EXPECT_TRUE(isUp(list->Sort()) && isDown(list->Sort(down)) && isUp(list->Sort(nullptr)));
  EXPECT_TRUE(isDown(list->Sort([](int64_t l, int64_t r) { return r <=> l; })));
  EXPECT_TRUE(isUp(list->Sort(TComparison<int64_t>())));
  EXPECT_TRUE(isDown(list->Sort(TComparison<int64_t>(down))) && isUp(list->Sort(far)));
  int calls = 0;
  const auto count = [&](int64_t, int64_t) { return ++calls; };
  TArrayList<int64_t>::Make()->Sort(count).Add(1).Sort(count);
  EXPECT_EQ(0, calls);
}

template <class T>
class SortFailureTest : public testing::Test {};
using TMoved = testing::Types<TCounted, TCopied>;
TYPED_TEST_SUITE(SortFailureTest, TMoved);

TYPED_TEST(SortFailureTest, FailingComparisonsAndCopiesLeaveAWholeList) {
  TALVO_SEEDED(engine);
  const auto list = TArrayList<TypeParam>::Make();
  for (int i = 0; i < 60; ++i) list->Add(static_cast<int>(engine() % 40));
  const std::vector<TypeParam> before = Items(list);
  for (int failsAt = 1; failsAt < 400; failsAt += 7) {
    int calls = 0;
    try {
      list->Sort([&](const TypeParam& left, const TypeParam& right) {
        if (++calls == failsAt) throw 1;
        return failsAt % 2 ? left.Number() - right.Number() : right.Number() - left.Number();
      });
    } catch (int) {
    }
    ASSERT_TRUE(std::ranges::is_permutation(*list, before));
  }
  ForEveryFailure<TypeParam>([&] { list->Sort(); });
}

TEST(SortTest, InconsistentOrdersStayInsideTheList) {
  TALVO_SEEDED(engine);
  const TComparison<int32_t> orders[] = {
      [](int32_t, int32_t) { return -1; }, [](int32_t, int32_t) { return 1; },
      [&](int32_t, int32_t) { return static_cast<int>(engine() % 3) - 1; },
      [](int32_t left, int32_t right) { return (left - right + 3000) % 3 - 1; }};  // a circle
  for (const int count : {2, 17, 1000}) {
    for (const auto& order : orders) {
      const TInts before = Made(count, [&](int) { return engine() % 1000; });
      const auto list = TArrayList<int32_t>::MakeArray(before);
      EXPECT_TRUE(std::ranges::is_permutation(list->Sort(order), before));
    }
  }
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(5, TArrayList<double>::MakeArray({nan, 1, nan, -1, nan})->Sort().Count());
}

TEST(SortTest, ComparisonsMayChangeTheList) {
  const auto list = TArrayList<string>::Make();
  for (int i = 0; i < 100; ++i) list->Add(string(static_cast<size_t>(i % 30), u'x'));
  int calls = 0;
  list->Sort([&](const string& left, const string& right) {
    if (++calls == 20) list->Add(left);
    if (calls == 40) list->Clear();
    return left.compare(right);
  });
  EXPECT_EQ(0, list->Count());
}

}  // namespace
}  // namespace Talvo
