// SPDX-License-Identifier: Apache-2.0
#pragma once
// Sources for containers other than lists and arrays.

#include <talvo/containers/common/Enumerable.h>

#include <deque>
#include <vector>

namespace Talvo {

/// An enumerator object that yields 0, 1, ... below `count`.
template <class T>
class TCounter : public TEnumerator<T> {
 public:
  explicit TCounter(int count) : FCount(count) { ++Live; }
  ~TCounter() override { --Live; }
  bool MoveNext() override {
    if (FNext >= FCount) return false;
    FCurrent = T(FNext++);
    return true;
  }
  const T& Current() override { return FCurrent; }
  static inline int Live = 0;

 private:
  int FCount;
  int FNext = 0;
  T FCurrent{};
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

}  // namespace Talvo
