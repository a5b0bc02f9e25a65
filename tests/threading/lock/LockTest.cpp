// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/Talvo.Threading.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <map>
#include <pthread.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <tests/threading/Workers.h>
#include <talvo/runtime/ClassName.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/runtime/Reference.h>
#include <talvo/runtime/WeakReference.h>

namespace Talvo {
namespace {

using Testing::TWorker;

/// A lock and three threads, A, B and C, that are led through a play:
///
///   {"A write w", "1 0 0 0 A"}         does it, then compares the counters: levels, sections
///                                      without a hold of others and of the owner, stops, owner
///   {"B write x refused", ...}         comes back empty
///   {"B stop s blocks", ...}           has to wait
///   {"A end w lets B", ...}            ends that wait
///   {"A read r refused lets B", ...}   both
///
/// What is taken: read, write, pass (a write section made by hand), stop, unlock. "end" ends it.
class TPlay {
 public:
  struct TStep {
    const char* Action;
    const char* Counters;
  };

  void Run(const std::vector<TStep>& steps) {
    for (const TStep& step : steps) {
      SCOPED_TRACE(step.Action);
      Do(step.Action);
      EXPECT_EQ(step.Counters, Counters());
    }
  }

 private:
  void Do(const std::string& text) {
    std::istringstream words(text);
    std::string actor, action, section, outcome, other;
    words >> actor >> action >> section >> outcome >> other;
    TWorker& thread = FThreads.at(actor);
    if (outcome == "blocks") {
      thread.Start(Step(action, section));
      thread.WaitUntilBlocked();
    } else {
      thread.Run(Step(action, section));
      if (outcome == "refused") {
        EXPECT_FALSE(FSections.at(section));
        outcome = std::exchange(other, "");
        words >> other;
      }
      if (outcome == "lets") FThreads.at(other).Wait();
    }
  }

  std::function<void()> Step(const std::string& action, const std::string& section) {
    TLock& lock = *FLock;
    if (action == "BeginWrite") return [&] { EXPECT_TRUE(lock.BeginWrite(0)); };
    if (action == "EndWrite") return [&] { lock.EndWrite(); };
    if (action == "BeginStop") return [&] { lock.BeginStop(); };
    if (action == "EndStop") return [&] { lock.EndStop(); };
    TRef<ILockSection>& slot = FSections[section];
    if (action == "read") return [&] { slot = lock.ReadLock(); };
    if (action == "write") return [&] { slot = lock.WriteLock(); };
    if (action == "pass") return [&] { slot = TSimpleWriteLockSection::Make(lock); };
    if (action == "stop") return [&] { slot = lock.StopLock(); };
    if (action == "unlock") return [&] { slot = lock.UnlockAll(); };
    if (action == "end") return [&] { TRef<ILockSection>(std::move(slot)); };
    ADD_FAILURE() << "unknown: " << action;
    return [] {};
  }

  std::string Counters() {
    const TLockCounters now = FLock->Counters();
    std::string owner = now.OwningThread == 0 ? "-" : "?";
    for (const auto& [name, thread] : FThreads) {
      if (thread.Id() == now.OwningThread) owner = name;
    }
    std::ostringstream text;
    text << now.CountLocks << ' ' << now.CountStopLocks << ' ' << now.CountStopLocksOwner << ' '
         << now.InStopCount << ' ' << owner;
    return text.str();
  }

  TRef<TLock> FLock = TLock::CreateObject();
  std::map<std::string, TRef<ILockSection>> FSections;
  std::map<std::string, TWorker> FThreads = [] {
    std::map<std::string, TWorker> threads;
    for (const char* name : {"A", "B", "C"}) threads[name];
    return threads;
  }();
};

struct TScript {
  const char* Name;
  std::vector<TPlay::TStep> Steps;
};

class LockPlayTest : public ::testing::TestWithParam<TScript> {};

TEST_P(LockPlayTest, CountsAfterEachStep) {
  TPlay play;
  play.Run(GetParam().Steps);
}

INSTANTIATE_TEST_SUITE_P(
    Lock, LockPlayTest,
    ::testing::Values(TScript{"Nesting",
                              {{"A write a", "1 0 0 0 A"},
                               {"A read b", "2 0 0 0 A"},
                               {"A write c", "3 0 0 0 A"},
                               {"B read x blocks", "3 0 0 0 A"},
                               {"A end b", "2 0 0 0 A"},
                               {"A end a", "1 0 0 0 A"},
                               {"A end c lets B", "1 0 0 0 B"},
                               {"C write y blocks", "1 0 0 0 B"},
                               {"B end x lets C", "1 0 0 0 C"},
                               {"C end y", "0 0 0 0 -"}}},
                      TScript{"StopRefusesOthers",
                              {{"A stop s", "1 0 0 1 A"},
                               {"B read x refused", "1 0 0 1 A"},
                               {"B write x refused", "1 0 0 1 A"},
                               {"A read y", "2 0 0 1 A"},
                               {"A stop t", "3 0 0 2 A"},
                               {"A end s", "2 0 0 1 A"},
                               {"B write x refused", "2 0 0 1 A"},
                               {"A end y", "1 0 0 1 A"},
                               {"A end t", "0 0 0 0 -"},
                               {"B write x", "1 0 0 0 B"},
                               {"B end x", "0 0 0 0 -"}}},
                      TScript{"AnnouncedStopRefusesAlready",
                              {{"A write w", "1 0 0 0 A"},
                               {"B stop s blocks", "1 0 0 1 A"},
                               {"C write x refused", "1 0 0 1 A"},
                               {"A write v", "2 0 0 1 A"},
                               {"A end v", "1 0 0 1 A"},
                               {"A end w lets B", "1 0 0 1 B"},
                               {"A read v refused", "1 0 0 1 B"},
                               {"B end s", "0 0 0 0 -"}}},
                      TScript{"WaitersGiveUpAtAStop",
                              {{"A write w", "1 0 0 0 A"},
                               {"B read r blocks", "1 0 0 0 A"},
                               {"A stop s lets B", "2 0 0 1 A"},
                               {"B read r refused", "2 0 0 1 A"},
                               {"A end w", "1 0 0 1 A"},
                               {"A end s", "0 0 0 0 -"}}},
                      TScript{"StopsQueueUp",
                              {{"A stop s", "1 0 0 1 A"},
                               {"B stop t blocks", "1 0 0 2 A"},
                               {"A end s lets B", "1 0 0 1 B"},
                               {"A write x refused", "1 0 0 1 B"},
                               {"B end t", "0 0 0 0 -"}}},
                      TScript{"EndedElsewhere",
                              {{"A write a", "1 0 0 0 A"},
                               {"B write b blocks", "1 0 0 0 A"},
                               {"C end a lets B", "1 0 0 0 B"},
                               {"B read c", "2 0 0 0 B"},
                               {"A end c", "1 0 0 0 B"},
                               {"B end b", "0 0 0 0 -"},
                               {"A write a", "1 0 0 0 A"},
                               {"A end a", "0 0 0 0 -"}}},
                      TScript{"UnlockAll",
                              {{"A unlock u", "0 0 0 0 -"},
                               {"A end u", "0 0 0 0 -"},
                               {"A write a", "1 0 0 0 A"},
                               {"B unlock v", "1 0 0 0 A"},
                               {"B end v", "1 0 0 0 A"},
                               {"A write b", "2 0 0 0 A"},
                               {"A read c", "3 0 0 0 A"},
                               {"A unlock u", "0 0 0 0 -"},
                               {"B write x", "1 0 0 0 B"},
                               {"A end u blocks", "1 0 0 0 B"},
                               {"B end x lets A", "3 0 0 0 A"},
                               {"A end a", "2 0 0 0 A"},
                               {"A end b", "1 0 0 0 A"},
                               {"A end c", "0 0 0 0 -"}}},
                      TScript{"UnlockAllEndedElsewhere",
                              {{"A write a", "1 0 0 0 A"},
                               {"A write b", "2 0 0 0 A"},
                               {"A unlock u", "0 0 0 0 -"},
                               {"B end u", "2 0 0 0 B"},
                               {"A end a", "1 0 0 0 B"},
                               {"B end b", "0 0 0 0 -"}}},
                      TScript{"TakenBackDuringAStop",
                              {{"A write a", "1 0 0 0 A"},
                               {"A write b", "2 0 0 0 A"},
                               {"A unlock u", "0 0 0 0 -"},
                               {"B stop s", "1 0 0 1 B"},
                               {"A end u", "1 2 0 1 B"},
                               {"A write c refused", "1 2 0 1 B"},
                               {"A end b", "1 1 0 1 B"},
                               {"A end a", "1 0 0 1 B"},
                               {"B end s", "0 0 0 0 -"}}},
                      TScript{"StopPaysForOthers",
                              {{"A write a", "1 0 0 0 A"},
                               {"A unlock u", "0 0 0 0 -"},
                               {"B stop s", "1 0 0 1 B"},
                               {"A end u", "1 1 0 1 B"},
                               {"B end s", "1 0 0 0 B"},
                               {"C write x blocks", "1 0 0 0 B"},
                               {"A end a lets C", "1 0 0 0 C"},
                               {"C end x", "0 0 0 0 -"}}},
                      TScript{"WithoutAHold",
                              {{"A stop s", "1 0 0 1 A"},
                               {"A pass o", "2 0 0 1 A"},
                               {"B pass p", "2 1 0 1 A"},
                               {"B pass q", "2 2 0 1 A"},
                               {"B end q", "2 1 0 1 A"},
                               {"A end o", "2 0 0 1 A"},
                               {"A end s", "1 0 0 0 A"},
                               {"B end p", "0 0 0 0 -"}}},
                      TScript{"DebtsTravelWithUnlockAll",
                              {{"B stop s", "1 0 0 1 B"},
                               {"C pass p", "1 1 0 1 B"},
                               {"B unlock u", "0 0 0 1 -"},
                               // Owed by others is taken back only by who has no level.
                               {"B end u", "0 1 0 1 -"},
                               {"A unlock v", "0 0 0 1 -"},
                               {"A end v", "0 1 0 1 -"},
                               {"A unlock v", "0 0 0 1 -"},
                               {"B end s", "0 0 0 0 -"},
                               // Without a level the lock is taken all the same.
                               {"A end v", "0 1 0 0 A"},
                               {"C write x blocks", "0 1 0 0 A"},
                               {"A write w", "1 1 0 0 A"},
                               {"A end w", "1 0 0 0 A"},
                               {"B end p lets C", "1 0 0 0 C"},
                               {"C end x", "0 0 0 0 -"}}},
                      TScript{"StopEndedElsewhereLeavesItsLevel",
                              {{"A stop s", "1 0 0 1 A"},
                               {"B end s", "1 0 0 0 A"},
                               {"C write x blocks", "1 0 0 0 A"},
                               {"A EndWrite - lets C", "1 0 0 0 C"},
                               {"C end x", "0 0 0 0 -"}}},
                      TScript{"Steps",
                              {{"A BeginWrite", "1 0 0 0 A"},
                               {"A BeginStop", "2 0 0 1 A"},
                               {"A EndWrite", "1 0 0 1 A"},
                               {"A EndStop", "0 0 0 0 -"},
                               {"A BeginStop", "1 0 0 1 A"},
                               {"A EndWrite", "0 0 0 1 -"},
                               {"B read x refused", "0 0 0 1 -"},
                               {"B EndStop", "0 0 0 0 -"}}},
                      // More ends than beginnings: the counters say so, and the lock goes on.
                      TScript{"Misuse",
                              {{"A EndWrite", "-1 0 0 0 -"},
                               {"A write a", "0 0 0 0 A"},
                               {"A write b", "1 0 0 0 A"},
                               {"A end b", "0 0 0 0 -"},
                               {"A EndWrite", "-1 0 0 0 -"},
                               {"A write c", "0 0 0 0 A"},
                               {"B stop s blocks", "0 0 0 1 A"},
                               {"A pass p", "0 0 1 1 A"},
                               {"A write e refused", "0 0 1 1 A"},
                               {"A end p lets B", "1 0 0 1 B"},
                               {"A end c", "0 0 0 1 -"},
                               {"B end s", "0 0 0 0 -"},
                               {"A end a", "-1 0 0 0 -"},
                               {"B write x", "0 0 0 0 B"},
                               {"B BeginWrite", "1 0 0 0 B"},
                               {"B BeginWrite", "2 0 0 0 B"},
                               {"B end x", "1 0 0 0 B"},
                               {"B EndWrite", "0 0 0 0 -"}}},
                      TScript{"RefusedOwnerWithoutALevelLetsGo",
                              {{"A EndWrite", "-1 0 0 0 -"},
                               {"A write a", "0 0 0 0 A"},
                               {"B stop s blocks", "0 0 0 1 A"},
                               {"A read b refused lets B", "1 0 0 1 B"},
                               {"B end s", "0 0 0 0 -"}}},
                      TScript{"ARefusedRequestPaysWhatWasOverpaid",
                              {{"A EndWrite", "-1 0 0 0 -"},
                               {"A unlock u", "0 0 0 0 -"},
                               {"B stop s", "1 0 0 1 B"},
                               {"A end u", "1 -1 0 1 B"},
                               {"C read x refused", "0 0 0 1 -"},
                               {"B end s", "0 0 0 0 -"}}},
                      TScript{"TakenBackByAnOwnerWithoutALevel",
                              {{"A write a", "1 0 0 0 A"},
                               {"A write b", "2 0 0 0 A"},
                               {"A unlock u", "0 0 0 0 -"},
                               {"A EndWrite", "-1 0 0 0 -"},
                               {"A write c", "0 0 0 0 A"},
                               {"B stop s blocks", "0 0 0 1 A"},
                               {"A end u", "0 0 2 1 A"},
                               {"A unlock u lets B", "1 0 0 1 B"},
                               {"B end s", "0 0 0 0 -"},
                               {"A end u", "2 0 0 0 A"},
                               {"A end a", "1 0 0 0 A"},
                               {"C stop s blocks", "1 0 0 1 A"},
                               {"A end b lets C", "1 0 0 1 C"},
                               {"C end s", "0 0 0 0 -"}}}),
    [](const auto& info) { return info.param.Name; });

TEST(LockTest, RunsCodeInSections) {
  const auto lock = TLock::CreateObject();
  const TRef<IBasicLock> first = TLock::Make();
  const auto depth = [&] { return lock->Counters().CountLocks; };
  int runs = 0;
  const auto expect = [&](int32_t levels, int32_t stops) {
    return [&, levels, stops] {
      EXPECT_EQ(levels, depth());
      EXPECT_EQ(stops, lock->Counters().InStopCount);
      ++runs;
    };
  };
  lock->ExecuteRead(expect(1, 0));
  lock->ExecuteWrite([&] {
    lock->ExecuteWrite(TProc<>(expect(2, 0)));
    lock->ExecuteStop(expect(2, 1));
    lock->ExecuteUnlockAll(expect(0, 0));
    lock->ExecuteUnlockAllLockInOrder(first, expect(0, 0));
    EXPECT_EQ(1, depth());
  });
  EXPECT_THROW(lock->ExecuteStop([] { throw ERangeError(u"out"); }), ERangeError);
  EXPECT_THROW(lock->ExecuteWrite(nullptr), EAssertionFailed);
  EXPECT_EQ(TLockCounters(), lock->Counters());

  // A refused body runs all the same.
  TWorker other;
  TRef<ILockSection> stop;
  other.Run([&] { stop = lock->StopLock(); });
  lock->ExecuteRead(expect(1, 1));
  lock->ExecuteWrite(expect(1, 1));
  EXPECT_EQ(7, runs);
  other.Run([&] { stop = nullptr; });
  EXPECT_EQ(TLockCounters(), lock->Counters());
}

TEST(LockTest, WaitsAsLongAsItIsTold) {
  const auto lock = TLock::CreateObject();
  TWorker owner;
  owner.Run([&] { EXPECT_TRUE(lock->BeginWrite(0)); });
  EXPECT_FALSE(lock->BeginWrite(0));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(lock->BeginRead(45));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(45));
  // Stopped meanwhile or not: a wait that has begun goes on.
  TWorker waiter;
  waiter.Start([&] { EXPECT_TRUE(lock->BeginWrite(NoTimeLimit)); });
  waiter.WaitUntilBlocked();
  owner.Run([&] {
    lock->BeginStop();
    lock->EndStop();
    lock->EndWrite();
  });
  waiter.Wait();
  EXPECT_EQ(waiter.Id(), lock->Counters().OwningThread);
  waiter.Run([&] { lock->EndRead(); });
}

TEST(LockTest, ComesBackInTheOrderFirstThenOwn) {
  const auto first = TLock::CreateObject();
  const auto second = TLock::CreateObject();
  TWorker a, b;
  TRef<ILockSection> secondOfA, unlocked, firstOfB, secondOfB;
  a.Run([&] {
    secondOfA = second->WriteLock();
    unlocked = second->UnlockAllLockInOrder(first);
  });
  b.Run([&] { firstOfB = first->WriteLock(); });
  a.Start([&] { unlocked = nullptr; });
  a.WaitUntilBlocked();
  EXPECT_EQ(0u, second->Counters().OwningThread);
  b.Run([&] {
    secondOfB = second->WriteLock();
    EXPECT_TRUE(secondOfB);
    firstOfB = nullptr;
  });
  a.WaitUntilBlocked();
  b.Run([&] { secondOfB = nullptr; });
  a.Wait();
  EXPECT_EQ(TLockCounters(), first->Counters());
  EXPECT_EQ(a.Id(), second->Counters().OwningThread);
  a.Run([&] { secondOfA = nullptr; });
}

TEST(LockTest, ASectionByHandGivesUpTheSecondLockToBreakACycle) {
  const TRef<IBasicLock> left = TLock::Make();
  const auto right = TLock::CreateObject();
  TWorker a, b;
  TRef<ILockSection> leftOfA, rightOfA, rightOfB, leftOfB;
  a.Run([&] { leftOfA = left->WriteLock(); });
  b.Run([&] {
    rightOfB = right->WriteLock();
    rightOfB = nullptr;
    rightOfB = right->ReadLock();
  });
  a.Start([&] { rightOfA = right->WriteLock(); });
  b.Start([&] { leftOfB = TSimpleReadLockSection::Make(left, right); });
  a.Wait();
  EXPECT_EQ(a.Id(), right->Counters().OwningThread);
  a.Run([&] {
    rightOfA = nullptr;
    leftOfA = nullptr;
  });
  b.Wait();
  EXPECT_EQ(TLockCounters(), right->Counters());
  b.Run([&] { leftOfB = nullptr; });
  EXPECT_EQ(1, right->Counters().CountLocks);
  b.Run([&] { rightOfB = nullptr; });
  EXPECT_EQ(TLockCounters(), right->Counters());
}

TEST(LockTest, IsInheritedFromADeadOwner) {
  const auto lock = TLock::CreateObject();
  TRef<ILockSection> left;
  {
    TWorker dying;
    dying.Run([&] { left = lock->WriteLock(); });
  }
  // What the dead thread had open stays counted until it ends.
  TRef<ILockSection> inherited = lock->WriteLock();
  EXPECT_EQ((TLockCounters{2, 0, 0, 0, static_cast<uint32_t>(gettid())}), lock->Counters());
  left = nullptr;
  inherited = nullptr;
  EXPECT_EQ(TLockCounters(), lock->Counters());

  TWorker dying, waiting, stopping;
  dying.Run([&] { left = lock->WriteLock(); });
  stopping.Start([&] { inherited = lock->StopLock(); });
  stopping.WaitUntilBlocked();
  dying.End();
  stopping.Wait();
  stopping.Run([&] {
    left = nullptr;
    inherited = nullptr;
  });
  EXPECT_EQ(TLockCounters(), lock->Counters());
}

TEST(LockTest, WorksInTheLastMomentsOfAThread) {
  static TRef<TLock> lock;
  static TRef<ILockSection> left;
  lock = TLock::CreateObject();
  struct TLast {
    int Number = 0;
    ~TLast() {
      const auto section = lock->WriteLock();
      EXPECT_EQ((TLockCounters{1, 0, 0, 0, static_cast<uint32_t>(gettid())}), lock->Counters());
      left = lock->ReadLock();
    }
  };
  for (int round = 1; round <= 3; ++round) {
    std::thread([] {
      thread_local TLast last;
      last.Number = 1;
    }).join();
    // The thread that is gone was the owner, and this one may have its identity next.
    std::thread([] {
      lock->ExecuteWrite([] { EXPECT_EQ(2, lock->Counters().CountLocks); });
    }).join();
    left = nullptr;
    EXPECT_EQ(TLockCounters(), lock->Counters());
  }
  lock = nullptr;
}

TEST(LockTest, GoesOnInAForkedChild) {
  const auto lock = TLock::CreateObject();
  TRef<ILockSection> section = lock->WriteLock();
  const pid_t process = fork();
  ASSERT_GE(process, 0);
  if (process == 0) {
    const TRef<ILockSection> nested = lock->WriteLock();
    const bool isOwner =
        nested && TLockCounters{2, 0, 0, 0, static_cast<uint32_t>(gettid())} == lock->Counters();
    section = lock->StopLock();
    _exit(isOwner && lock->Counters().CountLocks == 2 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(process, waitpid(process, &status, 0));
  EXPECT_EQ(0, status);
}

TEST(LockTest, LivesAsLongAsItsSections) {
  for (const bool endsElsewhere : {false, true}) {
    auto lock = TLock::CreateObject();
    const TWeakRef<TLock> watched(lock);
    TRef<IBasicLock> second = TLock::Make();
    std::vector<TRef<ILockSection>> sections{lock->WriteLock(), lock->ReadLock()};
    lock = nullptr;
    EXPECT_FALSE(watched.Lock());
    TWorker other;
    const auto end = [&] { sections.clear(); };
    endsElsewhere ? other.Run(end) : end();
  }
  auto lock = TLock::CreateObject();
  const TWeakRef<TLock> watched(lock);
  TRef<ILockSection> unlock = lock->UnlockAll();
  TRef<ILockSection> stop = lock->StopLock();
  lock = nullptr;
  EXPECT_TRUE(watched.Lock());
  stop = nullptr;
  EXPECT_TRUE(watched.Lock());
  unlock = nullptr;
  EXPECT_FALSE(watched.Lock());
}

TEST(LockTest, CountsNoFurtherThanItCan) {
  const auto lock = TLock::CreateObject();
  lock->IntBeginWrite(INT32_MAX, 0);
  const TLockCounters full = lock->Counters();
  EXPECT_EQ(INT32_MAX, full.CountLocks);
  EXPECT_THROW(lock->WriteLock(), EIntOverflow);
  EXPECT_THROW(lock->BeginWrite(0), EIntOverflow);
  EXPECT_THROW(lock->StopLock(), EIntOverflow);
  EXPECT_EQ(full, lock->Counters());
  TRef<ILockSection> unlock = lock->UnlockAll();
  const TRef<ILockSection> other = lock->WriteLock();
  const TLockCounters before = lock->Counters();
  unlock = nullptr;  // cannot take all back
  EXPECT_EQ(before, lock->Counters());
}

TEST(LockTest, IntLockHoldsOffOthers) {
  const auto lock = TLock::CreateObject();
  EXPECT_THROW(lock->IntUnlock(), EAssertionFailed);
  TWorker owner, other;
  TRef<ILockSection> section;
  owner.Run([&] { section = lock->WriteLock(); });
  lock->IntLock();
  lock->IntLock();
  owner.Start([&] { section = nullptr; });
  other.Start([&] { lock->WriteLock(); });
  owner.WaitUntilBlocked();
  other.WaitUntilBlocked();
  lock->IntUnlock();
  EXPECT_EQ((TLockCounters{1, 0, 0, 0, owner.Id()}), lock->Counters());
  lock->IntUnlock();
  owner.Wait();
  other.Wait();

  lock->IntLock();
  lock->ExecuteWrite([&] { EXPECT_EQ(1, lock->Counters().CountLocks); });
  lock->IntUnlock();
  EXPECT_EQ(TLockCounters(), lock->Counters());
}

TEST(LockTest, SectionsNeedATLock) {
  class TOther : public TImplements<TBasicLock> {
   public:
    TOther() : TImplements(Do_Not_Use_This) {}
    TRef<ILockSection> ReadLock() override { return {}; }
    TRef<ILockSection> WriteLock() override { return {}; }
    TRef<ILockSection> StopLock() override { return {}; }
    TRef<ILockSection> UnlockAll() override { return {}; }
    TRef<ILockSection> UnlockAllLockInOrder(const TRef<IBasicLock>&) override { return {}; }
  };
  const TRef<IBasicLock> other = Create<TOther>();
  for (const TRef<IBasicLock>& lock : {other, TRef<IBasicLock>()}) {
    EXPECT_THROW(TSimpleReadLockSection::Make(lock), EAssertionFailed);
    EXPECT_THROW(TSimpleWriteLockSection::Make(lock), EAssertionFailed);
    EXPECT_THROW(TSimpleStopLockSection::Make(lock), EAssertionFailed);
    EXPECT_THROW(TSimpleUnlockSection::Make(lock), EAssertionFailed);
  }
}

/// Takes the system's barrier away from the calling thread. False when it must not.
bool ForgoBarriers() {
  sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_membarrier, 0, 1),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog program{4, filter};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST(LockStressTest, ExcludesInAConfinedThreadToo) {
  constexpr int32_t rounds = 20000;
  const auto lock = TLock::CreateObject();
  std::atomic<bool> isOver = false;
  TWorker owner, confined;
  bool isConfined = false;
  confined.Run([&] { isConfined = ForgoBarriers(); });
  if (!isConfined) GTEST_SKIP() << "no filters here";
  owner.Run([&] { lock->IntBeginWrite(2 * rounds, 0); });
  owner.Start([&] {
    while (!isOver) {
      lock->BeginWrite(0);
      lock->EndWrite();
    }
  });
  confined.Run([&] {
    for (int32_t round = 0; round < rounds; ++round) lock->EndWrite();
  });
  isOver = true;
  owner.Wait();
  EXPECT_EQ(rounds, lock->Counters().CountLocks);
}

TEST(LockTest, NoStopIsAnnouncedWhileIntLockIsHeld) {
  const auto lock = TLock::CreateObject();
  TWorker stopping;
  lock->IntLock();
  stopping.Start([&] { lock->StopLock(); });
  stopping.WaitUntilBlocked();
  EXPECT_EQ(TLockCounters(), lock->Counters());
  lock->IntUnlock();
  stopping.Wait();
  EXPECT_EQ(TLockCounters(), lock->Counters());
}

TEST(LockTest, AnEndingThreadStaysTheOwner) {
  struct THeld {
    TRef<TLock> Lock = TLock::CreateObject();
    TRef<ILockSection> Section;
    bool IsExclusive = false;
  } held;
  held.Lock->ExecuteWrite([] {});
  // Younger than the lock's own key, so its end comes later in a round.
  pthread_key_t key;
  ASSERT_EQ(0, pthread_key_create(&key, [](void* value) {
              auto& last = *static_cast<THeld*>(value);
              std::thread([&] { last.IsExclusive = !last.Lock->BeginWrite(0); }).join();
              last.Section = nullptr;
            }));
  std::thread([&] {
    held.Section = held.Lock->WriteLock();
    pthread_setspecific(key, &held);
  }).join();
  pthread_key_delete(key);
  EXPECT_TRUE(held.IsExclusive);
  EXPECT_EQ(TLockCounters(), held.Lock->Counters());
}

TEST(LockTest, SectionsGoByTheirNames) {
  const auto lock = TLock::CreateObject();
  const auto name = [](const TRef<ILockSection>& section) {
    const TObject& object = *ObjectOf(section);
    return ToUtf8(ClassNameOf(typeid(object)));
  };
  EXPECT_EQ("TSimpleReadLockSection", name(lock->ReadLock()));
  EXPECT_EQ("TSimpleWriteLockSection", name(lock->WriteLock()));
  EXPECT_EQ("TSimpleStopLockSection", name(lock->StopLock()));
  EXPECT_EQ("TSimpleUnlockSection", name(lock->UnlockAll()));
}

}  // namespace
}  // namespace Talvo
