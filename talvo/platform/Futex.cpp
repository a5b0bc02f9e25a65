// SPDX-License-Identifier: Apache-2.0
#include <talvo/platform/Futex.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Talvo::Platform {
namespace {

constexpr uint64_t NanosecondsPerSecond = 1'000'000'000;
constexpr uint64_t NanosecondsPerMillisecond = 1'000'000;

uint64_t Now() noexcept {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * NanosecondsPerSecond +
         static_cast<uint64_t>(now.tv_nsec);
}

int Operation(int command, TFutexScope scope) noexcept {
  return scope == TFutexScope::Process ? command | FUTEX_PRIVATE_FLAG : command;
}

}  // namespace

TDeadline::TDeadline(uint32_t timeoutMs) noexcept
    : FNanoseconds(timeoutMs == NoTimeLimit ? Never
                                            : Now() + timeoutMs * NanosecondsPerMillisecond) {}

TDeadline TDeadline::AfterMicroseconds(uint32_t microseconds) noexcept {
  TDeadline deadline(0);
  deadline.FNanoseconds += microseconds * uint64_t{1000};
  return deadline;
}

bool TDeadline::HasPassed() const noexcept {
  return !IsNever() && Now() >= FNanoseconds;
}

TDeadline TDeadline::WithinSlice(uint32_t sliceMs) const noexcept {
  TDeadline slice(sliceMs);
  slice.FNanoseconds = std::min(slice.FNanoseconds, FNanoseconds);
  return slice;
}

bool FutexWait(const uint32_t* word, uint32_t expected, const TDeadline& deadline,
               TFutexScope scope) noexcept {
  timespec until;
  timespec* limit = nullptr;
  if (!deadline.IsNever()) {
    until.tv_sec = static_cast<time_t>(deadline.Nanoseconds() / NanosecondsPerSecond);
    until.tv_nsec = static_cast<long>(deadline.Nanoseconds() % NanosecondsPerSecond);
    limit = &until;
  }
  return syscall(SYS_futex, word, Operation(FUTEX_WAIT_BITSET, scope), expected, limit, nullptr,
                 FUTEX_BITSET_MATCH_ANY) == 0 ||
         errno != ETIMEDOUT;
}

void FutexWake(const uint32_t* word, int32_t count, TFutexScope scope) noexcept {
  syscall(SYS_futex, word, Operation(FUTEX_WAKE, scope), count, nullptr, nullptr, 0);
}

uint32_t SpinLooks() noexcept {
  static const uint32_t looks = sysconf(_SC_NPROCESSORS_ONLN) > 1 ? 10 : 0;
  return looks;
}

void YieldThread() noexcept {
  sched_yield();
}

void RestThread() noexcept {
  const timespec moment{0, 50'000};
  nanosleep(&moment, nullptr);
}

}  // namespace Talvo::Platform
