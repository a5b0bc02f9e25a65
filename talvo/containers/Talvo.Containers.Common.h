// SPDX-License-Identifier: Apache-2.0
#pragma once
// The frame of the library: objects and references, function objects, enumeration contracts,
// queries and the small notification interfaces.

#include <talvo/containers/common/Data.h>
#include <talvo/containers/common/Enumerable.h>
#include <talvo/containers/common/Notification.h>
#include <talvo/containers/common/Query.h>
#include <talvo/containers/common/Source.h>
#include <talvo/runtime/Comparer.h>
#include <talvo/runtime/DynamicArray.h>
#include <talvo/runtime/Enumerator.h>
#include <talvo/runtime/Function.h>
#include <talvo/runtime/Object.h>
#include <talvo/runtime/Value.h>
#include <talvo/runtime/WeakReference.h>
