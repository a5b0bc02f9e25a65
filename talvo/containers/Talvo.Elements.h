// SPDX-License-Identifier: Apache-2.0
#pragma once
// Small values and delegates: tuples, shared cells, lists of subscribers and what goes with them.

#include <talvo/containers/elements/Delegate.h>
#include <talvo/containers/elements/MultiProc.h>
#include <talvo/containers/elements/PersistentHelper.h>
#include <talvo/containers/elements/Reference.h>
#include <talvo/containers/elements/Tuple.h>
#include <talvo/containers/elements/Values.h>
#include <talvo/runtime/Component.h>
