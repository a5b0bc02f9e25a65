// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/ElementClasses.h>

#include <talvo/runtime/Numbers.h>

#include "JsonTesting.h"

namespace Talvo {
namespace {

// --- A tree is the same whatever it is made of -----------------------------------------------

TRef<IJsonElement> Rebuilt(const TRef<IJsonElement>& element) {
  TRef<IJsonElement> copy = element->CreateCopy();
  element->ForArray([&](const TRef<IJsonArray>& array) {
    copy = TArrayJsonElement::Make();
    for (const auto& item : array) copy->Arr()->Add(Rebuilt(item));
  });
  element->ForObject([&](const TRef<IJsonObject>& object) {
    copy = TObjectJsonElement::Make();
    for (const auto& [key, value] : object) copy->Obj()->Add(key, Rebuilt(value));
  });
  return copy;
}

/// One document as it comes from the parser, in part and all unpacked, and built by hand.
std::vector<TRef<IJsonElement>> Shapes(u16string_view text) {
  std::vector<TRef<IJsonElement>> shapes;
  for (int i = 0; i < 4; ++i) shapes.push_back(Json(text));
  bool isOdd = false;
  const auto unpackOdd = [&](const TRef<IJsonElement>& item) {
    if ((isOdd = !isOdd)) Unpack(item);
  };
  shapes[1]->ForArray([](const auto&) {}).ForObject([](const auto&) {});
  shapes[2]->ForArray([&](const TRef<IJsonArray>& array) { array->Query()->ForEach(unpackOdd); });
  shapes[2]->ForObject([&](const TRef<IJsonObject>& object) { object->ForValues(unpackOdd); });
  Unpack(shapes[3]);
  shapes.push_back(Rebuilt(Json(text)));
  return shapes;
}

const u16string_view Texts[] = {
    u"[]",
    u"{}",
    u"[[],[[1,'a'],[]]]",
    u"[[],[[1,'b'],[]]]",
    u"[1,-2,3.5,true,false,null]",
    u"[1,-2,3.25,true,false,null]",
    u"[[[{'k':[[]]}]]]",
    u"[[[{'k':[{}]}]]]",
    u"[{'a':1,'b':[1]},{'b':[1],'a':1}]",
    u"{'a':[{'b':1},{'c':[2,{}]}],'d':'x','e':{'f':null}}",
    u"{'a':[{'b':1},{'c':[2,{}]}],'d':'x','e':{'g':null}}",
    u"{'a':1,'b':[{'x':1,'x':2}],'a':[3,{'y':[4]}]}",
    u"[{'a':1,'b':2,'c':3,'d':4,'e':5,'f':6,'g':7,'h':8,'i':9,'a':[10]},[]]"};

TEST(JsonTreeTest, AllShapesAgree) {
  for (const u16string_view text : Texts) {
    SCOPED_TRACE(ToUtf8(text));
    const string compact = Shapes(text).back()->AsString();
    const string indented = Shapes(text).back()->AsString(TJsonIndentedFormatter::Make(2));
    for (size_t i = 0; i < 5; ++i) {
      EXPECT_EQ(compact, Shapes(text)[i]->AsString());
      EXPECT_EQ(ToUtf8(compact), JsonToUtf8(Shapes(text)[i]));
      EXPECT_EQ(indented, Shapes(text)[i]->AsString(TJsonIndentedFormatter::Make(2)));
      const auto copy = Shapes(text)[i]->CreateCopy();
      const auto assigned = JsonParser::Parse(text[0] == u'[' ? u"[0,{}]" : u"{\"z\":[0]}");
      assigned->Assign(Shapes(text)[i]);
      for (size_t j = 0; j < 5; ++j) {
        EXPECT_TRUE(copy->ElementEquals(Shapes(text)[j]));
        EXPECT_TRUE(Shapes(text)[j]->ElementEquals(assigned));
        TRef<IJsonElement> change;
        EXPECT_FALSE(Shapes(text)[i]->ElementChange(Shapes(text)[j], change));
        for (const u16string_view other : Texts) {
          EXPECT_EQ(text == other, Shapes(text)[i]->ElementEquals(Shapes(other)[j]));
        }
      }
      EXPECT_EQ(compact, copy->AsString());
      EXPECT_EQ(compact, assigned->AsString());
    }
  }
}

TEST(JsonTreeTest, OrderOfMembersDoesNotCount) {
  for (const auto& one : Shapes(u"[{'a':{'x':[{}],'y':2},'b':[1]}]")) {
    for (const auto& other : Shapes(u"[{'b':[1],'a':{'y':2,'x':[{}]}}]")) {
      EXPECT_TRUE(one->ElementEquals(other));
    }
  }
}

// --- Who shares what --------------------------------------------------------------------------

TEST(JsonTreeTest, CopiesShareOnlyWhatObjectsHold) {
  for (const bool isSourceChanged : {false, true}) {
    for (const auto& source : Shapes(u"[[1,[2]],{'a':[3]},[[{'a':[4]}]]]")) {
      const auto copy = source->CreateCopy();
      const auto list = (isSourceChanged ? source : copy)->Arr();
      list[0]->Arr()[1]->Arr()->Clear();
      for (const auto& object : {list[1]->Obj(), list[2]->Arr()[0]->Arr()[0]->Obj()}) {
        object->Items(u"a")->Arr()->Clear();
        object->Add(u"b", TNullJsonElement::Make());
      }
      EXPECT_EQ(u"[[1,[2]],{\"a\":[]},[[{\"a\":[]}]]]",
                (isSourceChanged ? copy : source)->AsString());
    }
  }
}

TEST(JsonTreeTest, AssignCopiesWhatIsBelow) {
  for (const auto& source : Shapes(u"[[1,[2]],{'a':[3],'o':{'s':[4]}}]")) {
    const TRef<IJsonElement> list = TArrayJsonElement::Make(), object = TObjectJsonElement::Make();
    list->Assign(source);
    object->Assign(source->Arr()[1]);
    list->Arr()[0]->Arr()[1]->Arr()->Clear();
    list->Arr()[1]->Obj()->Clear();
    object->Obj()->Items(u"a")->Arr()->Clear();
    object->Obj()->Items(u"o")->Obj()->Items(u"s")->Arr()->Clear();
    object->Obj()->Items(u"o")->Obj()->Clear();
    EXPECT_EQ(u"[[1,[2]],{\"a\":[3],\"o\":{\"s\":[]}}]", source->AsString());
  }
}

TEST(JsonTreeTest, AssignedFromWithinItself) {
  for (const auto& element : Shapes(u"[[1,[2]],3]")) {
    element->Assign(element->Arr()[0]);
    EXPECT_EQ(u"[1,[2]]", element->AsString());
    element->Assign(element);
    EXPECT_EQ(u"[]", element->AsString());
  }
  for (const auto& element : Shapes(u"{'o':{'x':{'y':[1]}},'z':[]}")) {
    element->Assign(element->Obj()->Items(u"o"));
    EXPECT_EQ(u"{\"x\":{\"y\":[1]}}", element->AsString());
    element->Assign(element);
    EXPECT_EQ(u"{}", element->AsString());
  }
  for (const auto& element : Shapes(u"[0,[[9]]]")) {
    element->Arr()[1]->Arr()[0]->Assign(element);  // each copy is made of what is there by then
    EXPECT_EQ(u"[0,[[0,[[0]]]]]", element->AsString());
  }
}

TEST(JsonTreeTest, ElementsOutliveTheirDocument) {
  TRef<IJsonElement> document = JsonParser::ParseUtf8("[[\"\xC3\xA9\",{\"k\":[[1],{\"a\":2}]}]]");
  const auto outer = document->Arr()[0];
  EXPECT_EQ(outer, document->Arr()[0]);
  document = nullptr;
  TRef<IJsonElement> inner = outer->Arr()[1]->Obj()->Items(u"k");
  const auto copy = inner->CreateCopy();
  outer->Arr()->Clear();
  EXPECT_EQ(u"[[1],{\"a\":2}]", inner->AsString());
  const auto list = inner->Arr();
  inner = nullptr;
  EXPECT_EQ(u"[u1]", Describe(list[0]));
  EXPECT_EQ(u"[[u1],{\"a\":u2}]", Describe(copy));
}

TEST(JsonTreeTest, ChangesShowEverywhere) {
  const u16string_view text = u"{\"a\":[1,[2]],\"b\":{}}";
  const auto document = JsonParser::Parse(text), fresh = JsonParser::Parse(text);
  const auto inner = document->Obj()->Items(u"a")->Arr()[1]->Arr();
  inner->Add(TNullJsonElement::Make());
  EXPECT_EQ(u"{\"a\":[1,[2,null]],\"b\":{}}", document->AsString());
  EXPECT_FALSE(document->ElementEquals(fresh) || fresh->ElementEquals(document));
  TRef<IJsonElement> change;
  EXPECT_TRUE(document->ElementChange(fresh, change));
  EXPECT_EQ(u"{\"a\":[u1,[u2,null]]}", Describe(change));
  inner->Delete(1);
  EXPECT_TRUE(document->ElementEquals(fresh));
}

// --- Depth and size ---------------------------------------------------------------------------

#ifdef __has_feature
#define TALVO_IS_SANITIZED (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TALVO_IS_SANITIZED 1
#else
#define TALVO_IS_SANITIZED 0
#endif
constexpr size_t Deepest = TALVO_IS_SANITIZED ? 1'000'000 : 10'000'000;
// Elements that are not packed take some 300 bytes a level, and more under a sanitizer.
constexpr size_t DeepestLive = TALVO_IS_SANITIZED ? 100'000 : 1'000'000;

template <class S>
S Repeated(const S& piece, size_t count) {
  S text;
  text.reserve(piece.size() * count);
  for (; count > 0; --count) text += piece;
  return text;
}

TEST(JsonDepthTest, PackedTrees) {
  const auto text = std::string(Deepest, '[') + std::string(Deepest, ']');
  const auto document = JsonParser::ParseUtf8(text);
  EXPECT_TRUE(text == JsonToUtf8(document));
  EXPECT_TRUE(document->ElementEquals(document->CreateCopy()));
  EXPECT_TRUE(IsValidJson(document));
}

TEST(JsonDepthTest, LiveTrees) {
  const std::tuple<size_t, string, string> nestings[] = {
      {DeepestLive, u"[", u"]"},
      {DeepestLive / 4, u"{\"a\":", u"}"},
      {DeepestLive / 10, u"[0,{\"b\":[],\"a\":", u",\"c\":{}},1]"}};
  for (const auto& [depth, open, close] : nestings) {
    const string front = Repeated(open, depth), back = Repeated(close, depth);
    const string text = front + u'1' + back;
    const auto packed = JsonParser::Parse(text), other = JsonParser::Parse(front + u'2' + back);
    auto live = Unpack(JsonParser::Parse(text));
    EXPECT_TRUE(text == packed->AsString() && text == live->AsString());
    EXPECT_TRUE(packed->ElementEquals(live) && live->ElementEquals(packed));
    EXPECT_FALSE(packed->ElementEquals(other) || live->ElementEquals(other));
    EXPECT_TRUE(IsValidJson(packed) && IsValidJson(live));
    const auto copy = live->CreateCopy();
    live = nullptr;
    EXPECT_TRUE(copy->ElementEquals(packed));
    copy->Assign(other);
    EXPECT_TRUE(copy->ElementEquals(other));
  }
}

TEST(JsonDepthTest, FaultsAtTheBottom) {
  size_t faults = 0;
  TRef<IJsonElement> tree;
  const JsonParser::TOnError onError = [&](auto&&...) { ++faults; };
  JsonParser::Parse(Repeated<string>(u"[{\"a\":", DeepestLive) + u'x', onError, tree);
  EXPECT_EQ(2 * DeepestLive + 1, faults);
  EXPECT_EQ(8 * DeepestLive - 4, tree->AsString().size());
}

TEST(JsonDepthTest, IndentedText) {
  constexpr size_t depth = 10'000;
  const auto document = JsonParser::Parse(string(depth, u'[') + u'1' + string(depth, u']'));
  const std::string text = JsonToUtf8(document, TJsonIndentedFormatter::Make(1));
  // Brackets and value, two line ends a level, and the blanks on the way in and out.
  EXPECT_EQ(2 * depth + 1 + 4 * depth + depth * (depth + 1) / 2 + depth * (depth - 1) / 2,
            text.size());
}

TEST(JsonSizeTest, ManyMembersTakeLinearTime) {
  constexpr uint32_t count = 100'000;
  const auto members = [](bool isBackward) {
    string text;
    for (uint32_t i = 0; i < count; ++i) {
      const string number = UIntToStr(isBackward ? count - 1 - i : i);
      text += u",\"a common front " + number + u"\":" + number;
    }
    return text;
  };
  const auto parse = [](const string& text) {
    return JsonParser::Parse(u"{" + text.substr(1) + u"}");
  };
  const auto packed = parse(members(false)), live = Unpack(parse(members(false)));
  const auto other = parse(members(true)), twice = parse(members(true) + members(false));
  EXPECT_TRUE(packed->ElementEquals(other) && live->ElementEquals(other));
  EXPECT_TRUE(twice->ElementEquals(packed) && packed->ElementEquals(twice));
  live->Obj()->Add(u"a common front 7", TNullJsonElement::Make());
  TRef<IJsonElement> change;
  EXPECT_TRUE(live->ElementChange(twice, change));
  EXPECT_EQ(u"{\"a common front 7\":null}", Describe(change));
}

TEST(JsonSizeTest, RepeatedKeysAtEveryLevel) {
  const string inner = u'1' + Repeated<string>(u",\"b\":[]}", 100'000);
  const auto document = JsonParser::Parse(Repeated<string>(u"{\"a\":0,\"a\":", 100'000) + inner);
  const string expected = Repeated<string>(u"{\"a\":", 100'000) + inner;
  EXPECT_TRUE(document->ElementEquals(JsonParser::Parse(expected)));
  EXPECT_TRUE(expected == document->AsString());
}

TEST(JsonSizeTest, LongTokensTakeLinearTime) {
  constexpr size_t count = 2'000'000;
  const string digits(count, u'7');
  const auto array =
      JsonParser::Parse(u"[0." + digits + u",1" + digits + u"e-" + UIntToStr(count) + u",1e-" +
                        digits + u",\"" + Repeated<string>(u"\\u0000\\n", count) + u"\"]")
          ->Arr();
  EXPECT_EQ(7.0 / 9, array[0]->Float());
  EXPECT_EQ(16.0 / 9, array[1]->Float());
  EXPECT_EQ(0, array[2]->Float());
  EXPECT_EQ(2 * count, array[3]->Str().size());
}

}  // namespace
}  // namespace Talvo
