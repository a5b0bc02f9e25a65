// SPDX-License-Identifier: Apache-2.0
#pragma once
// Threading: locks with a stop mode, threads, executors, the main thread, and the objects of the
// operating system that threads wait on; with them the exceptions that they raise.

#include <talvo/runtime/Component.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/threading/Talvo.Threading.Utils.h>
#include <talvo/threading/executors/DirectExecutor.h>
#include <talvo/threading/executors/ExecutionTask.h>
#include <talvo/threading/executors/Executor.h>
#include <talvo/threading/executors/ManagedObject.h>
#include <talvo/threading/executors/ThreadExecutor.h>
#include <talvo/threading/executors/ThreadPoolExecutor.h>
#include <talvo/threading/lock/BasicLock.h>
#include <talvo/threading/lock/Lock.h>
#include <talvo/threading/lock/LockSections.h>
#include <talvo/threading/mainthread/AnimationClock.h>
#include <talvo/threading/mainthread/HiddenWindowThread.h>
#include <talvo/threading/mainthread/MainThread.h>
#include <talvo/threading/mainthread/MainWindow.h>
#include <talvo/threading/mainthread/Module.h>
#include <talvo/threading/notify/Delivery.h>
#include <talvo/threading/notify/Subscription.h>
#include <talvo/threading/sync/CriticalSection.h>
#include <talvo/threading/sync/Event.h>
#include <talvo/threading/sync/Mutex.h>
#include <talvo/threading/sync/Semaphore.h>
#include <talvo/threading/threads/BasicThread.h>
#include <talvo/threading/threads/ProcessingThread.h>
#include <talvo/threading/threads/RepeatThread.h>
#include <talvo/threading/threads/SwallowedExceptions.h>
