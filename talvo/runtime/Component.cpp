// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Component.h>

#include <talvo/runtime/ClassName.h>

namespace Talvo {

TPersistent::~TPersistent() = default;

TPersistent* TPersistent::GetOwner() const noexcept {
  return nullptr;
}

TComponent::TComponent(TComponent* owner) noexcept {
  if (owner) Link(owner);
}

TComponent::~TComponent() {
  TComponent* owner = FOwner;
  if (owner) Unlink();
  FIsEnding = true;
  while (FLast) {
    TComponent* component = FLast;
    if (owner && owner->FIsEnding) {
      // The owner's own loop ends them: a deep tree takes no deep recursion.
      component->Unlink();
      component->Link(owner);
    } else {
      Free(component);
    }
  }
}

string TComponent::ClassName() const {
  return ClassNameOf(typeid(*this));
}

void TComponent::Link(TComponent* owner) noexcept {
  FOwner = owner;
  FPrevious = owner->FLast;
  if (FPrevious) FPrevious->FNext = this;
  owner->FLast = this;
}

void TComponent::Unlink() noexcept {
  (FNext ? FNext->FPrevious : FOwner->FLast) = FPrevious;
  if (FPrevious) FPrevious->FNext = FNext;
  FOwner = FPrevious = FNext = nullptr;
}

}  // namespace Talvo
