// Loads and unloads the library again and again: nothing of it may stay.
//
//   reload LIBRARY TIMES
#include <dlfcn.h>
#include <shadermachine/shadermachine.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "support/heap_memory.h"

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

struct Memory {
  long heap = shadermachine::tests::heapBytes();
  long mappings = countMappings();

 private:
  static long countMappings() {
    std::ifstream list("/proc/self/maps");
    long count = 0;
    for (std::string line; std::getline(list, line);) ++count;
    return count;
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int times = std::atoi(argv[2]);
  Memory before;
  for (int i = 0; i < times; ++i) {
    if (!useOnce(argv[1])) return 1;
    if (i == times / 10) before = Memory();
  }
  const Memory after;
  const long bytes = after.heap - before.heap;
  std::printf("%d times, %ld bytes more than before, %ld mappings instead of %ld\n", times, bytes,
              after.mappings, before.mappings);
  // No block is smaller than this.
  constexpr long kBytesEachTime = 16;
  return bytes < kBytesEachTime * times / 2 && after.mappings == before.mappings ? 0 : 1;
}
