// Concern: what each instruction needs on the stack and leaves there. One function per handler that
// the opcode table names, under the handler's own name, and one per shape of its kernels.
#pragma once

#include "step.h"

namespace shadermachine::tools::effects {

// effects_stack.cpp: variables, constants, references
void nop(Step& step);
void loadLocal(Step& step);
void loadGlobal(Step& step);
void loadLocalComponent(Step& step);
void loadBuiltin(Step& step);
void storeLocal(Step& step);
void storeLocalKeep(Step& step);
void storeGlobal(Step& step);
void pop(Step& step);
void popN(Step& step);
void popReleaseTop(Step& step);
void pushEmpty(Step& step);
void pushU8(Step& step);
void pushU32(Step& step);
void pushZero4(Step& step);
void pushOne4F(Step& step);
void push1F(Step& step);
void dup(Step& step);
void swapTop(Step& step);
void makeUnique(Step& step);
void pushIndex(Step& step);
void pushIndexImm(Step& step);

template <int32_t value>
void pushInteger(Step& step) {
  step.push(constantSlot(value));
}

// effects_calls.cpp: control flow, calls, the host
void call(Step& step);
void callBuiltin(Step& step);
void jump(Step& step);
void jumpIfFalse(Step& step);
void returnVoid(Step& step);
void returnValue(Step& step);
void discard(Step& step);
void halt(Step& step);
void reserved(Step& step);
void reservedSkip1(Step& step);
void reservedSkip2(Step& step);
void callHostUnary(Step& step);
void callHostLookup(Step& step);

template <uint32_t which>
void hostUnary(Step& step) {
  callHostUnary(step);
}

template <uint32_t which>
void hostLookup(Step& step) {
  callHostLookup(step);
}

// effects_aggregates.cpp: structures and arrays
void constructStruct(Step& step);
void constructArray(Step& step);
void equalAggregates(Step& step);
void notEqualAggregates(Step& step);
void structField(Step& step);
void arrayElement(Step& step);
void storeLocalElem(Step& step);
void storeLocalElemImm(Step& step);
void storeGlobalElem(Step& step);
void storeGlobalElemImm(Step& step);

// effects_inline.cpp: scalars, vectors and matrices
// All that operand_shapes.h describes.
void shaped(Step& step);
inline constexpr auto& unary = shaped;
inline constexpr auto& scalarUnary = shaped;
inline constexpr auto& binary = shaped;
inline constexpr auto& binaryVS = shaped;
inline constexpr auto& binarySV = shaped;
inline constexpr auto& scalarBinary = shaped;
inline constexpr auto& allOf = shaped;
inline constexpr auto& anyOf = shaped;
inline constexpr auto& ternary = shaped;
inline constexpr auto& ternaryVSS = shaped;
inline constexpr auto& ternaryVVS = shaped;
inline constexpr auto& ternarySSV = shaped;
inline constexpr auto& multiplyMatMat = shaped;
inline constexpr auto& multiplyVecMat = shaped;
inline constexpr auto& multiplyMatVec = shaped;
inline constexpr auto& length = shaped;
inline constexpr auto& distance = shaped;
inline constexpr auto& dot = shaped;
inline constexpr auto& cross = shaped;
inline constexpr auto& normalize = shaped;
inline constexpr auto& faceforward = shaped;
inline constexpr auto& reflect = shaped;
inline constexpr auto& refract = shaped;
template <uint32_t>
inline constexpr auto& noiseInstruction = shaped;

void anyTrue(Step& step);
void allTrue(Step& step);
void swizzle(Step& step);
void vectorElement(Step& step);
void matrixColumn(Step& step);
void constructVectorOf(Step& step, uint32_t components);
void constructMatrixOf(Step& step, uint32_t dimension);

template <uint32_t components>
void constructVector(Step& step) {
  constructVectorOf(step, components);
}

template <uint32_t dimension>
void constructMatrix(Step& step) {
  constructMatrixOf(step, dimension);
}

}  // namespace shadermachine::tools::effects
