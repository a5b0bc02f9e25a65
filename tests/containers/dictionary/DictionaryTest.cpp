// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/Talvo.Containers.Dictionary.h>

#include <tests/TestTypes.h>

namespace Talvo {
namespace {

using TCounts = TDictionary<string, int32_t>;
using TCount = TPair<string, int32_t>;
using TCountsRef = TRef<IDictionary<string, int32_t>>;
constexpr char Start[] = "a1 b2 c3";

bool Fail() {
  throw ERangeError(u"");
}
TCount Pair(u16string_view key, int32_t value) {
  return {string(key), value};
}

/// "a1 b2": pairs in their order.
template <class TPairs>
std::string Show(const TPairs& pairs) {
  std::string text;
  for (const auto& [key, value] : pairs) text += ' ' + ToUtf8(key) + std::to_string(value);
  return text.empty() ? text : text.substr(1);
}

TEST(DictionaryTest, VerbsChangeTheContentAndTellOfIt) {
  struct TCase {
    void (*Do)(const TCountsRef& d);
    const char* After;
    int Told;
    const char* Raises = "";
  };
  const TCase cases[] = {
      {[](auto& d) { d->Add(u"d", 4).Add(Pair(u"a", 9)); }, "a9 b2 c3 d4", 2},
      {[](auto& d) { d->AddPair(Pair(u"b", 2)).SetItem(string(u"d"), 4); }, "a1 b2 c3 d4", 2},
      {[](auto& d) { d->AddExclusive(u"d", 4).AddExclusive(u"a", 9); }, "a1 b2 c3 d4", 1,
       "EDuplicateKey"},
      {[](auto& d) { EXPECT_TRUE(d->Remove(u"x").IfRemove(u"b") && !d->IfRemove(u"b")); }, "a1 c3",
       1},
      {[](auto& d) { d->Remove(u"x", [](auto&) { Fail(); }).Remove(u"b", [](auto&) {}); }, "a1 c3",
       1},
      {[](auto& d) { d->Remove(u"b", TProc<int32_t>()); }, "a1 c3", 1},
      {[](auto& d) { EXPECT_EQ(Pair(u"b", 2), d->ExtractPair(u"b")); }, "a1 c3", 1},
      {[](auto& d) { EXPECT_EQ(Pair(u"x", 0), d->ExtractPair(u"x")); }, Start, 0},
      {[](auto& d) { d->RemoveOne([](auto& p) { return p.Value > 1; }); }, "a1 c3", 1},
      {[](auto& d) { d->RemoveAll([](auto& p) { return p.Value > 1; }); }, "a1", 1},
      {[](auto& d) { d->RemoveAll([](auto& p) { return p.Value > 3; }); }, Start, 0},
      {[](auto& d) { d->RemoveAll([](auto& p) { return p.Value < 3 || Fail(); }); }, "c3", 1,
       "ERangeError"},
      {[](auto& d) { d->Clear().Clear().TrimExcess(); }, "", 1},
      {[](auto& d) { As<IList>(d)->ClearValues(); }, "", 1},
      {[](auto& d) { EXPECT_EQ(4, d->GetOrAddValue(u"d", [] { return 4; })); }, "a1 b2 c3 d4", 1},
      {[](auto& d) { EXPECT_EQ(2, d->GetOrAddValue(u"b", [] { return 4; })); }, Start, 0},
      {[](auto& d) { As<IList>(d)->AddValue(TValue::From(Pair(u"b", 7))); }, "a1 b7 c3", 1},
      {[](auto& d) { As<IList>(d)->AddValue(TValue::From(7)); }, Start, 0, "EInvalidCast"},
      {[](auto& d) { d->Items(u"x"); }, Start, 0, "EKeyNotFound"},
      {[](auto& d) { d->GetOrAddValue(u"a", TFunc<int32_t>()); }, Start, 0, "EAssertionFailed"},
      {[](auto& d) { d->RemoveOne(TFunc<TCount, bool>()); }, Start, 0, "EAssertionFailed"},
      {[](auto& d) { d->ForItem(u"x", TProc<int32_t>()); }, Start, 0, "EAssertionFailed"},
      {[](auto&) { TCounts::Make(TCountsRef()); }, Start, 0, "EAssertionFailed"},
  };
  for (const TCase& c : cases) {
    SCOPED_TRACE(&c - cases);
    const TCountsRef d = TCounts::Make({{u"a", 1}, {u"b", 2}, {u"c", 3}});
    int told = 0;
    As<IChangeNotification>(d)->AddChangeNotification([&] { ++told; });
    const std::string raised = Raised([&] { c.Do(d); });
    EXPECT_EQ(c.Raises, raised.substr(0, raised.find(':')));
    EXPECT_EQ(c.After, Show(d));
    EXPECT_EQ(c.Told, told);
  }
}

TEST(DictionaryTest, ReadersAnswerWhatIsThere) {
  const TCountsRef d = TCounts::Make({{u"left", 1}, {u"right", 2}, {u"left", 3}});
  const u16string_view text = u"leftover";
  int32_t value = 9;
  EXPECT_TRUE(!d->GetValue(text, value) && value == 0);
  EXPECT_TRUE(d->GetValue(text.substr(0, 4), value) && value == 3 && d[u"right"] == 2);
  EXPECT_TRUE(d->ContainsKey(u"left") && d->ContainsValue(3) && !d->ContainsValue(1));
  EXPECT_TRUE(d->GetValueOrDefault(text) == 0 && d->GetValueOrDefault(text, 7) == 7);
  string seen;
  TRef<IArrayList<string>> keys;
  TRef<IArrayList<int32_t>> values;
  d->ForItem(u"left", [&](int32_t) { seen += u"left:"; })
      .ForItem(
          text, [](int32_t) { Fail(); }, [&] { seen += u"none:"; })
      .ForKeys([&](const string& key) { seen += key; })
      .ForValues([&](int32_t n) { seen += n == 2 ? u":2" : u":3"; })
      .GetKeys(keys)
      .GetValues(values);
  EXPECT_EQ(u"left:none:leftright:3:2", seen);
  EXPECT_TRUE(keys[1] == u"right" && values[1] == 2 && keys->Count() + values->Count() == 4);
  EXPECT_EQ("right2", Show(d->Query()->Filter([](auto& p) { return p.Value == 2; })));
  EXPECT_EQ(d, d->Query()->ForEach([](const TCount&) {}));
  for (const auto& made :
       {TCounts::Make(d), TCounts::Make(*d), TCounts::Make(d->GetPairs()),
        TCounts::Make(d->GetPairs()->ToArray()), TCounts::Make(d->GetEnumerator())}) {
    EXPECT_EQ("left3 right2", Show(*made));
  }
}

TEST(DictionaryTest, ItemsMayUseAndDropTheDictionaryAsTheyEnd) {
  using TItems = IDictionary<string, TRef<TWatched>>;
  void (*const cases[])(TItems&) = {
      [](TItems& d) { d.SetItem(u"b", nullptr); },
      [](TItems& d) { d.IfRemove(u"b"); },
      [](TItems& d) { d.ExtractPair(u"b"); },
      [](TItems& d) { d.DoRemoveIf([](auto& p) { return p.Key == u"b"; }, /*isOnce*/ false); },
      [](TItems& d) { d.DoClear(); },
  };
  for (const auto& letGo : cases) {
    for (const bool isLast : {false, true}) {
      SCOPED_TRACE(2 * (&letGo - cases) + isLast);
      int ended = 0, told = 0;
      auto d = TDictionary<string, TRef<TWatched>>::Make({{u"a", nullptr}});
      As<IChangeNotification>(d)->AddChangeNotification([&] { ++told; });
      const auto atEnd = [&] {
        ++ended;
        d->Remove(u"a");
        for (char16_t c = u'c'; c < u'z'; ++c) d->Add(string(20, c), nullptr);
        if (isLast) d = nullptr;
      };
      d->Add(u"b", Create<TWatched>(0, atEnd));
      letGo(*d);
      EXPECT_TRUE(ended == 1 && told > 2 && isLast == !d);
    }
  }
}

TEST(DictionaryTest, CallbacksMayChangeTheDictionary) {
  const string longKey(40, u'k');
  const TCountsRef d = TCounts::Make({{u"a", 1}, {u"b", 2}});
  d->Remove(d->GetDictionary().begin()->Key, [&](const int32_t& value) {
    EXPECT_TRUE(d->ContainsKey(u"a") && d->Clear().Count() == 0 && value == 1);
  });
  EXPECT_EQ(5, d->GetOrAddValue(longKey, [&] { return d->Add(longKey, 4).Count() + 4; }));
  EXPECT_EQ(5, d[longKey]);
  d->RemoveAll([&](const TCount&) { return d->Clear().Count() == 0; });
  d->Add(u"a", 1).Add(u"b", 2).RemoveAll([&](const TCount&) {
    if (d->Count() > 1) d->Clear().Add(u"c", 3);
    return true;
  });
  EXPECT_EQ("", Show(d));
  As<IChangeNotification>(d)->AddChangeNotification([&] { d->Add(u"told", d->Count()); });
  As<IChangeNotification>(d)->AddChangeNotification([] { Fail(); });
  EXPECT_THROW(d->Add(u"a", 1), ERangeError);
  EXPECT_EQ("a1 told1", Show(d));
}

TEST(DictionaryTest, LoopsSurviveEveryChange) {
  struct TCase {
    void (*Body)(TCountsRef& d, const TCount& at);
    const char* Met;
  };
  const TCase cases[] = {
      {[](auto& d, auto& at) { d->Remove(at.Key); }, Start},
      {[](auto& d, auto&) { d->Remove(u"a").Remove(u"b"); }, "a1 c3"},
      {[](auto& d, auto& at) { at.Value == 2 ? d->Add(u"d", 4).Add(u"c", 6) : *d; }, "a1 b2 c6 d4"},
      {[](auto& d, auto& at) { at.Value == 2 ? d->Clear() : *d; }, "a1 b2"},
      {[](auto& d, auto& at) { at.Value == 2 ? d->Clear().Add(u"d", 4) : *d; }, "a1 b2 d4"},
      {[](auto& d, auto&) { d = nullptr; }, Start},
  };
  for (const TCase& c : cases) {
    SCOPED_TRACE(&c - cases);
    TCountsRef looped = TCounts::Make({{u"a", 1}, {u"b", 2}, {u"c", 3}});
    TCountsRef walked = TCounts::Make(looped);
    std::vector<TCount> met, metByEnumerator;
    for (const TCount& at : looped) c.Body(looped, TCount(met.emplace_back(at)));
    for (const auto walk = walked->GetEnumerator(); walk->MoveNext();) {
      c.Body(walked, TCount(metByEnumerator.emplace_back(walk->Current())));
    }
    EXPECT_EQ(c.Met, Show(met));
    EXPECT_EQ(met, metByEnumerator);
  }
}

TEST(DictionaryTest, EnumeratorsKnowWhereTheyStand) {
  const TCountsRef d = TCounts::Make({{u"a", 1}, {u"b", 2}});
  const auto walk = d->GetEnumerator();
  const auto values = As<IList>(d)->GetValueEnumerator();
  const auto isNowhere = [&] {
    return Raised([&] { walk->Current(); }).starts_with("ERangeError");
  };
  EXPECT_TRUE(isNowhere() && walk->MoveNext() && values->MoveNext() && walk->Size() == 2);
  EXPECT_EQ(*values->Current().Peek<TCount>(), walk->Current());
  for (char16_t c = u'c'; c < u'z'; ++c) d->Add(string(20, c), 0).Add(u"a", 5);
  EXPECT_EQ(Pair(u"a", 5), walk->Current());
  EXPECT_TRUE(d->IfRemove(u"a") && isNowhere());
  while (walk->MoveNext()) d->Remove(walk->Current().Key);
  EXPECT_TRUE(isNowhere() && d->Add(u"c", 3).Count() == 1);
  walk->Reset();
  EXPECT_TRUE(walk->MoveNext() && walk->Current().Key == u"c" && !walk->MoveNext());
}

TEST(DictionaryTest, AFailedCopyLeavesTheDictionaryAsItWas) {
  using TCopies = TRef<IDictionary<int32_t, TCopied>>;
  const auto changes = std::to_array<void (*)(TCopies&)>(
      {[](auto& d) { d->Add(1, 9); }, [](auto& d) { d->Add(3, 9); },
       [](auto& d) { d->Remove(1, [](const TCopied&) {}); }, [](auto& d) { d->ExtractPair(1); },
       [](auto& d) { d->RemoveOne([](auto& p) { return p.Key == 2; }); },
       [](auto& d) { d->GetPairs(); }});
  for (const auto& change : changes) {
    SCOPED_TRACE(&change - changes.data());
    ForEveryFailure<TCopied>(
        [] { return TCopies(TDictionary<int32_t, TCopied>::Make()->Add(1, 1).Add(2, 2)); },
        [](const TCopies& d) { return std::pair(d[1].Number(), d[2].Number() + 10 * d->Count()); },
        change);
  }
}

}  // namespace
}  // namespace Talvo
