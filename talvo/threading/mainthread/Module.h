// SPDX-License-Identifier: Apache-2.0
#pragma once
// The start and the end of the threading module. It starts when the library is loaded and ends
// when the process does; nobody else needs to call anything here.

#include <talvo/runtime/TypeRecord.h>

namespace Talvo {

class IMainThreadExecute;

/// What class management, which stands above this module, does at the module's start. None is
/// null.
struct TThreadingModuleHook {
  void (*StartClassManagement)() = [] {};
  /// Registers the module's classes, which are given by their handles.
  void (*RegisterClasses)(const TTypeHandle* classes, int32_t count) = [](const TTypeHandle*,
                                                                          int32_t) {};
};

/// The module's life. Any thread may call.
class TALVO_API ThreadingModule {
 public:
  ThreadingModule() = delete;

  /// Starts the module; further calls only count. What the hook raises comes out here, and the
  /// module has not started then.
  static void Start();
  /// Undoes one Start. The last one stops the animation clock and lets MainThread do nothing any
  /// more. It waits for no thread: those that still run may end with the process.
  static void End();
  /// Puts a hook in force, which must stay. It is called now if the module has started, otherwise
  /// when it does.
  static void SetHook(const TThreadingModuleHook& hook);
};

namespace Detail {
/// The process's queue; null before the start and after the end.
IMainThreadExecute* ProcessMainThreadExecute() noexcept;
}  // namespace Detail

}  // namespace Talvo
