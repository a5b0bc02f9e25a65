// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/Talvo.Containers.List.h>

#include <tests/containers/Sources.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <ranges>

namespace Talvo {
namespace {

using TList = IArrayList<int32_t>;

bool IsOdd(int32_t n) {
  return n % 2 != 0;
}

// --- A model of the list: a vector and the capacity rules -----------------------------------

template <class T>
class ArrayListModelTest : public testing::Test {};
using TElements = testing::Types<int32_t, bool, string, TCounted, TCopied>;
TYPED_TEST_SUITE(ArrayListModelTest, TElements);

TYPED_TEST(ArrayListModelTest, BehavesAsItsModel) {
  TALVO_SEEDED(engine);
  using T = TypeParam;
  const auto below = [&](int limit) { return static_cast<int>(engine() % limit); };
  const auto list = TArrayList<T>::Create();
  std::vector<T> model, items;
  int32_t capacity = 0;
  int size, index, count;
  T item;
  const auto grow = [&](bool isFull) {
    const int32_t wanted = static_cast<int32_t>(model.size()) + 1;
    if (isFull) capacity = wanted < 65 ? 64 : wanted * 3 / 2 + 64;
  };
  const auto hold = [&] { capacity = std::max(capacity, static_cast<int32_t>(model.size())); };
  const auto add = [&](const T& one, int number) {
    model.insert(model.end(), number, one);
    grow(number > 0 && capacity <= static_cast<int32_t>(model.size()));
  };
  const auto append = [&] { model.insert(model.end(), items.begin(), items.end()), hold(); };
  const auto assign = [&] { model = items, hold(); };
  const auto erase = [&](int at, int number) {
    if (at < 0 || at >= size) return;
    number = std::min(number, size - at);
    model.erase(model.begin() + at, model.begin() + at + number);
    capacity -= number;
  };
  const auto isItem = [&](const T& one) { return one == item; };
  const auto removeAll = [&] { capacity -= static_cast<int32_t>(std::erase(model, item)); };
  const auto insert = [&](const auto& source) {  // at `index`, which is not below 0
    if (size > 0) list->Insert(index, source);
    if (index >= size) return size > 0 ? append() : void();
    model.insert(model.begin() + index, items.begin(), items.end());
    capacity += static_cast<int32_t>(items.size());
  };
  const auto verbs = std::to_array<std::function<void()>>(
      {[&] { list->Add(item, count), add(item, count); },
       [&] { list->ProcedureAdd(item), grow(capacity <= size), model.push_back(item); },
       [&] { list->SetCount(size / 2 + count), model.resize(size / 2 + count), hold(); },
       [&] { list->SetCapacity(index, false), capacity = std::max(size, index); },
       [&] {
         list->SetCapacity(index, true), model.resize(std::min(size, index)), capacity = index;
       },
       [&] {
         list->Insert(index, item, count);
         if (index >= size) return add(item, count);
         model.insert(model.begin() + index, count, item), capacity += count;
       },
       [&] { insert(SizedWalk(items)); },
       [&] { insert(UnsizedWalk(items)); },
       [&] { list->AddFront(item), model.insert(model.begin(), item), ++capacity; },
       [&] { list->Append(SizedWalk(items)), append(); },
       [&] { list->Append(UnsizedWalk(items)), append(); },
       [&] { list->Assign(SizedWalk(items)), assign(); },
       [&] { items.resize(size + count, item), list->Assign(UnsizedWalk(items)), assign(); },
       [&] { list->Delete(index - 1, count), erase(index - 1, count); },
       [&] { list->ExtractLast(TItemCount{count}), erase(std::max(size - count, 0), count); },
       [&] { list->ExtractFirst(item), erase(0, 1); },
       [&] { list->RemoveAll(item), removeAll(); },
       [&] { list->RemoveAll(isItem), removeAll(); },
       [&] { list->RemoveAll(isItem, [](const T&) {}), removeAll(); },
       [&] {
         list->Move(index, count);
         if (index >= size || count >= size) return;
         const auto from = model.begin() + index, to = model.begin() + count;
         index < count ? std::rotate(from, from + 1, to + 1) : std::rotate(to, from, from + 1);
       },
       [&] { list->Reverse(), std::reverse(model.begin(), model.end()); },
       [&] { list->Sort(), std::sort(model.begin(), model.end()); },
       [&] { size > 200 ? (list->Clear(), model.clear(), capacity = 0) : 0; }});
  for (int step = 0; step < 3000; ++step) {
    size = static_cast<int>(model.size()), index = below(size + 3), count = below(4);
    if constexpr (std::is_same_v<T, string>) {
      item = string(below(4) * 9, u'a');
    } else {
      item = T(below(4));
    }
    items.assign(below(40) ? count : 130, item);
    const int verb = below(std::size(verbs));
    SCOPED_TRACE(testing::Message() << "step " << step << " verb " << verb);
    verbs[verb]();
    ASSERT_EQ(static_cast<int32_t>(model.size()), list->Count());
    ASSERT_EQ(capacity, list->GetArraySize());
    ASSERT_TRUE(std::equal(model.begin(), model.end(), list->begin(), list->end()));
    const TArray<T>& slots = *list->GetArray();
    for (int32_t i = list->Count(); i < slots.Length(); ++i) ASSERT_TRUE(slots[i] == T()) << i;
  }
}

// --- Single verbs --------------------------------------------------------------------------

TEST(ArrayListTest, AddKeepsASpareSlotAndProcedureAddDoesNot) {
  const auto added = TArrayList<int32_t>::Create(), filled = TArrayList<int32_t>::Create();
  for (int i = 0; i < 64; ++i) added->Add(1), filled->ProcedureAdd(1);
  EXPECT_TRUE(added->GetArraySize() == 161 && filled->GetArraySize() == 64);
  EXPECT_THROW(filled->FastUnsafeProcedureAdd(1), ERangeError);
  filled->IncreaseCapacity();
  EXPECT_EQ(161, filled->GetArraySize());
  filled->Clear().SetCapacity(7, false).Clear();
  EXPECT_EQ(7, filled->GetArraySize()) << "an empty list keeps its capacity";
}

TEST(ArrayListTest, IndexesAndCountsAreChecked) {
  const auto list = TArrayList<int32_t>::MakeArray({1, 2, 3});
  EXPECT_EQ("ERangeError: Index out of range = 4294967295", Raised([&] { list->SetItem(-1, 1); }));
  EXPECT_EQ("ERangeError: Index out of range = 3", Raised([&] { (void)list[3]; }));
  for (const int32_t index : {-1, 3}) {
    EXPECT_THROW(list->Swap(index, 0), ERangeError);
    list->Delete(index).Delete(index, 2).Move(index, 0).Move(0, index);
  }
  for (const TProc<>& wrong : std::initializer_list<TProc<>>{
           [&] { list->Add(1, -1); }, [&] { list->Insert(0, 1, -1); }, [&] { list->Insert(-1, 1); },
           [&] { list->Insert(-1, {1}); }, [&] { list->SetCount(-1); },
           [&] { list->Delete(0, -1); }, [&] { list->SetCapacity(-1, true); }}) {
    EXPECT_THROW(wrong(), ERangeError);
  }
  EXPECT_THROW(list->Add(1, INT32_MAX), EIntOverflow);
  list->Add(9, 0).Insert(0, 9, 0).Delete(0, 0);
  EXPECT_THAT(Items(list), ElementsAre(1, 2, 3));
  list->SetCapacity(5, false).Swap(0, 4);
  EXPECT_THAT(Items(list), ElementsAre(0, 2, 3)) << "a spare slot can be swapped in";
}

TEST(ArrayListTest, ToArraySharesFullStorage) {
  const auto list = TArrayList<int32_t>::MakeArray({1, 2, 3});
  const TArray<int32_t> shared = list->ToArray();
  list->SetItem(0, 9);
  EXPECT_EQ(9, shared[0]);
  list->RemoveAll([](int32_t n) { return n == 9; }).Insert(0, 5).Delete(1);
  EXPECT_TRUE(shared[0] == 9 && shared[1] == 2 && shared.Length() == 3) << "its length is its own";
  list->SetCapacity(9, false);
  EXPECT_EQ(2, list->ToArray().Length());
}

TEST(ArrayListTest, AnswersIndexesAndTellsWhatItRemoved) {
  const auto list = TArrayList<int32_t>::MakeArray({1, 2, 3, 2});
  EXPECT_TRUE(list->AddUniqueIndex(2) == 1 && list->AddUniqueIndex(4) == 4);
  EXPECT_EQ(64, As<IArrayListState<int32_t>>(list)->GetArraySize()) << "it adds as Add does";
  EXPECT_TRUE(list->RemoveOne(2) == 1 && list->RemoveOne(9) == -1);
  EXPECT_TRUE(list->IfRemoveOne(IsOdd) && !list->IfRemoveOne([](int32_t n) { return n > 4; }));
  std::vector<int32_t> seen;
  list->RemoveAll([](int32_t n) { return n > 2; },
                  [&](int32_t item) { seen.push_back(item * 10 + list->Count()); });
  EXPECT_THAT(seen, ElementsAre(42, 31)) << "the last matching item first";
  EXPECT_EQ(0, list->ExtractFirst(TItemCount{-1})->Count());
  EXPECT_EQ(2, TArrayList<string>::MakeSize(2)->ExtractLast(uint64_t{1} << 40)->Count());
}

TEST(ArrayListTest, AssignFromAShorterWalkFailsAndLeavesTheListSafe) {
  using L = TList&;
  int32_t item = 0;
  const auto walk = [](auto walk) {
    while (walk->MoveNext()) walk->Current();
  };
  const auto raising = std::to_array<TProc<L>>(
      {[](L l) { (void)l[4]; }, [](L l) { l.ToArray(); }, [](L l) { l.Query()->Contains(1); },
       [](L l) { l.Query()->Skip(0); }, [](L l) { l.Query()->Filter(IsOdd); },
       [](L l) { l.AddUnique(1); }, [](L l) { l.Reverse(); }, [](L l) { l.Swap(0, 4); },
       [](L l) { l.Move(0, 4); }, [](L l) { l.Append({1}); }, [](L l) { l.Delete(3); },
       [](L l) { l.Insert(3, 1); }, [&](L l) { l.ExtractLast(item); }, [](L l) { l.SetCount(0); },
       [](L l) { l.ExtractLast(TItemCount{2}); }, [&](L l) { walk(l.GetEnumerator()); },
       [&](L l) { walk(l.GetReverseEnumerator()); }});
  const auto safe = std::to_array<TProc<L>>(
      {[](L l) { l.Sort(); }, [](L l) { l.RemoveAll(1); }, [](L l) { l.Add(1); },
       [](L l) { l.AddFront(1); }, [](L l) { l.Query()->IsEmpty(); },
       [](L l) { l.SetCapacity(0, false); }, [](L l) { l.Clear(); }});
  for (const int yields : {0, 2}) {
    const auto broken = [&] {
      const auto list = TArrayList<int32_t>::CreateArray({1, 2, 3, 4, 5});
      EXPECT_THROW(list->Assign(UnsizedWalk(std::vector<int32_t>(yields, 9))), ERangeError);
      EXPECT_TRUE(list->GetArraySize() == yields && list->Count() == 5);
      return list;
    };
    for (const auto& verb : raising) EXPECT_THROW(verb(*broken()), ERangeError);
    for (const auto& verb : safe) verb(*broken());
    EXPECT_EQ(yields, std::ranges::distance(*broken()));
    EXPECT_EQ(0, broken()->SetCapacity(0, false)[4]);
  }
}

TEST(ArrayListTest, FunctionsMayChangeTheList) {
  const auto list = TArrayList<string>::Make();
  const string text = u"a text that needs memory of its own";
  const auto clears = [&](const string&) { return list->Clear(), true; };
  const auto grows = [&](const string& item) { return list->Add(item, 300), true; };
  string out;
  const auto refill = [&]() -> IArrayList<string>& { return list->Clear().Add(text, 5); };
  EXPECT_THROW(refill().FindAndRemoveOne(clears, out), ERangeError);
  EXPECT_TRUE(refill().FindAndRemoveOne(grows, out) && out == text);
  EXPECT_THROW(refill().RemoveAll(clears), ERangeError);
  refill().RemoveAll(grows);
  refill().RemoveAll([](const auto&) { return true; }, [&](const auto& item) { list->Add(item); });
  EXPECT_EQ(5, list->Count()) << "what the action adds is not asked about";
  EXPECT_EQ(text, refill().FindOrAdd(grows, u""));
  int left = 3;
  EXPECT_THROW(refill().RemoveAll([&](const auto&) { return --left > 0 ? true : throw 1; }), int);
  EXPECT_EQ(3, list->Count()) << "what was accepted before the failure is gone";
}

// --- As others see it ----------------------------------------------------------------------

TEST(ArrayListTest, IsARange) {
  const auto list = TArrayList<int32_t>::MakeArray({3, 1, 2});
  std::ranges::sort(list);
  std::ranges::reverse(*list);
  EXPECT_THAT(Items(list), ElementsAre(3, 2, 1));
  std::vector<uint32_t> places;
  for (const auto& [index, item] : list->GetIndexed()) places.push_back(index * 10 + item);
  for (const auto& [index, item] : list->GetIndexedReverse()) places.push_back(index * 10 + item);
  for (const int32_t item : list->GetReverse()) places.push_back(item);
  EXPECT_THAT(places, ElementsAre(3, 12, 21, 21, 12, 3, 1, 2, 3));
  static_assert(std::ranges::contiguous_range<TList> && std::ranges::contiguous_range<TRef<TList>>);
  static_assert(std::ranges::input_range<ISizeEnumeratorHost<int32_t>>);
}

TEST(ArrayListTest, AnswersItsInterfaces) {
  const TRef<IInterface> list = TArrayList<int32_t>::MakeArray({1, 2});
  EXPECT_TRUE(Supports<IEnumerable<>>(list) && Supports<IEnumerable<int32_t>>(list) &&
              Supports<IIndexedEnumerable<int32_t>>(list) &&
              As<IArrayListState<int32_t>>(list)->GetArraySizeMatches());
}

/// A list that builds its items when they are first needed.
class TLazyList : public TArrayListIntf<int32_t, TList> {
 public:
  bool ArrayIsPopulated() const override { return FIsPopulated; }
  int32_t GetCount() const override { return 3; }
  const int32_t& GetItem(int32_t index) const override { return Items[index]; }
  static constexpr int32_t Items[] = {7, 8, 9};

 protected:
  void Populate() override {
    FIsPopulated = true;
    for (const int32_t item : Items) ProcedureAdd(item);
  }

 private:
  bool FIsPopulated = false;
};

TEST(ArrayListTest, ListsOnDemandAreReadByFunctionsUntilTheyAreFilled) {
  const TRef<TList> list = Create<TLazyList>();
  EXPECT_EQ(9, list->Query(/*isReverse*/ true)->First()) << "seen backward";
  EXPECT_TRUE(list->Query()->Equals({7, 8, 9}) && *list->GetReverse()->begin() == 9);
  EXPECT_TRUE(list->GetIndexed()->begin()->Item == 7 &&
              list->GetIndexedReverse()->begin()->Item == 9);
  EXPECT_FALSE(As<IArrayListState<int32_t>>(list)->ArrayIsPopulated());
  EXPECT_THAT(Items(list), ElementsAre(7, 8, 9));
  EXPECT_TRUE(As<IArrayListState<int32_t>>(list)->ArrayIsPopulated());
  EXPECT_EQ(7, list->Query(/*isReverse*/ true)->First());
}

class TAbstractList : public TBasicArrayListIntf<int32_t, TList> {};

TEST(ArrayListTest, AbstractVerbsRaise) {
  const TRef<TList> list = Create<TAbstractList>();
  EXPECT_THROW(list->Add(2).Add(1).Sort(), EAbstractError);
  EXPECT_THROW(list->RemoveOne(1), EAbstractError);
  EXPECT_THROW(list->Query()->Skip(0), EAbstractError);
  EXPECT_EQ(1, list->Sort([](int32_t l, int32_t r) { return l - r; })[0]);
}

// A value that only its own swap can exchange rightly.
struct TSwapped {
  int Number = 0;
  int Swaps = 0;
  friend void swap(TSwapped& left, TSwapped& right) {
    std::swap(left.Number, right.Number);
    ++left.Swaps;
    ++right.Swaps;
  }
};

TEST(ArrayListTest, ItemsAreExchangedByTheirOwnSwap) {
  const auto list = TArrayList<TSwapped>::MakeArray({{1}, {2}, {3}});
  list->Swap(0, 1).Reverse();
  EXPECT_EQ(3, list[0].Number);
  EXPECT_EQ(1, list[1].Number);
  EXPECT_EQ(2, list[2].Number);
  EXPECT_EQ(4, list[0].Swaps + list[1].Swaps + list[2].Swaps);
}

TEST(ArrayListTest, AnItemMayEndTheList) {
  using L = IArrayList<TRef<IWatched>>;
  const auto any = [](const TRef<IWatched>&) { return true; };
  const TProc<L&> verbs[] = {
      [](L& list) { list.Clear(); },
      [](L& list) { list.Delete(1); },
      [](L& list) { list.SetCount(1); },
      [](L& list) { list.SetCapacity(1, /*allowsTruncation*/ true); },
      [](L& list) { list.SetItem(1, nullptr); },
      [](L& list) { list.Assign({}); },
      [](L& list) { list.Assign(SizedWalk(std::vector<TRef<IWatched>>(1))); },
      [](L& list) { list.Assign(UnsizedWalk(std::vector<TRef<IWatched>>(2))); },
      [=](L& list) { list.RemoveAll(any); },
      [=](L& list) { list.RemoveAll(any, [](const auto&) {}); },
      [](L& list) { list.RemoveAll(list[1]); },
      [](L& list) { list.RemoveOne(list[1]); }};
  for (const TProc<L&>& verb : verbs) {
    auto owner = std::make_shared<TRef<L>>(TArrayList<TRef<IWatched>>::MakeArray({nullptr}));
    const auto dropList = [owner] { *owner = nullptr; };
    L& list = **owner;
    list.Add(Create<TWatched>(1, dropList));
    owner = nullptr;
    verb(list);
    EXPECT_EQ(0, TWatched::Live);
  }
}

}  // namespace
}  // namespace Talvo
