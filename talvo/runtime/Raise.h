// SPDX-License-Identifier: Apache-2.0
#pragma once
// The cold half of every check: functions that raise, compiled once. Headers that only need to
// raise include this file and not the exception classes.

#include <cstdint>
#include <talvo/runtime/Config.h>

namespace Talvo {

/// Raises ERangeError "Range check failed".
[[noreturn]] TALVO_API TALVO_COLD void RaiseRangeError();
/// Raises ERangeError "Index out of range = %u"; the index prints as an unsigned number, so -1
/// prints as 4294967295.
[[noreturn]] TALVO_API TALVO_COLD void RaiseIndexOutOfRange(int32_t index);
/// Raises EIntOverflow "Integer overflow".
[[noreturn]] TALVO_API TALVO_COLD void RaiseIntOverflow();
/// Raises EAbstractError "Abstract operation called".
[[noreturn]] TALVO_API TALVO_COLD void RaiseAbstractError();
/// Raises EInvalidCast "Invalid cast".
[[noreturn]] TALVO_API TALVO_COLD void RaiseInvalidCast();
/// Raises EDuplicateKey "Duplicate key".
[[noreturn]] TALVO_API TALVO_COLD void RaiseDuplicateKey();
/// Raises EKeyNotFound "Key not found".
[[noreturn]] TALVO_API TALVO_COLD void RaiseKeyNotFound();
/// Raises EAssertionFailed "Assertion failure (unit, line n)"; the unit is the file's base name.
[[noreturn]] TALVO_API TALVO_COLD void RaiseAssertionFailed(const char* file, int line);

/// Raises EAssertionFailed when `holds` is false, in every build. The message names the caller's
/// own file and line.
inline void Assert(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (!holds) [[unlikely]]
    RaiseAssertionFailed(file, line);
}

}  // namespace Talvo
