// SPDX-License-Identifier: Apache-2.0
// Exits with threads and queued work alive. With an argument, they come from that plug-in, and the
// library with it.

#include <cstdio>
#include <dlfcn.h>

extern "C" void LeaveThreadsAlive() __attribute__((weak));

int main(int count, char** arguments) {
  auto* leave = &LeaveThreadsAlive;
  if (count > 1) {
    void* module = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (!module) {
      std::puts(dlerror());
      return 1;
    }
    leave = reinterpret_cast<void (*)()>(dlsym(module, "LeaveThreadsAlive"));
  }
  if (!leave) return 1;
  leave();
  return 0;
}
