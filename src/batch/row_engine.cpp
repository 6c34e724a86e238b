#include "batch/row_engine.h"

#include <algorithm>
#include <memory>

#include "batch/row_program.h"
#include "batch/row_selector.h"
#include "engine/improve.h"
#include "form/builder.h"

namespace shadermachine::batch {
namespace {

constexpr size_t kMaxWorkingBytes = size_t{256} << 20;
// Beside its instructions, an invocation costs about as much as so many jumps.
constexpr uint32_t kTicksPerInvocation = 4;
// Making a program takes as long as some hundred runs of small shaders. It is made at once for so
// many invocations, and else when the shader comes again.
constexpr uint32_t kWorthAtOnce = 64;
constexpr uint32_t kMaxPrograms = 16;
// Fewer take the machine less time than their rows.
constexpr uint32_t kLeastInvocations = 4;

void destroy(RowProgram* program) {
  std::destroy_at(program);
  std::free(program);
}

bool matches(const RowProgram& program, const CompiledShader& shader) {
  return program.outputs[0] == shader.outputGlobal0 && program.outputs[1] == shader.outputGlobal1 &&
         program.snapshot.matches(shader);
}

// The shader's program, which becomes the first of the list; null when there is none.
RowProgram* findProgram(ShaderBatch& batch, const CompiledShader& shader) {
  for (RowProgram** at = &batch.programs; *at != nullptr; at = &(*at)->older) {
    RowProgram* const found = *at;
    if (!matches(*found, shader)) continue;
    *at = found->older;
    found->older = batch.programs;
    return batch.programs = found;
  }
  return nullptr;
}

// Without a first record where that cannot be told, or could not in the time that there was: false
// only when memory is short, since another call may have more.
bool fillProgram(ShaderBatch& batch, form::Decoder& decoder, form::Arena& working,
                 RowProgram& program) {
  Machine& machine = *batch.machine;
  form::Form form(program.arena);
  form.isHidden = true;
  form.outputs[0] = machine.shader->outputGlobal0;
  form.outputs[1] = machine.shader->outputGlobal1;
  const form::BuildResult result = form::buildForm(form, decoder, working, machine);
  const bool leavesIt =
      result == form::BuildResult::LeftPlain || result == form::BuildResult::OutOfTime;
  if (leavesIt) return true;
  if (result == form::BuildResult::Built) {
    // A form that there was no time to improve runs too.
    engine::improve(form, machine);
    if (RowSelector(form, decoder, machine, *batch.rowFunctions, program).select()) return true;
  }
  return program.arena.isFull() || working.isFull();
}

// The batch's programs begin with this one, and end with the one used longest ago that there is
// room for.
void keep(ShaderBatch& batch, RowProgram* program) {
  program->older = batch.programs;
  batch.programs = program;
  uint32_t count = 0;
  for (RowProgram* at = program; at != nullptr; at = at->older) {
    if (++count < kMaxPrograms || at->older == nullptr) continue;
    destroy(at->older);
    at->older = nullptr;
  }
}

RowProgram* makeProgram(ShaderBatch& batch, const CompiledShader& shader) {
  void* const memory = std::malloc(sizeof(RowProgram));
  if (memory == nullptr) return nullptr;
  auto* program = std::construct_at(static_cast<RowProgram*>(memory), RowProgram::kMaxBytes);
  form::Arena working(kMaxWorkingBytes);
  // The decoder and the builder ask a machine, as for a translation, what its host answers.
  batch.machine->shader = &shader;
  form::Decoder decoder(working, *batch.machine);
  const bool isSettled = fillProgram(batch, decoder, working, *program);
  batch.machine->shader = nullptr;
  program->outputs[0] = shader.outputGlobal0;
  program->outputs[1] = shader.outputGlobal1;
  // What came to nothing is of no use but for being known.
  if (program->first == nullptr) program->arena.release();
  if (!isSettled || !program->snapshot.take(shader, decoder, program->arena)) {
    destroy(program);
    return nullptr;
  }
  keep(batch, program);
  return program;
}

// Null for the machine.
RowProgram* chooseProgram(ShaderBatch& batch, const CompiledShader& shader, uint32_t count) {
  const ShaderFunction& entry = *shader.functions[shader.entryIndex];
  const uint32_t slots = uint32_t{shader.globalCount} + entry.localCount;
  if (slots > static_cast<uint32_t>(batch.machine->stackCapacity)) return nullptr;
  RowProgram* program = findProgram(batch, shader);
  // By address: a record rebuilt at the same one costs a program too many, nothing else.
  const bool isWorth = count >= kWorthAtOnce || batch.met == &shader;
  batch.met = &shader;
  if (program == nullptr && isWorth) program = makeProgram(batch, shader);
  return program == nullptr || program->first == nullptr ? nullptr : program;
}

void fillRunWords(const RowProgram& program, const BatchStartupInfo& startup) {
  ShaderMachine words = {};
  words.builtin258 = startup.builtin258;
  words.builtin281 = startup.builtin281;
  words.builtin282 = startup.builtin282;
  words.builtin285 = startup.builtin285;
  for (uint32_t i = 0; i < program.runWordCount; ++i) {
    uint32_t word;
    std::memcpy(&word, reinterpret_cast<const char*>(&words) + program.runWords[i].offset,
                sizeof word);
    std::fill_n(program.runWords[i].row, kRowWords, word);
  }
}

void forgetWaiting(const RowProgram& program) {
  std::fill_n(program.waiting, program.joinCount, uint64_t{0});
  std::fill_n(program.joinBits, (program.joinCount + 63) / 64, uint64_t{0});
}

void runGroups(ShaderBatch& batch, const RowProgram& program, uint32_t count, VmError* errors) {
  RowState state = {};
  state.waiting = program.waiting;
  state.joinBits = program.joinBits;
  state.joinCount = program.joinCount;
  state.joins = program.joins;
  state.timeLimit = &batch.machine->timeLimit;
  state.deliver = &deliverOutputs;
  state.host = &batch;
  for (uint32_t first = 0; first < count; first += kRowWords) {
    batch.invocation = first;
    batch.groupCount = std::min(kRowWords, count - first);
    state.errors = errors + first;
    if (chargeTimeLimit(*state.timeLimit, batch.groupCount * kTicksPerInvocation)) return;
    // A group finds the rows as the one before has left them.
    batch.rowFunctions->clear(program.cleared, program.clearedCount);
    batch.rowFunctions->start(state, ~uint64_t{0} >> (kRowWords - batch.groupCount));
    for (const RowRecord* record = program.first; record != nullptr;) {
      record = record->run(record, state);
    }
    if (state.isOver == 0) continue;
    // The next call begins with nobody waiting.
    forgetWaiting(program);
    return;
  }
}

}  // namespace

bool runOnRows(ShaderBatch& batch, const CompiledShader& shader, const BatchStartupInfo& startup,
               VmError* errors) {
  if (startup.count < kLeastInvocations) return false;
  RowProgram* const program = chooseProgram(batch, shader, startup.count);
  if (program == nullptr) return false;
  batch.shader = &shader;
  batch.rowProgram = program;
  // Until they end otherwise.
  std::fill_n(errors, startup.count, VmError{VM_ERR_TIMEOUT});
  fillRunWords(*program, startup);
  runGroups(batch, *program, startup.count, errors);
  return true;
}

void releasePrograms(ShaderBatch& batch) {
  while (batch.programs != nullptr) {
    RowProgram* const program = batch.programs;
    batch.programs = program->older;
    destroy(program);
  }
}

}  // namespace shadermachine::batch
