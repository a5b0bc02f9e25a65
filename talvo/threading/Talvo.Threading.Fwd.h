// SPDX-License-Identifier: Apache-2.0
#pragma once
// The names of Talvo.Threading, for headers that only refer to them: a TRef of any needs no more.

#include <talvo/runtime/Reference.h>

namespace Talvo {

class IAnimationClockThread;
class IBasicLock;
class IBasicSynchronizationObject;
class ICriticalSection;
class ICriticalSectionLock;
class IEvent;
class IExecution;
class IExecutionTask;
class IExecutor;
class IHiddenWindowThread;
class ILockSection;
class IMainThreadExecute;
class IMutex;
class IProcessingThread;
class ISemaphore;
class IThread;
class IThreadExecutor;
class IThreadPoolExecutor;
class TAnimationClock;
class TAnimationClockThread;
class TBasicLock;
class TBasicThread;
class TBasicThreadExecutor;
class TCriticalSection;
class TCriticalSectionLock;
class TDirectExecutor;
class TEvent;
class TExecutionTask;
class THiddenWindowThread;
class TLock;
class TLockAccess;
class TLockSection;
class TMainThreadExecute;
class TMainWindowNode;
class TManagedInterfacedObject;
class TManagedNoCreateInterfacedObject;
class TMutex;
class TOwnerKey;
class TPeriodicThread;
class TProcessingThread;
class TRepeatThread;
class TSemaphore;
class TSimpleLockSection;
class TSimpleReadLockSection;
class TSimpleStopLockSection;
class TSimpleUnlockSection;
class TSimpleWriteLockSection;
class TSubscription;
class TThreadExecutor;
class TThreadPoolExecutor;
class TThreadProc;

}  // namespace Talvo
