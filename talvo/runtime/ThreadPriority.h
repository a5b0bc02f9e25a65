// SPDX-License-Identifier: Apache-2.0
#pragma once
// TThreadPriority, for those who only pass it on: TThread is a larger header.

#include <cstdint>

namespace Talvo {

/// How much of the processor a thread gets beside others.
enum TThreadPriority : uint8_t {
  tpIdle = 0,
  tpLowest = 1,
  tpLower = 2,
  tpNormal = 3,
  tpHigher = 4,
  tpHighest = 5,
  tpTimeCritical = 6
};

}  // namespace Talvo
