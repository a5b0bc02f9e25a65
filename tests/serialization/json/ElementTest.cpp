// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Element.h>

#include "JsonTesting.h"

namespace Talvo {
namespace {

constexpr double NotANumber = std::numeric_limits<double>::quiet_NaN();

template <class V>
string Shown(const V& value) {
  if constexpr (std::is_same_v<V, string>) return value;
  if constexpr (std::is_same_v<V, bool>) return value ? u"true" : u"false";
  if constexpr (std::is_arithmetic_v<V>) return FloatToJson(static_cast<double>(value));
  if constexpr (IsReference<V>) return value ? u"it" : u"none";
}

/// What an accessor gives, "no" for nothing. All three forms must come to the same.
template <class V, class TAsk, class TRaise, class TFor>
string Answer(const TRef<IJsonElement>& element, V value, TJsonParserError code,
              u16string_view message, TAsk&& ask, TRaise&& raise, TFor&& callBack) {
  const bool isGiven = ask(value);
  string found = u"no";
  int missed = 0;
  const auto onFound = [&](const V& given) { found = Shown(given); };
  EXPECT_EQ(element.Get(), &callBack(onFound, [&] { ++missed; }));
  EXPECT_EQ(isGiven ? 0 : 1, missed);
  callBack(onFound, nullptr);
  callBack(onFound, TProc<>());
  EXPECT_THROW(callBack(TConstProc<V>(), nullptr), EAssertionFailed);
  EXPECT_EQ(isGiven ? found : Shown(V{}), Shown(value));
  try {
    EXPECT_EQ(found, Shown(V(raise())));
  } catch (const EJsonException& failure) {
    EXPECT_FALSE(isGiven);
    EXPECT_EQ(code, failure.ErrorCode());
    EXPECT_EQ(message, failure.Message());
  }
  return found;
}

TEST(JsonElementTest, EveryElementAnswersEveryAccessor) {
  // String, Integer, Real, Boolean, Object, Array.
  const std::pair<TRef<IJsonElement>, u16string_view> cases[] = {
      {TNullJsonElement::Make(), u"no no no no no no"},
      {TBooleanJsonElement::Make(true), u"true no no true no no"},
      {TBooleanJsonElement::Make(false), u"false no no false no no"},
      {TStringJsonElement::Make(u"true"), u"true no no no no no"},
      {TStringJsonElement::Make(u"5"), u"5 no no no no no"},
      {TIntegerJsonElement::Make(-5), u"-5 -5 -5 no no no"},
      {TUnsignedIntegerJsonElement::Make(5), u"5 5 5 no no no"},
      {TDoubleJsonElement::Make(5), u"5 no 5 no no no"},
      {TArrayJsonElement::Make(), u"no no no no no it"},
      {TObjectJsonElement::Make(), u"no no no no it no"}};
#define TALVO_ANSWER(Kind, Short, V, before, Name)                                           \
  Answer<V>(                                                                                 \
      element, before, TJsonParserError::Not##Kind##Node, u"Not " Name u" node",             \
      [&](V& value) { return element->Get##Kind(value); }, [&] { return element->Short(); }, \
      [&](auto&& found, auto&& missing) -> auto& { return element->For##Kind(found, missing); })
  for (const auto& [held, answers] : cases) {
    const TRef<IJsonElement>& element = held;
    EXPECT_EQ(answers, TALVO_ANSWER(String, Str, string, u"before", u"a string") + u' ' +
                           TALVO_ANSWER(Integer, Int, int64_t, 7, u"an integer") + u' ' +
                           TALVO_ANSWER(Real, Float, double, 7, u"a Real") + u' ' +
                           TALVO_ANSWER(Boolean, GetBoolean, bool, true, u"a Boolean") + u' ' +
                           TALVO_ANSWER(Object, Obj, TRef<IJsonObject>, nullptr, u"an Object") +
                           u' ' + TALVO_ANSWER(Array, Arr, TRef<IJsonArray>, nullptr, u"an Array"));
  }
#undef TALVO_ANSWER
}

TEST(JsonElementTest, UnsignedBeyondInt64IsARangeError) {
  EXPECT_EQ(INT64_MAX, TUnsignedIntegerJsonElement::Make(INT64_MAX)->Int());
  const auto element = TUnsignedIntegerJsonElement::Make(uint64_t{1} << 63);
  int64_t value = 0;
  EXPECT_THROW(element->GetInteger(value), ERangeError);
  EXPECT_EQ(9223372036854775808.0, element->Float());
}

TEST(JsonElementTest, MembersByName) {
  const TRef<IJsonObject> object = Json(u"{'a':1,'b':'x','n':null,'t':true,'r':[[]]}")->Obj();
  const std::vector<u16string_view> names{u"z", u"t", u"b"};
  string text = u"before";
  int64_t number = 7;
  // The first name that is there decides, and what fails empties the argument.
  EXPECT_FALSE(object->GetString({u"n", u"b"}, text) || !text.empty());
  EXPECT_TRUE(object->GetString({u"a", u"b"}, text) && text == u"1");
  EXPECT_FALSE(object->GetInteger(u"b", number) || number != 0);
  string log;
  const auto found = [&](const auto& value) { log += Shown(value) + u" "; };
  const auto missed = [&] { log += u"- "; };
  IJsonObject& chained = object->ForInteger(u"a", found, missed)
                             .ForReal({u"z", u"a"}, found, missed)
                             .ForString({u"n", u"b"}, found, missed)
                             .ForBoolean(names, found)
                             .ForObject(u"z", found, missed)
                             .ForObject(u"z", found, TProc<>())
                             .ForArray(u"r", found);
  EXPECT_EQ(object.Get(), &chained);
  EXPECT_EQ(u"1 1 - true - it ", log);
  EXPECT_THROW(object->ForArray(u"r", TProc<TRef<IJsonArray>>()), EAssertionFailed);
}

TEST(JsonElementTest, AnswersMayReplaceWhatWasAsked) {
  // The name stands in the out argument, and the out argument is all that keeps the asked alive.
  const auto root = Json(u"{'b':'c','o':{'o':{'x':1}},'r':[[[2]]]}");
  string text = u"b";
  EXPECT_TRUE(root->Obj()->GetString(text, text));
  EXPECT_EQ(u"c", text);
  TRef<IJsonObject> object = Unpack(root->CreateCopy())->Obj();
  TRef<IJsonArray> array = object->Items(u"r")->Arr();
  object->Remove(u"r");
  root->Obj()->Clear();
  EXPECT_TRUE(object->GetObject(u"o", object) && object->GetObject(u"o", object));
  EXPECT_TRUE(object->ContainsKey(u"x"));
  EXPECT_FALSE(object->GetObject(u"x", object) || object);
  EXPECT_TRUE(array[0]->GetArray(array) && array[0]->GetArray(array));
  EXPECT_FALSE(array[0]->GetArray(array) || array);
}

/// Values that differ from each other, among them those that look alike.
std::vector<TRef<IJsonElement>> Differing() {
  const auto parsed =
      Json(
          u"[null,true,false,-1,-2,1,18446744073709551615,1.0,'1','\\uDC00',[],[[]],[1],[-1],[1,1],"
          u"{},{'a':1},{'b':1},{'a':2,'b':1},{'a':{},'b':[]},{'a':[],'b':{}}]")
          ->Arr();
  std::vector<TRef<IJsonElement>> values(parsed->begin(), parsed->end());
  values.push_back(TDoubleJsonElement::Make(NotANumber));
  return values;
}

TEST(JsonElementTest, EqualityCopyAndAssignAreStrictByKind) {
  const auto left = Differing(), right = Differing();
  for (size_t i = 0; i < left.size(); ++i) {
    const auto copy = left[i]->CreateCopy();
    EXPECT_TRUE(copy != left[i] && copy->ElementEquals(left[i])) << i;
    for (size_t j = 0; j < right.size(); ++j) {
      EXPECT_EQ(i == j, left[i]->ElementEquals(right[j])) << i << " and " << j;
      const auto target = Differing()[j];
      const bool isOfOneKind = target->GetInstance()->Kind() == left[i]->GetInstance()->Kind();
      target->Assign(left[i]);
      EXPECT_TRUE(target->ElementEquals(isOfOneKind ? left[i] : right[j])) << i << " to " << j;
    }
    EXPECT_FALSE(left[i]->ElementEquals(nullptr));
    left[i]->Assign(nullptr);
    EXPECT_TRUE(left[i]->ElementEquals(copy)) << i;
  }
  EXPECT_TRUE(TDoubleJsonElement::Make(0.0)->ElementEquals(TDoubleJsonElement::Make(-0.0)));
}

TEST(JsonElementTest, ChangeIsWhatTheOtherLacks) {
  const u16string_view cases[][3] = {
      {u"{'a':1,'b':2}", u"{'a':1,'b':3,'c':4}", u"{'b':u2}"},
      {u"{'a':1}", u"{'c':4,'a':1}", u"{}"},
      {u"{'a':{'x':1,'y':2}}", u"{'a':{'x':1}}", u"{'a':{'x':u1,'y':u2}}"},
      {u"{'a':1,'b':[2]}", u"{'b':[2],'a':1}", u"none"},
      {u"[1,2]", u"{}", u"[u1,u2]"},
      {u"5", u"5.0", u"u5"},
      {u"5", u"5", u"none"}};
  TRef<IJsonElement> change;
  for (const auto& [now, before, expected] : cases) {
    const bool hasChanged = Json(now)->ElementChange(Json(before), change);
    EXPECT_EQ(expected != u"none", hasChanged);
    EXPECT_EQ(Quoted(expected), Describe(change));
  }
  const auto object = Json(u"{'a':[]}");
  EXPECT_TRUE(object->ElementChange(TObjectJsonElement::Make(), change));
  EXPECT_EQ(object->Obj()->Items(u"a"), change->Obj()->Items(u"a"));
  EXPECT_THROW(object->ElementChange(TArrayJsonElement::Make(), change), EAssertionFailed);
  EXPECT_THROW(object->ElementChange(nullptr, change), EAssertionFailed);
  EXPECT_FALSE(change);
}

TEST(JsonElementTest, ChangeMayReplaceWhatWasCompared) {
  for (const u16string_view text : {u"{\"a\":1}", u"[1]"}) {
    const auto is = JsonParser::Parse(text);
    auto self = JsonParser::Parse(text), other = JsonParser::Parse(u"{}");
    EXPECT_TRUE(self->ElementChange(other, self) && self->ElementEquals(is));
    EXPECT_TRUE(is->ElementChange(other, other) && other->ElementEquals(is));
    EXPECT_FALSE(is->ElementChange(other, other) || other);
  }
}

TEST(JsonElementTest, BuildingSharesWhatIsGiven) {
  const auto list = TJsonArray::Make();
  const auto number = TIntegerJsonElement::Make(1);
  TArrayJsonElement::Make(list)->Add(number).Add(TNullJsonElement::Make());
  const auto object = TObjectJsonElement::Make(TJsonObject::Make());
  object->Add(u"a", number)
      .Add(u"b", TArrayJsonElement::Make(list))
      .Add(u"a", TArrayJsonElement::Make({number, number}));
  number->Assign(TIntegerJsonElement::Make(-7));
  EXPECT_EQ(u"{\"a\":[i-7,i-7],\"b\":[i-7,null]}", Describe(object));
  EXPECT_THROW(TArrayJsonElement::Make(TRef<IJsonArray>()), EAssertionFailed);
  EXPECT_THROW(TObjectJsonElement::Make(TRef<IJsonObject>()), EAssertionFailed);
}

class TBareElement : public TJsonElement {};

/// A string that is written in brackets and equals every string.
class TLooseElement : public TStringJsonElement {
 public:
  using TStringJsonElement::TStringJsonElement;
  bool ElementEquals(const TRef<IJsonElement>& other) const override {
    string text;
    return other->GetString(text);
  }
  string AsString(const TRef<IJsonFormatter>& formatter) const override {
    return u"(" + TStringJsonElement::AsString(formatter) + formatter->Separator() + u")";
  }
};

TEST(JsonElementTest, TreesAskElementsOfForeignClasses) {
  const TRef<IJsonElement> bare = Create<TBareElement>();
  TRef<IJsonElement> change;
  EXPECT_THROW(bare->CreateCopy(), EAbstractError);
  EXPECT_THROW(bare->ElementChange(bare, change), EAbstractError);
  EXPECT_THROW(bare->AsString(), EAbstractError);
  EXPECT_THROW(bare->Assign(bare), EAbstractError);

  const TRef<IJsonElement> array = TArrayJsonElement::Make({Create<TLooseElement>(u"a/b")});
  EXPECT_EQ(u"[(\"a\\/b\")]", array->AsString());
  EXPECT_EQ(u"[\r\n (\"a\\/b\" )\r\n]", array->AsString(TJsonIndentedFormatter::Make(1)));
  EXPECT_EQ("(\"x\" )", JsonToUtf8(Create<TLooseElement>(u"x"), TJsonIndentedFormatter::Make(1)));
  EXPECT_TRUE(array->ElementEquals(Json(u"['c']")));
  EXPECT_FALSE(Json(u"['c']")->ElementEquals(array));
  const auto packed = Json(u"{'a':['c']}");
  const TRef<IJsonElement> object = TObjectJsonElement::Make()->Add(u"a", array);
  EXPECT_TRUE(packed->ElementEquals(object));  // of members it is the other's that are asked
  EXPECT_FALSE(object->ElementEquals(packed));
}

}  // namespace
}  // namespace Talvo
