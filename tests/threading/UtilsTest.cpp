// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/Talvo.Threading.Utils.h>

#include <gtest/gtest.h>
#include <optional>
#include <tests/threading/Workers.h>
#include <unistd.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/runtime/Numbers.h>

namespace Talvo {
namespace {

using Testing::TWorker;

template <class F>
concept IsTakenBack = requires(const F& proc) {
  UnRegisterThreadStartNotify(proc);
  UnRegisterThreadEndNotify(proc);
};
constexpr auto Lambda = [] {};
static_assert(IsTakenBack<TProc<>> && !IsTakenBack<decltype(Lambda)>);

TEST(ThreadUtilsTest, CallsWhatIsRegistered) {
  struct TRegister {
    TProc<> (*Add)(TProc<>);
    void (*Remove)(const TProc<>&);
    void (*Notify)();
  };
  for (const TRegister& in :
       {TRegister{RegisterThreadStartNotify, UnRegisterThreadStartNotify, ThreadStartNotify},
        TRegister{RegisterThreadEndNotify, UnRegisterThreadEndNotify, ThreadEndNotify}}) {
    std::string calls;
    EXPECT_FALSE(in.Add(nullptr));
    const TProc<> a = in.Add([&] { calls += 'a'; });
    const TProc<> b = in.Add([&] { calls += 'b'; });
    EXPECT_TRUE(in.Add(a) == a);
    in.Notify();
    EXPECT_EQ(calls, "aba");
    in.Remove(a);
    in.Remove(nullptr);
    in.Notify();
    EXPECT_EQ(calls, "ababa");
    in.Remove(a);
    const TProc<> failing = in.Add([] { throw EConvertError(u"no"); });
    EXPECT_THROW(in.Notify(), EConvertError);
    in.Remove(failing);
    in.Remove(b);
    in.Notify();
    EXPECT_EQ(calls, "ababab");
  }
}

TEST(ThreadUtilsTest, OneSectionIsHeldWhileCalling) {
  TWorker other;
  bool isTaken = false;
  std::optional<TProc<>> late;
  const TProc<> notice = RegisterThreadStartNotify([&] {
    other.Start([&] {
      late = RegisterThreadEndNotify([] {});
      isTaken = true;
    });
    other.WaitUntilBlocked();
    EXPECT_FALSE(isTaken);
  });
  ThreadStartNotify();
  other.Wait();
  EXPECT_TRUE(isTaken);
  UnRegisterThreadStartNotify(notice);
  UnRegisterThreadEndNotify(*late);
}

TEST(ThreadUtilsTest, NamesTheCallingThread) {
  SetCurrentThreadName(u"Someone");
  EXPECT_EQ(GetCurrentThreadName(), u"MainThread") << "whatever was set";
  SetCurrentThreadName(u"");
  TWorker worker, other;
  worker.Run([] {
    EXPECT_EQ(GetCurrentThreadName(), UIntToStr(static_cast<uint32_t>(gettid())));
    SetCurrentThreadName(u"Worker");
    EXPECT_EQ(GetCurrentThreadName(), u"Worker");
  });
  other.Run([&] { EXPECT_EQ(GetCurrentThreadName(), UIntToStr(other.Id())); });
  worker.Run([&] {
    SetCurrentThreadName(u"");
    EXPECT_EQ(GetCurrentThreadName(), UIntToStr(worker.Id()));
  });
}

}  // namespace
}  // namespace Talvo
