// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/executors/ManagedObject.h>

#include <talvo/runtime/ClassDefaults.h>

namespace Talvo {

void TManagedInterfacedObject::InitDefaults() {
  ClassDefaults().InitClassDefaults(*this);
}

void TManagedInterfacedObject::BeforeDestroyDefaults() {
  ClassDefaults().BeforeDestruction(*this);
}

void TManagedInterfacedObject::DestroyDefaults() noexcept {
  ClassDefaults().Destruction(*this);
}

void TManagedInterfacedObject::Construct() {
  TInterfacedObject::Construct();
  InitDefaults();
  FHasDefaults = true;
}

void TManagedInterfacedObject::ConstructionFailed() noexcept {
  if (FHasDefaults) DestroyDefaults();
  TInterfacedObject::ConstructionFailed();
}

void TManagedInterfacedObject::BeforeDestruction() {
  // The last step must come even if the one before it raises.
  struct TLast {
    TManagedInterfacedObject& Object;
    ~TLast() { Object.DestroyDefaults(); }
  } last{*this};
  BeforeDestroyDefaults();
  TInterfacedObject::BeforeDestruction();
}

}  // namespace Talvo
