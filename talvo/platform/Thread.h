// SPDX-License-Identifier: Apache-2.0
#pragma once
// Threads of the operating system.

#include <cstdint>

namespace Talvo {

/// The system's identifier of the calling thread, never 0. Asks the system once per thread.
uint32_t CurrentThreadId() noexcept;

}  // namespace Talvo
