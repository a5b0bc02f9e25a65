// SPDX-License-Identifier: Apache-2.0
#pragma once
// Element types that tell on a container: what it leaks, copies, and touches too late.

#include <gmock/gmock.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/runtime/Function.h>

#include <algorithm>
#include <array>
#include <functional>
#include <random>
#include <sstream>
#include <vector>

namespace Talvo {

using testing::ElementsAre;

/// A number that counts its living copies and can be told to fail at the n-th copy from now.
/// Without safe moves its moves count as copies and may fail as well, leaving the source empty.
template <bool HasSafeMoves>
class TCountedValue {
 public:
  struct ECopyFailed {};
  static int Live() { return FLive; }
  static void ThrowOnCopy(int copy) { FCopiesLeft = copy; }

  TCountedValue(int number = 0) : FNumber(number) { ++FLive; }
  TCountedValue(const TCountedValue& other) : FNumber(other.Copied()) { ++FLive; }
  TCountedValue(TCountedValue&& other) noexcept(HasSafeMoves) : FNumber(other.Moved()) { ++FLive; }
  ~TCountedValue() { --FLive; }
  TCountedValue& operator=(const TCountedValue& other) {
    FNumber = other.Copied();
    return *this;
  }
  TCountedValue& operator=(TCountedValue&& other) noexcept(HasSafeMoves) {
    FNumber = other.Moved();
    return *this;
  }
  int Number() const { return FNumber; }
  int HashValue() const { return FNumber; }
  friend auto operator<=>(const TCountedValue&, const TCountedValue&) = default;

 private:
  int Copied() const {
    if (FCopiesLeft > 0 && --FCopiesLeft == 0) throw ECopyFailed();
    return FNumber;
  }
  int Moved() {
    const int number = std::exchange(FNumber, 0);
    if (FCopiesLeft > 0 && !HasSafeMoves && --FCopiesLeft == 0) throw ECopyFailed();
    return number;
  }
  static inline int FLive = 0;
  static inline int FCopiesLeft = 0;
  int FNumber;
};
using TCounted = TCountedValue<true>;
using TCopied = TCountedValue<false>;

/// Runs `body` with the first copy failing, then the second, until a run survives; nothing may
/// be left behind.
template <class T, class F>
void ForEveryFailure(F&& body) {
  const int before = T::Live();
  struct TReset {
    ~TReset() { T::ThrowOnCopy(0); }
  };
  for (int copy = 1;; ++copy) {
    const TReset reset;
    T::ThrowOnCopy(copy);
    try {
      return body();
    } catch (const typename T::ECopyFailed&) {
      ASSERT_EQ(before, T::Live()) << "leak when copy " << copy << " fails";
    }
  }
}

/// The same for a change to what `make` gives: when a copy fails, `show` must show what it did.
template <class T, class TMake, class TShow, class F>
void ForEveryFailure(TMake&& make, TShow&& show, F&& change) {
  const auto before = show(make());
  ForEveryFailure<T>([&] {
    auto target = make();
    try {
      change(target);
    } catch (const typename T::ECopyFailed&) {
      T::ThrowOnCopy(0);
      EXPECT_TRUE(before == show(target)) << "changed by what failed";
      throw;
    }
  });
}

/// What `code` raises: "ERangeError: Range check failed", or nothing.
template <class F>
std::string Raised(F&& code) {
  try {
    code();
    return "";
  } catch (const Exception& e) {
    return ToUtf8(e.ClassName()) + ": " + e.what();
  }
}

/// An interface whose objects say when they end.
class IWatched : public virtual IInterface {
  TALVO_INTERFACE(IWatched, IInterface);
  virtual int Tag() const = 0;
};
class TWatched : public TImplements<TBasicInterfacedObject, IWatched> {
 public:
  explicit TWatched(int tag = 0, TProc<> onEnd = nullptr) : FTag(tag), FOnEnd(std::move(onEnd)) {
    ++Live;
  }
  ~TWatched() override {
    --Live;
    if (FOnEnd) FOnEnd();
  }
  int Tag() const override { return FTag; }
  static inline int Live = 0;

 private:
  int FTag;
  TProc<> FOnEnd;
};

/// `count` items made from 0, 1, 2, ...
template <class T>
std::vector<T> Sequence(int count) {
  std::vector<T> items;
  for (int i = 0; i < count; ++i) items.push_back(T(i));
  return items;
}

/// The seed of a randomised test: TALVO_SEED, or a new one. It is printed with every failure.
inline unsigned TestSeed() {
  const char* given = std::getenv("TALVO_SEED");
  return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
}
#define TALVO_SEEDED(engine)                                 \
  const unsigned seed = TestSeed();                          \
  SCOPED_TRACE(testing::Message() << "TALVO_SEED=" << seed); \
  std::mt19937_64 engine(seed)

}  // namespace Talvo
