// SPDX-License-Identifier: Apache-2.0
#pragma once
// The interfaces by which objects tell others of changes.

#include <talvo/runtime/Enumerator.h>

namespace Talvo {

/// An object that tells subscribers when it changes and when it ends.
class IChangeNotification : public virtual IInterface {
  TALVO_INTERFACE(IChangeNotification, IInterface);
  /// Adds a subscriber to changes and returns it, so that a caller keeps what it removes later.
  virtual TProc<> AddChangeNotification(TProc<> proc) = 0;
  virtual void RemoveChangeNotification(const TProc<>& proc) = 0;
  /// Adds a subscriber that is called once, before the object ends.
  virtual TProc<> AddDestroyNotification(TProc<> proc) = 0;
  virtual void RemoveDestroyNotification(const TProc<>& proc) = 0;

  /// A subscriber is found by its identity, which a bare lambda does not have: keep what
  /// Add... returned.
  template <class F>
  requires(!std::is_same_v<F, TProc<>> &&
           std::is_invocable_v<const F&>) void RemoveChangeNotification(const F& lambda) = delete;
  template <class F>
  requires(!std::is_same_v<F, TProc<>> &&
           std::is_invocable_v<const F&>) void RemoveDestroyNotification(const F& lambda) = delete;
};

/// Is told that a value has changed.
class IValueChangeNotify : public virtual IInterface {
  TALVO_INTERFACE(IValueChangeNotify, IInterface);
  virtual void ChangeNotify() = 0;
};

/// Is told that the name has changed.
class INameChangeNotify : public virtual IInterface {
  TALVO_INTERFACE(INameChangeNotify, IInterface);
  virtual void NameChanged() = 0;
};

/// Is told that the icon has changed.
class IIconChangeNotify : public virtual IInterface {
  TALVO_INTERFACE(IIconChangeNotify, IInterface);
  virtual void IconChanged() = 0;
};

/// Is told that the type description has changed.
class ITypeInfoChangeNotify : public virtual IInterface {
  TALVO_INTERFACE(ITypeInfoChangeNotify, IInterface);
  virtual void TypeInfoChange() = 0;
};

/// An object with children.
class IEnumerateChildren : public virtual IInterface {
  TALVO_INTERFACE(IEnumerateChildren, IInterface);
  /// A new walk over the children.
  virtual TRef<IEnumerator<TObject*>> GetEnumerator() const = 0;
  /// The index at which a child is to load.
  virtual int32_t GetLoadIndex(TObject* child) const = 0;
};

}  // namespace Talvo
