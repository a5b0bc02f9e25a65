// SPDX-License-Identifier: Apache-2.0
#pragma once
// TThreadExecutor: a thread for each execution.

#include <talvo/threading/executors/Executor.h>
#include <talvo/threading/executors/ManagedObject.h>

namespace Talvo {

class TComponent;

/// The base of executors with threads. The owner gives them its name; it is not owned, may be
/// null, and otherwise outlives the executor. It must not be renamed meanwhile: its name is read
/// whenever a thread is made, on any thread.
class TALVO_API TBasicThreadExecutor
    : public TImplements<TManagedNoCreateInterfacedObject, IThreadExecutor> {
 public:
  explicit TBasicThreadExecutor(TDoNotUseThis, TComponent* owner = nullptr) noexcept
      : TImplements(Do_Not_Use_This), FOwner(owner) {}

  TRef<IExecution> Execute(TProc<> executeLambda) override = 0;
  TRef<IExecution> Execute(TConstProc<TRef<IExecution>> executeLambda) override = 0;
  using IExecutor::Execute;

 protected:
  TComponent* const FOwner;
};

/// The makers of an executor class: `Create...` answer the class, `Make...` the interface.
template <class TClass, class I>
class TThreadExecutorMakers {
 public:
  static TRef<TClass> CreateObject() { return CreateObjectComponent(nullptr); }
  static TRef<I> Make() { return CreateObject(); }
  static TRef<TClass> CreateObjectComponent(TComponent* owner) {
    return Create<TClass>(Do_Not_Use_This, owner);
  }
  static TRef<I> MakeComponent(TComponent* owner) { return CreateObjectComponent(owner); }
};

/// Runs each execution on a thread of its own, which is named "ThreadExecutor", behind the owner's
/// name and "." if there is an owner. The thread stays until the last reference to the execution
/// has gone; the execution lives at least until its code has run.
class TALVO_API TThreadExecutor : public TBasicThreadExecutor,
                                  public TThreadExecutorMakers<TThreadExecutor, IThreadExecutor> {
 public:
  class TExecution;
  using TBasicThreadExecutor::TBasicThreadExecutor;

  /// Raises EThread when no thread can be made.
  TRef<IExecution> Execute(TProc<> executeLambda) override;
  TRef<IExecution> Execute(TConstProc<TRef<IExecution>> executeLambda) override;
  using IExecutor::Execute;
  /// The priority of threads that are made from here on; tpIdle at first.
  void SetPriority(TThreadPriority value) override;

 private:
  TThreadPriority FPriority = tpIdle;  // atomic
};

}  // namespace Talvo
