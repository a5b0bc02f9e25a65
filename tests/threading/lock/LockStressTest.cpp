// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/Talvo.Threading.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
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

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int Share = 3;
#elif defined(__clang__)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
constexpr int Share = 3;
#else
constexpr int Share = 1;
#endif
#else
constexpr int Share = 1;
#endif

/// Another one each time, unless TALVO_TEST_SEED holds one.
uint64_t NewSeed() {
  const char* given = std::getenv("TALVO_TEST_SEED");
  const uint64_t seed = given ? std::strtoull(given, nullptr, 10) : std::random_device{}();
  std::cout << "TALVO_TEST_SEED=" << seed << std::endl;
  return seed;
}

/// Threads that take turns, so that a sequential model can say what each step leads to. Whatever
/// comes is done, sense or nonsense, except what would have to wait.
class TTurns {
 public:
  explicit TTurns(uint64_t seed) : FRandom(seed) {}

  void Run(int bursts) {
    FBursts = bursts;
    std::vector<std::thread> threads;
    for (uint32_t number = 1; number <= ThreadCount; ++number) {
      threads.emplace_back([this, number] { Loop(number); });
    }
    for (std::thread& thread : threads) thread.join();
  }

 private:
  struct TSection {
    TRef<ILockSection> Section;
    enum { Plain, Stop, Unlock } Kind;
    TLockModel::TGivenUp Given;
  };

  void Loop(uint32_t number) {
    std::unique_lock<std::mutex> guard(FMutex);
    FIds[number] = static_cast<uint32_t>(gettid());
    if (++FReady == ThreadCount) PassOn();
    for (;;) {
      FChanged.wait(guard, [&] { return FTurn == number || FBursts == 0; });
      if (FBursts == 0) return;
      for (uint32_t steps = FRandom() % 40; steps > 0; --steps) Step(number);
      --FBursts;
      PassOn();
    }
  }
  void PassOn() {
    FTurn = FRandom() % ThreadCount + 1;
    FChanged.notify_all();
  }

  void Step(uint32_t thread) {
    const uint32_t kind = FRandom() % 100;
    const TLockModel before = FModel;
    if (FSections.size() > 12 || (kind < 45 && !FSections.empty())) {
      EndOne(thread);
    } else if (kind < 70) {
      Begin(thread);
    } else if (kind < 75) {
      if (FModel.BeginByHand(thread)) {
        Add({kind % 2 ? TSimpleReadLockSection::Make(FLock) : TSimpleWriteLockSection::Make(FLock),
             TSection::Plain,
             {}});
      }
    } else if (kind < 85) {
      if (FModel.BeginStop(thread)) Add({FLock->StopLock(), TSection::Stop, {}});
    } else if (kind < 93) {
      const TLockModel::TGivenUp given = FModel.GiveUp(thread);
      Add({FLock->UnlockAll(), TSection::Unlock, given});
    } else if (kind < 96) {
      const std::optional<bool> begins = FModel.Begin(thread);
      ASSERT_EQ(begins.value_or(false), FLock->BeginWrite(0));
    } else if (kind < 98) {
      FModel.End(thread);
      FLock->EndWrite();
    } else if (FModel.Stops > 0) {
      FModel.EndStop(thread);
      FLock->EndStop();
    }
    Compare(before, thread, kind);
  }

  void Begin(uint32_t thread) {
    const std::optional<bool> begins = FModel.Begin(thread);
    if (!begins) return;
    TRef<ILockSection> section = thread % 2 ? FLock->ReadLock() : FLock->WriteLock();
    ASSERT_EQ(*begins, static_cast<bool>(section));
    if (section) Add({std::move(section), TSection::Plain, {}});
  }
  void EndOne(uint32_t thread) {
    TSection& section = FSections[FRandom() % FSections.size()];
    if (section.Kind == TSection::Unlock) {
      if (!FModel.TakeBack(thread, section.Given)) return;
    } else if (section.Kind == TSection::Stop) {
      FModel.EndStop(thread);
    } else {
      FModel.End(thread);
    }
    section.Section = nullptr;
    std::swap(section, FSections.back());
    FSections.pop_back();
  }
  void Add(TSection section) { FSections.push_back(std::move(section)); }

  void Compare(const TLockModel& before, uint32_t thread, uint32_t kind) {
    const TLockCounters now = FLock->Counters();
    ASSERT_EQ(FModel.Levels, now.CountLocks);
    ASSERT_EQ(FModel.Others, now.CountStopLocks);
    ASSERT_EQ(FModel.Owners, now.CountStopLocksOwner);
    ASSERT_EQ(FModel.Stops, now.InStopCount);
    ASSERT_EQ(FIds[FModel.Owner], now.OwningThread)
        << "thread " << thread << " step " << kind << " from " << before.Levels << ' '
        << before.Others << ' ' << before.Owners << ' ' << before.Stops << ' ' << before.Owner;
  }

  std::mt19937_64 FRandom;
  std::mutex FMutex;  // guards all that follows
  std::condition_variable FChanged;
  int FBursts = 0;
  uint32_t FTurn = 0;
  uint32_t FReady = 0;
  std::array<uint32_t, ThreadCount + 1> FIds{};
  TRef<TLock> FLock = TLock::CreateObject();
  TLockModel FModel;
  std::vector<TSection> FSections;
};

TEST(LockStressTest, CountsAsTheModelWhateverIsDone) {
  TTurns(NewSeed()).Run(15000 / Share);
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
  TCrowd(/*givesUp*/ false).Run(NewSeed(), 100000 / Share);
}
TEST(LockStressTest, GivesUpAndTakesBack) {
  TCrowd(/*givesUp*/ true).Run(NewSeed(), 30000 / Share);
}

// Each thread drops its lock while others end its sections.
TEST(LockStressTest, EndsWithItsLastUser) {
  constexpr int rounds = 20000 / Share;
  std::array<std::atomic<ILockSection*>, 2> handed{};
  std::atomic<bool> isOver = false;
  std::thread other([&] {
    while (!isOver) {
      for (auto& slot : handed) TRef<ILockSection>::Adopt(slot.exchange(nullptr));
    }
    for (auto& slot : handed) TRef<ILockSection>::Adopt(slot.exchange(nullptr));
  });
  for (int round = 0; round < rounds; ++round) {
    auto lock = TLock::CreateObject();
    for (auto& slot : handed) {
      TRef<ILockSection>::Adopt(slot.exchange(lock->WriteLock().Detach()));
    }
    const TRef<ILockSection> own = lock->ReadLock();
    lock = nullptr;
  }
  isOver = true;
  other.join();
}

}  // namespace
}  // namespace Talvo
