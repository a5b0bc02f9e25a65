// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/DynamicArray.h>

#include <cstdlib>

namespace Talvo::Detail {

void* AllocateStorage(size_t size, size_t alignment) {
  void* storage =
      alignment > alignof(std::max_align_t)
          ? std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)
          : std::malloc(size);
  if (!storage) throw std::bad_alloc();
  return storage;
}

void* ReallocateStorage(void* storage, size_t size) {
  void* grown = std::realloc(storage, size);
  if (!grown) throw std::bad_alloc();
  return grown;
}

void FreeStorage(void* storage, size_t) noexcept {
  std::free(storage);
}

}  // namespace Talvo::Detail
