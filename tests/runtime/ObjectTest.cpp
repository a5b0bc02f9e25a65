// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Object.h>

#include <tests/TestTypes.h>

#include <stdexcept>

namespace Talvo {
namespace {

class INamed : public virtual IInterface {
  TALVO_INTERFACE(INamed, IInterface);
  virtual int Name() const = 0;
};
class IAged : public virtual INamed {
  TALVO_INTERFACE(IAged, INamed);
  TALVO_INTERFACE_ID(1, 2);
};
class IOther : public virtual INamed {
  TALVO_INTERFACE(IOther, INamed);
};
class TNamed : public TImplements<TBasicInterfacedObject, INamed> {
 public:
  int Name() const override { return 7; }
};
class TAged : public TImplements<TNamed, IAged, IOther> {};

std::string GSteps;

template <class TBase>
class TStepping : public TBase {
 public:
  explicit TStepping(std::string failsAt = {}) : FFailsAt(std::move(failsAt)) { Step("ctor"); }
  ~TStepping() override { GSteps += "dtor"; }

 protected:
  void Construct() override { Step("Construct"); }
  void AfterConstruction() override { Step("AfterConstruction"); }
  void BeforeDestruction() override { Step("BeforeDestruction"); }

 private:
  void Step(const std::string& name) {
    GSteps += name + ' ';
    if (name == FFailsAt) throw std::runtime_error(name);
  }
  std::string FFailsAt;
};

template <class T>
class ObjectLifeTest : public testing::Test {};
using TLives = testing::Types<TStepping<TBasicObject>, TStepping<TBasicInterfacedObject>>;
TYPED_TEST_SUITE(ObjectLifeTest, TLives);

TYPED_TEST(ObjectLifeTest, StepsComeInOrderWhateverFails) {
  const std::string whole = "ctor Construct AfterConstruction BeforeDestruction dtor";
  const std::pair<std::string, std::string> cases[] = {
      {"", whole},
      {"ctor", "ctor "},
      {"Construct", "ctor Construct dtor"},
      {"AfterConstruction", "ctor Construct AfterConstruction dtor"},
      {"BeforeDestruction", whole}};
  for (const auto& [failsAt, steps] : cases) {
    GSteps.clear();
    try {
      const auto object = Create<TypeParam>(failsAt);
      EXPECT_EQ(steps, whole);
    } catch (const std::runtime_error& failure) {
      EXPECT_EQ(failsAt, failure.what());
    }
    EXPECT_EQ(steps, GSteps);
  }
}

/// Hands itself out while it is made and while it ends.
class TSelfish : public TImplements<TBasicInterfacedObject, INamed> {
 public:
  explicit TSelfish(int& ends) : FEnds(ends) {}
  ~TSelfish() override { ++FEnds; }
  int Name() const override { return 1; }

 protected:
  void Construct() override { TRef<INamed>(*this); }
  void BeforeDestruction() override {
    for (int i = 0; i < 3; ++i) TRef<INamed>(*this)->Name();
  }

 private:
  int& FEnds;
};

TEST(ObjectTest, ReferencesToItselfDoNoHarm) {
  int ends = 0;
  auto object = Create<TSelfish>(ends);
  EXPECT_EQ(1, object->RefCount());
  object = nullptr;
  EXPECT_EQ(1, ends);
}

TEST(ObjectTest, AnswersItsInterfacesAndAllTheirBases) {
  const TRef<IAged> aged = Create<TAged>();
  const TRef<IInterface> root = aged;
  EXPECT_EQ(7, Supports<IOther>(root)->Name());
  EXPECT_EQ(Supports<INamed>(root), Supports<IOther>(aged)) << "identity is one IInterface";
  EXPECT_EQ(root, As<INamed>(ObjectOf(aged))) << "by object as by interface";
  EXPECT_EQ(ObjectOf(aged), ObjectAs<TNamed>(root));
  EXPECT_FALSE(Supports<IWatched>(aged));
  EXPECT_FALSE(Supports<INamed>(TRef<IInterface>()));
  EXPECT_THROW(As<IWatched>(root), EInvalidCast);
  EXPECT_EQ(2, ObjectAs<TAged>(root)->RefCount()) << "a query leaves no reference behind";

  void* found = &found;
  EXPECT_EQ(NoSuchInterface, root->QueryInterface(InterfaceIdOf<IWatched>(), &found));
  EXPECT_EQ(nullptr, found);
  EXPECT_EQ((TGuid{1, 2}), InterfaceIdOf<IAged>());
  EXPECT_FALSE(InterfaceIdOf<INamed>() == InterfaceIdOf<IOther>());
}

TEST(ObjectTest, OwnerIsReplacedBeforeTheOldObjectEnds) {
  struct TNode : TBasicObject {
    explicit TNode(TOwn<TNode>* owner = nullptr) : Owner(owner) {}
    ~TNode() override { EXPECT_TRUE(!Owner || Owner->Get() != this); }
    TOwn<TNode>* Owner;
  };
  TOwn<TNode> owner;
  owner = Create<TNode>(&owner);
  owner = Create<TNode>();
  EXPECT_TRUE(owner);
}

}  // namespace
}  // namespace Talvo
