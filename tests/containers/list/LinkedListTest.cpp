// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/list/LinkedList.h>

#include <tests/containers/Sources.h>

#include <list>

namespace Talvo {
namespace {

using TInts = std::vector<int32_t>;
using TIntList = TRef<ILinkedList<int32_t>>;
using TIntLists = TLinkedList<int32_t>;

auto Is(int32_t value) {
  return [value](int32_t item) { return item == value; };
}

class IJobs : public TLinkedListVerbs<int32_t, IJobs, ILinkedList<int32_t>> {
  TALVO_INTERFACE(IJobs, ILinkedList<int32_t>);
  virtual int32_t Done() = 0;
};
class TJobs : public TLinkedListIntf<int32_t, IJobs>,
              public TLinkedListMakers<TJobs, int32_t, IJobs> {
  int32_t Done() override { return Count(); }
};

TEST(LinkedListTest, ADerivedListKeepsItsType) {
  const TRef<IJobs> jobs = TJobs::MakeArray({1});
  EXPECT_EQ(jobs->Add(2).RemoveOne(1).Append({3, 4}).AppendUnique({3}).Done(), 3);
  EXPECT_EQ(jobs->Query()->ForEach([](int32_t) {})->Done(), 3);
  EXPECT_THAT(Items(jobs), ElementsAre(2, 3, 4));
}

TEST(LinkedListTest, EndsOfFullAndEmptyLists) {
  const TIntList list = TIntLists::MakeArray({1, 2, 3, 4, 5});
  TInts taken;
  const auto take = [&](int32_t item) { taken.push_back(item); };
  int32_t item = 0;
  list->ForLast(take).PopFirst(take).PopFirst(item);
  EXPECT_TRUE(item == 2 && list->PopFirst() == 3 && list->IfPopFirst(item) && item == 4);
  EXPECT_TRUE(list->IfPopFirst(take));
  for (int32_t round = 0; round < 2; ++round) {  // one that ran empty, then one that was cleared
    EXPECT_TRUE(!list->Last(item) && item == 0);
    EXPECT_TRUE((item = 7, !list->IfPopFirst(item)) && item == 0);
    EXPECT_FALSE(list->ForLast(take).PopFirst(take).IfPopFirst(take));
    EXPECT_THAT(taken, ElementsAre(5, 1, 5));
    list->Add(1).AddFirst(2).Add(3).FindAndRemoveOne(Is(3), item);
    EXPECT_EQ(list->Last(), 1) << "the last one went";
    EXPECT_THAT(Items(list->Add(4)), ElementsAre(2, 1, 4));
    list->Clear();
  }
}

TEST(LinkedListTest, AListIsItsOwnSource) {
  const TIntList list = TIntLists::MakeArray({1, 2});
  list->Append(list).Append(list->GetEnumerator()).Assign(list).AppendUnique(*list);
  EXPECT_THAT(Items(list), ElementsAre(1, 2, 1, 2, 1, 2, 1, 2));
  const int32_t& inside = list->GetNodes().Last()->Data;
  list->Add(inside, 2).RemoveAll(inside);  // the value goes with its node
  EXPECT_THAT(Items(list), ElementsAre(1, 1, 1, 1));
  EXPECT_EQ(Items(list->Assign({1, 2, 3}).RemoveAll(list)), TInts());
  EXPECT_EQ(list->Count(), 3) << "removal under an enumerator keeps the count";
}

TEST(LinkedListTest, RemovalUnderAnEnumeratorOnlyMarks) {
  const TIntList list = TIntLists::MakeArray({1, 2, 3, 4});
  auto walk = list->GetEnumerator();
  EXPECT_THROW(walk->Current(), ERangeError);
  int32_t item = 7;
  EXPECT_TRUE(list->FindAndRemoveOne(Is(2), item) && list->FindAndRemoveOne(2));
  EXPECT_EQ(item, 0) << "not handed out";
  list->FindAndRemoveOne(Is(3), [&](int32_t removed) { item = removed; });
  EXPECT_EQ(item, 3);
  EXPECT_TRUE(list->PopFirst() == 1 && list->PopFirst() == 1) << "the same item again";
  EXPECT_TRUE(walk->Size() == 4 && Items(*list) == TInts{4});
  walk = nullptr;
  EXPECT_TRUE(list->Count() == 4 && list->PopFirst() == 4) << "the purge counts nothing";
  walk = list->Add(6).Add(7).GetEnumerator();
  EXPECT_EQ(Items(list->Clear()), TInts{6}) << "the first one stays";
  walk = nullptr;
  list->PopFirst();
  EXPECT_EQ(list->Count(), -1);
}

TEST(LinkedListTest, LoopsAndPredicatesMayChangeTheirList) {
  const TIntList list = TIntLists::MakeArray({1, 2, 3, 4});
  TInts seen;
  for (int32_t item : list) {
    seen.push_back(item);
    if (item == 2) list->RemoveOne(1).RemoveOne(2).RemoveOne(3).AddFirst(0).Add(5);
  }
  EXPECT_THAT(seen, ElementsAre(1, 2, 4, 5));
  EXPECT_THAT(Items(list), ElementsAre(0, 4, 5));
  list->Query()->ForEach([&](int32_t item) { list->RemoveOne(item); });
  EXPECT_EQ(list->FindOrAdd([&](int32_t item) { return list->RemoveOne(item), false; }, 3), 3);
  EXPECT_EQ(Items(list), TInts{3});

  const auto meddle = [&](int32_t item) {
    if (item == 1) list->AddFirst(0).RemoveOne(2).RemoveOne(1);
    return item == 1 || item == 3;
  };
  list->Assign({1, 2, 3}).RemoveOne(meddle);
  EXPECT_THAT(Items(list), ElementsAre(0, 3));
  list->Assign({1, 2, 3}).RemoveAll(meddle);
  EXPECT_EQ(Items(list), TInts{0});
  EXPECT_EQ(list->Last(), 0);
}

TEST(LinkedListTest, WalksKeepTheListAlive) {
  using TList = TLinkedList<TCounted>;
  auto list = TList::MakeArray({1, 2});
  auto walk = list->GetEnumerator();
  list = nullptr;
  EXPECT_TRUE(walk->MoveNext() && walk->MoveNext() && walk->Current() == 2);
  walk = nullptr;

  list = TList::MakeArray({3, 4});
  int32_t sum = 0;
  for (const TCounted& item : list) list = nullptr, sum += item.Number();
  EXPECT_EQ(sum, 7);
  list = TList::MakeArray({5, 6, 5});
  list->RemoveAll([&](const TCounted& item) { return list = nullptr, item == 5; });
  EXPECT_EQ(TCounted::Live(), 0);

  auto at = TList::MakeArray({7})->begin();
  at = TList::MakeArray({8, 9})->begin();
  EXPECT_TRUE(*at == 8 && *++at == 9);
  EXPECT_EQ(TCounted::Live(), 2) << "the first list went";
}

TEST(LinkedListTest, WhatWasRemovedBeforeAFailureIsGone) {
  const TIntList list = TIntLists::MakeArray({1, 2, 3, 4});
  const auto failAt3 = [](int32_t item) { return item == 3 ? throw ERangeError(u"") : true; };
  EXPECT_THROW(list->RemoveAll(failAt3), ERangeError);
  EXPECT_THAT(Items(list->Add(5)), ElementsAre(3, 4, 5));
  EXPECT_EQ(list->Count(), 3);
}

TEST(LinkedListTest, AMillionNodesEndWithoutRecursion) {
  const auto list = TLinkedList<TCounted>::Make();
  list->Add(1, 1'000'000).RemoveAll([](auto&) { return true; });
  list->Add(1, 1'000'000).Clear().Add(2, 1'000'000);
  for ([[maybe_unused]] const TCounted& item : list) list->Clear();
  EXPECT_EQ(TCounted::Live(), 1);
}

struct TExposed : TIntLists {
  using TIntLists::EnumeratorDeleted;
};

TEST(LinkedListTest, AnEnumeratorThatNeverWasCannotEnd) {
  const auto list = Create<TExposed>();
  EXPECT_THROW(list->EnumeratorDeleted(), EIntOverflow);
  EXPECT_EQ(list->Add(1).PopFirst(), 1);
  EXPECT_EQ(list->Count(), 0);
}

/// The rules of marking, in their simplest form.
struct TModel {
  struct TItem {
    int32_t Value;
    bool IsDeleted = false;
  };
  using TAt = std::list<TItem>::iterator;

  std::list<TItem> Items;
  int32_t Count = 0;
  std::vector<TAt> Walks;  // at the end before the first item

  void Remove(TAt at) {
    if (!Walks.empty()) return void(at->IsDeleted = true);
    Items.erase(at);
    --Count;
  }
  void RemoveIf(auto&& accept) {
    for (TAt at = Items.begin(), next; at != Items.end(); at = next) {
      next = std::next(at);
      if (!at->IsDeleted && accept(*at)) Remove(at);
    }
  }
  bool MoveNext(TAt& walk) {
    for (TAt at = walk == Items.end() ? Items.begin() : std::next(walk); at != Items.end(); ++at) {
      walk = at;
      if (!at->IsDeleted) return true;
    }
    return false;
  }
};

TEST(LinkedListTest, FollowsTheModelWithSeveralWalks) {
  TALVO_SEEDED(random);
  TIntList list;
  std::vector<TRef<ISizeEnumerator<int32_t>>> walks;
  TModel model;
  int32_t value, item;
  size_t walk;
  const auto isValue = [&](const TModel::TItem& one) { return one.Value == value; };
  const std::function<void()> verbs[] = {
      [&] {
        list->Add(value, 3);
        model.Items.insert(model.Items.end(), 3, {value}), model.Count += 3;
      },
      [&] { list->AddFirst(value), model.Items.push_front({value}), ++model.Count; },
      [&] {
        ASSERT_EQ(list->IfPopFirst(item), !model.Items.empty());
        ASSERT_EQ(item, model.Items.empty() ? 0 : model.Items.front().Value);
        if (!model.Items.empty()) model.Remove(model.Items.begin());
      },
      [&] {
        const auto at = std::find_if(model.Items.begin(), model.Items.end(), isValue);
        ASSERT_EQ(list->FindAndRemoveOne(value), at != model.Items.end());
        if (at != model.Items.end()) model.Remove(at);
      },
      [&] {
        if (value > 1) return;
        list->RemoveAll([&](int32_t one) { return one <= value; });
        model.RemoveIf([&](const auto& one) { return one.Value <= value; });
      },
      [&] {
        if (value != 0) return;
        list->Clear();
        model.RemoveIf([&](auto& one) { return walks.empty() || &one != &model.Items.front(); });
        model.Count = 0;
      },
      [&] {
        if (walks.size() > 3) return;
        walks.push_back(list->GetEnumerator()), model.Walks.push_back(model.Items.end());
      },
      [&] {
        if (walks.empty()) return;
        walks[walk] = walks.back(), model.Walks[walk] = model.Walks.back();
        walks.pop_back(), model.Walks.pop_back();
        if (walks.empty()) model.Items.remove_if([](auto& one) { return one.IsDeleted; });
      },
      [&] {
        if (walks.empty()) return;
        if (value == 0) walks[walk]->Reset(), model.Walks[walk] = model.Items.end();
        auto& at = model.Walks[walk];
        ASSERT_EQ(walks[walk]->MoveNext(), model.MoveNext(at));
        ASSERT_TRUE(at == model.Items.end() || walks[walk]->Current() == at->Value);
      }};
  for (int round = 0; round < 200; ++round) {
    list = TIntLists::Make(), walks.clear(), model = {};
    for (int step = 0; step < 400; ++step) {
      value = static_cast<int32_t>(random() % 6), item = -1;
      walk = walks.empty() ? 0 : random() % walks.size();
      verbs[random() % std::size(verbs)]();
      TInts live;
      for (const auto& one : model.Items) {
        if (!one.IsDeleted) live.push_back(one.Value);
      }
      ASSERT_EQ(Items(list), live);
      ASSERT_EQ(list->Count(), model.Count);
      ASSERT_EQ(list->Last(), model.Items.empty() ? 0 : model.Items.back().Value);
    }
  }
}

}  // namespace
}  // namespace Talvo
