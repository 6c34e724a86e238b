// ns per invocation of the benchmark shaders beside plain C++, and the ratio, in one run.
//
// Machines are noisy: quote ratios, and run with --benchmark_repetitions=5
// --benchmark_enable_random_interleaving=true for figures to keep.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <string>

#include "shaders.h"
#if defined(SHADERMACHINE_HAVE_BATCH)
#include "patch.h"
#endif

namespace shadermachine::benchmarks {
namespace {

#if defined(SHADERMACHINE_HAVE_BATCH)

constexpr struct {
  const char* name;
  batch::InstructionSet set;
} kSets[] = {{"baseline", batch::InstructionSet::Baseline},
             {"AVX2", batch::InstructionSet::Avx2},
             {"AVX-512", batch::InstructionSet::Avx512}};

std::string patchName(const char* kind, const Subject& subject) {
  return std::string("patch/") + kind + "/" + subject.name;
}

void runPatchOnMachine(benchmark::State& state, const Subject& subject) {
  Patch patch(subject);
  for (auto _ : state) patch.runOnMachine();
}

void runPatchInBatch(benchmark::State& state, const Subject& subject, batch::InstructionSet set) {
  Patch patch(subject);
  if (!patch.use(set)) return state.SkipWithError("not on this processor");
  for (auto _ : state) patch.runInBatch();
}

bool batchAgrees(const Subject& subject) {
  Patch patch(subject);
  patch.runOnMachine();
  const std::vector<Fragment> expected = patch.fragments();
  for (const auto& [name, set] : kSets) {
    if (!patch.use(set)) continue;
    patch.runInBatch();
    for (uint32_t i = 0; i < Patch::kFragments; ++i) {
      if (expected[i].color == patch.fragments()[i].color) continue;
      std::fprintf(stderr, "%s: fragment %u of a batch differs with %s\n", subject.name, i, name);
      return false;
    }
  }
  return true;
}

void registerPatch(const Subject& subject) {
  benchmark::RegisterBenchmark(patchName("machine", subject).c_str(), runPatchOnMachine, subject);
  for (const auto& [name, set] : kSets) {
    benchmark::RegisterBenchmark(patchName(name, subject).c_str(), runPatchInBatch, subject, set);
  }
}

#endif

// A run that gives another colour than the C++ twin measures nothing.
bool agrees(const Subject& subject) {
  Bench bench(subject);
  const uint32_t code = subject.discarding != nullptr ? VM_ERR_DISCARDED : VM_OK;
  if (bench.run() != code) {
    std::fprintf(stderr, "%s does not end with %u\n", subject.name, code);
    return false;
  }
  if (!subject.deliversColor) return true;
  Color expected = {};
  subject.native(Inputs(), expected);
  for (size_t i = 0; i < expected.size(); ++i) {
    if (!(std::fabs(bench.color()[i] - expected[i]) <= 1e-4f * (1.0f + std::fabs(expected[i])))) {
      std::fprintf(stderr, "%s: component %zu is %g, expected %g\n", subject.name, i,
                   static_cast<double>(bench.color()[i]), static_cast<double>(expected[i]));
      return false;
    }
  }
  return true;
}

void runMachine(benchmark::State& state, const Subject& subject) {
  Bench bench(subject);
  for (auto _ : state) benchmark::DoNotOptimize(bench.run());
}

void runPlain(benchmark::State& state, const Subject& subject) {
  Bench bench(subject);
  bench.machine().engineUse = EngineUse::Never;
  for (auto _ : state) benchmark::DoNotOptimize(bench.run());
}

void runNative(benchmark::State& state, const Subject& subject) {
  const Inputs inputs;
  Color color = {};
  // Into another shared object, through a pointer that the compiler cannot see through.
  NativeShader shader = subject.native;
  benchmark::DoNotOptimize(shader);
  for (auto _ : state) {
    shader(inputs, color);
    benchmark::DoNotOptimize(color);
  }
}

// Prints the usual lines, and at the end the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration && run.aggregate_name != "median") continue;
      const std::string name = run.run_name.function_name;
      const bool onThreads = name.rfind("scaling/", 0) == 0;
      times_[onThreads ? name + "/" + std::to_string(run.threads) : name] =
          onThreads ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\n%-20s %12s %12s %12s %8s %8s\n", "shader", "native ns", "plain ns", "machine ns",
                "plain", "ratio");
    for (const Subject& subject : subjects()) {
      if (subject.native == nullptr) continue;
      const double native = time("native/", subject), plain = time("plain/", subject),
                   machine = time("machine/", subject);
      if (std::isnan(native + plain + machine)) continue;
      std::printf("%-20s %12.1f %12.1f %12.1f %8.1f %8.1f\n", subject.name, native, plain, machine,
                  plain / native, machine / native);
    }
    printDiscards();
    printScaling();
#if defined(SHADERMACHINE_HAVE_BATCH)
    printPatches();
#endif
  }

 private:
  // Not a number when the benchmark was filtered out.
  double time(const std::string& kind, const Subject& subject, const char* suffix = "") const {
    const auto found = times_.find(kind + subject.name + suffix);
    return found == times_.end() ? std::nan("") : found->second;
  }

  void printDiscards() const {
    std::printf("\n%-20s %12s %12s %8s\n", "shader", "returning", "discarding", "ratio");
    for (const Subject& subject : subjects()) {
      if (subject.discarding == nullptr) continue;
      const auto returning = times_.find(std::string("machine/") + subject.discarding);
      if (returning == times_.end()) continue;
      const double discarding = time("machine/", subject);
      std::printf("%-20s %12.1f %12.1f %8.2f\n", subject.discarding, returning->second, discarding,
                  discarding / returning->second);
    }
  }

#if defined(SHADERMACHINE_HAVE_BATCH)
  void printPatches() const {
    std::printf("\n%-20s %12s", "64 x 64 fragments", "machine ns");
    for (const auto& set : kSets) std::printf(" %12s %8s", set.name, "faster");
    std::printf("\n");
    for (const Subject& subject : subjects()) {
      const auto machine = times_.find(patchName("machine", subject));
      if (machine == times_.end()) continue;
      std::printf("%-20s %12.1f", subject.name, machine->second / Patch::kFragments);
      for (const auto& set : kSets) {
        const auto batch = times_.find(patchName(set.name, subject));
        if (batch == times_.end()) continue;
        std::printf(" %12.1f %8.1f", batch->second / Patch::kFragments,
                    machine->second / batch->second);
      }
      std::printf("\n");
    }
  }
#endif

  void printScaling() const {
    std::printf("\n%-20s %12s %12s %8s\n", "two threads over one", "native", "machine", "share");
    for (const Subject& subject : subjects()) {
      const double native =
          time("scaling/native/", subject, "/1") / time("scaling/native/", subject, "/2");
      const double machine =
          time("scaling/machine/", subject, "/1") / time("scaling/machine/", subject, "/2");
      if (std::isnan(native + machine)) continue;
      std::printf("%-20s %12.2f %12.2f %7.0f%%\n", subject.name, native, machine,
                  100 * machine / native);
    }
  }

  std::map<std::string, double> times_;
};

void registerSubject(const Subject& subject) {
  const std::string name = subject.name;
  benchmark::RegisterBenchmark(("machine/" + name).c_str(), runMachine, subject);
  if (subject.native == nullptr) return;
  benchmark::RegisterBenchmark(("native/" + name).c_str(), runNative, subject);
  benchmark::RegisterBenchmark(("plain/" + name).c_str(), runPlain, subject);
  if (!subject.deliversColor) return;
  // Machines of their own, side by side.
  benchmark::RegisterBenchmark(("scaling/native/" + name).c_str(), runNative, subject)
      ->ThreadRange(1, 2)
      ->UseRealTime();
  benchmark::RegisterBenchmark(("scaling/machine/" + name).c_str(), runMachine, subject)
      ->ThreadRange(1, 2)
      ->UseRealTime();
}

int runAll(int argc, char** argv) {
  for (const Subject& subject : subjects()) {
    if (!agrees(subject)) return 1;
    registerSubject(subject);
#if defined(SHADERMACHINE_HAVE_BATCH)
    if (subject.discarding != nullptr) continue;
    if (!batchAgrees(subject)) return 1;
    registerPatch(subject);
#endif
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return 0;
}

}  // namespace
}  // namespace shadermachine::benchmarks

int main(int argc, char** argv) {
  vmInitialize();
  return shadermachine::benchmarks::runAll(argc, argv);
}
