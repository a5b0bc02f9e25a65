// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Value.h>

#include <tests/TestTypes.h>

namespace Talvo {
namespace {

enum class TColor : uint8_t { Red, Green };

TEST(ValueTest, NumbersConvertWhereTheyFit) {
  const TValue seven = TValue::From<int64_t>(7), minus = TValue::From<int8_t>(-1),
               huge = TValue::From(std::numeric_limits<uint64_t>::max()), half = TValue::From(0.5);
  EXPECT_EQ(7, seven.AsType<uint8_t>());
  EXPECT_EQ(7.0, seven.AsType<double>());
  EXPECT_EQ(-1, minus.AsType<int64_t>());
  EXPECT_EQ(0.5f, half.AsType<float>());
  EXPECT_TRUE(TValue::From(1).AsType<bool>());
  EXPECT_EQ(TColor::Green, TValue::From(1).AsType<TColor>());
  EXPECT_EQ(1, TValue::From(TColor::Green).AsType<int32_t>());

  uint8_t small = 9;
  EXPECT_FALSE(minus.TryAsType(small));
  EXPECT_EQ(0, small) << "a miss leaves the default";
  EXPECT_THROW(TValue::From(256).AsType<uint8_t>(), EInvalidCast);
  EXPECT_THROW(huge.AsType<int64_t>(), EInvalidCast);
  EXPECT_THROW(half.AsType<int32_t>(), EInvalidCast);
  EXPECT_THROW(seven.AsType<bool>(), EInvalidCast);
  EXPECT_THROW(seven.AsType<string>(), EInvalidCast);
  EXPECT_THROW(TValue().AsType<int32_t>(), EInvalidCast);
}

TEST(ValueTest, ReferencesAreAskedForInterfacesAndClasses) {
  const auto object = Create<TWatched>(5);
  const TValue held = TValue::From(TRef<IInterface>(object));
  EXPECT_EQ(5, held.AsType<TRef<IWatched>>()->Tag());
  EXPECT_EQ(object, held.AsType<TRef<TWatched>>());
  EXPECT_EQ(object.Get(), held.AsType<TWatched*>());
  EXPECT_EQ(object, TValue::From<TObject*>(object.Get()).AsType<TRef<IWatched>>());
  EXPECT_THROW(TValue::From(TRef<IWatched>()).AsType<TRef<IInterface>>(), EInvalidCast);
  EXPECT_EQ(TTypeKind::tkInterface, held.Kind());
}

TEST(ValueTest, HoldsAnyTypeAndCopiesIt) {
  struct alignas(64) TWide {
    ~TWide() {}
    char Bytes[64];
  };
  {
    const TCounted counted(3);
    const TValue values[] = {TValue::From(counted), TValue::From(string(u"text")),
                             TValue::From(std::vector<int>(100, 1)), TValue::From(TWide{}),
                             TValue()};
    TValue copy;
    for (const TValue& value : values) {
      copy = value;
      EXPECT_EQ(value.TypeInfo(), copy.TypeInfo());
      TValue moved = std::move(copy);
      EXPECT_TRUE(copy.IsEmpty());
      copy = moved;
      copy = *&copy;
    }
    EXPECT_EQ(3, values[0].AsType<TCounted>().Number());
    EXPECT_EQ(u"text", *values[1].Peek<string>());
    EXPECT_EQ(nullptr, values[1].Peek<std::u16string_view>());
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(values[3].Peek<TWide>()) % 64);
    ForEveryFailure<TCounted>([&] { copy = TValue(values[0]); });
  }
  EXPECT_EQ(0, TCounted::Live());
}

TEST(ValueTest, AValueOfAValueIsThatValue) {
  const TValue inner = TValue::From(5), outer = TValue::From(inner);
  EXPECT_TRUE(outer.IsType<int32_t>());
  EXPECT_EQ(5, outer.AsType<TValue>().AsType<int32_t>());
}

TEST(ValueTest, TheOldValueEndsLast) {
  TValue value;
  bool isNew = false;
  value =
      TValue::From(TRef<IWatched>(Create<TWatched>(1, [&] { isNew = value.IsType<int32_t>(); })));
  value = TValue::From(1);
  EXPECT_TRUE(isNew);
}

}  // namespace
}  // namespace Talvo
