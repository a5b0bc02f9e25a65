// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/lock/BasicLock.h>

namespace Talvo {

void TBasicLock::ExecuteRead(TFunctionRef<void()> proc) {
  Assert(static_cast<bool>(proc));
  const TRef<ILockSection> section = ReadLock();
  proc();
}

void TBasicLock::ExecuteWrite(TFunctionRef<void()> proc) {
  Assert(static_cast<bool>(proc));
  const TRef<ILockSection> section = WriteLock();
  proc();
}

void TBasicLock::ExecuteStop(TFunctionRef<void()> proc) {
  Assert(static_cast<bool>(proc));
  const TRef<ILockSection> section = StopLock();
  proc();
}

void TBasicLock::ExecuteUnlockAll(TFunctionRef<void()> proc) {
  Assert(static_cast<bool>(proc));
  const TRef<ILockSection> section = UnlockAll();
  proc();
}

void TBasicLock::ExecuteUnlockAllLockInOrder(const TRef<IBasicLock>& firstLock,
                                             TFunctionRef<void()> proc) {
  Assert(static_cast<bool>(proc));
  const TRef<ILockSection> section = UnlockAllLockInOrder(firstLock);
  proc();
}

}  // namespace Talvo
