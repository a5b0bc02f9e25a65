// SPDX-License-Identifier: Apache-2.0
#pragma once
// TWeakRef<I>: a reference that does not keep its target alive.

#include <talvo/runtime/Object.h>

namespace Talvo {
namespace Detail {

struct TWeakBlock;

/// The block of a counted object, with one reference added; made on first use.
TALVO_API TWeakBlock* AcquireWeakBlock(TInterfacedObject* target);
TALVO_API void AddWeakBlock(TWeakBlock* block) noexcept;
TALVO_API void ReleaseWeakBlock(TWeakBlock* block) noexcept;
/// Adds a reference to the target unless its last one has gone.
TALVO_API bool LockWeakBlock(TWeakBlock* block) noexcept;

}  // namespace Detail

/// A reference that turns into a TRef as long as the target has references; it fails from the
/// moment the last one went. Costs the target one flag bit; the rest stands in a side table.
/// Lock may be called on any thread.
template <class I>
class TWeakRef {
 public:
  TWeakRef() noexcept = default;
  /// Raises EInvalidCast when the target does not count its references.
  TWeakRef(const TRef<I>& target) : FPtr(target.Get()) {
    if (!FPtr) return;
    auto* counted = dynamic_cast<TInterfacedObject*>(ObjectOf(target));
    if (!counted) RaiseInvalidCast();
    FBlock = Detail::AcquireWeakBlock(counted);
  }
  TWeakRef(const TWeakRef& other) noexcept : FPtr(other.FPtr), FBlock(other.FBlock) {
    if (FBlock) Detail::AddWeakBlock(FBlock);
  }
  TWeakRef(TWeakRef&& other) noexcept
      : FPtr(std::exchange(other.FPtr, nullptr)), FBlock(std::exchange(other.FBlock, nullptr)) {}
  ~TWeakRef() {
    if (FBlock) Detail::ReleaseWeakBlock(FBlock);
  }
  TWeakRef& operator=(TWeakRef other) noexcept {
    std::swap(FPtr, other.FPtr);
    std::swap(FBlock, other.FBlock);
    return *this;
  }

  /// The target, or an empty reference once it has ended or begun to.
  TRef<I> Lock() const noexcept {
    if (!FBlock || !Detail::LockWeakBlock(FBlock)) return {};
    return TRef<I>::Adopt(FPtr);
  }

 private:
  I* FPtr = nullptr;
  Detail::TWeakBlock* FBlock = nullptr;
};

}  // namespace Talvo
