// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/Talvo.Containers.Sets.h>

#include <tests/containers/Sources.h>

namespace Talvo {
namespace {

using TNumbers = TSet<int32_t>;
using TNumbersRef = TRef<ISet<int32_t>>;
using TInts = std::vector<int32_t>;

/// Does something to {3, 1, 2}; looks at the content then and at how often it was told.
template <class F>
void Expect(const TInts& after, int told, F&& change) {
  const TNumbersRef set = TNumbers::Make({3, 1, 2, 1});
  int heard = 0;
  As<IChangeNotification>(set)->AddChangeNotification([&] { ++heard; });
  change(set);
  EXPECT_EQ(after, Items(set));
  EXPECT_EQ(told, heard) << testing::PrintToString(after);
}

TEST(SetTest, EveryKindOfSourceChangesTheSetAndTellsOnce) {
  const auto expect = [](const TInts& after, auto&& change) {
    ForEverySource<int32_t>({2, 5, 3, 2}, [&](auto&& source) {
      Expect(after, 1, [&](auto& set) { change(set, std::move(source)); });
    });
  };
  expect({3, 1, 2, 5}, [](auto& set, auto&& source) { set->Append(std::move(source)); });
  expect({3, 1, 2, 5}, [](auto& set, auto&& source) { set->Union(std::move(source)); });
  expect({2, 5, 3}, [](auto& set, auto&& source) { set->Assign(std::move(source)); });
  expect({1}, [](auto& set, auto&& source) { set->Remove(std::move(source)); });
  expect({3, 2}, [](auto& set, auto&& source) { set->Intersect(std::move(source)); });
}

TEST(SetTest, VerbsTellOfRealChangesOnly) {
  Expect({3, 1, 2, 4}, 1, [](auto& s) { EXPECT_TRUE(s->Add(3).IfAdd(4) && !s->IfAdd(4)); });
  Expect({3, 2}, 1, [](auto& s) { EXPECT_TRUE(s->Remove(7).IfRemove(1) && !s->IfRemove(1)); });
  Expect({1, 2}, 1, [](auto& s) { s->RemoveOne([](int32_t n) { return n > 1; }); });
  Expect({1}, 1, [](auto& s) { s->RemoveAll([](int32_t n) { return n > 1; }); });
  Expect({}, 1, [](auto& s) { s->Clear().Clear().Assign({}).Remove({1}); });
  Expect({7}, 2, [](auto& s) { s->Assign({7, 8}).Remove({8, 9}); });
  Expect({3, 1, 2, 9}, 1, [](auto& s) { As<IList>(s)->AddValue(TValue::From(9)); });
  Expect({3, 1, 2}, 0, [](auto& s) {
    s->Append({1, 2}).Union({}).Remove({7}).Intersect({1, 2, 3});
  });
  // The set itself as the source, and an enumerator over it.
  Expect({3, 1, 2}, 0, [](auto& s) { s->Append(s).Union(*s).Assign(s.Get()).Intersect(s); });
  Expect({3, 1, 2}, 1, [](auto& s) { s->Append(s->GetEnumerator()).Assign(s->GetEnumerator()); });
  Expect({}, 1, [](auto& s) { s->Remove(s); });
  Expect({}, 1, [](auto& s) { s->Remove(s->GetEnumerator()); });
  const auto failAtEnd = [](int32_t step) {
    if (step == 2) RaiseRangeError();
  };
  Expect({3, 1, 2}, 0, [&](auto& s) {
    EXPECT_THROW(s->Append(TNumbersRef()), EAssertionFailed);
    EXPECT_THROW(s->RemoveAll(TFunc<int32_t, bool>()), EAssertionFailed);
    EXPECT_THROW(As<IList>(s)->AddValue(TValue::From(string())), EInvalidCast);
    EXPECT_THROW(s->Assign(UnsizedWalk<int32_t>({7, 8}, failAtEnd)), ERangeError);
    EXPECT_THROW(s->Intersect(UnsizedWalk<int32_t>({1, 1}, failAtEnd)), ERangeError);
  });
  Expect({3, 1, 2, 7}, 1, [&](auto& s) {
    EXPECT_THROW(s->Append(UnsizedWalk<int32_t>({7, 7}, failAtEnd)), ERangeError);
  });
}

TEST(SetTest, ItemsStandInTheOrderInWhichTheyCame) {
  const auto set = TSet<string>::Make({u"c", u"a", u"b"});
  set->Remove(u"c").Add(u16string_view(u"center").substr(0, 1));
  EXPECT_TRUE(set[0] == u"a" && set->Items(1) == u"b" && set->GetItem(2) == u"c");
  EXPECT_TRUE(set->Contains(u"c") && !set->Contains(u"center") && set->Count() == 3);
  EXPECT_EQ(u"c", set->Query()->Filter([](auto& item) { return item > u"b"; })[0]);
  EXPECT_EQ("ERangeError: Index out of range = 3", Raised([&] { set->GetItem(3); }));
  EXPECT_EQ("ERangeError: Index out of range = 4294967295", Raised([&] { set->GetItem(-1); }));
}

/// A key of its own to the hash, of one rank with others to the comparer.
struct TRank {
  int32_t Rank, Number;
  bool operator==(const TRank&) const = default;
  bool operator<(const TRank& other) const { return Rank < other.Rank; }
  uint64_t HashValue() const { return static_cast<uint64_t>(Number); }
};

TEST(SetTest, ComparisonsGoByTheDefaultComparer) {
  struct TCase {
    TInts Items, Other;
    bool IsSubset, IsSuperset, Overlaps;
  };
  const TCase cases[] = {
      {{1, 2}, {2, 3, 1}, true, false, true}, {{1, 2}, {2, 1}, true, true, true},
      {{1, 2}, {2}, false, true, true},       {{1, 2}, {2, 3}, false, false, true},
      {{1, 2}, {3, 4}, false, false, false},  {{}, {1}, true, false, false},
      {{1}, {}, false, true, false},          {{}, {}, true, true, false},
  };
  for (const TCase& c : cases) {
    SCOPED_TRACE(&c - cases);
    const TNumbersRef set = TNumbers::Make(c.Items);
    const auto expect = [&](bool expected, auto&& ask) {
      ForEverySource(c.Other, [&](auto&& s) { EXPECT_EQ(expected, ask(std::move(s))); });
    };
    expect(c.IsSubset, [&](auto&& s) { return set->IsSubsetOf(std::move(s)); });
    expect(c.IsSuperset, [&](auto&& s) { return set->IsSupersetOf(std::move(s)); });
    expect(c.Overlaps, [&](auto&& s) { return set->Overlaps(std::move(s)); });
    EXPECT_TRUE(set->IsSubsetOf(set) && set->IsSupersetOf(*set));
    EXPECT_EQ(set->Count() > 0, set->Overlaps(set));
  }
  const auto ranks = TSet<TRank>::Make({TRank{1, 1}});
  EXPECT_TRUE(ranks->Overlaps({TRank{1, 2}}) && ranks->IsSubsetOf({TRank{1, 2}}));
  EXPECT_TRUE(ranks->IsSupersetOf({TRank{1, 2}}) && !ranks->Contains(TRank{1, 2}));
}

}  // namespace
}  // namespace Talvo
