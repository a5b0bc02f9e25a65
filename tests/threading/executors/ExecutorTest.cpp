// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/executors/ThreadPoolExecutor.h>

#include <algorithm>
#include <tests/threading/Fixtures.h>
#include <talvo/runtime/ClassDefaults.h>
#include <talvo/threading/executors/DirectExecutor.h>
#include <talvo/threading/executors/ExecutionTask.h>
#include <talvo/threading/executors/StopToken.h>
#include <talvo/threading/sync/SynchronizationObject.h>
#include <talvo/threading/threads/ProcessingThread.h>

namespace Talvo {
namespace {

using namespace Testing;
using TSelfProc = TConstProc<TRef<IExecution>>;
using IExecutionExt = TThreadPoolExecutor::IExecutionExt;

/// Waits for it, however long it takes.
bool Comes(const TRef<IExecution>& job) {
  return job->WaitFor(NoTimeLimit);
}

// --- What all executors have in common ----------------------------------------------------------

class ExecutorTest : public ::testing::TestWithParam<const char*> {
 protected:
  static TRef<IExecutor> MakeExecutor() {
    const std::string kind = GetParam();
    if (kind == "Direct") return TDirectExecutor::Make();
    if (kind == "Thread") return TThreadExecutor::Make();
    return TThreadPoolExecutor::Make(2);
  }
  const TRef<IExecutor> FExecutor = MakeExecutor();
  const bool FIsDirect = std::string(GetParam()) == "Direct";
};
INSTANTIATE_TEST_SUITE_P(All, ExecutorTest, ::testing::Values("Direct", "Thread", "Pool"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(ExecutorTest, RunsCodeOfBothKinds) {
  std::atomic<int> ran = 0;
  uint32_t thread = 0;
  TRef<IExecution> seen;
  const auto plain = FExecutor->Execute([&] { thread = TBasicThread::GetCurrentThreadId(); });
  EXPECT_TRUE(Comes(plain));
  EXPECT_EQ(thread == TBasicThread::GetCurrentThreadId(), FIsDirect);
  const auto self = FExecutor->Execute([&](const TRef<IExecution>& execution) {
    seen = execution;
    ++ran;
  });
  EXPECT_TRUE(Comes(self) && self->WaitFor(0)) << "once and for all";
  EXPECT_EQ(ran, 1);
  EXPECT_TRUE(seen == self && !self->IsTerminated());
  // Nobody has to keep the result.
  FExecutor->Execute([&] { ++ran; });
  FExecutor->Execute([&](const TRef<IExecution>&) { ++ran; });
  WaitUntil([&] { return ran == 3; });
  EXPECT_THROW(FExecutor->Execute(TProc<>()), EAssertionFailed);
  EXPECT_THROW(FExecutor->Execute(TSelfProc()), EAssertionFailed);
}

TEST_P(ExecutorTest, CodeMayRaiseAndTerminateItself) {
  const auto fail = [] { throw ERangeError(u""); };
  const auto failWithSelf = [](const TRef<IExecution>&) { throw ERangeError(u""); };
  if (FIsDirect) {
    EXPECT_THROW(FExecutor->Execute(fail), ERangeError);
    EXPECT_THROW(FExecutor->Execute(failWithSelf), ERangeError);
  } else {
    for (const auto& failed : {FExecutor->Execute(fail), FExecutor->Execute(failWithSelf)}) {
      EXPECT_TRUE(Comes(failed)) << "it has ended too";
      EXPECT_FALSE(failed->IsTerminated());
    }
  }
  const auto itself = FExecutor->Execute([&](const TRef<IExecution>& execution) {
    execution->Terminate();
    EXPECT_EQ(execution->WaitFor(0), FIsDirect) << "it only learns of it";
  });
  EXPECT_TRUE(Comes(itself));
  EXPECT_EQ(itself->IsTerminated(), !FIsDirect) << "what runs at once cannot be called off";
}

TEST_P(ExecutorTest, TerminateReachesAndWaitsForWhatRuns) {
  if (FIsDirect) return;
  TGate gate;
  bool hasPassed = false;
  const auto running = FExecutor->Execute([&](const TRef<IExecution>& execution) {
    gate();
    FExecutor->Execute([] {});
    WaitUntil([&] { return execution->IsTerminated(); });
    hasPassed = true;
  });
  gate.WaitUntilEntered();
  EXPECT_FALSE(running->WaitFor(0));
  TStuck terminator([&] {
    running->Terminate();
    EXPECT_TRUE(hasPassed);
  });
  FExecutor->Execute([] {});  // who waits keeps nobody out
  gate.Open();
  terminator.Wait();
  EXPECT_TRUE(running->IsTerminated() && running->WaitFor(0));
  running->Terminate();
}

TEST_P(ExecutorTest, StopTokensCallOff) {
  std::stop_source stop;
  int ran = 0;
  const auto count = [&] { ++ran; };
  const auto before = ExecuteUntil(FExecutor, stop.get_token(), count);
  Comes(before);
  EXPECT_FALSE(before->IsTerminated());
  const auto during =
      ExecuteUntil(FExecutor, stop.get_token(), [&](const TRef<IExecution>& execution) {
        ++ran;
        stop.request_stop();
        WaitUntil([&] { return execution->IsTerminated(); });
      });
  Comes(during);
  EXPECT_TRUE(during->IsTerminated());
  Comes(ExecuteUntil(FExecutor, stop.get_token(), count));
  EXPECT_EQ(ran, 2);
}

TEST(ThreadExecutorTest, EachExecutionHasANamedThread) {
  const auto owner = Create<TComponent>(nullptr);
  owner->SetName(u"plant");
  const auto executor = TThreadExecutor::MakeComponent(owner.Get());
  executor->SetPriority(tpLowest);
  EXPECT_THROW(executor->SetPriority(static_cast<TThreadPriority>(7)), ERangeError);
  const TGate gate;
  const auto first = executor->Execute(gate);
  gate.WaitUntilEntered();
  EXPECT_TRUE(Comes(executor->Execute([] {
    EXPECT_EQ(GetCurrentThreadName(), u"plant.ThreadExecutor");
    EXPECT_EQ(TThread::CurrentThread()->GetPriority(), tpLowest);
  }))) << "while the first one runs";
  gate.Open();
  EXPECT_TRUE(Comes(first));
  EXPECT_TRUE(Comes(TThreadExecutor::Make()->Execute(
      [] { EXPECT_EQ(GetCurrentThreadName(), u"ThreadExecutor"); })));
}

// --- The pool -----------------------------------------------------------------------------------

/// Code that must not run.
const TProc<> Never = [] { ADD_FAILURE(); };

class ThreadPoolTest : public ::testing::Test {
 protected:
  TRef<IExecution> Occupy(const TGate& gate) {
    auto job = FPool->Execute(gate);
    gate.WaitUntilEntered();
    return job;
  }
  void Remove(const TRef<IExecution>& job) {
    ObjectAs<TThreadPoolExecutor>(FPool)->RemoveTask(Supports<IExecutionExt>(job));
  }
  static void ExpectNotToBeGiven(const TRef<IExecution>& job) {
    const auto task = Supports<IExecutionExt>(job);
    EXPECT_THROW(task->SetThread(TProcessingThread::Make()), EAssertionFailed);
  }

  TRef<IThreadPoolExecutor> FPool = TThreadPoolExecutor::Make(1);
  TGate FGate;
};

TEST_F(ThreadPoolTest, WorkGoesToTheFirstThreadThatTakesMore) {
  for (const uint32_t groupSize : {0u, 2u}) {
    SCOPED_TRACE(groupSize);
    FPool->SetGroupSize(groupSize).SetCount(2);
    // A thread runs one, and takes others as long as no more than the group size wait.
    const size_t each = 1 + groupSize + 1;
    std::vector<TGate> gates(2 * each + 2);
    std::vector<TRef<IExecution>> jobs;
    for (size_t i = 0; i < gates.size(); ++i) {
      jobs.push_back(FPool->Execute(gates[i]));
      // The first one, and the one that is too much for the first thread.
      if (i == 0 || i == each) gates[i].WaitUntilEntered();
    }
    const auto hasEntered = [](const TGate& gate) { return gate.Thread() != 0; };
    EXPECT_EQ(std::ranges::count_if(gates, hasEntered), 2);
    EXPECT_NE(gates[0].Thread(), gates[each].Thread());
    // Of the last two, which wait in the pool, one is called off.
    const TRef<IExecution> calledOff = jobs[2 * each];
    calledOff->Terminate();
    EXPECT_TRUE(calledOff->WaitFor(0) && calledOff->IsTerminated());
    for (size_t i = 0; i < each; ++i) {
      gates[i].Open();
      const TGate& next = i + 1 < each ? gates[i + 1] : gates.back();
      next.WaitUntilEntered();
      EXPECT_EQ(next.Thread(), gates[0].Thread());
    }
    for (const TGate& gate : gates) gate.Open();
    EXPECT_TRUE(std::ranges::all_of(jobs, Comes));
    EXPECT_EQ(gates[each + 1].Thread(), gates[each].Thread());
    EXPECT_FALSE(hasEntered(gates[2 * each]));
  }
}

TEST_F(ThreadPoolTest, CountsAndPriorities) {
  FPool = TThreadPoolExecutor::Make();
  const auto waiting = FPool->Execute([] {});
  EXPECT_FALSE(waiting->WaitFor(10)) << "no thread is made without a limit";
  FPool->SetCount(0);  // is 1
  EXPECT_FALSE(waiting->WaitFor(10)) << "what is queued is not looked at again";
  FPool->SetPriority(tpLower);
  Comes(FPool->Execute([] { EXPECT_EQ(TThread::CurrentThread()->GetPriority(), tpLower); }));
  EXPECT_TRUE(waiting->WaitFor(0)) << "came first";
  EXPECT_THROW(FPool->SetCount(2147483648u), ERangeError);
  EXPECT_THROW(FPool->SetPriority(static_cast<TThreadPriority>(7)), ERangeError);
  FPool = TThreadPoolExecutor::Make(-5);
  EXPECT_FALSE(FPool->Execute([] {})->WaitFor(10)) << "a count is kept as it is given";
}

TEST_F(ThreadPoolTest, SurplusThreadsEndAsTheyRunDry) {
  const TNotices notices;
  FPool->SetCount(3);
  TGate gates[3];
  const auto first = Occupy(gates[0]);
  for (int i : {1, 2}) {
    FPool->Execute([] {});  // fills up the thread's queue, so that the next one is made
    Occupy(gates[i]);
  }
  FPool->SetCount(1);
  EXPECT_EQ(notices.Ends, 0);
  gates[2].Open();
  notices.WaitForEnds(1);
  gates[0].Open();  // though the execution that it ran is still held
  notices.WaitForEnds(2);
  gates[1].Open();
  FGate.Open();
  Comes(FPool->Execute(FGate));
  EXPECT_EQ(FGate.Thread(), gates[1].Thread());
  EXPECT_EQ(notices.Ends, 2);
}

TEST_F(ThreadPoolTest, LaterWorkStaysBehindWhatWaitsInThePool) {
  std::string order;
  Occupy(FGate);
  for (const char letter : {'a', 'b', 'c'}) {
    FPool->Execute([&order, letter] { order += letter; });
  }
  FPool->SetGroupSize(9);  // now the thread would take more
  const auto last = FPool->Execute([&order] { order += 'd'; });
  FGate.Open();
  EXPECT_TRUE(Comes(last));
  EXPECT_EQ(order, "abcd");
}

TEST_F(ThreadPoolTest, WhatWaitsIsWithdrawn) {
  const auto held = std::make_shared<int>();
  Occupy(FGate);
  const auto atThread = FPool->Execute([held] { ADD_FAILURE(); });
  const auto inPool = FPool->Execute([held] { ADD_FAILURE(); });
  for (const auto& job : {atThread, inPool, atThread, inPool}) {
    job->Terminate();
    EXPECT_TRUE(job->IsTerminated() && job->WaitFor(0));
  }
  EXPECT_EQ(held.use_count(), 1) << "what the code held is let go";
  // By code on the same thread, too.
  FPool->SetGroupSize(1);
  TRef<IExecution> behind;
  const auto front = FPool->Execute([&] { behind->Terminate(); });
  behind = FPool->Execute(Never);
  FGate.Open();
  EXPECT_TRUE(Comes(front) && Comes(behind));
  ExpectNotToBeGiven(front);
}

TEST_F(ThreadPoolTest, ATaskCanBeTakenOutAndGivenToAThread) {
  FPool = TThreadPoolExecutor::Make();  // has no threads
  const auto worker = TProcessingThread::Make();
  const auto given = FPool->Execute([] {}), removed = FPool->Execute(Never);
  const auto task = Supports<IExecutionExt>(given);
  EXPECT_THROW(task->SetThread(nullptr), EAssertionFailed);
  task->SetThread(worker);
  EXPECT_TRUE(Comes(given));
  Remove(removed);
  const auto waiting = FPool->Execute([] {});
  FPool->SetCount(1);
  ObjectAs<TThreadPoolExecutor>(FPool)->ProcessQueue();
  EXPECT_TRUE(Comes(waiting));
  EXPECT_FALSE(removed->WaitFor(0));
  removed->Terminate();
  EXPECT_TRUE(removed->WaitFor(0));
}

TEST_F(ThreadPoolTest, WhatCodeHoldsMayComeBackWhenItEnds) {
  struct THeld {
    TRef<IExecution>& Job;
    TRef<IThreadPoolExecutor> Pool;
    std::atomic<int>& Ended;
    ~THeld() {
      Job->Terminate();  // its own
      Pool->Execute([&ended = Ended] { ++ended; });
    }
  };
  std::atomic<int> ended = 0;
  TRef<IExecution> jobs[2];
  Occupy(FGate);
  for (auto& job : jobs) {
    job = FPool->Execute([held = std::shared_ptr<THeld>(new THeld{job, FPool, ended})] {});
  }
  jobs[1]->Terminate();  // the other one runs
  FGate.Open();
  EXPECT_TRUE(std::ranges::all_of(jobs, Comes));
  WaitUntil([&] { return ended == 2; });
}

TEST_F(ThreadPoolTest, TheEndWaitsForWhatRunsAndDropsTheRest) {
  const auto held = std::make_shared<int>();
  const auto running = FPool->Execute([gate = FGate] {
    gate();
    WaitUntil([] { return TThread::CurrentThread()->Terminated(); });
  });
  FGate.Open();
  FGate.WaitUntilEntered();
  const auto atThread = FPool->Execute(Never);
  const auto inPool = FPool->Execute([held] { ADD_FAILURE(); });
  const auto removed = FPool->Execute(Never);
  Remove(removed);
  FPool = nullptr;
  EXPECT_TRUE(running->WaitFor(0));
  EXPECT_EQ(held.use_count(), 1);
  for (const auto& job : {running, atThread, inPool}) ExpectNotToBeGiven(job);
  for (const auto& job : {atThread, inPool, removed}) {
    EXPECT_FALSE(job->WaitFor(0));
    job->Terminate();
    EXPECT_TRUE(job->WaitFor(0));
  }
}

TEST_F(ThreadPoolTest, CodeMayDropThePool) {
  bool isInside = false;
  FPool->Execute([&] {
    isInside = true;
    FGate();
    FPool = nullptr;
    isInside = false;
  });
  FGate.WaitUntilEntered();
  const auto behind =
      FPool->Execute([&] { EXPECT_FALSE(isInside) << "it runs behind, not within"; });
  FGate.Open();
  EXPECT_TRUE(Comes(behind));
  EXPECT_FALSE(FPool);
}

// --- Groups, managed objects --------------------------------------------------------------------

/// Answers as it is told, and writes down what it is asked.
class TScriptedExecution : public TImplements<TBasicInterfacedObject, IExecution> {
 public:
  TScriptedExecution(bool isDone, std::string& log) : FIsDone(isDone), FLog(log) {}
  bool WaitFor(uint32_t timeoutMs) override {
    FLog += timeoutMs == NoTimeLimit ? "w* " : "w" + std::to_string(timeoutMs) + " ";
    return FIsDone || timeoutMs == NoTimeLimit;
  }
  void Terminate() override { FLog += "t "; }
  bool IsTerminated() override { return false; }

 private:
  const bool FIsDone;
  std::string& FLog;
};

TEST(ExecutionTaskTest, AsksOneAfterTheOther) {
  struct TCase {
    std::vector<bool> Done;
    uint32_t Timeout;
    bool Answer;
    std::string Log, Terminated, AtTheEnd;
  };
  for (const TCase& test : {TCase{{}, 0, true, "", "", ""},
                            {{true, true}, 7, true, "w7 w0 ", "t t ", "w* w* "},
                            {{true, false, true}, 7, false, "w7 w0 ", "t t t ", "w* w* w* "},
                            {{true, false}, NoTimeLimit, true, "w* w* ", "t t ", "w* w* "}}) {
    std::string log;
    auto task = TExecutionTask::Make();
    for (bool isDone : test.Done) task->Add(Create<TScriptedExecution>(isDone, log));
    EXPECT_EQ(task->WaitFor(test.Timeout), test.Answer);
    EXPECT_EQ(std::exchange(log, {}), test.Log);
    EXPECT_FALSE(task->IsTerminated());
    task->Terminate();
    EXPECT_EQ(std::exchange(log, {}), test.Terminated);
    EXPECT_TRUE(task->IsTerminated());
    EXPECT_THROW(task->Add(nullptr), EAssertionFailed);
    task = nullptr;
    EXPECT_EQ(log, test.AtTheEnd) << "its end waits for all, without a limit";
  }
}

std::string GTurns;

class TManaged : public TManagedNoCreateInterfacedObject {
 public:
  TManaged() : TManagedNoCreateInterfacedObject(Do_Not_Use_This) { GTurns += 'c'; }
  ~TManaged() override { GTurns += 'd'; }
};

TEST(ManagedObjectTest, TheHookIsCalledAtEachTurn) {
  TClassDefaultsHook hook;
  hook.InitClassDefaults = [](TObject&) { GTurns += 'i'; };
  hook.BeforeDestruction = [](TObject&) { GTurns += 'b'; };
  hook.Destruction = [](TObject&) noexcept { GTurns += 'e'; };
  const TClassDefaultsHook* before = SetClassDefaults(&hook);
  Create<TManaged>();
  SetClassDefaults(before);
  EXPECT_EQ(std::exchange(GTurns, {}), "cibed");
}

// --- Ends, and threads that leave ---------------------------------------------------------------

bool IsSetWithin(int64_t limitMs, const std::atomic<bool>& flag) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
  while (!flag && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
  return flag;
}

void WaitUntilSet(const std::atomic<bool>& flag) {
  while (!flag) std::this_thread::yield();
}

TEST_F(ThreadPoolTest, WorkAddedWhileTheEndWaitsIsLetGo) {
  auto pool = TThreadPoolExecutor::Make(1);
  IThreadPoolExecutor& ending = *pool;  // for the code that its end waits for
  auto held = std::make_shared<int>();
  std::atomic<bool> hasBegun = false;
  TRef<IExecution> late;
  pool->Execute([&] {
    hasBegun = true;
    while (!TThread::CurrentThread()->Terminated()) std::this_thread::yield();
    late = ending.Execute([held] { ADD_FAILURE(); });
    ending.SetCount(3);
  });
  WaitUntilSet(hasBegun);
  pool = nullptr;
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_FALSE(late->WaitFor(0));
  late->Terminate();
  EXPECT_TRUE(late->WaitFor(0));
}

// One thread adds work from inside the pool's section: the other one has run dry, is too many, and
// waits for the section to leave.
TEST_F(ThreadPoolTest, NoWorkRunsOnAThreadThatLeaves) {
  std::atomic<int> cutOff = 0;
  for (int round = 0; round < 300; ++round) {
    const auto pool = TThreadPoolExecutor::Make(2);
    pool->SetPriority(tpNormal);
    const auto task = TExecutionTask::Make();
    std::atomic<bool> isHere = false, isThere = false, mayGoOn = false, mayEnd = false;
    std::vector<TRef<IExecution>> added;
    task->Add(pool->Execute([&] {
      isHere = true;
      WaitUntilSet(mayGoOn);
      const auto worker = Supports<IProcessingThread>(TThread::CurrentThread());
      mayEnd = true;
      for (int i = 0; i < 200; ++i) {
        worker->Cancel(worker->Process(TWorkItem([&](const TRef<IProcessingThread>&, bool) {
          added.push_back(pool->Execute([&] { cutOff += TThread::CurrentThread()->Terminated(); }));
        })));
      }
    }));
    WaitUntilSet(isHere);
    task->Add(pool->Execute([] {}));  // waits at the first thread, so that a second one is made
    task->Add(pool->Execute([&] {
      isThere = true;
      WaitUntilSet(mayEnd);
    }));
    WaitUntilSet(isThere);
    pool->SetCount(1);
    mayGoOn = true;
    task->WaitFor(NoTimeLimit);
    for (const auto& job : added) job->WaitFor(NoTimeLimit);
  }
  EXPECT_EQ(cutOff, 0);
}

TEST(ThreadExecutorTest, EveryTerminateWaitsForTheCode) {
  std::atomic<bool> isCalledOff = false, hasReturned = false, hasEnded = false;
  const auto job = TThreadExecutor::Make()->Execute([&](const TRef<IExecution>& execution) {
    execution->Terminate();
    isCalledOff = true;
    EXPECT_FALSE(IsSetWithin(20, hasReturned));
    hasEnded = true;
  });
  WaitUntilSet(isCalledOff);
  job->Terminate();
  EXPECT_TRUE(hasEnded) << "not only the first one does";
  hasReturned = true;
  WaitUntilSet(hasEnded);
}

TEST_F(ThreadPoolTest, ItemsThatAreToldFalseMayCallOffOthers) {
  const auto pool = TThreadPoolExecutor::Make(1);
  pool->SetGroupSize(8);
  TRef<IExecution> here, there;
  std::atomic<bool> isInside = false, isDone = false;
  std::thread other([&] {
    WaitUntilSet(isInside);
    there->Terminate();
    isDone = true;
  });
  const auto front = pool->Execute([&] {
    here = pool->Execute([] { ADD_FAILURE(); });
    there = pool->Execute([] { ADD_FAILURE(); });
    const auto worker = Supports<IProcessingThread>(TThread::CurrentThread());
    worker->Cancel(worker->Process(TWorkItem([&](const TRef<IProcessingThread>&, bool) {
      isInside = true;
      EXPECT_FALSE(IsSetWithin(20, isDone)) << "the other one waits for the section";
      here->Terminate();
    })));
  });
  EXPECT_TRUE(front->WaitFor(NoTimeLimit));
  other.join();
}

class TRefusingThread : public TProcessingThread {
 public:
  using TProcessingThread::Process;
  using TProcessingThread::TProcessingThread;
  TWorkItem Process(TWorkItem, bool) override { throw ERangeError(u""); }
};

TEST_F(ThreadPoolTest, ATaskThatAThreadRefusesMayGoToAnother) {
  const auto pool = TThreadPoolExecutor::Make();  // has no threads
  const auto job = pool->Execute([] {});
  const auto task = Supports<TThreadPoolExecutor::IExecutionExt>(job);
  for (int i = 0; i < 2; ++i) {
    EXPECT_THROW(task->SetThread(Create<TRefusingThread>(u"Refusing", nullptr)), ERangeError);
  }
  task->SetThread(TProcessingThread::Make());
  EXPECT_TRUE(job->WaitFor(NoTimeLimit));
}

class TUnfinished : public TManagedInterfacedObject {
  void Construct() override {
    TManagedInterfacedObject::Construct();
    throw ERangeError(u"");
  }
};

TEST(ManagedObjectTest, TheHookHearsOfTheEndOfWhatIsNotFinished) {
  static std::string heard;
  heard.clear();
  TClassDefaultsHook hook;
  hook.InitClassDefaults = [](TObject&) { heard += "i"; };
  hook.BeforeDestruction = [](TObject&) { heard += "b"; };
  hook.Destruction = [](TObject&) noexcept { heard += "e"; };
  const TClassDefaultsHook* before = SetClassDefaults(&hook);
  EXPECT_THROW(Create<TUnfinished>(), ERangeError);
  hook.InitClassDefaults = [](TObject&) { throw EThread(u""); };
  EXPECT_THROW(Create<TUnfinished>(), EThread);
  EXPECT_EQ(heard, "ie");
  SetClassDefaults(before);
}

TEST(ManagedObjectTest, APoolIsWholeWhenTheHookHearsOfItsEnd) {
  static std::atomic<bool> hasHeard;
  hasHeard = false;
  TClassDefaultsHook hook;
  hook.BeforeDestruction = [](TObject&) { hasHeard = true; };
  const TClassDefaultsHook* before = SetClassDefaults(&hook);
  auto pool = TThreadPoolExecutor::Make(1);
  std::atomic<bool> hasBegun = false;
  bool stillRan = false;
  pool->Execute([&] {
    hasBegun = true;
    stillRan = IsSetWithin(5'000, hasHeard);
  });
  WaitUntilSet(hasBegun);
  pool = nullptr;
  EXPECT_TRUE(stillRan);
  SetClassDefaults(before);
}

class TUnfinishedPool : public TThreadPoolExecutor {
 public:
  using TThreadPoolExecutor::TThreadPoolExecutor;

 protected:
  void AfterConstruction() override {
    TThreadPoolExecutor::AfterConstruction();
    Execute([] {})->WaitFor(NoTimeLimit);
    throw ERangeError(u"");
  }
};

TEST_F(ThreadPoolTest, AFailedConstructionEndsItsThreads) {
  Testing::TNotices notices;
  EXPECT_THROW(Create<TUnfinishedPool>(Do_Not_Use_This, nullptr, 1), ERangeError);
  notices.WaitForEnds(1);
}

}  // namespace
}  // namespace Talvo
