// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/BlockStore.h>

#include <algorithm>
#include <mutex>
#include <new>
#include <talvo/platform/Thread.h>
#include <talvo/runtime/Object.h>

// The sanitizers are to see the end of every object.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TALVO_BLOCK_STORE 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TALVO_BLOCK_STORE 0
#endif
#endif
#ifndef TALVO_BLOCK_STORE
#define TALVO_BLOCK_STORE 1
#endif

namespace Talvo::Detail {
namespace {

constexpr bool HasStore = TALVO_BLOCK_STORE;
constexpr uint32_t BatchSize = 32;
constexpr uint32_t Ahead = 8;
constexpr uint32_t MostBatches = 1024;

/// What threads have too many of, for those that have none.
class TDepot {
 public:
  /// Puts BatchSize blocks in; false when there is no room.
  bool Put(void* const* blocks) noexcept {
    const std::lock_guard guard(FLock);
    if (FCount == MostBatches) return false;
    std::copy_n(blocks, BatchSize, FBatches[FCount++]);
    return true;
  }
  /// Gets BatchSize blocks out; false when there are none.
  bool Get(void** blocks) noexcept {
    const std::lock_guard guard(FLock);
    if (FCount == 0) return false;
    std::copy_n(FBatches[--FCount], BatchSize, blocks);
    return true;
  }

 private:
  std::mutex FLock;
  uint32_t FCount = 0;
  void* FBatches[MostBatches][BatchSize];
};

TDepot GDepots[CountBlockSizes];

/// The blocks of one thread.
class TStore {
 public:
  static TStore* Current() noexcept {
    TStore* current = GCurrent;
    return current || !HasStore ? current : Begin();
  }

  void* Take(size_t index) {
    TStack& stack = FStacks[index];
    if (stack.Count == 0) return TakeElsewhere(index);
    // Blocks come from other processors: the one after next is on its way already.
    if (stack.Count > Ahead) __builtin_prefetch(stack.Blocks[stack.Count - 1 - Ahead], /*rw*/ 1);
    return stack.Blocks[--stack.Count];
  }
  void Give(size_t index, void* block) noexcept {
    TStack& stack = FStacks[index];
    if (stack.Count == 2 * BatchSize) MakeRoom(index);
    stack.Blocks[stack.Count++] = block;
  }

 private:
  struct TStack {
    uint32_t Count = 0;
    void* Blocks[2 * BatchSize];
  };

  static TStore* Begin() noexcept;

  [[gnu::noinline]] void* TakeElsewhere(size_t index) {
    TStack& stack = FStacks[index];
    if (!GDepots[index].Get(stack.Blocks)) {
      return AllocateInstance(BlockSizes[index], alignof(void*));
    }
    stack.Count = BatchSize - 1;
    return stack.Blocks[stack.Count];
  }
  static void AtEnd(void* store);

  /// Gives a batch away: those given first, which this thread's cache has forgotten.
  [[gnu::noinline]] void MakeRoom(size_t index) noexcept {
    TStack& stack = FStacks[index];
    if (!GDepots[index].Put(stack.Blocks)) FreeSome(index, BatchSize);
    stack.Count -= BatchSize;
    std::copy_n(stack.Blocks + BatchSize, stack.Count, stack.Blocks);
  }
  void FreeSome(size_t index, uint32_t count) noexcept {
    for (uint32_t i = 0; i < count; ++i) {
      FreeInstance(FStacks[index].Blocks[i], BlockSizes[index], alignof(void*));
    }
  }

  static constinit thread_local TStore* GCurrent __attribute__((tls_model("initial-exec")));
  TStack FStacks[CountBlockSizes];
};

constinit thread_local TStore* TStore::GCurrent __attribute__((tls_model("initial-exec"))) =
    nullptr;

TStore* TStore::Begin() noexcept {
  static Platform::TThreadEndNotice endNotice(AtEnd);
  GCurrent = new (std::nothrow) TStore;
  if (GCurrent) endNotice.Set(GCurrent);
  return GCurrent;
}

void TStore::AtEnd(void* store) {
  // What the thread gives back from here on, in the ends of other libraries, begins anew.
  GCurrent = nullptr;
  auto* self = static_cast<TStore*>(store);
  for (size_t index = 0; index < CountBlockSizes; ++index) {
    if (self->FStacks[index].Count >= BatchSize) self->MakeRoom(index);
    self->FreeSome(index, self->FStacks[index].Count);
  }
  delete self;
}

}  // namespace

void* TakeStoredBlock(size_t sizeIndex) {
  TStore* store = TStore::Current();
  return store ? store->Take(sizeIndex) : AllocateInstance(BlockSizes[sizeIndex], alignof(void*));
}

void GiveStoredBlock(void* memory, size_t sizeIndex) noexcept {
  if (TStore* store = TStore::Current()) {
    store->Give(sizeIndex, memory);
  } else {
    FreeInstance(memory, BlockSizes[sizeIndex], alignof(void*));
  }
}

}  // namespace Talvo::Detail
