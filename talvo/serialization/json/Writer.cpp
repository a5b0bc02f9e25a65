// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Writer.h>

#include <algorithm>
#include <vector>
#include <talvo/serialization/json/Tape.h>

namespace Talvo::Detail {
namespace {

template <class TUnit>
class TWriter final : public TJsonOutput<TUnit> {
 public:
  TWriter(TJsonSink<TUnit>& sink, const TRef<IJsonFormatter>& formatter, TSurrogates surrogates)
      : TJsonOutput<TUnit>(sink, surrogates), FGivenFormatter(formatter) {
    const IJsonFormatter* given = formatter.Get();
    if (given && typeid(*given) != typeid(TJsonFormatter)) FFormatter = formatter.Get();
  }

  /// Writes an element as any other in a tree.
  void Run(const TJsonElement& root) {
    WriteChild(TJsonValueRef(&root));
    WriteOpen();
  }
  /// Writes an element by its kind, whatever its class: what its AsString comes down to.
  void RunByKind(const TJsonElement& root) {
    WriteValue(TJsonValueRef(&root));
    WriteOpen();
  }

 private:
  using TBase = TJsonOutput<TUnit>;
  using TBase::Put;
  using TBase::PutNumber;
  using TBase::PutRaw;
  using TBase::PutString;

  /// A container that is being written.
  struct TOpen : TJsonWalk {
    int32_t Length;
    size_t Start;  // units in front of it
  };
  /// The formatter's texts for one, asked for once.
  struct TIndents {
    string Entry, Colon;
  };
  /// A value that is written packed: its nodes, and the units in front of it.
  struct TPacked {
    size_t First, At, End, Start;
  };
  /// A container inside a packed value.
  struct TOpenNodes {
    size_t End;
    bool IsObject;
  };

  /// Writes what is left of the containers on the stack.
  void WriteOpen() {
    while (FStack.Count() > 0) {
      TJsonWalk& container = FStack.Last();
      if (container.Remaining == 0) {
        EndContainer();
      } else if (container.IsObject) {
        WriteMember(container);
      } else {
        WriteItem(container);
      }
    }
    this->Finish();
  }

  /// Writes a value; an element that is not plain is asked for its text.
  void WriteChild(const TJsonValueRef& value) {
    if (value.IsEmpty()) return Put("null");
    if (!value.Live || IsPlain(*value.Live)) return WriteValue(value);
    if (!FGivenFormatter) FGivenFormatter = TJsonFormatter::Make();
    PutRaw(value.Live->AsString(FGivenFormatter));
  }

  void WriteValue(const TJsonValueRef& value) {
    const TJsonKind kind = value.Kind();
    if (value.IsPacked() && !FFormatter) return WriteNodes(*value.Tape, value.Node);
    if (kind == TJsonKind::Array) return BeginArray(value);
    if (kind == TJsonKind::Object) return BeginObject(value);
    if (!value.IsPacked()) return WriteScalar(value.Live, kind);
    WriteScalar(*value.Tape, value.At());
  }

  void WriteScalar(const TJsonElement* element, TJsonKind kind) {
    switch (kind) {
      case TJsonKind::Boolean:
        return PutBoolean(LiveValue<TBooleanJsonElement>(element));
      case TJsonKind::Integer:
        return this->template PutNumber<WriteInteger>(LiveValue<TIntegerJsonElement>(element));
      case TJsonKind::Unsigned:
        return this->template PutNumber<WriteUnsigned>(
            LiveValue<TUnsignedIntegerJsonElement>(element));
      case TJsonKind::Double:
        return this->template PutNumber<WriteFloat>(LiveValue<TDoubleJsonElement>(element));
      case TJsonKind::String:
        return PutString(LiveValue<TStringJsonElement>(element));
      default:
        return Put("null");
    }
  }

  void WriteScalar(const TJsonTape& tape, const TTapeNode& node) {
    switch (node.Kind) {
      case TJsonKind::Boolean:
        return PutBoolean(node.Boolean);
      case TJsonKind::Integer:
        return this->template PutNumber<WriteInteger>(node.Integer);
      case TJsonKind::Unsigned:
        return this->template PutNumber<WriteUnsigned>(node.Unsigned);
      case TJsonKind::Double:
        return this->template PutNumber<WriteFloat>(node.Real);
      case TJsonKind::String:
        return PutString(tape.Text(node), /*isPadded*/ true);
      default:
        return Put("null");
    }
  }

  void PutBoolean(bool value) { return value ? Put("true") : Put("false"); }

  /// The compact text of a packed value. The nodes stand in the order of the text, so one walk over
  /// them does it.
  void WriteNodes(const TJsonTape& tape, size_t node) {
    FTapes.Hold(&tape, FLastTape);
    FLastTape = &tape;
    FPacked = {node, node, tape.After(node), this->Count()};
    for (;;) {
      if (FOpenNodes.Count() > 0 && FOpenNodes.Last().IsObject) {
        PutKey(tape.Text(tape.Nodes[node++]), /*isPadded*/ true);
      }
      const TTapeNode& value = tape.Nodes[node];
      const bool isObject = value.Kind == TJsonKind::Object;
      if (value.IsContainer()) {
        Put(isObject ? '{' : '[');
        FOpenNodes.Add({node + value.Size, isObject});
        ++node;
        if (value.Length > 0) continue;
      } else {
        WriteScalar(tape, value);
        ++node;
      }
      CloseNodes(node);
      if (FOpenNodes.Count() == 0) break;
      Put(',');
      FPacked.At = node;
    }
    FPacked = {};
  }

  /// Ends the containers inside a packed value that end in front of `node`.
  void CloseNodes(size_t node) {
    while (FOpenNodes.Count() > 0 && FOpenNodes.Last().End == node) {
      Put(FOpenNodes.Last().IsObject ? '}' : ']');
      FOpenNodes.SetCount(FOpenNodes.Count() - 1);
    }
  }

  void BeginArray(const TJsonValueRef& value) {
    const TJsonWalk items(value);
    if (items.Remaining == 0) return Put("[]");
    Push(items);
    if (FFormatter) PutRaw(FFormatter->BeginArrayIndent());
    Put('[');
    if (FFormatter) FIndents.push_back({FFormatter->ObjectEntryIndent(), {}});
  }

  void BeginObject(const TJsonValueRef& value) {
    Push(TJsonWalk(value));
    if (FFormatter) PutRaw(FFormatter->BeginObjectIndent());
    Put('{');
    if (!FFormatter) return;
    string colon = u"\":" + FFormatter->Separator();
    FIndents.push_back({FFormatter->ObjectEntryIndent(), std::move(colon)});
  }

  void Push(const TJsonWalk& container) {
    FTapes.Hold(container.Tape, FStack.Count() > 0 ? FStack.Last().Tape : nullptr);
    FStack.Add({container, container.Remaining, this->Count()});
  }

  void EndContainer() {
    const bool isObject = FStack.Last().IsObject;
    FStack.SetCount(FStack.Count() - 1);
    if (FFormatter) {
      FIndents.pop_back();
      PutRaw(isObject ? FFormatter->EndObjectIndent() : FFormatter->EndArrayIndent());
    }
    Put(isObject ? '}' : ']');
  }

  void BeginEntry(const TJsonWalk& container) {
    if (!container.IsAtStart) Put(',');
    if (FFormatter) PutRaw(FIndents.back().Entry);
  }

  void WriteItem(TJsonWalk& array) {
    BeginEntry(array);
    WriteChild(array.NextItem());
  }

  void WriteMember(TJsonWalk& object) {
    BeginEntry(object);
    u16string_view key;
    const TJsonValueRef value = object.NextMember(key);
    PutKey(key, /*isPadded*/ object.Tape != nullptr);
    WriteChild(value);
  }

  void PutKey(u16string_view key, bool isPadded) {
    Put('"');
    PutRaw(key, isPadded);
    if (FFormatter) return PutRaw(FIndents.back().Colon);
    Put("\":");
  }

  /// As if what is left of each open container were like what is written of it.
  double Remaining() const override {
    constexpr size_t enough = 8;  // what is further down weighs little
    double remaining =
        UnitsFor(FPacked.End - FPacked.At, FPacked.At - FPacked.First, FPacked.Start);
    for (size_t i = 0; i < std::min(FStack.Count(), enough); ++i) {
      const TOpen& open = FStack[i];
      remaining += UnitsFor(open.Remaining, open.Length - open.Remaining - 1, open.Start);
    }
    return remaining;
  }
  /// What `items` more take, as `done` of them took all since `start`.
  double UnitsFor(double items, double done, size_t start) const {
    return done > 0 ? static_cast<double>(this->Count() - start) / done * items : 0;
  }

  TRef<IJsonFormatter> FGivenFormatter;
  IJsonFormatter* FFormatter = nullptr;  // null for the compact text, which asks nobody
  TTapeBuffer<TOpen> FStack;
  std::vector<TIndents> FIndents;
  TTapeBuffer<TOpenNodes> FOpenNodes;
  TPacked FPacked = {};
  TJsonHeldTapes FTapes;
  const TJsonTape* FLastTape = nullptr;  // held
};

}  // namespace

void WriteJsonText(TJsonSink<char>& sink, const TJsonElement& element,
                   const TRef<IJsonFormatter>& formatter, TSurrogates surrogates) {
  TWriter<char>(sink, formatter, surrogates).Run(element);
}

string JsonText(const TJsonElement& element, const TRef<IJsonFormatter>& formatter) {
  TJsonStringSink<char16_t> sink;
  TWriter<char16_t>(sink, formatter, TSurrogates::Keep).RunByKind(element);
  return std::move(sink.Text);
}

}  // namespace Talvo::Detail
