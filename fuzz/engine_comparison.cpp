#include "fuzz/engine_comparison.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/arbitrary_host.h"
#include "machine/machine.h"

namespace shadermachine::fuzz {
namespace {

constexpr int kRuns = 2;

// What is left of one run. Words of globals only after success.
struct Result {
  VmError code;
  uint64_t calls;
  uint32_t checksum;
  std::vector<uint32_t> globals;
};

bool isNan(uint32_t word) { return (word & 0x7FFFFFFF) > 0x7F800000; }

bool sameWord(uint32_t a, uint32_t b) { return a == b || (isNan(a) && isNan(b)); }

std::vector<uint32_t> globalWords(const Machine& machine) {
  std::vector<uint32_t> words;
  for (uint32_t g = 0; g < machine.heldGlobalCount; ++g) {
    const VarInfo& info = machine.shader->globals[g];
    const ValueSlot& slot = machine.stack[g];
    const bool basic = isBasicVar(info);
    const uint32_t size = basic ? inlineByteSize(info) : slot.view.size;
    const size_t before = words.size();
    words.resize(before + size / 4);
    const void* source = basic ? static_cast<const void*>(slot.value.words) : slot.view.data;
    if (size >= 4) std::memcpy(&words[before], source, size / 4 * size_t{4});
  }
  return words;
}

std::vector<Result> run(Machine& machine, const CompiledShader& shader, uint32_t seed) {
  constexpr uint32_t kTimeout = 20;
  std::vector<Result> results;
  for (int i = 0; i < kRuns; ++i) {
    const ArbitraryHost host(seed);
    const StartupInfo startup = host.startup(kTimeout);
    const VmError code = vmShaderMachineExecuteShader(&machine, &shader, &startup);
    results.push_back({code, host.calls(), host.checksum(), globalWords(machine)});
  }
  runAndForget(machine, &shader, ArbitraryHost(seed).startup(1), 0);
  return results;
}

std::string difference(const Result& plain, const Result& translated) {
  const auto numbers = [](const char* what, uint64_t a, uint64_t b) {
    return std::string(what) + ": plain " + std::to_string(a) + ", translated " + std::to_string(b);
  };
  if (plain.code != translated.code) return numbers("code", plain.code, translated.code);
  if (plain.calls != translated.calls) return numbers("calls", plain.calls, translated.calls);
  if (plain.checksum != translated.checksum) return "words passed to the host";
  for (size_t i = 0; i < plain.globals.size(); ++i) {
    if (sameWord(plain.globals[i], translated.globals[i])) continue;
    return "word " + std::to_string(i) + " of the globals, " +
           numbers("as integers", plain.globals[i], translated.globals[i]);
  }
  return "";
}

bool isEndless(const std::vector<Result>& results) {
  return std::ranges::any_of(results, [](const Result& result) {
    return result.code == VM_ERR_TIMEOUT || result.code == VM_ERR_STACK_OVERFLOW;
  });
}

}  // namespace

std::string engineDifference(const CompiledShader& shader, uint32_t hostSeed) {
  static const MachinePtr plain = makeMachine(true);
  static const MachinePtr translated = makeMachine(true);
  static_cast<Machine&>(*plain).runsPlain = 1;
  const auto expected = run(static_cast<Machine&>(*plain), shader, hostSeed);
  if (isEndless(expected)) return "";
  const auto actual = run(static_cast<Machine&>(*translated), shader, hostSeed);
  if (isEndless(actual)) return "";
  for (int i = 0; i < kRuns; ++i) {
    const std::string found =
        difference(expected[static_cast<size_t>(i)], actual[static_cast<size_t>(i)]);
    if (!found.empty()) return "run " + std::to_string(i) + ", " + found;
  }
  return "";
}

}  // namespace shadermachine::fuzz
