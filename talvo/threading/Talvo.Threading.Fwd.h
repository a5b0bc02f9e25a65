// SPDX-License-Identifier: Apache-2.0
#pragma once
// The names of Talvo.Threading, for headers that only refer to them.

namespace Talvo {

class IBasicLock;
class IBasicSynchronizationObject;
class ICriticalSection;
class ICriticalSectionLock;
class IEvent;
class ILockSection;
class IMutex;
class ISemaphore;
class TBasicLock;
class TCriticalSection;
class TCriticalSectionLock;
class TEvent;
class TLock;
class TLockAccess;
class TLockSection;
class TMutex;
class TSemaphore;

}  // namespace Talvo
