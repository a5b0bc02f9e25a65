// SPDX-License-Identifier: Apache-2.0
#pragma once
// The chain of nodes inside a linked list: what is linked, what is marked, who walks it.

#include <new>
#include <type_traits>
#include <utility>
#include <talvo/containers/list/NodePool.h>
#include <talvo/runtime/Checked.h>

namespace Talvo::Detail {

/// What a removal found and did.
enum class TRemoval {
  Missed,  ///< There was no such item.
  Again,   ///< The item waits for the end of the enumeration already.
  Marked,  ///< The item goes when the last enumerator ends.
  Removed  ///< The item is gone.
};

/// Whether the content of the list is another one now.
constexpr bool IsChange(TRemoval removal) {
  return removal >= TRemoval::Marked;
}

template <class T>
struct TLinkedNode {
  TLinkedNode* Next;
  T Data;
  bool Deleted;
};

/// Nodes in their order. While it is enumerated, nothing is unlinked: what is removed is marked,
/// and goes with the last enumerator. Items end only after their nodes are unlinked, one after the
/// other, so their destructors may come back to the list.
template <class T>
class TLinkedNodes {
 public:
  using TNode = TLinkedNode<T>;

  /// Nodes that belong to no list yet, or no more; disposes what is left of them.
  class TChain {
   public:
    explicit TChain(TLinkedNodes& nodes) : FNodes(nodes) {}
    TChain(const TChain&) = delete;
    ~TChain() { FNodes.Dispose(First); }
    template <class... A>
    void Add(A&&... value) {
      Link(FNodes.NewNode(std::forward<A>(value)...));
      CheckedInc(Count);
    }
    void Link(TNode* node) {
      (First ? Last->Next : First) = node;
      Last = node;
      node->Next = nullptr;
    }
    TNode* First = nullptr;
    TNode* Last = nullptr;
    int32_t Count = 0;  // of the nodes added

   private:
    TLinkedNodes& FNodes;
  };

  /// Counts as one live enumerator as long as it stands.
  class TWalk {
   public:
    explicit TWalk(TLinkedNodes& nodes) : FNodes(&nodes) { CheckedInc(nodes.FCountEnumerotors); }
    TWalk(TWalk&& other) noexcept : FNodes(std::exchange(other.FNodes, nullptr)) {}
    TWalk& operator=(TWalk&& other) noexcept {
      std::swap(FNodes, other.FNodes);
      return *this;
    }
    ~TWalk() {
      if (FNodes) FNodes->EnumeratorDeleted();
    }

   private:
    TLinkedNodes* FNodes;
  };

  TLinkedNodes() = default;
  TLinkedNodes(const TLinkedNodes&) = delete;
  TLinkedNodes& operator=(const TLinkedNodes&) = delete;
  ~TLinkedNodes() {
    while (FFirst) Dispose(std::exchange(FFirst, nullptr));
  }

  const int32_t& Count() const { return FCount; }
  /// The tail, marked or not; null when there are no nodes.
  TNode* Last() const { return FFirst ? FLast : nullptr; }
  /// The first node that is not marked; null at the end.
  TNode* FirstLive() const { return SkipDeleted(FFirst); }
  static TNode* NextLive(const TNode* node) { return SkipDeleted(node->Next); }
  /// One step of an enumerator: from `node` (null: from before the first) to the next one that
  /// is not marked. At the end it is false and stays on the last node, marked or not, so that what
  /// is added later is met.
  bool MoveNext(TNode*& node) const;
  /// Calls `accept` with the items in turn, as an enumerator, until it answers true.
  template <class F>
  bool Find(F&& accept);

  /// Links all of the chain behind the last node; false when there is nothing in it.
  bool LinkLast(TChain& added);
  void AddFirst(const T& value);
  TRemoval PopFirst(T& item);
  /// Removes the first item that `accept` answers true for. Under an enumerator marked nodes are
  /// asked about too.
  template <class F>
  TRemoval RemoveOne(F&& accept);
  /// Removes all items that `accept` answers true for; false when there is none.
  template <class F>
  bool RemoveAll(F&& accept);
  /// Removes all, or under an enumerator marks all but the first; false when nothing changed.
  bool Clear();

  void EnumeratorDeleted();

 private:
  static TNode* SkipDeleted(TNode* node) {
    while (node && node->Deleted) node = node->Next;
    return node;
  }
  template <class... A>
  TNode* NewNode(A&&... value);
  void Dispose(TNode* node) noexcept;
  TRemoval Mark(TNode* node);
  void Unlink(TNode* before, TNode* node);
  void Purge();

  uint32_t FCountEnumerotors = 0;
  bool FHasDeleted = false;  // some node was marked once; never falls back
  TNode* FFirst = nullptr;
  TNode* FLast = nullptr;  // says nothing while FFirst is null
  int32_t FCount = 0;
  size_t FMarked = 0;  // the nodes that wait for purging
  TNodePool<TNode> FPool;
};

template <class T>
bool TLinkedNodes<T>::MoveNext(TNode*& node) const {
  TNode* next = node ? node->Next : FFirst;
  while (next) {
    node = next;
    if (!node->Deleted) return true;
    next = node->Next;
  }
  return false;
}

template <class T>
template <class F>
bool TLinkedNodes<T>::Find(F&& accept) {
  const TWalk walk(*this);
  for (TNode* node = FirstLive(); node; node = NextLive(node)) {
    if (accept(std::as_const(node->Data))) return true;
  }
  return false;
}

template <class T>
template <class... A>
TLinkedNode<T>* TLinkedNodes<T>::NewNode(A&&... value) {
  struct TPlace {
    TNodePool<TNode>& Pool;
    void* Memory;
    ~TPlace() {
      if (Memory) Pool.Give(Memory);
    }
  } place{FPool, FPool.Take()};
  TNode* node = ::new (place.Memory) TNode{nullptr, T(std::forward<A>(value)...), false};
  place.Memory = nullptr;
  return node;
}

template <class T>
void TLinkedNodes<T>::Dispose(TNode* node) noexcept {
  while (node) {
    TNode* next = node->Next;
    node->~TNode();
    FPool.Give(node);
    node = next;
  }
}

template <class T>
bool TLinkedNodes<T>::LinkLast(TChain& added) {
  if (!added.First) return false;
  FCount = CheckedAdd(FCount, added.Count);
  (FFirst ? FLast->Next : FFirst) = added.First;
  FLast = added.Last;
  added.First = nullptr;
  return true;
}

template <class T>
void TLinkedNodes<T>::AddFirst(const T& value) {
  TChain added(*this);
  added.Add(value);
  CheckedInc(FCount);
  if (!FFirst) FLast = added.Last;
  added.Last->Next = FFirst;
  FFirst = std::exchange(added.First, nullptr);
}

template <class T>
TRemoval TLinkedNodes<T>::Mark(TNode* node) {
  FHasDeleted = true;
  if (node->Deleted) return TRemoval::Again;
  node->Deleted = true;
  ++FMarked;
  return TRemoval::Marked;
}

/// Takes `node` out, which stood behind `before` (null: first) when the walk came to it.
template <class T>
void TLinkedNodes<T>::Unlink(TNode* before, TNode* node) {
  CheckedDec(FCount);
  if (node->Deleted) --FMarked;
  // Something may have been added in front meanwhile; what was linked stays so during a walk.
  if (!before && FFirst != node) {
    for (before = FFirst; before->Next != node;) before = before->Next;
  }
  (before ? before->Next : FFirst) = node->Next;
  if (FLast == node) FLast = before;
}

template <class T>
TRemoval TLinkedNodes<T>::PopFirst(T& item) {
  TNode* node = FFirst;
  if (!node) {
    item = T{};
    return TRemoval::Missed;
  }
  if (FCountEnumerotors > 0) {
    T copied = node->Data;
    const TRemoval removal = Mark(node);
    item = std::move(copied);
    return removal;
  }
  T taken = std::move_if_noexcept(node->Data);
  Unlink(nullptr, node);
  node->Next = nullptr;
  Dispose(node);
  item = std::move(taken);
  return TRemoval::Removed;
}

template <class T>
template <class F>
TRemoval TLinkedNodes<T>::RemoveOne(F&& accept) {
  TChain removed(*this);  // ends behind the walk: items end when nobody walks here any more
  const TWalk walk(*this);
  TNode* before = nullptr;
  for (TNode* node = FFirst; node; before = node, node = node->Next) {
    if (!accept(std::as_const(node->Data))) continue;
    if (FCountEnumerotors > 1) return Mark(node);
    Unlink(before, node);
    removed.Link(node);
    return TRemoval::Removed;
  }
  return TRemoval::Missed;
}

template <class T>
template <class F>
bool TLinkedNodes<T>::RemoveAll(F&& accept) {
  TChain removed(*this);
  const TWalk walk(*this);
  bool hasRemoved = false;
  TNode* before = nullptr;
  for (TNode* node = FFirst; node;) {
    const bool isWanted = !node->Deleted && accept(std::as_const(node->Data));
    TNode* next = node->Next;
    if (isWanted && FCountEnumerotors == 1) {
      Unlink(before, node);
      removed.Link(node);
      hasRemoved = true;
    } else {
      if (isWanted) hasRemoved |= IsChange(Mark(node));
      before = node;
    }
    node = next;
  }
  return hasRemoved;
}

template <class T>
bool TLinkedNodes<T>::Clear() {
  bool hasChanged = std::exchange(FCount, 0) != 0;
  if (FCountEnumerotors == 0) {
    TNode* all = std::exchange(FFirst, nullptr);
    Dispose(all);
    return hasChanged || all;
  }
  FHasDeleted = true;
  for (TNode* node = FFirst; node; node = node->Next) {
    if (node->Next) hasChanged |= IsChange(Mark(node->Next));
  }
  return hasChanged;
}

template <class T>
void TLinkedNodes<T>::EnumeratorDeleted() {
  CheckedDec(FCountEnumerotors);
  if (FCountEnumerotors == 0 && FHasDeleted) Purge();
}

template <class T>
void TLinkedNodes<T>::Purge() {
  TChain removed(*this);
  TNode* before = nullptr;
  for (TNode* node = FFirst; node && FMarked > 0;) {
    TNode* next = node->Next;
    if (node->Deleted) {
      --FMarked;
      (before ? before->Next : FFirst) = next;
      if (!next) FLast = before;
      removed.Link(node);
    } else {
      before = node;
    }
    node = next;
  }
}

}  // namespace Talvo::Detail
