// SPDX-License-Identifier: Apache-2.0
#pragma once
// A stay inside something with Enter and Leave.

namespace Talvo::Detail {

/// Enters, and leaves at the end of the scope.
template <class T>
class TInside {
 public:
  explicit TInside(T& section) : FSection(section) { FSection.Enter(); }
  TInside(const TInside&) = delete;
  TInside& operator=(const TInside&) = delete;
  ~TInside() { FSection.Leave(); }

 private:
  T& FSection;
};

}  // namespace Talvo::Detail
