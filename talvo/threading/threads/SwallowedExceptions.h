// SPDX-License-Identifier: Apache-2.0
#pragma once
// A look at exceptions that nobody hears of.
//
//   SetSwallowedExceptionHook([](const std::exception_ptr& failure) { Log(failure); });
//
// Queued work that raises does not stop the queue, and whoever queued it is not told. One hook for
// the whole process is told in their place; there is none unless somebody sets it.

#include <exception>
#include <talvo/runtime/Config.h>
#include <talvo/runtime/Function.h>

namespace Talvo {

/// Is told of a swallowed exception, on the thread that swallowed it, with no lock held. Several
/// threads may be inside at a time; what the hook raises is swallowed for good.
using TSwallowedExceptionHook = TConstProc<std::exception_ptr>;

/// Sets the hook, or takes it away when `hook` is empty, and returns the one before. A thread that
/// is about to call that one may still do so. Any thread.
TALVO_API TSwallowedExceptionHook SetSwallowedExceptionHook(TSwallowedExceptionHook hook);

/// For a catch block that swallows: tells the hook of the exception being handled.
TALVO_API void ReportSwallowedException() noexcept;

}  // namespace Talvo
