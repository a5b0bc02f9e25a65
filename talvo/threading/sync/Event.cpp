// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/sync/Event.h>

namespace Talvo {

TEvent::TEvent(u16string_view name, TEventResetMode resetMode, bool isSignalled)
    : TImplements(Do_Not_Use_This),
      FEvent(ToUtf8(name, TSurrogates::Keep), resetMode == ermManual, isSignalled) {}
TEvent::~TEvent() = default;

uint32_t TEvent::GetHandle() {
  return FEvent.IsValid() ? FHandle.Get() : 0;
}
void TEvent::Signal() {
  FEvent.Signal();
}
void TEvent::Reset() {
  FEvent.Reset();
}
void TEvent::SetState(bool isSignalled) {
  isSignalled ? Signal() : Reset();
}
bool TEvent::WaitFor(uint32_t timeoutMs) {
  return FEvent.Wait(timeoutMs);
}

}  // namespace Talvo
