// What a shader's first runs cost beside the plain handlers, and what it costs when many shaders
// take turns on one machine: prints two tables.
#include <shadermachine-tools/shader_builder.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <utility>
#include <vector>

#include "machine/machine.h"

namespace {

using namespace shadermachine;
using tools::BuiltShader;
using tools::FunctionBuilder;
using tools::LocalId;

double nanoseconds() {
  timespec time = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

void hostValue(void* value, uint32_t, int32_t, uint64_t) { *static_cast<float*>(value) = 0.25f; }

// The host gives the first value and takes the last, so that nothing in between can be left out.
void callHost(FunctionBuilder& code) { code.emit(VM_OP_HOST_UNARY_1, {0}); }

// Steps of x = x * a + b, with numbers that no other seed has.
BuiltShader straightLine(uint32_t steps, uint32_t seed) {
  tools::ShaderBuilder shader;
  FunctionBuilder& code = shader.addFunction("main");
  const LocalId x = code.addLocal({"x", VM_TYPE_FLOAT, 0, 0});
  code.emit(VM_OP_PUSH_0);
  callHost(code);
  code.store(x);
  for (uint32_t step = 0; step < steps; ++step) {
    code.load(x);
    code.pushFloat(0.5f);
    code.emit(VM_OP_MUL_F, {1});
    code.pushFloat(static_cast<float>(seed + step));
    code.emit(VM_OP_ADD_F, {1});
    code.store(x);
  }
  code.load(x);
  callHost(code);
  code.emit(VM_OP_RETURN);
  return std::move(shader).build();
}

size_t bytesOf(const BuiltShader& shader) { return shader.view().codeSize; }

class Runner {
 public:
  explicit Runner(EngineUse use) {
    HostCallbacks callbacks = {};
    callbacks.hostUnary[0] = &hostValue;
    const MachineCreateInfo info = {&callbacks};
    machine_ = vmShaderMachineCreate(&info);
    static_cast<Machine*>(machine_)->engineUse = use;
  }
  ~Runner() { vmShaderMachineDestroy(machine_); }
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  void run(const BuiltShader& shader) {
    vmShaderMachineExecuteShader(machine_, shader.record(), &startup_);
  }

 private:
  ShaderMachine* machine_;
  StartupInfo startup_ = {};
};

constexpr int kRepetitions = 15;

void reportFirstRuns(const char* name, uint32_t steps) {
  constexpr uint32_t kRuns = 3;
  const BuiltShader shader = straightLine(steps, 0);
  double best[kRuns], plain = 1e18;
  std::ranges::fill(best, 1e18);
  for (int repetition = 0; repetition < kRepetitions; ++repetition) {
    Runner machine(EngineUse::WhenWorth), plainMachine(EngineUse::Never);
    plainMachine.run(shader);
    for (double& time : best) {
      const double begin = nanoseconds();
      machine.run(shader);
      const double middle = nanoseconds();
      plainMachine.run(shader);
      time = std::min(time, middle - begin);
      plain = std::min(plain, nanoseconds() - middle);
    }
  }
  std::printf("%-32s %8zu %12.2f %12.2f %12.2f %12.2f\n", name, bytesOf(shader), plain / 1e3,
              best[0] / 1e3, best[1] / 1e3, best[2] / 1e3);
}

// ns a run, when so many shaders take turns.
double timeOfTurns(const std::vector<BuiltShader>& shaders, EngineUse use) {
  Runner machine(use);
  const size_t rounds = std::max<size_t>(20000 / shaders.size(), 2);
  double best = 1e18;
  for (int repetition = 0; repetition < kRepetitions; ++repetition) {
    const double begin = nanoseconds();
    for (size_t round = 0; round < rounds; ++round) {
      for (const BuiltShader& shader : shaders) machine.run(shader);
    }
    const double runs = static_cast<double>(rounds * shaders.size());
    best = std::min(best, (nanoseconds() - begin) / runs);
  }
  return best;
}

void reportTurns(uint32_t steps, std::initializer_list<uint32_t> counts) {
  for (const uint32_t count : counts) {
    std::vector<BuiltShader> shaders;
    for (uint32_t seed = 0; seed < count; ++seed) {
      shaders.push_back(straightLine(steps, seed * 100));
    }
    std::printf("%8u %8zu %12.1f %12.1f\n", count, bytesOf(shaders[0]),
                timeOfTurns(shaders, EngineUse::Never), timeOfTurns(shaders, EngineUse::WhenWorth));
  }
}

}  // namespace

int main() {
  vmInitialize();
  std::printf("%-32s %8s %12s %12s %12s %12s\n", "us a run", "bytes", "plain", "first", "second",
              "third");
  reportFirstRuns("small", 5);
  reportFirstRuns("middle", 200);
  reportFirstRuns("large", 40000);
  std::printf("\n%8s %8s %12s %12s\n", "shaders", "bytes", "plain ns", "machine ns");
  reportTurns(5, {1, 9, 64, 200, 2000});
  reportTurns(200, {1, 9, 64, 200, 2000});
}
