// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/mainthread/HiddenWindowThread.h>

#include <gtest/gtest.h>

#include <atomic>
#include <tests/TestTypes.h>
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
  while (thread->GetWindowHandle() != 0) std::this_thread::yield();
  EXPECT_EQ(thread->Last, WM_DESTROY);
  EXPECT_FALSE(PostMessage(window, 2001, 0, 0));
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
