// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/Talvo.Threading.Utils.h>

#include <gtest/gtest.h>
#include <tests/threading/Workers.h>
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
  const struct TRegister {
    TProc<> (*Add)(TProc<>);
    void (*Remove)(const TProc<>&);
    void (*Notify)();
  } registers[] = {{RegisterThreadStartNotify, UnRegisterThreadStartNotify, ThreadStartNotify},
                   {RegisterThreadEndNotify, UnRegisterThreadEndNotify, ThreadEndNotify}};
  for (const TRegister& in : registers) {
    std::string calls;
    EXPECT_FALSE(in.Add(nullptr));
    const TProc<> a = in.Add([&] { calls += 'a'; });
    const TProc<> b = in.Add([&] { calls += 'b'; });
    EXPECT_TRUE(in.Add(a) == a);
    in.Notify();
    in.Remove(nullptr);
    in.Remove(a);
    in.Notify();
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
  TProc<> late;
  const TProc<> notice = RegisterThreadStartNotify([&] {
    other.Start([&] { late = RegisterThreadEndNotify([] {}); });
    other.WaitUntilBlocked();
  });
  ThreadStartNotify();
  other.Wait();
  UnRegisterThreadStartNotify(notice);
  UnRegisterThreadEndNotify(late);
}

TEST(ThreadUtilsTest, NamesTheCallingThread) {
  SetCurrentThreadName(u"Someone");
  EXPECT_EQ(GetCurrentThreadName(), u"MainThread") << "whatever was set";
  SetCurrentThreadName(u"");
  TWorker worker, other;
  const auto rename = [&](const string& name, const string& found) {
    worker.Run([&] {
      SetCurrentThreadName(name);
      EXPECT_EQ(GetCurrentThreadName(), found);
    });
    other.Run([&] { EXPECT_EQ(GetCurrentThreadName(), UIntToStr(other.Id())); });
  };
  rename(u"", UIntToStr(worker.Id()));
  rename(u"Worker", u"Worker");
  rename(u"", UIntToStr(worker.Id()));
}

}  // namespace
}  // namespace Talvo
