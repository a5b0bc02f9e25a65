// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/mainthread/HiddenWindowThread.h>

#include <tests/threading/Fixtures.h>

namespace Talvo {
namespace {

using namespace Testing;

TEST(HiddenWindowThreadTest, RunsFunctionsOnItsThread) {
  const auto owner = Create<TComponent>(nullptr);
  owner->SetName(u"plant");
  const auto thread = THiddenWindowThread::MakeComponent(owner.Get(), u"Device");
  int depth = 0;
  thread->Process([&] {
    EXPECT_EQ(TBasicThread::GetCurrentThreadId(), thread->ThreadID());
    EXPECT_EQ(GetCurrentThreadName(), u"plant.Device");
    thread->Process([&] { ++depth; });
    EXPECT_EQ(depth, 1) << "on the thread itself it runs at once";
  });
  EXPECT_EQ(depth, 1);
  EXPECT_TRUE(thread->WindowReady() && thread->WindowReady()) << "asking changes nothing";
  EXPECT_NE(thread->WindowHandle(), 0u);
  EXPECT_THROW(thread->Process(nullptr), EAssertionFailed);
  EXPECT_THROW(thread->Process([] { throw ERangeError(u"told"); }), ERangeError);
  for (int round = 0; round < 200; ++round) {
    const int before = TWatched::Live;
    thread->Process([carried = Create<TWatched>()] {});
    ASSERT_EQ(TWatched::Live, before) << "what a function carries ends before its caller goes on";
  }
  thread->Terminate();
  thread->WaitFor();
  EXPECT_THROW(thread->Process([] {}), EThread);
  EXPECT_EQ(thread->WindowHandle(), 0u);
  thread->Terminate();
}

TEST(HiddenWindowThreadTest, CallersThatWaitAreReleasedAtTheEnd) {
  TALVO_SEEDED(engine);
  for (int round = 0; round < 50; ++round) {
    const auto thread = THiddenWindowThread::Make(u"Brief");
    const TCrowd callers(3, engine,
                         [&](auto&) { EXPECT_THROW(for (;;) thread->Process([] {}), EThread); });
    thread->Terminate();
  }
}

TEST(HiddenWindowThreadTest, WhatWaitsAtTheEndStillRunsAndNothingMoreIsTaken) {
  const auto thread = THiddenWindowThread::Make(u"Ending");
  const TGate gate;
  bool hasRun = false;
  {
    const TStuck busy([&] { thread->Process(gate); });
    gate.WaitUntilEntered();
    const TStuck waiting([&] { thread->Process([&] { hasRun = true; }); });
    thread->Terminate();
    EXPECT_THROW(thread->Process([] {}), EThread);
    gate.Open();
  }
  EXPECT_TRUE(hasRun);
}

/// Takes messages itself.
class TListener final : public THiddenWindowThread {
 public:
  using THiddenWindowThread::THiddenWindowThread;
  std::atomic<uint32_t> Last = 0;
  TRef<TListener> Self;  // dropped at message 2001

 protected:
  void WndProc(TMessage& message) override {
    Last = message.Msg;
    if (message.Msg == 2001) {
      Self = nullptr;
    } else {
      THiddenWindowThread::WndProc(message);
    }
  }
};

TEST(HiddenWindowThreadTest, TheWindowTakesMessages) {
  const auto thread = Create<TListener>(u"Listener");
  thread->Process([] {});
  const TWindowHandle window = thread->GetWindowHandle();
  EXPECT_TRUE(PostMessage(window, 2000, 0, 0));
  WaitUntil([&] { return thread->Last == 2000; });
  EXPECT_TRUE(PostMessage(window, WM_DESTROY, 0, 0));
  WaitUntil([&] { return !PostMessage(window, WM_DESTROY, 0, 0); });
  EXPECT_EQ(thread->Last, WM_DESTROY);
  EXPECT_EQ(thread->GetWindowHandle(), 0u);
  int ran = 0;
  thread->Process([&] { ++ran; });
  EXPECT_EQ(ran, 1) << "works on without a window";
}

TEST(HiddenWindowThreadTest, TheLastReferenceMayGoOnTheThreadItself) {
  for (const bool isByMessage : {false, true}) {
    const TNotices notices;
    auto owned = Create<TListener>(u"Ending");
    TListener* const thread = owned.Get();
    thread->Process([&] { thread->Self = std::move(owned); });
    if (isByMessage) {
      EXPECT_TRUE(PostMessage(thread->GetWindowHandle(), 2001, 0, 0));
    } else {
      thread->Process([thread] { thread->Self = nullptr; });
    }
    notices.WaitForEnds(1);
  }
}

}  // namespace
}  // namespace Talvo
