// SPDX-License-Identifier: Apache-2.0
#include <talvo/platform/Thread.h>

#include <pthread.h>
#include <unistd.h>

namespace Talvo::Platform {

constinit thread_local uint32_t GCurrentThreadId = 0;

namespace {

// A forked child goes on with a copy of the thread that forked, under an identifier of its own.
[[maybe_unused]] const int GForkHandler =
    pthread_atfork(nullptr, nullptr, [] { GCurrentThreadId = 0; });

}  // namespace

uint32_t AskCurrentThreadId() noexcept {
  GCurrentThreadId = static_cast<uint32_t>(gettid());
  return GCurrentThreadId;
}

TThreadEndNotice::TThreadEndNotice(void (*atEnd)(void* value)) noexcept {
  static_assert(sizeof(pthread_key_t) == sizeof(FKey));
  if (pthread_key_create(&FKey, atEnd) != 0) FKey = UINT32_MAX;
}
TThreadEndNotice::~TThreadEndNotice() {
  pthread_key_delete(FKey);
}
void TThreadEndNotice::Set(void* value) noexcept {
  pthread_setspecific(FKey, value);
}

}  // namespace Talvo::Platform
