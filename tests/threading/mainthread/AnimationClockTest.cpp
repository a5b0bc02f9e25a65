// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/mainthread/AnimationClock.h>

#include <algorithm>
#include <chrono>
#include <complex>
#include <numbers>
#include <tests/threading/Fixtures.h>
#include <talvo/threading/mainthread/Module.h>

namespace Talvo {
namespace {

using namespace Testing;
using TClock = std::chrono::steady_clock;
using std::chrono::milliseconds;

TEST(AnimationClockThreadTest, KeepsItsGrid) {
  // Calls that take a third of the period would make a clock drift that waits between them.
  constexpr int Ticks = 30;
  constexpr auto Period = milliseconds(25);
  std::vector<TClock::time_point> times;
  const auto start = TClock::now();
  const auto thread = TAnimationClockThread::Make(
      u"Beat",
      [&] {
        times.push_back(TClock::now());
        if (times.size() == Ticks) TThread::CurrentThread()->Terminate();
        std::this_thread::sleep_for(Period / 3);
      },
      40);
  thread->WaitFor();
  EXPECT_GE(times.back() - start, Ticks * Period);
  // As hands of a dial that turns once a period, late ticks point to much the same side; those
  // that drift point everywhere and add up to nothing.
  std::complex<double> sum = 0;
  for (const auto& time : times) {
    sum += std::polar(1.0, 2 * std::numbers::pi * ((time - start) / (1.0 * Period)));
  }
  EXPECT_GT(std::abs(sum) / Ticks, 0.4);
}

TEST(AnimationClockThreadTest, WaitsForNoTickWhenItsRateChangesOrItEnds) {
  for (const bool isByRate : {false, true}) {
    SCOPED_TRACE(isByRate);
    // Each fault costs a second; an attempt may be slow for other reasons.
    bool isQuick = false;
    for (int attempt = 0; attempt < 10 && !isQuick; ++attempt) {
      std::atomic<int> count = 0;
      const auto start = TClock::now();
      auto thread = TAnimationClockThread::CreateObject(
          u"Beat", [&] { ++count; }, 1);
      WaitUntilAsleep(thread->ThreadID());
      if (isByRate) {
        thread->SetTicksPerSecond(1000);
        WaitUntil([&] { return count > 0; });
      }
      thread = nullptr;
      isQuick = TClock::now() - start < milliseconds(950);
    }
    EXPECT_TRUE(isQuick);
  }
}

TEST(AnimationClockThreadTest, StopsAndStarts) {
  std::atomic<int> count = 0;
  const auto start = TClock::now();
  const auto thread = TAnimationClockThread::CreateObject(
      u"Beat", [&] { ++count; }, 1000);
  const auto stop = [&] {
    thread->Stop();
    // One tick may be under way; a clock that goes on never comes to rest.
    int before;
    do {
      before = count;
      std::this_thread::sleep_for(milliseconds(20));
    } while (before != count);
  };
  WaitUntil([&] { return count >= 20; });
  EXPECT_GE(TClock::now() - start, milliseconds(19));
  stop();
  stop();
  thread->Start();
  WaitUntil([&, before = count.load()] { return count >= before + 3; });
  for (uint32_t wrong : {0u, 1001u}) {
    EXPECT_THROW(thread->SetTicksPerSecond(wrong), ERangeError);
    EXPECT_THROW(TAnimationClock::SetTicksPerSecond(wrong), ERangeError);
  }
  stop();  // its end reaches it at rest, too
}

// A call may be under way when its subscriber has gone: what it touches stays.
std::atomic<int> GFailed, GSwallowed, GTicks, GLater;
TProc<> GOnce;

TEST(AnimationClockTest, TicksWhileSomebodySubscribes) {
  EXPECT_EQ(TAnimationClock::GetTicksPerSecond(), 60u);
  GFailed = GSwallowed = GTicks = GLater = 0;
  SetSwallowedExceptionHook([](const std::exception_ptr&) { ++GSwallowed; });
  TAnimationClock::Close();
  TProc<> failing = TAnimationClock::Subscribe([] {
    ++GFailed;
    throw ERangeError(u"");
  });
  TProc<> link = TAnimationClock::Subscribe([] { ++GTicks; });
  GOnce = TAnimationClock::Subscribe([] { TAnimationClock::Unsubscribe(GOnce); });
  const auto start = TClock::now();
  TAnimationClock::Init();
  WaitUntil([] { return GTicks >= 3; });
  EXPECT_GE(TClock::now() - start, milliseconds(49));
  EXPECT_GE(GFailed, 3) << "goes on though it raises";
  EXPECT_GE(GSwallowed, 3);
  SetSwallowedExceptionHook(nullptr);
  EXPECT_FALSE(TAnimationClock::Subscribe(nullptr));
  EXPECT_TRUE(TAnimationClock::Unsubscribe(link));
  EXPECT_FALSE(link);
  EXPECT_FALSE(TAnimationClock::Unsubscribe(link));
  EXPECT_TRUE(TAnimationClock::Unsubscribe(failing));
  TProc<> unknown = [] {};
  EXPECT_TRUE(TAnimationClock::Unsubscribe(unknown));

  // The next subscriber starts the clock again.
  link = TAnimationClock::Subscribe([] { ++GLater; });
  WaitUntil([] { return GLater >= 2; });
  const TNotices notices;
  TAnimationClock::Close();
  notices.WaitForEnds(1);
  const int before = GLater;
  TAnimationClock::Clock();
  EXPECT_GT(GLater, before);
  TAnimationClock::Init();
  TAnimationClock::Unsubscribe(link);
}

int GStarted, GRegistered;

void StartClasses() {
  ++GStarted;
  ThreadingModule::Start();
  ThreadingModule::End();
}

void RegisterClasses(const TTypeHandle* classes, int32_t count) {
  GRegistered += std::count_if(classes, classes + count, [](const TTypeHandle& handle) {
    return handle->Kind == TTypeKind::tkClass;
  });
}

TEST(ThreadingModuleTest, TheHookIsToldOnceOfEachStart) {
  GStarted = GRegistered = 0;
  static const TThreadingModuleHook none, hook{StartClasses, RegisterClasses};
  ThreadingModule::SetHook(hook);
  EXPECT_TRUE(GStarted == 1 && GRegistered == 4);
  ThreadingModule::Start();
  ThreadingModule::End();
  EXPECT_EQ(GStarted, 1);
  ThreadingModule::End();
  ThreadingModule::Start();
  EXPECT_TRUE(GStarted == 2 && GRegistered == 8);
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
