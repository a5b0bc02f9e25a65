// SPDX-License-Identifier: Apache-2.0
// Array and object elements: how they are made from a packed document, copied, changed and ended.

#include <vector>
#include <talvo/serialization/json/Tape.h>

namespace Talvo {
namespace Detail {
namespace {

/// What ended containers leave behind: ended here one after the other, so that a deep tree does not
/// end by recursion.
struct TRemains {
  std::vector<TArray<TRef<IJsonElement>>> Arrays;
  std::vector<Rtl::TDictionary<string, TRef<IJsonElement>>> Objects;

  void Add(TArray<TRef<IJsonElement>> items) { Arrays.push_back(std::move(items)); }
  void Add(Rtl::TDictionary<string, TRef<IJsonElement>> members) {
    Objects.push_back(std::move(members));
  }
  void EndAll() noexcept {
    while (!Arrays.empty() || !Objects.empty()) {
      if (!Arrays.empty()) {
        const auto ended = std::move(Arrays.back());
        Arrays.pop_back();
      } else {
        const auto ended = std::move(Objects.back());
        Objects.pop_back();
      }
    }
  }
};

// The remains that this thread is ending; a plain pointer, which outlives the thread's statics.
thread_local TRemains* GRemains = nullptr;

template <class TItems>
void EndLater(TItems items) noexcept {
  if (GRemains) {
    try {
      GRemains->Add(std::move(items));
    } catch (const std::bad_alloc&) {
      // No room to put it off: `items` ends here and now.
    }
    return;
  }
  TRemains remains;
  GRemains = &remains;
  { const TItems ended = std::move(items); }
  remains.EndAll();
  GRemains = nullptr;
}

}  // namespace

TRef<IJsonElement> NewElement(const TJsonTape& tape, size_t node) {
  const auto shared = [&tape] {
    return TRef<TInterfacedObject>::Share(const_cast<TJsonTape*>(&tape));
  };
  const TTapeNode& at = tape.Nodes[node];
  switch (at.Kind) {
    case TJsonKind::Boolean:
      return TBooleanJsonElement::Make(at.Boolean);
    case TJsonKind::Integer:
      return TIntegerJsonElement::Make(at.Integer);
    case TJsonKind::Unsigned:
      return TUnsignedIntegerJsonElement::Make(at.Unsigned);
    case TJsonKind::Double:
      return TDoubleJsonElement::Make(at.Real);
    case TJsonKind::String:
      return TStringJsonElement::Make(string(tape.Text(at)));
    case TJsonKind::Array:
      return Create<TArrayJsonElement>(shared(), node);
    case TJsonKind::Object:
      return Create<TObjectJsonElement>(shared(), node);
    default:
      return TNullJsonElement::Make();
  }
}

namespace {

template <class TElement>
void SeePacked(const TElement& element, TJsonValueRef& value) {
  const TJsonTape* tape = TJsonAccess::TapeOf(element);
  if (!tape) return;
  if (tape->HasDuplicates()) {
    element.Value();
    return;
  }
  value = TJsonValueRef(tape, TJsonAccess::NodeOf(element));
}

}  // namespace

bool IsPlain(const TJsonElement& element) {
  const std::type_info& type = typeid(element);
  switch (element.Kind()) {
    case TJsonKind::Null:
      return type == typeid(TNullJsonElement);
    case TJsonKind::Boolean:
      return type == typeid(TBooleanJsonElement);
    case TJsonKind::Integer:
      return type == typeid(TIntegerJsonElement);
    case TJsonKind::Unsigned:
      return type == typeid(TUnsignedIntegerJsonElement);
    case TJsonKind::Double:
      return type == typeid(TDoubleJsonElement);
    case TJsonKind::String:
      return type == typeid(TStringJsonElement);
    case TJsonKind::Array:
      return type == typeid(TArrayJsonElement);
    case TJsonKind::Object:
      return type == typeid(TObjectJsonElement);
    default:
      return false;
  }
}

TJsonValueRef::TJsonValueRef(const TJsonElement* element) : Live(element) {
  if (!element) return;
  if (element->Kind() == TJsonKind::Array) {
    SeePacked(*static_cast<const TArrayJsonElement*>(element), *this);
  } else if (element->Kind() == TJsonKind::Object) {
    SeePacked(*static_cast<const TObjectJsonElement*>(element), *this);
  }
}

}  // namespace Detail

TJsonArray::~TJsonArray() {
  if (!FArray.IsEmpty()) Detail::EndLater(std::move(FArray));
}

TJsonObject::~TJsonObject() {
  if (FDictionary.Count() > 0) Detail::EndLater(std::move(FDictionary));
}

// --- Arrays ---------------------------------------------------------------------------------

TArrayJsonElement::TArrayJsonElement(TRef<IJsonArray> array)
    : TArrayNoCreateElement(TJsonKind::Array, std::move(array), /*isWrapped*/ true) {
  Assert(static_cast<bool>(FValue));
}

TArrayJsonElement::TArrayJsonElement(TRef<TInterfacedObject> tape, size_t node)
    : TArrayNoCreateElement(TJsonKind::Array, nullptr, /*isWrapped*/ true) {
  FTape = std::move(tape);
  FNode = node;
}

TArrayJsonElement::~TArrayJsonElement() = default;

TRef<TArrayJsonElement> TArrayJsonElement::Make() {
  return Make(TJsonArray::Make());
}

TRef<TArrayJsonElement> TArrayJsonElement::Make(
    std::initializer_list<TRef<IJsonElement>> elements) {
  TRef<TArrayJsonElement> made = Make();
  for (const TRef<IJsonElement>& element : elements) made->Add(element);
  return made;
}

TRef<TArrayJsonElement> TArrayJsonElement::Make(TRef<IJsonArray> array) {
  return Talvo::Create<TArrayJsonElement>(std::move(array));
}

TArrayJsonElement& TArrayJsonElement::Add(TRef<IJsonElement> element) {
  Value()->Add(std::move(element));
  return *this;
}

void TArrayJsonElement::Unpack() const {
  const Detail::TJsonTape& tape = *Detail::TJsonAccess::TapeOf(*this);
  const Detail::TTapeNode& array = tape.Nodes[FNode];
  TRef<TJsonArray> list = TJsonArray::CreateSize(Detail::CountOfSize(array.Length));
  const TArray<TRef<IJsonElement>>& items = *list->GetArray();
  size_t node = FNode + 1;
  for (TRef<IJsonElement>& item : items) {
    item = Detail::NewElement(tape, node);
    node = tape.After(node);
  }
  FValue = std::move(list);
  FTape = nullptr;
}

namespace {

/// Whether an element is of the library's own array class, whose copy is made here and not asked
/// for.
const TArrayJsonElement* PlainArray(const TRef<IJsonElement>& element) {
  const TJsonElement* instance = element ? element->GetInstance() : nullptr;
  if (!instance || typeid(*instance) != typeid(TArrayJsonElement)) return nullptr;
  return static_cast<const TArrayJsonElement*>(instance);
}

/// A packed array without objects below it may be shared: nobody can change it, and neither copy
/// holds elements yet. (The copy of an object has to share the members' elements.)
TRef<TArrayJsonElement> SharedCopy(const TArrayJsonElement& array) {
  using TAccess = Detail::TJsonAccess;
  const Detail::TJsonTape* tape = TAccess::TapeOf(array);
  if (!tape || tape->Nodes[TAccess::NodeOf(array)].HasObjects) return nullptr;
  return Create<TArrayJsonElement>(TAccess::ShareTape(array), TAccess::NodeOf(array));
}

TRef<IJsonElement> CopyOf(const TRef<IJsonElement>& element) {
  return element ? element->CreateCopy() : nullptr;
}

/// Adds copies of all items of `source` to `target`, a list of the copy's own; arrays inside arrays
/// are worked off from a list.
void CopyItems(const TRef<IJsonArray>& source, const TRef<IJsonArray>& target) {
  struct TPending {
    TRef<IJsonArray> Source, Target;
  };
  std::vector<TPending> pending{{source, target}};
  while (!pending.empty()) {
    const TPending next = std::move(pending.back());
    pending.pop_back();
    const int32_t count = next.Source->Count();
    next.Target->SetCapacity(CheckedAdd(next.Target->Count(), count), /*allowsTruncation*/ false);
    for (int32_t i = 0; i < count; ++i) {
      const TRef<IJsonElement> item = next.Source->Items(i);
      const TArrayJsonElement* array = PlainArray(item);
      if (!array) {
        next.Target->Append({CopyOf(item)});
      } else if (TRef<TArrayJsonElement> shared = SharedCopy(*array)) {
        next.Target->Append({TRef<IJsonElement>(std::move(shared))});
      } else {
        TRef<TArrayJsonElement> copy = TArrayJsonElement::Make();
        pending.push_back({array->Value(), copy->Value()});
        next.Target->Append({TRef<IJsonElement>(std::move(copy))});
      }
    }
  }
}

}  // namespace

TRef<IJsonElement> TArrayJsonElement::CreateCopy() const {
  if (TRef<TArrayJsonElement> shared = SharedCopy(*this)) return shared;
  TRef<TArrayJsonElement> copy = Make();
  CopyItems(Value(), copy->Value());
  return copy;
}

void TArrayJsonElement::Assign(const TRef<IJsonElement>& other) {
  TRef<IJsonArray> source;
  if (!other || !other->GetArray(source)) return;
  const TRef<IJsonArray> target = Value();
  target->Clear();
  target->SetCapacity(source->Count(), /*allowsTruncation*/ false);
  for (int32_t i = 0; i < source->Count(); ++i) {
    // Each copy is whole before it is added: the target may stand somewhere below the source.
    target->Append({CopyOf(source->Items(i))});
  }
}

// --- Objects --------------------------------------------------------------------------------

TObjectJsonElement::TObjectJsonElement(TRef<IJsonObject> object)
    : TArrayNoCreateElement(TJsonKind::Object, std::move(object), /*isWrapped*/ true) {
  Assert(static_cast<bool>(FValue));
}

TObjectJsonElement::TObjectJsonElement(TRef<TInterfacedObject> tape, size_t node)
    : TArrayNoCreateElement(TJsonKind::Object, nullptr, /*isWrapped*/ true) {
  FTape = std::move(tape);
  FNode = node;
}

TObjectJsonElement::~TObjectJsonElement() = default;

TRef<TObjectJsonElement> TObjectJsonElement::Make() {
  return Make(TJsonObject::Make());
}

TRef<TObjectJsonElement> TObjectJsonElement::Make(TRef<IJsonObject> object) {
  return Talvo::Create<TObjectJsonElement>(std::move(object));
}

TObjectJsonElement& TObjectJsonElement::Add(u16string_view key, TRef<IJsonElement> element) {
  Value()->Add(string(key), std::move(element));
  return *this;
}

void TObjectJsonElement::Unpack() const {
  const Detail::TJsonTape& tape = *Detail::TJsonAccess::TapeOf(*this);
  const Detail::TTapeNode& object = tape.Nodes[FNode];
  TRef<TJsonObject> made = Talvo::Create<TJsonObject>();
  auto& members = Detail::TJsonAccess::DictionaryOf(*made);
  members.Reserve(Detail::CountOfSize(object.Length));
  size_t node = FNode + 1;
  for (uint32_t i = 0; i < object.Length; ++i) {
    members.AddOrSetValue(tape.Text(tape.Nodes[node]), Detail::NewElement(tape, node + 1));
    node = tape.After(node + 1);
  }
  FValue = std::move(made);
  FTape = nullptr;
}

TRef<IJsonElement> TObjectJsonElement::CreateCopy() const {
  TRef<TObjectJsonElement> copy = Make();
  for (const auto& [key, value] : Value()) copy->Value()->Add(key, value);
  return copy;
}

bool TObjectJsonElement::ElementChange(const TRef<IJsonElement>& other,
                                       TRef<IJsonElement>& change) const {
  // `change` may be `other`, or all that keeps this element alive.
  const TRef<IJsonElement> compared = other;
  const TRef<IJsonElement> outgoing = std::exchange(change, nullptr);
  if (ElementEquals(compared)) return false;
  TRef<IJsonObject> before;
  Assert(compared && compared->GetObject(before));
  TRef<TObjectJsonElement> changed = Make();
  for (const auto& [key, value] : Value()) {
    TRef<IJsonElement> old;
    if (!before->GetValue(key, old) || !(old ? old->ElementEquals(value) : !value)) {
      changed->Value()->Add(key, value);
    }
  }
  change = changed;
  return true;
}

void TObjectJsonElement::Assign(const TRef<IJsonElement>& other) {
  TRef<IJsonObject> source;
  if (!other || !other->GetObject(source)) return;
  const TRef<IJsonObject> target = Value();
  target->Clear();
  for (const auto& [key, value] : source) {
    target->Add(key, CopyOf(value));
  }
}

}  // namespace Talvo
