// SPDX-License-Identifier: Apache-2.0
#pragma once
// Threading: the objects that threads wait on.

#include <talvo/threading/sync/CriticalSection.h>
#include <talvo/threading/sync/Event.h>
#include <talvo/threading/sync/Mutex.h>
#include <talvo/threading/sync/Semaphore.h>
