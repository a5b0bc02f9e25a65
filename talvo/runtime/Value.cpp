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
  this->~TValue();
  return *::new (this) TValue(static_cast<TValue&&>(other));
}

void* TValue::Allocate(const Detail::TValueOperations& operations) {
  if (operations.IsInline) return FInline;
  return FHeap = ::operator new(operations.Size);
}

void TValue::Deallocate(const Detail::TValueOperations& operations) noexcept {
  if (!operations.IsInline) ::operator delete(FHeap);
}

}  // namespace Talvo
