// SPDX-License-Identifier: Apache-2.0
#pragma once
// Threading: the objects that threads wait on, and threads.

#include <talvo/threading/sync/CriticalSection.h>
#include <talvo/threading/sync/Event.h>
#include <talvo/threading/sync/Mutex.h>
#include <talvo/threading/sync/Semaphore.h>
#include <talvo/threading/threads/BasicThread.h>
#include <talvo/threading/threads/ProcessingThread.h>
#include <talvo/threading/threads/RepeatThread.h>
#include <talvo/threading/threads/SwallowedExceptions.h>
