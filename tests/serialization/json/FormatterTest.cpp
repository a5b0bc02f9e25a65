// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Formatter.h>

#include "JsonTesting.h"

namespace Talvo {
namespace {

TEST(JsonFormatterTest, CompactAndIndentedText) {
  const u16string_view compact = u"{\"a\":1,\"b\":[true,null],\"c\":{},\"d\":[]}";
  const u16string_view indented =
      u"{\r\n  \"a\": 1,\r\n  \"b\": [\r\n    true,\r\n    null\r\n  ],\r\n"
      u"  \"c\": {\r\n  },\r\n  \"d\": []\r\n}";
  const auto formatter = TJsonIndentedFormatter::Make(2);
  for (const auto& document : {JsonParser::Parse(compact), Unpack(JsonParser::Parse(indented)),
                               JsonParser::Parse(compact)}) {
    EXPECT_EQ(compact, document->AsString());
    EXPECT_EQ(compact, document->AsString(TJsonFormatter::Make()));
    EXPECT_EQ(indented, document->AsString(formatter));
  }
  EXPECT_EQ(u"[\r\n{\r\n\"a\": \"\"\r\n}\r\n]",
            Json(u"[{'a':''}]")->AsString(TJsonIndentedFormatter::Make(0)));
  EXPECT_EQ(u"[]", TArrayJsonElement::Make()->AsString(formatter));
  EXPECT_EQ(u"{\r\n}", TObjectJsonElement::Make()->AsString(formatter));
  EXPECT_THROW(TJsonIndentedFormatter::Make(-1), EAssertionFailed);
}

/// Answers each question with a letter; arrays begin and go on as objects do.
class TLetterFormatter : public TJsonFormatter {
 public:
  string Separator() override { return u"s"; }
  string BeginObjectIndent() override { return u"b"; }
  string EndObjectIndent() override { return u"e"; }
  string EndArrayIndent() override { return u"E"; }
  string ObjectEntryIndent() override { return string(1, static_cast<char16_t>(u'0' + FAsked++)); }
  string ArrayEntryIndent() override { return u"never"; }

 private:
  int FAsked = 0;
};

TEST(JsonFormatterTest, IsAskedOnceForAContainer) {
  EXPECT_EQ(u"b{0\"a\":sb[11,12E],0\"b\":sb{e},0\"c\":s[]e}",
            Json(u"{'a':[1,2],'b':{},'c':[]}")->AsString(Create<TLetterFormatter>()));
}

/// Reads the document at each entry.
class TReadingFormatter : public TJsonFormatter {
 public:
  explicit TReadingFormatter(TRef<IJsonElement> document) : FDocument(std::move(document)) {}
  string ObjectEntryIndent() override {
    Unpack(FDocument);
    return {};
  }

 private:
  TRef<IJsonElement> FDocument;
};

TEST(JsonFormatterTest, MayReadTheDocumentMeanwhile) {
  for (const u16string_view text :
       {u"[1,2,\"a long string, not kept in place\"]", u"{\"a\":[1,[2],3],\"b\":\"x\"}"}) {
    const auto document = JsonParser::Parse(text);
    EXPECT_EQ(text, document->AsString(Create<TReadingFormatter>(document)));
    const TRef<IJsonElement> around =
        TArrayJsonElement::Make({JsonParser::Parse(text), JsonParser::Parse(text)});
    EXPECT_EQ(u"[" + string(text) + u"," + string(text) + u"]",
              around->AsString(Create<TReadingFormatter>(around)));
  }
}

TEST(JsonFormatterTest, StringsAreEscapedToAscii) {
  const string text =
      u"\"\\u0000\\u0001\\u0002\\u0003\\u0004\\u0005\\u0006\\u0007\\b\\t\\n\\u000B\\f\\r\\u000E\\u0"
      u"00F"
      u"\\u0010\\u0011\\u0012\\u0013\\u0014\\u0015\\u0016\\u0017\\u0018\\u0019\\u001A\\u001B\\u001C"
      u"\\u001D\\u001E\\u001F !\\\"#$%&'()*+,-.\\/0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\\\]"
      u"^_`abcdefghijklmnopqrstuvwxyz{|}~\x7F\\u0080\\u00E9\\uFFFF\\uD834\\uDD1E\\uDFFF\"";
  string units;
  for (char16_t unit = 0; unit <= 0x7F; ++unit) units += unit;
  const auto element = TStringJsonElement::Make(units + u"\u0080\u00E9\uFFFF\U0001D11E\xDFFF");
  EXPECT_EQ(text, element->AsString());
  EXPECT_EQ(ToUtf8(text), JsonToUtf8(element));
  EXPECT_TRUE(element->ElementEquals(JsonParser::Parse(text)));
}

TEST(JsonFormatterTest, EscapesAtEveryPlace) {
  for (size_t before = 0; before <= 20; ++before) {
    // The long ones cross the end of the writer's buffer.
    for (const size_t behind : {0, 1, 2, 5, 6, 7, 8, 9, 15, 16, 17, 4060, 4070, 4080}) {
      const string front(before, u'a'), back(behind, u'z');
      const string text = u"[\"" + front + u"\\/\\u00E9" + back + u"\\n\"]";
      const TRef<IJsonElement> list =
          TArrayJsonElement::Make({TStringJsonElement::Make(front + u"/\u00E9" + back + u"\n")});
      EXPECT_EQ(text, list->AsString());
      EXPECT_EQ(text, JsonParser::Parse(text)->AsString());
      EXPECT_EQ(ToUtf8(text), JsonToUtf8(list));
    }
  }
}

TEST(JsonFormatterTest, KeysAreWrittenAsTheyAre) {
  const TRef<IJsonElement> object =
      TObjectJsonElement::Make()->Add(u"a\"/\\\n\u00E9", TNullJsonElement::Make());
  EXPECT_EQ(u"{\"a\"/\\\n\u00E9\":null}", object->AsString());
  EXPECT_EQ(u"{\"\u00E9\":null}", JsonParser::Parse(u"{\"\\u00e9\":null}")->AsString());
}

TEST(JsonFormatterTest, EmptyReferencesAreNull) {
  const TRef<IJsonElement> array =
      TArrayJsonElement::Make({nullptr, TObjectJsonElement::Make()->Add(u"a", nullptr)});
  EXPECT_EQ(u"[null,{\"a\":null}]", array->AsString());
  EXPECT_TRUE(array->ElementEquals(array->CreateCopy()));
  EXPECT_FALSE(array->ElementEquals(JsonParser::Parse(array->AsString())));
}

}  // namespace
}  // namespace Talvo
