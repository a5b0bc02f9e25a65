// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/list/ChangeNotify.h>

#include <array>
#include <map>
#include <tests/TestTypes.h>
#include <thread>

namespace Talvo {
namespace {

template <class S>
concept RemovesLambdas = requires(S& subject) {
  subject.RemoveChangeNotification([] {});
};
static_assert(!RemovesLambdas<IChangeNotification> && !RemovesLambdas<IChangeNotifySupport> &&
              !RemovesLambdas<TChangeNotifySupport> &&
              !RemovesLambdas<TInterfacedChangeNotifyObject<>>);

class TSubject : public TInterfacedChangeNotifyObject<> {
 public:
  const TRef<IChangeNotifySupport>& Support() const { return FChangeNotifySupport; }
};

/// A subject whose subscribers write their letters down.
class ChangeNotifyTest : public ::testing::Test {
 protected:
  TProc<> Letter(char letter, TProc<> andThen = nullptr) {
    return [this, letter, andThen] {
      FLetters += letter;
      if (andThen) andThen();
    };
  }
  TProc<> Subscribe(char letter, TProc<> andThen = nullptr) {
    return FSubject->AddChangeNotification(Letter(letter, andThen));
  }
  /// What is written down during a change.
  std::string Change() {
    FLetters.clear();
    FSubject->ChangeNotify();
    return FLetters;
  }

  std::string FLetters;
  TRef<TSubject> FSubject = Create<TSubject>();
};

TEST_F(ChangeNotifyTest, CallsInOrderAndAsOftenAsAdded) {
  EXPECT_EQ(Change(), "");
  const TProc<> a = Subscribe('a'), b = Subscribe('b');
  EXPECT_TRUE(FSubject->AddChangeNotification(a) == a);
  EXPECT_EQ(Change(), "aba");
  FSubject->RemoveChangeNotification(a);
  EXPECT_EQ(Change(), "ba");
  FSubject->RemoveChangeNotification(Letter('b'));
  EXPECT_EQ(Change(), "ba") << "another function object";
}

TEST_F(ChangeNotifyTest, CostsNothingWithoutSubscribers) {
  EXPECT_FALSE(FSubject->AddChangeNotification(nullptr));
  EXPECT_FALSE(FSubject->AddDestroyNotification(nullptr));
  EXPECT_FALSE(FSubject->Support());
  const TProc<> a = Subscribe('a'), b = FSubject->AddDestroyNotification(Letter('b'));
  const TRef<IChangeNotifySupport> support = FSubject->Support();
  FSubject->RemoveChangeNotification(a);
  EXPECT_TRUE(FSubject->Support() == support);
  FSubject->RemoveDestroyNotification(b);
  EXPECT_FALSE(FSubject->Support());
  FSubject->RemoveDestroyNotification(b);
  EXPECT_TRUE(support->RemoveChangeNotification(a)) << "nobody subscribes";
  support->AddDestroyNotification(b);
  EXPECT_FALSE(support->RemoveChangeNotification(a));
}

TEST_F(ChangeNotifyTest, SubscribersMayUnsubscribe) {
  // Who removes whom; what is told the first time and from then on.
  const std::array<std::string, 3> cases[] = {{"bb", "abc", "ac"},
                                              {"ba", "abc", "bc"},
                                              {"bc", "ab", "ab"},
                                              {"cc", "abc", "ab"},
                                              {"aa", "abc", "bc"}};
  for (const auto& [removes, first, second] : cases) {
    FSubject = Create<TSubject>();
    std::map<char, TProc<>> links;
    for (char letter : {'a', 'b', 'c'}) {
      links[letter] = Subscribe(letter, [&, letter, removes = removes] {
        if (letter == removes[0]) FSubject->RemoveChangeNotification(links[removes[1]]);
      });
    }
    EXPECT_EQ(Change(), first) << removes;
    EXPECT_EQ(Change(), second) << removes;
  }
}

TEST_F(ChangeNotifyTest, SubscribersMaySubscribeChangeAndFail) {
  TProc<> failing;
  Subscribe('a', [&] {
    FSubject->ChangeNotify();  // is not announced again
    if (!failing) failing = Subscribe('b', [] { throw ERangeError(u""); });
  });
  Subscribe('c');
  EXPECT_THROW(Change(), ERangeError);
  EXPECT_EQ(FLetters, "acb");
  Subscribe('d');
  EXPECT_THROW(Change(), ERangeError);
  EXPECT_EQ(FLetters, "acb");
  FSubject->RemoveChangeNotification(failing);
  EXPECT_EQ(Change(), "acd");
}

TEST_F(ChangeNotifyTest, SubscribersMayEndTheSubject) {
  FSubject->AddDestroyNotification(Letter('x'));
  Subscribe('a', [&] { FSubject = nullptr; });
  Subscribe('b');
  EXPECT_EQ(Change(), "axb") << "the end is told before, the rest of the subscribers after";
}

TEST_F(ChangeNotifyTest, TheEndIsToldOnTheCompleteObject) {
  TProc<> link;
  TSubject* const subject = FSubject.Get();
  link = FSubject->AddDestroyNotification(Letter('x', [&] {
    subject->RemoveDestroyNotification(link);
    subject->AddDestroyNotification(Letter('z'));
    const TRef<TSubject> again(*subject);
  }));
  FSubject->AddDestroyNotification(Letter('y'));
  FSubject = nullptr;
  EXPECT_EQ(FLetters, "xyz");

  FLetters.clear();
  FSubject = Create<TSubject>();
  FSubject->AddDestroyNotification(Letter('x'));
  TRef<IChangeNotifySupport> held = FSubject->Support();
  FSubject = nullptr;
  EXPECT_EQ(FLetters, "") << "somebody holds the support";
  held = nullptr;
  EXPECT_EQ(FLetters, "x");
}

TEST_F(ChangeNotifyTest, EveryThreadIsToldOnce) {
  // Each call starts the next thread and waits for it: ten are in the notification at a time.
  int32_t depth = 0;
  Subscribe('a', [&] {
    FSubject->ChangeNotify();
    if (++depth < 10) std::thread([&] { FSubject->ChangeNotify(); }).join();
  });
  EXPECT_EQ(Change(), "aaaaaaaaaa");
  EXPECT_EQ(Change(), "a");
  const TInterfacedChangeNotifyItem item(FSubject.Get(), Letter('b'), nullptr);
  EXPECT_TRUE(item.ObjectItem == FSubject.Get() && item.OnChangeProc && !item.OnDestroyProc);
}

}  // namespace
}  // namespace Talvo
