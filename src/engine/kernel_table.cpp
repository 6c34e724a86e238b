#include "engine/kernel_table.h"

#include "engine/kernel_steps.h"
#include "instructions/opcode_info.h"

namespace shadermachine::engine {
namespace {

// Operations whose own cost hides where their operands come from.
template <class K>
consteval bool isCheap() {
  return HasVectorForm<K, FloatVector>;
}

// Three components share the handlers of four where every lane is computed anyway.
template <class K, uint32_t n>
consteval uint32_t sharedCount() {
  return n == 3 && HasVectorForm<K, FloatVector> ? 4 : n;
}

template <class K>
consteval KernelForms describe(uint8_t operands, uint8_t scalars) {
  KernelForms forms = {};
  forms.operands = operands;
  forms.scalarOperands = scalars;
  forms.argument = registerOf<typename K::Argument>();
  forms.result = registerOf<typename K::Result>();
  forms.hasAllForms = isCheap<K>();
  return forms;
}

template <class K, uint32_t n, unsigned form>
consteval void addUnary(KernelForms& forms) {
  constexpr uint32_t m = sharedCount<K, n>();
  forms.steps[n - 1][form][0] = &unaryStep<K, m, form, false>;
  forms.steps[n - 1][form][1] = &unaryStep<K, m, form, true>;
}

template <class K, uint32_t n>
consteval void addUnaryForms(KernelForms& forms) {
  addUnary<K, n, 0>(forms);
  if constexpr (isCheap<K>()) addUnary<K, n, 1>(forms);
}

template <class K>
consteval KernelForms unary() {
  KernelForms forms = describe<K>(1, 0);
  addUnaryForms<K, 1>(forms);
  addUnaryForms<K, 2>(forms);
  addUnaryForms<K, 3>(forms);
  addUnaryForms<K, 4>(forms);
  return forms;
}

template <class K>
consteval KernelForms scalarUnary() {
  KernelForms forms = describe<K>(1, 0);
  addUnaryForms<K, 1>(forms);
  return forms;
}

template <class K, uint32_t n, unsigned scalars, unsigned form>
consteval void addBinary(KernelForms& forms) {
  constexpr uint32_t m = sharedCount<K, n>();
  forms.steps[n - 1][form][0] = &binaryStep<K, m, scalars, form, false>;
  forms.steps[n - 1][form][1] = &binaryStep<K, m, scalars, form, true>;
}

template <class K, uint32_t n, unsigned scalars>
consteval void addBinaryForms(KernelForms& forms) {
  addBinary<K, n, scalars, 0>(forms);
  if constexpr (isCheap<K>()) {
    addBinary<K, n, scalars, 1>(forms);
    addBinary<K, n, scalars, 2>(forms);
    addBinary<K, n, scalars, 3>(forms);
  }
}

template <class K, unsigned scalars>
consteval KernelForms binaryOf() {
  KernelForms forms = describe<K>(2, scalars);
  addBinaryForms<K, 1, scalars>(forms);
  addBinaryForms<K, 2, scalars>(forms);
  addBinaryForms<K, 3, scalars>(forms);
  addBinaryForms<K, 4, scalars>(forms);
  return forms;
}

template <class K>
consteval void addBranches(KernelForms& forms) {
  forms.branches[0] = &compareAndBranch<K, 0>;
  forms.branches[1] = &compareAndBranch<K, 1>;
  forms.branches[2] = &compareAndBranch<K, 2>;
  forms.branches[3] = &compareAndBranch<K, 3>;
  forms.loops[0] = &compareAndLoop<K, 0>;
  forms.loops[1] = &compareAndLoop<K, 1>;
  forms.loops[2] = &compareAndLoop<K, 2>;
  forms.loops[3] = &compareAndLoop<K, 3>;
  forms.jumpsAndTests = &jumpAndTest<K>;
  forms.countsAndTests = &countAndTest<K>;
  forms.countsAndLoops = &countAndLoop<K>;
}

template <class K>
consteval KernelForms scalarBinary() {
  KernelForms forms = describe<K>(2, 0);
  addBinaryForms<K, 1, 0>(forms);
  addBranches<K>(forms);
  return forms;
}

consteval KernelForms shiftOnly() {
  KernelForms forms = describe<DivByPowerI>(2, 0);
  addBinaryForms<DivByPowerI, 1, 0>(forms);
  return forms;
}

template <class K, uint32_t n, unsigned scalars, unsigned form>
consteval void addTernary(KernelForms& forms) {
  constexpr uint32_t m = sharedCount<K, n>();
  forms.steps[n - 1][form][0] = &ternaryStep<K, m, scalars, form, false>;
  forms.steps[n - 1][form][1] = &ternaryStep<K, m, scalars, form, true>;
}

template <class K, uint32_t n, unsigned scalars>
consteval void addTernaryForms(KernelForms& forms) {
  addTernary<K, n, scalars, 0>(forms);
  if constexpr (isCheap<K>()) {
    addTernary<K, n, scalars, 1>(forms);
    addTernary<K, n, scalars, 2>(forms);
    addTernary<K, n, scalars, 3>(forms);
  }
}

template <class K, unsigned scalars>
consteval KernelForms ternaryOf() {
  KernelForms forms = describe<K>(3, scalars);
  addTernaryForms<K, 1, scalars>(forms);
  addTernaryForms<K, 2, scalars>(forms);
  addTernaryForms<K, 3, scalars>(forms);
  addTernaryForms<K, 4, scalars>(forms);
  return forms;
}

template <class K, uint32_t wanted, uint32_t n, unsigned form>
consteval void addFind(KernelForms& forms) {
  forms.steps[n - 1][form][0] = &findStep<K, wanted, n, form, false>;
  forms.steps[n - 1][form][1] = &findStep<K, wanted, n, form, true>;
}

template <class K, uint32_t wanted, uint32_t n>
consteval void addFindForms(KernelForms& forms) {
  addFind<K, wanted, n, 0>(forms);
  addFind<K, wanted, n, 1>(forms);
  addFind<K, wanted, n, 2>(forms);
  addFind<K, wanted, n, 3>(forms);
}

template <class K, uint32_t wanted>
consteval KernelForms find() {
  KernelForms forms = describe<K>(2, 0);
  forms.singleWord = true;
  forms.hasAllForms = true;
  // Of one component, the comparison itself.
  addBinaryForms<K, 1, 0>(forms);
  addBranches<K>(forms);
  addFindForms<K, wanted, 2>(forms);
  addFindForms<K, wanted, 3>(forms);
  addFindForms<K, wanted, 4>(forms);
  return forms;
}

// The shapes of the opcode table.
template <class K>
consteval KernelForms binary() {
  return binaryOf<K, 0>();
}
template <class K>
consteval KernelForms binaryVS() {
  return binaryOf<K, 2>();
}
template <class K>
consteval KernelForms binarySV() {
  return binaryOf<K, 1>();
}
template <class K>
consteval KernelForms ternary() {
  return ternaryOf<K, 0>();
}
template <class K>
consteval KernelForms ternaryVSS() {
  return ternaryOf<K, 6>();
}
template <class K>
consteval KernelForms ternaryVVS() {
  return ternaryOf<K, 4>();
}
template <class K>
consteval KernelForms ternarySSV() {
  return ternaryOf<K, 3>();
}
template <class K>
consteval KernelForms allOf() {
  return find<K, 0>();
}
template <class K>
consteval KernelForms anyOf() {
  return find<K, 1>();
}

constexpr KernelForms kKernelForms[] = {
#define HANDLER(...) \
  KernelForms {}
#define KERNEL(shape, kernel) shape<kernel>()
#define OPCODE(number, mnemonic, handler, ...) handler,
#include "instructions/opcodes.def"
#undef OPCODE
#undef KERNEL
#undef HANDLER
};
static_assert(std::size(kKernelForms) == kOpcodeCount);

constexpr KernelForms kScaleForms = binaryVS<MulF>();
constexpr KernelForms kShiftForms = shiftOnly();

}  // namespace

const KernelForms& kernelForms(unsigned operation) {
  if (operation < kOpcodeCount) return kKernelForms[operation];
  return operation == kScaleOperation ? kScaleForms : kShiftForms;
}

}  // namespace shadermachine::engine
