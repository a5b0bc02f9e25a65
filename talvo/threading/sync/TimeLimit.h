// SPDX-License-Identifier: Apache-2.0
#pragma once
// NoTimeLimit, for whatever waits.

#include <talvo/platform/Futex.h>

namespace Talvo {

/// A time-out that never passes. Time-outs are milliseconds on the steady clock.
using Platform::NoTimeLimit;

}  // namespace Talvo
