// compare_engines FIRST LAST: runs the programs of these seeds by the plain handlers and
// translated. A single one is listed. Ends with 1 when any of them differs. With "batch" in front
// the programs run for many invocations in a batch, and on machines.

#include <shadermachine-tools/disassembler.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fuzz/seeded_program.h"
#if defined(SHADERMACHINE_HAVE_BATCH)
#include <shadermachine-tools/validator.h>

#include "fuzz/batch_comparison.h"
#endif

using namespace shadermachine;

#if defined(SHADERMACHINE_HAVE_BATCH)

static int compareBatches(uint32_t first, uint32_t last) {
  uint32_t invalid = 0;
  uint32_t onRows = 0;
  uint32_t different = 0;
  uint64_t finished = 0;
  uint64_t callbacks = 0;
  for (uint32_t seed = first; seed <= last; ++seed) {
    const tools::BuiltShader shader = fuzz::batchProgram(seed);
    if (first == last) {
      std::puts(tools::disassemble(shader.view(), {.annotate = true}).c_str());
    }
    if (!tools::validate(shader.view()).valid()) {
      ++invalid;
      continue;
    }
    const fuzz::BatchComparison comparison =
        fuzz::compareBatch(*shader.record(), seed, seed % 70 + 1);
    onRows += comparison.onRows ? 1 : 0;
    finished += comparison.finished;
    callbacks += comparison.calls;
    if (comparison.difference.empty()) continue;
    ++different;
    std::printf("seed %u: %s\n", seed, comparison.difference.c_str());
    std::fflush(stdout);
  }
  std::printf(
      "%u programs, %u of them invalid, %u on rows, %llu invocations ran to the end, "
      "%llu callbacks\n%u differ\n",
      last - first + 1, invalid, onRows, static_cast<unsigned long long>(finished),
      static_cast<unsigned long long>(callbacks), different);
  return different == 0 ? 0 : 1;
}

#endif

int main(int argc, char** argv) {
  const bool inBatches = argc > 1 && std::strcmp(argv[1], "batch") == 0;
  if (inBatches) ++argv, --argc;
  if (argc < 2) {
    std::fprintf(stderr, "usage: compare_engines [batch] FIRST [LAST]\n");
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
#if defined(SHADERMACHINE_HAVE_BATCH)
  if (inBatches) return compareBatches(first, last);
#endif
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
