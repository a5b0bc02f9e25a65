// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/Talvo.Elements.h>

#include <array>
#include <gtest/gtest.h>

#include "tests/TestTypes.h"

namespace Talvo {
namespace {

TEST(TupleTest, HandsItsItemsOut) {
  const auto two = TTuple<string, int32_t>::Make(u"left", 3);
  string name;
  int32_t count = 0;
  two->Get1(name).Get2(count);
  EXPECT_EQ(name, u"left");
  EXPECT_EQ(count, 3);
  EXPECT_EQ(two->Item1(), u"left");
  EXPECT_EQ(two->GetItem2(), 3);

  const auto three = TTuple<int32_t, TRef<IWatched>, string>::Make(1, Create<TWatched>(2), u"x");
  TRef<IWatched> watched;
  three->Get1(count).Get3(name).Get2(watched);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(name, u"x");
  EXPECT_EQ(watched->Tag(), 2);
  EXPECT_TRUE(three->Item2() == watched);
  EXPECT_EQ(three->Item3(), u"x");
  EXPECT_FALSE((Supports<ITuple<int32_t, string>>(two))) << "tuples of other types are others";
}

TEST(TupleTest, RecordsCompareAndComeEmpty) {
  const TRecTuple<int32_t, string> empty, full(1, u"a");
  EXPECT_EQ(empty, (TRecTuple<int32_t, string>(0, u"")));
  EXPECT_NE(empty, full);
  const TRecTuple<int32_t, int32_t, int32_t> three(1, 2, 3);
  const auto& [a, b, c] = three;
  EXPECT_EQ(a + 10 * b + 100 * c, 321);
}

TEST(ReferenceTest, CellsAreSharedAndLetOldValuesGoLast) {
  const auto cell = TReferenceInterface<TRef<IWatched>>::Make();
  EXPECT_FALSE(cell->Value());
  bool isReplaced = false;
  cell->SetValue(
      Create<TWatched>(1, [&] { isReplaced = cell->Value() && cell->Value()->Tag() == 2; }));
  const auto same = cell;
  same->SetValue(Create<TWatched>(2));
  EXPECT_TRUE(isReplaced) << "the old value's end finds the new one in place";
  EXPECT_EQ(cell->GetValue()->Tag(), 2);
  EXPECT_EQ(TReferenceInterface<int32_t>::Make(7)->Value(), 7);
}

TEST(ReferenceTest, InstancesAreNotOwned) {
  struct TPlain {
    int Value = 5;
  } plain;
  auto travelling = TInstanceInterface<TPlain>::Make(&plain);
  EXPECT_EQ(travelling->GetInstance(), &plain);
  travelling = nullptr;
  EXPECT_EQ(plain.Value, 5);
}

TEST(CompareTest, LooksAtTheStorage) {
  const auto one = TTuple<int32_t, int32_t>::Make(1, 2),
             other = TTuple<int32_t, int32_t>::Make(1, 2);
  EXPECT_TRUE(TCompare::Equals(one, TRef(one)));
  EXPECT_FALSE(TCompare::Equals(one, other)) << "equal content in other objects";
  EXPECT_TRUE(TCompare::Equals(TPosLength{1, 2}, TPosLength{1, 2}));
  EXPECT_FALSE(TCompare::Equals(TPosLength{1, 2}, TPosLength{1, 3}));
  EXPECT_FALSE(TCompare::Equals(0.0, -0.0)) << "equal numbers in other bytes";
}

TEST(PersistentHelperTest, FindsTheNearestComponent) {
  class TItem : public TPersistent {
   public:
    explicit TItem(TPersistent* owner) : FOwner(owner) {}
    TPersistent* GetOwner() const noexcept override { return FOwner; }

   private:
    TPersistent* FOwner;
  };
  const auto outer = Create<TComponent>(nullptr);
  TComponent* inner = Create<TComponent>(outer.Get()).Detach();
  const auto collection = Create<TItem>(inner);
  const auto item = Create<TItem>(collection.Get());
  const auto stray = Create<TItem>(nullptr);
  EXPECT_EQ(TPersistentHelper::GetOwnerComponent(item.Get()), inner);
  EXPECT_EQ(TPersistentHelper::GetOwnerComponent(inner), inner) << "a component is its own";
  EXPECT_EQ(TPersistentHelper::GetOwnerComponent(stray.Get()), nullptr);
  EXPECT_EQ(TPersistentHelper::GetOwnerComponent(nullptr), nullptr);
}

TEST(DelegateTest, BindsProceduresToObjects) {
  int calls = 0;
  const TProc<> plain = Delegate::Proc(
      +[](int* count) { ++*count; }, &calls);
  plain();
  plain();
  EXPECT_EQ(calls, 2);

  const int before = TWatched::Live;
  TProc<> kept = Delegate::Proc(
      +[](const TRef<IWatched>& w) { EXPECT_EQ(w->Tag(), 4); }, Create<TWatched>(4));
  kept();
  EXPECT_EQ(TWatched::Live, before + 1) << "the reference is kept";
  kept = nullptr;
  EXPECT_EQ(TWatched::Live, before);

  EXPECT_FALSE(Delegate::Proc(static_cast<void (*)(int*)>(nullptr), &calls));
  const TProc<> nothing = Delegate::Empty;
  nothing();
}

TEST(DelegateTest, CopiesSetsAndNumbers) {
  enum TDays : uint16_t { Mon = 1, Sun = 0x8040 };
  EXPECT_EQ(Delegate::IntToSet<TDays>(0x12348040), Sun) << "bytes above the set are dropped";
  EXPECT_EQ(Delegate::SetToInt(Sun), 0x8040);
  using TBytes = std::array<uint8_t, 3>;
  EXPECT_EQ(Delegate::IntToSet<TBytes>(0x00030201), (TBytes{1, 2, 3}));
  EXPECT_EQ(Delegate::SetToInt<uint64_t>(TBytes{1, 2, 0xFF}), 0xFF0201u);
  EXPECT_EQ(Delegate::SetToInt(-1), -1);
}

}  // namespace
}  // namespace Talvo
