// SPDX-License-Identifier: Apache-2.0
#pragma once
// Questions about persistent objects.

#include <talvo/runtime/Config.h>

namespace Talvo {

class TComponent;
class TPersistent;

/// Looks at the component tree, which belongs to one thread at a time.
class TALVO_API TPersistentHelper {
 public:
  TPersistentHelper() = delete;
  /// The component that `object` belongs to: the first one on the way from `object` itself along
  /// its owners. Null when there is none.
  static TComponent* GetOwnerComponent(TPersistent* object) noexcept;
};

}  // namespace Talvo
