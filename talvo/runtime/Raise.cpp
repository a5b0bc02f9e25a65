// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Raise.h>

#include <string_view>
#include <talvo/runtime/Exceptions.h>
#include <talvo/runtime/Numbers.h>

namespace Talvo {

void RaiseRangeError() {
  throw ERangeError(u"Range check failed");
}

void RaiseIndexOutOfRange(int32_t index) {
  throw ERangeError(u"Index out of range = " + UIntToStr(static_cast<uint32_t>(index)));
}

void RaiseIntOverflow() {
  throw EIntOverflow(u"Integer overflow");
}

void RaiseAbstractError() {
  throw EAbstractError(u"Abstract operation called");
}

void RaiseInvalidCast() {
  throw EInvalidCast(u"Invalid cast");
}

void RaiseDuplicateKey() {
  throw EDuplicateKey(u"Duplicate key");
}

void RaiseKeyNotFound() {
  throw EKeyNotFound(u"Key not found");
}

void RaiseAssertionFailed(const char* file, int line) {
  std::string_view unit = file;
  unit.remove_prefix(unit.find_last_of('/') + 1);  // npos + 1 is 0: a bare name stays whole
  throw EAssertionFailed(u"Assertion failure (" + FromUtf8(unit, TSurrogates::Replace) +
                         u", line " + IntToStr(line) + u")");
}

}  // namespace Talvo
