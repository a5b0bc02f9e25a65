// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/executors/ThreadPoolExecutor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <tests/TestTypes.h>
#include <thread>
#include <vector>
#include <talvo/platform/MessageQueue.h>
#include <talvo/runtime/ClassDefaults.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/threading/Talvo.Threading.Utils.h>
#include <talvo/threading/executors/DirectExecutor.h>
#include <talvo/threading/executors/ExecutionTask.h>
#include <talvo/threading/executors/StopToken.h>
#include <talvo/threading/sync/Event.h>
#include <talvo/threading/threads/SwallowedExceptions.h>

namespace Talvo {
namespace {

using TSelfProc = TConstProc<TRef<IExecution>>;

/// Code that says that it runs, and stays until it may go on.
class TGate {
 public:
  void Pass() const {
    FThread->store(TBasicThread::GetCurrentThreadId());
    FEntered->Signal();
    FOpen->WaitFor(NoTimeLimit);
  }
  void WaitUntilEntered() const { FEntered->WaitFor(NoTimeLimit); }
  bool IsEntered() const { return FEntered->WaitFor(0); }
  void Open() const { FOpen->Signal(); }
  uint32_t Thread() const { return *FThread; }
  TProc<> Code() const {
    return [gate = *this] { gate.Pass(); };
  }

 private:
  TRef<IEvent> FEntered = TEvent::Make(ermManual, false);
  TRef<IEvent> FOpen = TEvent::Make(ermManual, false);
  std::shared_ptr<std::atomic<uint32_t>> FThread = std::make_shared<std::atomic<uint32_t>>(0);
};

/// Counts what is swallowed as long as it stands.
class TSwallowed {
 public:
  TSwallowed() {
    SetSwallowedExceptionHook([count = FCount](const std::exception_ptr&) { ++*count; });
  }
  ~TSwallowed() { SetSwallowedExceptionHook(nullptr); }
  int Count() const { return *FCount; }

 private:
  std::shared_ptr<std::atomic<int>> FCount = std::make_shared<std::atomic<int>>(0);
};

// --- What all executors have in common ----------------------------------------------------------

class ExecutorTest : public ::testing::TestWithParam<const char*> {
 protected:
  TRef<IExecutor> MakeExecutor() {
    const std::string kind = GetParam();
    if (kind == "Direct") return TDirectExecutor::Make();
    if (kind == "Thread") return TThreadExecutor::Make();
    return TThreadPoolExecutor::Make(2);
  }
};
INSTANTIATE_TEST_SUITE_P(All, ExecutorTest, ::testing::Values("Direct", "Thread", "Pool"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(ExecutorTest, RunsCodeOfBothKinds) {
  const TRef<IExecutor> executor = MakeExecutor();
  std::atomic<int> ran = 0;
  TRef<IExecution> seen;
  const auto plain = executor->Execute([&] { ++ran; });
  EXPECT_TRUE(plain->WaitFor(NoTimeLimit));
  const auto self = executor->Execute([&](const TRef<IExecution>& execution) {
    seen = execution;
    ++ran;
  });
  EXPECT_TRUE(self->WaitFor(NoTimeLimit));
  EXPECT_EQ(ran, 2);
  EXPECT_TRUE(seen == self);
  EXPECT_TRUE(self->WaitFor(0)) << "once and for all";
  EXPECT_FALSE(plain->IsTerminated());
  EXPECT_THROW(executor->Execute(TProc<>()), EAssertionFailed);
  EXPECT_THROW(executor->Execute(TSelfProc()), EAssertionFailed);
}

TEST_P(ExecutorTest, AResultMayBeDropped) {
  const TRef<IExecutor> executor = MakeExecutor();
  const TRef<IEvent> done = TEvent::Make();
  executor->Execute([done] { done->Signal(); });
  EXPECT_TRUE(done->WaitFor(NoTimeLimit));
  executor->Execute([done](const TRef<IExecution>&) { done->Signal(); });
  EXPECT_TRUE(done->WaitFor(NoTimeLimit));
}

TEST_P(ExecutorTest, StopTokensCallOff) {
  const TRef<IExecutor> executor = MakeExecutor();
  std::stop_source stop;
  int ran = 0;
  const auto before = ExecuteUntil(executor, stop.get_token(), [&] { ++ran; });
  before->WaitFor(NoTimeLimit);
  EXPECT_FALSE(before->IsTerminated());
  const auto during =
      ExecuteUntil(executor, stop.get_token(), [&](const TRef<IExecution>& execution) {
        ++ran;
        stop.request_stop();
        while (!execution->IsTerminated()) std::this_thread::yield();
      });
  during->WaitFor(NoTimeLimit);
  EXPECT_TRUE(during->IsTerminated());
  const auto after = ExecuteUntil(executor, stop.get_token(), [&] { ++ran; });
  after->WaitFor(NoTimeLimit);
  EXPECT_EQ(ran, 2);
}

// --- Direct, thread -----------------------------------------------------------------------------

TEST(DirectExecutorTest, RunsOnTheCallersThread) {
  const auto executor = TDirectExecutor::Make();
  uint32_t thread = 0;
  const auto execution = executor->Execute([&] { thread = TBasicThread::GetCurrentThreadId(); });
  EXPECT_EQ(thread, TBasicThread::GetCurrentThreadId());
  execution->Terminate();
  EXPECT_FALSE(execution->IsTerminated());
  EXPECT_TRUE(execution->WaitFor(0));
  EXPECT_THROW(executor->Execute([] { throw ERangeError(u""); }), ERangeError);
  EXPECT_THROW(executor->Execute([](const TRef<IExecution>&) { throw ERangeError(u""); }),
               ERangeError);
}

TEST(ThreadExecutorTest, EachExecutionHasANamedThread) {
  const auto owner = Create<TComponent>(nullptr);
  owner->SetName(u"plant");
  const auto executor = TThreadExecutor::MakeComponent(owner.Get());
  executor->SetPriority(tpLowest);
  EXPECT_THROW(executor->SetPriority(static_cast<TThreadPriority>(7)), ERangeError);
  TGate first, second;
  string names[2];
  const auto a = executor->Execute([&] {
    names[0] = GetCurrentThreadName();
    first.Pass();
  });
  const auto b = TThreadExecutor::Make()->Execute([&] {
    names[1] = GetCurrentThreadName();
    second.Pass();
  });
  first.WaitUntilEntered();
  second.WaitUntilEntered();
  EXPECT_NE(first.Thread(), second.Thread());
  EXPECT_FALSE(a->WaitFor(0));
  first.Open();
  second.Open();
  EXPECT_TRUE(a->WaitFor(NoTimeLimit) && b->WaitFor(NoTimeLimit));
  EXPECT_EQ(ToUtf8(names[0]), "plant.ThreadExecutor");
  EXPECT_EQ(ToUtf8(names[1]), "ThreadExecutor");
}

TEST(ThreadExecutorTest, CodeThatRaisesAndCodeThatIsCalledOffEnd) {
  const auto executor = TThreadExecutor::Make();
  const auto failed = executor->Execute([] { throw ERangeError(u""); });
  EXPECT_TRUE(failed->WaitFor(NoTimeLimit));
  EXPECT_FALSE(failed->IsTerminated());

  const auto patient = executor->Execute([](const TRef<IExecution>& execution) {
    while (!execution->IsTerminated()) std::this_thread::yield();
  });
  patient->Terminate();
  EXPECT_TRUE(patient->WaitFor(NoTimeLimit));
  const auto suicide =
      executor->Execute([](const TRef<IExecution>& execution) { execution->Terminate(); });
  EXPECT_TRUE(suicide->WaitFor(NoTimeLimit));
  EXPECT_TRUE(suicide->IsTerminated());
}

// --- The pool -----------------------------------------------------------------------------------

TEST(ThreadPoolTest, WorkGoesToTheFirstThreadThatTakesMore) {
  const auto pool = TThreadPoolExecutor::Make(2);
  TGate gates[6];
  TRef<IExecution> jobs[6];
  const auto start = [&](int i) { jobs[i] = pool->Execute(gates[i].Code()); };
  start(0);
  gates[0].WaitUntilEntered();
  start(1);  // waits behind the first, which does not count as waiting
  start(2);  // the first thread has one waiting: a second thread is made
  gates[2].WaitUntilEntered();
  start(3);  // waits at the second
  start(4);  // waits in the pool
  start(5);
  EXPECT_FALSE(gates[1].IsEntered() || gates[3].IsEntered() || gates[4].IsEntered());
  EXPECT_NE(gates[0].Thread(), gates[2].Thread());
  jobs[4]->Terminate();
  EXPECT_TRUE(jobs[4]->WaitFor(0) && jobs[4]->IsTerminated());
  gates[0].Open();
  gates[1].WaitUntilEntered();
  EXPECT_EQ(gates[1].Thread(), gates[0].Thread());
  gates[1].Open();
  gates[5].WaitUntilEntered();  // the first thread has run dry
  EXPECT_EQ(gates[5].Thread(), gates[0].Thread());
  gates[2].Open();
  gates[3].WaitUntilEntered();
  EXPECT_EQ(gates[3].Thread(), gates[2].Thread());
  for (const TGate& gate : gates) gate.Open();
  for (const auto& job : jobs) EXPECT_TRUE(job->WaitFor(NoTimeLimit));
  EXPECT_FALSE(gates[4].IsEntered());
}

TEST(ThreadPoolTest, TheGroupSizeSaysHowMuchMayWaitAtAThread) {
  const auto pool = TThreadPoolExecutor::Make(2);
  pool->SetGroupSize(2).SetCount(2);
  TGate first;
  pool->Execute(first.Code());
  first.WaitUntilEntered();
  std::atomic<int> ran = 0;
  std::vector<TRef<IExecution>> behind;
  for (int i = 0; i < 3; ++i) behind.push_back(pool->Execute([&] { ++ran; }));
  TGate other;
  pool->Execute(other.Code());  // three wait at the first thread, which is above two
  other.WaitUntilEntered();
  EXPECT_EQ(ran, 0);
  EXPECT_NE(other.Thread(), first.Thread());
  first.Open();
  for (const auto& job : behind) job->WaitFor(NoTimeLimit);
  EXPECT_EQ(ran, 3);
  pool->SetGroupSize(4294967295u);
  EXPECT_TRUE(pool->Execute([] {})->WaitFor(NoTimeLimit));
  other.Open();
}

TEST(ThreadPoolTest, CountsAndPriorities) {
  const auto pool = TThreadPoolExecutor::Make();
  const auto waiting = pool->Execute([] {});
  EXPECT_FALSE(waiting->WaitFor(10)) << "no thread is made without a limit";
  pool->SetCount(0);  // is 1
  EXPECT_FALSE(waiting->WaitFor(10)) << "what is queued is not looked at again";
  EXPECT_TRUE(pool->Execute([] {})->WaitFor(NoTimeLimit));
  EXPECT_TRUE(waiting->WaitFor(0)) << "came first";
  EXPECT_THROW(pool->SetCount(2147483648u), ERangeError);
  EXPECT_THROW(pool->SetPriority(static_cast<TThreadPriority>(7)), ERangeError);
  pool->SetPriority(tpLower);
  TThreadPriority seen = tpIdle;
  pool->Execute([&] { seen = static_cast<TBasicThread*>(TThread::CurrentThread())->GetPriority(); })
      ->WaitFor(NoTimeLimit);
  EXPECT_EQ(seen, tpLower);
  const auto none = TThreadPoolExecutor::Make(-5);
  EXPECT_FALSE(none->Execute([] {})->WaitFor(10)) << "a count is kept as it is given";
}

TEST(ThreadPoolTest, SurplusThreadsEndAsTheyRunDry) {
  std::atomic<int> ended = 0;
  const TProc<> link = RegisterThreadEndNotify([&] { ++ended; });
  const auto pool = TThreadPoolExecutor::Make(3);
  TGate gates[3];
  TRef<IExecution> jobs[3];
  for (int i = 0; i < 3; ++i) {
    jobs[i] = pool->Execute(gates[i].Code());
    gates[i].WaitUntilEntered();
    if (i == 2) break;
    pool->Execute([] {});  // fills up the thread's queue, so that the next one is made
  }
  pool->SetCount(1);
  EXPECT_EQ(ended, 0);
  gates[2].Open();
  while (ended < 1) std::this_thread::yield();
  gates[0].Open();  // though the execution that it ran is still held
  while (ended < 2) std::this_thread::yield();
  gates[1].Open();
  uint32_t last = 0;
  pool->Execute([&] { last = TBasicThread::GetCurrentThreadId(); })->WaitFor(NoTimeLimit);
  EXPECT_EQ(last, gates[1].Thread());
  EXPECT_EQ(ended, 2);
  UnRegisterThreadEndNotify(link);
}

TEST(ThreadPoolTest, TerminateInEveryState) {
  const TSwallowed swallowed;
  const auto pool = TThreadPoolExecutor::Make(1);
  auto held = std::make_shared<int>();
  TGate gate;
  std::atomic<bool> hasPassed = false;
  const auto running = pool->Execute([&](const TRef<IExecution>& execution) {
    gate.Pass();
    pool->Execute([] {});
    while (!execution->IsTerminated()) std::this_thread::yield();
    hasPassed = true;
  });
  gate.WaitUntilEntered();
  const auto atThread = pool->Execute([held] { ADD_FAILURE(); });
  const auto inPool = pool->Execute([held] { ADD_FAILURE(); });
  for (const auto& job : {atThread, inPool, atThread, inPool}) {
    job->Terminate();
    EXPECT_TRUE(job->IsTerminated() && job->WaitFor(0));
  }
  EXPECT_EQ(held.use_count(), 1) << "what the code held is let go";
  std::thread terminator([&] {
    running->Terminate();
    EXPECT_TRUE(hasPassed) << "what runs is waited for";
  });
  // Meanwhile the pool is open to all.
  for (int i = 0; i < 1000; ++i) pool->Execute([] {});
  EXPECT_FALSE(running->WaitFor(0));
  gate.Open();
  terminator.join();
  EXPECT_TRUE(running->IsTerminated() && running->WaitFor(0));
  running->Terminate();

  // By its own code it only learns of it.
  const auto self = pool->Execute([](const TRef<IExecution>& execution) {
    execution->Terminate();
    EXPECT_FALSE(execution->WaitFor(0));
  });
  EXPECT_TRUE(self->WaitFor(NoTimeLimit) && self->IsTerminated());
  // By other code on the same thread it is withdrawn.
  TGate second;
  TRef<IExecution> behind;
  const auto front = pool->Execute([&] {
    second.Pass();
    behind->Terminate();
  });
  second.WaitUntilEntered();
  behind = pool->Execute([] { ADD_FAILURE(); });
  second.Open();
  EXPECT_TRUE(front->WaitFor(NoTimeLimit) && behind->WaitFor(NoTimeLimit));

  const auto failed = pool->Execute([] { throw ERangeError(u""); });
  pool->Execute([] {})->WaitFor(NoTimeLimit);
  EXPECT_EQ(swallowed.Count(), 1);
  EXPECT_TRUE(failed->WaitFor(0)) << "code that raises has ended too";
  const auto given = Supports<TThreadPoolExecutor::IExecutionExt>(failed);
  EXPECT_THROW(given->SetThread(TProcessingThread::Make()), EAssertionFailed);
}

TEST(ThreadPoolTest, ATaskCanBeTakenOutAndGivenToAThread) {
  const auto pool = TThreadPoolExecutor::CreateObject();  // has no threads
  const auto job = pool->Execute([] {});
  const auto task = Supports<TThreadPoolExecutor::IExecutionExt>(job);
  EXPECT_THROW(task->SetThread(nullptr), EAssertionFailed);
  const auto worker = TProcessingThread::Make();
  task->SetThread(worker);
  EXPECT_TRUE(job->WaitFor(NoTimeLimit));
  const auto other = pool->Execute([] { ADD_FAILURE(); });
  pool->RemoveTask(Supports<TThreadPoolExecutor::IExecutionExt>(other));
  pool->SetCount(1);
  pool->ProcessQueue();
  EXPECT_TRUE(pool->Execute([] {})->WaitFor(NoTimeLimit));
  EXPECT_FALSE(other->WaitFor(0));
  other->Terminate();
  EXPECT_TRUE(other->WaitFor(0));
}

TEST(ThreadPoolTest, CodeMayUseTheQueueOfItsThread) {
  const auto pool = TThreadPoolExecutor::Make(1);
  pool->SetGroupSize(8);
  std::string order;
  TGate gate;
  const auto front = pool->Execute([&] {
    gate.Pass();
    const auto worker = Supports<IProcessingThread>(TThread::CurrentThread());
    EXPECT_EQ(worker->CountWaiting(), 2);
    worker->Process([&] { order += "last"; });
    worker->Process([&] { order += "first "; }, /*isFirst*/ true);
    worker->Cancel(worker->Process(
        TWorkItem([](const TRef<IProcessingThread>&, bool isRun) { EXPECT_FALSE(isRun); })));
    EXPECT_EQ(worker->CountWaiting(), 4);
  });
  gate.WaitUntilEntered();
  for (int i = 0; i < 2; ++i) pool->Execute([&] { order += "task "; });
  gate.Open();
  front->WaitFor(NoTimeLimit);
  pool->Execute([] {})->WaitFor(NoTimeLimit);
  EXPECT_EQ(order, "first task task last");
}

TEST(ThreadPoolTest, WhatCodeHoldsMayComeBackWhenItEnds) {
  const auto pool = TThreadPoolExecutor::Make(1);
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
  TGate gate;
  TRef<IExecution> ran, called;
  pool->Execute(gate.Code());
  gate.WaitUntilEntered();
  ran = pool->Execute([held = std::shared_ptr<THeld>(new THeld{ran, pool, ended})] {});
  called = pool->Execute([held = std::shared_ptr<THeld>(new THeld{called, pool, ended})] {});
  called->Terminate();
  gate.Open();
  EXPECT_TRUE(ran->WaitFor(NoTimeLimit) && called->WaitFor(NoTimeLimit));
  while (ended < 2) std::this_thread::yield();
}

TEST(ThreadPoolTest, TheEndWaitsForWhatRunsAndDropsTheRest) {
  auto pool = TThreadPoolExecutor::Make(1);
  auto held = std::make_shared<int>();
  const TRef<IEvent> entered = TEvent::Make();
  const auto running = pool->Execute([entered] {
    entered->Signal();
    while (!TThread::CurrentThread()->Terminated()) std::this_thread::yield();
  });
  entered->WaitFor(NoTimeLimit);
  const auto atThread = pool->Execute([] { ADD_FAILURE(); });
  const auto inPool = pool->Execute([held] { ADD_FAILURE(); });
  const auto removed = pool->Execute([] { ADD_FAILURE(); });
  ObjectAs<TThreadPoolExecutor>(pool)->RemoveTask(
      Supports<TThreadPoolExecutor::IExecutionExt>(removed));
  pool = nullptr;
  EXPECT_TRUE(running->WaitFor(0));
  EXPECT_EQ(held.use_count(), 1);
  for (const auto& job : {running, atThread, inPool}) {
    const auto given = Supports<TThreadPoolExecutor::IExecutionExt>(job);
    EXPECT_THROW(given->SetThread(TProcessingThread::Make()), EAssertionFailed);
  }
  for (const auto& job : {atThread, inPool, removed}) {
    EXPECT_FALSE(job->WaitFor(0));
    job->Terminate();
    EXPECT_TRUE(job->WaitFor(NoTimeLimit));
  }
}

TEST(ThreadPoolTest, CodeMayDropThePoolAndQueueMore) {
  const TRef<IEvent> done = TEvent::Make();
  auto pool = TThreadPoolExecutor::Make(2);
  TGate gate;
  bool isInside = false;
  pool->Execute([&] {
    isInside = true;
    gate.Pass();
    pool = nullptr;
    isInside = false;
  });
  gate.WaitUntilEntered();
  pool->Execute([&] {
    EXPECT_FALSE(isInside) << "what the thread has runs behind the code that drops the pool";
    done->Signal();
  });
  gate.Open();
  done->WaitFor(NoTimeLimit);
  EXPECT_FALSE(pool);

  const auto direct = TThreadPoolExecutor::Make(1);
  std::atomic<int> left = 1000;
  TProc<> again = [&] {
    if (--left > 0) {
      direct->Execute(again);
    } else {
      done->Signal();
    }
  };
  direct->Execute(again);
  done->WaitFor(NoTimeLimit);
}

// --- Groups -------------------------------------------------------------------------------------

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
    const char* Log;
  };
  for (const TCase& test : {TCase{{}, 0, true, ""},
                            {{}, NoTimeLimit, true, ""},
                            {{true, true}, 7, true, "w7 w0 "},
                            {{true, false, true}, 7, false, "w7 w0 "},
                            {{false, false}, 0, false, "w0 "},
                            {{true, false}, NoTimeLimit, true, "w* w* "}}) {
    std::string log;
    {
      const auto task = TExecutionTask::Make();
      for (bool isDone : test.Done) task->Add(Create<TScriptedExecution>(isDone, log));
      EXPECT_EQ(task->WaitFor(test.Timeout), test.Answer);
      EXPECT_EQ(std::exchange(log, {}), test.Log);
      EXPECT_FALSE(task->IsTerminated());
      task->Terminate();
      EXPECT_EQ(log.size(), 2 * test.Done.size());
      EXPECT_TRUE(task->IsTerminated());
      EXPECT_THROW(task->Add(nullptr), EAssertionFailed);
      log.clear();
    }
    EXPECT_EQ(log.size(), 3 * test.Done.size()) << "its end waits for all, without a limit";
  }
}

// --- Managed objects ----------------------------------------------------------------------------

std::string GTurns;

class TManaged : public TManagedNoCreateInterfacedObject {
 public:
  TManaged() : TManagedNoCreateInterfacedObject(Do_Not_Use_This) { GTurns += "c"; }
  ~TManaged() override { GTurns += "d"; }

 protected:
  void InitDefaults() override {
    TManagedNoCreateInterfacedObject::InitDefaults();
    GTurns += "1";
  }
  void BeforeDestroyDefaults() override {
    TManagedNoCreateInterfacedObject::BeforeDestroyDefaults();
    GTurns += "2";
  }
  void DestroyDefaults() noexcept override {
    TManagedNoCreateInterfacedObject::DestroyDefaults();
    GTurns += "3";
  }
};

TEST(ManagedObjectTest, TheHookIsCalledAtEachTurn) {
  TClassDefaultsHook hook;
  hook.InitClassDefaults = [](TObject&) { GTurns += "i"; };
  hook.BeforeDestruction = [](TObject&) { GTurns += "b"; };
  hook.Destruction = [](TObject&) noexcept { GTurns += "e"; };
  Create<TManaged>();
  EXPECT_EQ(std::exchange(GTurns, {}), "c123d");
  const TClassDefaultsHook* before = SetClassDefaults(&hook);
  Create<TManaged>();
  EXPECT_EQ(std::exchange(GTurns, {}), "ci1b2e3d");
  SetClassDefaults(before);
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

TEST(ThreadPoolTest, WorkAddedWhileTheEndWaitsIsLetGo) {
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
TEST(ThreadPoolTest, NoWorkRunsOnAThreadThatLeaves) {
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

TEST(ThreadPoolTest, ItemsThatAreToldFalseMayCallOffOthers) {
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

TEST(ThreadPoolTest, ATaskThatAThreadRefusesMayGoToAnother) {
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

}  // namespace
}  // namespace Talvo
