// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Dictionary.h>

#include <tests/TestTypes.h>

#include <optional>

namespace Talvo {
namespace {

using Rtl::TDictionary;

/// The items in their order; each is found by its key too.
template <class K, class V>
std::vector<std::pair<K, V>> ItemsOf(const TDictionary<K, V>& dictionary) {
  std::vector<std::pair<K, V>> items;
  for (const auto& [key, value] : dictionary) {
    EXPECT_EQ(&value, dictionary.Find(key));
    items.emplace_back(key, value);
  }
  return items;
}

// A random sequence of operations, beside a model of them.

struct TSameHash {
  size_t Number;
  int HashValue() const { return 7; }
  bool operator==(const TSameHash&) const = default;
};

template <class K>
class DictionaryModel : public testing::Test {};
using TModelKeys = testing::Types<uint64_t, string, TSameHash>;
TYPED_TEST_SUITE(DictionaryModel, TModelKeys);

TYPED_TEST(DictionaryModel, BehavesLikeAList) {
  TALVO_SEEDED(random);
  using TMap = TDictionary<TypeParam, int32_t>;
  for (const size_t range : {4, 12, 50, 2000}) {
    TMap map;
    std::vector<std::pair<TypeParam, int32_t>> model;
    auto at = model.end();
    TypeParam key{};
    bool isHere;
    int32_t value, held;
    const auto erase = [&](bool isAsExpected) {
      EXPECT_TRUE(isAsExpected);
      if (isHere) model.erase(at);
    };
    const std::function<void()> verbs[] = {
        [&] {
          EXPECT_EQ(!isHere, map.AddOrSetValue(TypeParam(key), value));
          isHere ? void(at->second = value) : void(model.emplace_back(key, value));
        },
        [&] {
          const auto added = map.TryAddHashed(map.HashOf(key), key, value);
          EXPECT_TRUE(added.IsNew != isHere && added.Value == (isHere ? held : value));
          if (!isHere) model.emplace_back(key, value);
        },
        [&] { erase(map.Remove(key) == isHere); },
        [&] {
          erase(map.ExtractPair(key) == TPair{key, held});
        },
        [&] { EXPECT_TRUE(map.TryGetValue(key, value) == isHere && value == held); },
        [&] { map.Reserve(static_cast<int32_t>(random() % range)), map = TMap(map); },
        [&] { map.TrimExcess(); },
        [&] { random() % 64 == 0 ? (map.Clear(), model.clear()) : void(); }};
    for (int step = 0; step < 4000 && !this->HasFailure(); ++step) {
      const size_t number = random() % range;
      if constexpr (std::is_same_v<TypeParam, string>) {
        key = string(number % 61, u'k') + static_cast<char16_t>(number);
      } else {
        key = {number};
      }
      value = static_cast<int32_t>(random());
      at = std::find_if(model.begin(), model.end(), [&](auto& item) { return item.first == key; });
      isHere = at != model.end();
      held = isHere ? at->second : 0;
      ASSERT_EQ(isHere, map.ContainsKey(key));
      verbs[random() % std::size(verbs)]();
      if (step % 50 != 0) continue;
      ASSERT_EQ(model, ItemsOf(map));
      ASSERT_EQ(static_cast<int32_t>(model.size()), map.Count());
      int64_t position = -1;
      for (const auto& item : model) ASSERT_EQ(map.Find(item.first), &map.Next(position)->Value);
      ASSERT_EQ(nullptr, map.Next(position));
    }
  }
}

// What raises leaves everything as it was.

template <class T>
class DictionaryFailure : public testing::Test {};
using TCountedKinds = testing::Types<TCounted, TCopied>;
TYPED_TEST_SUITE(DictionaryFailure, TCountedKinds);

TYPED_TEST(DictionaryFailure, LeavesTheDictionaryAsItWas) {
  using T = TypeParam;
  using TMap = TDictionary<T, T>;
  const auto changes = std::to_array<void (*)(TMap&)>(
      {[](TMap& map) { map.Add(T(9), T(9)); },
       [](TMap& map) { map.Add(map.begin()->Value, map.begin()->Key); },
       [](TMap& map) { map.AddOrSetValue(T(0), map.begin()->Key); },
       [](TMap& map) { map.Remove(T(0)); }, [](TMap& map) { map.ExtractPair(T(0)); },
       [](TMap& map) { map = TMap(map); }, [](TMap& map) { map.TrimExcess(); },
       [](TMap& map) { map.Reserve(100); }});
  for (const auto& change : changes) {
    for (const int count : {1, 3, 4, 8, 13, 14, 15, 28}) {  // on and beside the steps of growth
      SCOPED_TRACE(testing::Message() << "change " << &change - changes.data() << " of " << count);
      const auto make = [count] {
        TMap map;
        for (int key = 0; key < count; ++key) map.Add(T(100 * key), T(-1));
        return map;
      };
      ForEveryFailure<T>(make, ItemsOf<T, T>, change);
    }
  }
  EXPECT_EQ(0, T::Live());
}

TEST(DictionaryTest, DestructorsMayUseTheDictionary) {
  using TMap = TDictionary<int32_t, TRef<IWatched>>;
  const auto operations = std::to_array<void (*)(TMap&)>(
      {[](TMap& map) { EXPECT_TRUE(map.Remove(2)); },
       [](TMap& map) { map.AddOrSetValue(2, nullptr); },
       [](TMap& map) { EXPECT_EQ(2, map.ExtractPair(2).Key); }, [](TMap& map) { map.Clear(); }});
  for (const auto& operation : operations) {
    for (const int32_t count : {3, 8, 14, 100}) {
      SCOPED_TRACE(testing::Message() << &operation - operations.data() << " with " << count);
      TMap* target;
      int32_t left = 5;
      const std::function<void()> onEnd = [&] {  // leaves another one like it there
        target->Remove(1);
        for (int32_t key = 1000; key < 1040; ++key) target->TryAdd(key);
        if (left-- > 0) target->AddOrSetValue(2000 + left, Create<TWatched>(0, onEnd));
      };
      TMap map;
      target = &map;
      for (int32_t key = 0; key < count; ++key) map.TryAdd(key);
      map.AddOrSetValue(2, Create<TWatched>(0, onEnd));
      operation(map);
      EXPECT_TRUE(!map.ContainsKey(1) && map.ContainsKey(1039));
      EXPECT_EQ(map.Count(), std::distance(map.begin(), map.end()));
    }  // and the dictionary ends with some of them in it
  }
  EXPECT_EQ(0, TWatched::Live);
}

// Walks.

static_assert(std::forward_iterator<TDictionary<int32_t, string>::TIterator>);

TEST(DictionaryTest, ALoopMayRemoveWhereItIs) {
  for (const int32_t count : {1, 8, 50}) {
    TDictionary<int32_t, int32_t> map;
    for (int32_t key = 0; key < count; ++key) map.Add(key, key);
    int32_t met = 0;
    for (const auto& item : map) {
      EXPECT_EQ(met++, item.Key);
      if (item.Key % 3 != 0) map.Remove(item.Key);
    }
    EXPECT_EQ(count, met);
    EXPECT_EQ((count + 2) / 3, map.Count());
  }
}

TEST(DictionaryTest, NextMissesNothing) {
  // Work that makes work: each item that is met goes and leaves two others until there are enough.
  for (const int32_t limit : {10, 100, 3000}) {
    TDictionary<int32_t, int32_t> map;
    int64_t position = -1;
    EXPECT_EQ(nullptr, map.Next(position));
    map.Add(-1, 0);  // stays, and may be met again
    map.Add(0, 0);
    std::vector<int> met(static_cast<size_t>(limit));
    int32_t added = 1;
    while (const auto* item = map.Next(position)) {
      const int32_t key = item->Key;
      if (key < 0) continue;
      ++met[static_cast<size_t>(key)];
      map.Remove(key);
      for (int more = 0; more < 2 && added < limit; ++more) map.Add(added++, 0);
    }
    EXPECT_EQ(limit, std::count(met.begin(), met.end(), 1));
    map.Clear();
    map.Add(5, 0);
    EXPECT_EQ(5, map.Next(position)->Key) << "a walk that was at the end goes on";
  }
}

// Keys.

template <class T>
struct TCountingAllocator : std::allocator<T> {
  static inline int Count = 0;
  template <class U>
  struct rebind {
    using other = TCountingAllocator<U>;
  };
  T* allocate(size_t size) {
    ++Count;
    return std::allocator<T>::allocate(size);
  }
};

TEST(DictionaryTest, TextIsCopiedOnlyWhenItIsANewKey) {
  using TAllocator = TCountingAllocator<char16_t>;
  TDictionary<std::basic_string<char16_t, std::char_traits<char16_t>, TAllocator>, int32_t> map;
  const u16string_view text = u"a text that needs memory of its own";
  map.Add(text, 1);
  map.Add(u"a literal that needs memory of its own", 2);
  EXPECT_EQ(2, TAllocator::Count);
  for (char16_t unit = 0; unit < 20; ++unit) map.Add(u16string_view(&unit, 1), 3);
  EXPECT_EQ(1, map.GetItem(text));
  EXPECT_EQ(2, map.GetItem(u"a literal that needs memory of its own"));
  EXPECT_FALSE(map.Remove(text.substr(1)));
  EXPECT_FALSE(map.AddOrSetValueHashed(map.HashOf(text), text, 2));
  EXPECT_EQ(2, map.TryAdd(text, 3).Value);
  EXPECT_EQ(2, TAllocator::Count);
}

template <class C>
void ExpectEveryUnitToCount() {
  using string = std::basic_string<C>;
  for (size_t length = 1; length <= 130; ++length) {
    const string text(length, 'x');
    const string longer = C('!') + text;
    const auto moved = std::basic_string_view<C>(longer).substr(1);  // at another alignment
    EXPECT_TRUE(KeysEqual<string>(text, moved));
    EXPECT_EQ(THash<string>::Of(text), THash<string>::Of(moved));
    EXPECT_NE(THash<string>::Of(text), THash<string>::Of(longer));
    for (size_t at = 0; at < length; ++at) {
      string other = text;
      other[at] ^= 1;
      EXPECT_FALSE(KeysEqual<string>(text, other)) << length << " at " << at;
      EXPECT_NE(THash<string>::Of(text), THash<string>::Of(other)) << length << " at " << at;
    }
  }
}

TEST(DictionaryTest, TextDiffersByEveryUnit) {
  ExpectEveryUnitToCount<char>();
  ExpectEveryUnitToCount<char16_t>();
}

template <class K>
void ExpectDistinct(std::initializer_list<K> keys) {
  TDictionary<K, size_t> map;
  for (const K& key : keys) EXPECT_TRUE(map.TryAdd(key, map.Count()).IsNew);
  for (const K& key : keys)
    EXPECT_EQ(&key - keys.begin(), static_cast<ptrdiff_t>(map.GetItem(key)));
}

TEST(DictionaryTest, TakesAnyKindOfKey) {
  struct TByGetHash {
    int Number;
    int GetHash() const { return Number; }
    bool operator==(const TByGetHash&) const = default;
  };
  enum class TColour : uint8_t { Red, Blue = 200 };
  const int32_t numbers[2] = {};
  ExpectDistinct<TByGetHash>({{1}, {2}, {-1}});
  ExpectDistinct<std::optional<int>>({std::nullopt, 0, 1});  // by std::hash
  ExpectDistinct({TColour::Red, TColour::Blue});
  ExpectDistinct({&numbers[0], &numbers[1], static_cast<const int32_t*>(nullptr)});
  ExpectDistinct<u16string_view>({u"", u"\xD800", u16string_view(u"\0", 1)});
  ExpectDistinct<bool>({true, false});

  const double nan = std::numeric_limits<double>::quiet_NaN();
  ExpectDistinct({0.0, nan, 1.0, -1.0, std::numeric_limits<double>::infinity()});
  TDictionary<double, int> map;
  map.Add(0, 1);
  map.Add(nan, 2);
  EXPECT_EQ(1, map.GetItem(-0.0));
  EXPECT_EQ(2, map.GetItem(-nan));
}

// Costs that grow with the size would be faults, not slowness: they are counted, not timed.

struct TWatchedKey {
  uint64_t Bits;
  static inline int64_t Comparisons = 0;
  uint64_t HashValue() const { return Bits; }
  friend bool operator==(const TWatchedKey& left, const TWatchedKey& right) {
    ++Comparisons;
    return left.Bits == right.Bits;
  }
};

TEST(DictionaryTest, NoPatternOfKeysCrowds) {
  constexpr uint64_t count = 20000;
  for (const uint32_t shift : {0, 1, 4, 12, 20, 32, 44, 48}) {
    SCOPED_TRACE(shift);
    TDictionary<TWatchedKey, int32_t> map;
    TWatchedKey::Comparisons = 0;
    for (uint64_t key = 0; key < count; ++key) map.Add(TWatchedKey{key << shift}, 0);
    for (uint64_t key = 0; key < count; ++key) map.Find(TWatchedKey{key << shift | 1ull << 63});
    EXPECT_LT(TWatchedKey::Comparisons, static_cast<int64_t>(count / 50));
  }
}

struct TMoveCounter {
  static inline int64_t Moves = 0;
  TMoveCounter() = default;
  TMoveCounter(TMoveCounter&&) noexcept { ++Moves; }
};

TEST(DictionaryTest, EndlessChangeTakesNoMoreMemoryAndNoMoreTime) {
  using TMap = TDictionary<int32_t, TMoveCounter>;
  constexpr int32_t changes = 30000;
  for (const bool isOldestRemoved : {true, false}) {
    for (const int32_t held : {1, 7, 100, 1000}) {
      SCOPED_TRACE(testing::Message() << "oldest: " << isOldestRemoved << ", held: " << held);
      TMap map;
      for (int32_t key = 0; key < held; ++key) map.TryAdd(key);
      TMoveCounter::Moves = 0;
      ptrdiff_t furthest = 0;
      for (int32_t key = held; key < held + changes; ++key) {
        const auto* newest = reinterpret_cast<const char*>(&map.TryAdd(key).Value);
        furthest = std::max(furthest, newest - reinterpret_cast<const char*>(&*map.begin()));
        EXPECT_TRUE(map.Remove(isOldestRemoved ? key - held : key));
      }
      EXPECT_EQ(held, map.Count());
      EXPECT_LT(furthest / static_cast<ptrdiff_t>(sizeof(TMap::TItem)), 4 * held + 8);
      EXPECT_LT(TMoveCounter::Moves, 4 * changes);
    }
  }
}

TEST(DictionaryTest, ReservingOneByOneIsNoSlower) {
  TDictionary<int32_t, TMoveCounter> map;
  TMoveCounter::Moves = 0;
  for (int32_t key = 0; key < 10000; ++key) {
    map.Reserve(key + 1);
    map.TryAdd(key);
  }
  EXPECT_LT(TMoveCounter::Moves, 4 * 10000);
}

// The rest.

TEST(DictionaryTest, RaisesWhatItSays) {
  TDictionary<string, int32_t> map;
  map.Add(u"left", 1);
  EXPECT_THROW(map.Add(u"left", 2), EDuplicateKey);
  EXPECT_THROW(map.GetItem(u"right"), EKeyNotFound);
  EXPECT_EQ(1, map.GetItem(u"left"));
  constexpr uint32_t most = INT32_MAX;
  EXPECT_EQ(most, Detail::TDictionaryMemory::GrownCapacity(most - 1));
  EXPECT_THROW(Detail::TDictionaryMemory::GrownCapacity(most), EIntOverflow);
}

TEST(DictionaryTest, ArgumentsMayStandInTheDictionary) {
  for (int32_t count = 1; count <= 30; ++count) {  // some of them full
    TDictionary<string, string> map;
    for (int32_t key = 0; key < count; ++key) {
      map.Add(string(40, u'x') + static_cast<char16_t>(key), u"");
    }
    map.AddOrSetValue(map.begin()->Key, map.begin()->Key);
    map.AddOrSetValue(u"new", map.begin()->Value);
    EXPECT_TRUE(map.ContainsValue(map.GetItem(u"new")));
    EXPECT_FALSE(map.TryAdd(*map.Find(u"new"), u"held").IsNew);
    string name = u"new";
    EXPECT_TRUE(map.TryGetValue(name, name));
    EXPECT_TRUE(map.begin()->Key == name && map.Remove(map.begin()->Key));
    EXPECT_FALSE(map.ContainsKey(name));
  }
}

TEST(DictionaryTest, MovesAndAlignsWhatItHolds) {
  struct alignas(64) TWide {
    std::unique_ptr<int32_t> Owned;
  };
  TDictionary<int32_t, TWide> map;
  map.Add(0, TWide{});
  map.Reserve(100);
  const TWide* first = map.Find(0);
  EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(first) % 64);
  for (int32_t key = 1; key < 100; ++key) map.Add(key, TWide{std::make_unique<int32_t>(key)});
  EXPECT_EQ(first, map.Find(0));
  TDictionary<int32_t, TWide> taken = std::move(map);
  EXPECT_EQ(0, map.Count());
  map.TryAdd(5);
  map = std::move(taken);
  EXPECT_EQ(42, *map.ExtractPair(42).Value.Owned);
  EXPECT_EQ(99, map.Count());
}

}  // namespace
}  // namespace Talvo
