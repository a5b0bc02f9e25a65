// SPDX-License-Identifier: Apache-2.0
#pragma once
// TDirectExecutor: runs code at once, on the caller's thread.

#include <talvo/threading/executors/Executor.h>

namespace Talvo {

/// Execute returns when the code has run. What the code raises comes out of Execute, and there is
/// no execution then.
class TALVO_API TDirectExecutor : public TImplements<TBasicNoCreateInterfacedObject, IExecutor> {
 public:
  class TExecution;

  explicit TDirectExecutor(TDoNotUseThis) noexcept;
  /// `CreateObject` answers the class, `Make` the interface.
  static TRef<TDirectExecutor> CreateObject();
  static TRef<IExecutor> Make();

  TRef<IExecution> Execute(TProc<> executeLambda) override;
  TRef<IExecution> Execute(TConstProc<TRef<IExecution>> executeLambda) override;
  using IExecutor::Execute;
};

/// Has always run already, and cannot be called off.
class TALVO_API TDirectExecutor::TExecution final
    : public TImplements<TBasicInterfacedObject, IExecution> {
 public:
  bool WaitFor(uint32_t timeoutMs) override;
  void Terminate() override;
  bool IsTerminated() override;
};

}  // namespace Talvo
