// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Value.h>

namespace Talvo {

TValue::TValue(const TValue& other) {
  if (!other.FOperations) return;
  void* place = Allocate(*other.FOperations);
  try {
    other.FOperations->Copy(place, other.Data());
  } catch (...) {
    Deallocate(*other.FOperations);
    throw;
  }
  FOperations = other.FOperations;
}

TValue::TValue(TValue&& other) noexcept : FOperations(other.FOperations) {
  if (!FOperations) return;
  if (FOperations->IsInline) {
    FOperations->Move(FInline, other.FInline);
    FOperations->Destroy(other.FInline);
  } else {
    FHeap = other.FHeap;
  }
  other.FOperations = nullptr;
}

TValue::~TValue() {
  if (!FOperations) return;
  FOperations->Destroy(const_cast<void*>(Data()));
  Deallocate(*FOperations);
}

TValue& TValue::operator=(TValue other) noexcept {
  // The old value ends last: its end may come back to this one.
  const TValue old(static_cast<TValue&&>(*this));
  ::new (this) TValue(static_cast<TValue&&>(other));
  return *this;
}

void* TValue::Allocate(const Detail::TValueOperations& operations) {
  if (operations.IsInline) return FInline;
  return FHeap = Detail::AllocateInstance(operations.Size, operations.Alignment);
}

void TValue::Deallocate(const Detail::TValueOperations& operations) noexcept {
  if (!operations.IsInline) Detail::FreeInstance(FHeap, operations.Size, operations.Alignment);
}

}  // namespace Talvo
