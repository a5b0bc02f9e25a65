// SPDX-License-Identifier: Apache-2.0
// Executors under load: many threads, random operations.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <tests/TestTypes.h>
#include <thread>
#include <vector>
#include <talvo/threading/executors/ThreadPoolExecutor.h>
#include <talvo/threading/sync/SynchronizationObject.h>

namespace Talvo {
namespace {

constexpr int Producers = 4;
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int Rounds = 2'000;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
constexpr int Rounds = 2'000;
#else
constexpr int Rounds = 20'000;
#endif
#else
constexpr int Rounds = 20'000;
#endif

TEST(ThreadPoolStressTest, ResizedWhileFlooded) {
  TALVO_SEEDED(engine);
  const auto pool = TThreadPoolExecutor::Make(2);
  std::atomic<int> ran = 0, fed = 0;
  std::vector<std::thread> producers;
  for (int i = 0; i < Producers; ++i) {
    producers.emplace_back([&, random = std::mt19937(engine())]() mutable {
      for (int n = 0; n < Rounds; ++n) {
        const auto job = pool->Execute([&] { ++ran; });
        if (random() % 256 == 0) job->WaitFor(NoTimeLimit);
      }
      ++fed;
    });
  }
  while (fed < Producers) {
    pool->SetCount(1 + engine() % 6);
    pool->SetGroupSize(engine() % 8);
    pool->SetPriority(engine() % 2 ? tpNormal : tpLower);
    if (engine() % 4 == 0) pool->Execute([&] { ++ran; })->WaitFor(NoTimeLimit), --ran;
  }
  for (std::thread& producer : producers) producer.join();
  pool->SetCount(1);
  // Behind all that waits in the pool, but maybe not behind what waits at threads.
  pool->Execute([] {})->WaitFor(NoTimeLimit);
  while (ran < Producers * Rounds) std::this_thread::yield();
  EXPECT_EQ(ran, Producers * Rounds);
}

TEST(ThreadPoolStressTest, CancelAgainstRun) {
  TALVO_SEEDED(engine);
  const auto pool = TThreadPoolExecutor::Make(3);
  pool->SetGroupSize(2);
  std::array<std::thread, Producers> producers;
  for (std::thread& producer : producers) {
    producer = std::thread([&, random = std::mt19937(engine())]() mutable {
      for (int n = 0; n < Rounds / 4; ++n) {
        // Freed as soon as Terminate has returned: from there on nothing may run.
        auto touched = std::make_unique<std::atomic<int>>(0);
        std::vector<TRef<IExecution>> jobs;
        for (unsigned k = 1 + random() % 4; k > 0; --k) {
          jobs.push_back(pool->Execute([at = touched.get()] { ++*at; }));
        }
        if (random() % 2) std::this_thread::yield();
        std::thread rival;
        if (random() % 64 == 0) rival = std::thread([&] { jobs.front()->Terminate(); });
        for (const auto& job : jobs) {
          job->Terminate();
          EXPECT_TRUE(job->WaitFor(0) && job->IsTerminated());
        }
        if (rival.joinable()) rival.join();
        EXPECT_LE(*touched, static_cast<int>(jobs.size()));
      }
    });
  }
  for (std::thread& producer : producers) producer.join();
  EXPECT_TRUE(pool->Execute([] {})->WaitFor(NoTimeLimit));
}

TEST(ThreadPoolStressTest, PoolsThatEndWhileTheyAreFed) {
  TALVO_SEEDED(engine);
  for (int round = 0; round < Rounds / 40; ++round) {
    auto pool = TThreadPoolExecutor::Make(1 + static_cast<int32_t>(engine() % 3));
    pool->SetGroupSize(engine() % 3);
    std::atomic<int> inside = 0;
    std::vector<TRef<IExecution>> jobs;
    std::thread canceller;
    for (int n = static_cast<int>(engine() % 20); n > 0; --n) {
      jobs.push_back(pool->Execute([&inside] {
        ++inside;
        --inside;
      }));
    }
    if (engine() % 2) {
      canceller = std::thread([&] {
        for (const auto& job : jobs) job->Terminate();
      });
    }
    pool = nullptr;
    EXPECT_EQ(inside, 0);
    if (canceller.joinable()) canceller.join();
  }
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
    std::array<std::thread, 2> producers;
    for (std::thread& producer : producers) {
      producer = std::thread(
          [alive, random = std::mt19937(engine()), first = pools[0], second = pools[1]]() mutable {
            std::vector<TRef<IExecution>> jobs;
            for (unsigned n = random() % 50; n > 0; --n) {
              jobs.push_back(first->Execute([alive, first, second] {
                second->Execute([alive, second] { second->Execute([alive] {}); });
                first->Execute([alive, first] {});
              }));
              if (random() % 8 == 0) first->SetCount(1 + random() % 3);
              if (random() % 4 == 0) jobs[random() % jobs.size()]->Terminate();
            }
            first = second = nullptr;
            for (const auto& job : jobs) {
              if (random() % 4 == 0) job->Terminate();
            }
          });
    }
    pools = {};
    for (std::thread& producer : producers) producer.join();
    while (alive.use_count() > 1) std::this_thread::yield();
  }
}

TEST(ThreadExecutorStressTest, ExecutionsComeAndGo) {
  TALVO_SEEDED(engine);
  const auto executor = TThreadExecutor::Make();
  std::atomic<int> ran = 0, called = 0;
  int sure = 0;
  for (int round = 0; round < Rounds / 40; ++round) {
    const unsigned fate = engine() % 3;
    auto job =
        executor->Execute([&at = fate == 0 ? called : ran](const TRef<IExecution>&) { ++at; });
    if (fate == 0) {
      job->Terminate();  // it has run from here on, or never will
      continue;
    }
    ++sure;
    if (fate == 1) job->WaitFor(NoTimeLimit);  // others are dropped: they run all the same
  }
  while (ran < sure) std::this_thread::yield();
}

}  // namespace
}  // namespace Talvo
