// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/list/NotifyArrayList.h>
#include <talvo/containers/list/NotifyLinkedList.h>

#include <tests/TestTypes.h>

namespace Talvo {
namespace {

/// What a call on a list of 1, 2, 3 tells its subscribers, and how often.
template <class TList>
struct TStep {
  int32_t Told;
  const char* Text;
  TConstProc<TRef<TList>> Run;
};
// clang-format off
#define STEP(told, ...) {told, #__VA_ARGS__, [](auto& list) { __VA_ARGS__; }}
// clang-format on

template <class TClass, class TList>
void CheckSteps(const std::vector<TStep<TList>>& steps) {
  for (const TStep<TList>& step : steps) {
    SCOPED_TRACE(step.Text);
    const TRef<TClass> list = TClass::CreateArray({1, 2, 3});
    int32_t told = 0;
    const TProc<> link = As<IChangeNotification>(list)->AddChangeNotification([&] { ++told; });
    step.Run(list);
    EXPECT_EQ(told, step.Told);
    list->RemoveChangeNotification(link);
    list->Add(4);
    EXPECT_EQ(told, step.Told) << "nobody listens any more";
  }
}

bool IsSmall(int32_t item) {
  return item < 3;
}
bool IsNone(int32_t) {
  return false;
}
bool IsSmallOrRaises(int32_t item) {
  return item < 3 || (RaiseRangeError(), true);
}
class TRaisingEnumerator : public TEnumerator<int32_t> {
  bool MoveNext() override { return ++FItem < 3 || (RaiseRangeError(), true); }
  const int32_t& Current() override { return FItem; }
  int32_t FItem = 0;
};
TOwn<TEnumerator<int32_t>> Raising() {
  return Create<TRaisingEnumerator>();
}
constexpr auto Ignore = [](int32_t) {};
const std::vector<int32_t> Nothing;
int32_t GItem;

template <class TClass, class TList>
void CheckCommonSteps() {
  CheckSteps<TClass, TList>({
    STEP(3, list->Add(4).Add(4, 2).Add(4, 0).Append({4, 5}).Append(Nothing)),
        STEP(0, EXPECT_THROW(list->Add(4, -1), ERangeError)),
        STEP(2, As<IList>(list)->AddValue(TValue::From(4)); As<IList>(list)->ClearValues()),
        STEP(3, list->AddUnique(3).AddUnique(4).AppendUnique({2, 4, 5, 6})),
        STEP(1, list->Assign(list).Assign({4, 5})),
        STEP(1, list->FindOrAdd(IsSmall, 7); list->FindOrAdd(IsNone, 7)),
        STEP(2, list->RemoveOne(2); list->RemoveOne(2); list->RemoveOne(IsSmall).RemoveOne(IsNone)),
        STEP(1, list->FindAndRemoveOne(IsSmall, GItem); list->FindAndRemoveOne(9)),
        STEP(1, list->FindAndRemoveOne(IsSmall, Ignore).FindAndRemoveOne(IsNone, Ignore)),
        STEP(2, list->RemoveAll({1, 2, 9}).RemoveAll(IsNone).RemoveAll(9)),
        STEP(1, list->Clear().Clear()), STEP(0, list->Query()->Filter(IsSmall)->Clear()),
  });
}

TEST(NotifyListTest, ArrayListsTellOfChanges) {
  CheckCommonSteps<TNotifyArrayList<int32_t>, IArrayList<int32_t>>();
  CheckSteps<TNotifyArrayList<int32_t>, IArrayList<int32_t>>({
    STEP(2, list->RemoveAll(IsSmall)), STEP(2, list->RemoveAll(IsSmall, Ignore)),
        STEP(3, list->Add(1).RemoveAll(list[3])), STEP(1, list->SetCount(3); list->SetCount(5)),
        STEP(1, list->SetItem(0, 9); EXPECT_THROW(list->SetItem(3, 9), ERangeError)),
        STEP(4, list->Insert(1, 9).Insert(4, 9).Insert(1, {8, 9}).Insert(9, {8, 9})),
        STEP(2, list->Clear().Insert(0, {8, 9})),
        STEP(2, list->AddFront(9); list->ExtractFirst(TItemCount{2})),
        STEP(1, list->Delete(1).Delete(2).Delete(-1).Delete(0, 0)),
        STEP(4, list->Swap(1, 1).Swap(0, 1).Move(0, 3).Move(1, 1).Move(0, 2).Reverse().Sort()),
        STEP(1, list->SetCapacity(9, false).SetCapacity(1, true)),
        STEP(2, list->SetCapacity(9, false); EXPECT_THROW(list->Append(Raising()), ERangeError);
             EXPECT_EQ(list->Count(), 5); list->Add(7)),
  });
}

TEST(NotifyListTest, LinkedListsTellOfChanges) {
  CheckCommonSteps<TNotifyLinkedList<int32_t>, ILinkedList<int32_t>>();
  CheckSteps<TNotifyLinkedList<int32_t>, ILinkedList<int32_t>>({
    STEP(2, list->RemoveAll(IsSmall).AddFirst(9)),
        STEP(1, EXPECT_THROW(list->RemoveAll(IsSmallOrRaises), ERangeError)),
        STEP(0, EXPECT_THROW(list->Append(Raising()), ERangeError)),
        STEP(3, list->PopFirst(GItem).PopFirst(Ignore).PopFirst(GItem).PopFirst(GItem)),
        STEP(2, auto walk = list->GetEnumerator(); list->RemoveOne(2).RemoveOne(2).RemoveAll(3)),
        STEP(1, auto walk = list->GetEnumerator(); list->PopFirst(GItem).PopFirst(GItem)),
        STEP(1, auto walk = list->GetEnumerator(); list->Clear().Clear()),
  });
}

template <class TClass>
class NotifyInterfaceListTest : public ::testing::Test {};
using TItem = TRef<IInterface>;
using TInterfaceLists =
    ::testing::Types<TInterfaceNotifyArrayList<TItem>, TInterfaceNotifyLinkedList<TItem>>;
TYPED_TEST_SUITE(NotifyInterfaceListTest, TInterfaceLists);

TYPED_TEST(NotifyInterfaceListTest, TellsAndFindsByIdentity) {
  const TItem one = TypeParam::Create(), alike = TypeParam::Create();
  const TRef<TypeParam> list = TypeParam::Create();
  int32_t told = 0;
  list->AddChangeNotification([&] { ++told; });
  list->Add(one).Add(one);
  list->RemoveOne(alike);
  list->RemoveOne(one);
  EXPECT_TRUE(told == 3 && list->Count() == 1);
  EXPECT_TRUE(Supports<IChangeNotification>(list->Query()->Take(1))) << "a list of the same kind";
}

TYPED_TEST(NotifyInterfaceListTest, SubscribersMayEndTheList) {
  TRef<TypeParam> list;
  const TItem item = TypeParam::Create();
  const TConstProc<TRef<TypeParam>> changes[] = {
      [&](auto& target) { target->DoAdd(item, 1); }, [](auto& target) { target->DoClear(); },
      [&](auto& target) {
        if constexpr (requires { target->DoRemoveEqual(item); }) {
          target->DoRemoveEqual(item);
        } else {
          target->AppendUnique({nullptr, TypeParam::Create()});  // goes on after the end
        }
      }};
  for (const auto& change : changes) {
    list = TypeParam::CreateArray({item, item});
    bool isEnding = false;
    list->AddChangeNotification([&] { list = nullptr; });
    list->AddDestroyNotification([&] { isEnding = true; });
    change(list);
    EXPECT_TRUE(!list && isEnding);
  }
}

}  // namespace
}  // namespace Talvo
