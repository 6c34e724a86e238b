// Branches, calls, returns and the host's part in calls.
#include <gtest/gtest.h>

#include <numeric>

#include "support/allocations.h"
#include "support/program.h"

namespace shadermachine::tests {
namespace {

using Code = FunctionBuilder;
using Tables = ShaderBuilder;

TEST(ControlFlow, ReturnValueInTheEntryFunctionReleasesItsLocals) {
  const int64_t liveBefore = liveAllocations();
  for (VmOpcode opcode : {VM_OP_RETURN, VM_OP_RETURN_VALUE, VM_OP_RETURN_VALUE_2}) {
    Rig rig;
    const BuiltShader shader = buildShader([&](Tables&, Code& code) {
      code.addParam({.name = "parameter", .type = VM_TYPE_INT, .count = 4});
      code.addLocal({.name = "local", .type = VM_TYPE_INT, .count = 4});
      code.pushInt(1);
      code.emit(opcode);
    });
    EXPECT_EQ(rig.run(shader), VM_OK);
    EXPECT_EQ(rig.run(shader), VM_OK);
  }
  EXPECT_EQ(liveAllocations(), liveBefore);
}

// A function that calls itself `depth` deep; with a local it takes a value slot per call.
BuiltShader recursion(int32_t depth, bool withLocal) {
  return buildShader([&](Tables& shader, Code& code) {
    const GlobalId left = shader.addGlobal({.name = "left", .type = VM_TYPE_INT});
    Code& f = shader.addFunction("f");
    if (withLocal) f.addLocal({.name = "x", .type = VM_TYPE_INT});
    const Label end = f.newLabel();
    f.load(left);
    f.emit(VM_OP_DEC_I, {1});
    f.store(left);
    f.load(left);
    f.jumpIfFalse(end);
    f.call(f.id());
    f.bind(end);
    f.emit(VM_OP_RETURN);
    code.pushInt(depth);
    code.store(left);
    code.call(f.id());
    code.emit(VM_OP_RETURN);
  });
}

TEST(ControlFlow, RecursionGrowsTheFrameStack) {
  Rig rig;
  EXPECT_EQ(rig.run(recursion(255, true)), VM_OK);
  EXPECT_EQ(rig.machine->frameCapacity, 256);
  EXPECT_EQ(rig.run(recursion(256, true)), VM_OK);
  EXPECT_EQ(rig.machine->frameCapacity, 512);
  EXPECT_EQ(rig.run(recursion(5000, false)), VM_OK);
  EXPECT_EQ(rig.machine->frameCapacity, 5120);
  EXPECT_EQ(rig.run(recursion(1998, true)), VM_OK);  // slots 1 to 1998, and one for its temporary
  EXPECT_EQ(rig.run(recursion(2000, true)), VM_ERR_STACK_OVERFLOW);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kReallocCopies = true;
#elif defined(__has_feature)
constexpr bool kReallocCopies = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kReallocCopies = false;
#endif

TEST(ControlFlow, EndlessRecursionEndsAtTheFrameLimit) {
  if (kReallocCopies) GTEST_SKIP() << "4,096 copies of a growing frame stack take too long";
  Rig rig;
  EXPECT_EQ(rig.run(recursion(0, false)), VM_ERR_STACK_OVERFLOW);
  EXPECT_EQ(rig.machine->frameIndex, VM_FRAME_LIMIT - 1);
  EXPECT_EQ(rig.run(recursion(10, false)), VM_OK);
}

TEST(ControlFlow, FrameStackWithoutMemory) {
  Rig rig;
  const BuiltShader shader = recursion(300, false);
  {
    const AllocationFailure failure(0);
    EXPECT_EQ(rig.run(shader), VM_ERR_OUT_OF_MEMORY);
  }
  EXPECT_EQ(rig.machine->frameIndex, 255);
  EXPECT_EQ(rig.machine->frameCapacity, 256);
  EXPECT_EQ(rig.run(shader), VM_OK);
}

TEST(ControlFlow, CalleesLocalsMustFit) {
  for (int locals : {1998, 1999}) {  // above one global and one argument
    Rig rig;
    const BuiltShader shader = buildShader([&](Tables& tables, Code& code) {
      tables.addGlobal({.name = "g", .type = VM_TYPE_INT});
      Code& f = tables.addFunction("f");
      f.addParam({.name = "p", .type = VM_TYPE_INT});
      for (int i = 0; i < locals; ++i) f.addLocal({.name = "v", .type = VM_TYPE_INT});
      code.pushInt(1);
      f.emit(VM_OP_RETURN);
      code.call(f.id());
      code.emit(VM_OP_RETURN);
    });
    EXPECT_EQ(rig.run(shader), locals == 1998 ? VM_OK : VM_ERR_STACK_OVERFLOW);
    EXPECT_EQ(rig.machine->frameIndex, 0);
  }
}

// Calls `function` of a shader whose functions 5 and 6 are in the host range, 7 and 8 overridden,
// on the words 1, 2, 3; every function's body sets the top of its caller to 99.
struct HostCalls {
  explicit HostCalls(std::initializer_list<unsigned> nullSlots = {}) : rig(nullSlots) {
    rig.overrideResult = 0x1234;
    rig.reply = [](const HostCall& call, void* target) {
      if (call.slot == kOverrideB)
        std::iota(static_cast<uint32_t*>(target), static_cast<uint32_t*>(target) + 3, 70u);
    };
  }

  // Words from `firstBlock` on are passed in arrays of one element.
  VmError call(int64_t function, int firstBlock = 4, uint32_t structMode = 0) {
    shader = std::make_unique<BuiltShader>(buildShader([&](Tables& tables, Code& code) {
      const TypeCode type = tables.addStruct("S", {{.name = "m", .type = VM_TYPE_INT}});
      code.addLocal({.name = "plain", .type = VM_TYPE_INT});
      code.addLocal({.name = "s", .type = type});
      for (int i = 1; i < 10; ++i) addBody(tables);
      for (int word = 1; word <= 3; ++word) {
        code.pushInt(word);
        if (word >= firstBlock) code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_INT, 1});
      }
      code.emit(VM_OP_CALL, {function});
      probe(code);
      for (int i = 0; i < 3; ++i) code.emit(VM_OP_POP_RELEASE);
      code.emit(VM_OP_RETURN);
      tables.record().hostFunctionBase = 5;
      tables.record().hostFunctionCount = rangeLength;
      tables.record().hostFunctionB = 7;
      tables.record().hostFunctionA = 8;
      tables.record().hostFunctionAType = type;
      tables.record().hostStructMode = structMode;
    }));
    return rig.run(*shader);
  }

  static void addBody(Tables& tables) {
    Code& f = tables.addFunction("f");
    f.addParam({.name = "p", .type = VM_TYPE_INT});
    f.pushInt(99);
    f.emit(VM_OP_STORE_LOCAL, {0});
    f.emit(VM_OP_RETURN);
  }

  // Inline area of the slot k below the top.
  uint64_t area(int k) const { return address(rig.machine->stack[4 - k].value.words); }
  const ValueSlot& seen(int k) const { return rig.only(kProbe).stack[static_cast<size_t>(4 - k)]; }

  Rig rig;
  uint16_t rangeLength = 2;
  std::unique_ptr<BuiltShader> shader;
};

TEST(ControlFlow, ReservedOpcodesLeavePcPastTheirOperands) {
  const std::pair<VmOpcode, uint32_t> lengths[] = {
      {VM_OP_RESERVED_10, 3},  {VM_OP_RESERVED_195, 1}, {VM_OP_RESERVED_196, 1},
      {VM_OP_RESERVED_197, 2}, {VM_OP_RESERVED_198, 2}, {VM_OP_RESERVED_199, 2},
      {VM_OP_RESERVED_200, 1}, {VM_OP_RESERVED_201, 1}};
  for (const auto& [opcode, length] : lengths) {
    Rig rig;
    const uint8_t code[] = {static_cast<uint8_t>(opcode), 0, 0};
    EXPECT_EQ(rig.run(buildShader([&](Tables&, Code& function) { function.emitBytes(code); })),
              VM_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(rig.machine->frames[0].pc, length) << opcode;
  }
}

TEST(ControlFlow, HostRange) {
  HostCalls host;
  EXPECT_EQ(host.call(6), VM_OK);
  EXPECT_EQ(host.rig.only(kHostFunction).fields,
            (std::vector<uint64_t>{host.area(2), host.area(1), 1, 0, host.rig.startup.userData}));
  EXPECT_EQ(host.seen(0).value.words[0], 3u);
  EXPECT_EQ(host.rig.only(kProbe).top, 4);

  EXPECT_EQ(host.call(6, 3), VM_OK);
  const HostCall& blocks = host.rig.only(kHostFunction);
  EXPECT_EQ(blocks.fields[3], address(blocks.stack[4].view.data));

  EXPECT_EQ(host.call(4), VM_OK);
  EXPECT_EQ(host.rig.count(kHostFunction), 0u);
  EXPECT_EQ(host.seen(0).value.words[0], 99u);
  host.rangeLength = 100;
  EXPECT_EQ(host.call(10), VM_ERR_INVALID_FUNCTION) << "past the table, though in the host range";

  HostCalls without({kHostFunction});
  EXPECT_EQ(without.call(6), VM_OK);
  EXPECT_EQ(without.seen(0).value.words[0], 99u) << "runs the function's own code";
}

TEST(ControlFlow, OverrideA) {
  HostCalls host;
  EXPECT_EQ(host.call(8), VM_OK);
  const HostCall call = host.rig.only(kOverrideA);
  EXPECT_EQ(call.fields, (std::vector<uint64_t>{2, host.area(0), address(call.stack[1].view.data),
                                                host.rig.startup.userData}));
  EXPECT_EQ(host.seen(2).value.words[0], 0x1234u);

  EXPECT_EQ(host.call(8, 2, 6), VM_OK);
  EXPECT_EQ(host.rig.only(kOverrideA).fields[0], 2u) << "first word of the argument's block";

  HostCalls without({kOverrideA});
  EXPECT_EQ(without.call(8), VM_OK);
  EXPECT_EQ(without.seen(0).value.words[0], 99u);
}

TEST(ControlFlow, OverrideB) {
  HostCalls host;
  EXPECT_EQ(host.call(7, 3), VM_OK);
  const HostCall& call = host.rig.only(kOverrideB);
  EXPECT_EQ(call.fields, (std::vector<uint64_t>{address(call.stack[4].view.data), 2,
                                                host.rig.startup.userData}));
  EXPECT_EQ(host.call(7), VM_OK);
  for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(host.seen(1).value.words[i], 70 + i);
  EXPECT_EQ(host.seen(0).value.words[0], 3u);

  HostCalls without({kOverrideB});
  EXPECT_EQ(without.call(7), VM_OK);
  EXPECT_EQ(without.seen(0).value.words[0], 99u);
}

}  // namespace
}  // namespace shadermachine::tests
