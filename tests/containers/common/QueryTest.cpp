// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/common/Query.h>

#include <tests/containers/Sources.h>

namespace Talvo {
namespace {

using TList = IArrayList<int32_t>;
using TListQuery = TRef<IContainerQuery<TList, TList, int32_t>>;

bool IsOdd(int32_t n) {
  return n % 2 != 0;
}
const TConstFunc<int32_t, bool> NoPredicate;
const TConstProc<int32_t> NoAction;

/// The verbs over a list's storage, and over an enumerator of the same list.
class QueryTest : public testing::TestWithParam<bool> {
 protected:
  TListQuery Query() { return QueryOf(List); }
  static TListQuery QueryOf(const TRef<TList>& list) {
    if (GetParam()) return list->Query();
    return Create<TContainerQuery<TList, TList, int32_t>>(
        [list] { return list->GetEnumerator(); }, [] { return TArrayList<int32_t>::Make(); },
        [](const TRef<TList>& result, int32_t item) { result->Add(item); }, list);
  }
  TRef<TList> List = TArrayList<int32_t>::MakeArray({3, 4, 5, 4});
  TRef<TList> Empty = TArrayList<int32_t>::Make();
};
INSTANTIATE_TEST_SUITE_P(Sources, QueryTest, testing::Bool(), [](const auto& source) {
  return std::string(source.param ? "Array" : "Enumerator");
});

TEST_P(QueryTest, EqualsTakesAnySequence) {
  const auto query = Query();
  const std::vector<int32_t> same{3, 4, 5, 4};
  EXPECT_TRUE(query->Equals({3, 4, 5, 4}) && query->Equals(same, nullptr) &&
              query->Equals(same, TConstFunc<int32_t, int32_t, bool>()));
  ForEverySource(same, [&](auto&& source) { EXPECT_TRUE(query->Equals(source)); });
  for (const std::vector<int32_t>& other :
       {std::vector<int32_t>{}, {3, 4, 5}, {3, 4, 5, 4, 0}, {3, 4, 6, 4}}) {
    EXPECT_FALSE(query->Equals(other) || query->Equals(UnsizedWalk(other)));
  }
  EXPECT_TRUE(query->Equals({6, 8, 10, 8}, [](int32_t l, int32_t r) { return r == 2 * l; }))
      << "the source's item stands left";
  EXPECT_TRUE(QueryOf(Empty)->Equals(Empty));
  EXPECT_THROW(query->Equals(TArray<int32_t>()), ERangeError);
  EXPECT_THROW(query->Equals(TRef<TList>()), EAssertionFailed);
}

TEST_P(QueryTest, EqualsFreesAnEnumeratorOnlyAtTheEndOfTheSource) {
  const TRef<TList> counted = TArrayList<int32_t>::MakeArray({0, 1, 2});
  for (const auto& [count, isEqual, isFreed] :
       {std::tuple(3, true, true), {4, false, true}, {2, false, false}}) {
    TOwn<TOwnedWalk<int32_t>> other = Create<TOwnedWalk<int32_t>>(Sequence<int32_t>(count));
    EXPECT_EQ(isEqual, QueryOf(counted)->Equals(other)) << count;
    EXPECT_EQ(isFreed, !other) << count;
  }
  EXPECT_EQ(0, TOwnedWalk<int32_t>::Live);
}

TEST_P(QueryTest, Searches) {
  const auto query = Query(), empty = QueryOf(Empty);
  const auto isHuge = [](int32_t n) { return n > 9; };
  const auto fail = [](int32_t) { FAIL(); };
  int32_t found = 7, index = 7;
  const auto note = [&](int32_t number) { index = number; };
  EXPECT_TRUE(query->Contains(5) && query->Contains(IsOdd) && !query->Contains(9));
  EXPECT_TRUE(query->Contains([calls = 0](int32_t) mutable { return ++calls == 4; }));
  EXPECT_TRUE(query->CountOf(4) == 2 && query->CountOf(&IsOdd) == 2);
  EXPECT_TRUE(query->IndexOf(4, index) && index == 1);
  EXPECT_TRUE(!query->IndexOf(9, index) && index == -1);
  EXPECT_TRUE(query->IndexOf([](int32_t n) { return n > 4; }, note) && index == 2);
  EXPECT_TRUE(query->IfFind(IsOdd, found) && found == 3);
  EXPECT_TRUE(!query->IfFind(isHuge, found) && found == 0);
  EXPECT_FALSE(query->IfFind(isHuge, fail) || query->IndexOf(9, fail));
  EXPECT_TRUE(query->Intersects(TArrayList<int32_t>::MakeArray({8, 5})));
  EXPECT_FALSE(query->Intersects(Create<TUnsized<int32_t>>(std::vector<int32_t>{8, 9})));
  EXPECT_FALSE(query->Intersects(Empty) || empty->Intersects(List));
  EXPECT_TRUE(query->First() == 3 && empty->First() == 0);
  EXPECT_TRUE(query->First(found) && !empty->First(found) && found == 0);
  EXPECT_TRUE(empty->IsEmpty() && !query->IsEmpty());
}

TEST_P(QueryTest, SumIsChecked) {
  EXPECT_EQ(16, Query()->Sum([](int32_t n) { return n; }));
  EXPECT_EQ(2, Query()->Sum(IsOdd));
  EXPECT_EQ(0, QueryOf(Empty)->Sum([](int32_t n) { return n; }));
  for (const int64_t step : {int64_t{INT32_MAX} / 3, int64_t{INT32_MIN} / 3, int64_t{1} << 32}) {
    EXPECT_THROW(Query()->Sum([&](int32_t) { return step; }), EIntOverflow) << step;
  }
}

TEST_P(QueryTest, MakesNewCollections) {
  const auto query = Query();
  EXPECT_THAT(Items(query->Filter(IsOdd)), ElementsAre(3, 5));
  const auto all = query->Filter([](int32_t) { return true; });
  EXPECT_TRUE(all != List && query->Equals(all));
  const int32_t cases[][3] = {{0, 4, 0},         {-1, 4, 0}, {INT32_MIN, 4, 0},
                              {INT32_MAX, 0, 4}, {1, 3, 1},  {4, 0, 4}};
  for (const auto& [count, skipped, taken] : cases) {
    EXPECT_EQ(skipped, query->Skip(count)->Count()) << count;
    EXPECT_EQ(taken, query->Take(count)->Count()) << count;
  }
  EXPECT_THAT(Items(query->Skip(2)), ElementsAre(5, 4));
  EXPECT_THAT(Items(query->Take(2)), ElementsAre(3, 4));
  List->SetCount(1000);
  EXPECT_TRUE(query->Filter([](int32_t) { return true; })->Query()->Equals(List));
  EXPECT_EQ(4, query->Filter([](int32_t n) { return n != 0; })->Count());
}

TEST_P(QueryTest, VerbsOfTheCollectionChain) {
  std::vector<int32_t> seen;
  int32_t found = 0;
  const auto see = [&](int32_t n) { seen.push_back(n); };
  const auto query = Query();
  EXPECT_EQ(List, query->ForEach(see));
  EXPECT_EQ(List, query->ForFirst(see));
  EXPECT_EQ(List, query->ForFirst([](int32_t n) { return n > 4; }, see));
  EXPECT_EQ(List, query->Find(IsOdd, found));
  EXPECT_EQ(List, query->Find(IsOdd, see));
  EXPECT_EQ(List, query->DoOnce([](const TRef<TList>& list) { list->Add(6); }));
  EXPECT_THAT(seen, ElementsAre(3, 4, 5, 4, 3, 5, 3));
  query->ForEach([&](int32_t index, int32_t item) { EXPECT_EQ(List->Items(index), item); });
  QueryOf(Empty)->ForFirst([](int32_t) { FAIL(); });
  EXPECT_EQ(List, query->Access()->Collection());
  EXPECT_EQ(query->Access(), query->Access());
  EXPECT_EQ(5, query->Access()->CreateEnumerator()()->Size());
}

TEST_P(QueryTest, NullFunctionsAssertEvenWithoutItems) {
  const auto q = QueryOf(Empty);
  int32_t out;
  const auto calls = std::to_array<TProc<>>(
      {[&] { q->Contains(NoPredicate); }, [&] { q->CountOf(NoPredicate); },
       [&] { q->Sum(TConstFunc<int32_t, int32_t>()); }, [&] { q->IfFind(NoPredicate, out); },
       [&] { q->IfFind(IsOdd, NoAction); }, [&] { q->IndexOf(NoPredicate, out); },
       [&] { q->IndexOf(1, NoAction); }, [&] { q->Filter(NoPredicate); },
       [&] { q->ForEach(NoAction); }, [&] { q->ForFirst(NoAction); },
       [&] { q->ForFirst(NoPredicate, NoAction); }, [&] { q->DoOnce(TConstProc<TRef<TList>>()); },
       [] { Create<TQuery<int32_t>>(TFunc<TRef<ISizeEnumerator<int32_t>>>()); }});
  for (const auto& call : calls) EXPECT_THROW(call(), EAssertionFailed);
}

TEST_P(QueryTest, FunctionsMayChangeTheSource) {
  const auto texts = TArrayList<string>::MakeArray({u"a text that needs memory of its own"});
  const auto growing = [&](const string& item) {
    if (texts->Count() < 400) texts->Add(item, 200);
    return true;
  };
  string found;
  EXPECT_TRUE(texts->Query()->IfFind(growing, found));
  EXPECT_EQ(texts->Items(0), found);
  EXPECT_EQ(201, texts->Query()->Filter(growing)->Count());
  int32_t calls = 0;
  Query()->ForEach([&](int32_t) {
    if (++calls <= 4) List->Add(0);
  });
  EXPECT_EQ(GetParam() ? 4 : 8, calls)
      << "an array's bound is fixed, an enumerator meets new items";
}

TEST(QueryKindsTest, ArrayQueriesRunForwardAndCheckTheirBounds) {
  const auto list = TArrayList<int32_t>::MakeArray({1, 2, 3});
  EXPECT_EQ(1, list->Query(/*isReverse*/ true)->First());
  int32_t seen = 0;
  EXPECT_THROW(list->Query()->ForEach([&](int32_t) {
    ++seen;
    list->Delete(0);
  }),
               ERangeError);
  EXPECT_EQ(2, seen);
}

TEST(QueryKindsTest, ObjectsAndInterfacesCompareByIdentity) {
  const TRef<IWatched> first = Create<TWatched>(1), twin = Create<TWatched>(1);
  const auto list = TInterfaceArrayList<TRef<IWatched>>::MakeArray({first, nullptr});
  const auto query = list->Query();
  EXPECT_TRUE(query->Contains(first) && query->Contains(nullptr) && !query->Contains(twin));
  EXPECT_FALSE(query->Equals({twin, nullptr}));
  EXPECT_TRUE(query->Equals({twin, nullptr}, [](const auto&, const auto&) { return true; }));

  const auto* conversions = dynamic_cast<const TQuery<TRef<IWatched>>*>(ObjectOf(query));
  ASSERT_NE(nullptr, conversions);
  TObject* object = nullptr;
  TRef<IInterface> interface;
  EXPECT_TRUE(conversions->GetAsObject(first, object) && object == ObjectOf(first));
  EXPECT_FALSE(conversions->GetAsObject(nullptr, object));
  EXPECT_TRUE(conversions->GetAsInterface(first, interface) && interface == first);
  EXPECT_FALSE(conversions->GetAsInterface(nullptr, interface));
}

TEST(QueryKindsTest, HoldsItsSource) {
  auto list = TArrayList<int32_t>::MakeArray({1, 2});
  const auto query = list->Query();
  const auto backward = list->Query(/*isReverse*/ true)->Access()->CreateEnumerator();
  list = nullptr;
  EXPECT_EQ(2, query->Skip(1)->Query()->First());
  const auto walk = backward();
  EXPECT_TRUE(walk->MoveNext());
  EXPECT_EQ(2, walk->Current()) << "a maker of enumerators outlives its query";
}

TEST(QueryKindsTest, TestsSeeTheItemsThemselves) {
  const auto list = TArrayList<int32_t>::MakeArray({1, 1, 2, 2, 2, 1});
  const int32_t* previous = nullptr;
  const auto differsFromPrevious = [&](const int32_t& item) {
    const int32_t* before = std::exchange(previous, &item);
    return !before || *before != item;
  };
  EXPECT_TRUE(list->Query()->Filter(differsFromPrevious)->Query()->Equals({1, 2, 1}));
}

}  // namespace
}  // namespace Talvo
