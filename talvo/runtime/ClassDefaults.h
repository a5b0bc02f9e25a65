// SPDX-License-Identifier: Apache-2.0
#pragma once
// Class defaults: the hook by which class management takes part in the life of objects.
//
// Classes whose fields have defaults call it when they are made and when they end. Until somebody
// fills it, nothing happens. A class fills its own fields first; the hook fills only what it finds
// empty.

#include <talvo/runtime/Object.h>

namespace Talvo {

/// What class management does at the turns of an object's life. Each is called on the thread that
/// makes or ends the object, and none is null.
struct TClassDefaultsHook {
  /// The object is new; what this raises fails its construction.
  void (*InitClassDefaults)(TObject& object) = [](TObject&) {};
  /// The object is about to end, and still complete.
  void (*BeforeDestruction)(TObject& object) = [](TObject&) {};
  /// The destructor runs; descendants have ended already. Must not raise.
  void (*Destruction)(TObject& object) noexcept = [](TObject&) noexcept {};
};

/// The hook in force. Any thread.
TALVO_API const TClassDefaultsHook& ClassDefaults() noexcept;

/// Puts another hook in force and returns the one before; null stands for the hook that does
/// nothing. `hook` must outlive its time in force. Any thread.
TALVO_API const TClassDefaultsHook* SetClassDefaults(const TClassDefaultsHook* hook) noexcept;

}  // namespace Talvo
