// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/WeakReference.h>

#include <mutex>
#include <unordered_map>

namespace Talvo::Detail {

namespace {

struct TShard {
  std::mutex Mutex;
  std::unordered_map<TInterfacedObject*, TWeakBlock*> Blocks;  // live targets; guarded by Mutex
};

// Never destroyed: objects may end after the statics of this module.
TShard& ShardOf(const TInterfacedObject* target) {
  constexpr size_t shardCount = 16;
  static auto* shards = new TShard[shardCount];
  return shards[(reinterpret_cast<uintptr_t>(target) >> 6) % shardCount];
}

}  // namespace

struct TWeakBlock {
  TShard& Home;
  TInterfacedObject* Target;  // null once the target's last reference went; guarded by Home
  uint32_t Refs = 0;          // guarded by Home
};

struct TWeakAccess {
  static void Flag(TInterfacedObject* target) {
    __atomic_fetch_or(&target->FRefs, TInterfacedObject::WeakFlag, __ATOMIC_ACQ_REL);
  }
  static void Unflag(TInterfacedObject* target) {
    __atomic_fetch_and(&target->FRefs, ~TInterfacedObject::WeakFlag, __ATOMIC_ACQ_REL);
  }
  static bool TryAddRef(TInterfacedObject* target) {
    uint32_t seen = __atomic_load_n(&target->FRefs, __ATOMIC_RELAXED);
    do {
      const uint32_t count = seen & TInterfacedObject::CountMask;
      if (count == 0 || count >= TInterfacedObject::EndingBias) return false;
    } while (!__atomic_compare_exchange_n(&target->FRefs, &seen, seen + 1, /*weak*/ true,
                                          __ATOMIC_ACQ_REL, __ATOMIC_RELAXED));
    return true;
  }
};

TWeakBlock* AcquireWeakBlock(TInterfacedObject* target) {
  TShard& shard = ShardOf(target);
  const std::lock_guard<std::mutex> guard(shard.Mutex);
  TWeakBlock*& block = shard.Blocks.try_emplace(target, nullptr).first->second;
  if (!block) {
    block = new TWeakBlock{shard, target};
    TWeakAccess::Flag(target);
  }
  ++block->Refs;
  return block;
}

void AddWeakBlock(TWeakBlock* block) noexcept {
  const std::lock_guard<std::mutex> guard(block->Home.Mutex);
  ++block->Refs;
}

void ReleaseWeakBlock(TWeakBlock* block) noexcept {
  const std::lock_guard<std::mutex> guard(block->Home.Mutex);
  if (--block->Refs > 0) return;
  if (block->Target) block->Home.Blocks.erase(block->Target);
  delete block;
}

bool LockWeakBlock(TWeakBlock* block) noexcept {
  // The target cannot be freed meanwhile: its end takes this lock before it goes on.
  const std::lock_guard<std::mutex> guard(block->Home.Mutex);
  return block->Target && TWeakAccess::TryAddRef(block->Target);
}

void ForgetWeakTarget(TInterfacedObject* target) noexcept {
  TShard& shard = ShardOf(target);
  const std::lock_guard<std::mutex> guard(shard.Mutex);
  TWeakAccess::Unflag(target);
  const auto entry = shard.Blocks.find(target);
  if (entry == shard.Blocks.end()) return;
  if (entry->second) entry->second->Target = nullptr;
  shard.Blocks.erase(entry);
}

}  // namespace Talvo::Detail
