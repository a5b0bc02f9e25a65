// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/ClassDefaults.h>

namespace Talvo {
namespace {

constexpr TClassDefaultsHook GNoDefaults;
const TClassDefaultsHook* GHook = &GNoDefaults;  // atomic

}  // namespace

const TClassDefaultsHook& ClassDefaults() noexcept {
  return *__atomic_load_n(&GHook, __ATOMIC_ACQUIRE);
}

const TClassDefaultsHook* SetClassDefaults(const TClassDefaultsHook* hook) noexcept {
  const TClassDefaultsHook* before =
      __atomic_exchange_n(&GHook, hook ? hook : &GNoDefaults, __ATOMIC_ACQ_REL);
  return before == &GNoDefaults ? nullptr : before;
}

}  // namespace Talvo
