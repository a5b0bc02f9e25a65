// SPDX-License-Identifier: Apache-2.0
// Looks at the memory of library objects on its way back to the allocator: this program's own
// operator delete sees what FreeInstance left there. A program of its own, and not one for
// AddressSanitizer, which brings an operator delete itself.

#include <gtest/gtest.h>
#include <talvo/containers/Talvo.Containers.List.h>
#include <talvo/threading/Talvo.Threading.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

// What the next freed block at this address is made of.
struct TExpected {
  void* Memory = nullptr;
  std::size_t Size = 0;
  bool IsPoisoned = false;
} GExpected;

int64_t GAllocations = 0;

void Look(void* memory, std::size_t size) {
  if (!memory || memory != GExpected.Memory) return;
  const auto* bytes = static_cast<const unsigned char*>(memory);
  GExpected.Memory = nullptr;
  GExpected.Size = size;
  GExpected.IsPoisoned =
      std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0xFF; });
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  ++GAllocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
  const auto unit = static_cast<std::size_t>(alignment);
  if (void* memory = std::aligned_alloc(unit, (size + unit - 1) / unit * unit)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t size) noexcept {
  Look(memory, size);
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t size, std::align_val_t) noexcept {
  Look(memory, size);
  std::free(memory);
}

namespace Talvo {
namespace {

class IFirst : public virtual IInterface {
  TALVO_INTERFACE(IFirst, IInterface);
};
class ISecond : public virtual IFirst {
  TALVO_INTERFACE(ISecond, IFirst);
};
struct TPlain : TBasicObject {
  string Text = u"some text that is too long to stand inside";
};
struct TFaced : TImplements<TBasicInterfacedObject, IFirst, ISecond> {
  int Number = 1;
};
struct TFacedDerived : TImplements<TFaced, IValueChangeNotify> {
  void ChangeNotify() override {}
  TRef<IInterface> Held = Create<TFaced>();
};
struct alignas(128) TAligned : TFaced {
  char Bytes[200] = "bytes";
};

template <class T>
class PoisonTest : public testing::Test {};
using TObjects = testing::Types<TPlain, TFaced, TFacedDerived, TAligned, TArrayList<string>>;
TYPED_TEST_SUITE(PoisonTest, TObjects);

TYPED_TEST(PoisonTest, WholeInstanceIsFilledBeforeItIsFreed) {
  auto object = Create<TypeParam>();
  GExpected = {dynamic_cast<void*>(object.Get()), 0, false};
  object = {};
  EXPECT_EQ(nullptr, GExpected.Memory) << "freed by another way";
  EXPECT_EQ(sizeof(TypeParam), GExpected.Size);
  EXPECT_TRUE(GExpected.IsPoisoned);
}

TEST(PoisonTest, ThreadsAreFilledToo) {
  auto thread = TRepeatThread::CreateObject(u"", [](const auto& self) { self->Terminate(); });
  thread->WaitFor();
  GExpected = {dynamic_cast<void*>(thread.Get()), 0, false};
  thread = nullptr;
  EXPECT_EQ(sizeof(TRepeatThread), GExpected.Size);
  EXPECT_TRUE(GExpected.IsPoisoned);
}

TEST(PoisonTest, SectionsTooWhoseMemoryIsKeptForTheNext) {
  const TRef<IBasicLock> lock = TLock::Make();
  TRef<ILockSection> section = lock->WriteLock();
  const auto* bytes = static_cast<const unsigned char*>(dynamic_cast<void*>(ObjectOf(section)));
  section = nullptr;
  EXPECT_TRUE(std::all_of(bytes, bytes + sizeof(TSimpleWriteLockSection),
                          [](unsigned char byte) { return byte == 0xFF; }));
  section = lock->ReadLock();
  EXPECT_EQ(bytes, dynamic_cast<void*>(ObjectOf(section)));

  const auto nest = [&](auto&& self, int depth) -> void {
    const auto nested = depth % 2 ? lock->WriteLock() : lock->ReadLock();
    if (depth > 0) self(self, depth - 1);
  };
  nest(nest, 5);
  const int64_t before = GAllocations;
  for (int i = 0; i < 100; ++i) nest(nest, 5);
  EXPECT_EQ(before, GAllocations);
}

TEST(PoisonTest, ExecutionsTooWhoseMemoryGoesRound) {
  const TRef<IExecutor> pool = TThreadPoolExecutor::Make(0);
  TRef<IExecution> execution = pool->Execute([] {});
  execution->Terminate();
  const auto* bytes = static_cast<const unsigned char*>(dynamic_cast<void*>(ObjectOf(execution)));
  execution = nullptr;
  EXPECT_TRUE(std::all_of(bytes, bytes + 64, [](unsigned char byte) { return byte == 0xFF; }));
}

TEST(PoisonTest, OnlyWhatDerivesFromTheBasicClasses) {
  struct TBare : TInterfacedObject {
    int Number = 1;
  };
  auto object = Create<TBare>();
  GExpected = {dynamic_cast<void*>(object.Get()), 0, false};
  object = nullptr;
  EXPECT_FALSE(GExpected.IsPoisoned);
}

}  // namespace
}  // namespace Talvo
