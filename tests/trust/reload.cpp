// Loads and unloads the library again and again: nothing of it may stay.
//
//   reload LIBRARY TIMES
#include <dlfcn.h>
#include <shadermachine/shadermachine.h>

#include <cstdio>
#include <cstdlib>

#include "support/resident_memory.h"

namespace {

template <class Function>
Function* find(void* library, const char* name) {
  return reinterpret_cast<Function*>(dlsym(library, name));
}

// True when the library loaded, made a machine and was unloaded.
bool useOnce(const char* path) {
  void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return false;
  }
  find<decltype(vmInitialize)>(library, "vmInitialize")();
  ShaderMachine* machine =
      find<decltype(vmShaderMachineCreate)>(library, "vmShaderMachineCreate")(nullptr);
  find<decltype(vmShaderMachineDestroy)>(library, "vmShaderMachineDestroy")(machine);
  find<decltype(vmFinalize)>(library, "vmFinalize")();
  dlclose(library);
  const bool gone = dlopen(path, RTLD_NOW | RTLD_NOLOAD) == nullptr;
  return machine != nullptr && gone;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int times = std::atoi(argv[2]);
  long before = 0;
  for (int i = 0; i < times; ++i) {
    if (!useOnce(argv[1])) return 1;
    if (i == times / 10) before = shadermachine::tests::residentKilobytes();
  }
  const long growth = shadermachine::tests::residentKilobytes() - before;
  std::printf("%d times, %ld KiB more than before\n", times, growth);
  constexpr long kAllowedKilobytes = 256;  // a page that stayed each time would be 14 times that
  return growth < kAllowedKilobytes ? 0 : 1;
}
