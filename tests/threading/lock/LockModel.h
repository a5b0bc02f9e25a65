// SPDX-License-Identifier: Apache-2.0
#pragma once
// What a TLock counts, one step at a time and without waiting.

#include <optional>
#include <talvo/threading/lock/Lock.h>

namespace Talvo::Testing {

/// A step that would have to wait changes nothing and is empty; else it tells whether there is a
/// section behind it.
struct TLockModel : TLockCounters {
  struct TGivenUp {
    int32_t Levels = 0;
    int32_t Others = 0;
  };

  bool MayHave(uint32_t thread) const { return OwningThread == 0 || OwningThread == thread; }

  std::optional<bool> Begin(uint32_t thread) {
    if (OwningThread == thread && CountLocks > 0) return Deepen(thread);
    if (InStopCount > 0) return false;
    if (!MayHave(thread)) return {};
    return Deepen(thread);
  }
  /// Made by hand: without a hold when it is refused.
  std::optional<bool> BeginByHand(uint32_t thread) {
    const std::optional<bool> begins = Begin(thread);
    if (!begins) return {};
    if (!*begins) ++(OwningThread == thread ? CountStopLocksOwner : CountStopLocks);
    return true;
  }
  /// A refused section is one without a hold that ends at once.
  std::optional<bool> BeginSection(uint32_t thread) {
    const bool isRefused = TLockModel(*this).Begin(thread) == false;
    const std::optional<bool> isMade = BeginByHand(thread);
    return isRefused ? End(thread) : isMade;
  }
  bool End(uint32_t thread) {
    if (OwningThread == thread && CountStopLocksOwner > 0) {
      --CountStopLocksOwner;
    } else if (CountStopLocks > 0) {
      --CountStopLocks;
      if (OwningThread != thread) return false;
    } else {
      --CountLocks;
    }
    return FreeWithoutLevel();
  }
  void AnnounceStop() { ++InStopCount; }
  /// The announcement's count stays for the stop.
  std::optional<bool> BeginStop(uint32_t thread) {
    if (!MayHave(thread)) return {};
    return Deepen(thread);
  }
  bool EndStop(uint32_t thread) {
    --InStopCount;
    if (OwningThread == thread) {
      --(CountStopLocksOwner > 0 ? CountStopLocksOwner
         : CountLocks > 1        ? CountLocks
         : CountStopLocks > 0    ? CountStopLocks
                                 : CountLocks);
      return FreeWithoutLevel();
    }
    if (CountStopLocks > 0) --CountStopLocks;
    return false;
  }
  TGivenUp GiveUp(uint32_t thread) {
    if (!MayHave(thread)) return {};
    const TGivenUp given{CountLocks + CountStopLocksOwner, CountStopLocks};
    CountLocks = CountStopLocks = CountStopLocksOwner = 0;
    OwningThread = 0;
    return given;
  }
  std::optional<bool> TakeBack(uint32_t thread, TGivenUp given) {
    if (given.Levels == 0 && given.Others == 0) return false;
    const std::optional<bool> begins = Begin(thread);
    if (!begins) return {};
    if (*begins) {
      CountLocks += given.Levels - 1;
      CountStopLocks += given.Others;
    } else if (OwningThread == thread) {
      CountStopLocksOwner += given.Levels;
      CountStopLocks += given.Others;
    } else {
      CountStopLocks += given.Levels != 0 ? given.Levels : given.Others;
    }
    return false;
  }

 private:
  bool Deepen(uint32_t thread) {
    OwningThread = thread;
    ++CountLocks;
    return true;
  }
  bool FreeWithoutLevel() {
    if (CountLocks == 0 && CountStopLocksOwner == 0) OwningThread = 0;
    return false;
  }
};

}  // namespace Talvo::Testing
