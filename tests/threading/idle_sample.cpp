// SPDX-License-Identifier: Apache-2.0
// Measures what a process costs while everything in it waits.
//
//   idle_sample [SECONDS]

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>
#include <talvo/threading/Talvo.Threading.Utils.h>
#include <talvo/threading/Talvo.Threading.h>

using namespace Talvo;

namespace {

std::atomic<int> GStarting = 0;

/// Runs code that does not come back on a thread of its own.
template <class F>
void OnThread(F code) {
  ++GStarting;
  std::thread([code] {
    --GStarting;
    code();
    std::puts("came back");
    std::exit(1);
  }).detach();
}

/// Whether all threads of the process but this one are asleep. How many there are.
bool AllSleep(int& threads) {
  threads = 0;
  int awake = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string line;
    std::getline(std::ifstream(task.path() / "stat"), line);
    ++threads;
    const size_t name = line.rfind(')');
    if (name != std::string::npos && line[name + 2] != 'S') ++awake;
  }
  return GStarting == 0 && awake == 1;
}

struct TUsage {
  double Seconds = 0, CpuMs = 0;
  long Switches = 0;

  static TUsage Now() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    timespec cpu{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return {std::chrono::duration<double>(now).count(),
            1e3 * static_cast<double>(cpu.tv_sec) + static_cast<double>(cpu.tv_nsec) / 1e6,
            usage.ru_nvcsw};
  }
};

/// Prints what the process uses while all its threads sleep, and answers whether that is little.
bool Measure(const char* what, int seconds, double mostPercent, double mostSwitches) {
  int threads = 0;
  while (!AllSleep(threads)) std::this_thread::yield();
  const TUsage start = TUsage::Now();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const TUsage end = TUsage::Now();
  const double passed = end.Seconds - start.Seconds;
  const double percent = (end.CpuMs - start.CpuMs) / (passed * 1e3) * 100;
  const double switches = static_cast<double>(end.Switches - start.Switches) / passed;
  std::printf("%s: %d threads, %.4f %% of a processor, %.1f voluntary switches a second\n", what,
              threads, percent, switches);
  std::fflush(stdout);
  return percent < mostPercent && switches < mostSwitches;
}

/// On a thread of its own, while the main thread waits too. Ends the process.
void MeasureAll(int seconds) {
  bool isIdle = Measure("idle", seconds, 0.2, 5);
  // Whoever waits for what a thread holds looks now and then whether the holder has died.
  const auto lock = TLock::Make(), stopping = TLock::Make();
  const auto held = lock->WriteLock(), alsoHeld = stopping->WriteLock();
  OnThread([=] { lock->WriteLock(); });
  OnThread([=] { stopping->StopLock(); });
  for (const string& name : {string(), string(u"talvo_idle")}) {
    const auto mutex = TMutex::Make(name, false);
    mutex->MutexAcquire(NoTimeLimit);
    OnThread([=] { mutex->MutexAcquire(NoTimeLimit); });
  }
  isIdle &= Measure("with 4 waiting for held locks", seconds, 2, 400);
  MainThread::Execute(
      nullptr, false, [isIdle] { std::_Exit(isIdle ? 0 : 1); }, false);
  TEvent::Make()->WaitFor(NoTimeLimit);  // the locks stay held until then
}

}  // namespace

int main(int count, char** arguments) {
  const int seconds = count > 1 ? std::atoi(arguments[1]) : 2;

  TPeriodicThread::Make(u"Periodic", 3'600'000, [] {}).Detach();
  const auto processing = TProcessingThread::MakeNamed(u"Processing");
  processing->ProcessBlocking([] {});
  const auto busy = TProcessingThread::MakeNamed(u"Busy");
  const auto event = TEvent::Make();
  busy->Process([=] { event->WaitFor(NoTimeLimit); });
  OnThread([=] { busy->ProcessBlocking([] {}); });
  const auto pool = TThreadPoolExecutor::Make(4);
  for (int i = 0; i < 4; ++i) pool->Execute([] {});
  const auto executing = TThreadExecutor::Make()->Execute([=] { event->WaitFor(NoTimeLimit); });
  OnThread([=] { executing->WaitFor(NoTimeLimit); });
  TThreadExecutor::Make()->Execute([] {}).Detach();
  const auto window = THiddenWindowThread::Make(u"Window");
  window->Process([] {});
  const auto ticking = TAnimationClockThread::CreateObject(u"Stopped", [] {});
  ticking->Stop();
  std::atomic<int> ticks = 0;
  TProc<> link = TAnimationClock::Subscribe([&] { ticks.fetch_add(1), ticks.notify_one(); });
  ticks.wait(0);
  TAnimationClock::Unsubscribe(link);

  // What these wait for is held here, or never comes.
  const auto section = TCriticalSection::Make();
  section->Enter();
  OnThread([=] { section->Enter(); });
  const auto semaphore = TSemaphore::Make(0, 1);
  OnThread([=] { semaphore->Decrement(NoTimeLimit); });
  OnThread([] { TEvent::Make()->WaitFor(NoTimeLimit); });
  OnThread([] { TEvent::Make(u"talvo_idle", false)->WaitFor(NoTimeLimit); });
  OnThread([] { TEvent::Make()->WaitFor(3'600'000); });

  std::thread([=] { MeasureAll(seconds); }).detach();
  pollfd waiting{MainThread::WakeUpDescriptor(), POLLIN, 0};
  for (;;) {
    if (poll(&waiting, 1, -1) == 1) MainThread::ProcessMessages();
  }
}
