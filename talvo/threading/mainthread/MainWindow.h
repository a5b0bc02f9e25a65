// SPDX-License-Identifier: Apache-2.0
#pragma once
// The window of the main thread to which its queues post their wake-ups.

#include <talvo/threading/mainthread/MainThread.h>

namespace Talvo {

/// There is one while there are queues. A wake-up for a queue that has ended is dropped.
class TALVO_API TMainWindowNode final : public TBasicObject, private TMessageHandler {
 public:
  TMainWindowNode();
  ~TMainWindowNode() override;

  /// Adds a queue and answers the node, which the first queue makes. Any thread.
  static TMainWindowNode* AddReff(TMainThreadExecute& execute);
  /// Removes a queue; the last one ends the node. Any thread.
  static void RemoveReff(TMainThreadExecute& execute);

  /// Where wake-ups are posted to.
  TWindowHandle GetHandle() const noexcept { return FWindowHandle; }

 private:
  void WndProc(TMessage& message) override;

  const TWindowHandle FWindowHandle;
  const TRef<ILinkedList<TMainThreadExecute*>> FNotifyList;  // guarded by GGuard
};

}  // namespace Talvo
