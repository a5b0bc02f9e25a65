// SPDX-License-Identifier: Apache-2.0
#pragma once
// Linked list: a singly linked list that may be changed while it is walked.
//
//   auto queue = TLinkedList<string>::Make();
//   queue->Add(u"first").Add(u"second");             // mutators return the list
//   for (const string& name : queue) queue->RemoveOne(name);
//
// Items removed under a live enumerator (a range-for is one) are only marked, walks pass them by,
// and they go when the last enumerator ends. An enumerator keeps the list alive. Not locked:
// whoever owns the list locks it.

#include <talvo/containers/list/LinkedVerbs.h>
#include <talvo/containers/utils/Enumerators.h>

namespace Talvo {

/// A list that is added to at both ends, taken from at the front, and safe to change under
/// enumeration.
template <class T>
class ILinkedList : public TLinkedListVerbs<T, ILinkedList<T>, ILinkedListCore<T>> {
  TALVO_INTERFACE(ILinkedList, ISizeEnumerable<T>);
};

/// Nodes and verbs; descendants give the list that queries answer.
/// `I` is the list interface that the class implements.
template <class T, class I>
class TBasicLinkedListIntf : public TImplements<TBasicInterfacedObject, I, IList> {
 public:
  class TEnumerator;
  using TNode = Detail::TLinkedNode<T>;

  // IList: the view without the element type.
  TRef<ISizeEnumerator<TValue>> GetValueEnumerator() const override {
    return Create<TGenricValueSizeEnumerator<T>>(NewSizeEnumerator());
  }
  void ClearValues() override { this->DoClear(); }
  TValue GetNewValue() const override { return TValue::From(T{}); }
  void AddValue(const TValue& value) override { ProcedureAdd(value.AsType<T>()); }

  // The core of the list interface.
  TRef<ISizeEnumerator<T>> NewSizeEnumerator() const override;
  int32_t GetCount() const override { return FNodes.Count(); }
  Detail::TLinkedNodes<T>& GetNodes() const override { return FNodes; }
  /// Raises EAbstractError: descendants know their class.
  TRef<ILinkedList<T>> CreateList() const override { RaiseAbstractError(); }
  bool DoAdd(const T& value, int32_t count) override;
  void DoAddMoved(T&& value) override;
  void DoAddFirst(const T& value) override { FNodes.AddFirst(value); }
  bool DoAppend(const Detail::TSource<T>& source) override;
  bool DoAssign(const Detail::TSource<T>& source) override;
  Detail::TRemoval DoPopFirst(T& item) override { return FNodes.PopFirst(item); }
  Detail::TRemoval DoRemoveOne(TFunctionRef<bool(const T&)> accept) override {
    return FNodes.RemoveOne(accept);
  }
  bool DoRemoveAll(TFunctionRef<bool(const T&)> accept) override {
    return FNodes.RemoveAll(accept);
  }
  bool DoClear() override { return InternalClear(); }

  /// Adds one item, without a result.
  void ProcedureAdd(const T& value) { this->DoAdd(value, 1); }

 protected:
  TBasicLinkedListIntf() = default;

  /// Removes all items without telling anybody; false when there was none.
  bool InternalClear() { return FNodes.Clear(); }
  /// An enumerator ended; the last one takes the marked nodes along. Raises EIntOverflow when
  /// none was alive.
  void EnumeratorDeleted() { FNodes.EnumeratorDeleted(); }

 private:
  mutable Detail::TLinkedNodes<T> FNodes;
};

/// A walk over a linked list, which it keeps alive.
template <class T, class I>
class TBasicLinkedListIntf<T, I>::TEnumerator final : public TBasicSizeEnumerator<T> {
 public:
  explicit TEnumerator(TBasicLinkedListIntf& list)
      : FList(list), FWalk(list.FNodes), FSizePtr(&list.FNodes.Count()) {}
  void Reset() override { FNode = nullptr; }
  bool MoveNext() override { return FList->FNodes.MoveNext(FNode); }
  /// The present item, also when it was removed meanwhile. Raises ERangeError before the first.
  const T& GenericGetCurrent() override {
    if (!FNode) RaiseRangeError();
    return FNode->Data;
  }
  int32_t GetSize() override { return *FSizePtr; }

 private:
  TRef<TBasicLinkedListIntf> FList;
  typename Detail::TLinkedNodes<T>::TWalk FWalk;
  TNode* FNode = nullptr;  // null before the first item
  const int32_t* FSizePtr;
};

/// A linked list of values.
template <class T, class I>
class TLinkedListIntf : public TBasicLinkedListIntf<T, I> {
 public:
  TRef<ILinkedList<T>> CreateList() const override;

 protected:
  TLinkedListIntf() = default;
};

/// A linked list of interface references or function objects: equality is identity.
template <class T, class I>
class TInterfaceLinkedListIntf : public TBasicLinkedListIntf<T, I> {
  static_assert(
      requires { typename T::TTarget; },
      "The items of an interface list are references or function objects.");

 public:
  TRef<ILinkedList<T>> CreateList() const override;

 protected:
  TInterfaceLinkedListIntf() = default;
};

/// The makers of a concrete list class: `Create...` answer the class, `Make...` the interface.
template <class TClass, class T, class TList>
class TLinkedListMakers {
 public:
  /// An empty list.
  static TRef<TClass> Create() { return Talvo::Create<TClass>(); }
  static TRef<TList> Make() { return Create(); }
  /// The items of an enumerable. Asserts that there is one.
  template <class S>
  requires(Detail::LeadsTo<S, IEnumerable<T>> ||
           Detail::LeadsTo<
               S, ISizeEnumerable<T>>) static TRef<TClass> CreateEnumerable(const S& source) {
    return CreateFrom(Detail::TSource<T>(source));
  }
  template <class S>
  requires(
      Detail::LeadsTo<S, IEnumerable<T>> ||
      Detail::LeadsTo<S, ISizeEnumerable<T>>) static TRef<TList> MakeEnumerable(const S& source) {
    return CreateEnumerable(source);
  }
  /// The items of an enumerator, by interface or as an object that is taken over.
  template <class S>
  requires(Detail::LeadsTo<S, IEnumerator<T>> ||
           Detail::EnumeratorObjectOf<S, T>) static TRef<TClass> CreateEnumerator(S&& source) {
    return CreateFrom(Detail::TSource<T>(std::forward<S>(source)));
  }
  template <class S>
  requires(Detail::LeadsTo<S, IEnumerator<T>> ||
           Detail::EnumeratorObjectOf<S, T>) static TRef<TList> MakeEnumerator(S&& source) {
    return CreateEnumerator(std::forward<S>(source));
  }
  /// Copies of the items of an array, vector, span or list in braces.
  template <class S>
  requires ContiguousOf<S, T>
  static TRef<TClass> CreateArray(const S& items) { return CreateFrom(Detail::TSource<T>(items)); }
  static TRef<TClass> CreateArray(std::initializer_list<T> items) {
    return CreatePointer(items.begin(), Detail::CountOfSize(items.size()));
  }
  template <class S>
  requires ContiguousOf<S, T>
  static TRef<TList> MakeArray(const S& items) { return CreateArray(items); }
  static TRef<TList> MakeArray(std::initializer_list<T> items) { return CreateArray(items); }
  /// Copies of `count` items at `items`.
  static TRef<TClass> CreatePointer(const T* items, int32_t count) {
    return CreateFrom(Detail::TSource<T>(items, count));
  }
  static TRef<TList> MakePointer(const T* items, int32_t count) {
    return CreatePointer(items, count);
  }
  /// A copy of another list. Asserts that there is one.
  template <class S>
  requires Detail::LeadsTo<S, ISizeEnumerable<T>>
  static TRef<TClass> CreateCopy(const S& list) { return CreateFrom(Detail::TSource<T>(list)); }
  template <class S>
  requires Detail::LeadsTo<S, ISizeEnumerable<T>>
  static TRef<TList> MakeCopy(const S& list) { return CreateCopy(list); }

 private:
  static TRef<TClass> CreateFrom(const Detail::TSource<T>& source) {
    TRef<TClass> list = Create();
    source.ForEach([&](const T& item) { list->Add(item); });
    return list;
  }
};

/// The linked list of any element type.
template <class T>
class TLinkedList : public TLinkedListIntf<T, ILinkedList<T>>,
                    public TLinkedListMakers<TLinkedList<T>, T, ILinkedList<T>> {
 public:
  TLinkedList() {}  // not defaulted: the object would be filled with zeros first
};

/// The linked list of interface references or function objects.
template <class T>
class TInterfaceLinkedList : public TInterfaceLinkedListIntf<T, ILinkedList<T>>,
                             public TLinkedListMakers<TInterfaceLinkedList<T>, T, ILinkedList<T>> {
 public:
  TInterfaceLinkedList() {}
};

}  // namespace Talvo

#include <talvo/containers/list/LinkedList.inl.h>
