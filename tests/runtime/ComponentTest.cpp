// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Component.h>

#include <gtest/gtest.h>
#include <string>

namespace Talvo {
namespace {

class TPump : public TComponent {
 public:
  TPump(TComponent* owner, char letter, std::string& ended)
      : TComponent(owner), FLetter(letter), FEnded(ended) {}
  ~TPump() override { FEnded += FLetter; }

 private:
  char FLetter;
  std::string& FEnded;
};

TEST(ComponentTest, KnowsOwnerNameAndClass) {
  std::string ended;
  const auto plant = Create<TComponent>(nullptr);
  TPump* pump = Create<TPump>(plant.Get(), 'p', ended).Detach();
  EXPECT_EQ(pump->Owner(), plant.Get());
  EXPECT_EQ(pump->GetOwner(), plant.Get());
  EXPECT_EQ(plant->Owner(), nullptr);
  EXPECT_EQ(pump->Name(), u"");
  pump->SetName(u"P1");
  EXPECT_EQ(pump->Name(), u"P1");
  EXPECT_EQ(pump->ClassName(), u"TPump");
  EXPECT_EQ(plant->ClassName(), u"TComponent");
}

TEST(ComponentTest, OwnersEndWhatTheyOwn) {
  std::string ended;
  {
    const auto a = Create<TPump>(nullptr, 'a', ended);
    TPump* b = Create<TPump>(a.Get(), 'b', ended).Detach();
    TPump* c = Create<TPump>(a.Get(), 'c', ended).Detach();
    Create<TPump>(a.Get(), 'd', ended).Detach();
    Create<TPump>(b, 'e', ended).Detach();
    Create<TPump>(b, 'f', ended).Detach();
    Free(c);
    EXPECT_EQ(ended, "c") << "one in the middle leaves its owner";
  }
  EXPECT_EQ(ended, "cadbef");
}

TEST(ComponentTest, DeepTreesEndWithoutDeepRecursion) {
  auto root = Create<TComponent>(nullptr);
  TComponent* owner = root.Get();
  for (int i = 0; i < 1'000'000; ++i) owner = Create<TComponent>(owner).Detach();
  EXPECT_NE(owner->Owner(), nullptr);
  root = nullptr;
}

}  // namespace
}  // namespace Talvo
