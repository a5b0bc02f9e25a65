// SPDX-License-Identifier: Apache-2.0
#pragma once
// What all synchronisation objects have in common.

#include <talvo/runtime/Object.h>
#include <talvo/threading/sync/TimeLimit.h>

namespace Talvo {

/// The root of what threads wait on.
class IBasicSynchronizationObject : public virtual IInterface {
  TALVO_INTERFACE(IBasicSynchronizationObject, IInterface);
  /// A number that no other synchronisation object of this process has; 0 for one that could not
  /// be made. It is no descriptor of the operating system.
  virtual uint32_t GetHandle() = 0;
};

}  // namespace Talvo
