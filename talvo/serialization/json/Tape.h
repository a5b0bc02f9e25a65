// SPDX-License-Identifier: Apache-2.0
#pragma once
// A parsed document, packed: a row of 16-byte nodes in the order of the text, and the units of all
// its strings. Immutable once the parser is done, and shared by the elements made from it.
// A container's node is followed by its children; a member is a key node followed by its value.

#include <algorithm>
#include <vector>
#include <talvo/serialization/json/ElementClasses.h>

namespace Talvo::Detail {

struct TTapeNode {
  TJsonKind Kind;           // String for keys, too
  bool HasObjects = false;  // containers: an object stands somewhere below
  uint32_t Length = 0;      // units of a string, items of an array, members of an object
  union {
    int64_t Integer;
    uint64_t Unsigned;
    double Real;
    bool Boolean;
    size_t Offset;  // strings: the first unit in the characters
    size_t Size;    // containers: nodes from this one to the end of the last child; while the
                    // parser has it open, the node of the container around it
  };

  TTapeNode() noexcept : Kind(TJsonKind::Null), Unsigned(0) {}
  explicit TTapeNode(TJsonKind kind) noexcept : Kind(kind), Unsigned(0) {}
  bool IsContainer() const noexcept {
    return Kind == TJsonKind::Array || Kind == TJsonKind::Object;
  }
};

/// Plain items that only ever grow at the end.
template <class E>
class TTapeBuffer {
 public:
  TTapeBuffer() noexcept = default;
  TTapeBuffer(TTapeBuffer&& other) noexcept { Swap(other); }
  TTapeBuffer& operator=(TTapeBuffer&& other) noexcept {
    Swap(other);
    return *this;
  }
  ~TTapeBuffer() { FreeStorage(FItems, alignof(E)); }

  size_t Count() const noexcept { return static_cast<size_t>(FEnd - FItems); }
  E* Data() const noexcept { return FItems; }
  E& operator[](size_t index) const noexcept { return FItems[index]; }
  E& Last() const noexcept { return FEnd[-1]; }
  E* End() const noexcept { return FEnd; }
  E* Limit() const noexcept { return FLimit; }
  void SetEnd(E* end) noexcept { FEnd = end; }
  void SetCount(size_t count) noexcept { FEnd = FItems + count; }
  /// How many items there is room for behind the last.
  size_t Room() const noexcept { return static_cast<size_t>(FLimit - FEnd); }
  void AddInRoom(const E& item) noexcept { ::new (static_cast<void*>(FEnd++)) E(item); }
  void Add(const E& item) {
    if (Room() == 0) [[unlikely]]
      Resize(CheckedAdd(Count() * 2, size_t{16}));
    AddInRoom(item);
  }
  /// Makes room for `capacity` items in all, which is not below Count().
  void Resize(size_t capacity) {
    const size_t count = Count();
    const size_t bytes = CheckedMul(capacity, sizeof(E));
    FItems = static_cast<E*>(FItems ? ReallocateStorage(FItems, bytes)
                                    : AllocateStorage(bytes, alignof(E)));
    FEnd = FItems + count;
    FLimit = FItems + capacity;
  }
  /// Makes sure of room for `spare` more items, and gives back what is left if it is much. (Blocks
  /// that shrink keep the allocator from learning how large they get: it maps and unmaps the next
  /// ones, page by page.)
  void Trim(size_t spare) {
    if (Room() < spare || Room() > spare + Count() / 4)
      Resize(std::max(Count() + spare, size_t{1}));
  }

 private:
  void Swap(TTapeBuffer& other) noexcept {
    std::swap(FItems, other.FItems);
    std::swap(FEnd, other.FEnd);
    std::swap(FLimit, other.FLimit);
  }

  E* FItems = nullptr;
  E* FEnd = nullptr;
  E* FLimit = nullptr;
};

class TJsonTape final : public TInterfacedObject {
 public:
  TTapeBuffer<TTapeNode> Nodes;
  TTapeBuffer<char16_t> Characters;
  /// So many units may be read behind the last one of a string.
  static constexpr size_t Padding = 8;

  /// Whether some object names a member twice. The last one counts, which only a dictionary
  /// sorts out: such a document is not read packed. Looked up when first asked for; on any thread,
  /// as trees that share a tape may have parted.
  bool HasDuplicates() const;

  u16string_view Text(const TTapeNode& node) const noexcept {
    return {Characters.Data() + node.Offset, node.Length};
  }
  /// The node behind a value and all that belongs to it.
  size_t After(size_t node) const noexcept {
    return node + (Nodes[node].IsContainer() ? Nodes[node].Size : 1);
  }

 private:
  enum TAnswer : uint8_t { Unknown, No, Yes };
  mutable TAnswer FHasDuplicates = Unknown;
};

/// The element of a node: a container's stays packed.
TRef<IJsonElement> NewElement(const TJsonTape& tape, size_t node);

/// Whether an element is of one of the library's own classes, so that what it holds tells all about
/// it. Others are asked.
bool IsPlain(const TJsonElement& element);

/// A value of a tree, wherever it stands: a live element, or a node of a tape. Borrowed.
struct TJsonValueRef {
  const TJsonElement* Live = nullptr;
  const TJsonTape* Tape = nullptr;
  size_t Node = 0;

  TJsonValueRef() noexcept = default;
  /// Null is fine. An element that is still packed is seen through its tape.
  explicit TJsonValueRef(const TJsonElement* element);
  TJsonValueRef(const TJsonTape* tape, size_t node) noexcept : Tape(tape), Node(node) {}

  bool IsEmpty() const noexcept { return !Live && !Tape; }
  bool IsPacked() const noexcept { return Tape != nullptr; }
  TJsonKind Kind() const noexcept { return Tape ? At().Kind : Live->Kind(); }
  const TTapeNode& At() const noexcept { return Tape->Nodes[Node]; }
};

inline TJsonValueRef RefTo(const TRef<IJsonElement>& element) {
  return TJsonValueRef(element ? element->GetInstance() : nullptr);
}

/// What a live element of class `TElement` holds.
template <class TElement>
const auto& LiveValue(const TJsonElement* element) {
  return static_cast<const TElement*>(element)->Value();
}

/// The members of a live object.
inline const auto& MembersOf(const TJsonElement* object) {
  return LiveValue<TObjectJsonElement>(object)->GetDictionary();
}

/// A walk over the items of an array or the members of an object. Plain data, so that a stack of
/// them grows at little cost.
struct TJsonWalk {
  const TJsonElement* Live;  // one of these two
  const TJsonTape* Tape;
  int64_t At;  // packed: the next node; live: the next index, or what a dictionary counts
  int32_t Remaining;
  bool IsObject;
  bool IsAtStart = true;

  explicit TJsonWalk(const TJsonValueRef& container)
      : Live(container.Live),
        Tape(container.Tape),
        IsObject(container.Kind() == TJsonKind::Object) {
    if (Tape) {
      At = static_cast<int64_t>(container.Node) + 1;
      Remaining = CountOfSize(container.At().Length);
    } else {
      At = IsObject ? -1 : 0;
      Remaining = IsObject ? MembersOf(Live).Count() : LiveValue<TArrayJsonElement>(Live)->Count();
    }
  }

  /// The next item. Raises ERangeError when a live array has lost it.
  TJsonValueRef NextItem() {
    Step();
    if (!Tape) return RefTo(LiveValue<TArrayJsonElement>(Live)->Items(static_cast<int32_t>(At++)));
    const auto node = static_cast<size_t>(At);
    At = static_cast<int64_t>(Tape->After(node));
    return {Tape, node};
  }

  /// The next member; `key` is valid until the object changes. Raises ERangeError when a live
  /// object has lost it.
  TJsonValueRef NextMember(u16string_view& key) {
    Step();
    if (!Tape) {
      const auto* member = MembersOf(Live).Next(At);
      if (!member) RaiseRangeError();
      key = member->Key;
      return RefTo(member->Value);
    }
    const auto node = static_cast<size_t>(At);
    key = Tape->Text(Tape->Nodes[node]);
    At = static_cast<int64_t>(Tape->After(node + 1));
    return {Tape, node + 1};
  }

 private:
  void Step() {
    --Remaining;
    IsAtStart = false;
  }
};

/// Tapes that are under way. Whoever is called out to, a formatter or an element of a class of its
/// own, may unpack an element, which then lets go of its tape.
class TJsonHeldTapes {
 public:
  /// Holds a tape (if there is one), unless it is one of those that are known to be held.
  void Hold(const TJsonTape* tape, const TJsonTape* held, const TJsonTape* alsoHeld = nullptr) {
    if (tape && tape != held && tape != alsoHeld) {
      FTapes.push_back(TRef<TJsonTape>::Share(const_cast<TJsonTape*>(tape)));
    }
  }

 private:
  std::vector<TRef<TJsonTape>> FTapes;
};

/// The inside of element classes, for the code that walks whole trees.
struct TJsonAccess {
  template <class T>
  static const TJsonTape* TapeOf(const TArrayNoCreateElement<T>& element) noexcept {
    return static_cast<const TJsonTape*>(element.FTape.Get());
  }
  template <class T>
  static TRef<TJsonTape> ShareTape(const TArrayNoCreateElement<T>& element) noexcept {
    return TRef<TJsonTape>::Share(static_cast<TJsonTape*>(element.FTape.Get()));
  }
  template <class T>
  static size_t NodeOf(const TArrayNoCreateElement<T>& element) noexcept {
    return element.FNode;
  }
  template <class T>
  static void DropTape(const TArrayNoCreateElement<T>& element) noexcept {
    element.FTape = nullptr;
  }
  static Rtl::TDictionary<string, TRef<IJsonElement>>& DictionaryOf(TJsonObject& object) {
    return object.FDictionary;
  }
};

}  // namespace Talvo::Detail
