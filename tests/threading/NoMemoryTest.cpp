// SPDX-License-Identifier: Apache-2.0
// What threads hand each other when there is no memory for it. A program of its own: its operator
// new fails when it is told to, and the sanitizers bring one themselves.

#include <gtest/gtest.h>
#include <talvo/threading/Talvo.Threading.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <thread>

namespace {

// The calling thread's allocations up to the one that fails; 0 when none does.
thread_local int GAllocationsLeft = 0;

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (GAllocationsLeft > 0 && --GAllocationsLeft == 0) throw std::bad_alloc();
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace Talvo {
namespace {

/// Hands over code with the first allocation failing, then the second, until it succeeds, often
/// enough to meet the growth of every queue. What failed must not run when the others do.
template <class THandOver, class TRunOthers>
void FailEverywhere(THandOver&& handOver, TRunOthers&& runOthers) {
  int failed = 0;
  for (int round = 0, allocation = 1; round < 100; ++allocation) {
    SCOPED_TRACE(testing::Message() << "round " << round << ", allocation " << allocation);
    const auto calls = std::make_shared<std::atomic<int>>(0);
    bool hasFailed = false;
    GAllocationsLeft = allocation;
    try {
      handOver([calls] { ++*calls; });
    } catch (const std::bad_alloc&) {
      hasFailed = true;
    }
    GAllocationsLeft = 0;
    runOthers();
    ASSERT_EQ(*calls, hasFailed ? 0 : 1);
    failed += hasFailed;
    if (!hasFailed) ++round, allocation = 0;
  }
  EXPECT_GT(failed, 0) << "there was something to fail";
}

TEST(NoMemoryTest, WhatAThreadWithAWindowCouldNotTakeNeverRuns) {
  const auto thread = THiddenWindowThread::Make(u"Poor");
  FailEverywhere([&](auto code) { thread->Process(code); },
                 [&] {
                   // With one more, a number of messages that comes to each place in a block of
                   // the queue, however many allocations fail in between.
                   for (int i = 0; i < 6; ++i) thread->Process([] {});
                 });
}

TEST(NoMemoryTest, WhatTheMainThreadCouldNotTakeNeverRuns) {
  FailEverywhere([](auto code) { MainThread::Execute(nullptr, true, code, false); },
                 [] {
                   MainThread::ProcessMessages();
                   MainThread::ProcessExecuteQueueAll();
                 });
}

TEST(NoMemoryTest, AThreadWithAWindowEndsWithoutMemory) {
  for (int messages = 0; messages < 40; ++messages) {
    auto thread = THiddenWindowThread::Make(u"Poor");
    for (int i = 0; i < messages; ++i) thread->Process([] {});
    GAllocationsLeft = 1;
    thread = nullptr;
    GAllocationsLeft = 0;
  }
}

TEST(NoMemoryTest, TheAnimationClockTicksOn) {
  std::atomic<int> ticks = 0;
  TProc<> link = TAnimationClock::Subscribe([&] {
    if (++ticks == 3) GAllocationsLeft = 1;  // in front of the next tick
  });
  while (ticks < 5) std::this_thread::yield();
  TAnimationClock::Unsubscribe(link);
}

}  // namespace
}  // namespace Talvo
