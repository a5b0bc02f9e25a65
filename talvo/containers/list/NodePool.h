// SPDX-License-Identifier: Apache-2.0
#pragma once
// Memory for the nodes of one list.

#include <cstddef>
#include <talvo/runtime/Config.h>

namespace Talvo::Detail {

/// Places for nodes of one size, from blocks that grow with the list.
class TALVO_API TNodeBlocks {
 protected:
  struct TPlace {
    TPlace* Next;
  };
  struct TBlock {
    TBlock* Older;
    char* First;
    char* End;
    size_t Alignment;
  };

  TNodeBlocks() noexcept = default;
  TNodeBlocks(const TNodeBlocks&) = delete;
  TNodeBlocks& operator=(const TNodeBlocks&) = delete;
  ~TNodeBlocks() {
    if (FBlocks) FreeBlocks();
  }
  void AddBlock(size_t size, size_t alignment);
  void FreeBlocks() noexcept;

  TPlace* FFree = nullptr;  // given back
  char* FNext = nullptr;    // to FEnd: never handed out
  char* FEnd = nullptr;
  TBlock* FBlocks = nullptr;  // the newest
};

/// Hands out places for nodes, one at a time; the first few are its own. Places given back are
/// used again. The blocks go when the last place is back, save a single one, so that a queue which
/// runs empty and fills again allocates nothing.
template <class TNode>
class TNodePool : TNodeBlocks {
 public:
  TNodePool() noexcept { TakeFew(); }

  void* Take() {
    void* place = FFree;
    if (place) {
      FFree = FFree->Next;
    } else {
      if (FNext == FEnd) [[unlikely]]
        AddBlock(sizeof(TNode), alignof(TNode));
      place = FNext;
      FNext += sizeof(TNode);
    }
    ++FTaken;
    return place;
  }
  void Give(void* place) noexcept {
    auto* free = static_cast<TPlace*>(place);
    free->Next = FFree;
    FFree = free;
    if (--FTaken == 0 && FBlocks && FBlocks->Older) [[unlikely]] {
      FreeBlocks();
      TakeFew();
    }
  }

 private:
  static constexpr size_t FewBytes = 64 / sizeof(TNode) * sizeof(TNode);

  void TakeFew() noexcept {
    FNext = FFew;
    FEnd = FFew + FewBytes;
  }

  size_t FTaken = 0;
  alignas(TNode) char FFew[FewBytes > 0 ? FewBytes : 1];
};

}  // namespace Talvo::Detail
