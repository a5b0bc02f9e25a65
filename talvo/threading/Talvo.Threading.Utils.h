// SPDX-License-Identifier: Apache-2.0
#pragma once
// What all threads of the library have in common: notices of their start and end, and names.
//
//   TProc<> link = RegisterThreadEndNotify([] { DropCachesOfThisThread(); });
//   ...
//   UnRegisterThreadEndNotify(link);
//
// All functions may be called on any thread.

#include <talvo/runtime/Config.h>
#include <talvo/runtime/Function.h>
#include <talvo/runtime/Text.h>

namespace Talvo {

/// From here on `proc` is called on every thread of the library as it starts, or ends. Returns
/// `proc`, for the removal; an empty one is not registered. Each call adds it once more. What it
/// raises ends the thread that starts, before it has done anything: work that a pool has given to
/// that thread never runs.
TALVO_API TProc<> RegisterThreadStartNotify(TProc<> proc);
TALVO_API TProc<> RegisterThreadEndNotify(TProc<> proc);
/// Takes `proc` back once. When this returns, `proc` does not run on another thread. From a
/// registered procedure itself: a second removal of what was removed in the same round finds the
/// old entry, and leaves a newer one.
TALVO_API void UnRegisterThreadStartNotify(const TProc<>& proc);
TALVO_API void UnRegisterThreadEndNotify(const TProc<>& proc);

/// A registered procedure is found by its identity, which a bare lambda does not have: keep what
/// Register... returned.
template <class F>
requires(!std::is_same_v<F, TProc<>> &&
         std::is_invocable_v<const F&>) void UnRegisterThreadStartNotify(const F& lambda) = delete;
template <class F>
requires(!std::is_same_v<F, TProc<>> &&
         std::is_invocable_v<const F&>) void UnRegisterThreadEndNotify(const F& lambda) = delete;

/// These call what is registered, in the order of registration; threads of the library do so by
/// themselves, threads of others may. One process-wide section is held meanwhile: no thread starts
/// or ends until they return, so what is registered must not wait for the start or end of another
/// thread, nor register. What one of them raises comes out here.
TALVO_API void ThreadStartNotify();
TALVO_API void ThreadEndNotify();

/// "MainThread" on the first thread of the process; elsewhere the name that was set on the calling
/// thread, or its identifier in decimal while there is none.
TALVO_API string GetCurrentThreadName();
/// Names the calling thread, for GetCurrentThreadName; an empty name is none.
TALVO_API void SetCurrentThreadName(string name);

}  // namespace Talvo
