// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/common/Data.h>

#include <tests/TestTypes.h>

namespace Talvo {
namespace {

TEST(DataTest, GrowthStepsAtTheBoundary) {
  const int32_t cases[][2] = {{0, 64},
                              {-5, 64},
                              {64, 64},
                              {65, 161},
                              {66, 163},
                              {1000, 1564},
                              {715'827'882, 1'073'741'887}};
  for (const auto& [size, capacity] : cases) EXPECT_EQ(capacity, CommonIncreaseCapacity(size));
  EXPECT_THROW(CommonIncreaseCapacity(715'827'883), EIntOverflow);
}

TEST(DataTest, WrapCopiesAnOpenArray) {
  {
    const std::vector<TCounted> items = Sequence<TCounted>(3);
    const TArray<TCounted> wrapped = Data<TCounted>::Wrap(items.data(), 2);
    EXPECT_EQ(3, wrapped.Length());
    EXPECT_EQ(6, TCounted::Live());
    EXPECT_TRUE(Data<TCounted>::Wrap(items.data(), -1).IsEmpty());
    EXPECT_THROW(Data<TCounted>::Wrap(items.data(), INT32_MAX), EIntOverflow);
    EXPECT_EQ(2, Data<TCounted>::Wrap({1, 2}).Length());
  }
  EXPECT_EQ(0, TCounted::Live());
}

TEST(DataTest, ByteOrder) {
  EXPECT_EQ(0x04030201, Data<int32_t>::ByteOrder(0x01020304, true));
  EXPECT_EQ(0x01020304, Data<int32_t>::ByteOrder(0x01020304, false));
  EXPECT_EQ(0x7F, Data<int8_t>::ByteOrder(0x7F, true));
  struct TBytes {
    uint8_t Bytes[3];
  };
  const TBytes reversed = Data<TBytes>::ByteOrder({{1, 2, 3}}, true);
  EXPECT_TRUE(reversed.Bytes[0] == 3 && reversed.Bytes[1] == 2 && reversed.Bytes[2] == 1);
}

TEST(DataTest, SmartPointerFreesItsObject) {
  struct TThing : TBasicObject {
    explicit TThing(int& ends) : Ends(ends) {}
    ~TThing() override { ++Ends; }
    int& Ends;
  };
  int ends = 0;
  TRef<ISmartPointer<TThing>> pointer = TSmartPointer<TThing>::Make(Create<TThing>(ends));
  const TFunc<TThing*> asFunction = pointer;
  EXPECT_EQ(pointer->Value(), asFunction());
  pointer = TSmartPointer<TThing>::Make(nullptr);
  EXPECT_EQ(nullptr, pointer->Invoke());
  EXPECT_EQ(0, ends);
  const_cast<TFunc<TThing*>&>(asFunction) = nullptr;
  EXPECT_EQ(1, ends);
}

}  // namespace
}  // namespace Talvo
