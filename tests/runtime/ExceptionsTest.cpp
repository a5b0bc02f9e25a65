// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Exceptions.h>

#include <gtest/gtest.h>
#include <optional>
#include <talvo/runtime/Checked.h>
#include <talvo/runtime/Numbers.h>

namespace Talvo {
namespace {

template <class>
class EWrapped : public Exception {
 public:
  using Exception::Exception;
};

struct TOuter {
  class EInner : public EConvertError {
   public:
    using EConvertError::EConvertError;
  };
};

TEST(ExceptionsTest, ClassNameIsThatOfTheDynamicClassWithoutItsScope) {
  class ELocal : public Exception {
    using Exception::Exception;
  };
  const EDuplicateKey plain(u"");
  const TOuter::EInner nested(u"");
  const EWrapped<TOuter::EInner> wrapped(u"");
  EXPECT_EQ(u"EDuplicateKey", static_cast<const Exception&>(plain).ClassName());
  EXPECT_EQ(u"EInner", nested.ClassName());
  EXPECT_EQ(0u, wrapped.ClassName().find(u"EWrapped<"));
  EXPECT_EQ(u"ELocal", ELocal(u"").ClassName());
}

TEST(ExceptionsTest, CopiesShareTheTextBeyondTheOriginal) {
  std::optional<Exception> original(u"Grüße \xD800!");
  Exception copy = *original;
  Exception assigned(u"other");
  assigned = copy;
  assigned = static_cast<const Exception&>(assigned);
  EXPECT_EQ(original->what(), assigned.what());
  original.reset();
  EXPECT_EQ(u"Grüße \xD800!", copy.Message());
  EXPECT_STREQ(
      "Gr\xC3\xBC\xC3\x9F"
      "e \xEF\xBF\xBD!",
      assigned.what());
}

TEST(ExceptionsTest, ChecksSayWhatWentWrong) {
  struct TCase {
    void (*Raise)();
    u16string_view ClassName, Message;
  };
  const TCase cases[] = {
      {RaiseRangeError, u"ERangeError", u"Range check failed"},
      {[] { RaiseIndexOutOfRange(-1); }, u"ERangeError", u"Index out of range = 4294967295"},
      {[] { CheckedAdd(INT32_MAX, 1); }, u"EIntOverflow", u"Integer overflow"},
      {RaiseAbstractError, u"EAbstractError", u"Abstract operation called"},
      {RaiseInvalidCast, u"EInvalidCast", u"Invalid cast"},
      {RaiseDuplicateKey, u"EDuplicateKey", u"Duplicate key"},
      {RaiseKeyNotFound, u"EKeyNotFound", u"Key not found"},
      {[] { Assert(false, "some/folder/Unit.cpp", 12); }, u"EAssertionFailed",
       u"Assertion failure (Unit.cpp, line 12)"},
      {[] { Assert(false, "Unit.cpp", 3); }, u"EAssertionFailed",
       u"Assertion failure (Unit.cpp, line 3)"},
  };
  for (const TCase& c : cases) {
    try {
      c.Raise();
      ADD_FAILURE() << "nothing raised: " << ToUtf8(c.Message);
    } catch (const Exception& e) {
      EXPECT_EQ(c.ClassName, e.ClassName());
      EXPECT_EQ(c.Message, e.Message());
    }
  }
}

TEST(ExceptionsTest, AssertNamesTheLineOfItsCaller) {
  Assert(true);
  const string line = IntToStr(__LINE__ + 2);
  try {
    Assert(false);
    FAIL() << "nothing raised";
  } catch (const EAssertionFailed& e) {
    EXPECT_EQ(u"Assertion failure (ExceptionsTest.cpp, line " + line + u")", e.Message());
  }
}

}  // namespace
}  // namespace Talvo
