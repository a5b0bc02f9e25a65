// SPDX-License-Identifier: Apache-2.0
#pragma once
// What a TLock counts, one step at a time and without any thread.

#include <cstdint>
#include <optional>

namespace Talvo::Testing {

/// Threads are numbered from 1. A step that would have to wait changes nothing and is empty.
struct TLockModel {
  int32_t Levels = 0;
  int32_t Others = 0;  // sections without a hold, of others and of the owner
  int32_t Owners = 0;
  int32_t Stops = 0;
  uint32_t Owner = 0;

  friend bool operator==(const TLockModel&, const TLockModel&) = default;

  /// True when the caller got the lock, false when it was refused.
  std::optional<bool> Begin(uint32_t thread) {
    if (Owner == thread && Levels > 0) return Deepen(thread);
    if (Stops > 0) return false;
    if (Owner != 0 && Owner != thread) return {};
    return Deepen(thread);
  }
  /// A refused section is one without a hold that ends at once.
  std::optional<bool> BeginSection(uint32_t thread) {
    const std::optional<bool> isLocked = BeginByHand(thread);
    if (isLocked == false) End(thread);
    return isLocked;
  }
  /// A section made by hand.
  std::optional<bool> BeginByHand(uint32_t thread) {
    const std::optional<bool> isLocked = Begin(thread);
    if (isLocked == false) ++(Owner == thread ? Owners : Others);
    return isLocked;
  }
  void End(uint32_t thread) {
    if (Owner != thread) {
      if (Others > 0) {
        --Others;
        return;
      }
      --Levels;
    } else {
      --(Owners > 0 ? Owners : Others > 0 ? Others : Levels);
    }
    FreeWithoutLevel();
  }
  void AnnounceStop() { ++Stops; }
  /// The announcement's count stays for the stop.
  std::optional<bool> BeginStop(uint32_t thread) {
    if (Owner != 0 && Owner != thread) return {};
    return Deepen(thread);
  }
  void EndStop(uint32_t thread) {
    --Stops;
    if (Owner != thread) {
      if (Others > 0) --Others;
      return;
    }
    --(Owners > 0 ? Owners : Levels > 1 ? Levels : Others > 0 ? Others : Levels);
    FreeWithoutLevel();
  }

  struct TGivenUp {
    int32_t Levels = 0;
    int32_t Others = 0;
  };
  TGivenUp GiveUp(uint32_t thread) {
    if (Owner != 0 && Owner != thread) return {};
    const TGivenUp given{Levels + Owners, Others};
    Levels = Others = Owners = 0;
    Owner = 0;
    return given;
  }
  std::optional<bool> TakeBack(uint32_t thread, TGivenUp given) {
    if (given.Levels == 0 && given.Others == 0) return true;
    const std::optional<bool> isLocked = Begin(thread);
    if (!isLocked) return {};
    if (*isLocked) {
      Levels += given.Levels - 1;
      Others += given.Others;
    } else if (Owner == thread) {
      Owners += given.Levels;
      Others += given.Others;
    } else {
      Others += given.Levels != 0 ? given.Levels : given.Others;
    }
    return isLocked;
  }

 private:
  bool Deepen(uint32_t thread) {
    Owner = thread;
    ++Levels;
    return true;
  }
  void FreeWithoutLevel() {
    if (Levels == 0 && Owners == 0) Owner = 0;
  }
};

}  // namespace Talvo::Testing
