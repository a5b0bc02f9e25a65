// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/sync/Mutex.h>

namespace Talvo {

TMutex::TMutex(u16string_view name)
    : TImplements(Do_Not_Use_This), FMutex(ToUtf8(name, TSurrogates::Keep)) {}
TMutex::~TMutex() = default;

uint32_t TMutex::GetHandle() {
  return FMutex.IsValid() ? FHandle.Get() : 0;
}
bool TMutex::MutexAcquire(uint32_t timeoutMs) {
  return FMutex.Acquire(timeoutMs);
}
bool TMutex::MutexRelease() {
  return FMutex.Release();
}

void TMutex::Execute(TFunctionRef<void()> proc, uint32_t timeoutMs) {
  Assert(static_cast<bool>(proc));
  if (!MutexAcquire(timeoutMs)) return;
  struct THeld {
    TMutex& Mutex;
    ~THeld() { Mutex.MutexRelease(); }
  } held{*this};
  proc();
}
void TMutex::Execute(const TProcStd& proc, uint32_t timeoutMs) {
  Execute(TFunctionRef<void()>([&] { TProc<>(proc).Invoke(); }), timeoutMs);
}

bool TMutex::ExecuteLeave(TFunctionRef<void()> proc, uint32_t timeoutMs) {
  Assert(static_cast<bool>(proc));
  MutexRelease();
  try {
    proc();
  } catch (...) {
    MutexAcquire(timeoutMs);
    throw;
  }
  return MutexAcquire(timeoutMs);
}
bool TMutex::ExecuteLeave(const TProcStd& proc, uint32_t timeoutMs) {
  return ExecuteLeave(TFunctionRef<void()>([&] { TProc<>(proc).Invoke(); }), timeoutMs);
}

}  // namespace Talvo
