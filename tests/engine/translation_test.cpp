// When translations are made, kept and used again.

#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "engine/engine.h"
#include "engine/translation_cache.h"
#include "machine/machine.h"
#include "support/allocations.h"
#include "support/rig.h"

namespace shadermachine::tests {
namespace {

// Stores a number into the output global, by a function, and ends with `ending`.
BuiltShader storing(float value, VmOpcode ending) {
  return buildShader([&](ShaderBuilder& shader, FunctionBuilder& code) {
    const GlobalId color = shader.addGlobal({.name = "color", .type = VM_TYPE_VEC4});
    shader.record().outputGlobal0 = color.index;
    FunctionBuilder& f = shader.addFunction("f");
    f.pushFloat(value);
    f.construct(VM_OP_CTOR_VEC4_A, {1});
    f.store(color);
    f.emit(VM_OP_RETURN);
    code.call(f.id());
    code.pushInt(0);
    probe(code);
    code.emit(ending);
  });
}

float storedValue(const Rig& rig) {
  float value;
  std::memcpy(&value, rig.only(kProbe).stack[0].value.words, sizeof value);
  return value;
}

Machine& internals(Rig& rig) { return static_cast<Machine&>(*rig.machine); }

TEST(Translation, IsKeptAfterTheMachineForgetsItsShader) {
  Rig rig;
  const BuiltShader shader = storing(2.0f, VM_OP_DISCARD);
  EXPECT_EQ(rig.run(shader), VM_ERR_DISCARDED);
  const engine::Translation* first = internals(rig).translations->recent();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(rig.run(shader), VM_ERR_DISCARDED);
  EXPECT_EQ(internals(rig).translations->recent(), first);
  // An equal shader elsewhere is the same to it.
  EXPECT_EQ(rig.run(storing(2.0f, VM_OP_DISCARD)), VM_ERR_DISCARDED);
  EXPECT_EQ(internals(rig).translations->recent(), first);
  EXPECT_EQ(storedValue(rig), 2.0f);
}

TEST(Translation, AnotherShaderAtTheSameAddressIsAnother) {
  Rig rig;
  BuiltShader shader = storing(1.0f, VM_OP_DISCARD);
  CompiledShader record = *shader.record();
  EXPECT_EQ(rig.run(&record), VM_ERR_DISCARDED);
  EXPECT_EQ(storedValue(rig), 1.0f);
  // Its tables are freed, its record is overwritten.
  shader = storing(3.0f, VM_OP_DISCARD);
  record = *shader.record();
  EXPECT_EQ(rig.run(&record), VM_ERR_DISCARDED);
  EXPECT_EQ(storedValue(rig), 3.0f);
}

// What a shader is made of; each field changes one thing that a translation depends on.
struct Parts {
  int32_t constant = 1;
  TypeCode local = VM_TYPE_INT;
  TypeCode global = VM_TYPE_INT;
  TypeCode member = VM_TYPE_INT;
  TypeCode memberOfMember = VM_TYPE_INT;
  TypeCode constructed = VM_TYPE_INT;
  uint16_t params = 0;
  int32_t hostFunctionBase = -1;
  uint16_t entry = 0;
};

BuiltShader madeOf(const Parts& parts) {
  return buildShader([&](ShaderBuilder& shader, FunctionBuilder& code) {
    const TypeCode s = shader.addStruct("S", {{.name = "m", .type = parts.member}});
    shader.addGlobal({.name = "g", .type = parts.global});
    shader.record().hostFunctionBase = parts.hostFunctionBase;
    shader.record().entryIndex = parts.entry;
    FunctionBuilder& f = shader.addFunction("f");
    const LocalId whole = f.addLocal({.name = "s", .type = s});
    f.load(whole);
    f.emit(VM_OP_STRUCT_FIELD, {s, 0});
    f.emit(VM_OP_POP_RELEASE);
    f.pushInt(parts.constant);
    f.emit(VM_OP_POP);
    f.emit(VM_OP_DISCARD);
    if (parts.params != 0) {
      code.addParam({.name = "p", .type = VM_TYPE_INT});
    } else {
      code.addLocal({.name = "p", .type = VM_TYPE_INT});
    }
    code.addLocal({.name = "l", .type = parts.local});
    const TypeCode inner = shader.addStruct("Inner", {{.name = "m", .type = parts.memberOfMember}});
    const TypeCode outer = shader.addStruct("Outer", {{.name = "i", .type = inner}});
    const LocalId stored = code.addLocal({.name = "stored", .type = outer});
    code.pushInt(1);
    code.storeElement(stored, {0, 0});
    const TypeCode made = shader.addStruct("Made", {{.name = "m", .type = parts.constructed}});
    const LocalId target = code.addLocal({.name = "made", .type = made});
    code.pushInt(1);
    code.emit(VM_OP_CTOR_STRUCT, {made});
    code.store(target);
    code.call(f.id());
    code.emit(VM_OP_DISCARD);
  });
}

TEST(Translation, BelongsToAllThatItWasMadeFrom) {
  const BuiltShader shader = madeOf({});
  for (const Parts& other :
       {Parts{.constant = 2}, Parts{.local = VM_TYPE_BOOL}, Parts{.global = VM_TYPE_FLOAT},
        Parts{.member = VM_TYPE_FLOAT}, Parts{.memberOfMember = VM_TYPE_FLOAT},
        Parts{.constructed = VM_TYPE_FLOAT}, Parts{.params = 1}, Parts{.hostFunctionBase = 7},
        Parts{.entry = 1}}) {
    Rig rig;
    EXPECT_EQ(rig.run(shader), VM_ERR_DISCARDED);
    const engine::Translation* first = internals(rig).translations->recent();
    EXPECT_EQ(rig.run(madeOf(other)), VM_ERR_DISCARDED);
    EXPECT_NE(internals(rig).translations->recent(), first);
    EXPECT_EQ(rig.run(shader), VM_ERR_DISCARDED);
    EXPECT_EQ(internals(rig).translations->recent(), first);
  }
}

TEST(Translation, BelongsToSizesOfStructuresWithoutMembers) {
  const auto elementsOf = [](const std::string& size) {
    return tools::assemble(".struct S size " + size +
                           "\n.end\n.entry main\n.function main\n.local float a[6]\nLOAD_LOCAL a\n"
                           "PUSH_INDEX_IMM 1\nARRAY_ELEMENT S\nPOP_RELEASE\nDISCARD\n.end\n");
  };
  const tools::AssemblyResult two = elementsOf("8");
  const tools::AssemblyResult three = elementsOf("12");
  ASSERT_TRUE(two.shader && three.shader);
  Rig rig;
  EXPECT_EQ(rig.run(*two.shader), VM_ERR_DISCARDED);
  const engine::Translation* first = internals(rig).translations->recent();
  EXPECT_EQ(rig.run(*three.shader), VM_ERR_DISCARDED);
  EXPECT_NE(internals(rig).translations->recent(), first);
}

TEST(Translation, MemoryIsBounded) {
  Rig rig;
  std::vector<int64_t> live;
  for (int round = 0; round < 4; ++round) {
    for (int i = 0; i < 20; ++i) {
      EXPECT_EQ(rig.run(storing(static_cast<float>(i), VM_OP_DISCARD)), VM_ERR_DISCARDED);
      EXPECT_EQ(storedValue(rig), static_cast<float>(i));
    }
    rig.kept.clear();
    rig.calls.clear();
    live.push_back(liveAllocations());
  }
  EXPECT_EQ(live[1], live[3]);
}

TEST(Translation, WithoutMemoryRunsPlain) {
  const BuiltShader shader = storing(5.0f, VM_OP_RETURN);
  for (int64_t allowed = 0; allowed < 12; ++allowed) {
    Rig rig;
    {
      const AllocationFailure failure(allowed);
      EXPECT_EQ(rig.run(shader), VM_OK);
    }
    EXPECT_EQ(storedValue(rig), 5.0f);
    EXPECT_EQ(rig.run(shader), VM_OK);
    EXPECT_TRUE(engine::isTranslated(internals(rig)));
  }
}

// The variable's block is shared, so that the store needs another.
TEST(Translation, StoresWithoutMemoryEndTheRun) {
  const BuiltShader shader = buildShader([](ShaderBuilder&, FunctionBuilder& code) {
    const LocalId a = code.addLocal({.name = "a", .type = VM_TYPE_INT, .count = 2});
    const LocalId b = code.addLocal({.name = "b", .type = VM_TYPE_INT, .count = 2});
    code.load(b);
    code.load(a);
    code.store(b);
    code.emit(VM_OP_POP_RELEASE);
    code.emit(VM_OP_RETURN);
  });
  const int64_t live = liveAllocations();
  for (const uint32_t plain : {0u, 1u}) {
    Rig rig;
    internals(rig).engineUse = plain ? EngineUse::Never : EngineUse::AtOnce;
    EXPECT_EQ(rig.run(shader), VM_OK);
    EXPECT_EQ(engine::isTranslated(internals(rig)), plain == 0);
    // Both variables' blocks come first.
    constexpr uint32_t kEnds[] = {0, 0, 9, 11};
    std::vector<VmError> codes;
    for (int64_t allowed = 0; allowed < 4; ++allowed) {
      const AllocationFailure failure(allowed);
      codes.push_back(rig.run(shader));
      EXPECT_EQ(rig.machine->frames[0].pc, kEnds[allowed]);
    }
    EXPECT_EQ(codes, (std::vector<VmError>{VM_ERR_OUT_OF_MEMORY, VM_ERR_OUT_OF_MEMORY,
                                           VM_ERR_OUT_OF_MEMORY, VM_OK}));
  }
  EXPECT_EQ(liveAllocations(), live);
}

// Each function calls the next so often; the entry function calls the first only in theory.
BuiltShader callingDeep(int functions, int calls) {
  return buildShader([&](ShaderBuilder& shader, FunctionBuilder& code) {
    for (int i = 0; i < 1500; ++i) shader.addGlobal({.name = "g", .type = VM_TYPE_INT});
    for (int f = 1; f < functions; ++f) {
      FunctionBuilder& function = shader.addFunction("f");
      const FunctionId next{static_cast<uint16_t>(f + 1)};
      for (int i = 0; i < calls && f + 1 < functions; ++i) function.call(next);
      function.emit(VM_OP_RETURN);
    }
    const Label end = code.newLabel();
    code.pushInt(0);
    code.jumpIfFalse(end);
    code.call(FunctionId{1});
    code.bind(end);
    code.emit(VM_OP_DISCARD);
  });
}

BuiltShader tooLarge() {
  return buildShader([](ShaderBuilder&, FunctionBuilder& code) {
    for (int i = 0; i < 400000; ++i) {
      code.pushInt(0);
      code.emit(VM_OP_POP);
    }
    code.emit(VM_OP_DISCARD);
  });
}

// What takes too much memory, or half of the run's time, is not tried again at once.
TEST(Translation, FailuresAreRemembered) {
  const BuiltShader shaders[] = {tooLarge(), callingDeep(20, 2)};
  for (const BuiltShader& shader : shaders) {
    Rig rig;
    rig.startup.timeout = &shader == shaders ? 0 : 1;
    EXPECT_EQ(rig.run(shader), VM_ERR_DISCARDED);
    const int64_t requested = requestedAllocations();
    EXPECT_EQ(rig.run(shader), VM_ERR_DISCARDED);
    EXPECT_EQ(requestedAllocations(), requested);
  }
}

TEST(Translation, CallsAreNotFollowedToTheEnd) {
  Rig rig;
  EXPECT_EQ(rig.run(callingDeep(60000, 1)), VM_ERR_DISCARDED);
}

// Shaders that share a bucket where the machine notes whom it has met share another later.
TEST(Translation, OfNearlyAllShadersThatTakeTurns) {
  std::vector<BuiltShader> shaders;
  for (int i = 0; i < 300; ++i) shaders.push_back(storing(static_cast<float>(i), VM_OP_RETURN));
  const MachinePtr machine = makeMachine();
  static_cast<Machine&>(*machine).engineUse = EngineUse::WhenWorth;
  const StartupInfo startup = {};
  const auto translated = [&] {
    return std::ranges::count_if(shaders, [&](const BuiltShader& shader) {
      EXPECT_EQ(vmShaderMachineExecuteShader(machine.get(), shader.record(), &startup), VM_OK);
      return engine::isTranslated(static_cast<Machine&>(*machine));
    });
  };
  for (int turn = 0; turn < 200; ++turn) translated();
  EXPECT_GE(translated(), 240);
}

TEST(Translation, TakingTurnsIsNoReasonToTranslate) {
  std::vector<BuiltShader> shaders;
  for (int i = 0; i < 9; ++i) shaders.push_back(storing(static_cast<float>(i), VM_OP_DISCARD));
  Rig rig;
  for (const BuiltShader& shader : shaders) EXPECT_EQ(rig.run(shader), VM_ERR_DISCARDED);
  const int64_t requested = requestedAllocations();
  for (size_t turn = 0; turn < 100; ++turn) {
    EXPECT_EQ(rig.run(shaders[turn % 9]), VM_ERR_DISCARDED);
    EXPECT_EQ(storedValue(rig), static_cast<float>(turn % 9));
  }
  EXPECT_EQ(requestedAllocations(), requested);
}

TEST(Translation, CanBeSwitchedOff) {
  Rig rig;
  internals(rig).engineUse = EngineUse::Never;
  EXPECT_EQ(rig.run(storing(4.0f, VM_OP_RETURN)), VM_OK);
  EXPECT_EQ(storedValue(rig), 4.0f);
  EXPECT_EQ(internals(rig).translations, nullptr);
}

// Structures and arrays with storages of the translation are as much memory as blocks.
TEST(Translation, EndsWhereThePlainHandlersHaveNoMemory) {
  constexpr uint64_t kPadBytes = 720000;
  const tools::AssemblyResult result = tools::assemble(R"(
    .struct Pair
      .member vec4 a
      .member vec4 b
    .end
    .global float pad[180000]
    .entry main
    .function main
      .local Pair p
      .local float a[5]
      .local Pair q
      PUSH_ONE4_F
      PUSH_ONE4_F
      CTOR_STRUCT Pair
      STORE_LOCAL p
      LOAD_LOCAL p
      STORE_LOCAL q
      PUSH_U32 2.5
      STORE_LOCAL_ELEM_IMM a, 1
      RETURN
    .end)");
  ASSERT_TRUE(result.shader);
  std::set<VmError> codes;
  for (uint64_t room = 24; room < 240; room += 4) {
    Rig plain;
    Rig translated;
    internals(plain).engineUse = EngineUse::Never;
    for (Rig* rig : {&plain, &translated}) {
      internals(*rig).memory.limit = (kPadBytes + room) * 4 / 3;
    }
    const VmError code = plain.run(result.shader->record());
    EXPECT_EQ(translated.run(result.shader->record()), code) << room;
    EXPECT_EQ(internals(translated).blockBytes, internals(plain).blockBytes);
    EXPECT_TRUE(engine::isTranslated(internals(translated)));
    codes.insert(code);
  }
  EXPECT_EQ(codes, (std::set<VmError>{VM_OK, VM_ERR_OUT_OF_MEMORY}));
}

}  // namespace
}  // namespace shadermachine::tests
