// Texture functions: look-ups that the host answers.
#include <shadermachine-tools/host_contract.h>

#include "function_generator.h"

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
  switch (node.getOp()) {
    case glslang::EOpTexture:
    case glslang::EOpTextureLod:
    case glslang::EOpTextureProj:
    case glslang::EOpTextureProjLod:
    case glslang::EOpTextureOffset:
    case glslang::EOpTextureLodOffset:
    case glslang::EOpTextureProjOffset:
    case glslang::EOpTextureProjLodOffset:
      break;
    // Textures have no smaller levels that gradients could choose.
    case glslang::EOpTextureGrad:
    case glslang::EOpTextureGradOffset:
    case glslang::EOpTextureProjGrad:
    case glslang::EOpTextureProjGradOffset:
      break;
    case glslang::EOpTextureFetch:
    case glslang::EOpTextureFetchOffset:
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
  // After the coordinates: a level or two gradients, an offset, a bias.
  size_t next = 2;
  const size_t levelIndex = cracked.lod ? next++ : 0;
  if (cracked.grad) next += 2;
  if (cracked.offset) addOffset(sampler, argumentOf(node, next++));
  const size_t extra = cracked.lod ? levelIndex : next;
  const bool hasExtra = extra < node.getSequence().size();
  if (hasExtra) value(argumentOf(node, extra));
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

// Adds an offset in texels to the coordinates on the stack.
void FunctionGenerator::addOffset(const TIntermTyped& sampler, const TIntermTyped& offset) {
  if (sampler.getType().getSampler().dim != glslang::Esd2D) {
    throw Unsupported(offset.getLoc(), "offsets are supported in 2D textures only");
  }
  converted(offset, Scalar::Int, Scalar::Float);
  value(sampler);
  code_.pushFloat(0);
  emitSize();
  emitCounted(VM_OP_DIV_F, 2);
  emitCounted(VM_OP_ADD_F, 2);
}

// The size of a sampler's texture at a level, both on the stack.
void FunctionGenerator::emitSize() {
  code_.emit(VM_OP_CTOR_VEC3_A, {1});
  code_.emit(VM_OP_HOST_LOOKUP_1, {lookupForm(2, kTexelKind)});
}

void FunctionGenerator::texelFetch(const TIntermAggregate& node) {
  const TIntermTyped& position = argumentOf(node, 1);
  if (shapeOf(position).components != 2) {
    throw Unsupported(node.getLoc(), "texels are fetched from 2D textures only");
  }
  value(argumentOf(node, 0));
  converted(position, Scalar::Int, Scalar::Float);
  if (node.getOp() == glslang::EOpTextureFetchOffset) {
    converted(argumentOf(node, 3), Scalar::Int, Scalar::Float);
    emitCounted(VM_OP_ADD_F, 2);
  }
  level(node, 2);
  code_.emit(VM_OP_CTOR_VEC3_A, {2, 1});
  code_.emit(VM_OP_HOST_LOOKUP_2, {lookupForm(2, kTexelKind)});
}

void FunctionGenerator::textureSize(const TIntermAggregate& node) {
  value(argumentOf(node, 0));
  level(node, 1);
  emitSize();
  emitCounted(VM_OP_FLOAT_TO_INT, shapeOf(node).components);
}

// The level of a texture that an argument names, as a float; 0 without one.
void FunctionGenerator::level(const TIntermAggregate& node, size_t index) {
  if (node.getSequence().size() <= index) return code_.pushFloat(0);
  converted(argumentOf(node, index), Scalar::Int, Scalar::Float);
}

}  // namespace shadermachine::tools::glsl
