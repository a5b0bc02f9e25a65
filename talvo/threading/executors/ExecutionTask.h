// SPDX-License-Identifier: Apache-2.0
#pragma once
// TExecutionTask: a group of executions.
//
//   auto task = TExecutionTask::Make();
//   for (const string& path : paths) task->Add(executor->Execute([path] { Load(path); }));
//   task->WaitFor(NoTimeLimit);

#include <talvo/threading/executors/Executor.h>

namespace Talvo {

template <class T>
class ILinkedList;

/// Not locked: one thread fills it, and waits for it afterwards. Its last reference blocks until
/// all its executions have ended. So it never returns when the code of one of them drops it, or
/// when a pool was dropped while work of the group waited in it.
class TALVO_API TExecutionTask
    : public TImplements<TBasicNoCreateInterfacedObject, IExecutionTask> {
 public:
  explicit TExecutionTask(TDoNotUseThis);
  ~TExecutionTask() override;
  static TRef<TExecutionTask> CreateObject();
  static TRef<IExecutionTask> Make();

  void Add(TRef<IExecution> execution) override;
  /// Waits for one after the other, in the order in which they were added. A limit holds for the
  /// first one alone: the others are only looked at. True when there are none.
  bool WaitFor(uint32_t timeoutMs) override;
  /// Calls off all of them, in their order.
  void Terminate() override;
  bool IsTerminated() override;

 protected:
  void BeforeDestruction() override;

 private:
  const TRef<ILinkedList<TRef<IExecution>>> FExecutions;
  bool FTerminated = false;  // atomic
};

}  // namespace Talvo
