// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/mainthread/MainThread.h>

#include <poll.h>

#include <future>
#include <tests/threading/Fixtures.h>

namespace Talvo {
namespace {

using namespace Testing;

bool IsWoken(int timeoutMs = 0) {
  pollfd waiting{MainThread::WakeUpDescriptor(), POLLIN, 0};
  return poll(&waiting, 1, timeoutMs) == 1;
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
  void Post(TOwnerKey owner, TProc<> proc, bool ignoreMultiple = false) {
    FQueue->Execute(owner, /*forcePost*/ true, std::move(proc), ignoreMultiple);
  }
  std::string Taken() { return std::exchange(FLetters, {}); }

  std::string FLetters;
  TRef<IMainThreadExecute> FQueue = TMainThreadExecute::Make();
  TWorker FWorker;
  int FOwner = 0, FOther = 0;
};

TEST_F(MainThreadTest, RunsAtOnceOnTheMainThreadAndQueuesElsewhere) {
  ASSERT_TRUE(MainThread::IsCurrent());
  Post(nullptr, Letter('a'));
  FQueue->Execute(false, Letter('b'), false);
  EXPECT_EQ(Taken(), "b") << "runs before what is queued";
  FWorker.Run([&] {
    EXPECT_FALSE(MainThread::IsCurrent());
    FQueue->Execute(false, Letter('c'), false);
    Post(&FOwner, Letter('d'));
    EXPECT_THROW(FQueue->SyncNotify(), EAssertionFailed);
  });
  EXPECT_EQ(Taken(), "");
  EXPECT_TRUE(IsWoken());
  EXPECT_EQ(MainThread::ProcessMessages(), 1) << "one wake-up for all";
  EXPECT_EQ(Taken(), "acd");
  EXPECT_FALSE(IsWoken());
  const TProc<> fail = [] { throw ERangeError(u""); };
  EXPECT_THROW(FQueue->Execute(false, fail, false), ERangeError);
}

TEST_F(MainThreadTest, IgnoresWhatWaitsAlready) {
  const TProc<> a = Letter('a'), b = Letter('b');
  for (const TOwnerKey owner : {&FOwner, &FOwner, &FOther}) Post(owner, a, true);
  for (const bool ignoreMultiple : {true, false}) Post(&FOwner, b, ignoreMultiple);
  FQueue->Execute(true, a, true);
  FQueue->SyncNotify();
  EXPECT_EQ(Taken(), "aabba");
  Post(&FOwner, a, true);
  FQueue->SyncNotify();
  EXPECT_EQ(Taken(), "a") << "what has run does not count";
}

TEST_F(MainThreadTest, OwnersTakeTheirWorkOut) {
  struct TCase {
    const char* Name;
    std::function<void()> Act;
    const char *Ran, *Left;
  };
  for (const TCase& test : {
           TCase{"main, owner", [&] { FQueue->ClearMainThread(&FOwner); }, "ac", "bd"},
           TCase{"main, all", [&] { FQueue->ClearMainThread(nullptr); }, "abcd", ""},
           TCase{"worker, owner", [&] { FWorker.Run([&] { FQueue->ClearMainThread(&FOwner); }); },
                 "", "bd"},
           TCase{"worker, all", [&] { FWorker.Run([&] { FQueue->ClearMainThread(nullptr); }); }, "",
                 ""},
           TCase{"clear, owner", [&] { FQueue->Clear(&FOther); }, "", "acd"},
       }) {
    SCOPED_TRACE(test.Name);
    Post(&FOwner, Letter('a'));
    Post(&FOther, Letter('b'));
    Post(&FOwner, Letter('c'));
    Post(nullptr, Letter('d'));
    test.Act();
    EXPECT_EQ(Taken(), test.Ran);
    EXPECT_TRUE(IsWoken() || *test.Left == 0);
    MainThread::ProcessMessages();
    EXPECT_EQ(Taken(), test.Left);
    EXPECT_FALSE(IsWoken());
  }
}

TEST_F(MainThreadTest, WorkMayRaiseQueueMoreAndDropTheQueue) {
  for (const bool isByHand : {false, true}) {
    SCOPED_TRACE(isByHand);
    const auto process = [&] {
      if (isByHand) return FQueue->SyncNotify();
      MainThread::ProcessMessages();
    };
    FQueue = TMainThreadExecute::Make();
    Post(nullptr, Letter('a', [] { throw ERangeError(u"not told"); }));
    Post(nullptr, Letter('b', [&] { FWorker.Run([&] { Post(nullptr, Letter('d')); }); }));
    Post(nullptr, Letter('c', [&] { FQueue->SyncNotify(); }));
    process();
    EXPECT_EQ(Taken(), "abcd");

    Post(nullptr, Letter('e', [&] { FQueue = nullptr; }));
    Post(nullptr, Letter('f'));
    process();
    EXPECT_EQ(Taken(), "ef") << "the queue lasts until it is empty";
    MainThread::ProcessMessages();
    EXPECT_FALSE(IsWoken());
  }
}

TEST_F(MainThreadTest, WhatWaitsEndsWithTheQueueAndLateWakeUpsAreDropped) {
  const auto held = std::make_shared<int>();
  Post(&FOwner, [held] { ADD_FAILURE(); });
  const auto other = TMainThreadExecute::Make();  // keeps the window
  FWorker.Run([&] { FQueue = nullptr; });
  EXPECT_EQ(held.use_count(), 1);
  MainThread::ProcessMessages();

  // What a function object takes along may come back to the queue when it is dropped.
  FQueue = TMainThreadExecute::Make();
  const auto comeBack = [&] { Post(nullptr, Letter('z')); };
  Post(nullptr, [held = Create<TWatched>(1, comeBack)] {});
  FQueue->Clear(nullptr);
  FQueue->SyncNotify();
  EXPECT_EQ(Taken(), "z");
}

TEST_F(MainThreadTest, TheMainThreadWorksByHandToo) {
  for (int round = 0; round < 3; ++round) {
    FWorker.Run([&] { MainThread::Execute(this, false, Letter('a'), false); });
    EXPECT_TRUE(IsWoken());
    MainThread::ProcessExecuteQueueAll();
    EXPECT_EQ(Taken(), "a");
    EXPECT_FALSE(IsWoken()) << "nothing waits any more";
  }
  EXPECT_EQ(MainThread::ProcessMessages(), 0) << "wake-ups do not pile up";
  for (const bool forcePost : {false, true}) MainThread::Execute(this, forcePost, nullptr, false);
  EXPECT_FALSE(IsWoken());
  FWorker.Run([&] {
    MainThread::Execute(this, false, Letter('b'), false);
    MainThread::ProcessExecuteQueue(this);
    MainThread::Execute(this, false, Letter('c'), false);
  });
  MainThread::ProcessExecuteQueue(this);
  EXPECT_EQ(Taken(), "c");
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

// Each worker waits for its work before it goes on: a wake-up that is lost stops the test.
TEST(MainThreadStressTest, AHostsLoopWaitsWithoutLimit) {
  TALVO_SEEDED(engine);
  constexpr int Workers = 3, Rounds = 2'000;
  int ran = 0, ended = 0;
  const TCrowd workers(Workers, engine, [&](TEngine& own) {
    const auto queue = TMainThreadExecute::Make();
    for (int round = 0; round < Rounds; ++round) {
      const auto hasRun = std::make_shared<std::promise<void>>();
      const TProc<> run = [hasRun, &ran] {
        ++ran;
        hasRun->set_value();
      };
      if (own() % 2) {
        queue->Execute(false, run, true);
      } else {
        MainThread::Execute(hasRun.get(), false, run, true);
      }
      const TProc<> nothing = [] {};
      if (own() % 4 == 0) MainThread::Execute(nullptr, true, nothing, false);
      hasRun->get_future().wait();
    }
    const TProc<> end = [&] { ++ended; };
    MainThread::Execute(nullptr, true, end, false);
  });
  while (ended < Workers) {
    ASSERT_TRUE(IsWoken(/*timeoutMs*/ -1));
    EXPECT_GE(MainThread::ProcessMessages(), 1);
  }
  EXPECT_EQ(ran, Workers * Rounds);
  MainThread::ProcessMessages();
  EXPECT_FALSE(IsWoken());
}

// Owners come and go on several threads; each posts work that touches it, and takes it out before
// it ends.
TEST(MainThreadStressTest, OwnersThatEnd) {
  TALVO_SEEDED(engine);
  std::atomic<int> ran = 0;
  {
    const TCrowd workers(4, engine, [&](TEngine& own) {
      for (int round = 0; round < 3'000; ++round) {
        auto owner = std::make_shared<std::atomic<int>>(0);
        const TProc<> touch = [keep = std::weak_ptr(owner), &ran] {
          // Dropped in time, or alive: the main thread may be in it while the owner goes.
          if (const auto held = keep.lock()) ++*held, ++ran;
        };
        for (unsigned n = own() % 8; n > 0; --n) {
          MainThread::Execute(owner.get(), false, touch, own() % 2);
        }
        if (own() % 4 == 0) std::this_thread::yield();
        MainThread::ProcessExecuteQueue(owner.get());
        owner = nullptr;
        if (own() % 8 == 0) TMainThreadExecute::Make()->Execute(true, touch, false);
      }
    });
    while (workers.IsBusy()) {
      IsWoken(1);
      if (engine() % 2) {
        MainThread::ProcessMessages();
      } else {
        MainThread::ProcessExecuteQueueAll();
      }
    }
  }
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
