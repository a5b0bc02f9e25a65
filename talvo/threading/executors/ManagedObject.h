// SPDX-License-Identifier: Apache-2.0
#pragma once
// Counted objects whose fields class management fills with their defaults.

#include <talvo/runtime/Object.h>

namespace Talvo {

/// Calls class management at the turns of its life; descendants may add to each. All three run on
/// the complete object.
class TALVO_API TManagedInterfacedObject : public TInterfacedObject {
 protected:
  TManagedInterfacedObject() noexcept = default;

  /// The object is new. What it raises fails the construction.
  virtual void InitDefaults();
  /// The object is about to end.
  virtual void BeforeDestroyDefaults();
  /// The object ends now: behind BeforeDestroyDefaults, in front of the destructors. All that comes
  /// when the construction fails behind InitDefaults.
  virtual void DestroyDefaults() noexcept;

  void Construct() override;
  void ConstructionFailed() noexcept override;
  void BeforeDestruction() override;

 private:
  bool FHasDefaults = false;
};

/// The same for classes that must not be built without their own named constructors.
class TALVO_API TManagedNoCreateInterfacedObject : public TManagedInterfacedObject {
 public:
  explicit TManagedNoCreateInterfacedObject(TDoNotUseThis) noexcept {}
};

}  // namespace Talvo
