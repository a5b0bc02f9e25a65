// SPDX-License-Identifier: Apache-2.0
#pragma once
// A key with its value: what dictionaries hold and hand out.
//
//   for (const auto& [key, value] : dictionary) ...

namespace Talvo {

/// An aggregate: it moves, copies and compares as far as K and V do.
template <class K, class V>
struct TPair {
  K Key;
  V Value;

  friend bool operator==(const TPair& left, const TPair& right) = default;
};

template <class K, class V>
TPair(K, V) -> TPair<K, V>;

}  // namespace Talvo
