// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/WeakReference.h>

#include <tests/TestTypes.h>

#include <atomic>
#include <thread>

namespace Talvo {
namespace {

class TForwardOnly;
struct THolder {
  TRef<TForwardOnly>* Pointer = nullptr;  // the name alone is enough
};

struct TNode : TBasicInterfacedObject {
  TRef<TNode> Next;
};

TEST(ReferenceTest, CopiesCountAndMovesDoNot) {
  auto object = Create<TWatched>(1);
  TRef<IWatched> copy = object;
  EXPECT_EQ(2, object->RefCount());
  TRef<IWatched> moved = std::move(copy);
  EXPECT_EQ(2, object->RefCount());
  EXPECT_FALSE(copy);
  moved = *&moved;
  EXPECT_EQ(2, object->RefCount());
  EXPECT_TRUE(moved == object && object == TRef<IInterface>(moved) && moved != nullptr);
  const TRef<IWatched> adopted = TRef<IWatched>::Adopt(moved.Detach());
  EXPECT_EQ(2, object->RefCount());
  EXPECT_EQ(adopted.HashValue(), TRef<IWatched>(object).HashValue());
}

TEST(ReferenceTest, TargetMayOwnTheSourceOfAnAssignment) {
  auto head = Create<TNode>();
  head->Next = Create<TNode>();
  head->Next->Next = Create<TNode>();
  head = std::move(head->Next);
  head = head->Next;
  EXPECT_EQ(1, head->RefCount());
}

TEST(WeakReferenceTest, FailsFromTheLastReleaseOn) {
  TWeakRef<IWatched> weak;
  EXPECT_FALSE(weak.Lock());
  bool isLocked = true;
  auto object = Create<TWatched>(1, [&] { isLocked = static_cast<bool>(weak.Lock()); });
  weak = TWeakRef<IWatched>(object);
  const TWeakRef<IWatched> second = weak;
  EXPECT_EQ(object, weak.Lock());
  EXPECT_EQ(1, object->RefCount());
  object = nullptr;
  EXPECT_FALSE(isLocked) << "while it ends";
  EXPECT_FALSE(second.Lock());
}

TEST(WeakReferenceTest, KnowsObjectsThatWereNeverFinished) {
  static TWeakRef<TInterfacedObject> weak;
  struct TFailing : TBasicInterfacedObject {
    void Construct() override {
      weak = TWeakRef<TInterfacedObject>(TRef<TInterfacedObject>(*this));
      throw 1;
    }
  };
  EXPECT_THROW(Create<TFailing>(), int);
  EXPECT_FALSE(weak.Lock());
}

TEST(WeakReferenceTest, ThreadsSeeALivingObjectOrNone) {
  TALVO_SEEDED(engine);
  constexpr int threads = 4, rounds = 3000;
  const int before = TWatched::Live;
  for (int round = 0; round < 20; ++round) {
    TRef<IWatched> strong = Create<TWatched>(42);
    const TWeakRef<IWatched> weak = strong;
    std::atomic<bool> mayEnd = false;
    std::vector<std::thread> readers;
    const int dropAt = static_cast<int>(engine() % (rounds / 2));
    for (int t = 0; t < threads; ++t) {
      readers.emplace_back([&, t] {
        bool wasGone = false;
        for (int i = 0; i < rounds; ++i) {
          if (t == 0 && i == dropAt) mayEnd = true;
          const TWeakRef<IWatched> own = weak;
          const TRef<IWatched> locked = own.Lock();
          EXPECT_FALSE(locked && wasGone) << "it came back";
          EXPECT_TRUE(!locked || locked->Tag() == 42);
          wasGone = !locked;
        }
      });
    }
    while (!mayEnd) std::this_thread::yield();
    strong = nullptr;
    for (auto& reader : readers) reader.join();
    EXPECT_FALSE(weak.Lock());
  }
  EXPECT_EQ(before, TWatched::Live);
}

}  // namespace
}  // namespace Talvo
