// SPDX-License-Identifier: Apache-2.0
// Exits with threads and queued work alive, again and again.
//
//   exit_sample ROUNDS [PLUGIN]
//
// With a plug-in, the threads come from there, and the library with it.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern "C" void LeaveThreadsAlive() __attribute__((weak));

namespace {

using TLeave = void (*)();

void* Load(const char* plugin) {
  void* module = dlopen(plugin, RTLD_NOW | RTLD_LOCAL);
  if (!module) std::puts(dlerror());
  return module;
}

/// One life: leaves by "return", by "exit" on another thread, or behind a "dlclose".
int Live(const std::string& how, const char* plugin) {
  if (how == "dlclose") {
    for (int i = 0; i < 3; ++i) {
      void* module = Load(plugin);
      if (!module) return 1;
      reinterpret_cast<TLeave>(dlsym(module, "LeaveLibraryThreadsAlive"))();
      dlclose(module);
      if (dlopen(plugin, RTLD_NOW | RTLD_NOLOAD)) {
        std::puts("The plug-in is still there");
        return 1;
      }
    }
    return 0;
  }
  auto* leave = &LeaveThreadsAlive;
  if (plugin) {
    void* module = Load(plugin);
    if (!module) return 1;
    leave = reinterpret_cast<TLeave>(dlsym(module, "LeaveThreadsAlive"));
  }
  if (!leave) return 1;
  leave();
  if (how == "exit") {
    std::thread([] { std::exit(0); }).detach();
    for (;;) pause();
  }
  return 0;
}

bool Succeeds(std::vector<char*> arguments) {
  arguments.push_back(nullptr);
  std::fflush(stdout);
  pid_t child = 0;
  int status = 0;
  if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, arguments.data(), environ) != 0 ||
      waitpid(child, &status, 0) != child) {
    std::puts("not started");
    return false;
  }
  if (status != 0) std::printf("%s: ended with status 0x%x\n", arguments[1], status);
  return status == 0;
}

}  // namespace

int main(int count, char** arguments) {
  const int rounds = count > 1 ? std::atoi(arguments[1]) : 0;
  char* plugin = count > 2 ? arguments[2] : nullptr;
  if (rounds == 0) return count > 1 ? Live(arguments[1], plugin) : 1;
  char ways[][8] = {"return", "exit", "dlclose"};
  for (int round = 0; round < rounds; ++round) {
    for (char* way : ways) {
      const bool isClosing = std::strcmp(way, "dlclose") == 0;
      if (isClosing && !plugin) continue;
      std::vector<char*> child{arguments[0], way};
      if (plugin) child.push_back(plugin);
      if (!Succeeds(child)) return 1;
    }
  }
  return 0;
}
