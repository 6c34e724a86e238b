// Functions that the host serves: what each callback is given and where results land.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <tuple>

#include "support/program.h"

namespace shadermachine::tests {
namespace {

using Fields = std::vector<uint64_t>;

// Runs one instruction on five inputs of filler words; Sk is input 4 - k.
struct HostRun {
  explicit HostRun(std::initializer_list<unsigned> nullSlots = {}) : rig(nullSlots) {
    rig.inputs.resize(5);
  }

  VmError run(VmOpcode opcode, int64_t operand) {
    return rig.run(buildShader([&](ShaderBuilder& shader, FunctionBuilder& code) {
      for (int i = 0; i < 5; ++i) code.load(addInput(shader));
      code.emit(opcode, {operand});
      probe(code);
      code.emit(VM_OP_RETURN);
    }));
  }

  uint64_t area(int k) const { return address(rig.machine->stack[9 - k].value.words); }
  static uint32_t word(int k, size_t component = 0) {
    return fillerWord(static_cast<size_t>(4 - k), component);
  }
  uint64_t userData() const { return rig.startup.userData; }
  // Slots that the instruction dropped.
  int32_t dropped() const { return 4 - rig.calls.back().top; }
  const InlineValue& top() const { return rig.calls.back().stack.back().value; }

  Rig rig;
};

TEST(Host, UnaryTransformsTheTopInPlace) {
  for (unsigned which = 0; which < 3; ++which) {
    HostRun host;
    const auto opcode = static_cast<VmOpcode>(VM_OP_HOST_UNARY_1 + which);
    host.rig.reply = [](const HostCall& call, void* data) {
      if (call.slot >= kProbe && call.slot < kProbe + 3) ++*static_cast<uint32_t*>(data);
    };
    EXPECT_EQ(host.run(opcode, 0xFF), VM_OK);
    const HostCall& call = host.rig.calls[5];
    EXPECT_EQ(call.slot, kProbe + which);
    EXPECT_EQ(call.fields, (Fields{host.area(0), 1, UINT64_MAX, host.userData()}));
    EXPECT_EQ(host.top().words[0], HostRun::word(0) + 1);
    EXPECT_EQ(host.dropped(), 0);
  }
}

TEST(Host, UnaryWithoutCallback) {
  HostRun host({kProbe + 1});
  EXPECT_EQ(host.run(VM_OP_HOST_UNARY_2, 0), VM_OK);
  EXPECT_EQ(host.top().words[0], HostRun::word(0));
}

uint64_t samplerAt(int k) { return HostRun::word(k) | uint64_t{HostRun::word(k, 1)} << 32; }

TEST(Host, LookUps) {
  for (const auto& [opcode, slot, param] :
       {std::tuple{VM_OP_HOST_LOOKUP_1, kLookup1, 16}, {VM_OP_HOST_LOOKUP_2, kLookup2, 0}}) {
    HostRun host;
    host.rig.reply = [slot = slot](const HostCall& call, void* result) {
      if (call.slot == slot) std::fill_n(static_cast<uint32_t*>(result), 4, 0xC0FFEEu);
    };
    const auto paramField = static_cast<uint64_t>(param);
    EXPECT_EQ(host.run(opcode, 0x48), VM_OK);
    EXPECT_EQ(host.rig.only(slot).fields, (Fields{host.area(1), samplerAt(1), host.area(0), 2,
                                                  paramField, 0, 0, host.userData()}));
    EXPECT_EQ(host.dropped(), 1);
    EXPECT_EQ(host.top().words[3], 0xC0FFEEu);

    EXPECT_EQ(host.run(opcode, 0xFF), VM_OK);
    EXPECT_EQ(host.rig.only(slot).fields,
              (Fields{host.area(2), samplerAt(2), host.area(1), 7, paramField, HostRun::word(0), 1,
                      host.userData()}));
    EXPECT_EQ(host.dropped(), 2);

    for (int64_t form : {0x00, 0x3F}) {
      EXPECT_EQ(host.run(opcode, form), VM_OK);
      EXPECT_EQ(host.rig.count(slot), 0u);
      EXPECT_EQ(host.dropped(), 0);
    }

    HostRun without({slot});
    EXPECT_EQ(without.run(opcode, 0x48), VM_OK);
    EXPECT_EQ(without.dropped(), 1);
    EXPECT_EQ(without.top().words[0], HostRun::word(1));
  }
}

struct BuiltinFunction {
  int64_t id;
  unsigned slot;
  int32_t pops;
};
constexpr BuiltinFunction kServed[] = {
    {267, kCall267, 4},     {275, kOverrideA, 1}, {276, kOverrideB, 1}, {277, kLookup1, 1},
    {278, kOverrideA, 2},   {293, kCall293, 2},   {294, kCall294, 3},   {295, kCall294 + 1, 3},
    {296, kCall294 + 2, 3}, {297, kCall297, 4},   {298, kCall298, 3}};

TEST(Host, BuiltinFunctionsPopWithAndWithoutCallback) {
  for (const BuiltinFunction& function : kServed) {
    SCOPED_TRACE(function.id);
    HostRun host, without({function.slot});
    EXPECT_EQ(host.run(VM_OP_CALL_BUILTIN, function.id), VM_OK);
    EXPECT_EQ(host.rig.count(function.slot), 1u);
    EXPECT_EQ(host.dropped(), function.pops);
    EXPECT_EQ(without.run(VM_OP_CALL_BUILTIN, function.id), VM_OK);
    EXPECT_EQ(without.dropped(), function.pops);
    EXPECT_EQ(without.top().words[0], HostRun::word(function.pops)) << "keeps what it held";
  }
}

TEST(Host, OtherBuiltinFunctionsAreNotImplemented) {
  for (int64_t id = 260; id <= 310; ++id) {
    if (std::ranges::find(kServed, id, &BuiltinFunction::id) != std::end(kServed)) continue;
    HostRun host;
    EXPECT_EQ(host.run(VM_OP_CALL_BUILTIN, id), VM_ERR_NOT_IMPLEMENTED) << id;
  }
}

TEST(Host, BuiltinFunctionsWithPlainRecords) {
  const auto fieldsOf = [](HostRun& host, int64_t id, unsigned slot) {
    EXPECT_EQ(host.run(VM_OP_CALL_BUILTIN, id), VM_OK);
    return host.rig.only(slot).fields;
  };
  HostRun h;
  EXPECT_EQ(fieldsOf(h, 267, kCall267),
            (Fields{h.area(2), h.area(1), HostRun::word(3), 0, h.userData()}));
  EXPECT_EQ(fieldsOf(h, 293, kCall293), (Fields{h.area(1), h.area(0), h.userData()}));
  EXPECT_EQ(fieldsOf(h, 298, kCall298), (Fields{h.area(1), h.area(0), h.userData()}));
  for (unsigned k = 0; k < 3; ++k) {
    EXPECT_EQ(fieldsOf(h, 294 + k, kCall294 + k),
              (Fields{h.area(3), h.area(2), HostRun::word(1), HostRun::word(0), h.userData()}));
  }
  EXPECT_EQ(fieldsOf(h, 297, kCall297), (Fields{h.area(4), h.area(3), HostRun::word(2),
                                                HostRun::word(1), HostRun::word(0), h.userData()}));
}

using Scratch = std::array<uint32_t, 64>;

// What the host is told of the structure that a built-in function stands for.
Scratch scratchRecord(const HostCall& call) {
  const size_t field = call.slot == kOverrideA ? 2 : 0;
  Scratch scratch;
  std::memcpy(scratch.data(), reinterpret_cast<const void*>(call.fields[field]), sizeof scratch);
  return scratch;
}

void putPoint(Scratch& scratch, int k) {
  for (size_t i = 0; i < 3; ++i) scratch[30 + i] = HostRun::word(k, i);
}

TEST(Host, BuiltinFunctionsWithScratchRecord) {
  Scratch seen = {};
  HostRun host;
  host.rig.reply = [&](const HostCall& call, void* target) {
    if (call.slot != kOverrideA && call.slot != kOverrideB) return;
    seen = scratchRecord(call);
    if (call.slot == kOverrideB) std::fill_n(static_cast<uint32_t*>(target), 3, 0xBEEFu);
  };

  Scratch expected = {};
  expected[22] = 1069044204;
  putPoint(expected, 0);
  EXPECT_EQ(host.run(VM_OP_CALL_BUILTIN, 275), VM_OK);
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(host.rig.only(kOverrideA).fields[0], HostRun::word(1));
  EXPECT_EQ(host.rig.only(kOverrideA).fields[1], host.area(1));

  expected = {};
  expected[22] = HostRun::word(0);
  putPoint(expected, 1);
  EXPECT_EQ(host.run(VM_OP_CALL_BUILTIN, 278), VM_OK);
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(host.rig.only(kOverrideA).fields[0], HostRun::word(2));
  EXPECT_EQ(host.rig.only(kOverrideA).fields[1], host.area(2));

  expected = {};
  expected[53] = HostRun::word(0);
  putPoint(expected, 1);
  EXPECT_EQ(host.run(VM_OP_CALL_BUILTIN, 276), VM_OK);
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(host.rig.only(kOverrideB).fields[1], 1u);
  EXPECT_EQ(host.top().words[2], 0xBEEFu);
  EXPECT_EQ(host.top().words[3], HostRun::word(1, 3)) << "exactly three components";
}

TEST(Host, BuiltinFunction277ConvertsItsCoordinate) {
  HostRun host;
  host.rig.inputs[3] = ints({-2});
  std::array<float, 3> coords = {9, 9, 9};
  host.rig.reply = [&](const HostCall& call, void*) {
    if (call.slot != kLookup1) return;
    std::memcpy(coords.data(), reinterpret_cast<const void*>(call.fields[2]), sizeof coords);
  };
  EXPECT_EQ(host.run(VM_OP_CALL_BUILTIN, 277), VM_OK);
  Fields fields = host.rig.only(kLookup1).fields;
  fields[2] = 0;
  EXPECT_EQ(fields, (Fields{host.area(1), 0, 0, 3, HostRun::word(0), 0, 0, host.userData()}));
  EXPECT_EQ(coords, (std::array<float, 3>{0, 0, -2}));
}

}  // namespace

std::vector<Program> hostPrograms() {
  std::vector<Program> programs;
  for (VmOpcode opcode : {VM_OP_HOST_UNARY_2, VM_OP_HOST_UNARY_3}) {
    programs.push_back(onInputs(opcode, {0}, {{1}}, {1}));
  }
  programs.push_back(giving(
      VM_OP_HOST_UNARY_1, "the probe itself", [](ShaderBuilder&, FunctionBuilder&) {}, {}, 0));
  programs.push_back(onInputs(VM_OP_HOST_LOOKUP_1, {0x40}, {{1, 2}, {3}}, {1, 2}));
  programs.push_back(onInputs(VM_OP_HOST_LOOKUP_2, {0x60}, {{1, 2}, {3}, {4}}, {1, 2}));
  programs.push_back(onInputs(VM_OP_CALL_BUILTIN, {298}, {{1}, {2}, {3}, {4}}, {1}));
  programs.push_back(giving(VM_OP_CALL_BUILTIN, "267 releases its block",
                            [](ShaderBuilder&, FunctionBuilder& code) {
                              for (int i = 0; i < 5; ++i) code.pushInt(i);
                              code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_INT, 1});
                              code.emit(VM_OP_CALL_BUILTIN, {267});
                            },
                            {0}));
  return programs;
}

}  // namespace shadermachine::tests
