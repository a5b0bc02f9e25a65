// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/sync/Semaphore.h>

namespace Talvo {

TSemaphore::TSemaphore(int32_t initialCount, int32_t maximumCount) noexcept
    : TImplements(Do_Not_Use_This), FSemaphore(initialCount, maximumCount) {}
TSemaphore::~TSemaphore() = default;

uint32_t TSemaphore::GetHandle() {
  return FSemaphore.IsValid() ? FHandle.Get() : 0;
}
bool TSemaphore::Increment(int32_t count) {
  return FSemaphore.Increment(count);
}
bool TSemaphore::Decrement(uint32_t timeoutMs) {
  return FSemaphore.Decrement(timeoutMs);
}

}  // namespace Talvo
