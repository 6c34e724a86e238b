// Runs as the host sees them: variables between runs, outputs, callbacks, endings.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>

#include "machine/machine.h"
#include "support/allocations.h"
#include "support/rig.h"

namespace shadermachine::tests {
namespace {

using Code = FunctionBuilder;
using Tables = ShaderBuilder;

// Counts its runs in global 0; block global 1 is counted too, local likewise. Ends with `last`.
BuiltShader counting(VmOpcode last) {
  return buildShader([&](Tables& tables, Code& code) {
    const GlobalId runs = tables.addGlobal({.name = "runs", .type = VM_TYPE_INT});
    tables.addGlobal({.name = "block", .type = VM_TYPE_INT, .count = 2});
    const LocalId local = code.addLocal({.name = "local", .type = VM_TYPE_INT});
    code.load(runs);
    code.emit(VM_OP_INC_I, {1});
    code.store(runs);
    code.load(local);
    code.emit(VM_OP_INC_I, {1});
    code.emit(VM_OP_STORE_LOCAL_KEEP, {local.index});
    code.emit(VM_OP_POP);
    code.emit(last);
    tables.record().outputGlobal0 = 0;
    tables.record().outputGlobal1 = 0;
  });
}

TEST(Globals, SurviveSuccessOnly) {
  const int64_t liveBefore = liveAllocations();
  {
    Rig rig;
    const BuiltShader good = counting(VM_OP_RETURN), halted = counting(VM_OP_HALT);
    const auto runs = [&] { return rig.machine->stack[0].value.words[0]; };
    const auto locals = [&] { return rig.machine->stack[2].value.words[0]; };
    for (uint32_t run = 1; run <= 3; ++run) {
      EXPECT_EQ(rig.run(good), VM_OK);
      EXPECT_EQ(runs(), run);
      EXPECT_EQ(locals(), 1u);
      EXPECT_EQ(rig.machine->sameShader, run > 1 ? 1u : 0u);
      EXPECT_EQ(rig.machine->shader, good.record());
    }
    for (int run = 0; run < 2; ++run) {
      EXPECT_EQ(rig.run(halted), VM_ERR_HALTED);
      EXPECT_EQ(runs(), 1u) << "a fresh start after every run but a successful one";
      EXPECT_EQ(rig.machine->shader, nullptr);
    }
    EXPECT_EQ(rig.run(good), VM_OK);
    EXPECT_EQ(runs(), 1u);
  }
  EXPECT_EQ(liveAllocations(), liveBefore);
}

TEST(Outputs, AreDeliveredAfterSuccessAndHalt) {
  for (const auto& [last, error] : {std::pair{VM_OP_RETURN, VM_OK},
                                    {VM_OP_HALT, VM_ERR_HALTED},
                                    {VM_OP_DISCARD, VM_ERR_DISCARDED},
                                    {VM_OP_RESERVED_195, VM_ERR_NOT_IMPLEMENTED}}) {
    Rig rig;
    EXPECT_EQ(rig.run(counting(last)), static_cast<VmError>(error));
    if (error != VM_OK && error != VM_ERR_HALTED) {
      EXPECT_TRUE(rig.calls.empty());
      continue;
    }
    ASSERT_EQ(rig.calls.size(), 2u);
    EXPECT_EQ(
        rig.only(kOutput0).fields,
        (std::vector<uint64_t>{address(rig.machine->stack[0].value.words), rig.startup.userData}));
    EXPECT_EQ(rig.only(kOutput1).fields, (std::vector<uint64_t>{1, rig.startup.userData}));
  }
}

TEST(Outputs, SlotsAndGlobals) {
  struct Case {
    int32_t global0, global1;
    std::vector<unsigned> nullSlots;
    size_t calls0, calls1;
  };
  const std::vector<Case> cases = {{0, 0, {}, 1, 1},    {-1, 0, {}, 0, 0},  {0, -1, {}, 1, 0},
                                   {0, 0, {0}, 0, 1},   {-1, 0, {0}, 0, 1}, {0, 0, {1}, 1, 0},
                                   {0, 0, {0, 1}, 0, 0}};
  for (const Case& c : cases) {
    const BuiltShader shader = counting(VM_OP_RETURN);
    CompiledShader record = *shader.record();
    record.outputGlobal0 = c.global0;
    record.outputGlobal1 = c.global1;
    Rig rig;
    for (unsigned slot : c.nullSlots) {
      std::memset(reinterpret_cast<char*>(&rig.callbacks) + 8 * size_t{slot}, 0, 8);
    }
    rig.machine = makeMachine(&rig.callbacks);
    EXPECT_EQ(rig.run(&record), VM_OK);
    EXPECT_EQ(rig.count(kOutput0), c.calls0);
    EXPECT_EQ(rig.count(kOutput1), c.calls1);
  }
}

TEST(Callbacks, AreCopied) {
  Rig rig;
  rig.callbacks = {};
  EXPECT_EQ(rig.run(counting(VM_OP_RETURN)), VM_OK);
  EXPECT_EQ(rig.calls.size(), 2u);
}

TEST(Callbacks, MayNeitherRunNorDestroyTheirMachine) {
  const BuiltShader shader = buildShader([](Tables& tables, Code& code) {
    tables.addGlobal({.name = "out", .type = VM_TYPE_FLOAT});
    tables.record().outputGlobal0 = tables.record().outputGlobal1 = 0;
    code.emit(VM_OP_PUSH_0);
    probe(code);
    code.emit(VM_OP_POP);
    code.emit(VM_OP_RETURN);
  });
  Rig rig;
  int calls = 0;
  rig.reply = [&](const HostCall& call, void*) {
    ++calls;
    ShaderMachine* machine = rig.machine.get();
    EXPECT_EQ(vmShaderMachineExecuteShader(machine, shader.record(), &rig.startup),
              VM_ERR_ALREADY_RUNNING);
    EXPECT_EQ(vmShaderMachineExecuteShader(machine, nullptr, nullptr), VM_ERR_ALREADY_RUNNING);
    EXPECT_EQ(vmShaderMachineDestroy(machine), VM_OK);
    EXPECT_EQ(machine->runState, uint32_t{call.slot == kProbe ? VM_RUN_RUNNING : VM_RUN_IDLE});
    EXPECT_EQ(machine->error, uint32_t{VM_OK});
  };
  for (int run = 1; run <= 2; ++run) {
    EXPECT_EQ(rig.run(shader), VM_OK);
    EXPECT_EQ(calls, 3 * run);
  }
}

TEST(Callbacks, SeeTheMachinesState) {
  Rig rig;
  const BuiltShader shader = buildShader([](Tables& tables, Code& code) {
    tables.addGlobal({.name = "g", .type = VM_TYPE_FLOAT});
    Code& f = tables.addFunction("f");
    f.addParam({.name = "p", .type = VM_TYPE_INT});
    f.addLocal({.name = "l", .type = VM_TYPE_INT});
    f.emit(VM_OP_PUSH_INDEX_IMM, {6});
    f.emit(VM_OP_PUSH_5);
    probe(f);
    f.emit(VM_OP_RETURN);
    code.emit(VM_OP_PUSH_3);
    code.call(f.id());
    probe(code);
    code.emit(VM_OP_RETURN);
  });
  EXPECT_EQ(rig.run(shader), VM_OK);
  ASSERT_EQ(rig.calls.size(), 2u);
  const HostCall &inside = rig.calls[0], &outside = rig.calls[1];
  EXPECT_EQ(inside.frameIndex, 1);
  EXPECT_EQ(inside.top, 2);
  EXPECT_EQ(inside.indexTop, 0);
  EXPECT_EQ(inside.pc, 5u);
  ASSERT_EQ(inside.stack.size(), 4u);
  EXPECT_EQ(inside.stack[1].value.words[0], 3u);
  EXPECT_EQ(inside.stack[2].value.words[0], 0u);
  EXPECT_EQ(inside.stack[3].value.words[0], 5u);
  EXPECT_EQ(outside.frameIndex, 0);
  EXPECT_EQ(outside.top, 0);
  EXPECT_EQ(outside.pc, 6u);
  EXPECT_EQ(rig.machine->stack[3].view.data, nullptr);
  EXPECT_EQ(rig.machine->error, uint32_t{VM_OK});
}

TEST(Runs, VariablesBeyondTheValueStack) {
  for (int globals : {1999, 2000}) {
    Rig rig;
    const BuiltShader shader = buildShader([&](Tables& tables, Code& code) {
      for (int g = 0; g < globals; ++g)
        tables.addGlobal({.name = "g", .type = VM_TYPE_INT, .count = 1});
      code.addLocal({.name = "l", .type = VM_TYPE_INT, .count = 1});
      code.emit(VM_OP_RETURN);
    });
    EXPECT_EQ(rig.run(shader), globals == 1999 ? VM_OK : VM_ERR_STACK_OVERFLOW);
    EXPECT_EQ(rig.machine->shader, globals == 1999 ? shader.record() : nullptr);
  }
}

TEST(Runs, VariablesWithoutMemory) {
  const int64_t liveBefore = liveAllocations();
  const BuiltShader shader = buildShader([](Tables& tables, Code& code) {
    for (int g = 0; g < 3; ++g) tables.addGlobal({.name = "g", .type = VM_TYPE_INT, .count = 5});
    code.addLocal({.name = "l", .type = VM_TYPE_INT, .count = 5});
    code.emit(VM_OP_LOAD_LOCAL, {0});
    code.emit(VM_OP_MAKE_UNIQUE);
    code.emit(VM_OP_POP_RELEASE);
    code.emit(VM_OP_RETURN);
  });
  {
    Rig rig;
    // A translation would take allocations of its own.
    static_cast<Machine&>(*rig.machine).engineUse = EngineUse::Never;
    for (int64_t allowed = 0; allowed <= 5; ++allowed) {
      const AllocationFailure failure(allowed);
      EXPECT_EQ(rig.run(shader), allowed < 5 ? VM_ERR_OUT_OF_MEMORY : VM_OK) << allowed;
    }
  }
  EXPECT_EQ(liveAllocations(), liveBefore);
}

// An endless loop over `body`.
BuiltShader endless(const std::function<void(Code&)>& body) {
  return buildShader([&](Tables& tables, Code& code) {
    tables.addGlobal({.name = "block", .type = VM_TYPE_INT, .count = 5});
    const Label loop = code.newLabel();
    code.bind(loop);
    body(code);
    code.jump(loop);
  });
}

TEST(TimeLimit, EndsEndlessLoops) {
  const int64_t liveBefore = liveAllocations();
  {
    Rig rig;
    rig.startup.timeout = 20;
    EXPECT_EQ(rig.run(endless([](Code&) {})), VM_ERR_TIMEOUT);
    EXPECT_EQ(rig.machine->shader, nullptr);
    const auto conditional = [](Code& code) {
      const Label self = code.newLabel();
      code.bind(self);
      code.emit(VM_OP_PUSH_0);
      code.jumpIfFalse(self);
    };
    EXPECT_EQ(rig.run(endless(conditional)), VM_ERR_TIMEOUT);
    rig.startup.timeout = 0;
    EXPECT_EQ(rig.run(counting(VM_OP_RETURN)), VM_OK);
  }
  EXPECT_EQ(liveAllocations(), liveBefore);
}

TEST(TimeLimit, EndsLoopsOfSlowCallbacks) {
  Rig rig;
  rig.startup.timeout = 20;
  int calls = 0;
  rig.reply = [&](const HostCall&, void*) {
    ++calls;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1);
    while (std::chrono::steady_clock::now() < end) {
    }
  };
  const auto slow = [](Code& code) {
    code.emit(VM_OP_PUSH_0);
    probe(code);
    code.emit(VM_OP_POP);
  };
  EXPECT_EQ(rig.run(endless(slow)), VM_ERR_TIMEOUT);
  EXPECT_LE(calls, 200);
}

TEST(TimeLimit, LongRunsWithoutLimit) {
  Rig rig;
  const BuiltShader shader = buildShader([](Tables&, Code& code) {
    const LocalId i = code.addLocal({.name = "i", .type = VM_TYPE_INT});
    const Label loop = code.newLabel();
    code.bind(loop);
    code.load(i);
    code.emit(VM_OP_INC_I, {1});
    code.emit(VM_OP_STORE_LOCAL_KEEP, {i.index});
    code.pushInt(200000);
    code.emit(VM_OP_GE_I);
    code.jumpIfFalse(loop);
    code.emit(VM_OP_RETURN);
  });
  for (uint32_t timeout : {0u, UINT32_MAX}) {
    rig.startup.timeout = timeout;
    EXPECT_EQ(rig.run(shader), VM_OK);
  }
}

}  // namespace
}  // namespace shadermachine::tests
