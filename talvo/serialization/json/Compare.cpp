// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Compare.h>

#include <algorithm>
#include <vector>
#include <talvo/serialization/json/Tape.h>

namespace Talvo::Detail {
namespace {

/// Whether two nodes that are no containers, or that only open one, agree.
bool NodesAgree(const TJsonTape& left, size_t l, const TJsonTape& right, size_t r) {
  const TTapeNode& a = left.Nodes[l];
  const TTapeNode& b = right.Nodes[r];
  if (a.Kind != b.Kind || a.Length != b.Length) return false;
  switch (a.Kind) {
    case TJsonKind::Null:
    case TJsonKind::Array:
    case TJsonKind::Object:
      return true;
    case TJsonKind::Boolean:
      return a.Boolean == b.Boolean;
    case TJsonKind::Double:
      return DefaultCompare(a.Real, b.Real) == 0;
    case TJsonKind::String:
      return left.Text(a) == right.Text(b);
    default:
      return a.Unsigned == b.Unsigned;
  }
}

/// Whether two packed trees agree node by node. They may be equal all the same if members stand
/// in another order.
bool TapesAgree(const TJsonValueRef& left, const TJsonValueRef& right) {
  const size_t size = left.Tape->After(left.Node) - left.Node;
  if (right.Tape->After(right.Node) - right.Node != size) return false;
  for (size_t i = 0; i < size; ++i) {
    if (!NodesAgree(*left.Tape, left.Node + i, *right.Tape, right.Node + i)) return false;
  }
  return true;
}

/// Finds members of an object by name; quickest in the order in which they stand.
class TMemberFinder {
 public:
  explicit TMemberFinder(const TJsonValueRef& object) : FObject(object) {
    if (object.IsPacked()) FNext = object.Node + 1;
  }

  bool Find(u16string_view key, TJsonValueRef& value) {
    if (!FObject.IsPacked()) {
      const TRef<IJsonElement>* member = MembersOf(FObject.Live).Find(key);
      if (member) value = RefTo(*member);
      return member != nullptr;
    }
    const TJsonTape& tape = *FObject.Tape;
    size_t node = FNext;
    if (node >= tape.After(FObject.Node) || tape.Text(tape.Nodes[node]) != key) {
      node = FindBySearch(key);
      if (node == 0) return false;
    }
    FNext = tape.After(node + 1);
    value = TJsonValueRef(&tape, node + 1);
    return true;
  }

 private:
  /// The node of a key, or 0, which is no key.
  size_t FindBySearch(u16string_view key) {
    const TJsonTape& tape = *FObject.Tape;
    if (FSorted.empty()) {
      const size_t end = tape.After(FObject.Node);
      for (size_t node = FObject.Node + 1; node < end; node = tape.After(node + 1)) {
        FSorted.emplace_back(tape.Text(tape.Nodes[node]), node);
      }
      std::sort(FSorted.begin(), FSorted.end());
    }
    const auto at =
        std::lower_bound(FSorted.begin(), FSorted.end(), std::pair<u16string_view, size_t>(key, 0));
    return at != FSorted.end() && at->first == key ? at->second : 0;
  }

  TJsonValueRef FObject;
  size_t FNext = 0;
  std::vector<std::pair<u16string_view, size_t>> FSorted;
};

/// Two containers under comparison, and how far it got. Of objects only the left one is walked.
struct TContainers {
  TJsonWalk Left, Right;
};

/// The value of a scalar, wherever it stands.
template <class TElement>
auto Scalar(const TJsonValueRef& value) {
  using TValueType = std::remove_cvref_t<decltype(LiveValue<TElement>(value.Live))>;
  if constexpr (std::is_same_v<TValueType, string>) {
    return value.IsPacked() ? value.Tape->Text(value.At())
                            : u16string_view(LiveValue<TElement>(value.Live));
  } else if constexpr (std::is_same_v<TValueType, double>) {
    return value.IsPacked() ? value.At().Real : LiveValue<TElement>(value.Live);
  } else if constexpr (std::is_same_v<TValueType, bool>) {
    return value.IsPacked() ? value.At().Boolean : LiveValue<TElement>(value.Live);
  } else if constexpr (std::is_same_v<TValueType, int64_t>) {
    return value.IsPacked() ? value.At().Integer : LiveValue<TElement>(value.Live);
  } else {
    return value.IsPacked() ? value.At().Unsigned : LiveValue<TElement>(value.Live);
  }
}

template <class TElement>
bool AreSame(const TJsonValueRef& left, const TJsonValueRef& right) {
  return DefaultCompare(Scalar<TElement>(left), Scalar<TElement>(right)) == 0;
}

class TTreeComparison {
 public:
  bool Run(const TJsonValueRef& left, const TJsonValueRef& right) {
    if (left.IsPacked() && right.IsPacked() && TapesAgree(left, right)) return true;
    if (!CompareByKind(left, right)) return false;
    while (FStack.Count() > 0) {
      TContainers& pair = FStack.Last();
      if (pair.Left.Remaining == 0) {
        if (pair.Left.IsObject) FRightMembers.pop_back();
        FStack.SetCount(FStack.Count() - 1);
      } else if (!NextAgree(pair)) {
        return false;
      }
    }
    return true;
  }

 private:
  /// Asks a value whether it equals the other. An empty reference equals its like alone.
  bool Ask(const TJsonValueRef& asked, const TJsonValueRef& other) {
    if (asked.IsEmpty() || other.IsEmpty()) return asked.IsEmpty() && other.IsEmpty();
    if (asked.Live && !IsPlain(*asked.Live)) return asked.Live->ElementEquals(Element(other));
    return CompareByKind(asked, other);
  }

  /// False when the values differ; containers are put on the stack.
  bool CompareByKind(const TJsonValueRef& left, const TJsonValueRef& right) {
    const TJsonKind kind = left.Kind();
    if (kind != right.Kind()) return false;
    if (kind == TJsonKind::Array || kind == TJsonKind::Object) {
      return CompareContainers(left, right);
    }
    if (left.IsPacked() && right.IsPacked()) {
      return NodesAgree(*left.Tape, left.Node, *right.Tape, right.Node);
    }
    switch (kind) {
      case TJsonKind::Boolean:
        return AreSame<TBooleanJsonElement>(left, right);
      case TJsonKind::Integer:
        return AreSame<TIntegerJsonElement>(left, right);
      case TJsonKind::Unsigned:
        return AreSame<TUnsignedIntegerJsonElement>(left, right);
      case TJsonKind::Double:
        return AreSame<TDoubleJsonElement>(left, right);
      case TJsonKind::String:
        return AreSame<TStringJsonElement>(left, right);
      default:
        return true;
    }
  }

  bool CompareContainers(const TJsonValueRef& left, const TJsonValueRef& right) {
    const TContainers pair{TJsonWalk(left), TJsonWalk(right)};
    if (pair.Left.Remaining != pair.Right.Remaining) return false;
    if (left.IsPacked() && right.IsPacked() && !left.At().HasObjects && !right.At().HasObjects) {
      return TapesAgree(left, right);
    }
    const TJsonTape* held[2] = {};
    if (FStack.Count() > 0) {
      held[0] = FStack.Last().Left.Tape;
      held[1] = FStack.Last().Right.Tape;
    }
    FTapes.Hold(left.Tape, held[0], held[1]);
    FTapes.Hold(right.Tape, held[0], held[1]);
    if (pair.Left.IsObject) FRightMembers.emplace_back(right);
    FStack.Add(pair);
    return true;
  }

  /// Whether the next items or members agree, as far as no containers have been put on the stack.
  /// An array asks its own items, an object the other side's members.
  bool NextAgree(TContainers& pair) {
    if (!pair.Left.IsObject) {
      const TJsonValueRef item = pair.Left.NextItem();
      return Ask(item, pair.Right.NextItem());
    }
    u16string_view key;
    const TJsonValueRef member = pair.Left.NextMember(key);
    TJsonValueRef other;
    return FRightMembers.back().Find(key, other) && Ask(other, member);
  }

  static TRef<IJsonElement> Element(const TJsonValueRef& value) {
    if (value.Live) return TRef<IJsonElement>::Share(const_cast<TJsonElement*>(value.Live));
    return NewElement(*value.Tape, value.Node);
  }

  TTapeBuffer<TContainers> FStack;
  std::vector<TMemberFinder> FRightMembers;  // one for each pair of objects on the stack
  TJsonHeldTapes FTapes;
};

}  // namespace

bool AreEqual(const TJsonElement& left, const TJsonElement* right) {
  if (!right) return false;
  return TTreeComparison().Run(TJsonValueRef(&left), TJsonValueRef(right));
}

}  // namespace Talvo::Detail
