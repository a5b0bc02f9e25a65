// SPDX-License-Identifier: Apache-2.0
// A plug-in with what keeps g++'s modules mapped: a static inside a template.

#include <talvo/runtime/Exceptions.h>

template <class T>
T& Counter() {
  static T count = T();
  return count;
}

extern "C" __attribute__((visibility("default"))) bool RunPlugin() {
  ++Counter<int>();
  return Talvo::EKeyNotFound(u"?").Message() == u"?" && Counter<int>() == 1;
}
