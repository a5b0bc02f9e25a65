// SPDX-License-Identifier: Apache-2.0
// Sources inside the target, walks that lie, shared storage, and which overload an argument means.

#include <talvo/containers/Talvo.Containers.List.h>

#include <tests/containers/Sources.h>

#include <array>

namespace Talvo {
namespace {

using TList = IArrayList<string>;
using TTexts = std::vector<string>;
const TTexts Source{u"x", u"y"};

TEST(ArrayListSourcesTest, TheListItselfIsASource) {
  const auto list = TArrayList<string>::MakeArray(Source);
  const TRef<IEnumerable<string>> asEnumerable = Supports<IEnumerable<string>>(list);
  list->Append(list).Append(*list).Append(asEnumerable).Assign(list).Assign(asEnumerable);
  EXPECT_EQ(Source, Items(list->AppendUnique(list).Insert(2, list)));
  EXPECT_THAT(Items(list->Insert(1, list)), ElementsAre(u"x", u"x", u"y", u"y"));
  list->Assign(list->GetEnumerator());  // its walk ends as soon as the list is emptied
  list->SetCount(2);
  EXPECT_THAT(Items(list), ElementsAre(u"", u""));
  EXPECT_EQ(5, TArrayList<string>::CreateSize(5)->GetArraySize());
  EXPECT_THROW(TArrayList<string>::MakeSize(-1), EAssertionFailed);
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
              !Appends<TList, TOwn<TOwnedWalk<string>>&>);

}  // namespace
}  // namespace Talvo
