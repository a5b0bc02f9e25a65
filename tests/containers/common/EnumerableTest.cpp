// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/common/Enumerable.h>

#include <tests/containers/Sources.h>

namespace Talvo {
namespace {

TEST(EnumerableTest, ArrayEnumeratorWalksABuffer) {
  const TArray<string> items{u"a", u"b"};
  const auto walk = Collection::GetEnumerator(items);
  EXPECT_EQ(2, walk->Size());
  EXPECT_THROW(walk->Current(), ERangeError) << "it stands before the first item";
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(walk->MoveNext());
    EXPECT_EQ(u"a", walk->Current());
    EXPECT_EQ(nullptr, walk->GetCurrent()) << "text is no object";
    EXPECT_TRUE(walk->MoveNext());
    EXPECT_FALSE(walk->MoveNext());
    EXPECT_FALSE(walk->MoveNext());
    EXPECT_EQ(u"b", walk->Current());
    walk->Reset();
  }
  EXPECT_THROW(Collection::GetEnumerator(TArray<string>()), ERangeError);
  EXPECT_FALSE(Collection::GetEnumerator<string>(nullptr, 0)->MoveNext());
  EXPECT_THROW(Collection::GetEnumerator(items.Data(), -1), ERangeError);
  EXPECT_THROW(Collection::GetEnumerator<string>(nullptr, 1), EAssertionFailed);

  int count = 0;
  const auto host = Create<Collection::TSizeEnumeratorHost<string>>(items.Data(), 2);
  for (const string& item : host) count += static_cast<int>(item.size());
  EXPECT_EQ(2, count);
}

TEST(EnumerableTest, CurrentAsObject) {
  const auto object = Create<TWatched>();
  const TArray<TObject*> objects{object.Get(), nullptr};
  const TArray<TRef<IWatched>> interfaces{object, nullptr};
  const auto expect = [&](TRef<IEnumerator<>> walk) {
    EXPECT_TRUE(walk->MoveNext());
    EXPECT_EQ(object.Get(), walk->GetCurrent());
    EXPECT_TRUE(walk->MoveNext());
    EXPECT_EQ(nullptr, walk->GetCurrent());
  };
  expect(Collection::GetEnumerator(objects));
  expect(Collection::GetEnumerator(interfaces));
}

using TWalk = TOwnedWalk<int32_t>;

TEST(EnumerableTest, DelegateOwnsItsEnumerator) {
  const auto make = [] {
    return Create<TEnumeratorDelegate<int32_t>>(Create<TWalk>(Sequence<int32_t>(3)));
  };
  {
    const TRef<IEnumerator<int32_t>> unused = make(), walk = make();
    walk->MoveNext();
    walk->Reset();  // does nothing
    walk->MoveNext();
    EXPECT_EQ(1, walk->Current());
    EXPECT_EQ(2, TWalk::Live);
  }
  EXPECT_EQ(0, TWalk::Live);
  EXPECT_THROW(Create<TEnumeratorDelegate<int32_t>>(nullptr), EAssertionFailed);
}

TEST(EnumerableTest, SizeWrapperGetsANewEnumeratorAtReset) {
  int made = 0;
  const auto make = [&]() -> TOwn<TEnumerator<int32_t>> {
    if (++made == 3) return nullptr;
    return Create<TWalk>(Sequence<int32_t>(2));
  };
  auto walk = Create<TEnumeratorSizeWrapper<int32_t>>(make, [] { return 2; });
  EXPECT_EQ(1, made);
  EXPECT_TRUE(walk->MoveNext() && walk->MoveNext() && !walk->MoveNext());
  walk->Reset();
  EXPECT_TRUE(TWalk::Live == 1 && walk->MoveNext() && walk->Size() == 2);
  walk->Reset();
  EXPECT_THROW(walk->MoveNext(), EAssertionFailed);
  walk = nullptr;
  EXPECT_EQ(0, TWalk::Live);
}

}  // namespace
}  // namespace Talvo
