// SPDX-License-Identifier: Apache-2.0
#pragma once
// Names of classes as people write them.

#include <typeinfo>
#include <talvo/runtime/Config.h>
#include <talvo/runtime/Text.h>

namespace Talvo {

/// The name of a class without its namespace and enclosing classes: "TArrayList<int>".
TALVO_API string ClassNameOf(const std::type_info& type);

}  // namespace Talvo
