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

// Position and level as the four coordinates of the texel kind.
void FunctionGenerator::texelFetch(const TIntermAggregate& node) {
  const TIntermTyped& position = argumentOf(node, 1);
  const unsigned components = shapeOf(position).components;
  value(argumentOf(node, 0));
  converted(position, Scalar::Int, Scalar::Float);
  std::vector<int64_t> counts{components};
  for (unsigned i = components; i < 3; ++i) {
    code_.pushFloat(0);
    counts.push_back(1);
  }
  if (node.getSequence().size() > 2) {
    converted(argumentOf(node, 2), Scalar::Int, Scalar::Float);
  } else {
    code_.pushFloat(0);
  }
  counts.push_back(1);
  code_.emit(VM_OP_CTOR_VEC4_A, counts);
  code_.emit(VM_OP_HOST_LOOKUP_2, {lookupForm(2, kTexelKind)});
}

void FunctionGenerator::textureSize(const TIntermAggregate& node) {
  value(argumentOf(node, 0));
  for (int i = 0; i < 3; ++i) code_.pushFloat(0);
  if (node.getSequence().size() > 1) {
    converted(argumentOf(node, 1), Scalar::Int, Scalar::Float);
  } else {
    code_.pushFloat(0);
  }
  code_.emit(VM_OP_CTOR_VEC4_A, {1, 1, 1, 1});
  code_.emit(VM_OP_HOST_LOOKUP_1, {lookupForm(2, kTexelKind)});
  emitCounted(VM_OP_FLOAT_TO_INT, shapeOf(node).components);
}

}  // namespace shadermachine::tools::glsl
