//
// glslang's tree, its helpers, and what all files of the compiler ask about it.
//
// Nodes are told apart with their getAs...() functions only: glslang is built without RTTI. All
// functions here recurse; Program::parse() has refused trees deeper than kMaxTreeDepth before any
// other is called, and deeperThan() itself goes no deeper than its limit.
#pragma once

#include <glslang/Include/intermediate.h>
#include <glslang/MachineIndependent/localintermediate.h>
#include <glslang/Public/ShaderLang.h>

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace shadermachine::tools::glsl {

using glslang::TIntermAggregate;
using glslang::TIntermBinary;
using glslang::TIntermBranch;
using glslang::TIntermConstantUnion;
using glslang::TIntermLoop;
using glslang::TIntermOperator;
using glslang::TIntermSelection;
using glslang::TIntermSwitch;
using glslang::TIntermSymbol;
using glslang::TIntermTyped;
using glslang::TIntermUnary;
using glslang::TOperator;
using glslang::TSourceLoc;
using glslang::TType;
using SymbolId = long long;

void forEachChild(const TIntermNode& node, const std::function<void(const TIntermNode&)>& visit);

// Visits the node and everything below it, parents first.
void visitTree(const TIntermNode& node, const std::function<void(const TIntermNode&)>& visit);

// Whether the test holds for the node or anything below it.
bool anyNode(const TIntermNode& node, const std::function<bool(const TIntermNode&)>& test);

unsigned treeSize(const TIntermNode& node);

// How deeply the trees that the compiler goes through may be nested, since it does so by recursion.
inline constexpr unsigned kMaxTreeDepth = 1500;

// The first node that is nested deeper than the limit; null when there is none.
const TIntermNode* deeperThan(const TIntermNode& node, unsigned limit);

bool isAssignment(TOperator op);
bool isIncrement(TOperator op);
// Between types of numbers and booleans; which, the types of operand and result say.
bool isConversion(TOperator op);

// The variable that an l-value or an access chain starts at; null for values that are no variables.
const TIntermSymbol* rootSymbol(const TIntermNode& node);

// Whether evaluating may change a variable, or end the run (an index out of range does).
bool hasEffects(const TIntermNode& node);
bool writesVariables(const TIntermNode& node);

// Whether control never comes out at the end of the statement.
bool alwaysLeaves(const TIntermNode& node);

// Written arguments of a call: out and inout parameters, also of built-in functions.
bool isOutputArgument(const TIntermAggregate& call, size_t index);

inline bool isUserCall(const TIntermNode& node) {
  const TIntermAggregate* call = node.getAsAggregate();
  return call != nullptr && call->getOp() == glslang::EOpFunctionCall;
}

inline std::span<TIntermNode* const> children(const TIntermAggregate& node) {
  return {node.getSequence().data(), node.getSequence().size()};
}

std::vector<const TIntermTyped*> typedChildren(const TIntermAggregate& node);

}  // namespace shadermachine::tools::glsl
