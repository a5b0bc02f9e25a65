// SPDX-License-Identifier: Apache-2.0
#include <talvo/threading/threads/ProcessingThread.h>

#include <optional>
#include <tests/threading/Fixtures.h>

namespace Talvo {
namespace {

using namespace Testing;

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
  TProc<> Write(char letter) {
    return [this, letter] { FLetters += letter; };
  }
  /// Keeps the thread busy until Resume.
  void Hold() {
    FGate = TGate();
    FThread->Process(FGate);
    FGate.WaitUntilEntered();
  }
  void Resume() { FGate.Open(); }
  /// What has been written when all that is queued has run.
  std::string Settled() {
    Resume();
    FThread->ProcessBlocking([] {});
    return std::exchange(FLetters, {});
  }

  std::string FLetters;
  TRef<IProcessingThread> FThread = TProcessingThread::MakeNamed(u"Worker");
  TGate FGate;
};

TEST_F(ProcessingThreadTest, RunsInOrderOneAtATime) {
  Hold();
  EXPECT_EQ(FThread->CountWaiting(), 0) << "the one that runs is not counted";
  const TWorkItem c = Letter('C');
  EXPECT_TRUE(FThread->Process(c) == c);
  FThread->Process(Write('D'));
  FThread->Process([&] { FLetters += 'E'; });
  FThread->Process(Letter('B'), /*isFirst*/ true);
  FThread->Process(Write('A'), /*isFirst*/ true);
  FThread->Process(c);
  EXPECT_EQ(FThread->CountWaiting(), 6);
  EXPECT_EQ(Settled(), "ABCDEC");
  EXPECT_EQ(FThread->CountWaiting(), 0);
  EXPECT_THROW(FThread->Process(TProc<>()), EAssertionFailed);
  EXPECT_THROW(FThread->Process(TWorkItem()), EAssertionFailed);
  EXPECT_THROW(FThread->ProcessBlocking(TProc<>()), EAssertionFailed);
  EXPECT_THROW(FThread->ProcessTerminated(nullptr), EAssertionFailed);
}

TEST_F(ProcessingThreadTest, TellsWhenTheQueueIsEmpty) {
  std::atomic<int> bursts = 0;
  FThread = TProcessingThread::MakeNamed(u"", [&](const TRef<IProcessingThread>& thread) {
    EXPECT_TRUE(thread->IsInThread());
    TWorker().Run([&] { EXPECT_EQ(thread->CountWaiting(), 0); });  // no lock is held
    ++bursts, bursts.notify_all();
  });
  for (int i = 0; i < 100; ++i) FThread->Process(FGate);
  Resume();
  bursts.wait(0);
  FThread->Terminate();
  EXPECT_LE(bursts, 3) << "each burst, not each item";

  FThread = TProcessingThread::Make(nullptr, [](const auto&) { throw EConvertError(u"no"); });
  FThread->Process([] {});
  FThread->WaitFor();
  EXPECT_EQ(FailureOf(*FThread), "EConvertError: no");
  FThread->ProcessBlocking([] {});  // nobody will run it
}

TEST_F(ProcessingThreadTest, SwallowsWhatItemsRaiseAndTellsTheHook) {
  FThread->Process([] { throw EConvertError(u"first"); });
  Settled();
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
  Settled();
  EXPECT_TRUE(SetSwallowedExceptionHook(nullptr));
  FThread->Process([] { throw EConvertError(u"third"); });
  FThread->Process(Letter('A'));
  EXPECT_EQ(Settled(), "A") << "the queue goes on";
  EXPECT_EQ(heard, u"second");
}

TEST_F(ProcessingThreadTest, BlockingCallersWaitForTheirItem) {
  Hold();
  FThread->Process(Letter('C'));
  {
    const TStuck caller([&] {
      FThread->ProcessBlocking(Letter('B'), /*isFirst*/ true);
      FThread->ProcessBlocking(Write('D'));
    });
    EXPECT_EQ(FThread->CountWaiting(), 2);
    Resume();
  }
  EXPECT_EQ(Settled(), "BCD");

  Hold();
  {
    // Told false, they return as well; the procedure is not called then.
    const TStuck item([&] { FThread->ProcessBlocking(Letter('E')); });
    const TStuck proc([&] { FThread->ProcessBlocking(Write('!')); });
    FThread->Clear();
  }
  {
    // Given up, they return and leave their items behind.
    const TStuck first([&] { FThread->ProcessBlocking(Letter('F')); });
    const TStuck second([&] { FThread->ProcessBlocking(Letter('G')); });
    FThread->AbortBlocking();
  }
  EXPECT_EQ(FThread->CountWaiting(), 2);
  EXPECT_EQ(Settled(), "eFG");

  Hold();
  {
    // Nor do they outwait the thread.
    TStuck caller([&] { FThread->ProcessBlocking(Write('!')); });
    const TStuck terminator([&] { FThread->Terminate(); });
    EXPECT_TRUE(caller.IsBusy());
    Resume();
  }
  FThread->ProcessBlocking(Write('!'));
  EXPECT_EQ(FLetters, "");
}

TEST_F(ProcessingThreadTest, BlockingCallsOnTheThreadRunAtOnce) {
  Hold();
  FThread->Process([&] {
    FThread->ProcessBlocking(Letter('A'));
    FThread->ProcessBlocking(Write('B'));
    EXPECT_THROW(FThread->ProcessBlocking([] { throw EConvertError(u"no"); }), EConvertError);
  });
  FThread->Process(Letter('C'));
  EXPECT_EQ(Settled(), "ABC");
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
  TWorkItem itself;
  itself = FThread->Process([&] { FThread->Cancel(itself); });
  EXPECT_EQ(Settled(), "acBA");
  FThread->Cancel(b);
  EXPECT_EQ(FLetters, "b") << "and when it has run";
}

TEST_F(ProcessingThreadTest, ItemsAreToldFalseInsideTheSection) {
  std::optional<TStuck> other;
  const TWorkItem look = [&](const TRef<IProcessingThread>& thread, bool isRun) {
    EXPECT_FALSE(isRun);
    // The caller itself may come back.
    FLetters += static_cast<char>('0' + thread->CountWaiting());
    other.emplace([&] { EXPECT_EQ(FThread->CountWaiting(), 0); });
  };
  Hold();
  FThread->Cancel(FThread->Process(look));
  other.reset();
  EXPECT_EQ(FLetters, "0");
  FThread->Process(look);
  FThread->Clear();
  other.reset();
  EXPECT_EQ(FLetters, "01") << "they leave the queue together, when all are told";
  Resume();
}

TEST_F(ProcessingThreadTest, CancelWaitsForWhatRuns) {
  const TWorkItem item = FThread->Process([&] {
    FGate();
    // Whoever is waited for may use its thread.
    FThread->Process(Letter('A'));
    FThread->Process(Letter('B'));
    EXPECT_EQ(FThread->CountWaiting(), 2);
    FThread->Clear();
    FThread->Process(Letter('C'));
  });
  FGate.WaitUntilEntered();
  // Under a call that holds the section already, too.
  const TWorkItem outer = [&](const TRef<IProcessingThread>&, bool) { FThread->Cancel(item); };
  {
    const TStuck first([&] { FThread->Cancel(outer); });
    const TStuck second([&] { FThread->Cancel(item); });
    const TStuck other([&] { FThread->CountWaiting(); });  // the section is held as long
    Resume();
  }
  EXPECT_EQ(Settled(), "abC");
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
  FThread->Process(Write('!'));  // procedures are not called then
  FThread->Process(Letter('B'));
  EXPECT_THROW(FThread->Clear(), EConvertError);
  EXPECT_EQ(FLetters, "a");
  EXPECT_EQ(FThread->CountWaiting(), 4) << "all stay";
  FThread->Clear();
  EXPECT_EQ(FThread->CountWaiting(), 0);
  EXPECT_EQ(Settled(), "aabc");
}

TEST_F(ProcessingThreadTest, EndedFromOutsideItDropsItsQueue) {
  const auto carried = std::make_shared<int>();
  for (const bool isByTerminate : {false, true}) {
    SCOPED_TRACE(isByTerminate);
    FThread = TProcessingThread::Make();
    Hold();
    const TGate inFront;
    FThread->Process(inFront);
    FThread->Process([carried, this] { FLetters += '!'; });
    Resume();
    inFront.WaitUntilEntered();
    TStuck ending([this, isByTerminate] {
      if (isByTerminate) return FThread->Terminate();
      FThread = nullptr;
    });
    if (isByTerminate) {
      EXPECT_TRUE(FThread->IsTerminated());
      FThread->Terminate();  // the second time: at once
    }
    inFront.Open();
    ending.Wait();
    EXPECT_EQ(FThread ? FThread->CountWaiting() : 1, 1) << "neither run nor told";
    FThread = nullptr;
    EXPECT_EQ(FLetters, "");
    EXPECT_EQ(carried.use_count(), 1) << "what waited ends with the object";
  }
}

TEST_F(ProcessingThreadTest, RunsItsLastProceduresInTheSection) {
  std::optional<TStuck> other;
  const TProc<> first = [&] {
    EXPECT_TRUE(FThread->IsInThread());
    other.emplace([&] { FThread->CountWaiting(); });
    EXPECT_TRUE(other->IsBusy());
    FLetters += 'X';
  };
  EXPECT_TRUE(FThread->ProcessTerminated(first) == first);
  FThread->ProcessTerminated([&] {
    FLetters += 'Y';
    throw EConvertError(u"last");
  });
  FThread->ProcessTerminated(Write('!'));
  FThread->Terminate();
  EXPECT_EQ(FLetters, "XY");
  EXPECT_EQ(FailureOf(*FThread), "EConvertError: last");
}

// The object goes on its own thread; AddressSanitizer watches what is touched afterwards.
TEST_F(ProcessingThreadTest, LastReferencesMayGoOnTheThreadItself) {
  enum TWay { ByItem, ByWhatItCarried, ByBorrowedCopy, ByOnEmpty, ByDrainedItem };
  for (const TWay way : {ByItem, ByWhatItCarried, ByBorrowedCopy, ByOnEmpty, ByDrainedItem}) {
    SCOPED_TRACE(way);
    FThread = nullptr;
    FLetters.clear();
    const TNotices notices;
    const TGate gate;
    auto thread = TProcessingThread::Make(nullptr, [&](const auto&) {
      if (way == ByOnEmpty) FThread = nullptr;
    });
    thread->ProcessTerminated(Write('X'));
    thread->Process(gate);
    thread->Process([&, carried = way == ByWhatItCarried ? thread : nullptr](
                        const TRef<IProcessingThread>& self, bool) {
      TRef<IProcessingThread> copy;
      if (way == ByBorrowedCopy) copy = self;
      if (way == ByItem || way == ByBorrowedCopy) FThread = nullptr;
      if (way == ByDrainedItem) FThread->Terminate();
      FLetters += 'A';
    });
    thread->Process([&] {
      FLetters += 'B';
      if (way != ByDrainedItem) return;
      FThread->Process(Write('D'));
      FThread = nullptr;
      throw EConvertError(u"swallowed too");
    });
    thread->Process(Write('C'));
    FThread = way == ByWhatItCarried ? nullptr : thread;
    thread = nullptr;
    gate.Open();
    notices.WaitForEnds(1);
    EXPECT_FALSE(FThread);
    // Where the thread is ended within an item, what waits runs within it, too.
    const char* expected[] = {"BCAX", "ABCX", "ABCX", "ABCX", "BCDAX"};
    EXPECT_EQ(FLetters, expected[way]);
  }
}

TEST_F(ProcessingThreadTest, CancelWaitsForWhatTerminateRuns) {
  Hold();
  FThread->Process([this] { FThread->Terminate(); });
  const TGate gate;
  const TWorkItem drained =
      FThread->Process(TWorkItem([&](const TRef<IProcessingThread>&, bool isRun) {
        EXPECT_TRUE(isRun);
        gate();
        FLetters += 'A';
      }));
  FThread->Process(Write('B'));
  Resume();
  gate.WaitUntilEntered();
  {
    const TStuck canceller([&] {
      FThread->Cancel(drained);
      EXPECT_EQ(FLetters[0], 'A');
    });
    gate.Open();
  }
  FThread->WaitFor();
  EXPECT_EQ(FLetters, "AB");
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
  EXPECT_EQ(Settled(), "xabc");
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
