// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Object.h>

#include <cstring>
#include <talvo/runtime/WeakReference.h>

#ifndef __cpp_sized_deallocation
// clang leaves these undeclared without -fsized-deallocation; the C++ library has them all the
// same.
void operator delete(void* memory, std::size_t size) noexcept;
void operator delete(void* memory, std::size_t size, std::align_val_t alignment) noexcept;
#endif

namespace Talvo {
namespace {

uint64_t Mix(uint64_t left, uint64_t right) noexcept {
  const auto product = static_cast<unsigned __int128>(left) * right;
  return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

}  // namespace

namespace Detail {

TGuid HashTypeName(const std::type_info& type) noexcept {
  // Two FNV-1a style passes with different odd multipliers, folded once: names are short.
  const char* name = type.name();
  uint64_t high = 0xcbf29ce484222325;
  uint64_t low = 0x9e3779b97f4a7c15;
  for (const char* c = name; *c; ++c) {
    const auto unit = static_cast<unsigned char>(*c);
    high = (high ^ unit) * 0x100000001b3;
    low = Mix(low ^ unit, 0xd6e8feb86659fd93);
  }
  if (std::strstr(name, "_GLOBAL__N_")) {
    low = Mix(low ^ reinterpret_cast<uintptr_t>(&type), 0xa0761d6478bd642f);
  }
  return {high, low};
}

void* AllocateInstance(size_t size, size_t alignment) {
  return alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__
             ? ::operator new (size, std::align_val_t{alignment})
             : ::operator new(size);
}

void FreeInstance(void* memory, size_t size, size_t alignment) noexcept {
  if (alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
    ::operator delete (memory, size, std::align_val_t{alignment});
  } else {
    ::operator delete(memory, size);
  }
}

void Poison(void* memory, size_t size) noexcept {
  std::memset(memory, 0xFF, size);
  // Compilers drop a store to memory that is about to be freed; the barrier keeps it.
  asm volatile("" : : "r"(memory) : "memory");
}

}  // namespace Detail

TObject::~TObject() = default;
void* TObject::GetInterface(const TGuid&) {
  return nullptr;
}
void TObject::Construct() {}
void TObject::AfterConstruction() {}
void TObject::ConstructionFailed() noexcept {}
void TObject::BeforeDestruction() {}

void TObject::operator delete(void* memory, size_t size) {
  ::operator delete(memory, size);
}
void TObject::operator delete(void* memory, size_t size, std::align_val_t alignment) {
  ::operator delete(memory, size, alignment);
}

void TBasicObject::operator delete(void* memory, size_t size) {
  Detail::Poison(memory, size);
  ::operator delete(memory, size);
}
void TBasicObject::operator delete(void* memory, size_t size, std::align_val_t alignment) {
  Detail::Poison(memory, size);
  ::operator delete(memory, size, alignment);
}

void TBasicInterfacedObject::operator delete(void* memory, size_t size) {
  Detail::Poison(memory, size);
  ::operator delete(memory, size);
}
void TBasicInterfacedObject::operator delete(void* memory, size_t size,
                                             std::align_val_t alignment) {
  Detail::Poison(memory, size);
  ::operator delete(memory, size, alignment);
}

uint32_t TInterfacedObject::QueryInterface(const TGuid& id, void** out) {
  Assert(out != nullptr);
  if (id == Detail::ImplementingObjectId) {
    *out = static_cast<TObject*>(this);
    return InterfaceFound;
  }
  *out = GetInterface(id);
  if (!*out) return NoSuchInterface;
  AddRef();
  return InterfaceFound;
}

void* TInterfacedObject::GetInterface(const TGuid& id) {
  return Detail::FindInterface<IInterface>(this, id);
}

void TInterfacedObject::End() noexcept {
  const uint32_t refs = __atomic_add_fetch(&FRefs, EndingBias, __ATOMIC_ACQ_REL);
  if (refs & WeakFlag) Detail::ForgetWeakTarget(this);
  if ((refs & DeferFlag) && DefersEnd()) return;
  Free(this);
}

void TInterfacedObject::EndSole() noexcept {
  __atomic_store_n(&FRefs, EndingBias, __ATOMIC_RELAXED);
  Free(this);
}

bool TInterfacedObject::DefersEnd() noexcept {
  return false;
}

void Free(TObject* object) noexcept {
  if (!object) return;
  try {
    Detail::TObjectAccess::BeforeDestruction(*object);
  } catch (...) {
    // Whoever drops a last reference cannot be told, and the object has to end all the same.
  }
  Detail::TObjectAccess::Delete(object);
}

}  // namespace Talvo
