// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/elements/MultiProc.h>

#include <gtest/gtest.h>
#include <optional>
#include <talvo/runtime/Exceptions.h>

namespace Talvo {
namespace {

template <class T>
concept RemovesLambdas = requires(TMultiProc<T>& event) {
  event.Remove([](T) {});
};
static_assert(!RemovesLambdas<int>);

/// An event whose subscribers write their letters down.
class MultiProcTest : public ::testing::Test {
 protected:
  TProc<> Letter(char letter, TProc<> andThen = nullptr) {
    return [this, letter, andThen] {
      FLetters += letter;
      if (andThen) andThen();
    };
  }
  std::string Notify(const TMultiProc<>& event) {
    FLetters.clear();
    event.Notify();
    return FLetters;
  }

  std::string FLetters;
  TMultiProc<> FEvent;
};

TEST_F(MultiProcTest, CallsInOrderAndAsOftenAsAdded) {
  EXPECT_EQ(Notify(FEvent), "");
  EXPECT_FALSE(FEvent.Add(nullptr));
  EXPECT_FALSE(FEvent.Assigned());
  const TProc<> a = FEvent.Add(Letter('a')), b = FEvent.Add(Letter('b'));
  FEvent.Add(a);
  EXPECT_EQ(Notify(FEvent), "aba");
  FEvent.Remove(a);
  EXPECT_EQ(Notify(FEvent), "ba");
  FEvent.Remove(Letter('b'));
  EXPECT_EQ(Notify(FEvent), "ba") << "another function object";
}

TEST_F(MultiProcTest, CopiesShareOneList) {
  TMultiProc<> copy(FEvent), later;
  EXPECT_TRUE(FEvent.Assigned()) << "copying makes the list to share";
  copy.Add(Letter('a'));
  EXPECT_EQ(Notify(FEvent), "a");
  later = FEvent;
  const TProc<> b = later.Add(Letter('b'));
  EXPECT_EQ(Notify(copy), "ab");
  copy.Clear();
  EXPECT_FALSE(copy.Assigned());
  EXPECT_EQ(Notify(copy), "");
  EXPECT_EQ(Notify(FEvent), "ab") << "others keep what one lets go";
  FEvent.Remove(b);
  EXPECT_EQ(Notify(later), "a");
  const TMultiProc<> moved(std::move(later));
  EXPECT_EQ(Notify(moved), "a");
}

TEST_F(MultiProcTest, DropsTheListWithItsLastSubscriberAndSharesTheNext) {
  TMultiProc<> copy(FEvent);
  const TProc<> a = FEvent.Add(Letter('a'));
  const auto list = FEvent.NotifyList();
  EXPECT_EQ(list->Count(), 1);
  EXPECT_TRUE(copy.GetNotifyList() == list);
  copy.Remove(a);
  EXPECT_TRUE(FEvent.Assigned());
  EXPECT_FALSE(FEvent.NotifyList() == list);
  FEvent.NotifyList()->Add(a);
  EXPECT_EQ(Notify(FEvent), "") << "an empty list is handed out and not kept";
  FEvent.Add(a);
  EXPECT_EQ(Notify(copy), "a");
  copy.NotifyList()->Add(a);
  EXPECT_EQ(Notify(FEvent), "aa") << "a list that is kept is the real one";
}

TEST_F(MultiProcTest, RemovesAllOfAnother) {
  TMultiProc<> other;
  const TProc<> a = FEvent.Add(Letter('a')), b = FEvent.Add(Letter('b'));
  FEvent.Add(a).Invoke();
  FEvent.Remove(other);
  EXPECT_EQ(Notify(FEvent), "aba");
  other.Add(a);
  other.Add(Letter('c'));
  FEvent.Remove(other);
  EXPECT_EQ(Notify(FEvent), "ba");
  FEvent.Remove(TMultiProc<>(FEvent));
  EXPECT_EQ(Notify(FEvent), "") << "all of itself";
  other.Remove(b);
  EXPECT_EQ(Notify(other), "ac");
}

TEST_F(MultiProcTest, SubscribersMayChangeTheListAndEndIt) {
  struct TCase {
    const char* Removes;  // who, and whom
    const char *First, *Second;
  };
  for (const TCase& test :
       {TCase{"aa", "abc", "bc"}, TCase{"bb", "abc", "ac"}, TCase{"cc", "abc", "ab"},
        TCase{"ba", "abc", "bc"}, TCase{"bc", "ab", "ab"}, TCase{"ac", "ab", "ab"}}) {
    SCOPED_TRACE(test.Removes);
    TMultiProc<> event;
    TProc<> procs[3];
    for (char letter : {'a', 'b', 'c'}) {
      TProc<> remove;
      if (letter == test.Removes[0]) {
        remove = [&] { event.Remove(procs[test.Removes[1] - 'a']); };
      }
      procs[letter - 'a'] = event.Add(Letter(letter, remove));
    }
    EXPECT_EQ(Notify(event), test.First);
    EXPECT_EQ(Notify(event), test.Second);
  }

  // What is added meanwhile is heard; a round inside the round is complete.
  bool isNested = false;
  FEvent.Add(Letter('a', [&] {
    if (std::exchange(isNested, true)) return;
    FEvent.Add(Letter('z'));
    FEvent.Notify();
  }));
  FEvent.Add(Letter('b'));
  EXPECT_EQ(Notify(FEvent), "aabzbz");

  std::optional<TMultiProc<>> ended(std::in_place);
  ended->Add(Letter('a', [&] { ended.reset(); }));
  ended->Add(Letter('b'));
  FLetters.clear();
  ended->Notify();
  EXPECT_EQ(FLetters, "ab");
}

TEST_F(MultiProcTest, FailuresReachTheCaller) {
  const TProc<> fails = FEvent.Add(Letter('a', [] { throw EConvertError(u"no"); }));
  FEvent.Add(Letter('b'));
  FLetters.clear();
  EXPECT_THROW(FEvent.Notify(), EConvertError);
  EXPECT_EQ(FLetters, "a");
  FEvent.Remove(fails);
  EXPECT_EQ(FEvent.NotifyList()->Count(), 1) << "nobody walks the list any more";
  EXPECT_EQ(Notify(FEvent), "b");
}

TEST(MultiProcArgumentsTest, ReachEverySubscriberUnchanged) {
  TMultiProc<int32_t, string, TRef<IInterface>, double> event;
  string text;
  for (int i = 0; i < 2; ++i) {
    event.Add(
        [&](int32_t number, const string& name, const TRef<IInterface>& object, double value) {
          text += name + (object ? u"!" : u"?");
          EXPECT_EQ(number + value, 3.5);
        });
  }
  event.Notify(1, u"abc", nullptr, 2.5);
  EXPECT_EQ(text, u"abc?abc?");
}

}  // namespace
}  // namespace Talvo
