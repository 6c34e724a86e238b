#include "engine/plain_program.h"

#include "machine/run_loop.h"

namespace shadermachine::engine {
namespace {

Step plainRunStep(ENGINE_STATE) {
  CallFrame& frame = machine.frames[0];
  frame.pc = 0;
  frame.top = frame.function->localCount - 1;
  initEntryLocals(machine);
  runPlainToEnd(machine);
  ENGINE_END;
}

}  // namespace

const Record kPlainProgram = {&plainRunStep, nullptr, nullptr, nullptr, nullptr,
                              {nullptr},     0,       0,       0,       0};

}  // namespace shadermachine::engine
