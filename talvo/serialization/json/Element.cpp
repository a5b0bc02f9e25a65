// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Element.h>

#include <talvo/runtime/Numbers.h>
#include <talvo/serialization/json/Compare.h>
#include <talvo/serialization/json/Writer.h>

namespace Talvo {

EJsonException::~EJsonException() = default;

void Detail::RaiseWrongJsonKind(TJsonParserError code) {
  static constexpr u16string_view messages[] = {u"Not a string node",  u"Not an integer node",
                                                u"Not a Real node",    u"Not a Boolean node",
                                                u"Not an Object node", u"Not an Array node"};
  throw EJsonException(code, messages[static_cast<size_t>(code)]);
}

namespace {

template <class V>
V Required(bool isGiven, V&& value, TJsonParserError code) {
  if (!isGiven) Detail::RaiseWrongJsonKind(code);
  return std::forward<V>(value);
}

template <class TElement>
const auto& ValueOf(const TJsonElement& element) {
  return static_cast<const TElement&>(element).Value();
}

}  // namespace

#define TALVO_REQUIRED_ACCESSOR(Kind, TType, Code)                      \
  TType IJsonElement::Get##Kind() const {                               \
    TType value{};                                                      \
    const bool isGiven = Get##Kind(value);                              \
    return Required(isGiven, std::move(value), TJsonParserError::Code); \
  }
TALVO_REQUIRED_ACCESSOR(String, string, NotStringNode)
TALVO_REQUIRED_ACCESSOR(Integer, int64_t, NotIntegerNode)
TALVO_REQUIRED_ACCESSOR(Real, double, NotRealNode)
TALVO_REQUIRED_ACCESSOR(Boolean, bool, NotBooleanNode)
TALVO_REQUIRED_ACCESSOR(Object, TRef<IJsonObject>, NotObjectNode)
TALVO_REQUIRED_ACCESSOR(Array, TRef<IJsonArray>, NotArrayNode)
#undef TALVO_REQUIRED_ACCESSOR

TRef<IJsonObject> IJsonElement::Obj() const {
  return GetObject();
}
TRef<IJsonArray> IJsonElement::Arr() const {
  return GetArray();
}
string IJsonElement::Str() const {
  return GetString();
}
int64_t IJsonElement::Int() const {
  return GetInteger();
}
double IJsonElement::Float() const {
  return GetReal();
}
string IJsonElement::AsString() const {
  return AsString(nullptr);
}

bool IJsonObject::FindMember(u16string_view name, TRef<IJsonElement>& member) const {
  return this->GetValue(name, member);
}

bool TJsonElement::GetString(string& value) const {
  value.clear();
  switch (FKind) {
    case TJsonKind::String:
      value = ValueOf<TStringJsonElement>(*this);
      return true;
    case TJsonKind::Integer:
      value = IntToStr(ValueOf<TIntegerJsonElement>(*this));
      return true;
    case TJsonKind::Unsigned:
      value = UIntToStr(ValueOf<TUnsignedIntegerJsonElement>(*this));
      return true;
    case TJsonKind::Double:
      value = FloatToStr(ValueOf<TDoubleJsonElement>(*this));
      return true;
    case TJsonKind::Boolean:
      value = ValueOf<TBooleanJsonElement>(*this) ? u"true" : u"false";
      return true;
    default:
      return false;
  }
}

bool TJsonElement::GetInteger(int64_t& value) const {
  value = 0;
  if (FKind == TJsonKind::Integer) {
    value = ValueOf<TIntegerJsonElement>(*this);
    return true;
  }
  if (FKind != TJsonKind::Unsigned) return false;
  const uint64_t held = ValueOf<TUnsignedIntegerJsonElement>(*this);
  if (held > INT64_MAX) RaiseRangeError();
  value = static_cast<int64_t>(held);
  return true;
}

bool TJsonElement::GetReal(double& value) const {
  value = 0;
  switch (FKind) {
    case TJsonKind::Double:
      value = ValueOf<TDoubleJsonElement>(*this);
      return true;
    case TJsonKind::Integer:
      value = static_cast<double>(ValueOf<TIntegerJsonElement>(*this));
      return true;
    case TJsonKind::Unsigned:
      value = static_cast<double>(ValueOf<TUnsignedIntegerJsonElement>(*this));
      return true;
    default:
      return false;
  }
}

bool TJsonElement::GetBoolean(bool& value) const {
  value = FKind == TJsonKind::Boolean && ValueOf<TBooleanJsonElement>(*this);
  return FKind == TJsonKind::Boolean;
}

bool TJsonElement::GetObject(TRef<IJsonObject>& value) const {
  const bool isObject = FKind == TJsonKind::Object;
  // `value` may be what keeps this element alive: it is let go last.
  value = isObject ? ValueOf<TObjectJsonElement>(*this) : TRef<IJsonObject>();
  return isObject;
}

bool TJsonElement::GetArray(TRef<IJsonArray>& value) const {
  const bool isArray = FKind == TJsonKind::Array;
  value = isArray ? ValueOf<TArrayJsonElement>(*this) : TRef<IJsonArray>();
  return isArray;
}

bool TJsonElement::ElementEquals(const TRef<IJsonElement>& other) const {
  if (FKind == TJsonKind::Other) RaiseAbstractError();
  return Detail::AreEqual(*this, other ? other->GetInstance() : nullptr);
}

bool TJsonElement::ElementChange(const TRef<IJsonElement>& other,
                                 TRef<IJsonElement>& change) const {
  // `change` may be `other`, or all that keeps this element alive.
  const TRef<IJsonElement> compared = other;
  const TRef<IJsonElement> outgoing = std::exchange(change, nullptr);
  if (ElementEquals(compared)) return false;
  change = CreateCopy();
  return true;
}

string TJsonElement::AsString(const TRef<IJsonFormatter>& formatter) const {
  if (FKind == TJsonKind::Other) RaiseAbstractError();
  return Detail::JsonText(*this, formatter);
}

void TJsonElement::Assign(const TRef<IJsonElement>&) {
  RaiseAbstractError();
}

bool TNullJsonElement::ElementEquals(const TRef<IJsonElement>& other) const {
  const TJsonElement* instance = other ? other->GetInstance() : nullptr;
  return instance && instance->Kind() == TJsonKind::Null;
}

string FloatToJson(double value) {
  return FloatToStr(value);
}

}  // namespace Talvo
