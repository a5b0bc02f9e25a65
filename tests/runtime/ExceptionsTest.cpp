// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Exceptions.h>

#include <tests/TestTypes.h>
#include <talvo/runtime/Checked.h>

#include <optional>

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
  EXPECT_EQ("EDuplicateKey: ", Raised([] { throw EDuplicateKey(u""); }));
  EXPECT_EQ(u"EInner", TOuter::EInner(u"").ClassName());
  EXPECT_EQ(0u, EWrapped<TOuter::EInner>(u"").ClassName().find(u"EWrapped<"));
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
  EXPECT_STREQ("Grüße \uFFFD!", assigned.what());
}

TEST(ExceptionsTest, ChecksSayWhatWentWrong) {
  const std::pair<void (*)(), const char*> cases[] = {
      {RaiseRangeError, "ERangeError: Range check failed"},
      {[] { RaiseIndexOutOfRange(-1); }, "ERangeError: Index out of range = 4294967295"},
      {[] { CheckedAdd(INT32_MAX, 1); }, "EIntOverflow: Integer overflow"},
      {RaiseAbstractError, "EAbstractError: Abstract operation called"},
      {RaiseInvalidCast, "EInvalidCast: Invalid cast"},
      {RaiseDuplicateKey, "EDuplicateKey: Duplicate key"},
      {RaiseKeyNotFound, "EKeyNotFound: Key not found"},
      {[] { Assert(false, "some/folder/Unit.cpp", 12); },
       "EAssertionFailed: Assertion failure (Unit.cpp, line 12)"},
      {[] { Assert(false, "Unit.cpp", 3); },
       "EAssertionFailed: Assertion failure (Unit.cpp, line 3)"}};
  for (const auto& [raise, expected] : cases) EXPECT_EQ(expected, Raised(raise));
  Assert(true);
  // The line of the caller.
  const std::string line = std::to_string(__LINE__ + 1);
  const auto fail = [] { Assert(false); };
  EXPECT_EQ("EAssertionFailed: Assertion failure (ExceptionsTest.cpp, line " + line + ")",
            Raised(fail));
}

}  // namespace
}  // namespace Talvo
