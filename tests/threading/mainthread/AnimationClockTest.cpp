// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/mainthread/AnimationClock.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <mutex>
#include <thread>
#include <vector>
#include <talvo/runtime/Exceptions.h>
#include <talvo/threading/mainthread/Module.h>
#include <talvo/threading/threads/SwallowedExceptions.h>

namespace Talvo {
namespace {

using TClock = std::chrono::steady_clock;
using std::chrono::milliseconds;

void WaitFor(const std::atomic<int>& count, int value) {
  while (count < value) std::this_thread::yield();
}

TEST(AnimationClockThreadTest, KeepsItsGrid) {
  // Calls that take a third of the period would make a clock drift that waits between them.
  constexpr int Ticks = 40;
  std::mutex guard;
  std::vector<TClock::time_point> times;
  std::atomic<int> count = 0;
  const auto thread = TAnimationClockThread::Make(
      u"Beat",
      [&] {
        {
          const std::lock_guard held(guard);
          times.push_back(TClock::now());
        }
        ++count;
        std::this_thread::sleep_for(milliseconds(4));
      },
      80);
  WaitFor(count, Ticks);
  thread->Terminate();
  thread->WaitFor();
  const auto period = milliseconds(1000) / 80.0;
  std::vector<double> phases;
  for (const auto& time : times) {
    const double at = (time - times.front()) / period;
    phases.push_back(std::abs(at - std::round(at)));
  }
  std::ranges::sort(phases);
  EXPECT_LT(phases[phases.size() / 2], 0.15) << "most ticks are on the grid";
  EXPECT_GE(times.back() - times.front(), period * (Ticks - 2));
}

TEST(AnimationClockThreadTest, StopsStartsAndChangesItsRate) {
  std::atomic<int> count = 0;
  const auto thread = TAnimationClockThread::CreateObject(
      u"Beat", [&] { ++count; }, 1);
  thread->SetTicksPerSecond(1000);  // does not wait for the tick that was to come
  const auto start = TClock::now();
  WaitFor(count, 20);
  EXPECT_GE(TClock::now() - start, milliseconds(19));
  thread->Stop();
  thread->Stop();
  int before = count;
  do {
    before = count;
    std::this_thread::sleep_for(milliseconds(20));
  } while (before != count);
  thread->Start();
  WaitFor(count, before + 3);
  for (uint32_t wrong : {0u, 1001u}) {
    EXPECT_THROW(thread->SetTicksPerSecond(wrong), ERangeError);
    EXPECT_THROW(TAnimationClock::SetTicksPerSecond(wrong), ERangeError);
  }
  thread->SetTicksPerSecond(1);
  thread->Terminate();  // nor does the end
  thread->WaitFor();
  EXPECT_LT(TClock::now() - start, milliseconds(900));
}

TEST(AnimationClockTest, TicksWhileSomebodySubscribes) {
  EXPECT_EQ(TAnimationClock::GetTicksPerSecond(), 60u);
  std::atomic<int> first = 0, second = 0, swallowed = 0;
  SetSwallowedExceptionHook([&](const std::exception_ptr&) { ++swallowed; });
  const auto start = TClock::now();
  TProc<> failing = TAnimationClock::Subscribe([&] {
    ++first;
    throw ERangeError(u"");
  });
  TProc<> link, once;
  link = TAnimationClock::Subscribe([&] { ++second; });
  once = TAnimationClock::Subscribe([&] { TAnimationClock::Unsubscribe(once); });
  WaitFor(second, 3);
  EXPECT_GE(TClock::now() - start, milliseconds(32));
  EXPECT_GE(first, 3) << "goes on though it raises";
  EXPECT_GE(swallowed, 3);
  EXPECT_FALSE(TAnimationClock::Subscribe(nullptr));

  EXPECT_TRUE(TAnimationClock::Unsubscribe(link));
  EXPECT_FALSE(link);
  EXPECT_FALSE(TAnimationClock::Unsubscribe(link));
  TProc<> unknown = [] {};
  EXPECT_TRUE(TAnimationClock::Unsubscribe(unknown));
  EXPECT_TRUE(TAnimationClock::Unsubscribe(failing));
  SetSwallowedExceptionHook(nullptr);
  // A tick may still be under way; the next subscriber starts the clock again.
  std::atomic<int> third = 0;
  link = TAnimationClock::Subscribe([&] { ++third; });
  WaitFor(third, 2);
  TAnimationClock::Unsubscribe(link);

  int called = 0;
  link = TAnimationClock::Subscribe([&] { ++called; });
  TAnimationClock::Close();
  const int before = called;
  TAnimationClock::Clock();
  EXPECT_GT(called, before);
  TAnimationClock::Init();
  TAnimationClock::Unsubscribe(link);
}

int GStarted = 0, GRegistered = 0;

TEST(ThreadingModuleTest, TheHookIsToldOnceOfEachStart) {
  GStarted = GRegistered = 0;
  static const TThreadingModuleHook hook{[] {
                                           ++GStarted;
                                           ThreadingModule::Start();
                                           ThreadingModule::End();
                                         },
                                         [](const TTypeHandle* classes, int32_t count) {
                                           for (int32_t i = 0; i < count; ++i) {
                                             GRegistered += classes[i]->Kind == TTypeKind::tkClass;
                                           }
                                         }};
  ThreadingModule::SetHook(hook);
  EXPECT_TRUE(GStarted == 1 && GRegistered == 4);
  ThreadingModule::Start();
  ThreadingModule::End();
  EXPECT_EQ(GStarted, 1);
  ThreadingModule::End();
  ThreadingModule::Start();
  EXPECT_TRUE(GStarted == 2 && GRegistered == 8);
  static const TThreadingModuleHook none;
  ThreadingModule::SetHook(none);
}

TEST(ThreadingModuleTest, AStartThatFailsIsUndone) {
  static int calls;
  calls = 0;
  static TThreadingModuleHook hook;
  hook.StartClassManagement = [] {
    if (++calls == 1) throw ERangeError(u"");
  };
  ThreadingModule::End();
  ThreadingModule::SetHook(hook);
  EXPECT_THROW(ThreadingModule::Start(), ERangeError);
  ThreadingModule::Start();
  EXPECT_EQ(calls, 2);
  static const TThreadingModuleHook none;
  ThreadingModule::SetHook(none);
}

}  // namespace
}  // namespace Talvo
