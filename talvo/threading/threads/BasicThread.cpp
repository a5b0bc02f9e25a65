// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/threads/BasicThread.h>

#include <talvo/platform/Thread.h>
#include <talvo/runtime/ClassDefaults.h>
#include <talvo/threading/Talvo.Threading.Utils.h>

namespace Talvo {
namespace {

// Added to the count when the object ends: references taken and dropped from there on, as the
// thread does while the end waits for it, do no harm.
constexpr uint32_t EndingBias = 0x4000'0000;

string ComponentThreadName(const TComponent* owner, u16string_view name) {
  if (!owner) return string(name);
  string full = owner->Name().empty() ? owner->ClassName() : owner->Name();
  full += u'.';
  full += name;
  return full;
}

}  // namespace

TBasicThread::TBasicThread(string name) : FName(std::move(name)) {
  SetOrphanNotice(ThreadEndNotify);
}

TBasicThread::TBasicThread(const TComponent* owner, u16string_view name)
    : TBasicThread(ComponentThreadName(owner, name)) {}

TBasicThread::~TBasicThread() {
  ClassDefaults().Destruction(*this);
}

void TBasicThread::Construct() {
  TThread::Construct();
  InitDefaults();
}

void TBasicThread::InitDefaults() {
  ClassDefaults().InitClassDefaults(*this);
}

void TBasicThread::BeforeDestruction() {
  Stop();
  ClassDefaults().BeforeDestruction(*this);
  TThread::BeforeDestruction();
}

void TBasicThread::Terminate() {
  TThread::Terminate();
}

void TBasicThread::Execute() {
  struct TNoName {
    ~TNoName() { SetCurrentThreadName({}); }
  } noName;
  ThreadStartNotify();
  SetName();
  IntExecute();
}

void TBasicThread::SetName() {
  SetCurrentThreadName(FName);
  if (!FName.empty()) NameThreadForDebugging(FName);
}

void TBasicThread::IntExecute() {
  // A turn may end this object: then the thread has none any more.
  while (CurrentThread() && !IsTerminated()) ExecuteLoop();
}

void TBasicThread::ExecuteLoop() {}

void TBasicThread::DoTerminate() {
  ThreadEndNotify();
  TThread::DoTerminate();
}

uint32_t TBasicThread::QueryInterface(const TGuid& id, void** out) {
  Assert(out != nullptr);
  if (id == Detail::ImplementingObjectId) {
    *out = static_cast<TObject*>(this);
    return InterfaceFound;
  }
  *out = GetInterface(id);
  if (!*out) return NoSuchInterface;
  AddRef();
  return InterfaceFound;
}

int32_t TBasicThread::AddRef() {
  return static_cast<int32_t>(__atomic_add_fetch(&FRefCount, 1, __ATOMIC_RELAXED));
}

int32_t TBasicThread::Release() {
  // The last one and the bias are one step: the thread may come between two, and end the object
  // too.
  uint32_t count = __atomic_load_n(&FRefCount, __ATOMIC_RELAXED);
  while (!__atomic_compare_exchange_n(&FRefCount, &count, count == 1 ? EndingBias : count - 1,
                                      /*weak*/ true, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED)) {
  }
  if (count == 1) Free(this);
  return static_cast<int32_t>(count - 1);
}

uint32_t TBasicThread::GetCurrentThreadId() noexcept {
  return CurrentThreadId();
}

string TBasicThread::GetName() {
  return GetCurrentThreadName();
}

}  // namespace Talvo
