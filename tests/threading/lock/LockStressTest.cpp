// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/Talvo.Threading.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <mutex>
#include <random>
#include <tests/threading/lock/LockModel.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Talvo {
namespace {

using Testing::TLockModel;

constexpr uint32_t ThreadCount = 8;

/// Another one each time, unless TALVO_TEST_SEED holds one.
uint64_t NewSeed() {
  const char* given = std::getenv("TALVO_TEST_SEED");
  const uint64_t seed = given ? std::strtoull(given, nullptr, 10) : std::random_device{}();
  std::cout << "TALVO_TEST_SEED=" << seed << std::endl;
  return seed;
}

/// Threads that take turns, so that a sequential model can say what each step leads to. Whatever
/// comes is done, and waits where it has to. The counters are compared after each step, and whoever
/// the model lets in or refuses has to come back. Of four locks three see proper use only, the
/// fourth any nonsense as well. As long as use is proper there is a level for each open section,
/// and the owner is whose sections they are.
class TTurns {
 public:
  explicit TTurns(uint64_t seed) : FRandom(seed) {}

  void Run(int steps) {
    FSteps = steps;
    std::vector<std::thread> threads;
    for (uint32_t number = 1; number <= ThreadCount; ++number) {
      threads.emplace_back([this, number] { Loop(number); });
    }
    for (std::thread& thread : threads) thread.join();
    std::cout << FProperSteps << " proper steps, " << FWaits << " waits" << std::endl;
  }

 private:
  using TGuard = std::unique_lock<std::mutex>;
  /// What the model makes of a step of a thread; empty while it has to wait.
  using TForetell = std::function<std::optional<bool>(TLockModel&)>;

  struct TSection {
    TRef<ILockSection> Section;
    enum { Plain, Stop, Unlock } Kind;
    uint32_t Holder = 0;   // whose level it is
    uint32_t GivenUp = 0;  // by which unlock section
    uint32_t Number = 0;   // of an unlock section
    TLockModel::TGivenUp Given{};
  };
  struct TPlayer {
    std::condition_variable Called;
    uint32_t Id = 0;
    TForetell Awaited;
  };

  void Loop(uint32_t self) {
    TGuard guard(FMutex);
    FPlayers[self].Id = static_cast<uint32_t>(gettid());
    if (++FReady == ThreadCount) PassOn();
    for (;;) {
      FPlayers[self].Called.wait(guard, [&] { return FTurn == self || FIsOver; });
      if (FIsOver) return;
      // Who had the turn before may have left it with a stop that is yet to be announced.
      Settle(guard);
      for (uint64_t steps = FRandom() % 40 + 1; steps > 0 && FTurn == self; --steps) {
        if (FEpisode > 0 && FSteps > 0) {
          --FEpisode;
          --FSteps;
          Step(self, guard);
        } else if (ClearUp(self, guard)) {
          if (FSteps == 0) return EndPlay();
          FEpisode = static_cast<int>(FRandom() % 1000);
          FIsTame = FRandom() % 4 != 0;
        }
      }
      if (FTurn == self) PassOn();
    }
  }
  void PassOn() {
    // An owner never waits for its lock, so there is always somebody to go on.
    do {
      FTurn = FRandom() % ThreadCount + 1;
    } while (FPlayers[FTurn].Awaited);
    FPlayers[FTurn].Called.notify_one();
  }
  void EndPlay() {
    FIsOver = true;
    for (TPlayer& player : FPlayers) player.Called.notify_one();
  }

  /// Does what may have to wait; others have their turns meanwhile.
  template <class TCall>
  bool Do(uint32_t self, TGuard& guard, const TForetell& foretell, TCall call) {
    std::optional<bool> result = foretell(FModel);
    if (result) {
      call();
      return *result;
    }
    ++FWaits;
    FIsAnnouncing |= FModel.Stops > 0;
    FPlayers[self].Awaited = foretell;
    PassOn();
    guard.unlock();
    call();
    guard.lock();
    result = foretell(FModel);
    if (!result) ADD_FAILURE() << "thread " << self << " came in beside " << FModel.Owner;
    FPlayers[self].Awaited = nullptr;
    FCameBack.notify_one();
    return result.value_or(false);
  }
  bool IsSomebodyDue() {
    return std::any_of(FPlayers.begin(), FPlayers.end(), [&](const TPlayer& player) {
      TLockModel copy = FModel;
      return player.Awaited && player.Awaited(copy);
    });
  }
  /// Waits for all whom the model lets in or refuses, and for the announcements of stops.
  void Settle(TGuard& guard) {
    FCameBack.wait(guard, [&] { return !IsSomebodyDue(); });
    while (FIsAnnouncing && FLock->Counters().InStopCount != FModel.Stops) {
      std::this_thread::yield();
    }
    FIsAnnouncing = false;
  }

  void Step(uint32_t self, TGuard& guard) {
    const auto kind = static_cast<uint32_t>(FRandom() % 1000);
    if (FSections.size() > 12 || (kind < 450 && !FSections.empty())) {
      EndOne(self, guard, FRandom() % FSections.size());
    } else if (kind < 700) {
      TRef<ILockSection> section;
      const bool isLocked = Do(
          self, guard, [self](TLockModel& model) { return model.BeginSection(self); },
          [&] { section = kind % 2 ? FLock->ReadLock() : FLock->WriteLock(); });
      ASSERT_EQ(isLocked, static_cast<bool>(section));
      if (isLocked) FSections.push_back({std::move(section), TSection::Plain, self});
    } else if (kind < 740) {
      if (FIsTame && TLockModel(FModel).BeginByHand(self) != true) return;
      TRef<ILockSection> section;
      FIsProper &= Do(
          self, guard, [self](TLockModel& model) { return model.BeginByHand(self); },
          [&] {
            section = kind % 2 ? TSimpleReadLockSection::Make(FLock)
                               : TSimpleWriteLockSection::Make(FLock);
          });
      FSections.push_back({std::move(section), TSection::Plain, self});
    } else if (kind < 840) {
      // Whoever is about to take back levels meanwhile would take them back without a hold.
      if (FIsTame && FTakingBack > 0) return;
      TRef<ILockSection> section;
      FModel.AnnounceStop();
      Do(
          self, guard, [self](TLockModel& model) { return model.BeginStop(self); },
          [&] { section = FLock->StopLock(); });
      FSections.push_back({std::move(section), TSection::Stop, self});
    } else if (kind < 990) {
      // Less than nothing, taken back during a stop, would make requests that are refused change
      // who gets the lock, and it matters then in which order they are.
      if (FModel.Levels >= 0 && !(FIsTame && FModel.Stops > 0)) GiveUp(self);
    } else if (!FIsTame) {
      DoBySteps(self, kind);
    }
    if (FTurn != self) return;
    Settle(guard);
    Compare(kind);
  }

  /// What is given up is no level of anybody, a stop leaves its level when it is ended elsewhere,
  /// and what is taken back during a stop is without a hold.
  bool IsProperEnd(uint32_t self, const TSection& section) const {
    if (section.Kind == TSection::Unlock) {
      return TLockModel(FModel).TakeBack(self, section.Given) != false;
    }
    return section.GivenUp == 0 && (section.Kind != TSection::Stop || section.Holder == self);
  }
  void EndOne(uint32_t self, TGuard& guard, size_t at) {
    const bool isProper = IsProperEnd(self, FSections[at]);
    if (FIsTame && !isProper) return;
    FIsProper &= isProper;
    TSection ended = std::move(FSections[at]);
    FSections.erase(FSections.begin() + static_cast<std::ptrdiff_t>(at));
    if (ended.Kind == TSection::Plain) {
      FModel.End(self);
    } else if (ended.Kind == TSection::Stop) {
      FModel.EndStop(self);
    } else {
      ++FTakingBack;
      FIsProper &= Do(
          self, guard,
          [self, given = ended.Given](TLockModel& model) { return model.TakeBack(self, given); },
          [&] { ended.Section = nullptr; });
      --FTakingBack;
      for (TSection& section : FSections) {
        if (section.GivenUp != ended.Number) continue;
        section.GivenUp = 0;
        section.Holder = self;
      }
    }
    ended.Section = nullptr;
  }
  void GiveUp(uint32_t self) {
    const bool givesUp = FModel.Owner == 0 || FModel.Owner == self;
    const TLockModel::TGivenUp given = FModel.GiveUp(self);
    ++FUnlocks;
    for (TSection& section : FSections) {
      const bool isOpen = givesUp && section.Kind != TSection::Unlock && section.GivenUp == 0;
      if (isOpen) section.GivenUp = FUnlocks;
    }
    FSections.push_back({FLock->UnlockAll(), TSection::Unlock, self, 0, FUnlocks, given});
  }
  void DoBySteps(uint32_t self, uint32_t kind) {
    FIsProper = false;
    if (kind % 3 == 0) {
      TLockModel next = FModel;
      const std::optional<bool> begins = next.Begin(self);
      ASSERT_EQ(begins.value_or(false), FLock->BeginWrite(0));
      if (begins) FModel = next;
    } else if (kind % 3 == 1) {
      FModel.End(self);
      FLock->EndWrite();
    } else if (FStops > 0) {
      --FStops;
      FModel.EndStop(self);
      FLock->EndStop();
    } else if (FModel.Owner == 0 || FModel.Owner == self) {
      ++FStops;
      FModel.AnnounceStop();
      FModel.BeginStop(self);
      FLock->BeginStop();
    }
  }

  /// A step towards a new lock with nothing open; true when it is there.
  bool ClearUp(uint32_t self, TGuard& guard) {
    const bool isWaitedFor = std::any_of(FPlayers.begin(), FPlayers.end(),
                                         [](auto& player) { return !!player.Awaited; });
    if (FModel.Owner != 0 && FModel.Owner != self) {
      FTurn = FModel.Owner;
      FPlayers[FTurn].Called.notify_one();
      return false;
    }
    FIsTame = false;
    GiveUp(self);
    Settle(guard);
    if (isWaitedFor) return false;
    while (!FSections.empty()) {
      EndOne(self, guard, FSections.size() - 1);
      Compare(0);
    }
    FLock = TLock::CreateObject();
    FModel = {};
    FStops = 0;
    FIsProper = true;
    return true;
  }

  void Compare(uint32_t kind) {
    const TLockCounters now = FLock->Counters();
    SCOPED_TRACE(kind);
    ASSERT_TRUE(FIsProper || !FIsTame);
    ASSERT_EQ(FModel.Levels, now.CountLocks);
    ASSERT_EQ(FModel.Others, now.CountStopLocks);
    ASSERT_EQ(FModel.Owners, now.CountStopLocksOwner);
    ASSERT_EQ(FModel.Stops, now.InStopCount);
    ASSERT_EQ(FPlayers[FModel.Owner].Id, now.OwningThread);
    if (!FIsProper) return;
    ++FProperSteps;
    int32_t levels = 0;
    for (const TSection& section : FSections) {
      if (section.Kind == TSection::Unlock || section.GivenUp != 0) continue;
      ASSERT_EQ(section.Holder, FModel.Owner);
      ++levels;
    }
    ASSERT_EQ(levels, now.CountLocks);
    ASSERT_EQ(levels > 0, now.OwningThread != 0);
    ASSERT_EQ(0, now.CountStopLocks + now.CountStopLocksOwner);
  }

  std::mt19937_64 FRandom;
  std::mutex FMutex;  // guards all that follows
  std::condition_variable FCameBack;
  std::array<TPlayer, ThreadCount + 1> FPlayers;
  int FSteps = 0;
  int FEpisode = 0;  // steps that the present lock still has
  uint32_t FTurn = 0;
  uint32_t FReady = 0;
  bool FIsOver = false;
  int64_t FProperSteps = 0;
  int64_t FWaits = 0;
  int32_t FTakingBack = 0;
  bool FIsAnnouncing = false;  // a stop that may yet be to come

  TRef<TLock> FLock = TLock::CreateObject();
  TLockModel FModel;
  bool FIsTame = true;
  bool FIsProper = true;
  int32_t FStops = 0;  // that no section ends
  uint32_t FUnlocks = 0;
  std::vector<TSection> FSections;
};

TEST(LockStressTest, DoesAsTheModelWhateverIsDone) {
  TTurns(NewSeed()).Run(1000000);
}

/// Threads that use a lock as it is meant, all at once: whoever has a section may touch what the
/// lock guards. Either sections change hands and stops come in between, or holds are given up and
/// taken back: both at a time is no proper use, since the level that is given up could be the one
/// that another thread is about to end.
class TCrowd {
 public:
  explicit TCrowd(bool givesUp) : FGivesUp(givesUp) {}

  void Run(uint64_t seed, int steps) {
    std::vector<std::thread> threads;
    for (uint32_t number = 1; number <= ThreadCount; ++number) {
      threads.emplace_back([this, seed, number, steps] {
        std::mt19937_64 random(seed + number);
        for (int step = 0; step < steps; ++step) Step(random, number);
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (TSlot& slot : FSlots) slot.Put(nullptr);
    EXPECT_EQ(TLockCounters(), FLock->Counters());
    EXPECT_EQ(FTouched, FExpected.load());
    std::cout << FTouched << " times inside, " << FRefused << " refused" << std::endl;
  }

 private:
  /// Where a section waits for another thread to end it.
  struct TSlot {
    std::mutex Mutex;
    TRef<ILockSection> Section;
    void Put(TRef<ILockSection> section) {
      const std::lock_guard<std::mutex> guard(Mutex);
      std::swap(Section, section);
    }
  };

  void Step(std::mt19937_64& random, uint32_t self) {
    const auto kind = static_cast<uint32_t>(random() % 100);
    TSlot& slot = FSlots[random() % FSlots.size()];
    if (FGivesUp || kind < 60) {
      const TRef<ILockSection> section = kind % 2 ? FLock->WriteLock() : FLock->ReadLock();
      if (section) {
        Inside(random, self, static_cast<int32_t>(random() % 4));
      } else {
        ++FRefused;
      }
    } else if (kind < 75) {
      slot.Put(nullptr);
    } else if (kind < 95) {
      TRef<ILockSection> section = FLock->WriteLock();
      if (!section) return;
      Touch(self);
      // From here on it is somebody else's.
      slot.Put(std::move(section));
    } else {
      const TRef<ILockSection> stop = FLock->StopLock();
      Inside(random, self, 1);
    }
  }

  void Inside(std::mt19937_64& random, uint32_t self, int32_t depth) {
    Touch(self);
    if (FGivesUp && random() % 4 == 0) {
      const int32_t levels = FLock->Counters().CountLocks;
      FLock->ExecuteUnlockAll([&] { FLock->ExecuteRead([&] { Touch(self); }); });
      EXPECT_EQ(levels, FLock->Counters().CountLocks);
      Touch(self);
    }
    if (depth > 0) {
      const TRef<ILockSection> nested = FLock->WriteLock();
      ASSERT_TRUE(nested);
      Inside(random, self, depth - 1);
    }
    EXPECT_EQ(self, FHolder);
  }

  void Touch(uint32_t self) {
    FHolder = self;
    ++FTouched;
    FExpected.fetch_add(1, std::memory_order_relaxed);
  }

  const bool FGivesUp;
  TRef<TLock> FLock = TLock::CreateObject();
  uint32_t FHolder = 0;  // guarded by FLock, as is the next
  int64_t FTouched = 0;
  std::atomic<int64_t> FExpected = 0;
  std::atomic<int64_t> FRefused = 0;
  std::array<TSlot, 3> FSlots;
};

TEST(LockStressTest, ExcludesAndGoesOn) {
  TCrowd(/*givesUp*/ false).Run(NewSeed(), 250000);
}
TEST(LockStressTest, GivesUpAndTakesBack) {
  TCrowd(/*givesUp*/ true).Run(NewSeed(), 30000);
}

class TWatchedLock : public TLock {
 public:
  explicit TWatchedLock(std::atomic<int>& alive) : FAlive(alive) { ++FAlive; }
  ~TWatchedLock() override { --FAlive; }

 private:
  std::atomic<int>& FAlive;
};

// Owners go deeper and drop their locks while others end their sections, in any order.
TEST(LockStressTest, EndsWithItsLastUser) {
  const uint64_t seed = NewSeed();
  std::atomic<int> alive = 0;
  std::array<std::atomic<ILockSection*>, 5> slots{};
  // Whoever puts a section down ends the one that was there.
  const auto put = [&](std::mt19937_64& random, TRef<ILockSection> section) {
    auto& slot = slots[random() % slots.size()];
    TRef<ILockSection>::Adopt(slot.exchange(section.Detach()));
  };
  const auto useLocks = [&](std::mt19937_64& random) {
    for (int round = 0; round < 20000; ++round) {
      auto lock = Create<TWatchedLock>(alive);
      TRef<ILockSection> own = lock->ReadLock();
      for (uint64_t steps = random() % 10; steps > 0; --steps) {
        const uint64_t kind = random() % 10;
        if (kind < 2) {
          own = nullptr;
        } else if (kind < 5) {
          own = lock->ReadLock();
        } else if (kind < 8) {
          put(random, lock->WriteLock());
        } else if (kind < 9) {
          put(random, TSimpleWriteLockSection::Make(lock));
        } else {
          put(random, lock->StopLock());
        }
      }
      if (random() % 2) lock = nullptr;
    }
  };
  std::atomic<int> users = 2;
  std::vector<std::thread> threads;
  for (uint32_t number = 0; number < 4; ++number) {
    threads.emplace_back([&, number] {
      std::mt19937_64 random(seed + number);
      if (number < 2) {
        useLocks(random);
        --users;
      }
      while (users > 0) put(random, nullptr);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (auto& slot : slots) TRef<ILockSection>::Adopt(slot.exchange(nullptr));
  EXPECT_EQ(0, alive);
}

}  // namespace
}  // namespace Talvo
