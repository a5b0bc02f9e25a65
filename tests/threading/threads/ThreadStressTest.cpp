// SPDX-License-Identifier: Apache-2.0
// Many threads at the queue of one, in no order that anybody planned.

#include <talvo/threading/threads/ProcessingThread.h>

#include <tests/threading/Fixtures.h>
#include <talvo/threading/threads/RepeatThread.h>

namespace Talvo {
namespace {

using namespace Testing;

TEST(ThreadStressTest, WhatIsCancelledDoesNotRunAnyMore) {
  TALVO_SEEDED(engine);
  const auto thread = TProcessingThread::MakeNamed(u"Cancelled");
  std::atomic<int> faults = 0, runs = 0, refusals = 0;
  TCrowd(4, engine, [&](TEngine& own) {
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
      own.discard(own() % 200);
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
    constexpr int Posters = 3, Items = 40;
    std::atomic<int> done = 0, faults = 0;
    const bool isCleared = engine() % 2 == 0;
    const auto thread = TProcessingThread::Make();
    TCrowd(Posters, engine, [&](TEngine& own) {
      int last = -1;  // the thread's own
      std::vector<std::atomic<bool>> isDone(Items);
      for (int i = 0; i < Items; ++i) {
        const bool isFirst = own() % 8 == 0;
        thread->Process(
            [&, i, isFirst](const TRef<IProcessingThread>& self, bool isRun) {
              if (isDone[static_cast<size_t>(i)].exchange(true)) ++faults;
              if (isRun && !isFirst && std::exchange(last, i) > i) ++faults;
              if (isRun && self->CountWaiting() >= Posters * Items) ++faults;
              ++done, done.notify_all();
            },
            isFirst);
        own.discard(own() % 300);
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
  const TNotices notices;
  const auto load = std::make_shared<int>();
  for (int round = 0; round < 300; ++round) {
    auto thread = TProcessingThread::Make();
    {
      const TCrowd posters(3, engine, [load, share = thread](TEngine& own) mutable {
        for (uint32_t posts = own() % 20; posts > 0; --posts) {
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
      thread = nullptr;
    }
    notices.WaitForEnds(round + 1);
  }
  // A thread that ended its own object lets go of its queue a little behind its notice.
  WaitUntil([&] { return load.use_count() == 1; });
}

TEST(ThreadStressTest, BlockingCallersAreReleased) {
  TALVO_SEEDED(engine);
  for (int round = 0; round < 20; ++round) {
    const auto thread = TProcessingThread::Make();
    std::atomic<int> runs = 0;
    const TCrowd callers(3, engine, [&](TEngine& own) {
      for (int call = 0; call < 300; ++call) {
        if (own() % 2) {
          thread->ProcessBlocking([&] { ++runs; }, own() % 2 == 0);
        } else {
          thread->ProcessBlocking([&](const auto&, bool isRun) { runs += isRun; });
        }
      }
    });
    for (int turn = 0; callers.IsBusy(); ++turn) {
      thread->AbortBlocking();
      if (engine() % 64 == 0) thread->Clear();
      if (turn == 2000) thread->Terminate();
      std::this_thread::yield();
    }
    thread->Terminate();
    EXPECT_LE(runs, 900);
  }
}

TEST(ThreadStressTest, ThreadsStartAndEndInCrowds) {
  TALVO_SEEDED(engine);
  const TNotices notices;
  TCrowd(4, engine, [&](TEngine& own) {
    for (int round = 0; round < 30; ++round) {
      const TRef<IThread> crowd[] = {
          TRepeatThread::Make(u"Repeat", [](const auto& self) { self->Terminate(); }),
          TPeriodicThread::Make(u"Periodic", 1, [] {}), TProcessingThread::MakeNamed(u"Process")};
      for (const auto& thread : crowd) {
        if (own() % 2) thread->SetPriority(own() % 2 ? tpLower : tpNormal);
        if (own() % 2) thread->Terminate();
        EXPECT_TRUE(own() % 2 || thread->ThreadID() != 0);
      }
    }
  });
  EXPECT_EQ(notices.Starts, 4 * 30 * 3);
  EXPECT_EQ(notices.Ends, 4 * 30 * 3);
}

}  // namespace
}  // namespace Talvo
