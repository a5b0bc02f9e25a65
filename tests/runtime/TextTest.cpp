// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Text.h>

#include <tests/TestTypes.h>

#include <iomanip>
#include <talvo/runtime/UnicodeDigits.h>

namespace Talvo {
namespace {

using std::string_literals::operator""s;

/// Where `convert` fails, after checking that the message says so.
template <class F>
size_t FailureOf(F&& convert, const std::string& what) {
  try {
    convert();
    return std::string::npos;
  } catch (const EEncodingError& e) {
    EXPECT_EQ(what + " at offset " + std::to_string(e.Offset()), e.what());
    return e.Offset();
  }
}

string TextOf(char32_t point) {
  if (point < 0x10000) return string(1, static_cast<char16_t>(point));
  point -= 0x10000;
  return {static_cast<char16_t>(0xD800 + (point >> 10)),
          static_cast<char16_t>(0xDC00 + (point & 0x3FF))};
}

TEST(TextTest, EveryCodePointComesBack) {
  string all;
  for (char32_t point = 0; point < 0x110000; ++point) {
    if (point >= 0xD800 && point < 0xE000) continue;
    const string text = TextOf(point);
    const std::string bytes = ToUtf8(text);
    ASSERT_EQ(point < 0x80 ? 1u : point < 0x800 ? 2u : point < 0x10000 ? 3u : 4u, bytes.size());
    ASSERT_EQ(text, FromUtf8(bytes)) << static_cast<uint32_t>(point);
    all += text;
  }
  EXPECT_EQ(all, FromUtf8(ToUtf8(all)));
  EXPECT_EQ(" aé߿ࠀ日￿\U00010000😀\U0010FFFF",
            ToUtf8(u" aé߿ࠀ日￿\U00010000😀\U0010FFFF"));
}

TEST(TextTest, LongTextsOfAnyMixtureComeBack) {
  TALVO_SEEDED(random);
  for (int round = 0; round < 2000; ++round) {
    string text;
    for (size_t runs = random() % 60; runs > 0; --runs) {
      const string point = TextOf(U"aé日😀"[random() % 4]);
      for (size_t count = random() % 40; count > 0; --count) text += point;
    }
    std::string bytes = "x";
    AppendUtf8(bytes, text);
    ASSERT_EQ(text.size() + 1, Utf16Length(bytes));
    ASSERT_EQ(u"x" + text, FromUtf8(bytes));
  }
}

TEST(TextTest, LoneSurrogatesAreRefusedKeptOrReplaced) {
  struct TCase {
    string Text;
    size_t Offset;
    std::string Kept, Replaced;
  };
  const TCase cases[] = {
      {u"\xD800", 0, "\xED\xA0\x80", "\xEF\xBF\xBD"},
      {u"a\xDFFF", 1, "a\xED\xBF\xBF", "a\xEF\xBF\xBD"},
      {u"é\xDC00\xD800", 1, "é\xED\xB0\x80\xED\xA0\x80", "é\xEF\xBF\xBD\xEF\xBF\xBD"},
      {u"\xD83D😀", 0, "\xED\xA0\xBD😀", "\xEF\xBF\xBD😀"},
      {string(511, u'a') + u"😀\xDBFFz", 513, std::string(511, 'a') + "😀\xED\xAF\xBFz",
       std::string(511, 'a') + "😀\xEF\xBF\xBDz"},
  };
  for (const TCase& c : cases) {
    SCOPED_TRACE(c.Kept);
    std::string target = "before";
    EXPECT_EQ(c.Offset, FailureOf([&] { AppendUtf8(target, c.Text); }, "Lone surrogate"));
    EXPECT_EQ("before", target);
    EXPECT_EQ(c.Kept, ToUtf8(c.Text, TSurrogates::Keep));
    EXPECT_EQ(c.Text, FromUtf8(c.Kept, TSurrogates::Keep));
    EXPECT_EQ(c.Replaced, ToUtf8(c.Text, TSurrogates::Replace));
    EXPECT_EQ(c.Offset, Utf16Length(c.Kept.substr(0, FindMalformedUtf8(c.Kept))));
  }
}

TEST(TextTest, MalformedBytesAreFoundWhereverTheyStand) {
  struct TCase {
    std::string Bytes;
    string Replaced;  // a ? for each U+FFFD
    size_t Offset = 0;
  };
  // Stray and overlong; surrogates and above U+10FFFF; cut off and broken off.
  const TCase cases[] = {
      {"\x80", u"?"},           {"日\xBF", u"日?", 3},
      {"\xC0\x80", u"??"},      {"\xC1\xBF", u"??"},
      {"\xE0\x9F\xBF", u"???"}, {"\xF0\x8F\xBF\xBF", u"????"},
      {"\xED\xA0\x80", u"???"}, {"\xF4\x90\x80\x80", u"????"},
      {"\xF5\x80", u"??"},      {"\xFF", u"?"},
      {"\xC3", u"?"},           {"\xE6\x97", u"?"},
      {"\xF0\x9F\x98", u"?"},   {"\xF0\x9F\x98+", u"?+"},
      {"\xE6é", u"?é"},         {"a\xF1\x80\x80\xE1\x80\xC2z\x80", u"a???z?", 1}};
  for (const auto& [malformed, marked, at] : cases) {
    string replaced = marked;
    std::replace(replaced.begin(), replaced.end(), u'?', u'\uFFFD');
    std::string before;
    for (int step = 0; step < 100; ++step, before += step % 3 == 0 ? "日" : "a") {
      for (const std::string& behind : {""s, "z"s, "日日日日日日zzzzzzzz"s}) {
        const std::string bytes = before + malformed + behind;
        ASSERT_EQ(before.size() + at, FindMalformedUtf8(bytes));
        ASSERT_EQ(before.size() + at, FailureOf([&] { FromUtf8(bytes); }, "Malformed UTF-8"));
        ASSERT_EQ(FromUtf8(before) + replaced + FromUtf8(behind),
                  FromUtf8(bytes, TSurrogates::Replace));
      }
    }
  }
  EXPECT_THROW(FromUtf8("\xED\xA0", TSurrogates::Keep), EEncodingError);
}

// Decodes by value, as the definition reads: the slow, obvious way.
size_t FindMalformedByValue(const std::string& bytes) {
  for (size_t at = 0; at < bytes.size();) {
    const unsigned lead = static_cast<unsigned char>(bytes[at]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (length == 0 || lead > 0xF7 || bytes.size() - at < length) return at;
    uint32_t point = length == 1 ? lead : lead & (0x7Fu >> length);
    for (size_t i = 1; i < length; ++i) {
      if ((bytes[at + i] & 0xC0) != 0x80) return at;
      point = point << 6 | (bytes[at + i] & 0x3F);
    }
    constexpr uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < smallest[length] || point > 0x10FFFF || point >> 11 == 0x1B) return at;
    at += length;
  }
  return std::string::npos;
}

TEST(TextTest, FindMalformedAgreesWithTheDefinition) {
  TALVO_SEEDED(random);
  const std::string pieces[] = {"aaaaaaaa", "é", "日", "😀", "\xE0\xA0", "\xED\x9F", "\xF0\x90"};
  for (int round = 0; round < 200000; ++round) {
    std::string bytes;
    while (random() % 12 != 0) bytes += pieces[random() % std::size(pieces)];
    if (bytes.empty()) continue;
    bytes[random() % bytes.size()] = static_cast<char>(random());
    ASSERT_EQ(FindMalformedByValue(bytes), FindMalformedUtf8(bytes))
        << testing::PrintToString(bytes);
  }
}

TEST(TextTest, StreamsAsUtf8) {
  std::ostringstream out;
  const string text = u"Grüße";
  out << text << u'|' + string(u"日") << u16string_view(u"\xD800") << u"literal";
  out << std::setfill('.') << std::setw(7) << text << std::left << std::setw(3) << u"日" << u"!";
  EXPECT_EQ("Grüße|日\xEF\xBF\xBDliteral..Grüße日..!", out.str());
}

TEST(UnicodeDigitsTest, KnowsEveryScript) {
  int count = 0;
  for (char32_t point = 0; point < 0x110000; ++point) count += IsUnicodeDecimalDigit(point);
  EXPECT_EQ(0, count % 10);  // scripts have ten digits each
  EXPECT_GE(count, 650);
  for (const char32_t zero : U"0\u0660\u0966\u0E50\uFF10\U000104A0\U0001D7F6"s) {
    EXPECT_TRUE(IsUnicodeDecimalDigit(zero) && IsUnicodeDecimalDigit(zero + 9));
  }
  for (const char32_t other : U"/:a²½Ⅷ\u0BF0\U00010107\U0001F100"s) {
    EXPECT_FALSE(IsUnicodeDecimalDigit(other)) << static_cast<uint32_t>(other);
  }
}

}  // namespace
}  // namespace Talvo
