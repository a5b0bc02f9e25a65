// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/elements/PersistentHelper.h>

#include <talvo/runtime/Component.h>

namespace Talvo {

TComponent* TPersistentHelper::GetOwnerComponent(TPersistent* object) noexcept {
  for (; object; object = object->GetOwner()) {
    if (auto* component = dynamic_cast<TComponent*>(object)) return component;
  }
  return nullptr;
}

}  // namespace Talvo
