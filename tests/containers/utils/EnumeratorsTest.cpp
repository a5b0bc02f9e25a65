// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/Talvo.Containers.Utils.h>

#include <tests/containers/Sources.h>

namespace Talvo {
namespace {

using TInts = std::vector<int>;

/// The storage of a list, behind enumerators of both families.
struct TFixture {
  TArray<int32_t> Items{10, 11, 12};
  TCountCell Count{3};
  TFunc<int32_t> GetCount = [this] { return int32_t{Count}; };
  TFunc<int32_t, int32_t> GetItem = [this](int32_t index) { return Items[index]; };

  template <class TByArray, class TByFunction, class F>
  void ForBoth(F&& body) {
    for (const bool isByArray : {true, false}) {
      SCOPED_TRACE(isByArray ? "by array" : "by functions");
      Items = TArray<int32_t>{10, 11, 12};
      Count = 3;
      if (isByArray) {
        body(Create<TByArray>(&Count, &Items));
      } else {
        body(Create<TByFunction>(GetCount, GetItem));
      }
    }
  }
  void Add(int32_t item) {
    Items.SetLength(Count + 1);
    Items[Count] = item;
    Count = Count + 1;
  }
};
using TForwardByArray = TBasicSizeArraySizeEnumerator<int32_t>;
using TForwardByFunction = TBasicListEnumerator<int32_t>;
using TBackByArray = TBasicReverseSizeArrayListEnumerator<int32_t>;
using TBackByFunction = TBasicReverseListEnumerator<int32_t>;

TInts Rest(const auto& walk) {
  TInts items;
  while (walk->MoveNext()) items.push_back(walk->Current());
  return items;
}

TEST(EnumeratorsTest, ForwardWalkReadsThePresentState) {
  TFixture list;
  list.ForBoth<TForwardByArray, TForwardByFunction>([&](const auto& walk) {
    EXPECT_THROW(walk->Current(), ERangeError);
    EXPECT_THAT(Rest(walk), ElementsAre(10, 11, 12));
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(walk->MoveNext()) << "the end stays the end";
    list.Add(13);
    list.Add(14);
    EXPECT_THAT(Rest(walk), ElementsAre(14)) << "the index stood at the count, and steps on";
    walk->Reset();
    walk->MoveNext();
    list.Items.Delete(0, 1);
    list.Count = list.Count - 1;
    EXPECT_THAT(Rest(walk), ElementsAre(12, 13, 14)) << "what slid into place is passed over";
    EXPECT_EQ(4, walk->Size());
    walk->Reset();
    walk->MoveNext();
    list.Count = 0;
    EXPECT_FALSE(walk->MoveNext());
    EXPECT_EQ(0, walk->Size());
  });
}

TEST(EnumeratorsTest, BackwardWalkTakesTheCountOnce) {
  TFixture list;
  list.ForBoth<TBackByArray, TBackByFunction>([&](const auto& walk) {
    list.Add(13);
    EXPECT_THAT(Rest(walk), ElementsAre(12, 11, 10));
    EXPECT_FALSE(walk->MoveNext());
    walk->Reset();
    EXPECT_TRUE(walk->MoveNext());
    EXPECT_EQ(13, walk->Current());
    list.Items.SetLength(1);
    list.Count = 1;
    EXPECT_TRUE(walk->MoveNext());
    EXPECT_THROW(walk->Current(), ERangeError);
    list.Count = 0;
    walk->Reset();
    EXPECT_FALSE(walk->MoveNext());
  });
}

TEST(EnumeratorsTest, IndexedWalksTellPositions) {
  TFixture list;
  const auto tells = [](TInts expected) {
    return [expected](const auto& walk) {
      EXPECT_THROW(walk->Current(), ERangeError);
      TInts positions;
      while (walk->MoveNext()) {
        positions.push_back(static_cast<int>(walk->Current().Index));
        EXPECT_EQ(10 + positions.back(), walk->Current().Item);
      }
      EXPECT_EQ(expected, positions);
    };
  };
  list.ForBoth<TBasicListIndexedArraySizeEnumerator<int32_t>, TBasicListIndexedEnumerator<int32_t>>(
      tells({0, 1, 2}));
  list.ForBoth<TBasicReverseSizeArrayListIndexedEnumerator<int32_t>,
               TBasicReverseListIndexedEnumerator<int32_t>>(tells({2, 1, 0}));
}

TEST(EnumeratorsTest, HostsMakeANewWalkEachTime) {
  TFixture list;
  list.ForBoth<TAutoReverseSizeArrayEnumeratorHost<int32_t>, TAutoReverseEnumeratorHost<int32_t>>(
      [&](const auto& host) {
        for (int round = 0; round < 2; ++round) EXPECT_THAT(Items(*host), ElementsAre(12, 11, 10));
      });
  const auto none = [] { return TRef<ISizeEnumerator<int32_t>>(); };
  EXPECT_THROW(Create<TEnumeratorHost<int32_t>>(none)->begin(), EAssertionFailed);
  EXPECT_THROW(Create<TEnumeratorHost<int32_t>>(nullptr), EAssertionFailed);
}

TEST(EnumeratorsTest, RecArrayIsStorageAlone) {
  TRecArray<string> record;
  record.Add(u"first item of the array");
  for (int i = 1; i < 65; ++i) record.Add(record.Value[0]);  // one of its own, while it grows
  EXPECT_EQ(161, record.Value.Length());
  record.Delete(65);
  record.Delete(-1);
  record.Delete(0);
  EXPECT_EQ(64, record.Size);
  record.FixLength();
  EXPECT_EQ(64, record.Value.Length());
  EXPECT_TRUE(std::all_of(record.Value.begin(), record.Value.end(),
                          [](const string& item) { return item == u"first item of the array"; }));
}

}  // namespace
}  // namespace Talvo
