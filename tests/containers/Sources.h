// SPDX-License-Identifier: Apache-2.0
#pragma once
// Everything that can be handed to a container as a sequence of items.

#include <tests/TestTypes.h>
#include <talvo/containers/Talvo.Containers.List.h>

#include <deque>
#include <span>

namespace Talvo {

/// An enumerator object over copies of items.
template <class T>
class TOwnedWalk : public TEnumerator<T> {
 public:
  explicit TOwnedWalk(const std::vector<T>& items) : FItems(items) { ++Live; }
  ~TOwnedWalk() override { --Live; }
  bool MoveNext() override { return FNext++ < FItems.size(); }
  const T& Current() override { return FItems[FNext - 1]; }
  static inline int Live = 0;

 private:
  std::vector<T> FItems;
  size_t FNext = 0;
};

/// A walk over copies of items, which may call out at each step.
template <class T, class I = IEnumerator<T>>
class TVectorWalk : public TImplements<TBasicEnumerator<T>, I> {
 public:
  TVectorWalk(const std::vector<T>& items, TProc<int32_t> onStep)
      : FItems(items.begin(), items.end()), FOnStep(std::move(onStep)) {}
  void Reset() override { FNext = 0; }
  bool MoveNext() override {
    if (FOnStep) FOnStep(static_cast<int32_t>(FNext));
    return FNext++ < FItems.size();
  }
  const T& GenericGetCurrent() override { return FItems.at(FNext - 1); }

 private:
  std::deque<T> FItems;  // real items, also of bool
  size_t FNext = 0;
  TProc<int32_t> FOnStep;
};

/// The same with a size, which may be false.
template <class T>
class TSizedVectorWalk final : public TVectorWalk<T, ISizeEnumerator<T>> {
 public:
  TSizedVectorWalk(const std::vector<T>& items, int32_t size, TProc<int32_t> onStep)
      : TSizedVectorWalk::TVectorWalk(items, std::move(onStep)), FSize(size) {}
  int32_t GetSize() override { return FSize; }

 private:
  int32_t FSize;
};

template <class T>
TRef<IEnumerator<T>> UnsizedWalk(const std::vector<T>& items, TProc<int32_t> onStep = nullptr) {
  return Create<TVectorWalk<T>>(items, std::move(onStep));
}
template <class T>
TRef<ISizeEnumerator<T>> SizedWalk(const std::vector<T>& items) {
  return Create<TSizedVectorWalk<T>>(items, static_cast<int32_t>(items.size()), nullptr);
}
template <class T>
TRef<ISizeEnumerator<T>> SizedWalk(const std::vector<T>& items, int32_t size,
                                   TProc<int32_t> onStep = nullptr) {
  return Create<TSizedVectorWalk<T>>(items, size, std::move(onStep));
}

/// A sequence that can be walked and does not know its size.
template <class T>
class TUnsized final : public TImplements<TBasicInterfacedObject, IEnumerable<T>> {
 public:
  explicit TUnsized(std::vector<T> items) : FItems(std::move(items)) {}
  TRef<IEnumerator<T>> NewEnumerator() const override { return UnsizedWalk(FItems); }
  TRef<IEnumerator<>> NewObjectEnumerator() const override { return UnsizedWalk(FItems); }

 private:
  std::vector<T> FItems;
};

/// Calls `take` with the items in every form of a source.
template <class T, class F>
void ForEverySource(const std::vector<T>& items, F&& take) {
  const auto list = TArrayList<T>::MakeArray(items);
  take(list), take(*list), take(static_cast<const IArrayList<T>*>(list.Get()));
  take(TRef<ISizeEnumerable<T>>(list)), take(Supports<IEnumerable<T>>(list));
  take(Create<TUnsized<T>>(items)), take(list->GetEnumerator()), take(UnsizedWalk(items));
  take(Create<TOwnedWalk<T>>(items)), take(TArray<T>(items));
  take(items), take(std::span(items)), take(std::vector<T>(items));
}

/// The items of a container, which a reference may hold.
template <class L>
auto Items(const L& container) {
  std::vector<std::remove_cvref_t<decltype(*std::begin(container))>> items;
  for (const auto& item : container) items.push_back(item);
  return items;
}

}  // namespace Talvo
