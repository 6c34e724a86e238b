// How precise the time limit is, and what it costs: prints a table.
#include <shadermachine-tools/shader_builder.h>
#include <shadermachine/machine.h>
#include <sys/time.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <functional>
#include <utility>
#include <vector>

namespace {

using namespace shadermachine;
using tools::BuiltShader;
using tools::FunctionBuilder;
using tools::Label;
using tools::LocalId;
using Clock = std::chrono::steady_clock;

double milliseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

BuiltShader build(const std::function<void(FunctionBuilder&)>& body) {
  tools::ShaderBuilder shader;
  body(shader.addFunction("main"));
  return std::move(shader).build();
}

void endlessly(FunctionBuilder& code, const std::function<void()>& body) {
  const Label start = code.newLabel();
  code.bind(start);
  body();
  code.jump(start);
}

void counted(FunctionBuilder& code, int32_t iterations) {
  const LocalId i = code.addLocal({"i", VM_TYPE_INT, 0, 0});
  const Label start = code.newLabel();
  const Label end = code.newLabel();
  code.bind(start);
  code.load(i);
  code.pushInt(iterations);
  code.emit(VM_OP_LT_I);
  code.jumpIfFalse(end);
  code.load(i);
  code.emit(VM_OP_INC_I, {1});
  code.store(i);
  code.jump(start);
  code.bind(end);
}

void callHost(FunctionBuilder& code) {
  code.emit(VM_OP_PUSH_0);
  code.emit(VM_OP_HOST_UNARY_1, {0});
  code.emit(VM_OP_POP);
}

// userData: how long the callback takes, in microseconds.
void takeTime(void*, uint32_t, int32_t, uint64_t userData) {
  const auto end = Clock::now() + std::chrono::microseconds(userData);
  while (Clock::now() < end) {
  }
}

double processorMilliseconds() {
  timespec time = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

volatile double atLimit = 0;

void noteLimit(int) { atLimit = processorMilliseconds(); }

// The processor time that a run takes after its limit: what other programs take is not counted.
double overrun(ShaderMachine* machine, const BuiltShader& shader, const StartupInfo& startup) {
  std::signal(SIGALRM, &noteLimit);
  itimerval timer = {};
  timer.it_value.tv_usec = startup.timeout * 1000;
  atLimit = 1e9;
  setitimer(ITIMER_REAL, &timer, nullptr);
  const VmError code = vmShaderMachineExecuteShader(machine, shader.record(), &startup);
  const double end = processorMilliseconds();
  if (code != VM_ERR_TIMEOUT) std::printf("ended with %d\n", static_cast<int>(code));
  return std::max(0.0, end - atLimit);
}

void reportOverrun(const char* name, uint64_t callbackTime,
                   const std::function<void(FunctionBuilder&)>& body) {
  constexpr uint32_t kLimit = 50;
  constexpr int kRuns = 20;
  HostCallbacks callbacks = {};
  callbacks.hostUnary[0] = &takeTime;
  const MachineCreateInfo info = {&callbacks};
  ShaderMachine* machine = vmShaderMachineCreate(&info);
  const BuiltShader shader = build(body);
  StartupInfo startup = {};
  startup.userData = callbackTime;
  startup.timeout = kLimit;
  std::vector<double> times;
  for (int run = 0; run < kRuns; ++run) times.push_back(overrun(machine, shader, startup));
  std::ranges::sort(times);
  std::printf("%-36s median %.2f, worst %.2f ms over a limit of %u ms\n", name, times[kRuns / 2],
              times.back(), kLimit);
  vmShaderMachineDestroy(machine);
}

void reportCost(const char* name, const std::function<void(FunctionBuilder&)>& body) {
  const BuiltShader shader = build(body);
  ShaderMachine* machine = vmShaderMachineCreate(nullptr);
  double best[2] = {1e9, 1e9};
  for (int round = 0; round < 40; ++round) {
    const bool limited = round % 2 == 1;
    StartupInfo startup = {};
    startup.timeout = limited ? 1000 : 0;
    constexpr int kRuns = 5000;
    const auto begin = Clock::now();
    for (int run = 0; run < kRuns; ++run) {
      vmShaderMachineExecuteShader(machine, shader.record(), &startup);
    }
    best[limited] = std::min(best[limited], milliseconds(Clock::now() - begin) * 1e6 / kRuns);
  }
  std::printf("%-36s %8.0f ns, with a limit %.0f ns\n", name, best[0], best[1]);
  vmShaderMachineDestroy(machine);
}

}  // namespace

int main() {
  reportOverrun("tight loop", 0, [](auto& code) { endlessly(code, [] {}); });
  for (uint64_t time : {0u, 10u, 1000u}) {
    char name[64];
    std::snprintf(name, sizeof name, "loop of callbacks of %u us", static_cast<unsigned>(time));
    reportOverrun(name, time, [](auto& code) { endlessly(code, [&] { callHost(code); }); });
  }
  reportOverrun("fast loop, then callbacks of 100 us", 100, [](auto& code) {
    counted(code, 300000);
    endlessly(code, [&] { callHost(code); });
  });
  reportOverrun("fast loop, then copies of 16 MB", 0, [](auto& code) {
    const LocalId array = code.addLocal({"array", VM_TYPE_FLOAT, 4000000, 0});
    counted(code, 300000);
    endlessly(code, [&] {
      code.load(array);
      code.emit(VM_OP_MAKE_UNIQUE);
      code.emit(VM_OP_POP_RELEASE);
    });
  });
  reportOverrun("copies of 64 MiB in straight code", 0, [](auto& code) {
    const LocalId from = code.addLocal({"from", VM_TYPE_FLOAT, 1u << 24, 0});
    const LocalId to = code.addLocal({"to", VM_TYPE_FLOAT, 1u << 24, 0});
    for (int i = 0; i < 500; ++i) {
      code.load(from);
      code.store(to);
    }
  });
  reportOverrun("comparisons of 64 MiB", 0, [](auto& code) {
    const LocalId a = code.addLocal({"a", VM_TYPE_FLOAT, 1u << 24, 0});
    const LocalId b = code.addLocal({"b", VM_TYPE_FLOAT, 1u << 24, 0});
    endlessly(code, [&] {
      code.load(a);
      code.load(b);
      code.emit(VM_OP_EQ_AGG);
      code.emit(VM_OP_POP);
    });
  });
  reportOverrun("a megabyte of arithmetic", 0, [](auto& code) {
    code.emit(VM_OP_PUSH_1);
    code.emit(VM_OP_CTOR_MAT4, {1});
    endlessly(code, [&] {
      for (int i = 0; i < 500000; ++i) code.emit(VM_OP_COS, {16});
    });
  });
  reportCost("empty shader", [](auto& code) { code.emit(VM_OP_RETURN); });
  reportCost("loop of 100 iterations", [](auto& code) {
    counted(code, 100);
    code.emit(VM_OP_RETURN);
  });
}
