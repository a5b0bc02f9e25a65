// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/sync/CriticalSection.h>

#include <talvo/runtime/Checked.h>

namespace Talvo {
namespace {

/// Runs `then` behind `code` in any case. What `then` raises takes the place of what `code` raised.
template <class TThen>
void RunThen(TFunctionRef<void()> code, TThen then) {
  try {
    code();
  } catch (...) {
    then();
    throw;
  }
  then();
}

}  // namespace

void TLockAccess::Execute(TFunctionRef<void()> proc) {
  Assert(static_cast<bool>(proc));
  Enter();
  RunThen(proc, [this] { Leave(); });
}
void TLockAccess::Execute(const TProcStd& proc) {
  Execute(TFunctionRef<void()>([&] { TProc<>(proc).Invoke(); }));
}

void TLockAccess::ExecuteLeave(TFunctionRef<void()> proc) {
  Assert(static_cast<bool>(proc));
  Leave();
  RunThen(proc, [this] { Enter(); });
}
void TLockAccess::ExecuteLeave(const TProcStd& proc) {
  ExecuteLeave(TFunctionRef<void()>([&] { TProc<>(proc).Invoke(); }));
}

void TLockAccess::ExecuteAssigned(const TProc<>& proc) {
  TProc<> held;
  Execute([&] { held = proc; });
  if (held) held.Invoke();
}
void TLockAccess::ExecuteAssigned(const TProcStd& proc) {
  TProcStd held;
  Execute([&] { held = proc; });
  if (held) held->Invoke();
}

uint32_t TCriticalSection::GetHandle() {
  return FHandle.Get();
}

void TCriticalSection::Enter() {
  FSection.Enter();
  if (FEnterCount == INT32_MAX) [[unlikely]] {
    FSection.Leave();
    RaiseIntOverflow();
  }
  ++FEnterCount;
}

void TCriticalSection::Leave() {
  Assert(FSection.IsHeldByCaller());
  --FEnterCount;
  FSection.Leave();
}

void TCriticalSectionLock::Construct() {
  Assert(static_cast<bool>(FSection));
  FSection->Enter();
  FIsInside = true;
}

TCriticalSectionLock::~TCriticalSectionLock() {
  if (!FIsInside) return;
  try {
    FSection->Leave();
  } catch (...) {
    // Dropped on another thread: the thread inside has to leave by itself.
  }
}

}  // namespace Talvo
