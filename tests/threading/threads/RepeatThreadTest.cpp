// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/threads/RepeatThread.h>

#include <chrono>
#include <fstream>
#include <tests/threading/Fixtures.h>
#include <unistd.h>
#include <talvo/runtime/ClassDefaults.h>
#include <talvo/runtime/Numbers.h>
#include <talvo/threading/threads/ProcessingThread.h>

namespace Talvo {
namespace {

using namespace Testing;

/// What both kinds have in common. The periodic ones pause for an hour.
class RepeatThreadTest : public ::testing::TestWithParam<bool> {
 protected:
  static TRef<IThread> Make(TThreadProc proc, TProc<> onTerminate = nullptr) {
    if (GetParam()) {
      return TPeriodicThread::Make(u"Periodic", 3'600'000, std::move(proc), std::move(onTerminate));
    }
    return TRepeatThread::Make(u"Repeat", std::move(proc), std::move(onTerminate));
  }
};
INSTANTIATE_TEST_SUITE_P(All, RepeatThreadTest, ::testing::Bool(), [](const auto& info) {
  return std::string(info.param ? "Periodic" : "Repeat");
});

TEST_P(RepeatThreadTest, RunsUntilItIsTerminated) {
  TGate gate;
  uint32_t id = 0;
  bool isInThread = false;
  TRef<IThread> thread = Make([&, gate](const TRef<IThread>& self) {
    gate();
    id = static_cast<uint32_t>(gettid());
    isInThread = self->IsInThread() && TThread::CurrentThread() == self->GetInstance();
    self->WaitFor();  // for itself: at once
    self->Terminate();
  });
  EXPECT_EQ(thread->Priority(), tpNormal);
  thread->SetPriority(tpLower);
  EXPECT_EQ(thread->GetPriority(), tpLower);
  EXPECT_FALSE(thread->Terminated());
  gate.Open();
  thread->WaitFor();
  EXPECT_TRUE(thread->Terminated());
  EXPECT_EQ(thread->ThreadID(), id);
  EXPECT_TRUE(isInThread);
  EXPECT_FALSE(thread->IsInThread());
  EXPECT_TRUE(Supports<IThread>(thread->GetInstance()) == thread);
  void* none = &id;
  EXPECT_EQ(thread->QueryInterface(InterfaceIdOf<IEvent>(), &none), NoSuchInterface);
  EXPECT_EQ(none, nullptr);

  const auto carried = std::make_shared<int>();
  std::atomic<int> calls = 0;
  thread = Make([&, carried] { ++calls; });
  WaitUntil([&] { return calls >= (GetParam() ? 1 : 3); });
  EXPECT_EQ(carried.use_count(), 2);
  thread = nullptr;
  EXPECT_EQ(carried.use_count(), 1) << "the last reference stops it and waits";
}

TEST_P(RepeatThreadTest, TerminateProceduresRunEachTimeAndOnTheCaller) {
  int calls = 0;
  bool wasTerminated = true;
  const auto here = TBasicThread::GetCurrentThreadId();
  TRef<IThread> thread;
  const TProc<> onTerminate = [&] {
    EXPECT_EQ(TBasicThread::GetCurrentThreadId(), here);
    if (++calls == 1) wasTerminated = thread->Terminated();
  };
  thread = Make([] {}, onTerminate);
  thread->Terminate();
  EXPECT_FALSE(wasTerminated) << "before the flag is set";
  EXPECT_TRUE(thread->IsTerminated());
  thread->WaitFor();
  thread->Terminate();
  EXPECT_EQ(calls, 2);
  thread = nullptr;
  EXPECT_EQ(calls, 3) << "once more by the last reference";
  // One that raises, or ends the thread, changes nothing about the end.
  thread = Make([] {}, [] { throw EConvertError(u"no"); });
  EXPECT_THROW(thread->Terminate(), EConvertError);
  thread->WaitFor();
  thread = nullptr;
  thread = Make([] {}, [&] { thread = nullptr; });
  thread->Terminate();
  EXPECT_FALSE(thread);
}

TEST_P(RepeatThreadTest, NeedsAProcedure) {
  EXPECT_THROW(Make(nullptr), EAssertionFailed);
  EXPECT_THROW(Make(TProc<>()), EAssertionFailed);
  EXPECT_THROW(Make(TConstProc<TRef<IThread>>()), EAssertionFailed);
}

TEST(RepeatThreadNameTest, ComesFromTheOwner) {
  const auto plant = Create<TComponent>(nullptr), nameless = Create<TComponent>(nullptr);
  plant->SetName(u"Plant");
  struct TCase {
    const TComponent* Owner;
    const char16_t *Thread, *Full;
  };
  for (const TCase& test :
       {TCase{plant.Get(), u"Poll", u"Plant.Poll"}, TCase{plant.Get(), u"", u"Plant."},
        TCase{nameless.Get(), u"Poll", u"TComponent.Poll"}, TCase{nullptr, u"Poll", u"Poll"}}) {
    const auto look = [&](const TRef<IThread>& self) {
      EXPECT_EQ(TBasicThread::GetName(), test.Full);
      self->Terminate();
    };
    TRepeatThread::MakeComponent(test.Owner, test.Thread, look)->WaitFor();
    TPeriodicThread::MakeComponent(test.Owner, test.Thread, 0, look)->WaitFor();
  }
  const auto nameOf = [](const TRef<IProcessingThread>& thread) {
    EXPECT_EQ(thread->Priority(), tpHighest);
    string name;
    thread->ProcessBlocking([&] { name = TBasicThread::GetName(); });
    return name;
  };
  EXPECT_EQ(nameOf(TProcessingThread::MakeNamed(u"Own")), u"Own");
  EXPECT_EQ(nameOf(TProcessingThread::MakeComponent(plant.Get(), u"Part")), u"Plant.Part");
  EXPECT_EQ(nameOf(TProcessingThread::Make(plant.Get())), u"Plant.TProcessingThread");
  const auto askTheSystem = [](const TRef<IThread>& self) {
    std::string name;
    std::getline(std::ifstream("/proc/thread-self/comm"), name);
    EXPECT_EQ(name, "LongName.Worker");
    self->Terminate();
  };
  TRepeatThread::Make(u"APlantWithALongName.Worker", askTheSystem)->WaitFor();
}

TEST_P(RepeatThreadTest, TellsOfStartAndEndOnTheThread) {
  std::string steps;
  string nameAtEnd;
  uint32_t id = 0;
  const TProc<> start = RegisterThreadStartNotify([&] { steps += 's'; });
  const TProc<> end = RegisterThreadEndNotify([&] {
    steps += 'e';
    nameAtEnd = GetCurrentThreadName();
    id = TBasicThread::GetCurrentThreadId();
  });
  const auto thread = Make([&](const TRef<IThread>& self) {
    steps += 'c';
    self->Terminate();
  });
  thread->WaitFor();
  EXPECT_EQ(steps, "sce");
  EXPECT_EQ(id, thread->ThreadID());
  EXPECT_EQ(nameAtEnd, UIntToStr(id)) << "the name ended with the work";

  Make([] { throw EConvertError(u"no"); })->WaitFor();
  EXPECT_EQ(steps, "scese") << "in whatever way it ends";
  UnRegisterThreadStartNotify(start);

  const TProc<> failing = RegisterThreadStartNotify([] { throw EIntOverflow(u"no"); });
  const auto never = Make([&] { steps += '!'; });
  never->WaitFor();
  EXPECT_EQ(FailureOf(*never), "EIntOverflow: no");
  EXPECT_EQ(steps, "scesee");
  UnRegisterThreadStartNotify(failing);
  UnRegisterThreadEndNotify(end);
}

// The object goes in the middle of a call; AddressSanitizer watches what is touched afterwards.
TEST_P(RepeatThreadTest, TheLastReferenceMayGoOnTheThreadItself) {
  const TNotices notices;
  TGate gate;
  int calls = 0;
  TRef<IThread> thread;
  thread = Make([&, carried = std::make_shared<int>(7)] {
    gate();
    thread = nullptr;
    calls += *carried;  // the procedure outlives its call
    EXPECT_EQ(TThread::CurrentThread(), nullptr);
  });
  gate.Open();
  notices.WaitForEnds(1);
  EXPECT_EQ(calls, 7);
}

std::string GSteps;

TEST_P(RepeatThreadTest, RunsTheClassDefaultsHook) {
  GSteps.clear();
  TClassDefaultsHook hook;
  hook.InitClassDefaults = [](TObject& object) {
    EXPECT_NE(dynamic_cast<TBasicThread*>(&object), nullptr);
    EXPECT_EQ(dynamic_cast<TThread&>(object).ThreadID(), 0u) << "it does not run yet";
    GSteps += 'i';
  };
  hook.BeforeDestruction = [](TObject& object) {
    EXPECT_TRUE(dynamic_cast<TThread&>(object).Finished());
    GSteps += 'b';
  };
  hook.Destruction = [](TObject&) noexcept { GSteps += 'd'; };
  const TClassDefaultsHook* before = SetClassDefaults(&hook);
  Make([] {});
  EXPECT_EQ(SetClassDefaults(before), &hook);
  EXPECT_EQ(GSteps, "ibd");
}

TEST(PeriodicThreadTest, PeriodsArePausesAfterTheCall) {
  std::atomic<int> calls = 0;
  const auto count = [&] { ++calls, calls.notify_all(); };
  TRef<IThread> thread = TPeriodicThread::Make(u"", 0, [&](const TRef<IThread>& self) {
    if (++calls == 1000) self->Terminate();
  });
  thread->WaitFor();
  EXPECT_EQ(calls, 1000) << "0 is no pause";

  calls = 0;
  thread = TPeriodicThread::Make(u"", -1, count);
  thread->WaitFor();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(FailureOf(*thread).substr(0, 11), "ERangeError");
  EXPECT_FALSE(thread->Terminated()) << "it ended by itself";

  calls = 0;
  thread = TPeriodicThread::Make(u"", INT32_MAX, count);
  calls.wait(0);
  thread = nullptr;  // ends the pause
  EXPECT_EQ(calls, 1);

  calls = 0;
  const auto start = std::chrono::steady_clock::now();
  thread = TPeriodicThread::Make(u"", 5, count);
  for (int seen = 0; seen < 5; seen = calls) calls.wait(seen);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

// Both threads count a reference down at about the same time; whoever is last ends the object.
TEST(RepeatThreadTest, LastReferencesMayGoOnTwoThreadsAtOnce) {
  constexpr int rounds = 500;
  TNotices notices;
  std::atomic<bool> isIn = false;
  for (int i = 0; i < rounds; ++i) {
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
  notices.WaitForEnds(rounds);
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
