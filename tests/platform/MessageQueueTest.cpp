// SPDX-License-Identifier: Apache-2.0
#include <talvo/platform/MessageQueue.h>

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>
#include <tests/TestTypes.h>
#include <tests/threading/Workers.h>
#include <thread>
#include <vector>

namespace Talvo {
namespace {

constexpr uint32_t Number = 1024;

uint32_t ThreadId() {
  return static_cast<uint32_t>(gettid());
}

/// Writes down what it is told.
struct TNotes final : TMessageHandler {
  void WndProc(TMessage& message) override {
    if (OnMessage) OnMessage(message);
    if (message.Msg == WM_TIMER) {
      ++Ticks;
    } else {
      Numbers.push_back(static_cast<int>(message.WParam));
    }
    DefWindowProc(message);
    message.Result = message.LParam;
  }
  std::function<void(TMessage&)> OnMessage;
  std::vector<int> Numbers;
  int Ticks = 0;
};

bool IsReadable(int timeoutMs = 0) {
  pollfd waiting{MainWakeUpDescriptor(), POLLIN, 0};
  return poll(&waiting, 1, timeoutMs) == 1;
}

TEST(MessageQueueTest, MessagesComeInOrderAndOnlyToLivingWindows) {
  TNotes left, right;
  const TWindowHandle toLeft = AllocateHWnd(left), toRight = AllocateHWnd(right);
  EXPECT_NE(toLeft, toRight);
  for (int i = 1; i <= 3; ++i) {
    EXPECT_TRUE(PostMessage(toLeft, Number, i, 0));
    EXPECT_TRUE(PostMessage(toRight, Number, 10 * i, 0));
  }
  EXPECT_TRUE(PostThreadMessage(ThreadId(), Number, 7, 0)) << "comes out, goes nowhere";
  DeallocateHWnd(toRight);
  EXPECT_FALSE(PostMessage(toRight, Number, 0, 0));
  EXPECT_FALSE(PostMessage(0, Number, 0, 0));
  EXPECT_FALSE(SetTimer(toRight, 1, 1));
  EXPECT_EQ(ProcessMessages(), 4);
  EXPECT_EQ(left.Numbers, (std::vector{1, 2, 3}));
  EXPECT_TRUE(right.Numbers.empty());

  TMessage late{toRight, Number, 5, 0, 0};
  EXPECT_EQ(DispatchMessage(late), 0);
  TMessage answered{toLeft, Number, 5, 42, 0};
  EXPECT_EQ(DispatchMessage(answered), 42);

  TMessage message;
  EXPECT_FALSE(PeekMessage(message));
  PostThreadMessage(ThreadId(), WM_QUIT, 0, 0);
  EXPECT_FALSE(GetMessage(message));
  DeallocateHWnd(toLeft);
  const TWindowHandle again = AllocateHWnd(left);
  EXPECT_TRUE(again != toLeft && again != toRight) << "a number is not given twice";
  DeallocateHWnd(again);
}

TEST(MessageQueueTest, HandlersMayPostEndTheirWindowAndFail) {
  TNotes notes;
  TWindowHandle window = AllocateHWnd(notes);
  notes.OnMessage = [&](TMessage& message) {
    if (message.WParam == 1) PostMessage(window, Number, 2, 0);
    if (message.WParam == 2) throw std::runtime_error("2");
    if (message.WParam == 3) DeallocateHWnd(window);
  };
  PostMessage(window, Number, 1, 0);
  EXPECT_EQ(ProcessMessages(), 1) << "what is posted meanwhile stays for the next call";
  PostMessage(window, Number, 3, 0);
  PostMessage(window, Number, 4, 0);
  EXPECT_THROW(ProcessMessages(), std::runtime_error);
  EXPECT_EQ(ProcessMessages(), 1);
  EXPECT_EQ(notes.Numbers, (std::vector{1, 3}));
  EXPECT_FALSE(PostMessage(window, Number, 5, 0));
}

TEST(MessageQueueTest, TheDescriptorTellsOfMessagesAndTimers) {
  TNotes notes;
  TWindowHandle window = 0;
  std::thread([&] { window = AllocateMainHWnd(notes); }).join();
  ASSERT_GE(MainWakeUpDescriptor(), 0);
  EXPECT_FALSE(IsReadable());
  std::thread([&] {
    for (int i = 0; i < 3; ++i) PostMessage(window, Number, i, 0);
  }).join();
  EXPECT_TRUE(IsReadable());
  EXPECT_EQ(ProcessMessages(), 3);
  EXPECT_FALSE(IsReadable());
  PostMessage(window, Number, 3, 0);
  EXPECT_TRUE(IsReadable());
  TMessage message;
  ASSERT_TRUE(GetMessage(message));
  EXPECT_FALSE(IsReadable()) << "whatever way it was taken out";

  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(SetTimer(window, 1, 5) && SetTimer(window, 2, 100'000));
  EXPECT_FALSE(PeekMessage(message));
  EXPECT_TRUE(IsReadable(10'000));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5));
  while (notes.Ticks < 3) {
    IsReadable(10'000);
    ProcessMessages();
  }
  SetTimer(window, 1, 100'000);
  EXPECT_FALSE(IsReadable()) << "the timer starts afresh";
  SetTimer(window, 1, 0);
  EXPECT_TRUE(IsReadable(10'000));
  KillTimer(window, 1);
  EXPECT_FALSE(IsReadable());
  SetTimer(window, 3, 1);
  DeallocateHWnd(window);
  EXPECT_FALSE(IsReadable(20)) << "timers go with their window";
}

TEST(MessageQueueTest, MissedTicksBecomeOne) {
  TNotes notes;
  const TWindowHandle window = AllocateHWnd(notes);
  SetTimer(window, 9, 5);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // nobody looks meanwhile
  TMessage message;
  ASSERT_TRUE(GetMessage(message));
  EXPECT_TRUE(message.Msg == WM_TIMER && message.WParam == 9 && message.Window == window);
  int more = 0;
  while (PeekMessage(message)) ++more;
  EXPECT_LT(more, 10);
  while (notes.Ticks < 3 && GetMessage(message)) DispatchMessage(message);
  DeallocateHWnd(window);
}

TEST(MessageQueueTest, WindowsEndWhileAndAfterTheirThreadIsInTheHandler) {
  TNotes notes;
  std::promise<TWindowHandle> first, second;
  std::promise<void> entered, mayLeave;
  std::atomic<bool> hasLeft = false;
  uint32_t thread = 0;
  notes.OnMessage = [&](TMessage&) {
    entered.set_value();
    mayLeave.get_future().wait();
    hasLeft = true;
  };
  std::thread owner([&] {
    thread = ThreadId();
    first.set_value(AllocateHWnd(notes));
    second.set_value(AllocateHWnd(notes));
    TMessage message;
    while (GetMessage(message)) DispatchMessage(message);
  });
  const TWindowHandle busy = first.get_future().get(), idle = second.get_future().get();
  PostMessage(busy, Number, 1, 0);
  entered.get_future().wait();
  Testing::TWorker closers[2];
  for (Testing::TWorker& closer : closers) {
    closer.Start([&] {
      DeallocateHWnd(busy);
      EXPECT_TRUE(hasLeft) << "waits until the handler has been left";
    });
    closer.WaitUntilBlocked();
  }
  EXPECT_FALSE(PostMessage(busy, Number, 2, 0));
  mayLeave.set_value();
  for (Testing::TWorker& closer : closers) closer.Wait();
  EXPECT_TRUE(PostThreadMessage(thread, WM_QUIT, 0, 0));
  owner.join();
  EXPECT_EQ(notes.Numbers, std::vector{1});
  EXPECT_FALSE(PostMessage(idle, Number, 3, 0)) << "windows go with their thread";
  EXPECT_FALSE(PostThreadMessage(thread, WM_QUIT, 0, 0));
  DeallocateHWnd(idle);
}

TEST(MessageQueueTest, FloodedFromManyThreadsWhileWindowsGo) {
  TALVO_SEEDED(engine);
  constexpr int Posters = 4, Rounds = 20'000;
  TNotes steady;
  int received[Posters] = {};
  bool isInOrder = true;
  steady.OnMessage = [&](TMessage& message) {
    isInOrder &= received[message.WParam]++ == message.LParam;
  };
  const TWindowHandle window = AllocateHWnd(steady);
  std::atomic<TWindowHandle> brief = 0;
  std::vector<std::thread> posters;
  for (int i = 0; i < Posters; ++i) {
    posters.emplace_back([&, i, random = std::mt19937(engine())]() mutable {
      for (int n = 0; n < Rounds; ++n) {
        EXPECT_TRUE(PostMessage(window, Number, i, n));
        PostMessage(brief, Number, 0, 0);
        if (random() % 64 == 0) SetTimer(brief, 1, 1);
        if (random() % 512 == 0) std::this_thread::yield();
      }
    });
  }
  int total = 0;
  while (total < Posters * Rounds) {
    {
      TNotes passing;
      brief = AllocateHWnd(passing);
      TMessage message;
      for (unsigned n = engine() % 64; n > 0 && total < Posters * Rounds && PeekMessage(message);
           --n) {
        DispatchMessage(message);
      }
      // Whatever waits for `passing` must never reach it after this.
      DeallocateHWnd(brief);
    }
    total = received[0] + received[1] + received[2] + received[3];
  }
  for (std::thread& poster : posters) poster.join();
  EXPECT_TRUE(isInOrder);
  DeallocateHWnd(window);
  EXPECT_EQ(ProcessMessages(), 0);
}

TEST(MessageQueueTest, TimersFireBesideAHandlerThatAlwaysPosts) {
  TNotes notes;
  const TWindowHandle window = AllocateHWnd(notes);
  notes.OnMessage = [&](TMessage& message) {
    if (message.Msg == Number) PostMessage(window, Number, 0, 0);
  };
  PostMessage(window, Number, 0, 0);
  SetTimer(window, 1, 1);
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  size_t calls = 0;
  for (; notes.Ticks < 3 && std::chrono::steady_clock::now() < limit; ++calls) ProcessMessages();
  EXPECT_GE(notes.Ticks, 3);
  EXPECT_EQ(notes.Numbers.size(), calls) << "what is posted meanwhile waits for the next call";
  DeallocateHWnd(window);
}

TEST(MessageQueueTest, NudgesAreTakenOutAsOne) {
  EXPECT_FALSE(NudgeThread(0));
  PostThreadMessage(ThreadId(), Number, 0, 0);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(NudgeThread(ThreadId()));
  TMessage message;
  ASSERT_TRUE(GetMessage(message));
  EXPECT_TRUE(message.Msg == 0 && message.Window == 0);
  EXPECT_EQ(ProcessMessages(), 1);
  NudgeThread(ThreadId());
  EXPECT_TRUE(IsReadable());
  EXPECT_EQ(ProcessMessages(), 1);
  EXPECT_FALSE(IsReadable());
}

TEST(MessageQueueTest, WhatComesMeanwhileTakesNoTurn) {
  TNotes notes, passing;
  const TWindowHandle window = AllocateHWnd(notes), brief = AllocateHWnd(passing);
  notes.OnMessage = [&](TMessage& message) {
    if (message.WParam != 1) return;
    NudgeThread(ThreadId());
    DeallocateHWnd(brief);
    for (int i = 3; i <= 4; ++i) PostMessage(window, Number, i, 0);
  };
  PostMessage(window, Number, 1, 0);
  for (int i = 0; i < 3; ++i) PostMessage(brief, Number, i, 0);
  PostMessage(window, Number, 2, 0);
  EXPECT_EQ(ProcessMessages(), 2);
  EXPECT_EQ(notes.Numbers, (std::vector{1, 2}));
  EXPECT_EQ(ProcessMessages(), 3) << "the nudge, too";
  EXPECT_EQ(notes.Numbers, (std::vector{1, 2, 3, 4}));
  DeallocateHWnd(window);
}

}  // namespace
}  // namespace Talvo
