// Few bytes, large numbers: from source to run, everything takes time and memory as the source has
// length or the machine has limits, and a native stack that does not grow.

#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/validator.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "fuzz/arbitrary_host.h"
#include "fuzz/cost.h"
#include "fuzz/engine_comparison.h"
#include "fuzz/scale_sources.h"
#include "machine/machine.h"

#ifdef FUZZ_GLSL
#include <shadermachine-tools/glsl.h>
#endif

using namespace shadermachine;

namespace {

constexpr size_t kMebibyte = size_t{1} << 20;
constexpr size_t kSmallStack = size_t{64} << 10;
constexpr size_t kCompilerStack = 4 * kMebibyte;

// Processors are slower than the one of these figures by a few times; faults are by far more.
constexpr double kSlowestProcessor = 10;
constexpr double kMillisecondsPerByte = 0.01;
constexpr double kBuiltinsMilliseconds = 200;  // glslang reads its built-in functions per version
constexpr uint64_t kBytesPerByte = 4000;
constexpr uint64_t kMachineLimit = 64 * kMebibyte;
constexpr uint32_t kTimeout = 5;

fuzz::Cost allowedFor(size_t length, double milliseconds = 20) {
  return {milliseconds + kMillisecondsPerByte * static_cast<double>(length),
          32 * kMebibyte + kBytesPerByte * length};
}

bool isWithin(fuzz::Cost limit, const char* what, size_t stack, const std::function<void()>& work) {
  const fuzz::Cost cost = fuzz::costOf(stack, work);
  limit.milliseconds *= kSlowestProcessor * fuzz::kCostFactor;
  if (cost.milliseconds <= limit.milliseconds && cost.bytes <= limit.bytes) return true;
  std::fprintf(stderr, "%s took %.0f ms and %.1f MiB, allowed %.0f ms and %.1f MiB\n", what,
               cost.milliseconds, static_cast<double>(cost.bytes) / kMebibyte, limit.milliseconds,
               static_cast<double>(limit.bytes) / kMebibyte);
  return false;
}

// A record whose functions and structures share their tables, which no text can say.
void validateSharedTables(fuzz::Choices& choices) {
  const auto count = [&] { return static_cast<uint16_t>(uint32_t{1} << choices.below(16)); };
  VarInfo entry = {};
  entry.type = choices.oneIn(2) ? TypeCode{VM_TYPE_FLOAT} : choices.value<TypeCode>();
  entry.byteSize = choices.below(3) * 4;
  const std::vector<VarInfo> entries(count(), entry);
  ShaderFunction function = {};
  function.localCount = static_cast<uint16_t>(entries.size());
  function.locals = entries.data();
  const uint8_t code[] = {VM_OP_RETURN};
  function.codeLength = sizeof code;
  StructInfo structure = {};
  structure.size = choices.below(3) * 4;
  structure.memberCount = function.localCount;
  structure.members = entries.data();
  const std::vector<const ShaderFunction*> functions(count(), &function);
  const std::vector<const StructInfo*> structures(count(), &structure);
  CompiledShader shader = VM_COMPILED_SHADER_INIT;
  shader.functionCount = static_cast<uint16_t>(functions.size());
  shader.functions = functions.data();
  shader.structTypes = structures.data();
  shader.code = code;
  const size_t bytes =
      entries.size() * sizeof(VarInfo) + functions.size() * 8 + structures.size() * 8;
  const tools::ShaderView view = {&shader, static_cast<uint32_t>(structures.size()), sizeof code};
  if (isWithin(allowedFor(bytes), "validating", kSmallStack, [&] { tools::validate(view); }))
    return;
  std::fprintf(stderr, "%zu functions and %zu structures share %zu entries\n", functions.size(),
               structures.size(), entries.size());
  std::abort();
}

class Trial {
 public:
  explicit Trial(const fuzz::ScaleSource& source) : source_(source) {}

  void run() {
    const fuzz::Cost allowed = allowedFor(source_.text.size(), kBuiltinsMilliseconds);
    within(allowed, "compiling", source_.isGlsl ? kCompilerStack : kSmallStack, [&] { compile(); });
    if (!shader_) return;
    bool isValid = false;
    within(allowed, "validating", kSmallStack,
           [&] { isValid = tools::validate(shader_->view()).valid(); });
    if (source_.isGlsl && !isValid) fail("what compiles does not validate");
    within(allowed, "disassembling", kSmallStack,
           [&] { tools::disassemble(shader_->view(), {.annotate = true}); });
    if (!isValid) return;
    within({300, 400 * kMebibyte}, "making the inputs", kSmallStack, [&] { makeInputs(); });
    runWithinLimits();
  }

 private:
  void compile() {
#ifdef FUZZ_GLSL
    if (source_.isGlsl) {
      shader_ = tools::compileGlsl(source_.text).shader;
      return;
    }
#endif
    shader_ = tools::assemble(source_.text).shader;
  }

  void makeInputs() const {
    try {
      const tools::HostInputs inputs(shader_->view());
    } catch (const std::length_error&) {  // host variables have a limit
    }
  }

  void runWithinLimits() {
    for (const EngineUse use : {EngineUse::Never, EngineUse::AtOnce}) {
      const fuzz::MachinePtr machine = fuzz::makeMachine(true);
      static_cast<Machine&>(*machine).engineUse = use;
      vmShaderMachineMemory(machine.get())->limit = kMachineLimit;
      fuzz::ArbitraryHost host(1);
      host.mostWords = 1000;  // its time is not the run's
      const StartupInfo startup = host.startup(kTimeout);
      for (int run = 0; run < 2; ++run) {
        within({kTimeout + 10.0, kMachineLimit + 32 * kMebibyte}, "running", kSmallStack,
               [&] { vmShaderMachineExecuteShader(machine.get(), shader_->record(), &startup); });
        const MachineMemory& memory = *vmShaderMachineMemory(machine.get());
        if (memory.inUse > memory.limit) fail("a machine has more memory than its limit");
      }
    }
    const fuzz::Comparison comparison = fuzz::compareRuns(*shader_->record(), 1);
    if (!comparison.difference.empty()) fail(comparison.difference.c_str());
  }

  void within(fuzz::Cost limit, const char* what, size_t stack,
              const std::function<void()>& work) const {
    if (!isWithin(limit, what, stack, work)) fail("too much");
  }

  [[noreturn]] void fail(const char* why) const {
    std::fprintf(stderr, "%s: %zu bytes of source:\n%s\n", why, source_.text.size(),
                 source_.text.c_str());
    std::abort();
  }

  const fuzz::ScaleSource& source_;
  std::optional<tools::BuiltShader> shader_;
};

#ifdef FUZZ_GLSL
constexpr bool kWithGlsl = true;
#else
constexpr bool kWithGlsl = false;
#endif

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vmInitialize();
  fuzz::Choices choices({data, size});
  if (choices.below(16) == 1) {
    validateSharedTables(choices);
    return 0;
  }
  Trial(fuzz::scaleSource(choices, kWithGlsl)).run();
  return 0;
}
