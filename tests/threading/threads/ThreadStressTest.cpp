// SPDX-License-Identifier: Apache-2.0
// Many threads at the queue of one, in no order that anybody planned.

#include <talvo/threading/threads/ProcessingThread.h>

#include <atomic>
#include <gtest/gtest.h>
#include <latch>
#include <memory>
#include <tests/TestTypes.h>
#include <thread>
#include <vector>
#include <talvo/threading/Talvo.Threading.Utils.h>
#include <talvo/threading/threads/RepeatThread.h>

namespace Talvo {
namespace {

using TEngine = std::mt19937_64;

/// Runs `body` on so many threads at once, each with random numbers of its own.
template <class F>
void OnThreads(int count, TEngine& engine, F&& body) {
  std::latch start(count);
  std::vector<std::jthread> threads;
  for (int i = 0; i < count; ++i) {
    threads.emplace_back([&, seed = engine()] {
      TEngine own(seed);
      start.arrive_and_wait();
      body(own);
    });
  }
}

TEST(ThreadStressTest, WhatIsCancelledDoesNotRunAnyMore) {
  TALVO_SEEDED(engine);
  const auto thread = TProcessingThread::MakeNamed(u"Cancelled");
  std::atomic<int> faults = 0, runs = 0, refusals = 0;
  OnThreads(4, engine, [&](TEngine& own) {
    for (int round = 0; round < 5000; ++round) {
      auto isClosed = std::make_shared<std::atomic<bool>>(false);
      const TWorkItem item = thread->Process(
          TWorkItem([&, isClosed, reposts = own() % 8 == 0](const auto& self, bool isRun) {
            if (isRun && *isClosed) ++faults;
            ++(isRun ? runs : refusals);
            if (isRun && reposts) self->Process([] {});  // while somebody may wait for this item
            if (isRun && *isClosed) ++faults;
          }),
          own() % 4 == 0);
      for (uint32_t spin = own() % 200; spin > 0; --spin) own.discard(1);
      if (own() % 50 == 0) thread->Clear();
      thread->Cancel(item);
      *isClosed = true;
    }
  });
  thread->ProcessBlocking([] {});
  EXPECT_EQ(faults, 0);
  EXPECT_GE(runs + refusals, 20000);
  EXPECT_EQ(thread->CountWaiting(), 0);
}

// Nobody posts behind the last item: who forgets to wake the thread waits for ever.
TEST(ThreadStressTest, EachItemIsRunOrToldOnce) {
  TALVO_SEEDED(engine);
  for (int round = 0; round < 200; ++round) {
    std::atomic<int> done = 0, faults = 0;
    constexpr int Posters = 3, Items = 40;
    std::atomic<int> next = 0;
    int last[Posters] = {-1, -1, -1};  // the thread's own
    const bool isCleared = engine() % 2 == 0;
    const auto thread = TProcessingThread::Make();
    OnThreads(Posters, engine, [&](TEngine& own) {
      const int poster = next++;
      std::vector<std::atomic<bool>> isDone(Items);
      for (int i = 0; i < Items; ++i) {
        const bool isFirst = own() % 8 == 0;
        thread->Process(
            [&, poster, i, isFirst](const TRef<IProcessingThread>& self, bool isRun) {
              if (isDone[static_cast<size_t>(i)].exchange(true)) ++faults;
              if (isRun && !isFirst && std::exchange(last[poster], i) > i) ++faults;
              if (isRun && self->CountWaiting() >= Posters * Items) ++faults;
              ++done;
              done.notify_all();
            },
            isFirst);
        for (uint32_t spin = own() % 300; spin > 0; --spin) own.discard(1);
        if (isCleared && own() % 16 == 0) thread->Clear();
      }
      for (int seen = done; seen < Posters * Items; seen = done) done.wait(seen);
    });
    EXPECT_EQ(faults, 0);
    EXPECT_EQ(done, Posters * Items);
    EXPECT_EQ(thread->CountWaiting(), 0);
  }
}

TEST(ThreadStressTest, ThreadsAreDroppedWhileOthersPost) {
  TALVO_SEEDED(engine);
  std::atomic<int> carried = 0, ends = 0;
  struct TCarried {
    std::atomic<int>& Count;
    explicit TCarried(std::atomic<int>& count) : Count(count) { ++Count; }
    ~TCarried() { --Count; }
  };
  const TProc<> end = RegisterThreadEndNotify([&] {
    ++ends;
    ends.notify_all();
  });
  constexpr int Rounds = 300;
  for (int round = 0; round < Rounds; ++round) {
    TRef<IProcessingThread> thread = TProcessingThread::Make();
    std::vector<TRef<IProcessingThread>> shares(3, thread);
    std::atomic<size_t> next = 0;
    thread = nullptr;
    OnThreads(3, engine, [&](TEngine& own) {
      TRef<IProcessingThread> share = std::move(shares[next++]);
      for (uint32_t posts = own() % 20; posts > 0; --posts) {
        auto load = std::make_shared<TCarried>(carried);
        switch (own() % 4) {
          case 0:
            share->Process([load] {});
            break;
          case 1:  // the last reference may go with the item, on the thread itself
            share->Process([load, share] {});
            break;
          case 2:
            share->Process([load, kept = share]() mutable { kept = nullptr; });
            break;
          default:
            share->Process([load](const TRef<IProcessingThread>& self, bool isRun) {
              if (isRun) self->Process([load] {});
            });
        }
      }
      share = nullptr;
    });
    for (int seen = ends; seen <= round; seen = ends) ends.wait(seen);
  }
  UnRegisterThreadEndNotify(end);
  // A thread that ended its own object lets go of its queue a little behind its notice.
  while (carried != 0) std::this_thread::yield();
}

TEST(ThreadStressTest, BlockingCallersAreReleased) {
  TALVO_SEEDED(engine);
  for (int round = 0; round < 20; ++round) {
    const auto thread = TProcessingThread::Make();
    std::atomic<int> isRunning = 3, runs = 0;
    std::jthread aborting([&, seed = engine()] {
      TEngine own(seed);
      for (int turn = 0; isRunning > 0; ++turn) {
        thread->AbortBlocking();
        if (own() % 64 == 0) thread->Clear();
        if (turn == 2000) thread->Terminate();
        std::this_thread::yield();
      }
    });
    OnThreads(3, engine, [&](TEngine& own) {
      for (int call = 0; call < 300; ++call) {
        if (own() % 2) {
          thread->ProcessBlocking([&] { ++runs; }, own() % 2 == 0);
        } else {
          thread->ProcessBlocking([&](const auto&, bool isRun) { runs += isRun; });
        }
      }
      --isRunning;
    });
    aborting.join();
    thread->Terminate();
    EXPECT_LE(runs, 900);
  }
}

TEST(ThreadStressTest, ThreadsStartAndEndInCrowds) {
  TALVO_SEEDED(engine);
  std::atomic<int> starts = 0, ends = 0;
  const TProc<> start = RegisterThreadStartNotify([&] { ++starts; });
  const TProc<> end = RegisterThreadEndNotify([&] { ++ends; });
  OnThreads(4, engine, [&](TEngine& own) {
    for (int round = 0; round < 100; ++round) {
      TRef<IThread> thread;
      switch (own() % 3) {
        case 0:
          thread = TRepeatThread::Make(u"Crowd", [](const auto& self) { self->Terminate(); });
          break;
        case 1:
          thread = TPeriodicThread::Make(u"Crowd", 1, [] {});
          break;
        default:
          thread = TProcessingThread::MakeNamed(u"Crowd");
      }
      if (own() % 2) thread->SetPriority(own() % 2 ? tpLower : tpNormal);
      if (own() % 2) thread->Terminate();
      EXPECT_TRUE(own() % 2 || thread->ThreadID() != 0);
    }
  });
  UnRegisterThreadStartNotify(start);
  UnRegisterThreadEndNotify(end);
  EXPECT_EQ(starts, 400);
  EXPECT_EQ(ends, 400);
}

}  // namespace
}  // namespace Talvo
