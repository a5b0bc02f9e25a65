// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/threads/SwallowedExceptions.h>

#include <mutex>

namespace Talvo {
namespace {

struct THook {
  std::mutex Lock;
  TSwallowedExceptionHook Hook;  // guarded by Lock
};

/// Never destroyed: work may fail while the process exits.
THook& Hook() {
  static auto* const hook = new THook;
  return *hook;
}

}  // namespace

TSwallowedExceptionHook SetSwallowedExceptionHook(TSwallowedExceptionHook hook) {
  const std::lock_guard guard(Hook().Lock);
  std::swap(Hook().Hook, hook);
  return hook;
}

void ReportSwallowedException() noexcept {
  try {
    TSwallowedExceptionHook hook;
    {
      const std::lock_guard guard(Hook().Lock);
      hook = Hook().Hook;
    }
    if (hook) hook(std::current_exception());
  } catch (...) {
    // There is nobody left to tell.
  }
}

}  // namespace Talvo
