// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/Talvo.Threading.h>

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tests/threading/Workers.h>
#include <unordered_set>
#include <talvo/runtime/Exceptions.h>

namespace Talvo {
namespace {

using Testing::InTwoProcesses;
using Testing::RunAtATime;
using Testing::TBlocked;
using Testing::TWorker;

TEST(EventTest, MakersAndStates) {
  const struct TCase {
    TRef<IEvent> Event;
    bool IsSignalled, IsManual;
  } cases[] = {
      {TEvent::Make(), false, false},
      {TEvent::Make(true), true, false},
      {TEvent::Make(ermManual, true), true, true},
      {TEvent::Make(ermManual, false), false, true},
      {TEvent::Make(u"talvo test/1", true), true, false},
      {TEvent::Make(u"talvo test/2", ermManual, true), true, true},
      {TEvent::Make(u"", ermAutomatic, true), true, false},
  };
  std::unordered_set<uint32_t> handles{0};
  for (const auto& [event, isSignalled, isManual] : cases) {
    SCOPED_TRACE(handles.size());
    EXPECT_TRUE(handles.insert(event->GetHandle()).second);
    EXPECT_EQ(isSignalled, event->WaitFor(0));
    EXPECT_EQ(isSignalled && isManual, event->WaitFor(1));
    event->SetState(true);
    EXPECT_TRUE(event->WaitFor(NoTimeLimit));
    EXPECT_EQ(isManual, event->WaitFor(0));
    event->Signal();
    event->SetState(false);
    EXPECT_FALSE(event->WaitFor(0));
  }
}

TEST(EventTest, AutomaticLetsOneThroughAndManualAll) {
  for (const bool isManual : {false, true}) {
    const auto event = TEvent::Make(isManual ? ermManual : ermAutomatic, false);
    std::atomic<int> through = 0;
    const TBlocked waiters(3, [&] {
      EXPECT_TRUE(event->WaitFor(NoTimeLimit));
      ++through;
    });
    for (int signals = 1; signals <= (isManual ? 1 : 3); ++signals) {
      event->Signal();
      if (isManual) event->Reset();  // too late for those that wait
      while (through < signals) std::this_thread::yield();
      EXPECT_TRUE(isManual || through == signals);
      EXPECT_FALSE(event->WaitFor(0));
    }
  }
}

TEST(SemaphoreTest, CountsBetweenZeroAndTheMaximum) {
  const auto semaphore = TSemaphore::Make(1, 3);
  for (const int count : {0, -1, 3}) EXPECT_FALSE(semaphore->Increment(count));
  EXPECT_TRUE(semaphore->Increment(2));
  EXPECT_FALSE(semaphore->Increment(1));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(semaphore->Decrement(NoTimeLimit));
  EXPECT_FALSE(semaphore->Decrement(0));
  EXPECT_FALSE(semaphore->Decrement(1));
  {
    const TBlocked waiters(3, [&] { EXPECT_TRUE(semaphore->Decrement(NoTimeLimit)); });
    EXPECT_TRUE(semaphore->Increment(3));
  }
  EXPECT_FALSE(semaphore->Decrement(0));

  for (const auto& [initial, maximum] : {std::pair{-1, 1}, {2, 1}, {0, 0}, {0, -1}}) {
    const auto invalid = TSemaphore::Make(initial, maximum);
    EXPECT_EQ(0u, invalid->GetHandle());
    EXPECT_FALSE(invalid->Increment(1));
    EXPECT_FALSE(invalid->Decrement(NoTimeLimit));
  }
}

TEST(CriticalSectionTest, IsLeftAsOftenAsEnteredAndByItsThread) {
  const auto section = TCriticalSection::Make();
  EXPECT_THROW(section->Leave(), EAssertionFailed);
  for (int i = 0; i < 3; ++i) section->Enter();
  TWorker other;
  other.Run([&] { EXPECT_THROW(section->Leave(), EAssertionFailed); });
  bool isLeft = false;
  other.Start([&] {
    const auto inside = TCriticalSectionLock::Make(section);
    EXPECT_TRUE(isLeft);
  });
  section->Leave();
  section->Leave();
  other.WaitUntilBlocked();
  isLeft = true;
  section->Leave();
  other.Wait();
  EXPECT_THROW(section->Leave(), EAssertionFailed);
  EXPECT_THROW(TCriticalSectionLock::Make(nullptr), EAssertionFailed);
}

TEST(CriticalSectionTest, RunsCodeInsideAndOutside) {
  const auto section = TCriticalSection::Make();
  TLockAccess& access = *section->Access();
  int runs = 0;
  const auto raise = [] { throw ERangeError(u"out"); };
  const auto outside = [&] {
    ++runs;
    EXPECT_THROW(section->Leave(), EAssertionFailed);
  };
  const auto inside = [&] {
    ++runs;
    access.ExecuteLeave(outside);
  };
  access.Execute(inside);
  access.Execute(TProc<>(inside).Object());
  EXPECT_THROW(access.Execute(raise), ERangeError);
  EXPECT_THROW(access.Execute(TProc<>()), EAssertionFailed);
  EXPECT_THROW(access.ExecuteLeave(raise), EAssertionFailed);
  outside();
  section->Enter();
  access.ExecuteLeave(TProc<>(outside).Object());
  EXPECT_THROW(access.ExecuteLeave(raise), ERangeError);
  section->Leave();
  outside();

  // The slot is cleared by what it holds, which goes on to its end.
  TProc<> slot = [&] {
    slot = nullptr;
    outside();
  };
  for (int i = 0; i < 2; ++i) access.ExecuteAssigned(slot);
  access.ExecuteAssigned(TLockAccess::TProcStd());
  EXPECT_EQ(8, runs);
}

TEST(MutexTest, BelongsToItsThread) {
  TWorker other;
  const auto raise = [] { throw ERangeError(u"out"); };
  for (const auto& mutex :
       {TMutex::Make(), TMutex::Make(true), TMutex::Make(u"talvo test mutex", true)}) {
    EXPECT_FALSE(mutex->MutexRelease());
    EXPECT_TRUE(mutex->MutexAcquire(0));
    EXPECT_TRUE(mutex->MutexAcquire(NoTimeLimit));
    other.Run([&] {
      EXPECT_FALSE(mutex->MutexRelease());
      for (const uint32_t timeoutMs : {0, 2}) EXPECT_FALSE(mutex->MutexAcquire(timeoutMs));
      mutex->Access()->Execute([] { ADD_FAILURE() << "runs without the mutex"; }, 1);
    });
    EXPECT_TRUE(mutex->MutexRelease());
    other.Start([&] { EXPECT_TRUE(mutex->MutexAcquire(NoTimeLimit)); });
    other.WaitUntilBlocked();
    EXPECT_TRUE(mutex->MutexRelease());
    other.Wait();
    EXPECT_FALSE(mutex->MutexAcquire(0));
    other.Run([&] {
      EXPECT_TRUE(mutex->Access()->ExecuteLeave([&] { EXPECT_FALSE(mutex->MutexRelease()); }, 0));
      EXPECT_THROW(mutex->Access()->ExecuteLeave(raise, 0), ERangeError);
      EXPECT_TRUE(mutex->MutexRelease());
      EXPECT_THROW(mutex->Access()->Execute(raise, 0), ERangeError);
      EXPECT_FALSE(mutex->MutexRelease());
    });
    // Taken by another thread meanwhile, it does not come back.
    EXPECT_TRUE(mutex->MutexAcquire(0));
    const auto give = [&] { other.Run([&] { EXPECT_TRUE(mutex->MutexAcquire(0)); }); };
    EXPECT_FALSE(mutex->Access()->ExecuteLeave(give, 1));
    EXPECT_FALSE(mutex->MutexRelease());
    other.Run([&] { EXPECT_TRUE(mutex->MutexRelease()); });
  }
}

TEST(MutexTest, OutlivesItsHolderAndIsOutlivedByIt) {
  const auto mutex = TMutex::Make();
  const auto acquire = [&] { EXPECT_TRUE(mutex->MutexAcquire(NoTimeLimit)); };
  TWorker().Run(acquire);
  EXPECT_TRUE(mutex->MutexAcquire(0));
  EXPECT_TRUE(mutex->MutexRelease());
  TWorker dying;
  dying.Run(acquire);
  {
    const TBlocked waiting(1, acquire);
    dying.End();
  }
  // Dropped while a thread holds them, and the thread goes on with others.
  TWorker holder;
  const auto kept = TMutex::Make();
  for (int i = 0; i < 10; ++i) {
    const auto dropped = TMutex::Make(u"talvo test dropped", false);
    const auto unnamed = TMutex::Make();
    holder.Run([&] {
      for (const auto& it : {dropped, kept, unnamed}) EXPECT_TRUE(it->MutexAcquire(0));
    });
  }
  holder.Run([&] {
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(kept->MutexRelease());
  });
  EXPECT_TRUE(kept->MutexAcquire(0));
}

TEST(NamedTest, ProcessesMeetByName) {
  const string odd = u"Global\\talvo/\u00e4 \xd800 %" + string(300, u'x');
  const auto there = TEvent::Make(odd, ermManual, false);
  const auto back = TEvent::Make(u"talvo test back", false);
  InTwoProcesses(
      [&] {
        // Opened by name: the mode and the state that are there stay.
        const auto opened = TEvent::Make(odd, ermAutomatic, true);
        EXPECT_TRUE(opened->WaitFor(NoTimeLimit));
        EXPECT_TRUE(opened->WaitFor(0));
        EXPECT_FALSE(TEvent::Make(odd + u"y", false)->WaitFor(0));
        TEvent::Make(u"talvo test back", false)->Signal();
      },
      [&] {
        EXPECT_FALSE(there->WaitFor(0));
        there->Signal();
        EXPECT_TRUE(back->WaitFor(NoTimeLimit));
      });
}

TEST(NamedTest, AMutexPassesOnFromAKilledProcess) {
  const auto mutex = TMutex::Make(u"talvo test mutex", false);
  const auto held = TEvent::Make(u"talvo test held", false);
  const auto tried = TEvent::Make(u"talvo test tried", false);
  InTwoProcesses(
      [&] {
        EXPECT_TRUE(TMutex::Make(u"talvo test mutex", false).Detach()->MutexAcquire(0));
        held->Signal();
        EXPECT_TRUE(tried->WaitFor(NoTimeLimit));
        if (!::testing::Test::HasFailure()) kill(getpid(), SIGKILL);
      },
      [&] {
        EXPECT_TRUE(held->WaitFor(NoTimeLimit));
        EXPECT_FALSE(mutex->MutexAcquire(0));
        EXPECT_FALSE(mutex->MutexRelease());
        tried->Signal();
        EXPECT_TRUE(mutex->MutexAcquire(NoTimeLimit));
      },
      SIGKILL);
  EXPECT_TRUE(mutex->MutexRelease());
}

TEST(NamedTest, TheNameGoesWithItsLastUser) {
  const auto open = [](bool isSignalled) {
    return TEvent::Make(u"talvo test life", ermManual, isSignalled);
  };
  auto first = open(true);
  auto second = open(false);
  first = nullptr;
  EXPECT_TRUE(open(false)->WaitFor(0));
  second = nullptr;
  EXPECT_FALSE(open(false)->WaitFor(0));
  // What a process leaves that ends without a word is nobody's.
  InTwoProcesses([&] { open(true).Detach(); });
  EXPECT_FALSE(open(false)->WaitFor(0));
}

TEST(NamedTest, ManyComeAndGo) {
  std::atomic<int> inside = 0;
  const auto run = [&](uint32_t) {
    for (int round = 0; round < 300; ++round) {
      const auto mutex = TMutex::Make(u"talvo test crowd", false);
      ASSERT_NE(0u, mutex->GetHandle());
      ASSERT_NE(0u, TEvent::Make(u"talvo test crowd", false)->GetHandle());
      const auto lookAround = [&] {
        EXPECT_EQ(0, inside++);
        inside--;
      };
      mutex->Access()->Execute(lookAround, NoTimeLimit);
    }
  };
  InTwoProcesses([&] { run(0); }, [&] { RunAtATime(2, run); });
}

TEST(SyncStressTest, NoTurnIsLost) {
  constexpr int threads = 4;
  constexpr int rounds = 20000;
  const auto section = TCriticalSection::Make();
  const auto mutex = TMutex::Make();
  const auto turn = TEvent::Make(true);
  const auto seat = TSemaphore::Make(1, 1);
  struct TGate {
    std::function<void()> Enter, Leave;
    int64_t Count = 0;
  } gates[] = {
      {[&] { section->Enter(); }, [&] { section->Leave(); }},
      {[&] { mutex->MutexAcquire(NoTimeLimit); }, [&] { mutex->MutexRelease(); }},
      {[&] { turn->WaitFor(NoTimeLimit); }, [&] { turn->Signal(); }},
      {[&] { seat->Decrement(NoTimeLimit); }, [&] { seat->Increment(1); }},
  };
  RunAtATime(threads, [&](uint32_t) {
    for (int round = 0; round < rounds; ++round) {
      TGate& gate = gates[round % 4];
      gate.Enter();
      ++gate.Count;
      gate.Leave();
    }
  });
  for (const TGate& gate : gates) EXPECT_EQ(threads * rounds / 4, gate.Count);
}

TEST(NamedTest, WhatOthersCanWriteToIsNotUsed) {
  const std::string path = "/talvo-" + std::to_string(geteuid()) + "-event-talvo.test.open";
  const int file = shm_open(path.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_GE(file, 0);
  EXPECT_EQ(0, fchmod(file, 0606));
  EXPECT_EQ(0u, TEvent::Make(u"talvo.test.open", false)->GetHandle());
  EXPECT_EQ(0, fchmod(file, 0600));
  EXPECT_NE(0u, TEvent::Make(u"talvo.test.open", false)->GetHandle());
  close(file);
}

TEST(EventTest, ASignalIsOwedToWhoeverWaits) {
  TWorker first, second;
  for (int round = 0; round < 20; ++round) {
    const auto event = TEvent::Make();
    for (TWorker* worker : {&first, &second}) {
      worker->Start([&] { EXPECT_TRUE(event->WaitFor(10000)); });
    }
    for (TWorker* worker : {&first, &second}) worker->WaitUntilBlocked();
    event->Signal();
    event->Signal();
    event->Reset();
    first.Wait();
    second.Wait();
    EXPECT_FALSE(event->WaitFor(0));
  }
}

TEST(SyncStressTest, SignalsAndTimeOutsMeet) {
  // Whoever waits gives up after a moment, mostly just when it is signalled.
  constexpr int signals = 3000;
  const auto event = TEvent::Make();
  const auto pace = TEvent::Make();
  const auto ready = TSemaphore::Make(0, 2);
  std::atomic<int> through = 0;
  std::atomic<bool> isOver = false;
  TWorker first, second;
  for (TWorker* worker : {&first, &second}) {
    worker->Start([&] {
      while (!isOver) {
        if (!event->WaitFor(1)) continue;
        ++through;
        ready->Increment(1);
      }
    });
  }
  // As each signal is answered before the next, none is merged.
  for (int signal = 0; signal < signals; ++signal) {
    event->Signal();
    ASSERT_TRUE(ready->Decrement(10000)) << signal;
    if (signal % 4 == 0) pace->WaitFor(1);
  }
  isOver = true;
  first.Wait();
  second.Wait();
  EXPECT_EQ(signals, through);
  EXPECT_FALSE(event->WaitFor(0));
}

TEST(EventTest, WhoeverSignalsDoesNotTakeWhatOthersAreOwed) {
  const auto event = TEvent::Make();
  TWorker waiter;
  for (int round = 0; round < 20; ++round) {
    for (const uint32_t timeoutMs : {0, 5}) {
      waiter.Start([&] { EXPECT_TRUE(event->WaitFor(10000)); });
      waiter.WaitUntilBlocked();
      event->Signal();
      ASSERT_FALSE(event->WaitFor(timeoutMs)) << round;
      waiter.Wait();
    }
  }
  // In a forked child nobody comes for it.
  waiter.Start([&] { EXPECT_TRUE(event->WaitFor(NoTimeLimit)); });
  waiter.WaitUntilBlocked();
  InTwoProcesses([&] {
    event->Signal();
    EXPECT_TRUE(event->WaitFor(NoTimeLimit));
  });
  event->Signal();
}

}  // namespace
}  // namespace Talvo
