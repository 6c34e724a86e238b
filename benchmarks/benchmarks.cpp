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

namespace shadermachine::benchmarks {
namespace {

// A run that gives another colour than the C++ twin measures nothing.
bool agrees(const Subject& subject) {
  Bench bench(subject);
  if (bench.run() != subject.result) return false;
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

void runNative(benchmark::State& state, const Subject& subject) {
  const Inputs inputs;
  Color color = {};
  // Through a pointer the compiler cannot see through, like a call into another module.
  NativeShader shader = subject.native;
  benchmark::DoNotOptimize(shader);
  for (auto _ : state) {
    shader(inputs, color);
    benchmark::DoNotOptimize(color);
  }
}

// Prints the usual lines, and at the end the ratio of every kind to native.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median") {
        times_[run.run_name.function_name] = run.GetAdjustedCPUTime();
      }
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\n%-16s %12s %12s %8s\n", "shader", "native ns", "machine ns", "ratio");
    for (const Subject& subject : subjects()) {
      const std::string name = subject.name;
      const auto native = times_.find("native/" + name);
      const auto machine = times_.find("machine/" + name);
      if (native == times_.end() || machine == times_.end()) continue;
      std::printf("%-16s %12.1f %12.1f %8.1f\n", subject.name, native->second, machine->second,
                  machine->second / native->second);
    }
  }

 private:
  std::map<std::string, double> times_;
};

int runAll(int argc, char** argv) {
  for (const Subject& subject : subjects()) {
    if (!agrees(subject)) return 1;
    const std::string name = subject.name;
    benchmark::RegisterBenchmark(("native/" + name).c_str(), runNative, subject);
    benchmark::RegisterBenchmark(("machine/" + name).c_str(), runMachine, subject);
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
