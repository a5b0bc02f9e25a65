// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Thread.h>

#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <latch>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/runtime/Function.h>

namespace Talvo {
namespace {

class TTestThread : public TThread {
 public:
  explicit TTestThread(TProc<> body, bool isSuspended = false)
      : TThread(isSuspended), FBody(std::move(body)) {}
  using TThread::IsCurrent;
  using TThread::SetOrphanNotice;
  TProc<> AtEnd;

 protected:
  void Execute() override {
    const TProc<> body = FBody;  // outlives this object
    body();
  }
  void DoTerminate() override {
    if (AtEnd) AtEnd();
  }

 private:
  TProc<> FBody;
};

std::string SystemName(uint32_t threadId) {
  std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

TEST(ThreadTest, RunsWhenItsObjectIsComplete) {
  TThread* seen = nullptr;
  uint32_t id = 0;
  bool isCurrent = false, wasFinished = true;
  TOwn<TTestThread> thread;
  std::latch isMade(1);
  thread = Create<TTestThread>([&] {
    isMade.wait();
    seen = TThread::CurrentThread();
    id = static_cast<uint32_t>(gettid());
    isCurrent = thread->IsCurrent();
    wasFinished = thread->Finished();
    thread->WaitFor();  // on itself: at once
  });
  EXPECT_FALSE(thread->IsCurrent());
  EXPECT_NE(thread->ThreadID(), 0u);
  isMade.count_down();
  thread->WaitFor();
  EXPECT_EQ(seen, thread.Get());
  EXPECT_EQ(thread->ThreadID(), id);
  EXPECT_TRUE(isCurrent);
  EXPECT_FALSE(wasFinished);
  EXPECT_TRUE(thread->Finished());
  EXPECT_EQ(TThread::CurrentThread(), nullptr);
}

TEST(ThreadTest, SuspendedThreadsWaitForStart) {
  bool isRun = false;
  const auto body = [&] { isRun = true; };
  auto thread = Create<TTestThread>(body, /*isSuspended*/ true);
  EXPECT_EQ(thread->ThreadID(), 0u);
  thread->WaitFor();
  EXPECT_FALSE(isRun);
  thread = nullptr;
  EXPECT_FALSE(isRun) << "never started";

  thread = Create<TTestThread>(body, /*isSuspended*/ true);
  thread->Start();
  EXPECT_THROW(thread->Start(), EThread);
  thread->WaitFor();
  EXPECT_TRUE(isRun);
  EXPECT_THROW(thread->Start(), EThread) << "nor twice when it has ended";
}

TEST(ThreadTest, TheEndOfTheObjectWaitsForTheThread) {
  std::atomic<bool> isEnded = false;
  {
    TTestThread* self = nullptr;
    std::latch isSet(1);
    const auto thread = Create<TTestThread>([&] {
      isSet.wait();
      while (!self->Terminated()) std::this_thread::yield();
      isEnded = true;
    });
    self = thread.Get();
    isSet.count_down();
    EXPECT_FALSE(thread->Terminated());
  }
  EXPECT_TRUE(isEnded);
}

TEST(ThreadTest, ManyMayWaitForOne) {
  std::latch mayEnd(1);
  const auto thread = Create<TTestThread>([&] { mayEnd.wait(); });
  std::atomic<int> returned = 0;
  std::vector<std::jthread> waiters;
  for (int i = 0; i < 4; ++i) {
    waiters.emplace_back([&] {
      thread->WaitFor();
      returned += thread->Finished() ? 1 : 100;
    });
  }
  mayEnd.count_down();
  waiters.clear();
  EXPECT_EQ(returned, 4);
}

TEST(ThreadTest, KeepsWhatLeavesExecute) {
  bool isNotified = false;
  auto thread = Create<TTestThread>([] { throw EConvertError(u"broken"); }, /*isSuspended*/ true);
  thread->AtEnd = [&] {
    isNotified = true;
    throw EIntOverflow(u"later");
  };
  EXPECT_EQ(thread->FatalException(), nullptr);
  thread->Start();
  thread->WaitFor();
  EXPECT_TRUE(isNotified);
  ASSERT_NE(thread->FatalException(), nullptr);
  EXPECT_THROW(std::rethrow_exception(thread->FatalException()), EConvertError);
}

// The object goes in the middle of Execute; AddressSanitizer watches what is touched afterwards.
TEST(ThreadTest, MayEndItsOwnObject) {
  static std::atomic<int> notices, sawNoObject;
  notices = sawNoObject = 0;
  std::latch isSet(1);
  TTestThread* self = nullptr;
  bool isTerminated = false;
  auto thread = Create<TTestThread>([&] {
    isSet.wait();
    self->SetOrphanNotice([] {
      sawNoObject = TThread::CurrentThread() == nullptr;
      ++notices;
      notices.notify_all();
    });
    self->AtEnd = [] { notices = 100; };
    Free(self);
    isTerminated = true;
    throw EConvertError(u"goes nowhere");
  });
  self = thread.Detach();
  isSet.count_down();
  notices.wait(0);
  EXPECT_EQ(notices, 1) << "the orphan's notice, and not DoTerminate";
  EXPECT_EQ(sawNoObject, 1);
  EXPECT_TRUE(isTerminated);
}

TEST(ThreadTest, ShowsTheEndOfLongNames) {
  struct TCase {
    const char16_t* Name;
    const char* Shown;
  };
  std::latch mayEnd(1);
  const auto thread = Create<TTestThread>([&] { mayEnd.wait(); });
  for (const TCase& test : {TCase{u"Short", "Short"}, TCase{u"Exactly15Bytes!", "Exactly15Bytes!"},
                            TCase{u"PlantController.Worker12", "roller.Worker12"},
                            TCase{u"\u00e4Exactly14Bytes", "Exactly14Bytes"}, TCase{u"", ""}}) {
    TThread::NameThreadForDebugging(test.Name, thread->ThreadID());
    EXPECT_EQ(SystemName(thread->ThreadID()), test.Shown);
  }
  mayEnd.count_down();
  std::string own;
  Create<TTestThread>([&] {
    TThread::NameThreadForDebugging(u"TheLongNameOfAThread");
    own = SystemName(static_cast<uint32_t>(gettid()));
  })->WaitFor();
  EXPECT_EQ(own, "ngNameOfAThread");
}

TEST(ThreadTest, SetsPriorities) {
  std::latch mayEnd(1);
  int first = 0;
  const auto thread = Create<TTestThread>(
      [&] {
        first = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
        mayEnd.wait();
      },
      /*isSuspended*/ true);
  EXPECT_EQ(thread->GetPriority(), tpNormal);
  thread->SetPriority(tpLowest);  // before the system knows the thread
  thread->Start();
  const auto nice = [&] { return getpriority(PRIO_PROCESS, thread->ThreadID()); };
  thread->SetPriority(tpIdle);
  EXPECT_EQ(nice(), 19);
  EXPECT_EQ(thread->Priority(), tpIdle);
  EXPECT_THROW(thread->SetPriority(static_cast<TThreadPriority>(7)), ERangeError);
  EXPECT_EQ(thread->Priority(), tpIdle);
  mayEnd.count_down();
  thread->WaitFor();
  EXPECT_GE(first, 10);
  thread->SetPriority(tpHighest);  // of nobody
  EXPECT_EQ(thread->GetPriority(), tpHighest);
}

TEST(ThreadTest, ForkedChildrenHaveNoneToWaitFor) {
  std::latch mayEnd(1);
  auto thread = Create<TTestThread>([&] { mayEnd.wait(); });
  EXPECT_NE(thread->ThreadID(), 0u);
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    thread->WaitFor();
    thread = nullptr;
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  mayEnd.count_down();
}

/// Raises when it is told to end.
class TStubbornThread : public TThread {
 public:
  explicit TStubbornThread(std::atomic<bool>& isRunning) : FIsRunning(isRunning) {}
  void Terminate() override { throw EAssertionFailed(u"no"); }

 protected:
  void Execute() override {
    FIsRunning = true;
    while (!Terminated()) std::this_thread::yield();
    FIsRunning = false;
  }

 private:
  std::atomic<bool>& FIsRunning;
};

TEST(ThreadTest, EndsBeforeItsObjectWhateverIsRaised) {
  std::atomic<bool> isRunning = false;
  auto thread = Create<TStubbornThread>(isRunning);
  while (!isRunning) std::this_thread::yield();
  thread = nullptr;
  EXPECT_FALSE(isRunning);
}

}  // namespace
}  // namespace Talvo
