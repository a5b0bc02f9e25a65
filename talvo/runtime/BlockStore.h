// SPDX-License-Identifier: Apache-2.0
#pragma once
// Memory for small objects that come and go in great number, often from one thread to another.

#include <cstddef>
#include <talvo/runtime/Config.h>

namespace Talvo::Detail {

TALVO_API void* AllocateInstance(size_t size, size_t alignment);
TALVO_API void FreeInstance(void* memory, size_t size, size_t alignment) noexcept;

/// The sizes of blocks that are stored.
inline constexpr size_t BlockSizes[] = {32, 64, 128};
inline constexpr size_t CountBlockSizes = sizeof(BlockSizes) / sizeof(BlockSizes[0]);
TALVO_API void* TakeStoredBlock(size_t sizeIndex);
TALVO_API void GiveStoredBlock(void* memory, size_t sizeIndex) noexcept;

constexpr size_t BlockSizeIndex(size_t size) noexcept {
  size_t index = 0;
  while (index < CountBlockSizes && BlockSizes[index] < size) ++index;
  return index;
}

/// Memory for an instance of `size` bytes. Small blocks come from the thread's own store, which
/// exchanges them with those of other threads in batches; the rest from the allocator.
template <size_t size>
void* TakeBlock() {
  constexpr size_t index = BlockSizeIndex(size);
  if constexpr (index == CountBlockSizes) {
    return AllocateInstance(size, alignof(void*));
  } else {
    return TakeStoredBlock(index);
  }
}
/// Gives back what TakeBlock answered for the same size, on any thread. Nothing is written into it.
template <size_t size>
void GiveBlock(void* memory) noexcept {
  constexpr size_t index = BlockSizeIndex(size);
  if constexpr (index == CountBlockSizes) {
    FreeInstance(memory, size, alignof(void*));
  } else {
    GiveStoredBlock(memory, index);
  }
}

}  // namespace Talvo::Detail
