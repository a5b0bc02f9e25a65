// SPDX-License-Identifier: Apache-2.0
#pragma once
// Executors: they run code somewhere and hand back an execution, which can be waited for and
// called off.
//
//   TRef<IExecutor> executor = TThreadPoolExecutor::Make(4);          // in ThreadPoolExecutor.h
//   auto job = executor->Execute([] { Compress(); });
//   job->WaitFor(NoTimeLimit);
//
// Where the code runs is the executor's choice: on the caller's thread (TDirectExecutor), on a
// thread of its own (TThreadExecutor), or on one of a bounded pool (TThreadPoolExecutor). All
// operations may be called on any thread.

#include <talvo/runtime/Function.h>
#include <talvo/runtime/ThreadPriority.h>
#include <talvo/threading/sync/TimeLimit.h>

namespace Talvo {

/// Code that was handed to an executor.
class IExecution : public virtual IInterface {
  TALVO_INTERFACE(IExecution, IInterface);
  /// Waits until the code has run, or raised, or was called off; false when the time is up first.
  virtual bool WaitFor(uint32_t timeoutMs) = 0;
  /// Calls the execution off: code that has not begun does not run any more, and code that has is
  /// waited for, unless it is itself that calls. WaitFor answers true from here on, or from the end
  /// of the code that calls.
  virtual void Terminate() = 0;
  /// Whether it was called off; code that runs long looks at this.
  virtual bool IsTerminated() = 0;
};

/// Runs code. What the code raises reaches the caller only when it runs on the caller's thread.
class IExecutor : public virtual IInterface {
  TALVO_INTERFACE(IExecutor, IInterface);
  /// The result may be dropped: the code runs all the same. An empty function object is an
  /// assertion failure.
  virtual TRef<IExecution> Execute(TProc<> executeLambda) = 0;
  /// The code gets the execution that it is.
  virtual TRef<IExecution> Execute(TConstProc<TRef<IExecution>> executeLambda) = 0;

  /// Tells at compile time what is wrong with code that neither of the others takes.
  template <Detail::MisfitFor<TProc<>, TConstProc<TRef<IExecution>>> F>
  TRef<IExecution> Execute(F&& /*code*/) {
    constexpr bool returnsNothing =
        !Detail::ReturnsSomething<F>() && !Detail::ReturnsSomething<F, const TRef<IExecution>&>();
    static_assert(returnsNothing,
                  "An execution's code returns nothing; use a variable that it captures.");
    static_assert(!returnsNothing,
                  "An execution's code takes no argument, or one const TRef<IExecution>&.");
    return nullptr;
  }
};

/// Runs code on threads with a priority.
class IThreadExecutor : public virtual IExecutor {
  TALVO_INTERFACE(IThreadExecutor, IExecutor);
  /// The priority of the threads that are made from here on; a pool also gives it to those it has.
  /// tpIdle at first. Does not wait. Raises ERangeError for a value that is no priority.
  virtual void SetPriority(TThreadPriority value) = 0;
};

/// Runs code on a limited number of threads.
class IThreadPoolExecutor : public virtual IThreadExecutor {
  TALVO_INTERFACE(IThreadPoolExecutor, IThreadExecutor);
  /// The limit on the threads, at least 1. Raised, it takes effect with the next Execute or when a
  /// thread next runs dry; lowered, the threads too many end as they run dry. Raises ERangeError
  /// above 2147483647.
  virtual IThreadPoolExecutor& SetCount(uint32_t value) = 0;
  /// How much work may wait at one thread, beside what it runs, and it still gets more; 0 at first.
  /// The larger it is, the more work waits behind a long job while other threads have nothing to
  /// do.
  virtual IThreadPoolExecutor& SetGroupSize(uint32_t value) = 0;
};

/// Executions that are waited for as one. Filled by one thread. It keeps every execution that it
/// was given until its own end, also those that have run.
class IExecutionTask : public virtual IExecution {
  TALVO_INTERFACE(IExecutionTask, IExecution);
  /// Adds one more to those that WaitFor and Terminate are about. Called by the thread that fills
  /// the task, never beside WaitFor or Terminate. Does not wait. An empty one is an assertion
  /// failure.
  virtual void Add(TRef<IExecution> execution) = 0;
};

}  // namespace Talvo
