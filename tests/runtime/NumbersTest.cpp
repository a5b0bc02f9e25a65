// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Numbers.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <talvo/runtime/Exceptions.h>

namespace Talvo {
namespace {

constexpr double Infinity = std::numeric_limits<double>::infinity();

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
  struct TCase {
    double Value;
    u16string_view Text;
  };
  const TCase cases[] = {{-0.0, u"0"},
                         {-0.1, u"-0.1"},
                         {1.0 / 3, u"0.333333333333333"},
                         {0.0001, u"0.0001"},
                         {0.00001, u"1E-5"},
                         {0.00009999999999999999, u"0.0001"},
                         {999999999999999, u"999999999999999"},
                         {999999999999999.5, u"1E15"},
                         {1e15, u"1E15"},
                         {-1.5e20, u"-1.5E20"},
                         {123456789012345678.0, u"1.23456789012346E17"},
                         {-99999999999999.9, u"-99999999999999.9"},
                         {DBL_MAX, u"1.79769313486232E308"},
                         {-DBL_MIN, u"-2.2250738585072E-308"},
                         {5e-324, u"4.94065645841247E-324"},
                         {Infinity, u"INF"},
                         {-Infinity, u"-INF"},
                         {std::nan(""), u"NAN"},
                         {-std::nan(""), u"NAN"}};
  for (const TCase& c : cases) EXPECT_EQ(c.Text, FloatToStr(c.Value)) << c.Value;
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
  const uint64_t seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937_64 random(seed);
  const auto check = [](double value) {
    if (!std::isfinite(value) || testing::Test::HasFailure()) return;
    char text[MaxNumberLength];
    EXPECT_EQ(Printed(value), std::string(text, WriteFloat(text, value)));
    EXPECT_EQ(Printed(-value), std::string(text, WriteFloat(text, -value)));
  };
  const auto checkAround = [&check](double value) {
    for (const double target : {value, 0.0, Infinity}) check(std::nextafter(value, target));
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

template <class N>
struct TReading {
  std::string Text;
  bool IsValid;
  N Value;
};

// The narrow and the wide form of one reading.
template <class N, class F>
void CheckReading(const TReading<N>& c, F&& read) {
  SCOPED_TRACE(c.Text.substr(0, 100));
  N value = 77;
  EXPECT_EQ(c.IsValid, read(std::string_view(c.Text), value));
  EXPECT_EQ(c.Value, value);
  value = 77;
  EXPECT_EQ(c.IsValid, read(u16string_view(FromUtf8(c.Text, TSurrogates::Replace)), value));
  EXPECT_EQ(c.Value, value);
}

TEST(NumbersTest, ReadsIntegers) {
  const auto readSigned = [](auto text, int64_t& value) { return TryStrToInt64(text, value); };
  const auto readUnsigned = [](auto text, uint64_t& value) { return TryStrToUInt64(text, value); };
  for (const char* text : {"", "-", "+", "--1", "+-1", " 1", "1 ", "1.0", "1e3", "0x1", "1\xD9\xA1",
                           "/", ":", "99999999999999999999999999", "18446744073709551616"}) {
    CheckReading<int64_t>({text, false, 0}, readSigned);
    CheckReading<uint64_t>({text, false, 0}, readUnsigned);
  }
  const std::string zeros(1000000, '0');
  for (const auto& c : {TReading<int64_t>{"-0", true, 0},
                        {"+7", true, 7},
                        {zeros + "42", true, 42},
                        {"9223372036854775807", true, INT64_MAX},
                        {"9223372036854775808", false, 0},
                        {"-9223372036854775808", true, INT64_MIN},
                        {"-9223372036854775809", false, 0}}) {
    CheckReading(c, readSigned);
  }
  for (const auto& c : {TReading<uint64_t>{"18446744073709551615", true, UINT64_MAX},
                        {"18446744073709551616", false, 0},
                        {"-0", true, 0},
                        {"-1", false, 0}}) {
    CheckReading(c, readUnsigned);
  }
}

TEST(NumbersTest, ReadsFloats) {
  const std::string million(1000000, '0');
  const TReading<double> cases[] = {
      {"-1.5E+3", true, -1500},
      {"+.5", true, 0.5},
      {"5.", true, 5},
      {"9007199254740993", true, 9007199254740992.0},
      {"9007199254740993" + million.substr(0, 900) + "1e-901", true, 9007199254740994.0},
      {"9007199254740993." + million + "1", true, 9007199254740994.0},
      {"0." + million + "25e1000001", true, 2.5},
      {"25" + million + "e-1000001", true, 2.5},
      {million + million + "7", true, 7},
      {"1" + million, false, 0},
      {million + "x", false, 0},
      {"0." + million + "1", true, 0},
      {"1.7976931348623158e308", true, DBL_MAX},
      {"1.7976931348623159e308", false, 0},
      {"-1e309", false, 0},
      {"1e99999999999999999999", false, 0},
      {"0e99999999999999999999", true, 0},
      {"1e-99999999999999999999", true, 0},
      {"3e-324", true, 5e-324},
      {"2e-324", true, 0},
  };
  const auto read = [](auto text, double& value) { return TryStrToFloat(text, value); };
  for (const auto& c : cases) CheckReading(c, read);
  for (const char* text :
       {"",     "-",    "+",     ".",        "-.",   "e5", ".e5",      "1e",  "1e+",
        "1e5.", "1..2", "1.2.3", "--1",      "+-1",  " 1", "1 ",       "1,5", "inf",
        "INF",  "nan",  "-inf",  "infinity", "0x10", "1f", "1\xD9\xA1"}) {
    CheckReading<double>({text, false, 0}, read);
  }
  double zero = 1;
  EXPECT_TRUE(TryStrToFloat("-1e-400", zero));
  EXPECT_TRUE(zero == 0 && std::signbit(zero));
}

TEST(NumbersTest, FloatsComeBackFromAnyLength) {
  const uint64_t seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937_64 random(seed);
  for (int i = 0; i < 20000; ++i) {
    const double value = std::bit_cast<double>(random() & ~(uint64_t{1} << 62));
    char text[1600];
    std::snprintf(text, sizeof text, "%.*e", 17 + (i % 8 == 0 ? 800 : i % 60), value);
    ASSERT_EQ(value, StrToFloat(text)) << text;
  }
}

TEST(NumbersTest, RefusalsNameTheText) {
  const auto messageOf = [](auto&& read) -> string {
    try {
      read();
    } catch (const EConvertError& e) {
      return e.Message();
    }
    return u"nothing raised";
  };
  EXPECT_EQ(u"'abc' is not a valid integer value", messageOf([] { StrToInt64(u"abc"); }));
  EXPECT_EQ(u"'-1' is not a valid integer value", messageOf([] { StrToUInt64("-1"); }));
  EXPECT_EQ(u"'1,5' is not a valid floating point value", messageOf([] { StrToFloat(u"1,5"); }));
  EXPECT_EQ(u"'\uFFFD' is not a valid floating point value", messageOf([] { StrToFloat("\xFF"); }));
  EXPECT_EQ(-12, StrToInt64("-12"));
  EXPECT_EQ(12u, StrToUInt64(u"12"));
}

}  // namespace
}  // namespace Talvo
