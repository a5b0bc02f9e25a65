// SPDX-License-Identifier: Apache-2.0
// Pools of two threads beside each other: a flood of small tasks from one thread, and the round
// trip of one task. One of the peers is written by hand: a deque with a lock.
//
// All have two threads of their own, of ordinary priority, that stay; the caller takes no part, and
// nobody keeps what posting answers. Talvo is told how much may wait at a thread that gets more
// (64), the others have no such number: oneTBB enqueues into an arena without a slot for the
// caller, QThreadPool's threads do not expire, asio and the deque take what they are made with.
// Talvo alone answers an execution for each task, which can be waited for and called off.

#include <talvo/threading/Talvo.Threading.h>

#define QT_NO_KEYWORDS  // "emit" is a name in oneTBB
#include <QThreadPool>
#include <boost/asio.hpp>
#include <functional>
#include <oneapi/tbb/task_arena.h>

#include "PostBench.h"

namespace {

constexpr int Threads = 2;

struct TTalvo {
  Talvo::TRef<Talvo::IThreadPoolExecutor> Pool = Talvo::TThreadPoolExecutor::Make(Threads);
  TTalvo() {
    Pool->SetPriority(Talvo::tpNormal);
    Pool->SetGroupSize(64);
  }
  template <class F>
  void Post(F&& code) {
    Pool->Execute(std::forward<F>(code));
  }
};

struct TTbb {
  // Tasks are enqueued from outside: no slot is kept for the caller.
  oneapi::tbb::task_arena Arena{Threads, 0};
  template <class F>
  void Post(F&& code) {
    Arena.enqueue(std::forward<F>(code));
  }
};

struct TQt {
  QThreadPool Pool;
  TQt() {
    Pool.setMaxThreadCount(Threads);
    Pool.setExpiryTimeout(-1);
  }
  template <class F>
  void Post(F&& code) {
    Pool.start(std::function<void()>(std::forward<F>(code)));
  }
};

struct TAsio {
  boost::asio::thread_pool Pool{Threads};
  template <class F>
  void Post(F&& code) {
    boost::asio::post(Pool, std::forward<F>(code));
  }
  ~TAsio() { Pool.join(); }
};

const bool GIsRegistered = [] {
  RegisterPosts<TTalvo>("Pool", "Talvo");
  RegisterPosts<TTbb>("Pool", "oneTBB");
  RegisterPosts<TQt>("Pool", "QThreadPool");
  RegisterPosts<TAsio>("Pool", "Boost.Asio");
  RegisterPosts<TLockedDeque<Threads>>("Pool", "Deque");
  return true;
}();

}  // namespace
