// SPDX-License-Identifier: Apache-2.0
#pragma once
// Semaphores: a count of what is to be had, which threads wait for while it is 0.
//
//   auto seats = TSemaphore::Make(/*initialCount*/ 4, /*maximumCount*/ 4);
//   if (seats->Decrement(1000)) { ...; seats->Increment(1); }

#include <talvo/platform/LocalSync.h>
#include <talvo/threading/sync/SynchronizationObject.h>

namespace Talvo {

/// A semaphore. Any thread may call.
class ISemaphore : public virtual IBasicSynchronizationObject {
  TALVO_INTERFACE(ISemaphore, IBasicSynchronizationObject);
  /// Adds to the count and lets as many waiters through. False, with no effect, when `count` is
  /// below 1 or the sum would pass the maximum.
  virtual bool Increment(int32_t count) = 0;
  /// Waits until the count is above 0 and takes 1; false when the time is up first.
  virtual bool Decrement(uint32_t timeoutMs) = 0;
};

/// The semaphore of the operating system, without a name. One that is made with a count below 0, a
/// maximum below 1 or a count above the maximum has the handle 0, and both operations fail.
class TALVO_API TSemaphore : public TImplements<TBasicNoCreateInterfacedObject, ISemaphore> {
 public:
  TSemaphore(int32_t initialCount, int32_t maximumCount) noexcept;
  ~TSemaphore() override;
  static TRef<TSemaphore> CreateObject(int32_t initialCount, int32_t maximumCount) {
    return Create<TSemaphore>(initialCount, maximumCount);
  }
  static TRef<ISemaphore> Make(int32_t initialCount, int32_t maximumCount) {
    return CreateObject(initialCount, maximumCount);
  }

  uint32_t GetHandle() override;
  bool Increment(int32_t count) override;
  bool Decrement(uint32_t timeoutMs) override;

 private:
  Platform::TSemaphore FSemaphore;
  Platform::THandleNumber FHandle;
};

}  // namespace Talvo
