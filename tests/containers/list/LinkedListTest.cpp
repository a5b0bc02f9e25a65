// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/list/LinkedList.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <list>
#include <optional>
#include <random>
#include <vector>
#include <talvo/containers/list/ArrayList.h>
#include <talvo/runtime/Exceptions.h>

namespace Talvo {
namespace {

using TInts = std::vector<int32_t>;
using TIntList = TRef<ILinkedList<int32_t>>;
using TIntLists = TLinkedList<int32_t>;

TInts Items(const TIntList& list) {
  TInts items;
  for (int32_t item : list) items.push_back(item);
  return items;
}

auto Is(int32_t value) {
  return [value](int32_t item) { return item == value; };
}
bool IsOdd(int32_t item) {
  return item % 2 != 0;
}

/// Counts its instances, can fail to copy, and can run something as it ends.
class TCounted {
 public:
  struct ECopyFailed {};
  static inline int32_t GLive = 0;
  static inline int32_t GCopiesLeft = INT32_MAX;

  TCounted(int32_t value = 0, TProc<> onEnd = nullptr) : Value(value), FOnEnd(std::move(onEnd)) {
    ++GLive;
  }
  TCounted(const TCounted& other) : Value(other.Value), FOnEnd(other.FOnEnd) {
    if (--GCopiesLeft < 0) throw ECopyFailed();
    ++GLive;
  }
  TCounted& operator=(const TCounted& other) = default;
  ~TCounted() {
    --GLive;
    if (FOnEnd) FOnEnd();
  }
  bool operator==(const TCounted& other) const { return Value == other.Value; }

  int32_t Value;

 private:
  TProc<> FOnEnd;
};
using TCountedList = TRef<ILinkedList<TCounted>>;

TEST(LinkedListTest, VerbsAnswerTheListAndChain) {
  const TIntList list = TIntLists::Make();
  list->Add(1).Add(2, 3).AddFirst(0).AddUnique(2).AddUnique(9).Add(7, 0);
  EXPECT_EQ(Items(list), (TInts{0, 1, 2, 2, 2, 9}));
  EXPECT_EQ(list->Count(), 6);
  EXPECT_FALSE(list->IfAddUnique(9));
  list->RemoveOne(2).RemoveOne(IsOdd).RemoveAll(2).RemoveOne(77).RemoveAll({77, 0});
  EXPECT_EQ(Items(list), TInts{9});
  EXPECT_THROW(list->Add(1, -1), ERangeError);
  EXPECT_EQ(list->FindOrAdd(Is(9), 5), 9);
  EXPECT_EQ(list->FindOrAdd(Is(5), [] { return 5; }), 5);
  EXPECT_EQ(list->FindOrAdd(Is(6), 6), 6);
  EXPECT_TRUE(list->FindAndRemoveOne(9));
  EXPECT_FALSE(list->FindAndRemoveOne(9));
  EXPECT_EQ(Items(list->RemoveAll(IsOdd).Add(8)), (TInts{6, 8}));
  EXPECT_EQ(Items(list->Query()->Filter(Is(8))->Append(list)), (TInts{8, 6, 8}));
  EXPECT_EQ(list->Clear().Count(), 0);
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
  EXPECT_EQ(Items(jobs), (TInts{2, 3, 4}));
}

TEST(LinkedListTest, EndsOfFullAndEmptyLists) {
  const TIntList list = TIntLists::MakeArray({1, 2, 3, 4, 5, 6});
  TInts taken;
  const auto take = [&](int32_t item) { taken.push_back(item); };
  int32_t item = 0;
  list->ForLast(take).PopFirst(take).PopFirst(item);
  EXPECT_TRUE(item == 2 && list->PopFirst() == 3);
  EXPECT_TRUE(list->IfPopFirst(item) && list->IfPopFirst(take));
  EXPECT_TRUE(list->FindAndRemoveOne(Is(6), item) && item == 6);
  for (int32_t round = 0; round < 2; ++round) {  // one that ran empty, then one that was cleared
    EXPECT_TRUE((item = 7, !list->Last(item)) && item == 0);
    EXPECT_TRUE((item = 7, !list->IfPopFirst(item)) && item == 0);
    EXPECT_TRUE((item = 7, !list->FindAndRemoveOne(Is(1), item)) && item == 0);
    list->ForLast(take).PopFirst(take).FindAndRemoveOne(Is(1), take);
    EXPECT_EQ(taken, (TInts{6, 1, 5}));
    list->Add(1).AddFirst(2).Add(3).FindAndRemoveOne(Is(3), item);
    EXPECT_EQ(list->Last(), 1) << "the last one went";
    EXPECT_EQ(Items(list->Add(4)), (TInts{2, 1, 4}));
    list->Clear();
  }
}

TEST(LinkedListTest, SequencesOfAnyKindAreTaken) {
  const TInts source{1, 2, 3};
  const TIntList list = TIntLists::MakePointer(source.data(), 2);
  const auto array = TArrayList<int32_t>::MakeArray(source);
  list->Append(array->GetEnumerator()).RemoveAll(source.data(), 1).AppendUnique({3, 4});
  EXPECT_EQ(Items(list), (TInts{2, 1, 2, 3, 4}));
  list->RemoveAll(array).Append(array->ToArray()).AppendUnique(source);
  EXPECT_EQ(Items(list), (TInts{2, 4, 1, 2, 3}));
  EXPECT_EQ(Items(TIntLists::MakeCopy(list->Assign(source))), source);
  EXPECT_EQ(Items(TIntLists::MakeEnumerable(As<IEnumerable<int32_t>>(array))), source);
  EXPECT_EQ(Items(TIntLists::MakeEnumerator(array->GetReverseEnumerator())), (TInts{3, 2, 1}));
}

TEST(LinkedListTest, NullArgumentsAreAssertionFailures) {
  const TIntList list = TIntLists::MakeArray({1}), none;
  const TConstFunc<int32_t, bool> noTest;
  int32_t item = 7;
  EXPECT_THROW(list->Append(none), EAssertionFailed);
  EXPECT_THROW(TIntLists::MakeEnumerable(none), EAssertionFailed);
  EXPECT_THROW(list->RemoveAll(noTest), EAssertionFailed);
  EXPECT_THROW(list->FindAndRemoveOne(noTest, item), EAssertionFailed);
  EXPECT_TRUE(Items(list) == TInts{1} && item == 0);
}

TEST(LinkedListTest, AListIsItsOwnSource) {
  const TIntList list = TIntLists::MakeArray({1, 2});
  list->Append(list).Append(list->GetEnumerator()).Assign(list).AppendUnique(*list);
  EXPECT_EQ(Items(list), (TInts{1, 2, 1, 2, 1, 2, 1, 2}));
  const int32_t& inside = list->GetNodes().Last()->Data;
  list->Add(inside, 2).RemoveAll(inside);  // the value goes with its node
  EXPECT_EQ(Items(list), (TInts{1, 1, 1, 1}));
  EXPECT_EQ(Items(list->Assign({1, 2, 3}).RemoveAll(list)), TInts());
  EXPECT_EQ(list->Count(), 3) << "removal under an enumerator keeps the count";
}

TEST(LinkedListTest, RemovalUnderAnEnumeratorOnlyMarks) {
  const TIntList list = TIntLists::MakeArray({1, 2, 3, 4});
  auto walk = list->GetEnumerator();
  EXPECT_EQ(walk->Size(), 4);
  EXPECT_THROW(walk->Current(), ERangeError);
  int32_t item = 7;
  EXPECT_TRUE(list->FindAndRemoveOne(Is(2), item) && list->FindAndRemoveOne(2));
  EXPECT_EQ(item, 0) << "not handed out";
  list->FindAndRemoveOne(Is(3), [&](int32_t removed) { item = removed; });
  EXPECT_EQ(item, 3);
  EXPECT_TRUE(list->PopFirst() == 1 && list->PopFirst() == 1) << "the same item again";
  EXPECT_EQ(Items(list->RemoveAll(4).Add(5)), TInts{5});
  EXPECT_EQ(walk->Size(), 5);
  walk = nullptr;
  EXPECT_EQ(list->Count(), 5) << "five were added, and the purge counts nothing";
  EXPECT_EQ(Items(list), TInts{5});

  walk = list->Add(6).Add(7).GetEnumerator();
  EXPECT_EQ(Items(list->Clear()), TInts{5}) << "the first one stays";
  EXPECT_EQ(list->Count(), 0);
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
  EXPECT_EQ(seen, (TInts{1, 2, 4, 5}));
  EXPECT_EQ(Items(list), (TInts{0, 4, 5}));
  list->Query()->ForEach([&](int32_t item) { list->RemoveOne(item); });
  EXPECT_EQ(list->FindOrAdd([&](int32_t item) { return list->RemoveOne(item), false; }, 3), 3);
  EXPECT_EQ(Items(list), TInts{3});

  const auto meddle = [&](int32_t item) {
    if (item == 1) list->AddFirst(0).RemoveOne(2).RemoveOne(1);
    return item == 1 || item == 3;
  };
  list->Assign({1, 2, 3}).RemoveOne(meddle);
  EXPECT_EQ(Items(list), (TInts{0, 3}));
  list->Assign({1, 2, 3}).RemoveAll(meddle);
  EXPECT_EQ(Items(list), TInts{0});
  EXPECT_EQ(list->Last(), 0);
}

TEST(LinkedListTest, WalksKeepTheListAlive) {
  TCountedList list = TLinkedList<TCounted>::MakeArray({1, 2});
  auto walk = list->GetEnumerator();
  list = nullptr;
  EXPECT_TRUE(walk->MoveNext() && walk->MoveNext() && walk->Current().Value == 2);
  walk = nullptr;

  list = TLinkedList<TCounted>::MakeArray({3, 4});
  int32_t sum = 0;
  for (const TCounted& item : list) list = nullptr, sum += item.Value;
  EXPECT_EQ(sum, 7);
  list = TLinkedList<TCounted>::MakeArray({5, 6, 5});
  list->RemoveAll([&](const TCounted& item) { return list = nullptr, item.Value == 5; });
  EXPECT_EQ(TCounted::GLive, 0);
}

TEST(LinkedListTest, ItemsMayComeBackAsTheyEnd) {
  TCountedList list;
  ILinkedList<TCounted>* target = nullptr;  // also while it ends
  int32_t ended = 0;
  const TProc<> meddle = [&] {
    if (++ended > 8) return;
    target->Add(TCounted(100)).RemoveOne(TCounted(2)).PopFirst();
    for (const TCounted& item : *target) target->FindAndRemoveOne(item);
  };
  const TProc<> removals[] = {
      [&] { list->Clear(); }, [&] { list->RemoveAll([](const TCounted&) { return true; }); },
      [&] { list->PopFirst(); }, [&] { list->Assign({TCounted(5)}); }, [] {}};
  for (const TProc<>& remove : removals) {
    list = TLinkedList<TCounted>::Make();
    target = list.Get();
    ended = 100;
    for (int32_t i = 0; i < 4; ++i) list->Add(TCounted(i, meddle));
    ended = 0;
    remove();
    list = nullptr;
    EXPECT_EQ(TCounted::GLive, 0);
  }
}

TEST(LinkedListTest, FailuresLeaveASoundList) {
  const std::vector<TCounted> source{4, 5};
  const TConstProc<TCountedList> verbs[] = {
      [](auto& list) { list->Add(4, 3).AddFirst(0); },
      [&](auto& list) { list->Append(source).Append(list); },
      [&](auto& list) { list->Assign(source); },
      [](auto& list) { list->PopFirst(); },
      [](auto& list) { list->FindOrAdd([](auto& item) { return item.Value == 3; }, 3); },
      [](auto& list) { list->FindAndRemoveOne([](auto&) { return true; }, [](auto&) {}); }};
  for (const auto& verb : verbs) {
    bool hasFailed = true;
    for (int32_t copies = 0; hasFailed; ++copies) {  // until there are enough
      const TCountedList list = TLinkedList<TCounted>::MakeArray({1, 2});
      TCounted::GCopiesLeft = copies;
      try {
        verb(list);
        hasFailed = false;
      } catch (const TCounted::ECopyFailed&) {
        EXPECT_EQ(list->Count(), TCounted::GLive - static_cast<int32_t>(source.size()));
      }
      TCounted::GCopiesLeft = INT32_MAX;
    }
  }
  EXPECT_EQ(TCounted::GLive, 2) << "those of the source";
  const TIntList list = TIntLists::MakeArray({1, 2, 3, 4});
  const auto failAt3 = [](int32_t item) { return item == 3 ? throw ERangeError(u"") : true; };
  EXPECT_THROW(list->RemoveAll(failAt3), ERangeError);
  EXPECT_EQ(Items(list->Add(5)), (TInts{3, 4, 5})) << "what was done stands";
  EXPECT_EQ(list->Count(), 3);
}

TEST(LinkedListTest, AMillionNodesEndWithoutRecursion) {
  const TCountedList list = TLinkedList<TCounted>::Make();
  list->Add(1, 1'000'000).RemoveAll([](auto&) { return true; });
  list->Add(1, 1'000'000).Clear().Add(2, 1'000'000);
  for ([[maybe_unused]] const TCounted& item : list) list->Clear();
  EXPECT_EQ(TCounted::GLive, 1);
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

TEST(LinkedListTest, CrossesAsTaggedValues) {
  const auto list = As<IList>(TIntLists::MakeArray({0, 1}));
  list->AddValue(TValue::From(int64_t{2}));
  EXPECT_THROW(list->AddValue(TValue::From(string(u"x"))), EInvalidCast);
  EXPECT_EQ(list->GetNewValue().AsType<int32_t>(), 0);
  const auto walk = list->GetValueEnumerator();
  EXPECT_EQ(walk->Size(), 3);
  for (int32_t i = 0; walk->MoveNext(); ++i) EXPECT_EQ(walk->Current().AsType<int32_t>(), i);
  list->ClearValues();
  EXPECT_EQ(As<ILinkedList<int32_t>>(list)->Count(), 0);
}

TEST(LinkedListTest, FunctionsAreFoundByIdentity) {
  int32_t calls = 0;
  const TProc<> first = [&] { ++calls; }, second = [&] { calls += 10; };
  const auto procs = TInterfaceLinkedList<TProc<>>::Make();
  procs->Add(first).Add(second).Add(nullptr).Add(first).AddUnique(second);
  procs->RemoveOne(first).RemoveOne(TProc<>([] {})).RemoveOne(nullptr);
  for (const TProc<>& proc : procs) proc();
  EXPECT_EQ(calls, 11);
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
  std::vector<std::optional<TAt>> Walks;  // none before the first item

  void Remove(TAt at) {
    if (Walks.empty()) return Items.erase(at), static_cast<void>(--Count);
    at->IsDeleted = true;
  }
  void RemoveIf(auto&& accept) {
    for (TAt at = Items.begin(), next; at != Items.end(); at = next) {
      next = std::next(at);
      if (!at->IsDeleted && accept(at)) Remove(at);
    }
  }
  void EndWalk(size_t index) {
    Walks.erase(Walks.begin() + static_cast<ptrdiff_t>(index));
    if (Walks.empty()) Items.remove_if([](const TItem& item) { return item.IsDeleted; });
  }
  bool MoveNext(std::optional<TAt>& position) {
    for (TAt at = position ? std::next(*position) : Items.begin(); at != Items.end(); ++at) {
      position = at;
      if (!at->IsDeleted) return true;
    }
    return false;
  }
};

void RunAgainstModel(uint32_t seed) {
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  const TIntList list = TIntLists::Make();
  std::vector<TRef<ISizeEnumerator<int32_t>>> walks;
  TModel model;
  for (int32_t step = 0; step < 400; ++step) {
    const auto value = static_cast<int32_t>(random() % 6);
    const uint32_t kind = random() % 16;
    if (kind < 3) {
      list->Add(value, 2);
      model.Items.insert(model.Items.end(), 2, {value});
      model.Count += 2;
    } else if (kind == 3) {
      list->AddFirst(value);
      model.Items.push_front({value});
      ++model.Count;
    } else if (kind == 4) {
      int32_t item = -1;
      ASSERT_EQ(list->IfPopFirst(item), !model.Items.empty());
      ASSERT_EQ(item, model.Items.empty() ? 0 : model.Items.front().Value);
      if (!model.Items.empty()) model.Remove(model.Items.begin());
    } else if (kind < 7) {
      const auto at = std::find_if(model.Items.begin(), model.Items.end(),
                                   [&](auto& item) { return item.Value == value; });
      ASSERT_EQ(list->FindAndRemoveOne(value), at != model.Items.end());
      if (at != model.Items.end()) model.Remove(at);
    } else if (kind == 7) {
      list->RemoveAll([&](int32_t item) { return item <= value / 2; });
      model.RemoveIf([&](auto at) { return at->Value <= value / 2; });
    } else if (kind == 8 && value == 0) {
      list->Clear();
      model.RemoveIf([&](auto at) { return walks.empty() || at != model.Items.begin(); });
      model.Count = 0;
    } else if (kind < 11 && walks.size() < 4) {
      walks.push_back(list->GetEnumerator());
      model.Walks.emplace_back();
    } else if (!walks.empty()) {
      const size_t walk = random() % walks.size();
      if (kind == 11) {
        walks.erase(walks.begin() + static_cast<ptrdiff_t>(walk));
        model.EndWalk(walk);
      } else if (kind == 12) {
        walks[walk]->Reset();
        model.Walks[walk].reset();
      } else {
        ASSERT_EQ(walks[walk]->MoveNext(), model.MoveNext(model.Walks[walk]));
        ASSERT_TRUE(!model.Walks[walk] || walks[walk]->Current() == (*model.Walks[walk])->Value);
      }
    }
    TInts live;
    for (const auto& item : model.Items) {
      if (!item.IsDeleted) live.push_back(item.Value);
    }
    ASSERT_EQ(Items(list), live) << "step " << step;
    ASSERT_EQ(list->Count(), model.Count) << "step " << step;
    ASSERT_EQ(list->Last(), model.Items.empty() ? 0 : model.Items.back().Value);
  }
}

TEST(LinkedListTest, FollowsTheModelWithSeveralWalks) {
  const uint32_t seed = std::random_device()();
  for (uint32_t round = 0; round < 200 && !HasFailure(); ++round) RunAgainstModel(seed + round);
}

}  // namespace
}  // namespace Talvo
