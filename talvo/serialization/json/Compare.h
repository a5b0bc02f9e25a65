// SPDX-License-Identifier: Apache-2.0
#pragma once
// Deep comparison of trees, packed or live, without recursion.

#include <talvo/serialization/json/ElementClasses.h>

namespace Talvo::Detail {

/// Whether both are of one kind and of equal value. Null is equal to nothing.
bool AreEqual(const TJsonElement& left, const TJsonElement* right);

}  // namespace Talvo::Detail
