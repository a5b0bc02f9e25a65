// SPDX-License-Identifier: Apache-2.0
// A thread with a queue beside other such threads, and the start and end of threads. The
// hand-written limits are a deque with a lock, and the system's own thread.

#include <talvo/threading/Talvo.Threading.h>

#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <boost/asio.hpp>
#include <cstdlib>
#include <latch>
#include <pthread.h>
#include <string>
#include <thread>

#include "PostBench.h"

namespace {

struct TTalvo {
  Talvo::TRef<Talvo::IProcessingThread> Thread = Talvo::TProcessingThread::Make();
  // As the others: the system may favour the thread otherwise.
  TTalvo() { Thread->SetPriority(Talvo::tpNormal); }
  template <class F>
  void Post(F&& code) {
    Thread->Process(std::forward<F>(code));
  }
  template <class F>
  void Call(F&& code) {
    Thread->ProcessBlocking(std::forward<F>(code));
  }
};

/// A blocking call made of a post and a latch.
template <class TPeer, class F>
void CallByLatch(TPeer& peer, F&& code) {
  std::latch done(1);
  peer.Post([&] {
    code();
    done.count_down();
  });
  done.wait();
}

struct TAsio {
  boost::asio::io_context Context{1};
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> Work{
      Context.get_executor()};
  std::thread Thread{[this] { Context.run(); }};
  template <class F>
  void Post(F&& code) {
    boost::asio::post(Context, std::forward<F>(code));
  }
  template <class F>
  void Call(F&& code) {
    CallByLatch(*this, code);
  }
  ~TAsio() {
    Work.reset();
    Thread.join();
  }
};

struct TPoco {
  struct TTask : Poco::Notification {
    virtual void Run() = 0;
  };
  template <class F>
  struct TCodeTask : TTask {
    F Code;
    explicit TCodeTask(F code) : Code(std::move(code)) {}
    void Run() override { Code(); }
  };

  bool IsEnding = false;  // the thread's own
  Poco::NotificationQueue Queue;
  std::thread Thread{[this] {
    while (!IsEnding) {
      Poco::AutoPtr<Poco::Notification> next(Queue.waitDequeueNotification());
      static_cast<TTask*>(next.get())->Run();
    }
  }};
  template <class F>
  void Post(F&& code) {
    Queue.enqueueNotification(new TCodeTask<std::decay_t<F>>(std::forward<F>(code)));
  }
  template <class F>
  void Call(F&& code) {
    CallByLatch(*this, code);
  }
  ~TPoco() {
    Post([this] { IsEnding = true; });
    Thread.join();
  }
};

struct TDeque : TLockedDeque<1> {
  template <class F>
  void Call(F&& code) {
    CallByLatch(*this, code);
  }
};

template <class TPeer>
void BM_ThreadBlockingCall(benchmark::State& state) {
  TPeer peer;
  int64_t count = 0;
  for (auto _ : state) peer.Call([&count] { ++count; });
  if (count != state.iterations()) state.SkipWithError("calls are lost");
}

template <class TPeer>
void RegisterQueue(const std::string& implementation) {
  RegisterPosts<TPeer>("Thread", implementation);
  benchmark::RegisterBenchmark(("BM_ThreadBlockingCall/" + implementation).c_str(),
                               BM_ThreadBlockingCall<TPeer>)
      ->UseRealTime();
}

struct TIdle : Talvo::TThread {
  void Execute() override {}
};

void StartObject() {
  Talvo::Create<TIdle>()->WaitFor();
}
void StartByReference() {
  const auto thread = Talvo::TRepeatThread::Make(
      u"", [](const Talvo::TRef<Talvo::IThread>& self) { self->Terminate(); });
  thread->WaitFor();
}
void StartStd() {
  std::thread([] {}).join();
}
void StartSystem() {
  pthread_t thread;
  const auto idle = [](void*) -> void* { return nullptr; };
  if (pthread_create(&thread, nullptr, idle, nullptr) != 0) std::abort();
  pthread_join(thread, nullptr);
}

void RegisterStart(const char* name, void (*start)()) {
  benchmark::RegisterBenchmark(name, [start](benchmark::State& state) {
    for (auto _ : state) start();
  })->UseRealTime();
}

const bool GIsRegistered = [] {
  RegisterQueue<TTalvo>("Talvo");
  RegisterQueue<TAsio>("Boost.Asio");
  RegisterQueue<TPoco>("Poco");
  RegisterQueue<TDeque>("Limit");
  RegisterStart("BM_ThreadStartAndEnd/Talvo", StartObject);
  RegisterStart("BM_ThreadStartAndEnd/StdThread", StartStd);
  RegisterStart("BM_ThreadStartAndEnd/Limit", StartSystem);
  RegisterStart("BM_RepeatThreadStartAndEnd/Talvo", StartByReference);
  RegisterStart("BM_RepeatThreadStartAndEnd/StdThread", StartStd);
  RegisterStart("BM_RepeatThreadStartAndEnd/Limit", StartSystem);
  return true;
}();

}  // namespace
