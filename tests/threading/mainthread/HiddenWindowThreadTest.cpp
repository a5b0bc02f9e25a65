// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/mainthread/HiddenWindowThread.h>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <tests/TestTypes.h>
#include <tests/threading/Workers.h>
#include <thread>
#include <vector>
#include <talvo/runtime/Exceptions.h>
#include <talvo/threading/Talvo.Threading.Utils.h>

namespace Talvo {
namespace {

TEST(HiddenWindowThreadTest, RunsFunctionsOnItsThread) {
  const auto owner = Create<TComponent>(nullptr);
  owner->SetName(u"plant");
  const auto thread = THiddenWindowThread::MakeComponent(owner.Get(), u"Device");
  uint32_t id = 0;
  string name;
  int depth = 0;
  thread->Process([&] {
    id = TBasicThread::GetCurrentThreadId();
    name = GetCurrentThreadName();
    thread->Process([&] { ++depth; });
    EXPECT_EQ(depth, 1) << "on the thread itself it runs at once";
  });
  EXPECT_EQ(id, thread->ThreadID());
  EXPECT_EQ(ToUtf8(name), "plant.Device");
  EXPECT_TRUE(thread->WindowReady() && thread->WindowReady()) << "asking changes nothing";
  EXPECT_NE(thread->WindowHandle(), 0u);
  EXPECT_THROW(thread->Process(nullptr), EAssertionFailed);
  EXPECT_THROW(thread->Process([] { throw ERangeError(u"told"); }), ERangeError);
  thread->Terminate();
  thread->WaitFor();
  EXPECT_THROW(thread->Process([] {}), EThread);
  EXPECT_EQ(thread->WindowHandle(), 0u);
  thread->Terminate();
}

TEST(HiddenWindowThreadTest, CallersThatWaitAreReleasedAtTheEnd) {
  for (int round = 0; round < 50; ++round) {
    const auto thread = THiddenWindowThread::Make(u"Brief");
    std::atomic<int> ran = 0, refused = 0;
    std::vector<std::thread> callers;
    for (int i = 0; i < 3; ++i) {
      callers.emplace_back([&] {
        try {
          for (;;) thread->Process([&] { ++ran; });
        } catch (const EThread&) {
          ++refused;
        }
      });
    }
    thread->Terminate();
    for (std::thread& caller : callers) caller.join();
    EXPECT_EQ(refused, 3);
  }
}

TEST(HiddenWindowThreadTest, WhatWaitsAtTheEndStillRunsAndNothingMoreIsTaken) {
  const auto thread = THiddenWindowThread::Make(u"Ending");
  std::promise<void> entered, mayLeave;
  Testing::TWorker busy, waiting;
  bool hasRun = false;
  busy.Start([&] {
    thread->Process([&] {
      entered.set_value();
      mayLeave.get_future().wait();
    });
  });
  entered.get_future().wait();
  waiting.Start([&] { thread->Process([&] { hasRun = true; }); });
  waiting.WaitUntilBlocked();
  thread->Terminate();
  EXPECT_THROW(thread->Process([] {}), EThread);
  mayLeave.set_value();
  busy.Wait();
  waiting.Wait();
  EXPECT_TRUE(hasRun);
}

TEST(HiddenWindowThreadTest, WhatAFunctionCarriesEndsBeforeItsCallerGoesOn) {
  const auto thread = THiddenWindowThread::Make(u"Carrier");
  const int before = TWatched::Live;
  for (int round = 0; round < 200; ++round) {
    thread->Process([carried = Create<TWatched>()] {});
    ASSERT_EQ(TWatched::Live, before);
  }
}

/// Takes messages itself.
class TListener final : public THiddenWindowThread {
 public:
  using THiddenWindowThread::THiddenWindowThread;
  std::atomic<uint32_t> Last = 0;

 protected:
  void WndProc(TMessage& message) override {
    Last = message.Msg;
    THiddenWindowThread::WndProc(message);
  }
};

TEST(HiddenWindowThreadTest, TheWindowTakesMessages) {
  auto thread = Create<TListener>(u"Listener");
  thread->Process([] {});
  const TWindowHandle window = thread->GetWindowHandle();
  EXPECT_TRUE(PostMessage(window, 2000, 0, 0));
  while (thread->Last != 2000) std::this_thread::yield();
  EXPECT_TRUE(PostMessage(window, WM_DESTROY, 0, 0));
  while (PostMessage(window, WM_DESTROY, 0, 0)) std::this_thread::yield();  // until it has gone
  EXPECT_EQ(thread->Last, WM_DESTROY);
  EXPECT_EQ(thread->GetWindowHandle(), 0u);
  int ran = 0;
  thread->Process([&] { ++ran; });
  EXPECT_EQ(ran, 1) << "works on without a window";
}

TEST(HiddenWindowThreadTest, TheLastReferenceMayGoOnTheThreadItself) {
  for (const bool isByMessage : {false, true}) {
    std::atomic<int> ended = 0;
    const TProc<> link = RegisterThreadEndNotify([&] { ++ended; });
    class TEnding : public THiddenWindowThread {
     public:
      using THiddenWindowThread::THiddenWindowThread;
      TRef<TEnding> Self;
      void WndProc(TMessage& message) override {
        if (message.Msg == 2000)
          Self = nullptr;
        else
          THiddenWindowThread::WndProc(message);
      }
    };
    auto thread = Create<TEnding>(u"Ending");
    TEnding* const ending = thread.Get();
    ending->Process([&] { ending->Self = std::move(thread); });
    if (isByMessage) {
      EXPECT_TRUE(PostMessage(ending->GetWindowHandle(), 2000, 0, 0));
    } else {
      ending->Process([ending] { ending->Self = nullptr; });
    }
    while (ended == 0) std::this_thread::yield();
    UnRegisterThreadEndNotify(link);
  }
}

}  // namespace
}  // namespace Talvo
