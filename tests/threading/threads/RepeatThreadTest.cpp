// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/threads/RepeatThread.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <latch>
#include <memory>
#include <thread>
#include <unistd.h>
#include <talvo/runtime/ClassDefaults.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/runtime/Numbers.h>
#include <talvo/threading/Talvo.Threading.Utils.h>

namespace Talvo {
namespace {

template <class E>
bool EndedWith(const TThread& thread) {
  try {
    if (thread.FatalException()) std::rethrow_exception(thread.FatalException());
  } catch (const E&) {
    return true;
  }
  return false;
}

TEST(RepeatThreadTest, CallsUntilItIsTerminated) {
  std::atomic<int> calls = 0;
  uint32_t id = 0;
  bool isInThread = false;
  TRef<IThread> thread = TRepeatThread::Make(u"Repeat", [&](const TRef<IThread>& self) {
    id = static_cast<uint32_t>(gettid());
    isInThread = self->IsInThread() && TThread::CurrentThread() == self->GetInstance();
    self->WaitFor();  // for itself: at once
    if (++calls == 3) self->Terminate();
  });
  thread->WaitFor();
  EXPECT_EQ(calls, 3);
  EXPECT_TRUE(thread->Terminated());
  EXPECT_EQ(thread->ThreadID(), id);
  EXPECT_TRUE(isInThread);
  EXPECT_FALSE(thread->IsInThread());
  EXPECT_EQ(ObjectOf(thread), thread->GetInstance());
  EXPECT_TRUE(Supports<IThread>(thread->GetInstance()) == thread);
  void* none = &id;
  EXPECT_EQ(thread->QueryInterface(InterfaceIdOf<IEvent>(), &none), NoSuchInterface);
  EXPECT_EQ(none, nullptr);

  calls = 0;
  auto carried = std::make_shared<int>();
  const std::weak_ptr<int> watch = carried;
  thread =
      TRepeatThread::Make(u"", [&, carried = std::move(carried)] { ++calls, calls.notify_all(); });
  calls.wait(0);
  EXPECT_FALSE(watch.expired());
  thread = nullptr;
  EXPECT_TRUE(watch.expired()) << "the last reference stops it and waits";
}

TEST(RepeatThreadTest, TerminateProceduresRunEachTimeAndOnTheCaller) {
  int calls = 0;
  bool wasTerminated = true;
  const auto here = std::this_thread::get_id();
  TRef<IThread> thread;
  const auto onTerminate = [&] {
    ++calls;
    EXPECT_EQ(std::this_thread::get_id(), here);
    if (calls == 1) wasTerminated = thread->Terminated();
  };
  for (const bool isPeriodic : {false, true}) {
    calls = 0;
    thread = isPeriodic ? TPeriodicThread::Make(
                              u"Periodic", 3'600'000, [] {}, onTerminate)
                        : TRepeatThread::Make(
                              u"Repeat", [] {}, onTerminate);
    thread->Terminate();
    EXPECT_FALSE(wasTerminated) << "before the flag is set";
    EXPECT_TRUE(thread->IsTerminated());
    thread->WaitFor();
    thread->Terminate();
    EXPECT_EQ(calls, 2);
    thread = nullptr;
    EXPECT_EQ(calls, 3) << "once more by the last reference";
  }
  // One that raises, or ends the thread, is heard and changes nothing about the end.
  thread = TPeriodicThread::Make(
      u"", 3'600'000, [] {}, [] { throw EConvertError(u"no"); });
  EXPECT_THROW(thread->Terminate(), EConvertError);
  thread->WaitFor();
  thread = nullptr;
  thread = TRepeatThread::Make(
      u"", [] {}, [&] { thread = nullptr; });
  thread->Terminate();
  EXPECT_FALSE(thread);
}

TEST(RepeatThreadTest, NeedsAProcedure) {
  EXPECT_THROW(TRepeatThread::Make(u"None", nullptr), EAssertionFailed);
  EXPECT_THROW(TRepeatThread::Make(u"None", TProc<>()), EAssertionFailed);
  EXPECT_THROW(TRepeatThread::Make(u"None", TConstProc<TRef<IThread>>()), EAssertionFailed);
  EXPECT_THROW(TPeriodicThread::MakeComponent(nullptr, u"None", 1, nullptr), EAssertionFailed);
  std::atomic<bool> isCalled = false;
  const TProc<> handle = [&] { isCalled = true, isCalled.notify_all(); };
  const auto thread = TRepeatThread::Make(u"", handle);
  isCalled.wait(false);
}

TEST(RepeatThreadTest, TakesItsNameFromItsOwner) {
  const auto owner = Create<TComponent>(nullptr);
  struct TCase {
    const char16_t *Owner, *Thread, *Full;
    bool HasOwner;
  };
  for (const TCase& test :
       {TCase{u"Plant", u"Poll", u"Plant.Poll", true},
        TCase{u"", u"Poll", u"TComponent.Poll", true}, TCase{u"", u"Poll", u"Poll", false},
        TCase{u"Plant", u"", u"Plant.", true}}) {
    owner->SetName(test.Owner);
    const TComponent* asked = test.HasOwner ? owner.Get() : nullptr;
    for (const bool isPeriodic : {false, true}) {
      string name;
      const auto call = [&](const TRef<IThread>& self) {
        name = TBasicThread::GetName();
        self->Terminate();
      };
      const auto thread = isPeriodic ? TPeriodicThread::MakeComponent(asked, test.Thread, 0, call)
                                     : TRepeatThread::MakeComponent(asked, test.Thread, call);
      thread->WaitFor();
      EXPECT_EQ(name, test.Full);
    }
  }
  string system, expected;
  const auto thread = TRepeatThread::Make(u"APlantWithALongName.Worker", [&](const auto& self) {
    std::ifstream file("/proc/thread-self/comm");
    std::string line;
    std::getline(file, line);
    system = FromUtf8(line);
    self->Terminate();
  });
  thread->WaitFor();
  EXPECT_EQ(system, u"LongName.Worker");
}

TEST(RepeatThreadTest, TellsOfStartAndEndOnTheThread) {
  std::string steps;
  string nameAtEnd;
  uint32_t id = 0;
  const TProc<> start = RegisterThreadStartNotify([&] { steps += 's'; });
  const TProc<> end = RegisterThreadEndNotify([&] {
    steps += 'e';
    nameAtEnd = GetCurrentThreadName();
    id = TBasicThread::GetCurrentThreadId();
  });
  const auto thread = TRepeatThread::CreateObject(u"Named", [&](const TRef<IThread>& self) {
    steps += 'c';
    self->Terminate();
  });
  thread->WaitFor();
  EXPECT_EQ(steps, "sce");
  EXPECT_EQ(id, thread->ThreadID());
  EXPECT_EQ(nameAtEnd, UIntToStr(id)) << "the name ended with the work";

  TRepeatThread::Make(u"", [] { throw EConvertError(u"no"); })->WaitFor();
  EXPECT_EQ(steps, "scese") << "in whatever way it ends";
  UnRegisterThreadStartNotify(start);

  const TProc<> failing = RegisterThreadStartNotify([] { throw EIntOverflow(u"no"); });
  const auto never = TRepeatThread::CreateObject(u"", [&] { steps += '!'; });
  never->WaitFor();
  EXPECT_TRUE(EndedWith<EIntOverflow>(*never));
  EXPECT_EQ(steps, "scesee");
  UnRegisterThreadStartNotify(failing);
  UnRegisterThreadEndNotify(end);
}

TEST(RepeatThreadTest, PeriodsArePausesAfterTheCall) {
  std::atomic<int> calls = 0;
  auto thread = TPeriodicThread::CreateObject(u"", 0, [&](const TRef<IThread>& self) {
    if (++calls == 1000) self->Terminate();
  });
  thread->WaitFor();
  EXPECT_EQ(calls, 1000) << "0 is no pause";

  calls = 0;
  thread = TPeriodicThread::CreateObject(u"", -1, [&] { ++calls; });
  thread->WaitFor();
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(EndedWith<ERangeError>(*thread));
  EXPECT_FALSE(thread->Terminated()) << "it ended by itself";

  calls = 0;
  thread = TPeriodicThread::CreateObject(u"", INT32_MAX, [&] { ++calls, calls.notify_all(); });
  calls.wait(0);
  thread = nullptr;  // ends the pause
  EXPECT_EQ(calls, 1);

  calls = 0;
  thread = TPeriodicThread::CreateObject(u"", 5, [&] { ++calls, calls.notify_all(); });
  const auto start = std::chrono::steady_clock::now();
  for (int seen = 0; seen < 5; seen = calls) calls.wait(seen);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

// The object goes in the middle of a call; AddressSanitizer watches what is touched afterwards.
TEST(RepeatThreadTest, LastReferencesMayGoOnTheThreadItself) {
  for (const bool isPeriodic : {false, true}) {
    std::atomic<int> ends = 0;
    const TProc<> end = RegisterThreadEndNotify([&] {
      ++ends;
      ends.notify_all();
    });
    int calls = 0;
    bool wasAlive = true;
    std::latch isSet(1);
    TRef<IThread> thread;
    TThreadProc proc = [&, carried = std::make_shared<int>(7)](const TRef<IThread>&) {
      isSet.wait();
      thread = nullptr;
      calls += *carried;  // the procedure outlives its call
      wasAlive = TThread::CurrentThread() != nullptr;
    };
    thread = isPeriodic ? TPeriodicThread::Make(u"", 3'600'000, std::move(proc))
                        : TRepeatThread::Make(u"", std::move(proc));
    isSet.count_down();
    ends.wait(0);
    UnRegisterThreadEndNotify(end);
    EXPECT_EQ(calls, 7);
    EXPECT_FALSE(wasAlive);
  }
}

TEST(RepeatThreadTest, RunsTheClassDefaultsHook) {
  static std::string steps;
  static std::atomic<bool> isRunning;
  steps.clear();
  isRunning = false;
  static const TClassDefaultsHook hook{
      [](TObject& object) {
        EXPECT_NE(dynamic_cast<TRepeatThread*>(&object), nullptr);
        EXPECT_FALSE(isRunning);
        steps += 'i';
      },
      [](TObject& object) {
        EXPECT_TRUE(dynamic_cast<TRepeatThread&>(object).Finished());
        steps += 'b';
      },
      [](TObject&) noexcept { steps += 'd'; }};
  const TClassDefaultsHook* before = SetClassDefaults(&hook);
  {
    const auto thread = TRepeatThread::Make(u"", [] { isRunning = true; });
  }
  EXPECT_EQ(SetClassDefaults(before), &hook);
  EXPECT_EQ(steps, "ibd");
  {
    const auto thread = TRepeatThread::Make(u"", [] {});
  }
  EXPECT_EQ(steps, "ibd");
}

TEST(RepeatThreadTest, KeepsPriorities) {
  const auto thread = TRepeatThread::Make(u"", [](const auto& self) { self->Terminate(); });
  EXPECT_EQ(thread->Priority(), tpNormal);
  thread->SetPriority(tpLower);
  EXPECT_EQ(thread->GetPriority(), tpLower);
}

// Both threads count a reference down at about the same time; whoever is last ends the object.
TEST(RepeatThreadTest, LastReferencesMayGoOnTwoThreadsAtOnce) {
  std::atomic<bool> isIn = false;
  for (int i = 0; i < 500; ++i) {
    isIn = false;
    TRef<IThread> thread = TRepeatThread::Make(u"Copying", [&](const TRef<IThread>& self) {
      while (!self->IsTerminated()) {
        TRef<IThread> copy = self;
        isIn = true;
        copy = nullptr;
        if (!TThread::CurrentThread()) return;  // that was it
      }
    });
    while (!isIn) std::this_thread::yield();
    thread = nullptr;
  }
}

/// A thread whose construction fails behind its start.
template <class T>
struct TUnfinished : T {
  using T::T;
  void AfterConstruction() override {
    T::AfterConstruction();
    throw EAssertionFailed(u"behind the start");
  }
};

TEST(RepeatThreadTest, AFailedConstructionWaitsForTheThread) {
  const std::string kept = "what the procedure uses";
  for (int i = 0; i < 100; ++i) {
    const TThreadProc proc = [kept] { EXPECT_FALSE(kept.empty()); };
    EXPECT_THROW(Create<TUnfinished<TRepeatThread>>(u"A", proc, nullptr), EAssertionFailed);
    EXPECT_THROW(Create<TUnfinished<TPeriodicThread>>(u"B", 3'600'000, proc, nullptr),
                 EAssertionFailed);
  }
}

}  // namespace
}  // namespace Talvo
