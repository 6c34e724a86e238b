// The limits of a run, on its time and on its machine's memory, where no jump looks at the clock.
#include <gtest/gtest.h>

#include "machine/machine.h"
#include "support/allocations.h"
#include "support/rig.h"

namespace shadermachine::tests {
namespace {

using Tables = ShaderBuilder;
using Code = FunctionBuilder;

constexpr uint32_t kMebibyte = 1u << 20;

LocalId floatArray(Code& code, const char* name, uint32_t mebibytes) {
  return code.addLocal({name, VM_TYPE_FLOAT, mebibytes * (kMebibyte / 4), 0});
}

MachineMemory& memoryOf(const Rig& rig) { return *vmShaderMachineMemory(rig.machine.get()); }

// Straight-line code that takes far longer than a millisecond.
struct LongCode {
  const char* name;
  std::function<void(Tables&, Code&)> write;
};

void PrintTo(const LongCode& code, std::ostream* stream) { *stream << code.name; }

class LongStraightCode : public testing::TestWithParam<LongCode> {};

TEST_P(LongStraightCode, EndsWithItsTime) {
  for (const uint32_t plain : {0u, 1u}) {
    Rig rig;
    static_cast<Machine&>(*rig.machine).engineUse = plain ? EngineUse::Never : EngineUse::AtOnce;
    rig.startup.timeout = 1;
    EXPECT_EQ(rig.run(buildShader([](Tables& tables, Code& code) {
      GetParam().write(tables, code);
      code.emit(VM_OP_RETURN);
    })),
              VM_ERR_TIMEOUT);
    EXPECT_LE(memoryOf(rig).inUse, memoryOf(rig).limit);
  }
}

constexpr int kRepeats = 400;

const LongCode kLongCodes[] = {
    {"copies",
     [](Tables&, Code& code) {
       const LocalId from = floatArray(code, "from", 16), to = floatArray(code, "to", 16);
       for (int i = 0; i < kRepeats; ++i) {
         code.load(from);
         code.store(to);
       }
     }},
    {"clones",
     [](Tables&, Code& code) {
       const LocalId array = floatArray(code, "array", 16);
       for (int i = 0; i < kRepeats; ++i) {
         code.load(array);
         code.emit(VM_OP_MAKE_UNIQUE);
         code.emit(VM_OP_POP_RELEASE);
       }
     }},
    {"comparisons",
     [](Tables&, Code& code) {
       const LocalId a = floatArray(code, "a", 16), b = floatArray(code, "b", 16);
       for (int i = 0; i < kRepeats; ++i) {
         code.load(a);
         code.load(b);
         code.emit(VM_OP_EQ_AGG);
         code.emit(VM_OP_POP);
       }
     }},
    {"storesOfParts",
     [](Tables& tables, Code& code) {
       const TypeCode array = tables.addStruct("S", {{"f", VM_TYPE_FLOAT, 4 * kMebibyte, 0}});
       const LocalId part = code.addLocal({"part", array, 0, 0});
       const LocalId all = code.addLocal({"all", array, 2, 0});
       for (int i = 0; i < kRepeats; ++i) {
         code.load(part);
         code.emit(VM_OP_STORE_LOCAL_ELEM_IMM, {all.index, 1});
       }
     }},
    {"constructors",
     [](Tables& tables, Code& code) {
       const TypeCode array = tables.addStruct("S", {{"f", VM_TYPE_FLOAT, 4 * kMebibyte, 0}});
       const LocalId part = code.addLocal({"part", array, 0, 0});
       for (int i = 0; i < kRepeats; ++i) {
         code.load(part);
         code.emit(VM_OP_CTOR_ARRAY, {array, 1});
         code.emit(VM_OP_POP_RELEASE);
       }
     }},
    {"arithmetic",
     [](Tables&, Code& code) {
       code.emit(VM_OP_PUSH_1);
       code.emit(VM_OP_CTOR_MAT4, {1});
       for (int i = 0; i < 100000; ++i) code.emit(VM_OP_COS, {16});
       code.emit(VM_OP_POP);
     }},
    {"hostCalls",
     [](Tables&, Code& code) {
       code.emit(VM_OP_PUSH_0);
       for (int i = 0; i < 20000; ++i) code.emit(VM_OP_HOST_UNARY_1, {0});
       code.emit(VM_OP_POP);
     }},
};

INSTANTIATE_TEST_SUITE_P(Codes, LongStraightCode, testing::ValuesIn(kLongCodes),
                         [](const auto& instance) { return instance.param.name; });

// Every activation of the endless recursion has an array.
BuiltShader recursing(uint32_t mebibytes) {
  return buildShader([&](Tables& tables, Code& code) {
    FunctionBuilder& f = tables.addFunction("f");
    floatArray(f, "array", mebibytes);
    f.call(f.id());
    f.emit(VM_OP_RETURN);
    code.call(f.id());
    code.emit(VM_OP_RETURN);
  });
}

TEST(MemoryLimit, EndsARunThatNeedsMore) {
  for (const uint32_t plain : {0u, 1u}) {
    Rig rig;
    static_cast<Machine&>(*rig.machine).engineUse = plain ? EngineUse::Never : EngineUse::AtOnce;
    EXPECT_EQ(memoryOf(rig).limit, uint64_t{VM_MEMORY_LIMIT});
    EXPECT_EQ(rig.run(recursing(1)), VM_ERR_OUT_OF_MEMORY);
    EXPECT_LE(memoryOf(rig).inUse, memoryOf(rig).limit);
    EXPECT_GT(memoryOf(rig).inUse, memoryOf(rig).limit / 2);
    // Blocks of another size take the place of those.
    EXPECT_EQ(rig.run(recursing(7)), VM_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(rig.machine->frameIndex, 192 / 7 + 1);
    memoryOf(rig).limit = 16 * kMebibyte;
    EXPECT_EQ(rig.run(recursing(1)), VM_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(rig.machine->frameIndex, 12);
    EXPECT_LE(memoryOf(rig).inUse, memoryOf(rig).limit);
  }
}

TEST(MemoryLimit, HoldsForFrames) {
  Rig rig;
  memoryOf(rig).limit = kMebibyte;
  EXPECT_EQ(rig.run(buildShader([](Tables&, Code& code) { code.call(code.id()); })),
            VM_ERR_OUT_OF_MEMORY);
  EXPECT_EQ(rig.machine->frameCapacity, VM_FRAME_INCREMENT * 97);
  EXPECT_LE(memoryOf(rig).inUse, kMebibyte);
}

#ifdef SHADERMACHINE_HAVE_ENGINE
TEST(Translation, KeepsWithinTheMemoryLimit) {
  for (const uint64_t limit : {uint64_t{0}, uint64_t{200} << 10}) {
    Rig rig;
    memoryOf(rig).limit = limit;
    for (int32_t number = 0; number < 8; ++number) {
      EXPECT_EQ(rig.run(buildShader([&](Tables&, Code& code) {
        code.pushInt(number);
        probe(code);
        code.emit(VM_OP_RETURN);
      })),
                VM_OK);
      EXPECT_LE(memoryOf(rig).inUse, limit);
    }
    EXPECT_EQ(memoryOf(rig).inUse != 0, limit != 0);
  }
}
#endif

TEST(MemoryLimit, LargeBlocksAreUsedAgain) {
  Rig rig;
  const BuiltShader shader = buildShader([](Tables&, Code& code) {
    const LocalId array = floatArray(code, "array", 1);
    code.pushFloat(1.0f);
    code.emit(VM_OP_STORE_LOCAL_ELEM_IMM, {array.index, 5});
    code.emit(VM_OP_PUSH_INDEX_IMM, {5});
    code.load(array);
    code.emit(VM_OP_MAKE_UNIQUE);
    code.emit(VM_OP_ARRAY_ELEMENT, {VM_TYPE_FLOAT});
    code.emit(VM_OP_POP);
    code.emit(VM_OP_PUSH_INDEX_IMM, {5});
    code.load(floatArray(code, "zeros", 1));
    code.emit(VM_OP_ARRAY_ELEMENT, {VM_TYPE_FLOAT});
    probe(code);
    code.emit(VM_OP_RETURN);
  });
  EXPECT_EQ(rig.run(shader), VM_OK);
  const int64_t before = requestedAllocations();
  const uint64_t inUse = memoryOf(rig).inUse;
  EXPECT_EQ(rig.run(shader), VM_OK);
  EXPECT_EQ(requestedAllocations(), before);
  EXPECT_EQ(memoryOf(rig).inUse, inUse);
  const HostCall& call = rig.only(kProbe);
  EXPECT_EQ(call.stack[static_cast<size_t>(call.top)].value.words[0], 0u);
}

TEST(MemoryLimit, AMachineForgetsItsShader) {
  Rig rig;
  BuiltShader shader = buildShader([](Tables& tables, Code& code) {
    tables.addGlobal({.name = "kept", .type = VM_TYPE_FLOAT, .count = 100000});
    code.emit(VM_OP_RETURN);
  });
  CompiledShader record = *shader.record();
  EXPECT_EQ(rig.run(&record), VM_OK);
  vmShaderMachineForget(rig.machine.get());
  EXPECT_EQ(rig.machine->shader, nullptr);
  EXPECT_LT(memoryOf(rig).inUse, 100000u);
  // Another record at the address.
  shader = buildShader([](Tables& tables, Code& code) {
    tables.addGlobal({.name = "other", .type = VM_TYPE_VEC4});
    code.load(tables.addGlobal({.name = "more", .type = VM_TYPE_INT, .count = 3}));
    code.emit(VM_OP_POP_RELEASE);
    code.emit(VM_OP_RETURN);
  });
  record = *shader.record();
  EXPECT_EQ(rig.run(&record), VM_OK);
}

}  // namespace
}  // namespace shadermachine::tests
