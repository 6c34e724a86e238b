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
void unary(Step& step);
void scalarUnary(Step& step);
void binary(Step& step);
void binaryVS(Step& step);
void binarySV(Step& step);
void scalarBinary(Step& step);
void allOf(Step& step);
void anyOf(Step& step);
void ternary(Step& step);
void ternaryVSS(Step& step);
void ternaryVVS(Step& step);
void ternarySSV(Step& step);
void multiplyMatMat(Step& step);
void multiplyVecMat(Step& step);
void multiplyMatVec(Step& step);
void anyTrue(Step& step);
void allTrue(Step& step);
void swizzle(Step& step);
void vectorElement(Step& step);
void matrixColumn(Step& step);
void length(Step& step);
void distance(Step& step);
void dot(Step& step);
void cross(Step& step);
void normalize(Step& step);
void faceforward(Step& step);
void reflect(Step& step);
void refract(Step& step);
void writeNoise(Step& step, uint32_t results);
void constructVectorOf(Step& step, uint32_t components);
void constructMatrixOf(Step& step, uint32_t dimension);

template <uint32_t results>
void noiseInstruction(Step& step) {
  writeNoise(step, results);
}

template <uint32_t components>
void constructVector(Step& step) {
  constructVectorOf(step, components);
}

template <uint32_t dimension>
void constructMatrix(Step& step) {
  constructMatrixOf(step, dimension);
}

}  // namespace shadermachine::tools::effects
