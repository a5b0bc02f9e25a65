// SPDX-License-Identifier: Apache-2.0
#pragma once
// Array list: an ordered list that grows, held by reference.
//
//   auto names = TArrayList<string>::Make();
//   names->Add(u"left").Add(u"right");       // mutators return the list
//   for (const string& name : names) ...
//
// Not locked: whoever owns the list locks it. A raw enumerator does not keep the list alive.

#include <talvo/containers/list/ListVerbs.h>
#include <talvo/containers/utils/Enumerators.h>

namespace Talvo {

/// An ordered list. Storage length (the capacity) and count are kept apart.
template <class T>
class IArrayList : public TListVerbs<T, IArrayList<T>, IArrayListCore<T>> {
  TALVO_INTERFACE(IArrayList, IReverseIndexedEnumerable<T>);
};

/// Storage and verbs; descendants choose how items are compared.
/// `TList` is the list interface that the class implements.
template <class T, class TList>
class TBasicArrayListIntf
    : public TImplements<TBasicInterfacedObject, TList, IArrayListState<T>, IList, IEnumerable<T>> {
 public:
  using TItem = T;
  using TList::begin;
  using TList::end;
  using TList::GetEnumerator;

  // IArrayListState: the raw view.
  bool ArrayIsPopulated() const override { return true; }
  bool GetArraySizeMatches() const override { return FArray.Length() == FSize; }
  TArray<T>* GetArray() override { return &FArray; }
  int32_t GetArraySize() const override { return FArray.Length(); }
  TCountCell* GetSizePtr() override { return &FSize; }

  // IList: the view without the element type.
  TRef<ISizeEnumerator<TValue>> GetValueEnumerator() const override;
  void ClearValues() override { this->DoClear(); }
  TValue GetNewValue() const override { return TValue::From(T{}); }
  void AddValue(const TValue& value) override { ProcedureAdd(value.AsType<T>()); }

  // Enumeration.
  TRef<ISizeEnumerator<T>> NewSizeEnumerator() const override;
  TRef<IEnumerator<T>> NewEnumerator() const override { return NewSizeEnumerator(); }
  TRef<IEnumerator<>> NewObjectEnumerator() const override { return NewSizeEnumerator(); }
  TRef<ISizeEnumerator<TIndexedItem<T>>> GetIndexedEnumerator() const override;
  TRef<ISizeEnumerator<T>> GetReverseEnumerator() const override;
  TRef<ISizeEnumerator<TIndexedItem<T>>> GetIndexedReverseEnumerator() const override;
  TRef<ISizeEnumeratorHost<TIndexedItem<T>>> GetIndexed() const override;
  TRef<ISizeEnumeratorHost<T>> GetReverse() const override;
  TRef<ISizeEnumeratorHost<TIndexedItem<T>>> GetIndexedReverse() const override;

  // The core of the list interface.
  int32_t GetCount() const override { return FSize; }
  const T& GetItem(int32_t index) const override;
  Detail::TListState<T> GetState() const override;
  /// Raises EAbstractError: there is no equality at this level.
  const IComparer<T>* GetEquality() const override { RaiseAbstractError(); }
  /// Raises EAbstractError: descendants know their class.
  TRef<IArrayList<T>> CreateList() const override { RaiseAbstractError(); }
  bool DoSetCount(int32_t count) override;
  bool DoSetItem(int32_t index, const T& value) override;
  bool DoInsert(int32_t index, const T& value, int32_t count) override;
  bool DoInsertSource(int32_t index, const Detail::TSource<T>& source) override;
  bool DoAdd(const T& value, int32_t count) override;
  bool DoAddFront(const T& value) override;
  bool DoAppend(const Detail::TSource<T>& source) override;
  bool DoAssign(const Detail::TSource<T>& source) override;
  bool DoDelete(int32_t index, int32_t count) override;
  bool DoDeleteDirect(int32_t index) override;
  bool DoRemoveEqual(const T& value) override;
  bool DoRemoveIf(TFunctionRef<bool(const T&)> predicate,
                  TFunctionRef<void(const T&)> action) override;
  bool DoSwap(int32_t left, int32_t right) override;
  bool DoMove(int32_t from, int32_t to) override;
  bool DoReverse() override;
  bool DoClear() override;
  bool DoSort(Detail::TSorter<T> sorter) override;
  bool DoSetCapacity(int32_t capacity, bool allowsTruncation) override;
  TArray<T> ToArray() const override;

  /// Adds one item for loops that fill a list: grows one call later than Add does.
  virtual void ProcedureAdd(const T& value) { Detail::StoreAtEnd(FArray, FSize, value); }
  /// Stores into the next spare slot; without one ERangeError.
  void FastUnsafeProcedureAdd(const T& value) {
    FArray[FSize] = value;
    FSize = FSize + 1;
  }
  /// Sets the capacity by the common growth rule, for one item more than there are.
  void IncreaseCapacity() {
    FArray.SetLength(CommonIncreaseCapacity(CheckedAdd<int32_t>(FSize, 1)));
  }

 protected:
  TBasicArrayListIntf() = default;

  /// Builds the items of a list that has yet to do so; ArrayIsPopulated is true afterwards.
  virtual void Populate() {}
  /// Sorts by the list's own order.
  virtual void SortByOwnOrder(T*, int32_t) { RaiseAbstractError(); }
  /// Whether a deletion has to go through DoDelete one by one, since somebody watches.
  virtual bool IsWatched() const { return false; }

  TArray<T> FArray;
  TCountCell FSize;

 private:
  // Walks on demand read through these: GetCount and GetItem of the present state.
  TFunc<int32_t> CountReader() const {
    return [this] { return GetCount(); };
  }
  TFunc<int32_t, T> ItemReader() const {
    return [this](int32_t index) -> T { return GetItem(index); };
  }
  template <class TByArray, class TByFunction, class TResult>
  TRef<TResult> NewWalk() const;

  // Keeps the list while items end, one of which may hold its last reference.
  TRef<TBasicArrayListIntf> Hold() {
    if constexpr (std::is_trivially_destructible_v<T>) return {};
    return TRef<TBasicArrayListIntf>(*this);
  }
  void AppendItems(const T* items, int32_t count);
  void AppendSized(const Detail::TSource<T>& source);
  void AppendUnsized(IEnumerator<T>& source);
  void AssignItems(const T* items, int32_t count);
  void AssignSized(ISizeEnumerator<T>& source);
  void AssignUnsized(IEnumerator<T>& source);
  // What changes length or order by deletion works on storage of its own.
  void UnshareItems() { FArray.SetLength(FArray.Length()); }
  [[gnu::noinline]] bool AddSlowly(const T& value, int32_t count);
  void FillSlots(const T& value, int32_t to);
  void StoreItems(int32_t index, const T* items, int32_t count);
  void ResetItems(int32_t from, int32_t to);
  void DeleteItems(int32_t index, int32_t count);
  void RemoveMarked(TFunctionRef<bool(const T&)> predicate);
  void CloseGaps(const TArray<uint8_t>& isMarked);
};

/// A list whose items are compared by a comparer, the default one of T unless a descendant
/// chooses another.
template <class T, class TList>
class TArrayListIntf : public TBasicArrayListIntf<T, TList> {
 public:
  const IComparer<T>* GetEquality() const override {
    return FComparer && !FComparer->IsDefault() ? FComparer.Get() : nullptr;
  }
  TRef<IArrayList<T>> CreateList() const override;

 protected:
  TArrayListIntf() = default;
  void SortByOwnOrder(T* items, int32_t count) override;

  TRef<IComparer<T>> FComparer;  // none: the default one
};

namespace Detail {

/// Lists of objects and of interfaces: equality is identity, order is by address.
template <class T, class TList>
class TIdentityArrayListIntf : public TBasicArrayListIntf<T, TList> {
 public:
  const IComparer<T>* GetEquality() const override { return nullptr; }
  TRef<IArrayList<T>> CreateList() const override;

 protected:
  TIdentityArrayListIntf() = default;
  void SortByOwnOrder(T* items, int32_t count) override;
};

}  // namespace Detail

/// A list of objects, which it does not own.
template <class T, class TList>
class TObjectArrayListIntf : public Detail::TIdentityArrayListIntf<T, TList> {
  static_assert(std::is_pointer_v<T>, "The items of an object list are pointers to objects.");

 protected:
  TObjectArrayListIntf() = default;
};

/// A list of interface references.
template <class T, class TList>
class TInterfaceArrayListIntf : public Detail::TIdentityArrayListIntf<T, TList> {
  static_assert(IsReference<T>, "The items of an interface list are references.");

 protected:
  TInterfaceArrayListIntf() = default;
};

/// The makers of a concrete list class: `Create...` answer the class, `Make...` the interface.
template <class TClass, class T, class TList>
class TListMakers {
 public:
  /// Empty, without storage.
  static TRef<TClass> Create() { return Talvo::Create<TClass>(); }
  static TRef<TList> Make() { return Create(); }
  /// `size` default items. Asserts that `size` is not below 0.
  static TRef<TClass> CreateSize(int32_t size) {
    Assert(size >= 0);
    TRef<TClass> list = Create();
    list->DoSetCount(size);
    return list;
  }
  static TRef<TList> MakeSize(int32_t size) { return CreateSize(size); }
  /// The items of an enumerable. Asserts that there is one.
  template <Detail::EnumerableOf<T> S>
  static TRef<TClass> CreateEnumerable(const S& source) {
    return CreateFrom(Detail::TSource<T>(source));
  }
  template <Detail::EnumerableOf<T> S>
  static TRef<TList> MakeEnumerable(const S& source) {
    return CreateEnumerable(source);
  }
  /// The items of an enumerator, by interface or as an object that is taken over.
  template <Detail::EnumeratorOf<T> S>
  static TRef<TClass> CreateEnumerator(S&& source) {
    return CreateFrom(Detail::TSource<T>(std::forward<S>(source)));
  }
  template <Detail::EnumeratorOf<T> S>
  static TRef<TList> MakeEnumerator(S&& source) {
    return CreateEnumerator(std::forward<S>(source));
  }
  /// Copies of the items of an array, vector, span or list in braces.
  template <ContiguousOf<T> S>
  static TRef<TClass> CreateArray(const S& items) {
    return CreateFrom(Detail::TSource<T>(items));
  }
  static TRef<TClass> CreateArray(std::initializer_list<T> items) {
    return CreatePointer(items.begin(), Detail::CountOfSize(items.size()));
  }
  template <ContiguousOf<T> S>
  static TRef<TList> MakeArray(const S& items) {
    return CreateArray(items);
  }
  static TRef<TList> MakeArray(std::initializer_list<T> items) { return CreateArray(items); }
  /// Copies of `count` items at `items`.
  template <Detail::PointerTo<T> P>
  static TRef<TClass> CreatePointer(P items, int32_t count) {
    return CreateFrom(Detail::TSource<T>(items, count));
  }
  template <Detail::PointerTo<T> P>
  static TRef<TList> MakePointer(P items, int32_t count) {
    return CreatePointer(items, count);
  }
  /// A copy of another list; it shares nothing with it. Asserts that there is one.
  template <Detail::LeadsTo<ISizeEnumerable<T>> S>
  static TRef<TClass> CreateCopy(const S& list) {
    return CreateFrom(Detail::TSource<T>(list));
  }
  template <Detail::LeadsTo<ISizeEnumerable<T>> S>
  static TRef<TList> MakeCopy(const S& list) {
    return CreateCopy(list);
  }

 private:
  static TRef<TClass> CreateFrom(const Detail::TSource<T>& source) {
    TRef<TClass> list = Create();
    list->DoAssign(source);
    return list;
  }
};

/// The array list of any element type.
template <class T>
class TArrayList : public TArrayListIntf<T, IArrayList<T>>,
                   public TListMakers<TArrayList<T>, T, IArrayList<T>> {
 public:
  using TListMakers<TArrayList<T>, T, IArrayList<T>>::Create;
  // Final here, so that a filling loop over the class pays for no virtual call.
  void ProcedureAdd(const T& value) final { Detail::StoreAtEnd(this->FArray, this->FSize, value); }
};

/// The array list of interface references: equality is identity.
template <class T>
class TInterfaceArrayList : public TInterfaceArrayListIntf<T, IArrayList<T>>,
                            public TListMakers<TInterfaceArrayList<T>, T, IArrayList<T>> {
 public:
  void ProcedureAdd(const T& value) final { Detail::StoreAtEnd(this->FArray, this->FSize, value); }
};

/// Operations on dynamic arrays.
class Algorithm {
 public:
  Algorithm() = delete;
  /// Inserts the first `count` items of `source` into `target` in front of `index`. Asserts that
  /// the source has as many.
  template <class T>
  static void ArrayInsertCount(const TArray<T>& source, TArray<T>& target, int32_t count,
                               int32_t index) {
    Assert(source.Length() >= count);
    target.Insert(index, source.Data(), count);
  }
};

}  // namespace Talvo

#include <talvo/containers/list/ArrayList.inl.h>
#include <talvo/containers/list/ListVerbs.inl.h>

// The lists of the common element types are compiled once, in ArrayList.cpp.
#define TALVO_ARRAY_LIST(Template, T)                       \
  Template TListVerbs<T, IArrayList<T>, IArrayListCore<T>>; \
  Template TBasicArrayListIntf<T, IArrayList<T>>;           \
  Template TArrayListIntf<T, IArrayList<T>>;                \
  Template TArrayList<T>

namespace Talvo {
TALVO_ARRAY_LIST(extern template class TALVO_API, int32_t);
TALVO_ARRAY_LIST(extern template class TALVO_API, int64_t);
TALVO_ARRAY_LIST(extern template class TALVO_API, double);
TALVO_ARRAY_LIST(extern template class TALVO_API, string);
TALVO_ARRAY_LIST(extern template class TALVO_API, TObject*);
TALVO_ARRAY_LIST(extern template class TALVO_API, TRef<IInterface>);
}  // namespace Talvo
