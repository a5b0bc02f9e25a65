// SPDX-License-Identifier: Apache-2.0
#pragma once
// JSON elements: a document as a tree of reference-counted objects.
//
//   TRef<IJsonElement> document = JsonParser::Parse(u"{\"name\":\"pump\",\"rates\":[1,2.5]}");
//   string name = document->Obj()->Items(u"name")->Str();
//   double rate = document->Obj()->Items(u"rates")->Arr()[1]->Float();
//
// Every element answers every accessor: as a question (bool, with the out argument cleared
// first), by raising, or by calling back. What the parser makes is a packed tree: the elements
// of an array or object come into being when it is first asked for them. A tree is for one
// thread at a time, even for reading. Trees of any depth are read, written, compared, copied and
// ended without recursion.

#include <talvo/containers/Talvo.Containers.Dictionary.h>
#include <talvo/containers/Talvo.Containers.List.h>
#include <talvo/serialization/json/Errors.h>

namespace Talvo {

class IJsonArray;
class IJsonElement;
class IJsonFormatter;
class IJsonObject;
class TJsonElement;

namespace Detail {

template <class F, class V>
concept JsonFound = std::invocable<F&, const V&>;
template <class F>
concept JsonNotFound = std::is_null_pointer_v<std::remove_cvref_t<F>> || std::invocable<F&>;

template <class F>
void CallIfAssigned(F& onNotFound) {
  if constexpr (!std::is_null_pointer_v<std::remove_cvref_t<F>>) {
    if constexpr (IsFunctionHandle<std::remove_cvref_t<F>>) {
      if (!onNotFound) return;
    }
    onNotFound();
  }
}

/// Calls `onFound` with the value that an element gives as a V, else `onNotFound`.
template <class V, class F, class N>
void ForJsonValue(const IJsonElement& element, F& onFound, N& onNotFound);

[[noreturn]] TALVO_API TALVO_COLD void RaiseWrongJsonKind(TJsonParserError code);

}  // namespace Detail

/// A JSON value of any kind.
class TALVO_API IJsonElement : public virtual IInterface {
  TALVO_INTERFACE(IJsonElement, IInterface);

  // Each family: the question; the value or EJsonException ("Not a string node" and so on); and
  // the call-back form, which answers the element. An empty `onFound` is an assertion failure, an
  // empty `onNotFound` is fine.

  /// The string; a number's or boolean's text too. A double's text has at most 15 digits.
  virtual bool GetString(string& value) const = 0;
  string GetString() const;
  template <Detail::JsonFound<string> F, Detail::JsonNotFound N = std::nullptr_t>
  IJsonElement& ForString(F&& onFound, N&& onNotFound = nullptr) {
    Detail::ForJsonValue<string>(*this, onFound, onNotFound);
    return *this;
  }

  /// An integer element's value; ERangeError for an unsigned one of 2^63 or more.
  virtual bool GetInteger(int64_t& value) const = 0;
  int64_t GetInteger() const;
  template <Detail::JsonFound<int64_t> F, Detail::JsonNotFound N = std::nullptr_t>
  IJsonElement& ForInteger(F&& onFound, N&& onNotFound = nullptr) {
    Detail::ForJsonValue<int64_t>(*this, onFound, onNotFound);
    return *this;
  }

  /// Any number's value as a double.
  virtual bool GetReal(double& value) const = 0;
  double GetReal() const;
  template <Detail::JsonFound<double> F, Detail::JsonNotFound N = std::nullptr_t>
  IJsonElement& ForReal(F&& onFound, N&& onNotFound = nullptr) {
    Detail::ForJsonValue<double>(*this, onFound, onNotFound);
    return *this;
  }

  virtual bool GetBoolean(bool& value) const = 0;
  bool GetBoolean() const;
  template <Detail::JsonFound<bool> F, Detail::JsonNotFound N = std::nullptr_t>
  IJsonElement& ForBoolean(F&& onFound, N&& onNotFound = nullptr) {
    Detail::ForJsonValue<bool>(*this, onFound, onNotFound);
    return *this;
  }

  /// The object that the element holds: a reference to it, not a copy.
  virtual bool GetObject(TRef<IJsonObject>& value) const = 0;
  TRef<IJsonObject> GetObject() const;
  template <Detail::JsonFound<TRef<IJsonObject>> F, Detail::JsonNotFound N = std::nullptr_t>
  IJsonElement& ForObject(F&& onFound, N&& onNotFound = nullptr) {
    Detail::ForJsonValue<TRef<IJsonObject>>(*this, onFound, onNotFound);
    return *this;
  }

  /// The array that the element holds: a reference to it, not a copy.
  virtual bool GetArray(TRef<IJsonArray>& value) const = 0;
  TRef<IJsonArray> GetArray() const;
  template <Detail::JsonFound<TRef<IJsonArray>> F, Detail::JsonNotFound N = std::nullptr_t>
  IJsonElement& ForArray(F&& onFound, N&& onNotFound = nullptr) {
    Detail::ForJsonValue<TRef<IJsonArray>>(*this, onFound, onNotFound);
    return *this;
  }

  /// The implementing object; lives as long as this element.
  virtual TJsonElement* GetInstance() const = 0;
  /// A new element of the same class and value. The copy of an array is deep; the copy of an object
  /// shares its members with it.
  virtual TRef<IJsonElement> CreateCopy() const = 0;
  /// Whether both are of one kind and of equal value: an integer 1, an unsigned 1 and a double 1
  /// all differ. Objects are equal whatever the order of their members.
  virtual bool ElementEquals(const TRef<IJsonElement>& other) const = 0;
  /// False and an empty `change` when equal. Otherwise `change` is a copy of this element; of an
  /// object, a new one with the members that `other`, which must be an object, lacks or holds
  /// differently. One level deep: a changed child is taken whole.
  virtual bool ElementChange(const TRef<IJsonElement>& other, TRef<IJsonElement>& change) const = 0;
  /// The JSON text; without a formatter, the compact one. See Formatter.h.
  virtual string AsString(const TRef<IJsonFormatter>& formatter) const = 0;
  string AsString() const;
  /// Takes the value of an element of the same kind, of any other nothing. Arrays and objects are
  /// cleared first and then filled with copies, so one assigned from itself ends up empty.
  virtual void Assign(const TRef<IJsonElement>& other) = 0;

  // The raising forms, short.
  TRef<IJsonObject> Obj() const;
  TRef<IJsonArray> Arr() const;
  string Str() const;
  int64_t Int() const;
  double Float() const;
};

namespace Detail {

inline bool GetJsonValue(const IJsonElement& element, string& value) {
  return element.GetString(value);
}
inline bool GetJsonValue(const IJsonElement& element, int64_t& value) {
  return element.GetInteger(value);
}
inline bool GetJsonValue(const IJsonElement& element, double& value) {
  return element.GetReal(value);
}
inline bool GetJsonValue(const IJsonElement& element, bool& value) {
  return element.GetBoolean(value);
}
inline bool GetJsonValue(const IJsonElement& element, TRef<IJsonObject>& value) {
  return element.GetObject(value);
}
inline bool GetJsonValue(const IJsonElement& element, TRef<IJsonArray>& value) {
  return element.GetArray(value);
}

template <class V, class F, class N>
void ForJsonValue(const IJsonElement& element, F& onFound, N& onNotFound) {
  AssertCallable(onFound);
  V value{};
  if (GetJsonValue(element, value)) {
    onFound(std::as_const(value));
  } else {
    CallIfAssigned(onNotFound);
  }
}

}  // namespace Detail

/// A list of elements.
class TALVO_API IJsonArray
    : public TListVerbs<TRef<IJsonElement>, IJsonArray, IArrayList<TRef<IJsonElement>>> {
  TALVO_INTERFACE(IJsonArray, IArrayList<TRef<IJsonElement>>);
};

/// Alternative names of one member, tried in this order.
using TJsonNames = std::initializer_list<u16string_view>;

/// Elements by name, in the order in which the names came. Adds to the dictionary lookups that
/// end at a typed value: by one name, or by alternative names, of which the first that is there
/// decides. A member of another kind counts as not found.
class TALVO_API IJsonObject : public TDictionaryVerbs<string, TRef<IJsonElement>, IJsonObject,
                                                      IDictionary<string, TRef<IJsonElement>>> {
  TALVO_INTERFACE(IJsonObject, IDictionary<string, TRef<IJsonElement>>);

#define TALVO_JSON_LOOKUPS(Kind, TType)                                                \
  bool Get##Kind(u16string_view name, TType& value) const {                            \
    return Lookup(name, value);                                                        \
  }                                                                                    \
  bool Get##Kind(TJsonNames names, TType& value) const {                               \
    return Lookup(names, value);                                                       \
  }                                                                                    \
  template <ContiguousOf<u16string_view> S>                                            \
  bool Get##Kind(const S& names, TType& value) const {                                 \
    return Lookup(names, value);                                                       \
  }                                                                                    \
  template <Detail::JsonFound<TType> F, Detail::JsonNotFound N = std::nullptr_t>       \
  IJsonObject& For##Kind(u16string_view name, F&& onFound, N&& onNotFound = nullptr) { \
    return ForMember<TType>(name, onFound, onNotFound);                                \
  }                                                                                    \
  template <Detail::JsonFound<TType> F, Detail::JsonNotFound N = std::nullptr_t>       \
  IJsonObject& For##Kind(TJsonNames names, F&& onFound, N&& onNotFound = nullptr) {    \
    return ForMember<TType>(names, onFound, onNotFound);                               \
  }                                                                                    \
  template <ContiguousOf<u16string_view> S, Detail::JsonFound<TType> F,                \
            Detail::JsonNotFound N = std::nullptr_t>                                   \
  IJsonObject& For##Kind(const S& names, F&& onFound, N&& onNotFound = nullptr) {      \
    return ForMember<TType>(names, onFound, onNotFound);                               \
  }

  TALVO_JSON_LOOKUPS(String, string)
  TALVO_JSON_LOOKUPS(Integer, int64_t)
  TALVO_JSON_LOOKUPS(Real, double)
  TALVO_JSON_LOOKUPS(Boolean, bool)
  TALVO_JSON_LOOKUPS(Object, TRef<IJsonObject>)
  TALVO_JSON_LOOKUPS(Array, TRef<IJsonArray>)
#undef TALVO_JSON_LOOKUPS

 private:
  bool FindMember(u16string_view name, TRef<IJsonElement>& member) const;
  template <class S>
  bool FindMember(const S& names, TRef<IJsonElement>& member) const {
    for (const u16string_view name : names) {
      if (FindMember(name, member)) return true;
    }
    return false;
  }
  template <class Names, class V>
  bool Lookup(const Names& names, V& value) const {
    // The search comes first: `value` may hold the name, or the last reference to this object.
    TRef<IJsonElement> member;
    FindMember(names, member);
    value = V{};
    return member && Detail::GetJsonValue(*member, value);
  }
  template <class V, class Names, class F, class N>
  IJsonObject& ForMember(const Names& names, F& onFound, N& onNotFound) {
    Detail::AssertCallable(onFound);
    TRef<IJsonElement> member;
    FindMember(names, member);
    if (member) {
      Detail::ForJsonValue<V>(*member, onFound, onNotFound);
    } else {
      Detail::CallIfAssigned(onNotFound);
    }
    return *this;
  }
};

}  // namespace Talvo
