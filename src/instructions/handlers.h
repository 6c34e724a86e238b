// The instruction handlers that the opcode table names, by family. Each takes the machine only, and
// leaves pc past its operands.
#pragma once

#include "machine/machine.h"

namespace shadermachine {

// stack.cpp
void nop(Machine& machine);
void loadLocal(Machine& machine);
void loadGlobal(Machine& machine);
void loadLocalComponent(Machine& machine);
void storeLocal(Machine& machine);
void storeLocalKeep(Machine& machine);
void storeGlobal(Machine& machine);
void pop(Machine& machine);
void popN(Machine& machine);
void popReleaseTop(Machine& machine);
void pushEmpty(Machine& machine);
void pushU8(Machine& machine);
void pushU32(Machine& machine);
void pushZero4(Machine& machine);
void pushOne4F(Machine& machine);
void push1F(Machine& machine);
void pushWord(Machine& machine, uint32_t word);
void dup(Machine& machine);
void swapTop(Machine& machine);
void makeUnique(Machine& machine);
void pushIndex(Machine& machine);
void pushIndexImm(Machine& machine);

template <uint32_t value>
void pushInteger(Machine& machine) {
  pushWord(machine, value);
}

// control_flow.cpp
void call(Machine& machine);
void jump(Machine& machine);
void jumpIfFalse(Machine& machine);
void returnVoid(Machine& machine);
void returnValue(Machine& machine);
void discard(Machine& machine);
void halt(Machine& machine);
void reserved(Machine& machine);
void reservedSkip1(Machine& machine);
void reservedSkip2(Machine& machine);
void illegalInstruction(Machine& machine);

// builtin_variables.cpp
void loadBuiltin(Machine& machine);

// element_stores.cpp
void storeLocalElem(Machine& machine);
void storeLocalElemImm(Machine& machine);
void storeGlobalElem(Machine& machine);
void storeGlobalElemImm(Machine& machine);

// constructors.cpp
void constructVectorOf(Machine& machine, uint32_t components);
void constructMatrixOf(Machine& machine, uint32_t dimension);

template <uint32_t components>
void constructVector(Machine& machine) {
  constructVectorOf(machine, components);
}

template <uint32_t dimension>
void constructMatrix(Machine& machine) {
  constructMatrixOf(machine, dimension);
}

// aggregate_constructors.cpp
void constructStruct(Machine& machine);
void constructArray(Machine& machine);

// products.cpp
void multiplyMatMat(Machine& machine);
void multiplyVecMat(Machine& machine);
void multiplyMatVec(Machine& machine);

// reductions.cpp
void equalAggregates(Machine& machine);
void notEqualAggregates(Machine& machine);
void anyTrue(Machine& machine);
void allTrue(Machine& machine);

// element_reads.cpp
void swizzle(Machine& machine);
void structField(Machine& machine);
void vectorElement(Machine& machine);
void matrixColumn(Machine& machine);
void arrayElement(Machine& machine);

// geometric.cpp
void length(Machine& machine);
void distance(Machine& machine);
void dot(Machine& machine);
void cross(Machine& machine);
void normalize(Machine& machine);
void faceforward(Machine& machine);
void reflect(Machine& machine);
void refract(Machine& machine);

// noise_instructions.cpp
void writeNoise(Machine& machine, uint32_t results);

template <uint32_t results>
void noiseInstruction(Machine& machine) {
  writeNoise(machine, results);
}

// host_functions.cpp
void callBuiltin(Machine& machine);
void callHostUnary(Machine& machine, uint32_t which);
void callHostLookup(Machine& machine, uint32_t which);

template <uint32_t which>
void hostUnary(Machine& machine) {
  callHostUnary(machine, which);
}

template <uint32_t which>
void hostLookup(Machine& machine) {
  callHostLookup(machine, which);
}

}  // namespace shadermachine
