// Texture functions: look-ups that the host answers.
#include <shadermachine-tools/host_contract.h>

#include "function_generator.h"
#include "host_ids.h"

namespace shadermachine::tools::glsl {
namespace {

const TIntermTyped& argumentOf(const TIntermAggregate& node, size_t index) {
  return *node.getSequence()[index]->getAsTyped();
}

int64_t lookupForm(unsigned operands, unsigned kind) { return operands << 5 | kind << 2; }

}  // namespace

void FunctionGenerator::textureCall(const TIntermAggregate& node) {
  const TIntermTyped& sampler = argumentOf(node, 0);
  valueType(sampler);  // refuses kinds of samplers that no host serves
  const unsigned kind = *lookupKind(sampler.getType().getSampler());
  const size_t count = node.getSequence().size();
  switch (node.getOp()) {
    case glslang::EOpTexture:
    case glslang::EOpTextureLod:
    case glslang::EOpTextureProj:
    case glslang::EOpTextureProjLod:
      break;
    // Textures have no smaller levels that gradients could choose.
    case glslang::EOpTextureGrad:
    case glslang::EOpTextureProjGrad:
      break;
    case glslang::EOpTextureFetch:
      return texelFetch(node);
    case glslang::EOpTextureQuerySize:
      return textureSize(node);
    default:
      throw Unsupported(node.getLoc(), "this texture function is not supported");
  }
  glslang::TCrackedTextureOp cracked;
  node.crackTexture(sampler.getType().getSampler(), cracked);
  value(sampler);
  textureCoordinates(argumentOf(node, 1), kLookupKinds[kind].coordinates, cracked.proj,
                     node.getLoc());
  const bool hasExtra = count > 2 && !cracked.grad;
  if (hasExtra) value(argumentOf(node, 2));
  code_.emit(cracked.lod ? VM_OP_HOST_LOOKUP_2 : VM_OP_HOST_LOOKUP_1,
             {lookupForm(hasExtra ? 3 : 2, kind)});
}

void FunctionGenerator::textureCoordinates(const TIntermTyped& coordinates, unsigned needed,
                                           bool isProjective, const TSourceLoc& where) {
  const Shape shape = shapeOf(coordinates);
  if (shape.components < needed) throw Unsupported(where, "this texture function is not supported");
  value(coordinates);
  if (!isProjective) return;
  const unsigned last = shape.components - 1;
  code_.emit(VM_OP_DUP);
  swizzle({&last, 1}, shape.components);
  emitCounted(VM_OP_DIV_VS_F, needed);
}

void FunctionGenerator::texelFetch(const TIntermAggregate& node) {
  const TIntermTyped& position = argumentOf(node, 1);
  if (shapeOf(position).components != 2) {
    throw Unsupported(node.getLoc(), "texels are fetched from 2D textures only");
  }
  value(argumentOf(node, 0));
  converted(position, Scalar::Int, Scalar::Float);
  level(node, 2);
  code_.emit(VM_OP_CTOR_VEC3_A, {2, 1});
  code_.emit(VM_OP_HOST_LOOKUP_2, {lookupForm(2, kTexelKind)});
}

void FunctionGenerator::textureSize(const TIntermAggregate& node) {
  value(argumentOf(node, 0));
  code_.pushFloat(0);
  code_.pushFloat(0);
  level(node, 1);
  code_.emit(VM_OP_CTOR_VEC3_A, {1, 1, 1});
  code_.emit(VM_OP_HOST_LOOKUP_1, {lookupForm(2, kTexelKind)});
  emitCounted(VM_OP_FLOAT_TO_INT, shapeOf(node).components);
}

// The level of a texture that an argument names, as a float; 0 without one.
void FunctionGenerator::level(const TIntermAggregate& node, size_t index) {
  if (node.getSequence().size() <= index) return code_.pushFloat(0);
  converted(argumentOf(node, index), Scalar::Int, Scalar::Float);
}

}  // namespace shadermachine::tools::glsl
