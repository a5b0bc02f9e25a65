// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/notify/Delivery.h>
#include <talvo/threading/notify/Subscription.h>

#include <gtest/gtest.h>

#include <thread>
#include <talvo/containers/list/ChangeNotify.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/threading/executors/ThreadPoolExecutor.h>
#include <talvo/threading/sync/Event.h>

namespace Talvo {
namespace {

class TSubject : public TInterfacedChangeNotifyObject<> {};

TEST(SubscriptionTest, EndsWithItsOwner) {
  std::string calls;
  const auto note = [&](char what) { return [&calls, what](auto...) { calls += what; }; };
  auto subject = Create<TSubject>();
  TMultiProc<int> told;
  {
    const auto toChanges = TSubscription::ToChanges(subject, note('c'));
    const auto toEnd = TSubscription::ToEnd(subject, note('e'));
    TSubscription first = TSubscription::To(told, note('1'));
    TSubscription moved = std::move(first);
    EXPECT_TRUE(moved && !first);
    subject->ChangeNotify();
    told.Notify(0);
    moved = TSubscription::To(told, note('2'));
    TSubscription& same = moved;
    moved = std::move(same);
    told.Notify(0);
    for (int i = 0; i < 2; ++i) moved.End();
    EXPECT_FALSE(moved);
    told.Notify(0);
    moved = TSubscription::To(told, note('3'));
  }
  subject->ChangeNotify();
  told.Notify(0);
  subject = nullptr;
  EXPECT_EQ(calls, "c12");
  EXPECT_FALSE(TSubscription::To(told, nullptr));
  EXPECT_THROW(TSubscription::ToChanges(nullptr, [] {}), EAssertionFailed);
  EXPECT_THROW(TSubscription::ToEnd(nullptr, [] {}), EAssertionFailed);
}

TEST(SubscriptionTest, TheSenderMayEndFirst) {
  int ends = 0;
  TSubscription toChanges, toEnd, toCalls;
  {
    const auto subject = Create<TSubject>();
    TMultiProc<> told;
    toChanges = TSubscription::ToChanges(subject, [] {});
    toEnd = TSubscription::ToEnd(subject, [&] { ++ends; });
    toCalls = TSubscription::To(told, [] {});
  }
  EXPECT_EQ(ends, 1) << "subscriptions keep nothing alive";
}

TEST(SubscriptionTest, SendersAreCounted) {
  class TUncounted : public Detail::TChangeNotifier<TBasicObject> {
   public:
    uint32_t QueryInterface(const TGuid&, void**) override { return 1; }
    int32_t AddRef() override { return -1; }
    int32_t Release() override { return -1; }
  };
  const TOwn<TUncounted> owned = Create<TUncounted>();
  const TRef<IChangeNotification> sender(owned.Get());
  EXPECT_THROW(TSubscription::ToChanges(sender, [] {}), EInvalidCast);
  EXPECT_THROW(TSubscription::ToEnd(sender, [] { ADD_FAILURE() << "nobody is subscribed"; }),
               EInvalidCast);
  EXPECT_FALSE(TSubscription::ToChanges(sender, nullptr));
  EXPECT_FALSE(TSubscription::ToEnd(sender, nullptr));
}

TEST(SubscriptionTest, ToTheClock) {
  // A call that is under way is not waited for.
  static std::atomic<int> ticks = 0;
  const auto toClock = TSubscription::ToClock([] { ++ticks; });
  while (ticks < 2) std::this_thread::yield();
}

TEST(SubscriptionTest, EndsWithinANotification) {
  TMultiProc<> sender;
  int calls = 0;
  const TProc<> counts = [&] { ++calls; };
  TSubscription first = TSubscription::To(sender, counts),
                second = TSubscription::To(sender, counts);
  const TProc<> ends = sender.Add([&] {
    first.End();
    second = TSubscription::To(sender, counts);
    second.End();
  });
  sender.Notify();
  sender.Remove(ends);
  calls = 0;
  sender.Notify();
  EXPECT_EQ(calls, 0);
}

TEST(DeliveryTest, TakesNotificationsToTheMainThread) {
  int calls = 0;
  std::string names;
  const auto subject = Create<TSubject>();
  TMultiProc<string, int> found;
  subject->AddChangeNotification(OnMainThread([&] { ++calls; }));
  subject->AddChangeNotification(OnMainThread([&] { calls += 10; }, &calls, true));
  found.Add(OnMainThread<string, int>(
      [&](const string& name, int number) { names += ToUtf8(name) + std::to_string(number); }));
  std::thread([&] {
    for (int i = 0; i < 3; ++i) subject->ChangeNotify();
    found.Notify(u"abc", 2);
    found.Notify(string(u"z"), 1);
  }).join();
  EXPECT_TRUE(calls == 0 && names.empty());
  MainThread::ProcessExecuteQueueAll();
  EXPECT_EQ(calls, 13);
  EXPECT_EQ(names, "abc2z1");
  subject->ChangeNotify();
  EXPECT_EQ(calls, 24) << "at once on the main thread itself";
  EXPECT_FALSE(OnMainThread(nullptr) || OnMainThread<int>(nullptr));
}

TEST(DeliveryTest, TakesNotificationsToAnExecutor) {
  const TRef<IExecutor> pool = TThreadPoolExecutor::Make(1);
  const TRef<IEvent> done = TEvent::Make();
  TMultiProc<string> found;
  found.Add(OnExecutor<string>(pool, [done](const string& name) {
    EXPECT_EQ(ToUtf8(name), "pump");
    done->Signal();
  }));
  found.Notify(u"pump");
  done->WaitFor(NoTimeLimit);
  EXPECT_FALSE(OnExecutor<>(pool, nullptr));
}

}  // namespace
}  // namespace Talvo
