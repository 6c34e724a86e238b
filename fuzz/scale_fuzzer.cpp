// Few bytes, large numbers: from source to run, everything takes time and memory as the source has
// length or the machine has limits, and a native stack that does not grow.

#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/validator.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
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
#ifdef SHADERMACHINE_HAVE_BATCH
#include <shadermachine/batch.h>
#endif
#ifdef SHADERMACHINE_HAVE_PNG
#include "cli/picture_file.h"
#endif

using namespace shadermachine;

namespace {

constexpr size_t kMebibyte = size_t{1} << 20;
constexpr size_t kSmallStack = size_t{64} << 10;
constexpr size_t kCompilerStack = 4 * kMebibyte;

// Many times what was measured, since other work on the machine must not look like a fault; what
// nothing bounds takes longer still.
constexpr fuzz::Cost kAssembling = {20, 32 * kMebibyte};  // and per byte of the source:
constexpr fuzz::Cost kAssemblingByte = {0.0001, 4000};
constexpr fuzz::Cost kCompiling = {300, 32 * kMebibyte};  // with more, growth decides
constexpr fuzz::Cost kCompilingByte = {0.003, 4000};
constexpr fuzz::Cost kOther = {1000, 32 * kMebibyte};
constexpr fuzz::Cost kOtherByte = {0.01, 4000};
constexpr fuzz::Cost kInputs = {3000, 400 * kMebibyte};
constexpr double kAfterTimeout = 100;
constexpr double kLinearGrowth = 8;  // for four times the source
constexpr uint64_t kMachineLimit = 64 * kMebibyte;
constexpr uint64_t kBatchBytes = 400 * kMebibyte;  // its machine's limit, and a program's making
constexpr uint32_t kTimeout = 5;

fuzz::Cost allowedFor(size_t length, fuzz::Cost once = kOther, fuzz::Cost perByte = kOtherByte) {
  return {once.milliseconds + perByte.milliseconds * static_cast<double>(length),
          once.bytes + perByte.bytes * length};
}

bool isWithin(fuzz::Cost limit, const char* what, size_t stack, const std::function<void()>& work) {
  limit.milliseconds *= fuzz::kCostFactor;
  fuzz::Cost cost = fuzz::costOf(stack, work);
  if (cost.milliseconds > limit.milliseconds) {  // once more, since something else may have been
    cost.milliseconds = std::min(cost.milliseconds, fuzz::costOf(stack, work).milliseconds);
  }
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

#ifdef SHADERMACHINE_HAVE_PNG
constexpr fuzz::Cost kPictureByte = {0.01, 40000};  // a packed byte may hold thousands of texels

void readPicture(fuzz::Choices& choices) {
  const std::string bytes = fuzz::scalePicture(choices);
  const auto read = [&] {
    try {
      tools::decodePicture(bytes, "p.png");
    } catch (const std::runtime_error&) {  // what is wrong with it
    }
  };
  const fuzz::Cost allowed = allowedFor(bytes.size(), kOther, kPictureByte);
  if (!isWithin(allowed, "reading a picture", kCompilerStack, read)) std::abort();
}
#else
void readPicture(fuzz::Choices&) {}
#endif

class Trial {
 public:
  // `quarter`: the same source with a quarter of the repetitions.
  Trial(const fuzz::ScaleSource& source, const fuzz::ScaleSource& quarter)
      : source_(source), quarter_(quarter) {}

  void run() {
    const size_t length = source_.text.size();
    if (source_.isGlsl) {
      const fuzz::Cost allowed = allowedFor(length, kCompiling, kCompilingByte);
      if (!isWithin(allowed, "compiling", kCompilerStack, [&] { compile(); })) checkGrowth(allowed);
    } else {
      within(allowedFor(length, kAssembling, kAssemblingByte), "assembling", kSmallStack,
             [&] { compile(); });
    }
    if (!shader_) return;
    const fuzz::Cost allowed = allowedFor(length);
    bool isValid = false;
    within(allowed, "validating", kSmallStack,
           [&] { isValid = tools::validate(shader_->view()).valid(); });
    if (source_.isGlsl && !isValid) fail("what compiles does not validate");
    within(allowed, "disassembling", kSmallStack,
           [&] { tools::disassemble(shader_->view(), {.annotate = true}); });
    if (!isValid) return;
    within(kInputs, "making the inputs", kSmallStack, [&] { makeInputs(); });
    runWithinLimits();
    runBatch();
  }

 private:
  void compile() {
#ifdef FUZZ_GLSL
    if (source_.isGlsl) {
      tools::GlslResult result = tools::compileGlsl(source_.text);
      if (result.isUnsound) fail(result.messages.back().text.c_str());
      shader_ = std::move(result.shader);
      return;
    }
#endif
    shader_ = tools::assemble(source_.text).shader;
  }

  // The quicker of two.
  fuzz::Cost compileCost(const fuzz::ScaleSource& source) const {
    const auto measured = [&] {
      return fuzz::costOf(kCompilerStack, [&] { Trial(source, quarter_).compile(); });
    };
    const fuzz::Cost first = measured(), second = measured();
    return first.milliseconds < second.milliseconds ? first : second;
  }

  // Time may be as long as the source is, but not longer.
  void checkGrowth(fuzz::Cost allowed) const {
    const fuzz::Cost whole = compileCost(source_);
    const double growth = whole.milliseconds / compileCost(quarter_).milliseconds;
    if (growth <= kLinearGrowth && whole.bytes <= allowed.bytes) return;
    std::fprintf(stderr, "%.1f times as long for %zu bytes as for %zu\n", growth,
                 source_.text.size(), quarter_.text.size());
    fail("too much");
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
        within({kTimeout + kAfterTimeout, kMachineLimit + 32 * kMebibyte}, "running", kSmallStack,
               [&] { vmShaderMachineExecuteShader(machine.get(), shader_->record(), &startup); });
        const MachineMemory& memory = *vmShaderMachineMemory(machine.get());
        if (memory.inUse > memory.limit) fail("a machine has more memory than its limit");
      }
    }
    const fuzz::Comparison comparison = fuzz::compareRuns(*shader_->record(), 1);
    if (!comparison.difference.empty()) fail(comparison.difference.c_str());
  }

#ifdef SHADERMACHINE_HAVE_BATCH
  // With one host for all: which of its answers an invocation gets does not matter here.
  void runBatch() const {
    const BatchCreateInfo info = {&fuzz::ArbitraryHost::callbacks(), nullptr};
    const std::unique_ptr<ShaderBatch, VmError (*)(ShaderBatch*)> batch(vmShaderBatchCreate(&info),
                                                                        &vmShaderBatchDestroy);
    fuzz::ArbitraryHost host(1);
    host.mostWords = 1000;
    const std::vector<uint64_t> hosts(VM_BATCH_GROUP_LIMIT, host.startup(kTimeout).userData);
    std::vector<VmError> ends(hosts.size());
    const BatchStartupInfo startup = {.count = VM_BATCH_GROUP_LIMIT,
                                      .timeout = kTimeout,
                                      .userData = hosts.data(),
                                      .builtin258 = 0,
                                      .builtin281 = 0,
                                      .builtin282 = 0,
                                      .builtin285 = 0};
    within({kTimeout + kAfterTimeout, kBatchBytes}, "running a batch", kSmallStack, [&] {
      vmShaderBatchExecuteShader(batch.get(), shader_->record(), &startup, ends.data());
    });
  }
#else
  void runBatch() const {}
#endif

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
  const fuzz::ScaleSource& quarter_;
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
  const uint32_t kind = choices.below(16);
  if (kind == 1) {
    validateSharedTables(choices);
    return 0;
  }
  if (kind == 2) {
    readPicture(choices);
    return 0;
  }
  fuzz::Choices again = choices;
  const fuzz::ScaleSource source = fuzz::scaleSource(choices, kWithGlsl);
  const fuzz::ScaleSource quarter = fuzz::scaleSource(again, kWithGlsl, 4);
  Trial(source, quarter).run();
  return 0;
}
