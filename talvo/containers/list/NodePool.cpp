// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/list/NodePool.h>

#include <talvo/runtime/DynamicArray.h>

namespace Talvo::Detail {
namespace {

constexpr size_t FirstBlockPlaces = 8;
constexpr size_t LargestBlock = 16 * 1024 * 1024;

}  // namespace

void TNodeBlocks::AddBlock(size_t size, size_t alignment) {
  size_t held = 0;
  for (const TBlock* block = FBlocks; block; block = block->Older) {
    held += static_cast<size_t>(block->End - block->First);
  }
  // The pool triples: when one block is most of it, malloc keeps the memory for the next time.
  size_t places = held > 0 ? 2 * held / size : FirstBlockPlaces;
  if (places * size > LargestBlock) places = size < LargestBlock ? LargestBlock / size : 1;
  const size_t header = (sizeof(TBlock) + alignment - 1) / alignment * alignment;
  char* memory = static_cast<char*>(AllocateStorage(header + places * size, alignment));
  FNext = memory + header;
  FEnd = FNext + places * size;
  FBlocks = ::new (static_cast<void*>(memory)) TBlock{FBlocks, FNext, FEnd, alignment};
}

void TNodeBlocks::FreeBlocks() noexcept {
  while (FBlocks) {
    TBlock* block = FBlocks;
    FBlocks = block->Older;
    FreeStorage(block, block->Alignment);
  }
  FFree = nullptr;
}

}  // namespace Talvo::Detail
