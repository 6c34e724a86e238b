// Texture functions: look-ups that the host answers. The common ones have instructions of their
// own; the others are described (host_contract.h).
#include <shadermachine-tools/host_contract.h>

#include <array>
#include <string_view>

#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

const TIntermTyped& argumentOf(const TIntermAggregate& node, size_t index) {
  return *node.getSequence()[index]->getAsTyped();
}

int64_t lookupForm(unsigned operands, unsigned kind) { return operands << 5 | kind << 2; }

// Components of a position in a texture, or of a direction.
unsigned dimensionsOf(const glslang::TSampler& sampler) {
  switch (sampler.dim) {
    case glslang::Esd1D:
      return 1;
    case glslang::Esd3D:
    case glslang::EsdCube:
      return 3;
    default:
      return 2;
  }
}

bool isPlainSampler(const glslang::TSampler& sampler) {
  return sampler.type == glslang::EbtFloat && !sampler.isShadow() && !sampler.isArrayed() &&
         !sampler.isMultiSample() && !sampler.isRect();
}

uint32_t descriptionOf(const glslang::TSampler& sampler, LookupOperation operation) {
  uint32_t bits = sampler.dim == glslang::EsdCube ? 4 : dimensionsOf(sampler);
  if (sampler.isArrayed()) bits |= kLookupIsLayered;
  if (sampler.isShadow()) bits |= kLookupCompares;
  if (sampler.isRect()) bits |= kLookupInTexels;
  if (sampler.type != glslang::EbtFloat) bits |= kLookupGivesIntegers;
  return bits | static_cast<uint32_t>(operation) << kLookupOperationShift;
}

// The functions of GLSL 1.x, which name the kind of texture: texture2DProjLod, shadow2D, ...
bool isOldTextureFunction(std::string_view name) {
  static constexpr std::array<std::string_view, 7> kNames = {
      "texture1D", "texture2D", "texture3D",    "textureCube",
      "shadow1D",  "shadow2D",  "texture2DRect"};
  for (const std::string_view known : kNames) {
    if (!name.starts_with(known)) continue;
    std::string_view rest = name.substr(known.size());
    for (const std::string_view part : {"Proj", "Lod", "Grad", "EXT", "ARB"}) {
      if (rest.starts_with(part)) rest.remove_prefix(part.size());
    }
    if (rest.empty()) return true;
  }
  return false;
}

}  // namespace

// What a function of textures does, and which arguments it does it with; 0 for those it lacks.
struct TextureCall {
  const TIntermAggregate& node;
  const glslang::TSampler& sampler;
  LookupOperation operation = LookupOperation::Sample;
  bool isProjective = false;
  size_t reference = 0;
  size_t level = 0;  // or bias
  size_t gradients = 0;
  size_t offset = 0;
  size_t component = 0;
};

namespace {

TextureCall describeQuery(const TIntermAggregate& node, const glslang::TSampler& sampler) {
  TextureCall call{node, sampler};
  const size_t count = node.getSequence().size();
  if (node.getOp() == glslang::EOpTextureQuerySize) {
    call.operation = LookupOperation::Size;
    if (count > 1) call.level = 1;
  } else if (node.getOp() == glslang::EOpTextureQueryLevels) {
    call.operation = LookupOperation::Levels;
  } else {
    throw Unsupported(node.getLoc(), "textureQueryLod() and textureSamples() are not supported");
  }
  return call;
}

// After the coordinates come: a reference, a level or two gradients, an offset, a bias or
// component.
TextureCall describeCall(const TIntermAggregate& node, const glslang::TSampler& sampler) {
  glslang::TCrackedTextureOp cracked;
  node.crackTexture(sampler, cracked);
  if (cracked.query) return describeQuery(node, sampler);
  if (cracked.offsets || cracked.lodClamp || cracked.subpass || cracked.fragMask) {
    throw Unsupported(node.getLoc(), "textureGatherOffsets() and clamped levels are not supported");
  }
  TextureCall call{node, sampler};
  call.isProjective = cracked.proj;
  const size_t count = node.getSequence().size();
  size_t next = 2;
  const bool isCubeArray = sampler.dim == glslang::EsdCube && sampler.isArrayed();
  if (sampler.isShadow() && (cracked.gather || isCubeArray)) call.reference = next++;
  if (cracked.fetch) {
    call.operation = LookupOperation::Texel;
    if (sampler.isMultiSample()) ++next;  // one sample is like the other
    if (!sampler.isMultiSample() && !sampler.isRect()) call.level = next++;
  } else if (cracked.gather) {
    call.operation = LookupOperation::Gather;
  } else if (cracked.lod) {
    call.operation = LookupOperation::Level;
    call.level = next++;
  } else if (cracked.grad) {
    call.operation = LookupOperation::Gradient;
    call.gradients = next;
    next += 2;
  }
  if (cracked.offset) call.offset = next++;
  if (next < count) (cracked.gather ? call.component : call.level) = next;
  return call;
}

TextureCall describeOldCall(const TIntermAggregate& node, const glslang::TSampler& sampler) {
  const std::string_view name = node.getName().c_str();
  const auto has = [name](const char* part) { return name.find(part) != std::string_view::npos; };
  TextureCall call{node, sampler};
  call.isProjective = has("Proj");
  if (has("Grad")) {
    call.operation = LookupOperation::Gradient;
    call.gradients = 2;
  } else {
    if (has("Lod")) call.operation = LookupOperation::Level;
    if (node.getSequence().size() > 2) call.level = 2;
  }
  return call;
}

bool isPlain(const TextureCall& call) {
  if (!isPlainSampler(call.sampler) || call.offset != 0 || call.gradients != 0) return false;
  const bool isFlat = call.sampler.dim == glslang::Esd2D;
  return call.operation == LookupOperation::Sample || call.operation == LookupOperation::Level ||
         (call.operation == LookupOperation::Texel && isFlat);
}

}  // namespace

bool FunctionGenerator::oldTextureCall(const TIntermAggregate& node) {
  const std::string name = node.getName().c_str();
  if (!isOldTextureFunction(name.substr(0, name.find('(')))) return false;
  const TIntermTyped& sampler = argumentOf(node, 0);
  valueType(sampler);
  lookUp(describeOldCall(node, sampler.getType().getSampler()));
  return true;
}

void FunctionGenerator::textureCall(const TIntermAggregate& node) {
  const TIntermTyped& sampler = argumentOf(node, 0);
  valueType(sampler);  // refuses kinds of samplers that no host serves
  lookUp(describeCall(node, sampler.getType().getSampler()));
}

void FunctionGenerator::lookUp(const TextureCall& call) {
  value(argumentOf(call.node, 0));
  if (!isPlain(call)) return describedLookUp(call);
  if (call.operation == LookupOperation::Texel) return fetchTexel(call);
  const unsigned kind = *lookupKind(call.sampler);
  textureCoordinates(call, kLookupKinds[kind].coordinates);
  if (call.level != 0) value(argumentOf(call.node, call.level));
  code_.emit(call.operation == LookupOperation::Level ? VM_OP_HOST_LOOKUP_2 : VM_OP_HOST_LOOKUP_1,
             {lookupForm(call.level != 0 ? 3 : 2, kind)});
}

void FunctionGenerator::textureCoordinates(const TextureCall& call, unsigned needed) {
  const TIntermTyped& coordinates = argumentOf(call.node, 1);
  const Shape shape = shapeOf(coordinates);
  if (shape.components < needed) {
    throw Unsupported(call.node.getLoc(), "too few coordinates for this kind of texture");
  }
  converted(coordinates, shape.scalar, Scalar::Float);
  if (!call.isProjective) return;
  const unsigned last = shape.components - 1;
  code_.emit(VM_OP_DUP);
  swizzle({&last, 1}, shape.components);
  emitCounted(VM_OP_DIV_VS_F, shape.components);
}

void FunctionGenerator::fetchTexel(const TextureCall& call) {
  textureCoordinates(call, 2);
  levelOf(call);
  code_.emit(VM_OP_CTOR_VEC3_A, {2, 1});
  code_.emit(VM_OP_HOST_LOOKUP_2, {lookupForm(2, kTexelKind)});
}

// The level of a texture that an argument names, as a float; 0 without one.
void FunctionGenerator::levelOf(const TextureCall& call) {
  if (call.level == 0) return code_.pushFloat(0);
  const TIntermTyped& level = argumentOf(call.node, call.level);
  converted(level, shapeOf(level).scalar, Scalar::Float);
}

// The sampler is on the stack.
void FunctionGenerator::describedLookUp(const TextureCall& call) {
  std::vector<int64_t> counts;
  // One column: a vector if there is one, and the last component.
  const auto column = [&](unsigned size, const std::function<void()>& last) {
    if (size < 3) {
      code_.emit(VM_OP_PUSH_ZERO4);
      counts.push_back(3 - size);
    }
    last();
    counts.push_back(1);
  };
  const auto part = [&](size_t index) {
    if (index == 0) return 0u;
    const TIntermTyped& argument = argumentOf(call.node, index);
    const Shape shape = shapeOf(argument);
    converted(argument, shape.scalar, Scalar::Float);
    counts.push_back(shape.components);
    return shape.components;
  };
  const auto scalar = [&](size_t index) {
    if (index == 0) return code_.pushFloat(0);
    converted(argumentOf(call.node, index), shapeOf(argumentOf(call.node, index)).scalar,
              Scalar::Float);
  };
  const bool hasCoordinates =
      call.operation != LookupOperation::Size && call.operation != LookupOperation::Levels;
  unsigned coordinates = 0;
  if (hasCoordinates) {
    textureCoordinates(call, 1);
    coordinates = shapeOf(argumentOf(call.node, 1)).components;
    counts.push_back(coordinates);
  }
  if (coordinates < 4) {
    code_.emit(VM_OP_PUSH_ZERO4);
    counts.push_back(4 - coordinates);
  }
  column(part(call.gradients), [&] { scalar(call.reference); });
  column(part(call.gradients == 0 ? 0 : call.gradients + 1), [&] { levelOf(call); });
  column(part(call.offset), [&] { scalar(call.component); });
  code_.emit(VM_OP_CTOR_MAT4, counts);
  const uint32_t apart = call.reference != 0 ? kLookupIsApart : 0;
  code_.pushInt(static_cast<int32_t>(descriptionOf(call.sampler, call.operation) | apart));
  code_.emit(VM_OP_HOST_LOOKUP_2, {lookupForm(3, kTexelKind)});
}

}  // namespace shadermachine::tools::glsl
