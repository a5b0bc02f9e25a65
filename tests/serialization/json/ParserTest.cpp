// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Parser.h>

#include <talvo/runtime/Numbers.h>

#include "JsonTesting.h"

namespace Talvo {
namespace {

const std::tuple<u16string_view, TJsonParserError, u16string_view> Faults[] = {
    {u"hex", TJsonParserError::ExpectedHexDigit, u"Expected hex digit"},
    {u"escape", TJsonParserError::InvalidEscapeSymbol, u"Invalid escape symbol"},
    {u"torn", TJsonParserError::InvalidEscapeSymbol, u"Incomplete escape symbol"},
    {u"quote", TJsonParserError::ExpectedQuotationMark, u"Expected '\"'"},
    {u"digit", TJsonParserError::ExpectedDigit, u"Expected digit"},
    {u"value", TJsonParserError::UnrecognisedObjectElement, u"Unrecognised object element"},
    {u"boolean", TJsonParserError::ExpectedBooleanConstant, u"Expected boolean constant"},
    {u"null", TJsonParserError::ExpectedNull, u"Expected null"},
    {u"colon", TJsonParserError::ExpectedColon, u"Expected ':'"},
    {u"brace", TJsonParserError::ExpectedCloseCurlyBracketOrComma, u"Expected '}' or ','"},
    {u"bracket", TJsonParserError::ExpectedSquareBracketOrComma, u"Expected ']' or ','"}};

string NameOf(TJsonParserError code, const string& message) {
  for (const auto& [name, faultCode, text] : Faults) {
    if (faultCode == code && text == message) return string(name);
  }
  return u"?";
}

/// What a parse comes to: "2 digit 5 bracket [u1]" are two reports and the tree, "digit" is what
/// it raises. Positions are told without the blanks in front.
template <class F>
string Outcome(uint32_t blanks, bool hasCallback, F&& parse) {
  string log;
  const JsonParser::TOnError onError = [&](const string&, uint32_t position, TJsonParserError code,
                                           const string& message) {
    log += UIntToStr(position - blanks) + u" " + NameOf(code, message) + u" ";
  };
  TRef<IJsonElement> tree = TNullJsonElement::Make();
  try {
    parse(hasCallback ? onError : nullptr, tree);
    return log + Describe(tree);
  } catch (const EJsonException& failure) {
    log += NameOf(failure.ErrorCode(), failure.Message());
  } catch (const Exception& failure) {
    log += failure.ClassName();
  }
  EXPECT_FALSE(tree);
  return log;
}

/// Parses UTF-16 and UTF-8, with and without a mark, with and without a callback. The texts stand
/// in memory of just their size, so that a sanitizer sees a read past the end.
void ExpectOutcome(u16string_view expected, u16string_view inner, uint32_t blanks = 0) {
  const string text = string(blanks, u' ') + string(inner);
  SCOPED_TRACE(ToUtf8(text.substr(0, 200)));
  const bool hasReports = expected[0] >= u'0' && expected[0] <= u'9';
  const size_t name = expected.find(u' ') + 1;
  const u16string_view raised =
      hasReports ? expected.substr(name, expected.find(u' ', name) - name) : expected;
  const std::vector<char16_t> units(text.begin(), text.end());
  const auto parse = [&](const auto& onError, auto& tree) {
    JsonParser::Parse({units.data(), units.size()}, onError, tree);
  };
  EXPECT_EQ(expected, Outcome(blanks, /*hasCallback*/ true, parse));
  EXPECT_EQ(raised, Outcome(blanks, /*hasCallback*/ false, parse));
  for (const std::string& encoded : {ToUtf8(text), "\xEF\xBB\xBF" + ToUtf8(text)}) {
    const std::vector<char> bytes(encoded.begin(), encoded.end());
    const auto parseUtf8 = [&](const auto& onError, auto& tree) {
      JsonParser::ParseUtf8({bytes.data(), bytes.size()}, onError, tree);
    };
    EXPECT_EQ(expected, Outcome(blanks, /*hasCallback*/ true, parseUtf8));
    EXPECT_EQ(raised, Outcome(blanks, /*hasCallback*/ false, parseUtf8));
  }
}

using TCase = std::pair<u16string_view, u16string_view>;

const TCase Cases[] = {
    // Tolerances.
    {u"", u"{}"},
    {{u"\0\x1F ", 3}, u"{}"},
    {{u"[\x01 1\x02,\x1F 2\0]", 11}, u"[u1,u2]"},
    {u"1 2", u"u1"},
    {u"[,1]", u"[null,u1]"},
    {u"[1,,2]", u"[u1,null,u2]"},
    {u"{\"a\":,\"b\":2}", u"{\"a\":null,\"b\":u2}"},
    {u"01", u"u0"},
    {u"nullable", u"null"},
    {u"{\"a\":1,\"b\":2,\"a\":[3]}", u"{\"a\":[u3],\"b\":u2}"},
    // Values.
    {u"'a'", u"0 value none"},
    {u"\u00E9", u"0 value none"},
    {u"\U0001D7CF", u"0 value none"},
    {u"tru", u"0 boolean none"},
    {u"fals", u"4 boolean none"},
    {u"nul", u"3 null none"},
    {u"-a", u"1 digit none"},
    {u"1.e5", u"2 digit none"},
    {u"1E+-2", u"3 digit none"},
    {u"[01]", u"2 bracket [u0]"},
    {u"[-,2]", u"2 digit [u2]"},
    // Strings.
    {u"\"a\\\tb\"", u"3 torn 3 quote \"a\""},
    {u"[\"a\tb\"]", u"3 quote 4 bracket [\"a\"]"},
    {{u"[\"a\0]", 5}, u"3 quote [\"a\"]"},
    {u"[\"\\x\",1]", u"3 escape 3 bracket []"},
    {u"[1,\"\u00E9\\\u00E9\"]", u"6 escape 6 bracket [u1]"},
    {u"\"\\u12", u"5 hex 5 quote \"\""},
    {u"\"\\u12\"", u"5 hex 6 quote \"\""},
    {u"[\"\\u12xy\"]", u"6 hex [\"y\"]"},
    {u"[\"\\ud83d\\u\"]", u"10 hex 12 quote 12 bracket [\"\\uD83D]\"]"},
    {u"\"\\u\U0001D11E\"", u"3 hex \"\\uDD1E\""},
    {u"\"\\u00g0\\u000:\\u000@\\u000`\"", u"5 hex 12 hex 18 hex 24 hex \"0\""},
    // Arrays and objects.
    {u"[1,]", u"3 value [u1]"},
    {u"[\"a\"\U0001D11E]", u"4 bracket [\"a\"]"},
    {u"[\"\u00E9\U0001D11E\", x]", u"8 value 8 bracket [\"\\u00E9\\uD834\\uDD1E\"]"},
    {u"[[1,[2}", u"6 bracket 7 bracket 7 bracket [[u1,[u2]]]"},
    {u"{a:1}", u"1 quote 1 brace {}"},
    {u"{\"a\"}", u"4 colon 5 quote 5 brace {}"},
    {u"{\"a\" 1}", u"5 colon 6 quote {}"},
    {u"{\"a\"\u00E9\"b\":1}", u"4 colon {\"b\":u1}"},
    {u"{\"a\" \"b\":1}", u"5 colon 6 quote 6 brace {}"},
    {u"{\"a\\x\":1}", u"4 escape 4 brace {}"},
    {u"{\"a\":1,}", u"7 quote {\"a\":u1}"},
    {u"{\"a\":x,\"b\":2}", u"5 value 5 brace {}"},
    {u"{\"a\":-,\"b\":2}", u"6 digit {\"b\":u2}"},
    {u"{\"a\":nu,\"b\":2}", u"7 null {\"b\":u2}"},
    {u"{\"a\":\"\\x\",\"b\":2}", u"7 escape 7 brace {}"},
    {u"{\"a\":1,\"a\":}", u"11 value {\"a\":u1}"},
    {u"[{\"a\":[1,}", u"9 value 9 bracket 10 brace 10 bracket [{\"a\":[u1]}]"}};

TEST(JsonParserTest, ReportsFaultsAndRecovers) {
  for (const auto& [text, expected] : Cases) {
    // Blanks in front move the text across the steps in which the parser reads.
    for (const uint32_t blanks : {0, 1, 7, 8, 15, 17}) ExpectOutcome(expected, text, blanks);
  }
}

TEST(JsonParserTest, SpellingSettlesTheKindOfNumbers) {
  const std::string zeros(400, '0');
  std::istringstream cases(
      "5 u5 -5 i-5 -0 i0 5.0 d5 5e0 d5 5E+0 d5 -0.0 d0 1e-2 d0.01 1e-999 d0 "
      "999999999999999999 u999999999999999999 1000000000000000000 u1000000000000000000 "
      "18446744073709551615 u18446744073709551615 18446744073709551616.0 d1.84467440737096E19 "
      "-9223372036854775808 i-9223372036854775808 0." +
      zeros + "1 d0 0." + zeros + "1e401 d1 1" + zeros + "e-400 d1");
  std::string text, tree;
  while (cases >> text >> tree) {
    ExpectOutcome(FromUtf8(tree), FromUtf8(text));
    ExpectOutcome(FromUtf8('[' + tree + ']'), FromUtf8('[' + text + ']'));
  }
}

TEST(JsonParserTest, DoublesAreTheNearest) {
  std::vector<std::string> texts{"123456789012.345",          "9007199254740993.0",
                                 "1.00000000000000000000001", "0.00000000000000000000012",
                                 "2.2250738585072011e-308",   "1e23"};
  TALVO_SEEDED(random);
  while (texts.size() < 20'000) {
    texts.push_back(std::to_string(random() >> (4 + random() % 60)) + (random() % 2 ? "e-" : "e") +
                    std::to_string(random() % 30));
  }
  for (const std::string& text : texts) {
    const double expected = std::strtod(text.c_str(), nullptr);
    EXPECT_EQ(expected, JsonParser::Parse(FromUtf8(text))->GetReal()) << text;
    EXPECT_EQ(expected, JsonParser::ParseUtf8(text)->GetReal()) << text;
  }
}

TEST(JsonParserTest, NumbersBeyondTheirKindRaise) {
  for (const string& text :
       {string(u"18446744073709551616"), string(u"-9223372036854775809"), string(u"1e309"),
        string(u"-1.8e308"), string(100000, u'7'), string(u"\u0663"), string(u"-\u0663"),
        string(u"1\u06632"), string(u"0.\uFF11"), string(u"1e\u0967")}) {
    ExpectOutcome(u"EConvertError", text);
    ExpectOutcome(u"2 digit EConvertError", u"[-," + text);
  }
}

TEST(JsonParserTest, StringsOfAllLengths) {
  const TCase pieces[] = {{u"\\\"\\\\\\/", u"\"\\/"},
                          {u"\\b\\f\\n\\r\\t", u"\b\f\n\r\t"},
                          {u"\\u0000\\uD83d\\uabCD\\uEf09", {u"\0\xD83D\uABCD\uEF09", 4}},
                          {u"\x7F\u0080\u07FF", u"\x7F\u0080\u07FF"},
                          {u"\u0800\uFFFF", u"\u0800\uFFFF"},
                          {u"\U0001D11E\U0010FFFF", u"\U0001D11E\U0010FFFF"}};
  for (const auto& [escaped, units] : pieces) {
    for (size_t before = 0; before <= 20; ++before) {
      for (const size_t behind : {0, 1, 2, 3, 7, 8, 9, 16, 300}) {
        const string front(before, u'a'), back(behind, u'z');
        const string expected = front + string(units) + back + string(units);
        const string inner = front + string(escaped) + back + string(escaped);
        const string text = u"{\"" + inner + u"\":\"" + inner + u"\"}";
        for (const auto& tree : {JsonParser::Parse(text), JsonParser::ParseUtf8(ToUtf8(text))}) {
          string value;
          EXPECT_TRUE(tree->Obj()->GetString(expected, value));
          EXPECT_EQ(expected, value);
        }
      }
    }
  }
}

TEST(JsonParserTest, MalformedUtf8RaisesWithItsOffset) {
  const std::pair<std::string_view, size_t> cases[] = {
      {"\xFF", 0},     {"[\"\xC3\"]", 2},     {"\xEF\xBB\xBF[\xED\xA0\x80]", 4},
      {"\xFE\xFF", 0}, {"\"\xF0\x9D\x84", 1}, {"1 trailing \xF4\x90\x80\x80", 11}};
  for (const auto& [text, offset] : cases) {
    EXPECT_EQ("EEncodingError: Malformed UTF-8 at offset " + std::to_string(offset),
              Raised([bytes = text] { JsonParser::ParseUtf8(bytes); }));
  }
}

TEST(JsonParserTest, WhatTheCallbackRaisesEndsTheParse) {
  const JsonParser::TOnError raise = [](const string& text, uint32_t, TJsonParserError,
                                        const string&) { throw EConvertError(text); };
  TRef<IJsonElement> tree = TNullJsonElement::Make();
  EXPECT_THROW(JsonParser::ParseUtf8("[1,{\"\xC3\xA9\":x", raise, tree), EConvertError);
  EXPECT_FALSE(tree);
}

TEST(JsonParserTest, TheTextMayStandInTheResult) {
  const u16string_view inner = u"[\"longer than what a string holds without memory of its own\"]";
  TRef<IJsonElement> tree = TStringJsonElement::Make(string(inner));
  JsonParser::Parse(static_cast<TStringJsonElement*>(tree->GetInstance())->Value(), nullptr, tree);
  EXPECT_EQ(inner, tree->AsString());
}

TEST(JsonParserTest, TheCallbackMayTakeTextAndHandleAway) {
  auto text =
      std::make_unique<string>(u"[{\"a\":},\"longer than a string without memory of its own\"");
  int32_t faults = 0;
  JsonParser::TOnError onError = [&](const string&, uint32_t, TJsonParserError, const string&) {
    ++faults;
    text = nullptr;
    onError = nullptr;
  };
  TRef<IJsonElement> tree;
  JsonParser::Parse(*text, onError, tree);
  EXPECT_EQ(2, faults);
  EXPECT_EQ(u"[{},\"longer than a string without memory of its own\"]", Describe(tree));
}

TEST(JsonParserTest, ManyFaultsTakeLinearTime) {
  string text = u"[\"\u00E9\",{";
  constexpr int32_t count = 200'000;
  for (int32_t i = 0; i < count; ++i) text += u"\"\u00E9\";";
  int32_t faults = 0;
  TRef<IJsonElement> tree;
  const JsonParser::TOnError onError = [&](const string& all, uint32_t position, TJsonParserError,
                                           const string&) {
    faults += position < all.size() && all[position] == u';';
  };
  JsonParser::ParseUtf8(ToUtf8(text), onError, tree);
  EXPECT_EQ(count, faults);
}

TEST(JsonParserTest, LineAndColumn) {
  string found;
  for (uint32_t i = 0; i <= 12; ++i) {
    const TJsonTextPosition at = LineAndColumn(u"a\n\u00E9b\r\nc\r\rd\n", i);
    found += UIntToStr(at.Line) + u":" + UIntToStr(at.Column) + u" ";
  }
  EXPECT_EQ(u"1:1 1:2 2:1 2:2 2:3 2:4 3:1 3:2 4:1 5:1 5:2 6:1 6:1 ", found);
}

}  // namespace
}  // namespace Talvo
