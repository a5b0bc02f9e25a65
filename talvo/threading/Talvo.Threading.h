// SPDX-License-Identifier: Apache-2.0
#pragma once
// Threading: locks with a stop mode, threads, and the objects of the operating system that threads
// wait on.

#include <talvo/threading/lock/BasicLock.h>
#include <talvo/threading/lock/Lock.h>
#include <talvo/threading/lock/LockSections.h>
#include <talvo/threading/sync/CriticalSection.h>
#include <talvo/threading/sync/Event.h>
#include <talvo/threading/sync/Mutex.h>
#include <talvo/threading/sync/Semaphore.h>
#include <talvo/threading/threads/BasicThread.h>
#include <talvo/threading/threads/ProcessingThread.h>
#include <talvo/threading/threads/RepeatThread.h>
#include <talvo/threading/threads/SwallowedExceptions.h>
