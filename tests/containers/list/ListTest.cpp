// SPDX-License-Identifier: Apache-2.0
// What array lists and linked lists have in common: the verbs for items, every source for every
// verb, and what happens when copies fail or items come back to their list as they end.

#include <talvo/containers/Talvo.Containers.List.h>

#include <tests/containers/Sources.h>

namespace Talvo {
namespace {

using TTexts = std::vector<string>;
const TTexts Source{u"x", u"y"};

struct TArrayLists {
  template <class T>
  using TOf = TArrayList<T>;
};
template <class T>
concept HasIdentity = requires {
  typename T::TTarget;
};
struct TLinkedLists {
  template <class T>
  using TOf = std::conditional_t<HasIdentity<T>, TInterfaceLinkedList<T>, TLinkedList<T>>;
};
template <class TKind>
constexpr bool IsArray = std::is_same_v<TKind, TArrayLists>;

template <class TKind>
class ListTest : public testing::Test {
 protected:
  using TInts = typename TKind::template TOf<int32_t>;
  using TStrings = typename TKind::template TOf<string>;
};
using TListKinds = testing::Types<TArrayLists, TLinkedLists>;
TYPED_TEST_SUITE(ListTest, TListKinds);

bool IsOdd(int32_t n) {
  return n % 2 != 0;
}
bool IsHuge(int32_t n) {
  return n > 99;
}

TYPED_TEST(ListTest, AddsFindsAndRemovesItems) {
  const auto list = TestFixture::TInts::Make();
  list->Add(1).Add(2, 3).AddUnique(2).AddUnique(9).Add(7, 0);
  EXPECT_THAT(Items(list), ElementsAre(1, 2, 2, 2, 9));
  EXPECT_TRUE(list->IfAddUnique(4) && !list->IfAddUnique(9));
  EXPECT_THROW(list->Add(1, -1), ERangeError);
  list->RemoveOne(2), list->RemoveOne(77);
  list->RemoveOne(IsOdd).RemoveOne(IsHuge).RemoveAll({4, 77}).RemoveAll(4);
  EXPECT_THAT(Items(list), ElementsAre(2, 2, 9));
  EXPECT_THAT(Items(list->RemoveAll(2).Add(5).RemoveAll(IsHuge)), ElementsAre(9, 5));

  EXPECT_EQ(9, list->FindOrAdd(IsOdd, [] { return 7; }));
  EXPECT_EQ(100, list->FindOrAdd(IsHuge, 100));
  EXPECT_EQ(8, list->FindOrAdd([](int32_t n) { return n == 8; }, [] { return 8; }));
  EXPECT_THAT(Items(list), ElementsAre(9, 5, 100, 8));
  int32_t item = 7;
  std::vector<int32_t> seen;
  const auto see = [&](int32_t n) { seen.push_back(n * 10 + list->Count()); };
  EXPECT_TRUE(list->FindAndRemoveOne(8) && !list->FindAndRemoveOne(8));
  EXPECT_TRUE(list->FindAndRemoveOne(IsHuge, item) && item == 100);
  EXPECT_TRUE(!list->FindAndRemoveOne(IsHuge, item) && item == 0);
  list->FindAndRemoveOne(IsOdd, see).FindAndRemoveOne(IsHuge, see);
  EXPECT_THAT(seen, ElementsAre(91)) << "the item is gone when the action sees it";
  EXPECT_THAT(Items(list->Query()->Filter(IsOdd)->Append(list)), ElementsAre(5, 5));

  const TConstFunc<int32_t, bool> none;
  EXPECT_THROW(list->RemoveAll(none), EAssertionFailed);
  EXPECT_THROW(list->RemoveOne(none), EAssertionFailed);
  EXPECT_THROW(list->FindOrAdd(none, 1), EAssertionFailed);
  EXPECT_THROW(list->FindAndRemoveOne(none, item), EAssertionFailed);
  EXPECT_THROW(list->FindAndRemoveOne(IsOdd, TConstProc<int32_t>()), EAssertionFailed);
  EXPECT_EQ(0, list->Clear().Count());
}

TYPED_TEST(ListTest, EveryVerbTakesEverySource) {
  // What `change` makes of a list of a, x, b.
  const auto expect = [](const TTexts& expected, auto&& change) {
    const auto list = TestFixture::TStrings::MakeArray({u"a", u"x", u"b"});
    change(*list);
    EXPECT_EQ(expected, Items(list));
  };
  const auto expectAll = [&](const TTexts& expected, auto&& verb) {
    int form = 0;
    ForEverySource(Source, [&](auto&& source) {
      SCOPED_TRACE(form++);
      expect(expected, [&](auto& l) { verb(l, std::move(source)); });
    });
  };
  expectAll({u"a", u"x", u"b", u"x", u"y"}, [](auto& l, auto&& s) { l.Append(std::move(s)); });
  expectAll({u"a", u"x", u"b", u"y"}, [](auto& l, auto&& s) { l.AppendUnique(std::move(s)); });
  expectAll({u"a", u"b"}, [](auto& l, auto&& s) { l.RemoveAll(std::move(s)); });
  expectAll({u"x", u"y"}, [](auto& l, auto&& s) {
    l.RemoveAll({u"a", u"b"}).Assign(std::move(s));
  });
  const string two[] = {u"x", u"y"};
  expect({u"c", u"x"}, [&](auto& l) { l.Assign({u"c"}).Append({u"x", u"d"}).RemoveAll({u"d"}); });
  expect({u"x", u"y", u"f"},
         [&](auto& l) { l.Assign(two, 1).AppendUnique(two, 2).Append({u"f"}); });
  expect({u"a", u"b", u"f", u"x", u"y"}, [&](auto& l) {
    l.RemoveAll(two, 2).AppendUnique({u"a", u"f"}).Append(two);
  });
  expect({}, [&](auto& l) { l.Assign(two, 0); });
  if constexpr (IsArray<TypeParam>) {
    expectAll({u"a", u"x", u"y", u"x", u"b"}, [](auto& l, auto&& s) { l.Insert(1, std::move(s)); });
    expectAll({u"a", u"x", u"b", u"x", u"y"}, [](auto& l, auto&& s) { l.Insert(9, std::move(s)); });
    expectAll(Source, [](auto& l, auto&& s) { l.Clear().Insert(-1, std::move(s)); });
    expect({u"d", u"x", u"a", u"x", u"b"}, [&](auto& l) { l.Insert(0, two, 1).Insert(0, {u"d"}); });
  }
}

TYPED_TEST(ListTest, MakersTakeTheirSources) {
  using TList = typename TestFixture::TStrings;
  const auto list = TList::MakeArray(Source);
  for (const auto& made :
       {TList::MakeEnumerable(list), TList::MakeEnumerable(Create<TUnsized<string>>(Source)),
        TList::MakeEnumerator(UnsizedWalk(Source)), TList::MakeCopy(list),
        TList::MakeEnumerator(Create<TOwnedWalk<string>>(Source)),
        TList::MakePointer(Source.data(), 2)}) {
    EXPECT_EQ(Source, Items(made));
    if constexpr (IsArray<TypeParam>) made->SetItem(0, u"changed");
  }
  EXPECT_EQ(Source, Items(list));
  EXPECT_THROW(TList::MakeEnumerable(TRef<IEnumerable<string>>()), EAssertionFailed);
  EXPECT_THROW(TList::MakeCopy(TRef<IArrayList<string>>()), EAssertionFailed);
  EXPECT_THROW(TList::MakePointer(Source.data(), -1), ERangeError);
}

TYPED_TEST(ListTest, NullSourcesAssert) {
  const auto list = TestFixture::TStrings::MakeArray(Source);
  const auto refuse = [&](auto null) {
    EXPECT_THROW(list->Append(null), EAssertionFailed);
    EXPECT_THROW(list->Assign(null), EAssertionFailed);
    EXPECT_THROW(list->AppendUnique(null), EAssertionFailed);
    EXPECT_THROW(list->RemoveAll(null), EAssertionFailed);
    if constexpr (IsArray<TypeParam>) {
      EXPECT_THROW(list->Insert(1, null), EAssertionFailed);
    }
  };
  refuse(TRef<IArrayList<string>>()), refuse(static_cast<TArrayList<string>*>(nullptr));
  refuse(TRef<IEnumerable<string>>()), refuse(TRef<IEnumerator<string>>());
  EXPECT_THROW(list->Append(TOwn<TEnumerator<string>>()), EAssertionFailed);
  EXPECT_THROW(list->Append(static_cast<string*>(nullptr), 1), EAssertionFailed);
  EXPECT_EQ(Source, Items(list));
}

TYPED_TEST(ListTest, CrossesAsTaggedValues) {
  const auto list = As<IList>(TestFixture::TInts::MakeArray({0, 1}));
  EXPECT_EQ(0, list->GetNewValue().template AsType<int32_t>());
  list->AddValue(TValue::From<int64_t>(2));
  EXPECT_THROW(list->AddValue(TValue::From(0.5)), EInvalidCast);
  const auto walk = list->GetValueEnumerator();
  EXPECT_EQ(3, walk->Size());
  for (int32_t i = 0; walk->MoveNext(); ++i)
    EXPECT_EQ(i, walk->Current().template AsType<int32_t>());
  list->ClearValues();
  EXPECT_EQ(0, ObjectAs<typename TestFixture::TInts>(list)->Count());
}

TYPED_TEST(ListTest, FunctionsAreItemsFoundByIdentity) {
  const TProc<> first = [] {}, same = first, other = [] {};
  const auto list = TypeParam::template TOf<TProc<>>::MakeArray({first, other, nullptr, first});
  EXPECT_TRUE(list->Query()->Contains(same));
  list->RemoveOne(same), list->RemoveOne(TProc<>([] {}));
  EXPECT_EQ(2, list->AddUnique(same).RemoveAll(nullptr).Count());
  list->RemoveAll([](const TProc<>& proc) { return proc != nullptr; });
  EXPECT_EQ(0, list->Count());
  const auto predicates = TypeParam::template TOf<TConstFunc<int32_t, bool>>::Make();
  EXPECT_EQ(1, predicates->Add([](int32_t) { return true; }).Count());
}

template <class TKind, class T>
void FailEveryCopy() {
  using TList = typename TKind::template TOf<T>;
  const std::vector<T> items = Sequence<T>(70);
  const auto is20 = [](const T& item) { return item.Number() == 20; };
  std::vector<TProc<TList&>> changes = {
      [&](TList& l) { l.Add(items[1], 100).Append(items).Append(UnsizedWalk(items)); },
      [&](TList& l) {
        l.Assign(items).FindAndRemoveOne(is20, [](const T&) {}).RemoveAll(items[1]);
      },
      [&](TList& l) { l.Assign(UnsizedWalk(items)).Query()->Filter(is20)->FindOrAdd(is20, 1); },
      [&](TList& l) { l.Assign(SizedWalk(items)).Query()->Skip(1); }};
  if constexpr (IsArray<TKind>) {
    changes.push_back(
        [&](TList& l) { l.AddFront(items[1]).Insert(0, items[1], 3).Insert(1, items); });
    changes.push_back([&](TList& l) {
      l.Append(items).Delete(3, 9).Move(0, 1).Reverse().ExtractFirst(TItemCount{3})->ToArray();
    });
  } else {
    changes.push_back([&](TList& l) { l.AddFirst(items[1]).Append(l).PopFirst(); });
  }
  for (const auto& change : changes) {
    ForEveryFailure<T>([&] {
      const auto list = TList::Create();
      try {
        list->Add(T(1)).Add(T(2));
        change(*list);
      } catch (...) {
        T::ThrowOnCopy(0);
        EXPECT_EQ(list->Count(), static_cast<int32_t>(Items(list).size()));
        throw;
      }
    });
  }
}
TYPED_TEST(ListTest, FailingCopiesLeaveASoundList) {
  FailEveryCopy<TypeParam, TCounted>();
  FailEveryCopy<TypeParam, TCopied>();
}

/// One release, and then more members to assign.
struct TRecord {
  TRef<IWatched> Watched;
  string Text = u"a text that needs memory of its own";
  bool operator==(const TRecord& other) const { return Watched == other.Watched; }
};

/// Runs every verb that ends items while their ends change the list.
template <class TKind, class T>
void AttackByEnds() {
  using TList = typename TKind::template TOf<T>;
  TRef<TList> list;
  TList* target = nullptr;  // also while it ends
  int ended = 0;
  const auto all = [](const T&) { return true; };
  std::vector<TProc<>> changes = {[&] { target->Clear(); }, [&] { target->Add(T(), 200); },
                                  [&] { target->RemoveOne(all); }};
  std::vector<TProc<TList&>> verbs = {
      [](TList& l) { l.Clear(); },
      [&](TList& l) { l.RemoveAll(all); },
      [&](TList& l) { l.RemoveOne(all).FindAndRemoveOne(all, [](const T&) {}); },
      [](TList& l) { l.Assign(std::vector<T>(3)); },
      [](TList& l) { l.Assign(SizedWalk(std::vector<T>(7))); },
      [](TList& l) { l.Assign(UnsizedWalk(std::vector<T>(99))); }};
  if constexpr (IsArray<TKind>) {
    changes.push_back([&] { target->SetCapacity(0, false); });
    verbs.insert(verbs.end(),
                 {[](TList& l) { l.Delete(1); }, [](TList& l) { l.Delete(1, 3); },
                  [](TList& l) { l.Delete(3, 9); }, [](TList& l) { l.SetItem(2, T()); },
                  [](TList& l) { l.SetCount(1); }, [](TList& l) { l.SetCapacity(2, true); },
                  [](TList& l) { l.RemoveAll(l[3]); }, [](TList& l) { l.RemoveOne(l[3]); },
                  [&](TList& l) { l.RemoveAll(all, [](const T&) {}); },
                  [](TList& l) { l.ExtractFirst(TItemCount{4}); }});
  } else {
    changes.push_back([&] {
      if (++ended > 8) return;
      for (const T& item : *target) target->PopFirst(), target->FindAndRemoveOne(item);
    });
    verbs.insert(verbs.end(), {[](TList& l) { l.PopFirst(); }, [](TList&) {}});
  }
  for (const auto& verb : verbs) {
    for (const auto& change : changes) {
      list = TList::Create();
      target = list.Get();
      for (int i = 0; i < 6; ++i) list->Add(T{Create<TWatched>(i, change)});
      ended = 0;
      try {
        verb(*list);
      } catch (const ERangeError&) {
        // The list became shorter than the verb had found it.
      }
      const auto size = static_cast<int32_t>(Items(list).size());
      EXPECT_TRUE(size == list->Count() || (IsArray<TKind> ? size < list->Count() : ended > 0));
      while (IsArray<TKind> && list->Count() > 0) list->Clear();
      list = nullptr;
      EXPECT_EQ(0, TWatched::Live);
    }
  }
}
TYPED_TEST(ListTest, ItemsMayChangeTheListAsTheyEnd) {
  AttackByEnds<TypeParam, TRef<IWatched>>();
  AttackByEnds<TypeParam, TRecord>();
}

}  // namespace
}  // namespace Talvo
