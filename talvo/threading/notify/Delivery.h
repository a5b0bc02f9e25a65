// SPDX-License-Identifier: Apache-2.0
#pragma once
// Adapters that take a notification to another thread.
//
//   pump->AddChangeNotification(OnMainThread([this] { Redraw(); }, this));
//   found.Add(OnExecutor<string>(pool, [](const string& path) { Load(path); }));
//   ...
//   MainThread::ProcessExecuteQueue(this);       // in the owner's destructor
//
// The notification returns at once, and the code runs later: what it was told of may have changed
// again. Arguments are copied.

#include <talvo/threading/executors/Executor.h>
#include <talvo/threading/mainthread/MainThread.h>

namespace Talvo {

/// A subscriber that runs `proc` on the main thread, for `owner`; at once when it is told there.
/// With `ignoreMultiple`, notifications that come while one waits become one with it.
inline TProc<> OnMainThread(TProc<> proc, TOwnerKey owner = nullptr, bool ignoreMultiple = false) {
  if (!proc) return nullptr;
  return [proc = std::move(proc), owner, ignoreMultiple] {
    MainThread::Execute(owner, false, proc, ignoreMultiple);
  };
}

/// The same for notifications with arguments, whose types are given: OnMainThread<string>(...).
template <class A1, class... A>
TProc<A1, A...> OnMainThread(std::type_identity_t<TProc<A1, A...>> proc,
                             TOwnerKey owner = nullptr) {
  if (!proc) return nullptr;
  return [proc = std::move(proc), owner](const A1& first, const A&... rest) {
    MainThread::Execute(
        owner, false, [proc, first, rest...] { proc(first, rest...); }, false);
  };
}

/// A subscriber that has the executor run `proc`.
template <class... A>
TProc<A...> OnExecutor(TRef<IExecutor> executor, std::type_identity_t<TProc<A...>> proc) {
  if (!proc) return nullptr;
  Assert(static_cast<bool>(executor));
  return [executor = std::move(executor), proc = std::move(proc)](const A&... arguments) {
    executor->Execute(TProc<>([proc, arguments...] { proc(arguments...); }));
  };
}

}  // namespace Talvo
