// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/Talvo.Threading.Utils.h>

#include <mutex>
#include <talvo/containers/elements/MultiProc.h>
#include <talvo/platform/Thread.h>
#include <talvo/runtime/Numbers.h>

namespace Talvo {
namespace {

struct TRegisters {
  std::recursive_mutex Section;
  TMultiProc<> Starts;  // guarded by Section
  TMultiProc<> Ends;    // guarded by Section
};

/// Never destroyed: threads may start and end while the process exits.
TRegisters& Registers() {
  static auto* const registers = new TRegisters;
  return *registers;
}

/// Lets go of what is registered when the module goes.
struct TModuleEnd {
  ~TModuleEnd() {
    TRegisters& registers = Registers();
    // A thread that is inside may stay there for good, with the process exiting around it.
    if (!registers.Section.try_lock()) return;
    registers.Starts.Clear();
    registers.Ends.Clear();
    registers.Section.unlock();
  }
} GModuleEnd;

TProc<> Register(TMultiProc<>& procs, TProc<> proc) {
  const std::lock_guard guard(Registers().Section);
  return procs.Add(std::move(proc));
}

void UnRegister(TMultiProc<>& procs, const TProc<>& proc) {
  const std::lock_guard guard(Registers().Section);
  procs.Remove(proc);
}

void Notify(const TMultiProc<>& procs) {
  const std::lock_guard guard(Registers().Section);
  procs.Notify();
}

// No thread_local with a destructor: its first use on a thread waits for a dlclose that is under
// way, which may wait for that very thread.
constinit thread_local string* GName = nullptr;

void ForgetName(void* name) {
  GName = nullptr;
  delete static_cast<string*>(name);
}

}  // namespace

TProc<> RegisterThreadStartNotify(TProc<> proc) {
  return Register(Registers().Starts, std::move(proc));
}

TProc<> RegisterThreadEndNotify(TProc<> proc) {
  return Register(Registers().Ends, std::move(proc));
}

void UnRegisterThreadStartNotify(const TProc<>& proc) {
  UnRegister(Registers().Starts, proc);
}

void UnRegisterThreadEndNotify(const TProc<>& proc) {
  UnRegister(Registers().Ends, proc);
}

void ThreadStartNotify() {
  Notify(Registers().Starts);
}

void ThreadEndNotify() {
  Notify(Registers().Ends);
}

string GetCurrentThreadName() {
  const uint32_t id = CurrentThreadId();
  if (id == MainThreadId()) return u"MainThread";
  return !GName || GName->empty() ? UIntToStr(id) : *GName;
}

void SetCurrentThreadName(string name) {
  static Platform::TThreadEndNotice notice(ForgetName);
  if (name.empty()) {
    // Leak checkers lose sight of a thread before its end notices.
    if (GName) ForgetName(GName);
    notice.Set(nullptr);
  } else if (GName) {
    GName->swap(name);
  } else {
    GName = new string(std::move(name));
    notice.Set(GName);
  }
}

}  // namespace Talvo
