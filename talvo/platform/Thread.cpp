// SPDX-License-Identifier: Apache-2.0
#include <talvo/platform/Thread.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace Talvo::Platform {

constinit thread_local uint32_t GCurrentThreadId = 0;

namespace {

uint32_t GMainThreadId = 0;  // atomic

constexpr uint32_t NoKey = UINT32_MAX;

// A forked child goes on with a copy of the thread that forked, under an identifier of its own.
[[maybe_unused]] const int GForkHandler = pthread_atfork(nullptr, nullptr, [] {
  GCurrentThreadId = 0;
  GMainThreadId = 0;
});

constexpr size_t MaxSystemName = 15;

std::string_view SystemName(std::string_view utf8) noexcept {
  if (utf8.size() <= MaxSystemName) return utf8;
  utf8.remove_prefix(utf8.size() - MaxSystemName);
  while (!utf8.empty() && (utf8.front() & 0xC0) == 0x80) utf8.remove_prefix(1);
  return utf8;
}

}  // namespace

uint32_t AskCurrentThreadId() noexcept {
  GCurrentThreadId = static_cast<uint32_t>(gettid());
  return GCurrentThreadId;
}

int StartThread(TThreadHandle& handle, void* (*entry)(void*), void* argument) noexcept {
  static_assert(sizeof(pthread_t) == sizeof(TThreadHandle));
  pthread_t thread;
  const int error = pthread_create(&thread, nullptr, entry, argument);
  if (error == 0) handle = thread;
  return error;
}

void JoinThread(TThreadHandle handle) noexcept {
  if (pthread_equal(handle, pthread_self())) {
    pthread_detach(handle);  // in its last destructors a thread may end its own object
  } else {
    pthread_join(handle, nullptr);
  }
}

void DetachCurrentThread() noexcept {
  pthread_detach(pthread_self());
}

void SetSystemThreadName(uint32_t threadId, std::string_view utf8) noexcept {
  const std::string_view kept = SystemName(utf8);
  char name[MaxSystemName + 1] = {};
  std::memcpy(name, kept.data(), kept.size());
  if (threadId == CurrentThreadId()) {
    prctl(PR_SET_NAME, name);
    return;
  }
  char path[64];
  std::snprintf(path, sizeof(path), "/proc/self/task/%u/comm", threadId);
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  if (file < 0) return;
  [[maybe_unused]] const ssize_t written = write(file, name, std::strlen(name));
  close(file);
}

bool SetThreadNice(uint32_t threadId, int nice) noexcept {
  return setpriority(PRIO_PROCESS, threadId, nice) == 0;
}

#if defined(__SANITIZE_THREAD__)
#define TALVO_LAST_ROUND_IS_TAKEN 1
#elif defined(__clang__)
#if __has_feature(thread_sanitizer)
#define TALVO_LAST_ROUND_IS_TAKEN 1
#endif
#endif
#ifndef TALVO_LAST_ROUND_IS_TAKEN
#define TALVO_LAST_ROUND_IS_TAKEN 0
#endif

// ThreadSanitizer forgets a thread in the last round.
const uint32_t TThreadEndNotice::Rounds = PTHREAD_DESTRUCTOR_ITERATIONS - TALVO_LAST_ROUND_IS_TAKEN;

TThreadEndNotice::TThreadEndNotice(void (*atEnd)(void* value)) noexcept {
  static_assert(sizeof(pthread_key_t) == sizeof(FKey));
  if (pthread_key_create(&FKey, atEnd) != 0) FKey = NoKey;
}
TThreadEndNotice::~TThreadEndNotice() {
  // Threads that outlive this module's statics may still ask; the key can be another module's.
  pthread_key_delete(__atomic_exchange_n(&FKey, NoKey, __ATOMIC_RELAXED));
}
void TThreadEndNotice::Set(void* value) noexcept {
  pthread_setspecific(__atomic_load_n(&FKey, __ATOMIC_RELAXED), value);
}

}  // namespace Talvo::Platform

namespace Talvo {

uint32_t MainThreadId() noexcept {
  // The first thread has the number of the process.
  uint32_t id = __atomic_load_n(&Platform::GMainThreadId, __ATOMIC_RELAXED);
  if (id == 0) {
    id = static_cast<uint32_t>(getpid());
    __atomic_store_n(&Platform::GMainThreadId, id, __ATOMIC_RELAXED);
  }
  return id;
}

}  // namespace Talvo
