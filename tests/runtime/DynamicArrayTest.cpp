// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/DynamicArray.h>

#include <tests/TestTypes.h>
#include <talvo/runtime/Text.h>

#include <array>
#include <span>

namespace Talvo {
namespace {

template <class T>
T Made(int number) {
  return T(number);
}
template <>
string Made<string>(int number) {
  return string(static_cast<size_t>(number % 40), u'a');
}
struct alignas(64) TWide {
  TWide(int number = 3) : Number(number) {}
  bool operator==(const TWide&) const = default;
  int Number;
};

template <class T>
void ExpectItems(const std::vector<T>& expected, const TArray<T>& array) {
  ASSERT_EQ(static_cast<int32_t>(expected.size()), array.Length());
  ASSERT_EQ(expected.empty(), array.IsEmpty());
  ASSERT_EQ(expected.empty(), array.Data() == nullptr);
  for (int32_t i = 0; i < array.Length(); ++i) ASSERT_TRUE(expected[i] == array[i]) << i;
}

template <class T>
class DynamicArrayModelTest : public testing::Test {};
using TElements = testing::Types<int32_t, bool, string, TWide, TCounted, TCopied>;
TYPED_TEST_SUITE(DynamicArrayModelTest, TElements);

TYPED_TEST(DynamicArrayModelTest, BehavesAsAVectorThatMayBeShared) {
  TALVO_SEEDED(engine);
  const auto below = [&](int limit) { return static_cast<int>(engine() % limit); };
  TArray<TypeParam> array, shared;
  std::vector<TypeParam> model, sharedModel;
  int size, at, count, to;
  const auto insert = [&](const TypeParam* items) {
    const std::vector<TypeParam> copies(items, items + count);
    array.Insert(to, items, count);
    model.insert(model.begin() + to, copies.begin(), copies.end());
  };
  const std::function<void()> verbs[] = {
      [&] { array.SetLength(count), model.resize(count); },
      [&] { array.SetLength(std::min(size, 50)), model.resize(std::min(size, 50)); },
      [&] { array.Extend(size + 3), model.resize(size + 3); },
      [&] { insert(array.Data() + at); },  // its own items
      [&] {
        const TypeParam items[] = {Made<TypeParam>(below(99)), Made<TypeParam>(below(99))};
        count = below(3), insert(items);
      },
      [&] {
        array.Delete(at, count);
        model.erase(model.begin() + at, model.begin() + at + count);
      },
      [&] { shared = array, sharedModel = model; },
      [&] { ExpectItems(model, array.Copy(0, at).Concat(array.Data() + at, size - at)); }};
  for (int step = 0; step < 4000; ++step) {
    size = static_cast<int>(model.size());
    at = below(size + 1), count = below(size - at + 1), to = below(size + 1);
    verbs[below(std::size(verbs))]();
    ExpectItems(model, array);
    ExpectItems(sharedModel, shared);
  }
}

TEST(DynamicArrayTest, CopiesShareUntilTheLengthChanges) {
  TArray<int32_t> first{1, 2, 3};
  TArray<int32_t> second = first;
  second[0] = 9;
  EXPECT_EQ(9, first[0]);
  second.SetLength(3);
  EXPECT_FALSE(second.SharesWith(first));
  second[0] = 1;
  EXPECT_EQ(9, first[0]);
}

TEST(DynamicArrayTest, ChecksItsArguments) {
  TArray<int32_t> array{1, 2, 3};
  const int32_t* items = array.Data();
  for (const int32_t index : {-1, 3, INT32_MIN, INT32_MAX}) {
    EXPECT_THROW(array[index], ERangeError);
    EXPECT_THROW(array.Delete(index, 1), ERangeError);
    EXPECT_THROW(array.Copy(index, 1), ERangeError);
    EXPECT_THROW(array.Insert(index == 3 ? 4 : index, items, 1), ERangeError);
    if (index >= 0) continue;
    EXPECT_THROW(array.SetLength(index), ERangeError);
    EXPECT_THROW(array.Insert(0, items, index), ERangeError);
    EXPECT_THROW(array.Concat(items, index), ERangeError);
    EXPECT_THROW(TArray<int32_t>(items, index), ERangeError);
  }
  EXPECT_THROW(array.Copy(1, INT32_MAX), ERangeError);
  EXPECT_THROW(TArray<int32_t>(nullptr, 1), EAssertionFailed);
  ExpectItems({1, 2, 3}, array);
}

template <class T>
class DynamicArrayFailureTest : public testing::Test {};
using TFailing = testing::Types<TCounted, TCopied>;
TYPED_TEST_SUITE(DynamicArrayFailureTest, TFailing);

TYPED_TEST(DynamicArrayFailureTest, NothingChangesWhenACopyFails) {
  const std::vector<TypeParam> items = Sequence<TypeParam>(5);
  struct THandles {
    TArray<TypeParam> Array, Shared = Array;
  };
  const auto check = [&](auto&& change) {
    ForEveryFailure<TypeParam>(
        [&] { return THandles{TArray<TypeParam>(items)}; },
        [](const auto& handles) { return std::vector(handles.Array.begin(), handles.Array.end()); },
        [&](auto& handles) { change(handles.Array); });
  };
  check([&](auto& array) { array.Insert(2, items.data(), 3); });
  check([&](auto& array) { array.Insert(5, array.Data(), 5); });
  check([&](auto& array) { array.SetLength(9); });
  check([&](auto& array) { array.SetLength(2); });
  if constexpr (std::is_nothrow_move_assignable_v<TypeParam>) {
    check([&](auto& array) { array.Delete(1, 1); });
  }
}

TEST(DynamicArrayTest, EndsOfItemsMayComeBackToIt) {
  TArray<TRef<IWatched>> array;
  const auto fill = [&](TProc<> onEnd) {
    array = TArray<TRef<IWatched>>::OfLength(4);
    for (auto& item : array) item = Create<TWatched>(1, onEnd);
  };
  const TProc<> clear = [&] { array.SetLength(0); };
  const TProc<> grow = [&] { array.SetLength(array.Length() + 100); };
  for (const auto& onEnd : {clear, grow}) {
    fill(onEnd);
    array.Delete(1, 2);
    fill(onEnd);
    array.SetLength(1);
    fill(onEnd);
    array = {};
    fill(onEnd);
    array.Delete(0, 4);
    for (auto& item : array) item = nullptr;
    array = {};
  }
  EXPECT_EQ(0, TWatched::Live);
}

struct TBase {
  int A = 1;
};
struct TDerived : TBase {
  int B = 2;
};
static_assert(ContiguousOf<std::vector<TBase>, TBase> &&
              ContiguousOf<std::span<const TBase>, TBase> &&
              ContiguousOf<std::array<TBase, 2>, TBase> && ContiguousOf<TBase[2], TBase>);
static_assert(!ContiguousOf<std::vector<TDerived>, TBase>, "its items stand further apart");

}  // namespace
}  // namespace Talvo
