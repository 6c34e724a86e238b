// compare_engines FIRST LAST: runs the programs of these seeds by the plain handlers and
// translated. A single one is listed. Ends with 1 when any of them differs.

#include <shadermachine-tools/disassembler.h>

#include <cstdio>
#include <cstdlib>

#include "fuzz/seeded_program.h"

using namespace shadermachine;

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: compare_engines FIRST [LAST]\n");
    return 2;
  }
  const auto first = static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10));
  const uint32_t last =
      argc < 3 ? first : static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10));
  uint32_t invalid = 0;
  uint32_t translated = 0;
  uint32_t finished = 0;
  uint32_t different = 0;
  uint64_t callbacks = 0;
  vmInitialize();
  for (uint32_t seed = first; seed <= last; ++seed) {
    const fuzz::SeedComparison result = fuzz::compareSeed(seed);
    if (first == last) {
      std::puts(tools::disassemble(result.shader.view(), {.annotate = true}).c_str());
    }
    const fuzz::Comparison& comparison = result.comparison;
    invalid += result.valid ? 0 : 1;
    translated += comparison.translated ? 1 : 0;
    finished += result.valid && comparison.error == VM_OK ? 1 : 0;
    callbacks += comparison.callbacks;
    if (comparison.difference.empty()) continue;
    ++different;
    std::printf("seed %u: %s\n", seed, comparison.difference.c_str());
    std::fflush(stdout);
  }
  std::printf(
      "%u programs, %u of them invalid, %u translated, %u ran to the end, %.1f callbacks each\n"
      "%u differ\n",
      last - first + 1, invalid, translated, finished,
      static_cast<double>(callbacks) / (last - first + 1), different);
  return different == 0 ? 0 : 1;
}
