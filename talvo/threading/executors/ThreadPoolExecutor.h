// SPDX-License-Identifier: Apache-2.0
#pragma once
// TThreadPoolExecutor: a limited number of threads that share the work.
//
//   auto pool = TThreadPoolExecutor::Make(4);
//   pool->SetPriority(tpNormal);
//   for (const string& path : paths) pool->Execute([path] { Load(path); });
//
// Threads are made when they are needed. Work goes to the first thread, in the order in which they
// were made, at which no more than the group size waits; what a thread runs at the moment does not
// count. When none is left and the limit on threads is reached, work waits in the pool, in order,
// until a thread runs dry.
//
// What a thread was given stays with it, behind a long job too, while other threads have nothing to
// do. The group size 0, which it is unless it is set, keeps that to one piece of work a thread; a
// larger one lets that many more wait, and is for many short jobs.

#include <talvo/threading/executors/ThreadExecutor.h>

namespace Talvo {

class IProcessingThread;

/// The pool. Its last reference waits for the work that is running; work that has not begun never
/// runs then, and WaitFor of it does not return without a time limit unless it is terminated. Work
/// that drops the last reference itself is not waited for: its thread runs what waits behind it and
/// ends. Two pools that are dropped by each other's work wait for each other.
///
/// Terminate of an execution takes it out of the pool in constant time, and out of the queue of a
/// thread in the time that the queue is long. While it waits for code that runs, the pool is open.
class TALVO_API TThreadPoolExecutor
    : public TImplements<TBasicThreadExecutor, IThreadPoolExecutor>,
      public TThreadExecutorMakers<TThreadPoolExecutor, IThreadPoolExecutor> {
 public:
  class IExecutionExt;
  class TExecution;

  TThreadPoolExecutor(TDoNotUseThis, TComponent* owner, int32_t count = 0);
  ~TThreadPoolExecutor() override;

  using TThreadExecutorMakers::CreateObject;
  using TThreadExecutorMakers::CreateObjectComponent;
  using TThreadExecutorMakers::Make;
  using TThreadExecutorMakers::MakeComponent;
  /// `count` is the limit on the threads as it is given: below 1, and without it, no thread is
  /// made until SetCount. The group size is 0 and the priority tpIdle until they are set.
  static TRef<TThreadPoolExecutor> CreateObject(int32_t count);
  static TRef<IThreadPoolExecutor> Make(int32_t count);
  static TRef<TThreadPoolExecutor> CreateObjectComponent(TComponent* owner, int32_t count);
  static TRef<IThreadPoolExecutor> MakeComponent(TComponent* owner, int32_t count);

  /// Raises EThread when no thread can be made and there is none; nothing is queued then.
  TRef<IExecution> Execute(TProc<> executeLambda) override;
  TRef<IExecution> Execute(TConstProc<TRef<IExecution>> executeLambda) override;
  using IExecutor::Execute;
  IThreadPoolExecutor& SetCount(uint32_t value) override;
  IThreadPoolExecutor& SetGroupSize(uint32_t value) override;
  /// The priority of the threads there are and of those to come. To be set before the first
  /// Execute: the system lets an ordinary user lower a thread, and not raise it again.
  void SetPriority(TThreadPriority value) override;

  /// Hands out waiting work as far as it goes.
  void ProcessQueue();
  /// Takes work that waits in the pool out of it. It runs no more, unless SetThread gives it to a
  /// thread. Work that a thread has already stays there.
  void RemoveTask(const TRef<IExecutionExt>& task);

 protected:
  void BeforeDestroyDefaults() override;
  void ConstructionFailed() noexcept override;

 private:
  class TPool;
  class TTasks;
  class TWorker;

  TRef<IExecution> Queue(TRef<TExecution> task);

  const TRef<TPool> FPool;
};

/// An execution that a pool gives to a thread.
class TThreadPoolExecutor::IExecutionExt : public virtual IExecution {
  TALVO_INTERFACE(IExecutionExt, IExecution);
  /// Queues the code at `thread`. An assertion failure when it was given to one already, or called
  /// off, or its pool has ended. When the thread refuses it, it is out of the pool and may be given
  /// to another.
  virtual void SetThread(TRef<IProcessingThread> thread) = 0;
};

}  // namespace Talvo
