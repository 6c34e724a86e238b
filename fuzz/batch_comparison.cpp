#include "fuzz/batch_comparison.h"

#include <shadermachine-tools/host_contract.h>
#include <shadermachine/batch.h>

#include <memory>
#include <sstream>
#include <vector>

#include "batch/batch.h"
#include "batch/row_program.h"
#include "fuzz/arbitrary_host.h"
#include "fuzz/program_generator.h"
#include "instructions/builtin_variables.h"

namespace shadermachine::fuzz {
namespace {

struct BatchDeleter {
  void operator()(ShaderBatch* batch) const { vmShaderBatchDestroy(batch); }
};
using BatchPtr = std::unique_ptr<ShaderBatch, BatchDeleter>;

// Calls function(i, host) for the invocations that take part.
template <class Function>
void forEach(const BatchRequest& group, Function function) {
  for (uint32_t i = 0; i < group.count; ++i) {
    if ((group.mask >> i & 1) != 0) {
      function(i, *reinterpret_cast<ArbitraryHost*>(group.userData[i]));
    }
  }
}

// Some requests, chosen without a host's random words, which belong to its answers.
bool isLeft(const BatchRequest& group) { return (group.first + group.count) % 5 == 0; }

BatchAnswer answer(const BatchRequest& group, uint32_t words) {
  if (isLeft(group)) return VM_BATCH_ONE_BY_ONE;
  forEach(group, [&](uint32_t i, ArbitraryHost& host) {
    std::vector<uint32_t> value(words);
    host.write(value.data(), words);
    for (uint32_t w = 0; w < words; ++w) group.words[w * group.stride + i] = value[w];
  });
  return VM_BATCH_ANSWERED;
}

void onOutput(const BatchRequest* request) {
  forEach(*request, [request](uint32_t i, ArbitraryHost& host) {
    uint32_t words[VM_COMPONENT_COUNT];
    for (uint32_t w = 0; w < request->wordCount; ++w) {
      words[w] = request->words[w * request->stride + i];
    }
    host.read(words, request->wordCount);
  });
}

// As one by one, and the same for all wherever it is. The first column may be that of an invocation
// that does not take part.
BatchAnswer onVariable(const BatchVariableRequest* request) {
  const BatchRequest& group = request->group;
  if (isLeft(group)) return VM_BATCH_ONE_BY_ONE;
  std::vector<uint32_t> first;
  bool isSame = true;
  forEach(group, [&](uint32_t i, ArbitraryHost& host) {
    std::vector<uint32_t> value(group.wordCount);
    const HostVariableRequest single = {value.data(),         request->varInfo,
                                        request->index,       request->varInfo->count,
                                        request->elements[i], 0};
    host.answer(0, single);
    for (uint32_t w = 0; w < group.wordCount; ++w) group.words[w * group.stride + i] = value[w];
    if (first.empty()) first = value;
    isSame = isSame && value == first;
  });
  if (!isSame) return VM_BATCH_ANSWERED;
  for (uint32_t w = 0; w < group.wordCount; ++w) group.words[w * group.stride] = first[w];
  return VM_BATCH_SAME_FOR_ALL;
}

BatchAnswer onBuiltin(const BatchBuiltinRequest* request) {
  const TypeCode type = tools::builtinValue(request->id).type;
  return answer(request->group, type == VM_TYPE_VEC4 ? 4 : type == VM_TYPE_VEC2 ? 2 : 1);
}

BatchAnswer onUnary(const BatchRequest* request) {
  return answer(*request, tools::kHostUnaryWords);
}

BatchAnswer onLookup(const BatchLookupRequest* request) {
  if (isLeft(request->group)) return VM_BATCH_ONE_BY_ONE;
  forEach(request->group, [request](uint32_t i, ArbitraryHost& host) {
    uint32_t coordinates[4];
    for (uint32_t w = 0; w < 4; ++w) {
      coordinates[w] = request->coords[w * request->group.stride + i];
    }
    host.read(coordinates, tools::kLookupKinds[request->kind].coordinates);
    uint32_t value[tools::kLookupResultWords];
    host.write(value, tools::kLookupResultWords);
    for (uint32_t w = 0; w < tools::kLookupResultWords; ++w) {
      request->group.words[w * request->group.stride + i] = value[w];
    }
  });
  return VM_BATCH_ANSWERED;
}

// Each bit sets one of the callbacks.
BatchCallbacks chooseCallbacks(uint32_t bits) {
  const auto chosen = [&bits](auto callback) {
    const bool isSet = (bits & 1) != 0;
    bits >>= 1;
    return isSet ? callback : nullptr;
  };
  BatchCallbacks callbacks = {};
  callbacks.output0 = chosen(&onOutput);
  callbacks.output1 = chosen(&onOutput);
  callbacks.hostVariable = chosen(&onVariable);
  callbacks.builtin = chosen(&onBuiltin);
  for (auto& unary : callbacks.hostUnary) unary = chosen(&onUnary);
  for (auto& lookup : callbacks.lookup) lookup = chosen(&onLookup);
  callbacks.hostAggregate = chosen(&onVariable);
  return callbacks;
}

std::vector<ArbitraryHost> makeHosts(uint32_t seed, uint32_t count) {
  std::vector<ArbitraryHost> hosts;
  for (uint32_t i = 0; i < count; ++i) {
    hosts.emplace_back(seed * 71 + i + 1).sharesVariables = seed % 2 != 0;
  }
  return hosts;
}

// With one instruction set or another, of those that the processor has.
const batch::RowFunctions& chooseFunctions(uint32_t seed) {
  constexpr batch::InstructionSet kSets[] = {
      batch::InstructionSet::Baseline, batch::InstructionSet::Avx2, batch::InstructionSet::Avx512};
  const batch::RowFunctions* chosen = batch::rowFunctions(kSets[seed % 3]);
  return chosen != nullptr ? *chosen : batch::bestRowFunctions();
}

std::vector<VmError> runBatch(const CompiledShader& shader, uint32_t seed,
                              std::vector<ArbitraryHost>& hosts, BatchComparison& result) {
  const BatchCallbacks batchCallbacks = chooseCallbacks(seed * 0x9E3779B9u >> 16);
  const BatchCreateInfo info = {&ArbitraryHost::callbacks(), &batchCallbacks};
  const BatchPtr batch(vmShaderBatchCreate(&info));
  batch->rowFunctions = &chooseFunctions(seed);
  batch->met = &shader;  // as if it had run before: else few invocations are not worth a program
  const StartupInfo single = hosts[0].startup(0);
  std::vector<uint64_t> userData;
  for (const ArbitraryHost& host : hosts) userData.push_back(host.startup(0).userData);
  const BatchStartupInfo startup = {static_cast<uint32_t>(hosts.size()),
                                    0,
                                    userData.data(),
                                    single.builtin258,
                                    single.builtin281,
                                    single.builtin282,
                                    single.builtin285};
  std::vector<VmError> errors(hosts.size(), VM_ERROR_COUNT);
  vmShaderBatchExecuteShader(batch.get(), &shader, &startup, errors.data());
  result.onRows = batch->programs != nullptr && batch->programs->first != nullptr;
  return errors;
}

}  // namespace

tools::BuiltShader batchProgram(uint32_t seed) {
  constexpr size_t kBatchProgramBytes = 800;
  const auto bytes = randomBytes(seed, kBatchProgramBytes);
  Choices choices(bytes);
  return generateProgram(choices, {.hidesNanBits = true,
                                   .ends = true,
                                   .isInline = seed % 4 != 0,
                                   .hasAggregates = seed % 4 != 1});
}

BatchComparison compareBatch(const CompiledShader& shader, uint32_t seed, uint32_t count) {
  std::vector<ArbitraryHost> batchHosts = makeHosts(seed, count);
  BatchComparison result;
  const std::vector<VmError> errors = runBatch(shader, seed, batchHosts, result);
  std::vector<ArbitraryHost> hosts = makeHosts(seed, count);
  for (uint32_t i = 0; i < count; ++i) {
    const MachinePtr machine = makeMachine(true);
    const StartupInfo startup = hosts[i].startup(0);
    const VmError error = vmShaderMachineExecuteShader(machine.get(), &shader, &startup);
    result.finished += error == VM_OK ? 1 : 0;
    result.calls += hosts[i].calls();
    if (error == errors[i] && hosts[i].calls() == batchHosts[i].calls() &&
        hosts[i].checksum() == batchHosts[i].checksum()) {
      continue;
    }
    std::ostringstream out;
    out << "invocation " << i << " of " << count << ": error " << error << " and " << errors[i]
        << ", calls " << hosts[i].calls() << " and " << batchHosts[i].calls() << ", checksum "
        << hosts[i].checksum() << " and " << batchHosts[i].checksum() << "\n";
    result.difference += out.str();
  }
  return result;
}

}  // namespace shadermachine::fuzz
