// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/threads/ProcessingThread.h>

#include <atomic>
#include <gtest/gtest.h>
#include <latch>
#include <optional>
#include <tests/threading/Workers.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/threading/Talvo.Threading.Utils.h>
#include <talvo/threading/threads/SwallowedExceptions.h>

namespace Talvo {
namespace {

using Testing::TWorker;

template <class F>
concept IsCancelled = requires(IProcessingThread& thread, const F& item) {
  thread.Cancel(item);
};
constexpr auto Lambda = [](const TRef<IProcessingThread>&, bool) {};
static_assert(IsCancelled<TWorkItem> && !IsCancelled<decltype(Lambda)>);

/// A thread whose items write letters down: capital when they run, small when told false.
class ProcessingThreadTest : public ::testing::Test {
 protected:
  TWorkItem Letter(char letter) {
    return [this, letter](const TRef<IProcessingThread>& thread, bool isRun) {
      EXPECT_TRUE(thread == FThread || !FThread);
      FLetters += isRun ? letter : static_cast<char>(letter - 'A' + 'a');
    };
  }
  /// Keeps the thread busy until Resume.
  void Hold() {
    FIsHeld.emplace(1);
    FMayGo.emplace(1);
    FHolding = FThread->Process([this] {
      FIsHeld->count_down();
      FMayGo->wait();
    });
    FIsHeld->wait();
  }
  void Resume() { FMayGo->count_down(); }
  /// Waits until all that is queued has run.
  void Settle() {
    FThread->ProcessBlocking([] {});
  }

  std::string FLetters;
  TRef<IProcessingThread> FThread = TProcessingThread::MakeNamed(u"Worker");
  std::optional<std::latch> FIsHeld, FMayGo;
  TWorkItem FHolding;
};

TEST_F(ProcessingThreadTest, RunsInOrderOneAtATime) {
  Hold();
  EXPECT_EQ(FThread->CountWaiting(), 0) << "the one that runs is not counted";
  const TWorkItem c = Letter('C');
  EXPECT_TRUE(FThread->Process(c) == c);
  FThread->Process(TProc<>([&] { FLetters += 'D'; }));
  FThread->Process([&] { FLetters += 'E'; });
  FThread->Process(Letter('B'), /*isFirst*/ true);
  FThread->Process([&] { FLetters += 'A'; }, /*isFirst*/ true);
  FThread->Process(c);
  EXPECT_EQ(FThread->CountWaiting(), 6);
  Resume();
  Settle();
  EXPECT_EQ(FLetters, "ABCDEC");
  EXPECT_EQ(FThread->CountWaiting(), 0);
  EXPECT_THROW(FThread->Process(TProc<>()), EAssertionFailed);
  EXPECT_THROW(FThread->Process(TWorkItem()), EAssertionFailed);
  EXPECT_THROW(FThread->ProcessBlocking(TProc<>()), EAssertionFailed);
  EXPECT_THROW(FThread->ProcessTerminated(nullptr), EAssertionFailed);
}

TEST_F(ProcessingThreadTest, ComesInManyMakesWithNamesAndPriority) {
  const auto owner = Create<TComponent>(nullptr);
  owner->SetName(u"Plant");
  struct TCase {
    TRef<IProcessingThread> Thread;
    const char16_t* Name;
  };
  const TCase cases[] = {
      {TProcessingThread::Make(), u"TProcessingThread"},
      {TProcessingThread::Make(owner.Get(), nullptr), u"Plant.TProcessingThread"},
      {TProcessingThread::CreateObject(owner.Get()), u"Plant.TProcessingThread"},
      {TProcessingThread::MakeNamed(u"Own"), u"Own"},
      {TProcessingThread::CreateObjectNamed(u"Own", nullptr), u"Own"},
      {TProcessingThread::MakeComponent(owner.Get(), u"Part"), u"Plant.Part"},
      {TProcessingThread::CreateObjectComponent(nullptr, u"Part"), u"Part"},
  };
  for (const auto& [thread, name] : cases) {
    EXPECT_EQ(thread->Priority(), tpHighest);
    string seen;
    thread->ProcessBlocking([&] { seen = TBasicThread::GetName(); });
    EXPECT_EQ(seen, name);
    EXPECT_TRUE(As<IThread>(thread) == thread);
  }
}

TEST_F(ProcessingThreadTest, TellsWhenTheQueueIsEmpty) {
  std::atomic<int> bursts = 0;
  std::latch isTold(1);
  FThread = TProcessingThread::MakeNamed(u"", [&](const TRef<IProcessingThread>& thread) {
    EXPECT_TRUE(thread->IsInThread());
    TWorker().Run([&] { EXPECT_EQ(thread->CountWaiting(), 0); });  // no lock is held
    if (bursts++ == 0) isTold.count_down();
  });
  std::latch mayGo(1);
  for (int i = 0; i < 100; ++i) FThread->Process([&] { mayGo.wait(); });
  mayGo.count_down();
  isTold.wait();
  FThread->Terminate();
  EXPECT_LE(bursts, 3) << "each burst, not each item";
}

TEST_F(ProcessingThreadTest, SwallowsWhatItemsRaiseAndTellsTheHook) {
  FThread->Process([] { throw EConvertError(u"first"); });
  Settle();
  string heard;
  EXPECT_FALSE(SetSwallowedExceptionHook([&](const std::exception_ptr& failure) {
    TWorker().Run([&] { EXPECT_LE(FThread->CountWaiting(), 1); });  // no lock is held
    EXPECT_TRUE(FThread->IsInThread());
    try {
      std::rethrow_exception(failure);
    } catch (const Exception& e) {
      heard += e.Message();
    }
    throw EIntOverflow(u"by the hook itself");
  }));
  FThread->ProcessBlocking([] { throw EConvertError(u"second"); });
  Settle();
  EXPECT_TRUE(SetSwallowedExceptionHook(nullptr));
  FThread->Process([] { throw EConvertError(u"third"); });
  FThread->Process(Letter('A'));
  Settle();
  EXPECT_EQ(heard, u"second");
  EXPECT_EQ(FLetters, "A") << "the queue goes on";
}

TEST_F(ProcessingThreadTest, BlockingCallersWaitForTheirItem) {
  TWorker caller;
  Hold();
  FThread->Process(Letter('C'));
  caller.Start([&] {
    FThread->ProcessBlocking(Letter('B'), /*isFirst*/ true);
    FThread->ProcessBlocking([&] { FLetters += 'D'; });
  });
  caller.WaitUntilBlocked();
  EXPECT_EQ(FThread->CountWaiting(), 2);
  Resume();
  caller.Wait();
  EXPECT_EQ(FLetters, "BCD");

  // Told false, they return as well; the procedure is not called then.
  Hold();
  for (const bool isItem : {false, true}) {
    caller.Start([&] {
      if (isItem) {
        FThread->ProcessBlocking(Letter('E'));
      } else {
        FThread->ProcessBlocking([&] { FLetters += '!'; });
      }
    });
    caller.WaitUntilBlocked();
    FThread->Clear();
    caller.Wait();
  }
  EXPECT_EQ(FLetters, "BCDe");

  // Given up, they return and leave their items behind.
  TWorker second;
  caller.Start([&] { FThread->ProcessBlocking(Letter('F')); });
  caller.WaitUntilBlocked();
  second.Start([&] { FThread->ProcessBlocking(Letter('G')); });
  second.WaitUntilBlocked();
  FThread->AbortBlocking();
  caller.Wait();
  second.Wait();
  EXPECT_EQ(FThread->CountWaiting(), 2);
  Resume();
  Settle();
  EXPECT_EQ(FLetters, "BCDeFG");
}

TEST_F(ProcessingThreadTest, BlockingCallsOnTheThreadRunAtOnce) {
  Hold();
  FThread->Process([&] {
    FThread->ProcessBlocking(Letter('A'));
    FThread->ProcessBlocking([&] { FLetters += 'B'; });
    EXPECT_THROW(FThread->ProcessBlocking([] { throw EConvertError(u"no"); }), EConvertError);
  });
  FThread->Process(Letter('C'));
  Resume();
  Settle();
  EXPECT_EQ(FLetters, "ABC");
}

TEST_F(ProcessingThreadTest, BlockingCallersDoNotOutwaitTheThread) {
  TWorker caller, terminator;
  Hold();
  caller.Start([&] { FThread->ProcessBlocking([&] { FLetters += '!'; }); });
  caller.WaitUntilBlocked();
  terminator.Start([&] { FThread->Terminate(); });
  terminator.WaitUntilBlocked();
  EXPECT_TRUE(caller.IsBusy());
  Resume();
  caller.Wait();
  terminator.Wait();
  FThread->ProcessBlocking([&] { FLetters += '!'; });
  EXPECT_EQ(FLetters, "");
}

TEST_F(ProcessingThreadTest, CancelTakesOutWhatWaits) {
  Hold();
  const TWorkItem a = FThread->Process(Letter('A')), b = FThread->Process(Letter('B'));
  FThread->Process(a);
  FThread->Cancel(a);
  EXPECT_EQ(FLetters, "a");
  EXPECT_EQ(FThread->CountWaiting(), 2) << "one of the two";
  FThread->Cancel(Letter('C'));
  EXPECT_EQ(FLetters, "ac") << "told false, there or not";
  FThread->Cancel(nullptr);
  Resume();
  Settle();
  FThread->Cancel(b);
  EXPECT_EQ(FLetters, "acBAb") << "and when it has run";
}

TEST_F(ProcessingThreadTest, ItemsAreToldFalseInsideTheSection) {
  TWorker other;
  Hold();
  int waiting = -1, inside = -1;
  const auto look = [&](const TRef<IProcessingThread>& thread, bool isRun) {
    EXPECT_FALSE(isRun);
    other.Start([&] { waiting = FThread->CountWaiting(); });
    other.WaitUntilBlocked();
    inside = thread->CountWaiting();  // the caller itself may come back
  };
  FThread->Cancel(FThread->Process(TWorkItem(look)));
  other.Wait();
  EXPECT_EQ(inside, 0);
  EXPECT_EQ(waiting, 0);
  FThread->Process(TWorkItem(look));
  FThread->Clear();
  other.Wait();
  EXPECT_EQ(inside, 1) << "they leave the queue together, when all are told";
  EXPECT_EQ(waiting, 0);
  Resume();
}

TEST_F(ProcessingThreadTest, CancelWaitsForWhatRuns) {
  TWorker canceller, second, third;
  Hold();
  canceller.Start([&] { FThread->Cancel(FHolding); });
  canceller.WaitUntilBlocked();
  // The section is held as long.
  int waiting = -1;
  second.Start([&] { waiting = FThread->CountWaiting(); });
  second.WaitUntilBlocked();
  third.Start([&] { FThread->Cancel(FHolding); });
  third.WaitUntilBlocked();
  Resume();
  canceller.Wait();
  second.Wait();
  third.Wait();
  EXPECT_EQ(waiting, 0);
}

TEST_F(ProcessingThreadTest, WhatIsWaitedForMayUseItsThread) {
  TWorker canceller;
  std::latch isRunning(1), mayGo(1);
  const TWorkItem item = FThread->Process([&] {
    isRunning.count_down();
    mayGo.wait();
    FThread->Process(Letter('A'));
    FThread->Process(Letter('B'));
    EXPECT_EQ(FThread->CountWaiting(), 2);
    FThread->Clear();
    FThread->Process(Letter('C'));
  });
  isRunning.wait();
  // Under a call that holds the section already, too.
  const TWorkItem outer = [&](const TRef<IProcessingThread>&, bool) { FThread->Cancel(item); };
  canceller.Start([&] { FThread->Cancel(outer); });
  canceller.WaitUntilBlocked();
  mayGo.count_down();
  canceller.Wait();
  Settle();
  EXPECT_EQ(FLetters, "abC");
}

TEST_F(ProcessingThreadTest, ItemsMayCancelThemselves) {
  TWorkItem item;
  Hold();
  item = FThread->Process([&] {
    FThread->Cancel(item);
    FLetters += 'A';
  });
  Resume();
  Settle();
  EXPECT_EQ(FLetters, "A");
}

TEST_F(ProcessingThreadTest, ClearTellsAllThatWaits) {
  FThread->Clear();
  Hold();
  bool fails = true;
  FThread->Process(Letter('A'));
  FThread->Process([&](const TRef<IProcessingThread>& thread, bool isRun) {
    EXPECT_FALSE(isRun);
    if (std::exchange(fails, false)) throw EConvertError(u"no");
    thread->Process(Letter('C'));  // told as well
    thread->Clear();               // by the call that goes on
  });
  FThread->Process(Letter('B'));
  EXPECT_THROW(FThread->Clear(), EConvertError);
  EXPECT_EQ(FLetters, "a");
  EXPECT_EQ(FThread->CountWaiting(), 3) << "all stay";
  FThread->Clear();
  EXPECT_EQ(FLetters, "aabc");
  EXPECT_EQ(FThread->CountWaiting(), 0);
  Resume();
  Settle();
  EXPECT_EQ(FLetters, "aabc");
}

TEST_F(ProcessingThreadTest, ItemsRunWithNoLockHeld) {
  TWorker other;
  std::latch hasRun(1);
  FThread->Process([&] {
    other.Run([&] {
      FThread->Process(Letter('A'));
      FThread->Clear();
      FThread->AbortBlocking();
    });
    hasRun.count_down();
  });
  hasRun.wait();
  EXPECT_EQ(FLetters, "a");
}

TEST_F(ProcessingThreadTest, TerminatedFromOutsideItDropsItsQueue) {
  TWorker terminator;
  Hold();
  auto carried = std::make_shared<int>();
  const std::weak_ptr<int> watch = carried;
  FThread->Process([carried = std::move(carried), this] { FLetters += '!'; });
  terminator.Start([&] { FThread->Terminate(); });
  terminator.WaitUntilBlocked();
  EXPECT_TRUE(FThread->IsTerminated());
  FThread->Terminate();  // the second time: at once
  Resume();
  terminator.Wait();
  EXPECT_EQ(FThread->CountWaiting(), 1);
  FThread = nullptr;
  EXPECT_EQ(FLetters, "") << "neither run nor told";
  EXPECT_TRUE(watch.expired()) << "what waited ends with the object";
}

TEST_F(ProcessingThreadTest, TerminatedOnItselfItRunsItsQueue) {
  FThread->ProcessTerminated([&] { FLetters += 'X'; });
  Hold();
  FThread->Process([&] {
    FThread->Terminate();
    FLetters += 'T';
  });
  FThread->Process([&] {
    FThread->Process(Letter('C'));
    throw EConvertError(u"swallowed too");
  });
  FThread->Process(Letter('B'));
  Resume();
  FThread->WaitFor();
  EXPECT_EQ(FLetters, "BCTX");
}

TEST_F(ProcessingThreadTest, RunsItsLastProceduresInTheSection) {
  TWorker other;
  std::atomic<bool> isIn = false;
  const TProc<> first = [&] {
    FLetters += 'X';
    EXPECT_TRUE(FThread->IsInThread());
    other.Start([&] { isIn = FThread->CountWaiting() == 0; });
    other.WaitUntilBlocked();
    EXPECT_FALSE(isIn);
  };
  EXPECT_TRUE(FThread->ProcessTerminated(first) == first);
  FThread->ProcessTerminated([&] {
    FLetters += 'Y';
    throw EConvertError(u"last");
  });
  FThread->ProcessTerminated([&] { FLetters += 'Z'; });
  FThread->Terminate();
  other.Wait();
  EXPECT_EQ(FLetters, "XY");
  EXPECT_THROW(std::rethrow_exception(FThread->GetInstance()->FatalException()), EConvertError);
}

TEST_F(ProcessingThreadTest, WhatOnEmptyRaisesEndsIt) {
  FThread = TProcessingThread::Make(nullptr, [](const auto&) { throw EConvertError(u"no"); });
  FThread->Process([] {});
  FThread->WaitFor();
  EXPECT_THROW(std::rethrow_exception(FThread->GetInstance()->FatalException()), EConvertError);
  FThread->ProcessBlocking([] {});  // nobody will run it
}

TEST_F(ProcessingThreadTest, TheLastReferenceStopsAndWaits) {
  TWorker dropper;
  Hold();
  FThread->Process([&] { FLetters += '!'; });
  bool isGone = false;
  dropper.Start([&] {
    FThread = nullptr;
    isGone = true;
  });
  dropper.WaitUntilBlocked();
  EXPECT_FALSE(isGone);
  Resume();
  dropper.Wait();
  EXPECT_EQ(FLetters, "");
}

/// Counts the ends of threads of the library.
struct TEnds {
  std::atomic<int> Count = 0;
  TProc<> Link = RegisterThreadEndNotify([this] {
    ++Count;
    Count.notify_all();
  });
  void Wait() { Count.wait(0); }
  ~TEnds() { UnRegisterThreadEndNotify(Link); }
};

// The object goes on its own thread; AddressSanitizer watches what is touched afterwards.
TEST_F(ProcessingThreadTest, LastReferencesMayGoOnTheThreadItself) {
  FThread = nullptr;
  enum TWay { ByItem, ByWhatItCarried, ByBorrowedCopy, ByOnEmpty, ByDrainedItem };
  for (const TWay way : {ByItem, ByWhatItCarried, ByBorrowedCopy, ByOnEmpty, ByDrainedItem}) {
    SCOPED_TRACE(way);
    TEnds ends;
    FLetters.clear();
    std::latch isSet(1);
    auto thread = TProcessingThread::Make(nullptr, [&](const auto&) {
      if (way == ByOnEmpty) FThread = nullptr;
    });
    thread->ProcessTerminated([&] { FLetters += 'X'; });
    thread->Process([&] { isSet.wait(); });
    thread->Process([&, carried = way == ByWhatItCarried ? thread : nullptr](
                        const TRef<IProcessingThread>& self, bool) {
      TRef<IProcessingThread> copy;
      if (way == ByBorrowedCopy) copy = self;
      if (way == ByItem || way == ByBorrowedCopy) FThread = nullptr;
      if (way == ByDrainedItem) FThread->Terminate();
      FLetters += 'A';
    });
    thread->Process([&] {
      if (way == ByDrainedItem) FThread = nullptr;
      FLetters += 'B';
    });
    thread->Process([&] { FLetters += 'C'; });
    FThread = way == ByWhatItCarried ? nullptr : thread;
    thread = nullptr;
    isSet.count_down();
    ends.Wait();
    EXPECT_FALSE(FThread);
    const char* expected[] = {"BCAX", "ABCX", "ABCX", "ABCX", "BCAX"};
    EXPECT_EQ(FLetters, expected[way]);
  }
}

TEST_F(ProcessingThreadTest, CancelWaitsForWhatTerminateRuns) {
  TWorker canceller;
  Hold();
  FThread->Process([this] { FThread->Terminate(); });
  std::latch isIn(1), mayGo(1);
  bool isOver = false;
  const TWorkItem drained =
      FThread->Process(TWorkItem([&](const TRef<IProcessingThread>&, bool isRun) {
        EXPECT_TRUE(isRun);
        isIn.count_down();
        mayGo.wait();
        isOver = true;
      }));
  FThread->Process(Letter('A'));
  Resume();
  isIn.wait();
  canceller.Start([&] {
    FThread->Cancel(drained);
    EXPECT_TRUE(isOver);
  });
  canceller.WaitUntilBlocked();
  mayGo.count_down();
  canceller.Wait();
  FThread->WaitFor();
  EXPECT_EQ(FLetters, "A");
}

TEST_F(ProcessingThreadTest, ClearTellsWhatIsAddedInFrontMeanwhile) {
  Hold();
  FThread->Process(TWorkItem([&](const TRef<IProcessingThread>&, bool) {
    const TWorkItem dropped = FThread->Process(Letter('X'), /*isFirst*/ true);
    FThread->Process(Letter('A'), /*isFirst*/ true);
    FThread->Process(Letter('C'));
    FThread->Cancel(dropped);
  }));
  FThread->Process(Letter('B'));
  FThread->Clear();
  EXPECT_EQ(FThread->CountWaiting(), 0);
  Resume();
  Settle();
  EXPECT_EQ(FLetters, "xabc");
}

TEST_F(ProcessingThreadTest, BlockingCallsReturnFromAThreadThatDidNotBegin) {
  const TProc<> link = RegisterThreadStartNotify([] { throw EAssertionFailed(u"not today"); });
  FThread = TProcessingThread::MakeNamed(u"Never");
  FThread->WaitFor();
  UnRegisterThreadStartNotify(link);
  FThread->ProcessBlocking(Letter('A'));
  EXPECT_EQ(FLetters, "");
}

}  // namespace
}  // namespace Talvo
