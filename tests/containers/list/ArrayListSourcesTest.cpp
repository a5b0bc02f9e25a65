// SPDX-License-Identifier: Apache-2.0
// What can be handed to a list: every kind of source to every verb, sources inside the target, and
// which overload an argument means.

#include <talvo/containers/Talvo.Containers.List.h>

#include <gmock/gmock.h>
#include <tests/TestTypes.h>
#include <tests/containers/Sources.h>

#include <array>
#include <span>

namespace Talvo {
namespace {

using testing::ElementsAre;
using TList = IArrayList<string>;
using TTexts = std::vector<string>;
const TTexts Source{u"x", u"y"};

TTexts Items(const TRef<TList>& list) {
  return {list->begin(), list->end()};
}

struct TTextEnumerator : TEnumerator<string> {
  bool MoveNext() override { return ++Index < 2; }
  const string& Current() override { return Source[Index]; }
  int Index = -1;
};

/// Calls `take` with every form that `Source` can have.
template <class F>
void ForEveryForm(F&& take) {
  const auto list = TArrayList<string>::MakeArray(Source);
  const std::array<string, 2> array{u"x", u"y"};
  const string raw[] = {u"x", u"y"};
  take(list), take(*list), take(static_cast<const TList*>(list.Get()));
  take(TRef<ISizeEnumerable<string>>(list)), take(Supports<IEnumerable<string>>(list));
  take(Create<TUnsized<string>>(Source)), take(list->GetEnumerator()), take(UnsizedWalk(Source));
  take(Create<TTextEnumerator>()), take(TArray<string>(Source)), take(Source), take(raw);
  take(std::span(Source)), take(array), take(TTexts(Source));
}

/// What `change` makes of a list of a, x, b.
template <class F>
TTexts Changed(F&& change) {
  const auto list = TArrayList<string>::MakeArray({u"a", u"x", u"b"});
  change(*list);
  return Items(list);
}

TEST(ArrayListSourcesTest, EveryVerbTakesEveryForm) {
  using L = TList&;
  const auto expect = [](const TTexts& expected, auto&& verb) {
    int form = 0;
    ForEveryForm([&](auto&& source) {
      EXPECT_EQ(expected, Changed([&](L l) { verb(l, std::move(source)); })) << "form " << form++;
    });
  };
  expect({u"a", u"x", u"b", u"x", u"y"}, [](L l, auto&& s) { l.Append(std::move(s)); });
  expect({u"a", u"x", u"y", u"x", u"b"}, [](L l, auto&& s) { l.Insert(1, std::move(s)); });
  expect({u"a", u"x", u"b", u"x", u"y"}, [](L l, auto&& s) { l.Insert(9, std::move(s)); });
  expect({u"x", u"y"}, [](L l, auto&& s) { l.Clear().Insert(-1, std::move(s)); });
  expect({u"a", u"x", u"b", u"y"}, [](L l, auto&& s) { l.AppendUnique(std::move(s)); });
  expect({u"a", u"b"}, [](L l, auto&& s) { l.RemoveAll(std::move(s)); });
  expect({u"x", u"y"}, [](L l, auto&& s) { l.Delete(2).Delete(0, 2).Assign(std::move(s)); });

  const string* two = Source.data();
  EXPECT_THAT(Changed([&](L l) {
                l.Clear().Append({u"c"}).Append(two, 1).Insert(0, {u"d", u"e"});
              }),
              ElementsAre(u"d", u"e", u"c", u"x"));
  EXPECT_THAT(Changed([&](L l) {
                l.Insert(1, two, 2).RemoveAll({u"a", u"b"});
              }),
              ElementsAre(u"x", u"y", u"x"));
  EXPECT_THAT(Changed([&](L l) {
                l.RemoveAll(two, 2).AppendUnique({u"a", u"f"});
              }),
              ElementsAre(u"a", u"b", u"f"));
  EXPECT_THAT(Changed([&](L l) { l.Assign({u"g"}); }), ElementsAre(u"g"));
  EXPECT_THAT(Changed([&](L l) { l.Assign(two, 0); }), ElementsAre());
}

TEST(ArrayListSourcesTest, MakersTakeTheirSources) {
  using TTextList = TArrayList<string>;
  const auto list = TTextList::MakeArray(Source);
  for (const auto& made :
       {TTextList::MakeEnumerable(list),
        TTextList::MakeEnumerable(Create<TUnsized<string>>(Source)),
        TTextList::MakeEnumerator(UnsizedWalk(Source)), TTextList::MakeCopy(list),
        TTextList::MakeEnumerator(Create<TTextEnumerator>()),
        TTextList::MakePointer(Source.data(), 2)}) {
    EXPECT_EQ(Source, Items(made));
    made->SetItem(0, u"changed");
  }
  EXPECT_EQ(Source, Items(list));
  EXPECT_EQ(5, TTextList::CreateSize(5)->GetArraySize());
  EXPECT_THROW(TTextList::MakeSize(-1), EAssertionFailed);
  EXPECT_THROW(TTextList::MakeCopy(TRef<TList>()), EAssertionFailed);
  EXPECT_THROW(TTextList::MakePointer(Source.data(), -1), ERangeError);
}

TEST(ArrayListSourcesTest, NullSourcesAssert) {
  const auto list = TArrayList<string>::MakeArray(Source);
  const auto refuse = [&](auto null) {
    EXPECT_THROW(list->Append(null), EAssertionFailed);
    EXPECT_THROW(list->Assign(null), EAssertionFailed);
    EXPECT_THROW(list->Insert(1, null), EAssertionFailed);
    EXPECT_THROW(list->AppendUnique(null), EAssertionFailed);
    EXPECT_THROW(list->RemoveAll(null), EAssertionFailed);
  };
  refuse(TRef<TList>()), refuse(static_cast<TArrayList<string>*>(nullptr));
  refuse(TRef<IEnumerable<string>>()), refuse(TRef<IEnumerator<string>>());
  EXPECT_THROW(list->Append(TOwn<TEnumerator<string>>()), EAssertionFailed);
  EXPECT_THROW(list->Append(static_cast<string*>(nullptr), 1), EAssertionFailed);
  EXPECT_EQ(Source, Items(list));
}

TEST(ArrayListSourcesTest, TheListItselfIsASource) {
  const auto list = TArrayList<string>::MakeArray(Source);
  const TRef<IEnumerable<string>> asEnumerable = Supports<IEnumerable<string>>(list);
  list->Append(list).Append(*list).Append(asEnumerable).Assign(list).Assign(asEnumerable);
  EXPECT_EQ(Source, Items(list->AppendUnique(list).Insert(2, list)));
  EXPECT_THAT(Items(list->Insert(1, list)), ElementsAre(u"x", u"x", u"y", u"y"));
  list->Assign(list->GetEnumerator());  // its walk ends as soon as the list is emptied
  list->SetCount(2);
  EXPECT_THAT(Items(list), ElementsAre(u"", u""));
}

TEST(ArrayListSourcesTest, TheListsOwnStorageIsASource) {
  const string one = u"a text that does not fit inside", two = one + one;
  const auto own = [&](const TTexts& expected, TProc<TList&> change) {
    for (const bool isFull : {false, true}) {
      const auto list = TArrayList<string>::Make();
      list->Add(one).Add(two).SetCapacity(isFull ? 2 : 64, /*allowsTruncation*/ false);
      change(*list);
      EXPECT_EQ(expected, Items(list));
    }
  };
  using L = TList&;
  own({one, two, one, two}, [](L l) { l.Append(std::span(l)); });
  own({one, one, two, two}, [](L l) { l.Insert(1, std::span(l)); });
  own({two}, [](L l) { l.Assign(l.data() + 1, 1); });
  own({}, [](L l) { l.RemoveAll(std::span(l)); });
  own({one, two}, [](L l) { l.AppendUnique(std::span(l)).Assign(l.ToArray()); });
  own({}, [](L l) { l.RemoveAll(l.ToArray()); });
  own({one, two, one, one, one}, [](L l) { l.Add(l[0], 3); });
  own({two, one, two}, [](L l) { l.AddFront(l[1]); });
  own({one, two, two, one, two}, [](L l) { l.Insert(0, l[1], 2).Insert(0, l[2]); });
  own({two, two}, [](L l) { l.SetItem(0, l[1]); });
  own({two}, [](L l) { l.Add(l[0]).RemoveAll(l[0]); });
}

TEST(ArrayListSourcesTest, EnumeratorsMayLieOrFail) {
  const auto list = TArrayList<string>::MakeArray(Source);
  const TTexts many(200, u"z");
  EXPECT_THROW(list->Append(SizedWalk(many, 1)), ERangeError);
  EXPECT_THAT(Items(list), ElementsAre(u"x", u"y", u"z"));
  for (const int32_t size : {1, -1, INT32_MIN}) {
    EXPECT_THROW(list->Append(SizedWalk(many, size)), ERangeError);
    EXPECT_THROW(list->Assign(SizedWalk(many, size)), ERangeError);
    EXPECT_THROW(list->Insert(1, SizedWalk(many, size)), ERangeError);
  }
  const auto failing = [](int32_t step) {
    if (step == 3) throw 1;
  };
  for (const int capacity : {5, 100}) {
    EXPECT_EQ(Source, Items(list->Assign(SizedWalk(Source, 5)))) << "fewer than said";
    list->SetCapacity(capacity, false);
    EXPECT_THROW(list->Assign(SizedWalk(TTexts(9, u"z"), 9, failing)), int);
    list->Assign(Source);
    EXPECT_THROW(list->Assign(UnsizedWalk(TTexts(9, u"z"), failing)), int);
    EXPECT_EQ(2, list->Count());
    list->SetCount(4);
    EXPECT_EQ(u"", list->Items(2) + list->Items(3)) << "spare slots hold default values";
  }
}

/// Says that it is a list's storage.
struct TStorageWalk : TImplements<TBasicSizeEnumerator<string>, IArrayListState<string>> {
  TStorageWalk(const TTexts& items, int32_t size) : Items(items), Size(size) {}
  void Reset() override {}
  bool MoveNext() override { return false; }
  const string& GenericGetCurrent() override { return Items[0]; }
  int32_t GetSize() override { return Size; }
  bool ArrayIsPopulated() const override { return true; }
  bool GetArraySizeMatches() const override { return Items.Length() == Size; }
  TArray<string>* GetArray() override { return &Items; }
  int32_t GetArraySize() const override { return Items.Length(); }
  TCountCell* GetSizePtr() override { return &Size; }
  TArray<string> Items;
  TCountCell Size;
};

TEST(ArrayListSourcesTest, StorageIsSharedNotCopied) {
  const auto list = TArrayList<string>::Create();
  const auto walk = Create<TStorageWalk>(Source, 1);
  list->Assign(walk);
  EXPECT_EQ(1, list->Count());
  walk->Items[0] = u"seen";
  EXPECT_EQ(u"seen", list->Items(0));
  list->SetItem(0, u"written");
  EXPECT_EQ(u"written", walk->Items[0]);
  list->Delete(0);
  EXPECT_EQ(u"written", walk->Items[0]) << "what changes the length makes storage of its own";
  for (const int32_t size : {-1, 3}) {
    EXPECT_THROW(list->Assign(Create<TStorageWalk>(Source, size)), ERangeError);
  }
}

// --- Which overload ---------------------------------------------------------------------------

/// Converts from bool, and so from any pointer.
struct TFlag {
  TFlag(bool isOn = false) : IsOn(isOn) {}
  bool operator==(const TFlag&) const = default;
  bool IsOn;
};
TFlag NewFlag() {
  return false;
}
bool IsOn(const TFlag& flag) {
  return flag.IsOn;
}

TEST(ArrayListOverloadsTest, FactoriesBeatValuesThatConvertThroughBool) {
  const auto never = [](const auto&) { return false; };
  const auto flags = TArrayList<TFlag>::Make();
  EXPECT_FALSE(flags->FindOrAdd(never, NewFlag).IsOn);
  EXPECT_FALSE(flags->FindOrAdd(never, &NewFlag).IsOn);
  EXPECT_TRUE(flags->FindOrAdd(never, true).IsOn);
  EXPECT_EQ(2, flags->RemoveAll(IsOn).Count());
  EXPECT_EQ(0, flags->RemoveAll(false).Count());
  const auto bools = TArrayList<bool>::Make();
  EXPECT_FALSE(bools->FindOrAdd(never, [] { return false; }));
  EXPECT_EQ(0, bools->RemoveAll([](bool item) { return !item; }).Count());
  EXPECT_TRUE(bools->FindOrAdd(never, true));
  EXPECT_EQ(1, bools->Append(std::array{true, false}).RemoveAll(true).Count());
  EXPECT_EQ(1, bools->ExtractFirst(TItemCount{5})->Count());
}

TEST(ArrayListOverloadsTest, HandlesAreValuesInAListOfHandles) {
  const TProc<> first = [] {}, second = first, other = [] {};
  const auto list = TArrayList<TProc<>>::MakeArray({first, other, nullptr});
  EXPECT_TRUE(list->Query()->Contains(second));
  EXPECT_EQ(0, list->RemoveOne(second));
  EXPECT_EQ(1, list->RemoveAll(nullptr).Count());
  EXPECT_EQ(1, list->RemoveAll([](const TProc<>& proc) { return proc == nullptr; }).Count());
  const auto predicates = TArrayList<TConstFunc<int32_t, bool>>::Make();
  EXPECT_EQ(1, predicates->Add([](int32_t) { return true; }).Count());
}

TEST(ArrayListOverloadsTest, NullptrIsAValueWhereItCanBe) {
  const auto list = TInterfaceArrayList<TRef<IWatched>>::Make();
  list->Add(nullptr).Insert(0, nullptr, 2).AddFront(nullptr);
  EXPECT_EQ(4, list->Query()->CountOf(nullptr));
  EXPECT_EQ(0, list->RemoveOne(nullptr));
  EXPECT_EQ(nullptr, list->FindOrAdd([](const auto& item) { return item != nullptr; }, nullptr));
  EXPECT_EQ(0, list->RemoveAll(nullptr).Count());
  EXPECT_EQ(0, list->RemoveAll([](const auto&) { return true; }, nullptr).Count());
}

TEST(ArrayListOverloadsTest, ListsOfListsAndOfValues) {
  using TInner = TRef<IArrayList<int32_t>>;
  const TInner inner = TArrayList<int32_t>::MakeArray({1});
  const auto outer = TArrayList<TInner>::Make();
  outer->Add(inner).Append(TArrayList<TInner>::MakeArray({inner, nullptr}));
  EXPECT_EQ(1, outer->RemoveAll(inner).Count());
  const auto values = TArrayList<TValue>::Make();
  values->Add(TValue::From(1)).Add(TValue::From(string(u"a")));
  const TRef<IList> asList = Supports<IList>(values);
  asList->AddValue(TValue::From(2));
  EXPECT_EQ(2, values->Items(2).AsType<int32_t>());
  EXPECT_THROW(values->RemoveOne(TValue()), EAbstractError)
      << "values know no equality of their own";
}

template <class L, class... A>
concept Appends = requires(L& list, A&&... arguments) {
  list.Append(std::forward<A>(arguments)...);
};
struct TFlagAndMore : TFlag {};
static_assert(Appends<IArrayList<TFlag>, std::vector<TFlag>>);
static_assert(!Appends<IArrayList<TFlag>, std::vector<TFlagAndMore>> &&
                  !Appends<IArrayList<TFlag>, TFlagAndMore*, int32_t>,
              "items of a derived class stand further apart");
static_assert(!Appends<TList, TRef<IArrayList<int32_t>>> && !Appends<TList, std::nullptr_t> &&
              !Appends<TList, TOwn<TTextEnumerator>&>);

}  // namespace
}  // namespace Talvo
