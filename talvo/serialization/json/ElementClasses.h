// SPDX-License-Identifier: Apache-2.0
#pragma once
// The classes of JSON elements. A descendant of one of them that holds more than its base
// overrides CreateCopy, ElementEquals, Assign and AsString, which trees then call for it: of such
// containers, as many can stand inside each other as the machine stack has room for.

#include <talvo/serialization/json/Element.h>

namespace Talvo {
namespace Detail {
struct TJsonAccess;
}

/// What an element holds. Descendants of an element class are of its kind.
enum class TJsonKind : uint8_t {
  Other,
  Null,
  Boolean,
  Integer,
  Unsigned,
  Double,
  String,
  Array,
  Object
};

/// The base of all elements: the accessors by kind. The rest is abstract and raises
/// EAbstractError.
class TALVO_API TJsonElement : public TImplements<TBasicInterfacedObject, IJsonElement> {
 public:
  TJsonKind Kind() const noexcept { return FKind; }

  using IJsonElement::AsString;
  using IJsonElement::GetArray;
  using IJsonElement::GetBoolean;
  using IJsonElement::GetInteger;
  using IJsonElement::GetObject;
  using IJsonElement::GetReal;
  using IJsonElement::GetString;
  bool GetString(string& value) const override;
  bool GetInteger(int64_t& value) const override;
  bool GetReal(double& value) const override;
  bool GetBoolean(bool& value) const override;
  bool GetObject(TRef<IJsonObject>& value) const override;
  bool GetArray(TRef<IJsonArray>& value) const override;
  TJsonElement* GetInstance() const override { return const_cast<TJsonElement*>(this); }

  TRef<IJsonElement> CreateCopy() const override { RaiseAbstractError(); }
  bool ElementEquals(const TRef<IJsonElement>& other) const override;
  bool ElementChange(const TRef<IJsonElement>& other, TRef<IJsonElement>& change) const override;
  string AsString(const TRef<IJsonFormatter>& formatter) const override;
  void Assign(const TRef<IJsonElement>& other) override;

 protected:
  explicit TJsonElement(TJsonKind kind = TJsonKind::Other) noexcept : FKind(kind) {}

 private:
  const TJsonKind FKind;
};

/// null.
class TALVO_API TNullJsonElement : public TJsonElement {
 public:
  TNullJsonElement() noexcept : TJsonElement(TJsonKind::Null) {}
  static TRef<IJsonElement> Make() { return Create<TNullJsonElement>(); }
  TRef<IJsonElement> CreateCopy() const override { return Make(); }
  bool ElementEquals(const TRef<IJsonElement>& other) const override;
  void Assign(const TRef<IJsonElement>&) override {}
};

/// An element with a value of type T.
template <class T>
class TTypedJsonElement : public TJsonElement {
 public:
  const T& Value() const {
    if constexpr (IsReference<T>) {
      if (!FValue) Unpack();
    }
    return FValue;
  }

 protected:
  TTypedJsonElement(TJsonKind kind, T value) : TJsonElement(kind), FValue(std::move(value)) {}
  /// Makes the value of an element that still stands packed in its document.
  virtual void Unpack() const {}

  mutable T FValue;
};

/// An element with a plain value; `Self` is the element's class and `K` its kind.
template <class T, class Self, TJsonKind K>
class TScalarJsonElement : public TTypedJsonElement<T> {
 public:
  explicit TScalarJsonElement(T value) : TTypedJsonElement<T>(K, std::move(value)) {}
  static TRef<IJsonElement> Make(T value) { return Create<Self>(std::move(value)); }
  TRef<IJsonElement> CreateCopy() const override { return Make(this->FValue); }
  bool ElementEquals(const TRef<IJsonElement>& other) const override {
    const Self* same = OfThisKind(other);
    return same && DefaultCompare(this->FValue, same->FValue) == 0;
  }
  void Assign(const TRef<IJsonElement>& other) override {
    const Self* same = OfThisKind(other);
    if (same) this->FValue = same->FValue;
  }

 private:
  static const Self* OfThisKind(const TRef<IJsonElement>& other) {
    const TJsonElement* instance = other ? other->GetInstance() : nullptr;
    return instance && instance->Kind() == K ? static_cast<const Self*>(instance) : nullptr;
  }
};

/// true or false.
class TALVO_API TBooleanJsonElement
    : public TScalarJsonElement<bool, TBooleanJsonElement, TJsonKind::Boolean> {
 public:
  using TScalarJsonElement::TScalarJsonElement;
};

/// An integer of 64 bits with a sign; what the parser makes of "-5".
class TALVO_API TIntegerJsonElement
    : public TScalarJsonElement<int64_t, TIntegerJsonElement, TJsonKind::Integer> {
 public:
  using TScalarJsonElement::TScalarJsonElement;
};

/// An integer of 64 bits without a sign; what the parser makes of "5".
class TALVO_API TUnsignedIntegerJsonElement
    : public TScalarJsonElement<uint64_t, TUnsignedIntegerJsonElement, TJsonKind::Unsigned> {
 public:
  using TScalarJsonElement::TScalarJsonElement;
};

/// A floating-point number. NaN and the infinities can be held; their text is not JSON (see
/// IsValidJson).
class TALVO_API TDoubleJsonElement
    : public TScalarJsonElement<double, TDoubleJsonElement, TJsonKind::Double> {
 public:
  using TScalarJsonElement::TScalarJsonElement;
};

/// A text. NUL units and lone surrogates are held like any other.
class TALVO_API TStringJsonElement
    : public TScalarJsonElement<string, TStringJsonElement, TJsonKind::String> {
 public:
  using TScalarJsonElement::TScalarJsonElement;
};

/// The list behind an array element.
class TALVO_API TJsonArray : public TInterfaceArrayListIntf<TRef<IJsonElement>, IJsonArray>,
                             public TListMakers<TJsonArray, TRef<IJsonElement>, IJsonArray> {
 public:
  ~TJsonArray() override;
};

/// The dictionary behind an object element.
class TALVO_API TJsonObject : public TDictionaryIntf<string, TRef<IJsonElement>, IJsonObject> {
 public:
  ~TJsonObject() override;
  static TRef<IJsonObject> Make() { return Create<TJsonObject>(); }

 private:
  friend struct Detail::TJsonAccess;
};

/// The base of elements that hold a container. The value is wrapped, not copied; the flag keeps
/// the plain value constructor from being taken by mistake.
template <class T>
class TArrayNoCreateElement : public TTypedJsonElement<T> {
 protected:
  TArrayNoCreateElement(TJsonKind kind, T value, bool /*isWrapped*/)
      : TTypedJsonElement<T>(kind, std::move(value)) {}

  /// The packed document and the place in it that the value is still to be made from.
  mutable TRef<TInterfacedObject> FTape;
  size_t FNode = 0;
  friend struct Detail::TJsonAccess;
};

/// [...]
class TALVO_API TArrayJsonElement : public TArrayNoCreateElement<TRef<IJsonArray>> {
 public:
  /// Wraps the list; asserts that there is one.
  explicit TArrayJsonElement(TRef<IJsonArray> array);
  /// For the parser: an array that stands packed in a document.
  TArrayJsonElement(TRef<TInterfacedObject> tape, size_t node);
  ~TArrayJsonElement() override;

  /// Over a new empty list; over a new list of the given elements; over the given list.
  static TRef<TArrayJsonElement> Make();
  static TRef<TArrayJsonElement> Make(std::initializer_list<TRef<IJsonElement>> elements);
  static TRef<TArrayJsonElement> Make(TRef<IJsonArray> array);
  static TRef<TArrayJsonElement> Create() { return Make(); }
  static TRef<TArrayJsonElement> Create(std::initializer_list<TRef<IJsonElement>> elements) {
    return Make(elements);
  }
  static TRef<TArrayJsonElement> Create(TRef<IJsonArray> array) { return Make(std::move(array)); }

  /// Adds to the list.
  TArrayJsonElement& Add(TRef<IJsonElement> element);

  TRef<IJsonElement> CreateCopy() const override;
  void Assign(const TRef<IJsonElement>& other) override;

 protected:
  void Unpack() const override;
};

/// {...}
class TALVO_API TObjectJsonElement : public TArrayNoCreateElement<TRef<IJsonObject>> {
 public:
  /// Wraps the dictionary; asserts that there is one.
  explicit TObjectJsonElement(TRef<IJsonObject> object);
  /// For the parser: an object that stands packed in a document.
  TObjectJsonElement(TRef<TInterfacedObject> tape, size_t node);
  ~TObjectJsonElement() override;

  /// Over a new empty dictionary; over the given one.
  static TRef<TObjectJsonElement> Make();
  static TRef<TObjectJsonElement> Make(TRef<IJsonObject> object);
  static TRef<TObjectJsonElement> Create() { return Make(); }
  static TRef<TObjectJsonElement> Create(TRef<IJsonObject> object) {
    return Make(std::move(object));
  }

  /// Sets a member of the dictionary.
  TObjectJsonElement& Add(u16string_view key, TRef<IJsonElement> element);

  TRef<IJsonElement> CreateCopy() const override;
  /// Asserts that `other` is an object when they differ.
  bool ElementChange(const TRef<IJsonElement>& other, TRef<IJsonElement>& change) const override;
  void Assign(const TRef<IJsonElement>& other) override;

 protected:
  void Unpack() const override;
};

/// The text of a double in documents: that of FloatToStr.
TALVO_API string FloatToJson(double value);

}  // namespace Talvo
