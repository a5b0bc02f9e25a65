// SPDX-License-Identifier: Apache-2.0
#pragma once
// Set: items without duplicates, held by reference, in the order in which they came.
//
//   auto open = TSet<string>::Make({u"left", u"right"});
//   open->Add(u"middle").Remove(u"left");            // mutators return the set
//   if (open->Contains(u"right")) ...
//   for (const string& name : open) ...
//
// Not locked: whoever owns the set locks it. Enumerators keep it alive.

#include <talvo/containers/list/ChangeNotify.h>
#include <talvo/containers/sets/SetVerbs.h>

namespace Talvo {

/// Items without duplicates. T needs a hash (see talvo/runtime/Hash.h) and operator==.
template <class T>
class ISet : public TSetVerbs<T, ISet<T>, ISetCore<T>> {
  TALVO_INTERFACE(ISet, ISizeEnumerable<T>);
};

/// The makers of a concrete set class: `Create` answers the class, `Make` the interface.
template <class TClass, class T, class TSetI>
class TSetMakers {
 public:
  /// Empty, without storage.
  static TRef<TClass> Create() { return Talvo::Create<TClass>(); }
  static TRef<TSetI> Make() { return Create(); }
  /// The items of a list in braces.
  static TRef<TClass> Create(std::initializer_list<T> items) {
    return CreateFrom(Detail::SourceOfBraces(items));
  }
  static TRef<TSetI> Make(std::initializer_list<T> items) { return Create(items); }
  /// The items of another set, or of any other sequence. Asserts that there is one.
  template <Detail::SourceOf<T> S>
  static TRef<TClass> Create(S&& items) {
    return CreateFrom(Detail::TSource<T>(std::forward<S>(items)));
  }
  template <Detail::SourceOf<T> S>
  static TRef<TSetI> Make(S&& items) {
    return Create(std::forward<S>(items));
  }

 private:
  static TRef<TClass> CreateFrom(const Detail::TSource<T>& items) {
    TRef<TClass> made = Create();
    made->DoAssign(items);
    return made;
  }
};

/// The set class behind the interface `I`: ISet<T>, or one derived from it with verbs of its own.
/// A class derived from this one brings its own TSetMakers.
///
/// Subscribers are told once of every call that changes the content. What changes nothing is not
/// announced. Items that leave the set may use it as they end.
template <class T, class I = ISet<T>>
class TSet
    : public TImplements<
          Detail::TDictionaryHolder<Rtl::TDictionary<T, int32_t>, TInterfacedChangeNotifyObject<T>>,
          I, IList>,
      public TSetMakers<TSet<T, I>, T, I> {
 public:
  // IList: items as tagged values.
  TRef<ISizeEnumerator<TValue>> GetValueEnumerator() const override;
  void ClearValues() override { this->DoClear(); }
  TValue GetNewValue() const override { return TValue::From(T{}); }
  void AddValue(const TValue& value) override { this->DoAddOwned(value.AsType<T>()); }

  // The core of the set interface.
  TRef<ISizeEnumerator<T>> NewSizeEnumerator() const override;
  const Rtl::TDictionary<T, int32_t>& GetDictionary() const override { return this->FDictionary; }
  bool DoAdd(TLookupKey<T> item) override { return Store(item); }
  bool DoAddOwned(T&& item) override { return Store(std::move(item)); }
  bool DoAppend(const Detail::TSource<T>& source) override;
  bool DoAssign(const Detail::TSource<T>& source) override;
  bool DoRemove(TLookupKey<T> item) override { return this->RemoveKey(item); }
  bool DoRemoveSource(const Detail::TSource<T>& source) override;
  bool DoRemoveIf(TFunctionRef<bool(const T&)> predicate, bool isOnce) override;
  bool DoIntersect(const Detail::TSource<T>& source) override;
  bool DoClear() override { return this->ClearItems(); }

 private:
  using TMap = Rtl::TDictionary<T, int32_t>;

  template <class Q>
  bool Store(Q&& item) {
    if (!this->FDictionary.TryAdd(std::forward<Q>(item), 0).IsNew) return false;
    this->ChangeNotify();
    return true;
  }
};

}  // namespace Talvo

#include <talvo/containers/sets/Set.inl.h>

// The sets of common types are compiled once, in Set.cpp.
#define TALVO_SET(Template, T)                                                                   \
  Template                                                                                       \
      Detail::TDictionaryHolder<Rtl::TDictionary<T, int32_t>, TInterfacedChangeNotifyObject<T>>; \
  Template TSet<T>

namespace Talvo {
TALVO_SET(extern template class TALVO_API, int32_t);
TALVO_SET(extern template class TALVO_API, string);
}  // namespace Talvo
