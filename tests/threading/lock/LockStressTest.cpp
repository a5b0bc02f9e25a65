// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/Talvo.Threading.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <random>
#include <tests/TestTypes.h>
#include <tests/threading/Workers.h>
#include <tests/threading/lock/LockModel.h>
#include <vector>

namespace Talvo {
namespace {

using Testing::RunAtATime;
using Testing::TLockModel;
using Testing::TWorker;

constexpr uint32_t ThreadCount = 8;

/// Printed at once: a test that hangs has no failure to print it with.
uint64_t PrintedSeed() {
  const uint64_t seed = TestSeed();
  std::cout << "TALVO_SEED=" << seed << std::endl;
  return seed;
}

/// Runs `code(random, number)` on threads 1, 2, ... at a time.
template <class TCode>
void RunInACrowd(uint32_t count, TCode code) {
  const uint64_t seed = PrintedSeed();
  RunAtATime(count, [&](uint32_t number) {
    std::mt19937_64 random(seed + number);
    code(random, number);
  });
}

/// Threads of which one at a time begins a step, so that a sequential model can say what comes of
/// it. Whatever comes is done, and waits where it has to; whoever the model lets in or refuses has
/// to come back. The counters are compared after each step. Of four locks three see each level
/// ended once, the fourth any nonsense as well.
class TTurns {
 public:
  explicit TTurns(uint64_t seed) : FRandom(seed) {}

  void Run(int locks) {
    for (; locks > 0; --locks) {
      FLock = TLock::CreateObject();
      FModel = {};
      FIsTame = locks % 4 != 0;
      for (uint64_t steps = FRandom() % 1000; steps > 0; --steps) Step(Anybody());
      ClearUp();
    }
    std::cout << FSteps << " steps, " << FWaits << " waits" << std::endl;
  }

 private:
  struct TSection {
    enum { Plain, Stop, Unlock, None } Kind;
    TRef<ILockSection> Hold{};
    TLockModel::TGivenUp Given{};
    std::vector<TSection> Parked{};  // those that are given up
  };
  /// What the model makes of a step of a thread; empty while it has to wait.
  using TForetell = std::function<std::optional<bool>(TLockModel&, uint32_t thread)>;
  struct TPlayer {
    TWorker Thread;
    TForetell Foretell{};  // of the step under way
    TSection Section{};
    std::atomic<bool> IsBack = false;
  };

  // An owner never waits for its lock, so there is always somebody to go on.
  TPlayer& Anybody() {
    for (;;) {
      TPlayer& player = FPlayers[FRandom() % ThreadCount];
      if (!player.Foretell) return player;
    }
  }

  template <class TAct>
  void Do(TPlayer& self, TSection section, TAct act, TForetell foretell) {
    self.Section = std::move(section);
    self.Foretell = std::move(foretell);
    self.IsBack = false;
    self.Thread.Start([this, &self, act] {
      act(self.Section.Hold);
      self.IsBack = true;
      ++FCameBack;
      FCameBack.notify_all();
    });
    Settle();
    ++FSteps;
    if (self.Foretell) ++FWaits;
    EXPECT_EQ(static_cast<const TLockCounters&>(FModel), FLock->Counters());
    // Whoever waits now may do so for good.
    if (::testing::Test::HasFailure()) std::abort();
  }
  /// Waits for all whom the model lets in or refuses, and for the announcements of stops.
  void Settle() {
    const auto isDue = [this](const TPlayer& player) {
      TLockModel copy = FModel;
      return player.Foretell && player.Foretell(copy, player.Thread.Id());
    };
    for (;;) {
      const uint32_t seen = FCameBack;
      const auto due = std::find_if(FPlayers.begin(), FPlayers.end(),
                                    [&](auto& player) { return player.IsBack && isDue(player); });
      if (due != FPlayers.end()) {
        Finish(*due);
      } else if (std::any_of(FPlayers.begin(), FPlayers.end(), isDue)) {
        FCameBack.wait(seen);
      } else {
        break;
      }
    }
    while (FLock->Counters().InStopCount != FModel.InStopCount) std::this_thread::yield();
  }
  void Finish(TPlayer& player) {
    player.Thread.Wait();
    TSection section = std::move(player.Section);
    const TForetell foretell = std::exchange(player.Foretell, nullptr);
    EXPECT_EQ(foretell(FModel, player.Thread.Id()), static_cast<bool>(section.Hold));
    if (section.Hold) {
      FSections.push_back(std::move(section));
    } else {
      std::move(section.Parked.begin(), section.Parked.end(), std::back_inserter(FSections));
    }
  }

  void Step(TPlayer& self) {
    const uint64_t kind = FRandom() % 1000;
    if (FSections.size() > 12 || (kind < 450 && !FSections.empty())) {
      EndOne(self, FRandom() % FSections.size());
    } else if (kind < 700) {
      const auto act = [=, this](auto& hold) {
        hold = kind % 2 ? FLock->ReadLock() : FLock->WriteLock();
      };
      Do(self, {TSection::Plain}, act, &TLockModel::BeginSection);
    } else if (kind < 740) {
      const auto act = [this](auto& hold) { hold = TSimpleWriteLockSection::Make(FLock); };
      Do(self, {TSection::Plain}, act, &TLockModel::BeginByHand);
    } else if (kind < 840) {
      FModel.AnnounceStop();
      const auto act = [this](auto& hold) { hold = FLock->StopLock(); };
      Do(self, {TSection::Stop}, act, &TLockModel::BeginStop);
    } else if (kind < 990 || FIsTame) {
      // Less than nothing, taken back during a stop, would make requests that are refused change
      // who gets the lock, and it matters then in which order they are.
      if (FModel.CountLocks >= 0) GiveUp(self);
    } else if (kind < 995) {
      const bool begins = TLockModel(FModel).Begin(self.Thread.Id()).value_or(false);
      Do(
          self, {TSection::None}, [=, this](auto&) { EXPECT_EQ(begins, FLock->BeginWrite(0)); },
          [](TLockModel& model, uint32_t id) { return model.Begin(id), false; });
    } else {
      Do(
          self, {TSection::None}, [this](auto&) { FLock->EndWrite(); }, &TLockModel::End);
    }
  }
  void EndOne(TPlayer& self, size_t at) {
    TSection ended = std::move(FSections[at]);
    FSections.erase(FSections.begin() + static_cast<std::ptrdiff_t>(at));
    TForetell foretell = &TLockModel::End;
    if (ended.Kind == TSection::Stop) foretell = &TLockModel::EndStop;
    if (ended.Kind == TSection::Unlock) {
      foretell = [given = ended.Given](auto& model, auto id) { return model.TakeBack(id, given); };
    }
    Do(
        self, std::move(ended), [](auto& hold) { hold = nullptr; }, std::move(foretell));
  }
  void GiveUp(TPlayer& self) {
    TSection unlock{TSection::Unlock};
    if (FModel.MayHave(self.Thread.Id())) {
      const auto open = std::partition(FSections.begin(), FSections.end(), [](auto& section) {
        return section.Kind == TSection::Unlock;
      });
      std::move(open, FSections.end(), std::back_inserter(unlock.Parked));
      FSections.erase(open, FSections.end());
    }
    unlock.Given = FModel.GiveUp(self.Thread.Id());
    Do(
        self, std::move(unlock), [this](auto& hold) { hold = FLock->UnlockAll(); },
        [](auto&, auto) { return true; });
  }
  /// Lets in all that wait, one after the other, and ends what is open.
  void ClearUp() {
    for (;;) {
      const auto owner = std::find_if(FPlayers.begin(), FPlayers.end(), [&](auto& player) {
        return player.Thread.Id() == FModel.OwningThread;
      });
      TPlayer& self = owner == FPlayers.end() ? Anybody() : *owner;
      if (std::any_of(FPlayers.begin(), FPlayers.end(), [](auto& it) { return !!it.Foretell; })) {
        GiveUp(self);
      } else if (!FSections.empty()) {
        EndOne(self, FSections.size() - 1);
      } else {
        return;
      }
    }
  }

  std::mt19937_64 FRandom;
  std::array<TPlayer, ThreadCount> FPlayers;
  std::atomic<uint32_t> FCameBack = 0;
  int64_t FSteps = 0;
  int64_t FWaits = 0;

  TRef<TLock> FLock;
  TLockModel FModel;
  bool FIsTame = true;
  std::vector<TSection> FSections;
};

TEST(LockStressTest, DoesAsTheModelWhateverIsDone) {
  TTurns(PrintedSeed()).Run(200);
}

/// Where sections wait for another thread to end them.
class TSlots {
 public:
  void Clear() {
    for (auto& slot : FSlots) Exchange(slot, nullptr);
  }
  /// Whoever puts a section down ends the one that was there.
  void Put(std::mt19937_64& random, TRef<ILockSection> section) {
    Exchange(FSlots[random() % FSlots.size()], std::move(section));
  }

 private:
  static void Exchange(std::atomic<ILockSection*>& slot, TRef<ILockSection> section) {
    TRef<ILockSection>::Adopt(slot.exchange(section.Detach()));
  }
  std::array<std::atomic<ILockSection*>, 5> FSlots{};
};

/// Threads that use a lock as it is meant, all at once: whoever has a section may touch what the
/// lock guards. Either sections change hands and stops come in between, or holds are given up and
/// taken back: both at a time is no proper use, since the level that is given up could be the one
/// that another thread is about to end.
class LockCrowdTest : public ::testing::TestWithParam<bool> {
 protected:
  void Step(std::mt19937_64& random, uint32_t self) {
    const uint64_t kind = GetParam() ? 99 : random() % 100;
    if (kind < 15) return FSlots.Put(random, nullptr);
    TRef<ILockSection> section = kind < 20   ? FLock->StopLock()
                                 : kind < 60 ? FLock->ReadLock()
                                             : FLock->WriteLock();
    if (!section) return;
    Inside(random, self, random() % 4);
    // From here on it is somebody else's.
    if (kind >= 20 && kind < 40) FSlots.Put(random, std::move(section));
  }
  void Inside(std::mt19937_64& random, uint32_t self, uint64_t depth) {
    Touch(self);
    if (GetParam() && random() % 4 == 0) {
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

  const TRef<TLock> FLock = TLock::CreateObject();
  uint32_t FHolder = 0;  // guarded by FLock, as is the next
  int64_t FTouched = 0;
  std::atomic<int64_t> FExpected = 0;
  TSlots FSlots;
};

TEST_P(LockCrowdTest, ExcludesAndGoesOn) {
  RunInACrowd(ThreadCount, [&](auto& random, uint32_t self) {
    for (int step = GetParam() ? 30000 : 250000; step > 0; --step) Step(random, self);
  });
  FSlots.Clear();
  EXPECT_EQ(TLockCounters(), FLock->Counters());
  EXPECT_EQ(FTouched, FExpected);
}

INSTANTIATE_TEST_SUITE_P(Lock, LockCrowdTest, ::testing::Bool(), [](const auto& info) {
  return info.param ? "GivesUpAndTakesBack" : "SectionsChangeHands";
});

struct TWatchedLock : TLock {
  TWatchedLock() { ++Alive; }
  ~TWatchedLock() override { --Alive; }
  static inline std::atomic<int> Alive = 0;
};

// Owners go deeper and drop their locks while others end their sections, in any order.
TEST(LockStressTest, EndsWithItsLastUser) {
  std::atomic<int> users = 2;
  TSlots slots;
  RunInACrowd(4, [&](auto& random, uint32_t number) {
    for (int round = 0; number <= 2 && round < 20000; ++round) {
      auto lock = Create<TWatchedLock>();
      TRef<ILockSection> own = lock->ReadLock();
      for (uint64_t steps = random() % 10; steps > 0; --steps) {
        const uint64_t kind = random() % 10;
        TRef<ILockSection> section;
        if (kind > 1) section = kind < 8 ? lock->WriteLock() : lock->StopLock();
        if (kind == 9) section = TSimpleWriteLockSection::Make(lock);
        if (kind < 5) {
          own = std::move(section);
        } else {
          slots.Put(random, std::move(section));
        }
      }
      if (random() % 2) lock = nullptr;
    }
    if (number <= 2) --users;
    while (users > 0) slots.Put(random, nullptr);
  });
  slots.Clear();
  EXPECT_EQ(0, TWatchedLock::Alive);
}

}  // namespace
}  // namespace Talvo
