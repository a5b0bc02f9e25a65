// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/notify/Delivery.h>
#include <talvo/threading/notify/Subscription.h>

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <talvo/containers/list/ChangeNotify.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/threading/executors/ThreadPoolExecutor.h>
#include <talvo/threading/sync/Event.h>

namespace Talvo {
namespace {

class TSubject : public TInterfacedChangeNotifyObject<> {};

TEST(SubscriptionTest, EndsWithItsOwner) {
  int changes = 0, ends = 0, calls = 0;
  auto subject = Create<TSubject>();
  TMultiProc<int> told;
  {
    const auto toChanges = TSubscription::ToChanges(subject, [&] { ++changes; });
    const auto toEnd = TSubscription::ToEnd(subject, [&] { ++ends; });
    TSubscription toCalls = TSubscription::To(told, [&](int by) { calls += by; });
    TSubscription moved = std::move(toCalls);
    EXPECT_TRUE(moved && !toCalls);
    subject->ChangeNotify();
    told.Notify(2);
    moved = TSubscription::To(told, [&](int by) { calls += 10 * by; });
    told.Notify(2);
    moved.End();
    moved.End();
    EXPECT_FALSE(moved);
    moved = TSubscription::To(told, [&](int) { ++calls; });
    TSubscription& same = moved;
    moved = std::move(same);
    EXPECT_TRUE(moved);
  }
  subject->ChangeNotify();
  told.Notify(2);
  subject = nullptr;
  EXPECT_TRUE(changes == 1 && ends == 0 && calls == 22) << changes << ends << calls;
  EXPECT_FALSE(TSubscription::To(told, nullptr));
  EXPECT_THROW(TSubscription::ToChanges(nullptr, [] {}), EAssertionFailed);
  EXPECT_THROW(TSubscription::ToEnd(nullptr, [] {}), EAssertionFailed);
}

TEST(SubscriptionTest, TheSenderMayEndFirst) {
  int ends = 0;
  TSubscription toChanges, toEnd, toCalls;
  {
    auto subject = Create<TSubject>();
    auto told = std::make_unique<TMultiProc<>>();
    toChanges = TSubscription::ToChanges(subject, [] {});
    toEnd = TSubscription::ToEnd(subject, [&] { ++ends; });
    toCalls = TSubscription::To(*told, [] {});
  }
  EXPECT_EQ(ends, 1) << "subscriptions keep nothing alive";
  std::atomic<int> ticks = 0;
  {
    const auto toClock = TSubscription::ToClock([&] { ++ticks; });
    while (ticks < 2) std::this_thread::yield();
  }
  const auto last = TSubscription(TProc<>([&] { ++ends; }));
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
  string names;
  const auto subject = Create<TSubject>();
  TMultiProc<string, int> found;
  subject->AddChangeNotification(OnMainThread([&] { ++calls; }));
  subject->AddChangeNotification(OnMainThread([&] { calls += 10; }, &calls, true));
  found.Add(OnMainThread<string, int>([&](const string& name, int n) { names.append(n, name[0]); },
                                      &names));
  std::thread([&] {
    for (int i = 0; i < 3; ++i) subject->ChangeNotify();
    found.Notify(u"abc", 2);
    found.Notify(string(u"z"), 1);
  }).join();
  EXPECT_TRUE(calls == 0 && names.empty());
  MainThread::ProcessExecuteQueueAll();
  EXPECT_EQ(calls, 13);
  EXPECT_EQ(ToUtf8(names), "aaz");
  subject->ChangeNotify();
  EXPECT_EQ(calls, 24) << "at once on the main thread itself";
  EXPECT_FALSE(OnMainThread(nullptr) || OnMainThread<int>(nullptr));
}

TEST(DeliveryTest, TakesNotificationsToAnExecutor) {
  const TRef<IExecutor> pool = TThreadPoolExecutor::Make(1);
  TMultiProc<string> found;
  string name;
  const TRef<IEvent> done = TEvent::Make();
  found.Add(OnExecutor<string>(pool, [&name, done](const string& it) {
    name = it;
    done->Signal();
  }));
  found.Notify(u"pump");
  done->WaitFor(NoTimeLimit);
  EXPECT_EQ(ToUtf8(name), "pump");
  EXPECT_FALSE(OnExecutor<>(pool, nullptr));
}

}  // namespace
}  // namespace Talvo
