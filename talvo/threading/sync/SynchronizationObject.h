// SPDX-License-Identifier: Apache-2.0
#pragma once
// What all synchronisation objects have in common.

#include <talvo/platform/Futex.h>
#include <talvo/runtime/Function.h>
#include <talvo/runtime/Object.h>
#include <talvo/runtime/Text.h>

namespace Talvo {

/// A time-out that never passes. Time-outs are milliseconds on the steady clock.
using Platform::NoTimeLimit;

/// The root of what threads wait on.
class IBasicSynchronizationObject : public virtual IInterface {
  TALVO_INTERFACE(IBasicSynchronizationObject, IInterface);
  /// A number that no other synchronisation object of this process has; 0 for one that could not
  /// be made. It is no descriptor of the operating system.
  virtual uint32_t GetHandle() = 0;
};

}  // namespace Talvo
