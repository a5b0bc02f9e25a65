// SPDX-License-Identifier: Apache-2.0
#pragma once
// Messages: every thread may have windows that messages are posted to, and one queue in which
// they wait for it. A window here has no face; it is an address for messages.
//
//   struct TEcho final : TMessageHandler {
//     void WndProc(TMessage& message) override { DefWindowProc(message); }
//   } echo;
//   const TWindowHandle window = AllocateHWnd(echo);     // on the thread that is to be told
//   PostMessage(window, 1024, 0, 0);                     // on any thread
//   TMessage message;
//   while (GetMessage(message)) DispatchMessage(message);
//
// All functions may be called on any thread; those that take messages out take the caller's own.
// A forked child goes on with them only after exec.

#include <cstdint>

#pragma GCC visibility push(default)
namespace Talvo {

/// The number of a window; 0 is none, and no number is given twice.
using TWindowHandle = uint64_t;

/// Posted by others to say that the window is to go.
inline constexpr uint32_t WM_DESTROY = 2;
/// Ends the loop of the thread that takes it out.
inline constexpr uint32_t WM_QUIT = 18;
/// A timer of the window is due; WParam is the timer's number.
inline constexpr uint32_t WM_TIMER = 275;

/// A message and the handler's answer to it.
struct TMessage {
  TWindowHandle Window = 0;  ///< 0 when it was posted to the thread.
  uint32_t Msg = 0;
  uintptr_t WParam = 0;
  intptr_t LParam = 0;
  intptr_t Result = 0;
};

/// What the messages of a window go to.
class TMessageHandler {
 public:
  /// Called on the window's thread, with no lock of the queue held. Passes the message to
  /// DefWindowProc unless it is overridden.
  virtual void WndProc(TMessage& message);

 protected:
  ~TMessageHandler() = default;
};

/// A new window of the calling thread. It ends by DeallocateHWnd, or with its thread; the handler
/// must live until then.
TWindowHandle AllocateHWnd(TMessageHandler& handler);
/// A new window of the main thread, made on whatever thread.
TWindowHandle AllocateMainHWnd(TMessageHandler& handler);
/// Ends a window; its messages and timers are dropped. When another thread is just in the
/// handler, waits until it has come out: afterwards the handler is not called any more. Unknown
/// handles are ignored.
void DeallocateHWnd(TWindowHandle window);

/// Adds a message to the queue of the window's thread; false when there is no such window any
/// more. Does not block.
bool PostMessage(TWindowHandle window, uint32_t id, uintptr_t wParam, intptr_t lParam);
/// Adds a message to the queue of a thread; false when it has no queue: it has never had a window
/// nor asked for messages. The main thread always has one.
bool PostThreadMessage(uint32_t thread, uint32_t id, uintptr_t wParam, intptr_t lParam);
/// Lets a thread that waits for messages go on: it takes out one with the number 0 to no window,
/// in front of all others, for all nudges up to then. Needs no memory. False when it has no queue.
bool NudgeThread(uint32_t thread) noexcept;
/// Takes back what waits unread of a window's messages with this number and WParam.
void RecallMessages(TWindowHandle window, uint32_t id, uintptr_t wParam);

/// Waits for the next message of the calling thread and takes it out. False for WM_QUIT.
bool GetMessage(TMessage& message);
/// The same without waiting; false also when there is none.
bool PeekMessage(TMessage& message);
/// Calls the handler of the message's window, on the thread that the window belongs to, and
/// answers the message's Result. A message to a window that is gone is dropped.
intptr_t DispatchMessage(TMessage& message);
/// What a handler does with messages that it does not know: answers 0.
void DefWindowProc(TMessage& message);

/// Dispatches what waits for the calling thread now, messages and then due timers, and does not
/// wait for more; what handlers post meanwhile stays for the next call. WM_QUIT is taken out like
/// the others and ends nothing. How many there were. What a handler raises comes out here, and
/// those behind it stay.
int32_t ProcessMessages();

/// Posts WM_TIMER to the window every `periodMs` milliseconds, at least every one, until
/// KillTimer. Ticks that were not taken out in time become one, and what comes late does not
/// delay what follows. A timer with the same number starts afresh. False when there is no such
/// window.
bool SetTimer(TWindowHandle window, uintptr_t id, uint32_t periodMs);
/// Ends a timer: no tick is taken out after this. Unknown timers are ignored.
void KillTimer(TWindowHandle window, uintptr_t id);

/// A descriptor that can be read from as long as something waits for the main thread, messages or
/// due timers: for the poll of a host's own loop, which calls ProcessMessages then. A loop that is
/// told of edges only asks again after that. It is made by the first call and stays open; nobody
/// reads or closes it. -1 when the system gives no more.
int MainWakeUpDescriptor();

}  // namespace Talvo
#pragma GCC visibility pop
