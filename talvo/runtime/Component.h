// SPDX-License-Identifier: Apache-2.0
#pragma once
// The component tree: who belongs to whom, and under which name.
//
//   auto plant = Create<TComponent>(nullptr);              // a TOwn<TComponent>
//   TPump* pump = Create<TPump>(plant.Get()).Detach();     // belongs to the plant
//
// A component ends those it owns. Not locked: a tree belongs to one thread at a time.

#include <talvo/runtime/Object.h>
#include <talvo/runtime/Text.h>

namespace Talvo {

/// The root of objects that may belong to others.
class TALVO_API TPersistent : public TObject {
 public:
  ~TPersistent() override;
  /// Whom this object belongs to; null when it stands alone.
  virtual TPersistent* GetOwner() const noexcept;

 protected:
  TPersistent() noexcept = default;
};

/// A named object that owns others. It is not counted: its owner ends it, or Free.
class TALVO_API TComponent : public TPersistent {
 public:
  /// With an owner the component belongs to it from here on; nobody else may free it without
  /// knowing that. An owner is null or outlives its components.
  explicit TComponent(TComponent* owner) noexcept;
  /// Ends the components that this one owns, the latest first. However deep the tree, the stack is
  /// not used up.
  ~TComponent() override;

  TPersistent* GetOwner() const noexcept override { return FOwner; }
  /// The component that this one belongs to; null when it stands alone.
  TComponent* Owner() const noexcept { return FOwner; }
  /// Empty until it is set.
  const string& Name() const noexcept { return FName; }
  void SetName(string name) noexcept { FName.swap(name); }
  /// The name of the component's own class without its namespace.
  virtual string ClassName() const;

 private:
  void Link(TComponent* owner) noexcept;
  void Unlink() noexcept;

  TComponent* FOwner = nullptr;
  // The components owned, in a chain through their siblings.
  TComponent* FLast = nullptr;
  TComponent* FPrevious = nullptr;
  TComponent* FNext = nullptr;
  bool FIsEnding = false;
  string FName;
};

}  // namespace Talvo
