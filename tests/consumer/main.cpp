// SPDX-License-Identifier: Apache-2.0
// consumer [PLUGIN]: uses the library, then loads a plug-in and makes sure that it goes again.

#include <dlfcn.h>

#include <cstdio>

#include <talvo/containers/Talvo.Containers.List.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/serialization/Talvo.Json.h>

static bool CanBeUnloaded(const char* path) {
  void* plugin = dlopen(path, RTLD_NOW);
  if (!plugin) return false;
  auto run = reinterpret_cast<bool (*)()>(dlsym(plugin, "RunPlugin"));
  const bool hasRun = run && run();
  dlclose(plugin);
  return hasRun && !dlopen(path, RTLD_NOW | RTLD_NOLOAD);
}

static bool ContainersAndDocumentsWork() {
  const auto rates = Talvo::TArrayList<double>::Make();
  rates->Add(2.5).Add(1.5).Sort();
  const auto document = Talvo::JsonParser::Parse(u"[1.5, 2.5, null]");
  return rates[0] == 1.5 && document->Arr()->Count() == 3 &&
         document->AsString() == u"[1.5,2.5,null]";
}

int main(int argc, char** argv) {
  if (Talvo::ERangeError(u"Too far").ClassName() != u"ERangeError") return 1;
  if (!ContainersAndDocumentsWork()) return 3;
  if (argc > 1 && !CanBeUnloaded(argv[1])) return 2;
  std::puts("The consumer is content.");
}
