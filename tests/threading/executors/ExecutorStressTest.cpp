// SPDX-License-Identifier: Apache-2.0
// Executors under load: many threads, random operations.

#include <array>
#include <tests/threading/Fixtures.h>
#include <talvo/threading/executors/ThreadPoolExecutor.h>
#include <talvo/threading/sync/SynchronizationObject.h>
#include <talvo/threading/threads/ProcessingThread.h>

namespace Talvo {
namespace {

using namespace Testing;

constexpr int Producers = 4, Rounds = 6'000;

TEST(ThreadPoolStressTest, ResizedWhileFlooded) {
  TALVO_SEEDED(engine);
  const auto pool = TThreadPoolExecutor::Make(2);
  std::atomic<int> ran = 0;
  {
    const TCrowd producers(Producers, engine, [&](TEngine& own) {
      for (int n = 0; n < Rounds; ++n) {
        const auto job = pool->Execute([&] { ++ran; });
        if (own() % 256 == 0) job->WaitFor(NoTimeLimit);
      }
    });
    while (producers.IsBusy()) {
      pool->SetCount(1 + engine() % 6);
      pool->SetGroupSize(engine() % 8);
      pool->SetPriority(engine() % 2 ? tpNormal : tpLower);
      if (engine() % 4 == 0) pool->Execute([] {})->WaitFor(NoTimeLimit);
    }
  }
  pool->SetCount(1);
  WaitUntil([&] { return ran == Producers * Rounds; });
  // None of them runs twice: the last one runs behind all that waits in the pool.
  pool->Execute([] {})->WaitFor(NoTimeLimit);
  EXPECT_EQ(ran, Producers * Rounds);
}

TEST(ThreadPoolStressTest, CancelAgainstRun) {
  TALVO_SEEDED(engine);
  const auto pool = TThreadPoolExecutor::Make(3);
  pool->SetGroupSize(2);
  TCrowd(Producers, engine, [&](TEngine& own) {
    for (int n = 0; n < Rounds / 4; ++n) {
      // Freed as soon as Terminate has returned: from there on nothing may run.
      auto touched = std::make_unique<std::atomic<int>>(0);
      std::vector<TRef<IExecution>> jobs(1 + own() % 4);
      for (auto& job : jobs) job = pool->Execute([at = touched.get()] { ++*at; });
      if (own() % 2) std::this_thread::yield();
      std::jthread rival;
      if (own() % 64 == 0) rival = std::jthread([job = jobs.front()] { job->Terminate(); });
      for (const auto& job : jobs) {
        job->Terminate();
        EXPECT_TRUE(job->WaitFor(0) && job->IsTerminated());
      }
      EXPECT_LE(*touched, static_cast<int>(jobs.size()));
    }
  });
  EXPECT_TRUE(pool->Execute([] {})->WaitFor(NoTimeLimit));
}

TEST(ThreadPoolStressTest, CodeThatKeepsAndEndsPools) {
  TALVO_SEEDED(engine);
  for (int round = 0; round < Rounds / 100; ++round) {
    // All work, and with it the pools' last references, is gone when this is held once.
    const auto alive = std::make_shared<int>();
    // Code of the first pool may end both; two that end each other would wait for each other.
    std::array<TRef<IThreadPoolExecutor>, 2> pools;
    for (auto& pool : pools) {
      pool = TThreadPoolExecutor::Make(1 + static_cast<int32_t>(engine() % 3));
      pool->SetGroupSize(engine() % 4);
    }
    {
      const TCrowd producers(2, engine, [alive, pools](TEngine& own) mutable {
        std::vector<TRef<IExecution>> jobs(own() % 50);
        for (size_t n = 0; n < jobs.size(); ++n) {
          jobs[n] = pools[0]->Execute([alive, first = pools[0], second = pools[1]] {
            second->Execute([alive, second] { second->Execute([alive] {}); });
            first->Execute([alive, first] {});
          });
          if (own() % 8 == 0) pools[0]->SetCount(1 + own() % 3);
          if (own() % 4 == 0) jobs[own() % (n + 1)]->Terminate();
        }
        pools = {};
        for (const auto& job : jobs) {
          if (own() % 4 == 0) job->Terminate();
        }
      });
      pools = {};
    }
    WaitUntil([&] { return alive.use_count() == 1; });
  }
}

TEST(ThreadExecutorStressTest, ExecutionsComeAndGo) {
  TALVO_SEEDED(engine);
  const auto executor = TThreadExecutor::Make();
  std::atomic<int> ran = 0, called = 0;
  int sure = 0;
  const auto alive = std::make_shared<int>();  // as long as an execution has its code
  for (int round = 0; round < Rounds / 40; ++round) {
    const unsigned fate = engine() % 3;
    const auto job = executor->Execute(
        [alive, &at = fate == 0 ? called : ran](const TRef<IExecution>&) { ++at; });
    if (fate == 0) {
      job->Terminate();  // it has run from here on, or never will
      EXPECT_TRUE(job->WaitFor(0));
    }
    if (fate == 1) job->WaitFor(NoTimeLimit);  // others are dropped: they run all the same
    sure += fate != 0;
  }
  WaitUntil([&] { return ran == sure && alive.use_count() == 1; });
}

}  // namespace
}  // namespace Talvo
