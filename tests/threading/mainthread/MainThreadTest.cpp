// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/mainthread/MainThread.h>

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <tests/TestTypes.h>
#include <thread>
#include <vector>
#include <talvo/runtime/Exceptions.h>

namespace Talvo {
namespace {

bool IsWoken(int timeoutMs = 0) {
  pollfd waiting{MainThread::WakeUpDescriptor(), POLLIN, 0};
  return poll(&waiting, 1, timeoutMs) == 1;
}

template <class F>
void OnWorker(F&& code) {
  std::thread(std::forward<F>(code)).join();
}

/// A queue of its own, and letters that its work writes down.
class MainThreadTest : public ::testing::Test {
 protected:
  TProc<> Letter(char letter, TProc<> andThen = nullptr) {
    return [this, letter, andThen] {
      FLetters += letter;
      if (andThen) andThen();
    };
  }
  std::string Taken() { return std::exchange(FLetters, {}); }

  std::string FLetters;
  TRef<IMainThreadExecute> FQueue = TMainThreadExecute::Make();
  int FOwner = 0, FOther = 0;
};

TEST_F(MainThreadTest, RunsAtOnceOnTheMainThreadAndQueuesElsewhere) {
  ASSERT_TRUE(MainThread::IsCurrent());
  FQueue->Execute(true, Letter('a'), false);
  FQueue->Execute(false, Letter('b'), false);
  EXPECT_EQ(Taken(), "b") << "runs before what is queued";
  OnWorker([&] {
    EXPECT_FALSE(MainThread::IsCurrent());
    FQueue->Execute(false, Letter('c'), false);
    FQueue->Execute(&FOwner, true, Letter('d'), false);
  });
  EXPECT_EQ(Taken(), "");
  EXPECT_TRUE(IsWoken());
  EXPECT_EQ(MainThread::ProcessMessages(), 1) << "one wake-up for all";
  EXPECT_EQ(Taken(), "acd");
  EXPECT_FALSE(IsWoken());
  EXPECT_THROW(FQueue->Execute(
                   false, [] { throw ERangeError(u""); }, false),
               ERangeError);
}

TEST_F(MainThreadTest, IgnoresWhatWaitsAlready) {
  const TProc<> a = Letter('a'), b = Letter('b');
  FQueue->Execute(&FOwner, true, a, true);
  FQueue->Execute(&FOwner, true, a, true);
  FQueue->Execute(&FOther, true, a, true);
  FQueue->Execute(&FOwner, true, b, true);
  FQueue->Execute(&FOwner, true, b, false);
  FQueue->Execute(true, a, true);
  FQueue->SyncNotify();
  EXPECT_EQ(Taken(), "aabba");
  FQueue->Execute(&FOwner, true, a, true);
  FQueue->SyncNotify();
  EXPECT_EQ(Taken(), "a") << "what has run does not count";
}

TEST_F(MainThreadTest, OwnersTakeTheirWorkOut) {
  const auto fill = [&] {
    FQueue->Execute(&FOwner, true, Letter('a'), false);
    FQueue->Execute(&FOther, true, Letter('b'), false);
    FQueue->Execute(&FOwner, true, Letter('c'), false);
    FQueue->Execute(true, Letter('d'), false);
  };
  struct TCase {
    const char* Name;
    std::function<void()> Act;
    const char *Ran, *Left;
  };
  const TCase cases[] = {
      {"main, owner", [&] { FQueue->ClearMainThread(&FOwner); }, "ac", "bd"},
      {"main, all", [&] { FQueue->ClearMainThread(nullptr); }, "abcd", ""},
      {"worker, owner", [&] { OnWorker([&] { FQueue->ClearMainThread(&FOwner); }); }, "", "bd"},
      {"worker, all", [&] { OnWorker([&] { FQueue->ClearMainThread(nullptr); }); }, "", ""},
      {"clear, owner", [&] { FQueue->Clear(&FOther); }, "", "acd"},
      {"clear, all", [&] { FQueue->Clear(nullptr); }, "", ""},
  };
  for (const TCase& test : cases) {
    SCOPED_TRACE(test.Name);
    fill();
    test.Act();
    EXPECT_EQ(Taken(), test.Ran);
    EXPECT_TRUE(IsWoken() || *test.Left == 0);
    MainThread::ProcessMessages();
    EXPECT_EQ(Taken(), test.Left);
    EXPECT_FALSE(IsWoken());
  }
}

TEST_F(MainThreadTest, WorkMayRaiseQueueMoreAndDropTheQueue) {
  FQueue->Execute(true, Letter('a', [] { throw ERangeError(u"not told"); }), false);
  FQueue->Execute(true, Letter('b', [&] { FQueue->Execute(true, Letter('d'), false); }), false);
  FQueue->Execute(true, Letter('c', [&] { FQueue->SyncNotify(); }), false);
  MainThread::ProcessMessages();
  EXPECT_EQ(Taken(), "abcd");

  FQueue->Execute(true, Letter('e', [&] { FQueue = nullptr; }), false);
  FQueue->Execute(true, Letter('f'), false);
  MainThread::ProcessMessages();
  EXPECT_EQ(Taken(), "ef") << "the queue lasts until it is empty";
  EXPECT_EQ(MainThread::ProcessMessages(), 0);
}

TEST_F(MainThreadTest, WhatWaitsEndsWithTheQueueAndLateWakeUpsAreDropped) {
  auto held = std::make_shared<int>();
  FQueue->Execute(
      &FOwner, true, [held] { ADD_FAILURE(); }, false);
  EXPECT_EQ(held.use_count(), 2);
  const auto other = TMainThreadExecute::Make();  // keeps the window
  OnWorker([&] { FQueue = nullptr; });
  EXPECT_EQ(held.use_count(), 1);
  MainThread::ProcessMessages();

  // What a function object takes along may come back to the queue when it is dropped.
  FQueue = TMainThreadExecute::Make();
  struct TEnding {
    TRef<TWatched> Held;
    void operator()() const {}
  };
  FQueue->Execute(true,
                  TEnding{Create<TWatched>(1, [&] { FQueue->Execute(true, Letter('z'), false); })},
                  false);
  FQueue->Clear(nullptr);
  FQueue->SyncNotify();
  EXPECT_EQ(Taken(), "z");
}

TEST_F(MainThreadTest, TheMainThreadWorksByHandToo) {
  for (int round = 0; round < 3; ++round) {
    OnWorker([&] { MainThread::Execute(this, false, Letter('a'), false); });
    EXPECT_TRUE(IsWoken());
    MainThread::ProcessExecuteQueueAll();
    EXPECT_EQ(Taken(), "a");
    EXPECT_FALSE(IsWoken()) << "nothing waits any more";
  }
  EXPECT_EQ(MainThread::ProcessMessages(), 0) << "wake-ups do not pile up";
  MainThread::Execute(nullptr, false, nullptr, false);
  MainThread::Execute(nullptr, true, nullptr, false);
  EXPECT_FALSE(IsWoken());
  OnWorker([&] {
    MainThread::Execute(this, false, Letter('b'), false);
    MainThread::ProcessExecuteQueue(this);
    MainThread::Execute(this, false, Letter('c'), false);
    EXPECT_THROW(FQueue->SyncNotify(), EAssertionFailed);
  });
  MainThread::ProcessExecuteQueue(this);
  EXPECT_EQ(Taken(), "c");
}

// Each worker waits for its work before it goes on: a wake-up that is lost stops the test.
TEST(MainThreadStressTest, AHostsLoopWaitsWithoutLimit) {
  TALVO_SEEDED(engine);
  constexpr int Workers = 3, Rounds = 2'000;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::atomic<int> ran = 0;
  std::vector<std::thread> workers;
  for (int i = 0; i < Workers; ++i) {
    workers.emplace_back([&, random = std::mt19937(engine())]() mutable {
      const auto queue = TMainThreadExecute::Make();
      for (int round = 0; round < Rounds; ++round) {
        const auto hasRun = std::make_shared<std::promise<void>>();
        const TProc<> run = [hasRun, &ran] {
          ++ran;
          hasRun->set_value();
        };
        if (random() % 2) {
          queue->Execute(false, run, true);
        } else {
          MainThread::Execute(hasRun.get(), false, run, true);
        }
        if (random() % 4 == 0)
          MainThread::Execute(
              nullptr, true, [] {}, false);
        hasRun->get_future().wait();
      }
      EXPECT_EQ(write(ends[1], "x", 1), 1);
    });
  }
  pollfd waiting[] = {{MainThread::WakeUpDescriptor(), POLLIN, 0}, {ends[0], POLLIN, 0}};
  for (int done = 0; done < Workers;) {
    ASSERT_GE(poll(waiting, 2, -1), 1);
    if (waiting[0].revents) {
      EXPECT_GE(MainThread::ProcessMessages(), 1);
    }
    char byte = 0;
    if (waiting[1].revents) done += static_cast<int>(read(ends[0], &byte, 1));
  }
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(ran, Workers * Rounds);
  MainThread::ProcessMessages();
  EXPECT_FALSE(IsWoken());
  close(ends[0]);
  close(ends[1]);
}

TEST(OwnerKeyTest, AnObjectHasOneKey) {
  const auto object = Create<TWatched>();
  IWatched* const face = object.Get();
  const TRef<IInterface> anything = object;
  EXPECT_TRUE(TOwnerKey(object) == TOwnerKey(face));
  EXPECT_TRUE(TOwnerKey(object.Get()) == TOwnerKey(anything));
  EXPECT_FALSE(TOwnerKey(object) == TOwnerKey(&object));
  EXPECT_FALSE(TOwnerKey(nullptr) || TOwnerKey(static_cast<IWatched*>(nullptr)));
}

// Owners come and go on several threads; each posts work that touches it, and takes it out before
// it ends.
TEST(MainThreadStressTest, OwnersThatEnd) {
  TALVO_SEEDED(engine);
  constexpr int Workers = 4, Rounds = 3'000;
  std::atomic<int> done = 0, ran = 0;
  std::vector<std::thread> workers;
  for (int i = 0; i < Workers; ++i) {
    workers.emplace_back([&, random = std::mt19937(engine())]() mutable {
      for (int round = 0; round < Rounds; ++round) {
        struct TOwner {
          std::atomic<int> Touched = 0;
        };
        auto owner = std::make_shared<TOwner>();
        const TProc<> touch = [owner = owner.get(), keep = std::weak_ptr(owner), &ran] {
          // Dropped in time, or alive: the main thread may be in it while the owner goes.
          if (const auto held = keep.lock()) ++held->Touched, ++ran;
        };
        for (unsigned n = random() % 8; n > 0; --n) {
          MainThread::Execute(owner.get(), false, touch, random() % 2);
        }
        if (random() % 4 == 0) std::this_thread::yield();
        MainThread::ProcessExecuteQueue(owner.get());
        owner = nullptr;
        if (random() % 8 == 0) {
          const auto queue = TMainThreadExecute::Make();
          queue->Execute(true, touch, false);
        }
      }
      ++done;
    });
  }
  while (done < Workers) {
    IsWoken(1);
    if (engine() % 2) {
      MainThread::ProcessMessages();
    } else {
      MainThread::ProcessExecuteQueueAll();
    }
  }
  for (std::thread& worker : workers) worker.join();
  MainThread::ProcessExecuteQueueAll();
  while (MainThread::ProcessMessages() > 0) {
  }
  EXPECT_FALSE(IsWoken());
  EXPECT_GT(ran, 0);
}

TEST_F(MainThreadTest, AHostsLoopWithinWorkIsWoken) {
  MainThread::ProcessMessages();  // wake-ups for queues that have gone
  const auto hostsLoop = [&] {
    std::thread([&] { FQueue->Execute(false, Letter('b'), false); }).join();
    EXPECT_TRUE(IsWoken());
    EXPECT_EQ(MainThread::ProcessMessages(), 1);
    FLetters += 'c';
  };
  FQueue->Execute(true, Letter('a', hostsLoop), false);
  EXPECT_EQ(MainThread::ProcessMessages(), 1);
  EXPECT_EQ(Taken(), "abc");
  EXPECT_FALSE(IsWoken());
}

}  // namespace
}  // namespace Talvo
