// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Numbers.h>

#include <tests/TestTypes.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstring>

namespace Talvo {
namespace {

TEST(NumbersTest, IntegersAndHexadecimal) {
  EXPECT_EQ(u"0", IntToStr(0));
  EXPECT_EQ(u"-9223372036854775808", IntToStr(INT64_MIN));
  EXPECT_EQ(u"18446744073709551615", UIntToStr(UINT64_MAX));
  EXPECT_EQ(u"0", IntToHex(0, -3));
  EXPECT_EQ(u"00AF", IntToHex(0xAF, 4));
  EXPECT_EQ(u"FFFFFFFFFFFFFFFF", IntToHex(UINT64_MAX, 4));
  EXPECT_EQ(string(99, u'0') + u"1", IntToHex(1, 100));
}

TEST(NumbersTest, FloatsInTheirShortestSpelling) {
  std::istringstream cases(
      "-0.0 0 -0.1 -0.1 0.0001 0.0001 0.00001 1E-5 0.00009999999999999999 0.0001 1e15 1E15 "
      "999999999999999 999999999999999 999999999999999.5 1E15 123456789012345678.0 "
      "1.23456789012346E17 1.7976931348623157e308 1.79769313486232E308 -5e-324 "
      "-4.94065645841247E-324 inf INF -inf -INF nan NAN -nan NAN");
  for (std::string value, text; cases >> value >> text;) {
    EXPECT_EQ(text, ToUtf8(FloatToStr(std::strtod(value.c_str(), nullptr)))) << value;
  }
}

// What %.15g prints, with our spelling of the exponent.
std::string Printed(double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%.15g", value);
  char* const mark = std::strchr(text, 'e');
  if (!mark) return value == 0 ? "0" : text;
  return std::string(text, mark) + "E" + std::to_string(std::atoi(mark + 1));
}

TEST(NumbersTest, FloatsRoundAsPrintfRounds) {
  TALVO_SEEDED(random);
  const auto check = [](double value) {
    if (!std::isfinite(value) || testing::Test::HasFailure()) return;
    char text[MaxNumberLength];
    EXPECT_EQ(Printed(value), std::string(text, WriteFloat(text, value)));
    EXPECT_EQ(Printed(-value), std::string(text, WriteFloat(text, -value)));
  };
  const auto checkAround = [&check](double value) {
    for (const double target : {value, 0.0, HUGE_VAL}) check(std::nextafter(value, target));
  };
  for (int power = -340; power < 308; ++power) {
    for (const char* digits : {"1", "5", "9.99999999999999", "9.999999999999995"}) {
      checkAround(StrToFloat(std::string(digits) + "e" + std::to_string(power)));
    }
  }
  for (int power = -1074; power < 1024; ++power) checkAround(std::ldexp(1.0, power));
  for (int i = 0; i < 100000; ++i) {
    check(std::bit_cast<double>(random()));
    check(std::bit_cast<double>(random() >> (12 + random() % 50)));  // subnormal
    check(std::ldexp(static_cast<double>(random()), -static_cast<int>(random() % 120)));
    check(static_cast<double>(random() % 1000000000) / 1000);
    // Decimal ties: half of the last digit's worth, exact in binary.
    const int places = static_cast<int>(random() % 4);
    check((static_cast<double>(random() % 1000000000000000) * 2 + 1) / (2 << places));
  }
}

bool TryRead(auto text, int64_t& value) {
  return TryStrToInt64(text, value);
}
bool TryRead(auto text, uint64_t& value) {
  return TryStrToUInt64(text, value);
}
bool TryRead(auto text, double& value) {
  return TryStrToFloat(text, value);
}

// The narrow and the wide form of one reading.
template <class N>
void ExpectRead(const std::string& text, N number, bool isValid = true) {
  SCOPED_TRACE(text.substr(0, 100));
  N narrow = 77, wide = 77;
  EXPECT_EQ(isValid, TryRead(std::string_view(text), narrow));
  EXPECT_EQ(number, narrow);
  EXPECT_EQ(isValid, TryRead(u16string_view(FromUtf8(text, TSurrogates::Replace)), wide));
  EXPECT_EQ(number, wide);
}
template <class N>
void ExpectRefused(std::initializer_list<std::string> texts) {
  for (const auto& text : texts) ExpectRead<N>(text, 0, /*isValid*/ false);
}

void ExpectReadAsStrtod(std::initializer_list<std::string> texts) {
  for (const auto& text : texts) ExpectRead(text, std::strtod(text.c_str(), nullptr));
}

TEST(NumbersTest, ReadsIntegers) {
  const std::initializer_list<std::string> wrong = {
      "",    "-",   "+",   "--1",       "+-1", " 1", "1 ",
      "1.0", "1e3", "0x1", "1\xD9\xA1", "/",   ":",  "99999999999999999999999999"};
  ExpectRefused<int64_t>(wrong);
  ExpectRefused<int64_t>({"9223372036854775808", "-9223372036854775809", "18446744073709551616"});
  ExpectRefused<uint64_t>(wrong);
  ExpectRefused<uint64_t>({"18446744073709551616", "-1"});
  ExpectRead<int64_t>("-0", 0);
  ExpectRead<int64_t>("+7", 7);
  ExpectRead<int64_t>(std::string(1000000, '0') + "42", 42);
  ExpectRead<int64_t>("9223372036854775807", INT64_MAX);
  ExpectRead<int64_t>("-9223372036854775808", INT64_MIN);
  ExpectRead<uint64_t>("18446744073709551615", UINT64_MAX);
  ExpectRead<uint64_t>("-0", 0);
}

TEST(NumbersTest, ReadsFloats) {
  const std::string million(1000000, '0'), tie = "9007199254740993";
  ExpectReadAsStrtod({"-1.5E+3", "+.5", "5.", tie, tie + million.substr(0, 900) + "1e-901",
                      tie + "." + million + "1", "0." + million + "25e1000001",
                      "25" + million + "e-1000001", million + million + "7", "0." + million + "1",
                      "1.7976931348623158e308", "0e99999999999999999999", "1e-99999999999999999999",
                      "3e-324", "2e-324"});
  ExpectRefused<double>(
      {"1" + million, million + "x", "1.7976931348623159e308", "-1e309", "1e99999999999999999999"});
  ExpectRefused<double>({"",         "-",    "+",    ".",        "-.",    "e5",  ".e5",
                         "1e",       "1e+",  "1e5.", "1..2",     "1.2.3", "--1", "+-1",
                         " 1",       "1 ",   "1,5",  "inf",      "INF",   "nan", "-inf",
                         "infinity", "0x10", "1f",   "1\xD9\xA1"});
  double zero = 1;
  EXPECT_TRUE(TryStrToFloat("-1e-400", zero) && zero == 0 && std::signbit(zero));
}

TEST(NumbersTest, FloatsComeBackFromAnyLength) {
  TALVO_SEEDED(random);
  for (int i = 0; i < 20000; ++i) {
    const double value = std::bit_cast<double>(random() & ~(uint64_t{1} << 62));
    char text[1600];
    std::snprintf(text, sizeof text, "%.*e", 17 + (i % 8 == 0 ? 800 : i % 60), value);
    ASSERT_EQ(value, StrToFloat(text)) << text;
  }
}

TEST(NumbersTest, RefusalsNameTheText) {
  const std::string integer = " is not a valid integer value";
  const std::string floating = " is not a valid floating point value";
  EXPECT_EQ("EConvertError: 'abc'" + integer, Raised([] { StrToInt64(u"abc"); }));
  EXPECT_EQ("EConvertError: '-1'" + integer, Raised([] { StrToUInt64("-1"); }));
  EXPECT_EQ("EConvertError: '1,5'" + floating, Raised([] { StrToFloat(u"1,5"); }));
  EXPECT_EQ("EConvertError: '\uFFFD'" + floating, Raised([] { StrToFloat("\xFF"); }));
  EXPECT_TRUE(StrToInt64("-12") == -12 && StrToUInt64(u"12") == 12);
}

}  // namespace
}  // namespace Talvo
