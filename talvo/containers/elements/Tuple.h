// SPDX-License-Identifier: Apache-2.0
#pragma once
// Tuples of two or three items, held by reference or as plain records.
//
//   auto pair = TTuple<string, int32_t>::Make(u"left", 3);
//   string name;
//   pair->Get1(name).Get2(count);            // fills both
//   TRecTuple<string, int32_t> record(u"left", 3);
//
// A tuple does not change once it is made, so any thread may read it.

#include <utility>
#include <talvo/runtime/Object.h>

namespace Talvo {

/// A tuple held by reference; there are those of two and those of three items.
template <class... T>
class ITuple;
template <class... T>
class TTuple;
/// A tuple that is a plain record.
template <class... T>
struct TRecTuple;

/// Two items. They are answered as copies.
template <class T1, class T2>
class ITuple<T1, T2> : public virtual IInterface {
  TALVO_INTERFACE(ITuple, IInterface);
  virtual T1 GetItem1() const = 0;
  virtual T2 GetItem2() const = 0;
  /// These write the item to `value` and return the tuple.
  virtual const ITuple& Get1(T1& value) const = 0;
  virtual const ITuple& Get2(T2& value) const = 0;

  T1 Item1() const { return GetItem1(); }
  T2 Item2() const { return GetItem2(); }
};

/// Three items. They are answered as copies.
template <class T1, class T2, class T3>
class ITuple<T1, T2, T3> : public virtual IInterface {
  TALVO_INTERFACE(ITuple, IInterface);
  virtual T1 GetItem1() const = 0;
  virtual T2 GetItem2() const = 0;
  virtual T3 GetItem3() const = 0;
  /// These write the item to `value` and return the tuple.
  virtual const ITuple& Get1(T1& value) const = 0;
  virtual const ITuple& Get2(T2& value) const = 0;
  virtual const ITuple& Get3(T3& value) const = 0;

  T1 Item1() const { return GetItem1(); }
  T2 Item2() const { return GetItem2(); }
  T3 Item3() const { return GetItem3(); }
};

/// Two items, compared one after the other.
template <class T1, class T2>
struct TRecTuple<T1, T2> {
  /// The default values until they are set.
  T1 Item1{};
  T2 Item2{};

  TRecTuple() = default;
  TRecTuple(T1 item1, T2 item2) : Item1(std::move(item1)), Item2(std::move(item2)) {}
  friend bool operator==(const TRecTuple&, const TRecTuple&) = default;
};

/// Three items, compared one after the other.
template <class T1, class T2, class T3>
struct TRecTuple<T1, T2, T3> {
  /// The default values until they are set.
  T1 Item1{};
  T2 Item2{};
  T3 Item3{};

  TRecTuple() = default;
  TRecTuple(T1 item1, T2 item2, T3 item3)
      : Item1(std::move(item1)), Item2(std::move(item2)), Item3(std::move(item3)) {}
  friend bool operator==(const TRecTuple&, const TRecTuple&) = default;
};

/// The class behind ITuple.
template <class T1, class T2>
class TTuple<T1, T2> final : public TImplements<TBasicInterfacedObject, ITuple<T1, T2>> {
 public:
  using TInterface = ITuple<T1, T2>;

  /// A tuple of these items.
  TTuple(T1 item1, T2 item2) : FItems(std::move(item1), std::move(item2)) {}
  static TRef<TInterface> Make(T1 item1, T2 item2) {
    return Create<TTuple>(std::move(item1), std::move(item2));
  }

  T1 GetItem1() const override { return FItems.Item1; }
  T2 GetItem2() const override { return FItems.Item2; }
  const TInterface& Get1(T1& value) const override { return value = FItems.Item1, *this; }
  const TInterface& Get2(T2& value) const override { return value = FItems.Item2, *this; }

 private:
  const TRecTuple<T1, T2> FItems;
};

/// The class behind ITuple.
template <class T1, class T2, class T3>
class TTuple<T1, T2, T3> final : public TImplements<TBasicInterfacedObject, ITuple<T1, T2, T3>> {
 public:
  using TInterface = ITuple<T1, T2, T3>;

  /// A tuple of these items.
  TTuple(T1 item1, T2 item2, T3 item3)
      : FItems(std::move(item1), std::move(item2), std::move(item3)) {}
  static TRef<TInterface> Make(T1 item1, T2 item2, T3 item3) {
    return Create<TTuple>(std::move(item1), std::move(item2), std::move(item3));
  }

  T1 GetItem1() const override { return FItems.Item1; }
  T2 GetItem2() const override { return FItems.Item2; }
  T3 GetItem3() const override { return FItems.Item3; }
  const TInterface& Get1(T1& value) const override { return value = FItems.Item1, *this; }
  const TInterface& Get2(T2& value) const override { return value = FItems.Item2, *this; }
  const TInterface& Get3(T3& value) const override { return value = FItems.Item3, *this; }

 private:
  const TRecTuple<T1, T2, T3> FItems;
};

}  // namespace Talvo
