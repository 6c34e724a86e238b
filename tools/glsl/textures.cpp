// Texture functions: look-ups that the host answers. The common ones have instructions of their
// own; the others are described (host_contract.h).
#include <shadermachine-tools/host_contract.h>

#include <array>
#include <string_view>

#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

int64_t lookupForm(unsigned operands, unsigned kind) { return operands << 5 | kind << 2; }

// Components of a position in a texture, or of a direction.
unsigned dimensionsOf(const glslang::TSampler& sampler) {
  switch (sampler.dim) {
    case glslang::Esd1D:
    case glslang::EsdBuffer:
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
         !sampler.isMultiSample() && !sampler.isRect() && !sampler.isBuffer();
}

uint32_t descriptionOf(const glslang::TSampler& sampler, LookupOperation operation) {
  uint32_t bits = sampler.dim == glslang::EsdCube ? 4 : dimensionsOf(sampler);
  if (sampler.isArrayed()) bits |= kLookupIsLayered;
  if (sampler.isShadow()) bits |= kLookupCompares;
  if (sampler.isRect()) bits |= kLookupInTexels;
  if (sampler.isBuffer()) bits |= kLookupIsBuffer;
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
  TextureArguments arguments;
  const glslang::TSampler& sampler;
  LookupOperation operation = LookupOperation::Sample;
  bool isProjective = false;
  size_t reference = 0;
  size_t level = 0;  // or bias
  size_t gradients = 0;
  size_t offset = 0;
  size_t component = 0;
  bool hasFourOffsets = false;
};

namespace {

LookupOperation queryOperation(TOperator op) {
  switch (op) {
    case glslang::EOpTextureQuerySize:
      return LookupOperation::Size;
    case glslang::EOpTextureQueryLod:
      return LookupOperation::LevelOfGradients;
    default:
      return LookupOperation::Levels;
  }
}

// After the coordinates come: a reference, a level or two gradients, an offset, a bias or
// component.
TextureCall describeCall(const TIntermOperator& node, TextureArguments arguments,
                         const glslang::TSampler& sampler) {
  glslang::TCrackedTextureOp cracked;
  node.crackTexture(sampler, cracked);
  if (cracked.lodClamp || cracked.subpass || cracked.fragMask) {
    throw Unsupported(node.getLoc(), "clamped levels and attachments are not supported");
  }
  TextureCall call{arguments, sampler};
  if (cracked.query) {
    call.operation = queryOperation(node.getOp());
    if (call.operation == LookupOperation::Size && arguments.size() > 1) call.level = 1;
    return call;
  }
  call.isProjective = cracked.proj;
  const size_t count = arguments.size();
  size_t next = 2;
  const bool isCubeArray = sampler.dim == glslang::EsdCube && sampler.isArrayed();
  if (sampler.isShadow() && (cracked.gather || isCubeArray)) call.reference = next++;
  if (cracked.fetch) {
    call.operation = LookupOperation::Texel;
    if (sampler.isMultiSample()) ++next;  // one sample is like the other
    if (next < count && !sampler.isMultiSample() && !sampler.isRect()) call.level = next++;
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
  call.hasFourOffsets = cracked.offsets;
  if (cracked.offset || cracked.offsets) call.offset = next++;
  if (next < count) (cracked.gather ? call.component : call.level) = next;
  return call;
}

TextureCall describeOldCall(std::string_view name, TextureArguments arguments,
                            const glslang::TSampler& sampler) {
  const auto has = [name](const char* part) { return name.find(part) != std::string_view::npos; };
  TextureCall call{arguments, sampler};
  call.isProjective = has("Proj");
  if (has("Grad")) {
    call.operation = LookupOperation::Gradient;
    call.gradients = 2;
  } else {
    if (has("Lod")) call.operation = LookupOperation::Level;
    if (arguments.size() > 2) call.level = 2;
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
  const std::vector<const TIntermTyped*> arguments = typedChildren(node);
  valueType(*arguments[0]);
  lookUp(describeOldCall(name, arguments, arguments[0]->getType().getSampler()), node.getLoc());
  return true;
}

void FunctionGenerator::textureCall(const TIntermOperator& node, TextureArguments arguments) {
  valueType(*arguments[0]);  // refuses kinds of samplers that no host serves
  if (node.getOp() == glslang::EOpTextureQuerySamples) return code_.pushInt(1);
  lookUp(describeCall(node, arguments, arguments[0]->getType().getSampler()), node.getLoc());
}

void FunctionGenerator::lookUp(const TextureCall& call, const TSourceLoc& where) {
  const bool readsTwice =
      call.hasFourOffsets || call.operation == LookupOperation::LevelOfGradients;
  if (readsTwice) return lookUpRepeatedly(call);
  value(*call.arguments[0]);
  // The sampler lies below all other operands, whichever form the look-up takes.
  if (!isPlain(call)) return describedLookUp(call);
  if (call.operation == LookupOperation::Texel) return fetchTexel(call);
  const unsigned kind = *lookupKind(call.sampler);
  const unsigned needed = kLookupKinds[kind].coordinates;
  if (shapeOf(*call.arguments[1]).components < needed) {
    throw Unsupported(where, "too few coordinates for this kind of texture");
  }
  textureCoordinates(call);
  if (call.level != 0) value(*call.arguments[call.level]);
  code_.emit(call.operation == LookupOperation::Level ? VM_OP_HOST_LOOKUP_2 : VM_OP_HOST_LOOKUP_1,
             {lookupForm(call.level != 0 ? 3 : 2, kind)});
}

// Those that need their coordinates several times: derivatives of them, and four texels that are
// gathered one by one, each the last of its four.
void FunctionGenerator::lookUpRepeatedly(const TextureCall& call) {
  const TIntermTyped* const coordinates = call.arguments[1];
  // Somebody further out may have made them beforehand, and will forget them.
  const bool isFixed = fixedValues_.contains(coordinates);
  if (!isFixed) {
    const Place place = newLocal("coordinates", valueType(*coordinates));
    value(*coordinates);
    store(place);
    fixedValues_[coordinates] = place;
  }
  constexpr unsigned kLast = 3;
  const unsigned count = call.hasFourOffsets ? 4 : 1;
  for (unsigned i = 0; i < count; ++i) {
    value(*call.arguments[0]);
    describedLookUp(call, i);
    if (call.hasFourOffsets) swizzle({&kLast, 1}, 4);
  }
  if (call.hasFourOffsets) code_.emit(VM_OP_CTOR_VEC4_A, {1, 1, 1, 1});
  if (!isFixed) fixedValues_.erase(coordinates);
}

void FunctionGenerator::textureCoordinates(const TextureCall& call) {
  const TIntermTyped& coordinates = *call.arguments[1];
  const Shape shape = shapeOf(coordinates);
  converted(coordinates, shape.scalar, Scalar::Float);
  if (!call.isProjective) return;
  const unsigned last = shape.components - 1;
  code_.emit(VM_OP_DUP);
  swizzle({&last, 1}, shape.components);
  emitCounted(VM_OP_DIV_VS_F, shape.components);
}

void FunctionGenerator::fetchTexel(const TextureCall& call) {
  textureCoordinates(call);
  levelOf(call);
  code_.emit(VM_OP_CTOR_VEC3_A, {2, 1});
  code_.emit(VM_OP_HOST_LOOKUP_2, {lookupForm(2, kTexelKind)});
}

// The level of a texture that an argument names, as a float; 0 without one.
void FunctionGenerator::levelOf(const TextureCall& call) {
  if (call.level == 0) return code_.pushFloat(0);
  const TIntermTyped& level = *call.arguments[call.level];
  converted(level, shapeOf(level).scalar, Scalar::Float);
}

// The derivative of the coordinates along an axis, or what an argument gives; returns how many
// components it pushed.
unsigned FunctionGenerator::gradientOf(const TextureCall& call, unsigned axis) {
  if (call.operation == LookupOperation::LevelOfGradients) {
    textureCoordinates(call);
    const unsigned components = shapeOf(*call.arguments[1]).components;
    emitCounted(axis == 0 ? VM_OP_HOST_UNARY_1 : VM_OP_HOST_UNARY_2, components);
    return components;
  }
  return call.gradients == 0 ? 0 : floatArgument(call, call.gradients + axis);
}

unsigned FunctionGenerator::offsetOf(const TextureCall& call, unsigned corner) {
  if (!call.hasFourOffsets) return call.offset == 0 ? 0 : floatArgument(call, call.offset);
  const TIntermTyped& offsets = *call.arguments[call.offset];
  const TIntermConstantUnion* constant = asConstant(offsets);
  if (constant == nullptr) throw Unsupported(offsets.getLoc(), "these offsets are no constants");
  const std::vector<uint32_t> words = constantWords(*constant);
  for (size_t i = 0; i < 2; ++i) {
    code_.pushFloat(static_cast<float>(static_cast<int32_t>(words[2 * corner + i])));
  }
  code_.emit(VM_OP_CTOR_VEC2_A, {1, 1});
  return 2;
}

unsigned FunctionGenerator::floatArgument(const TextureCall& call, size_t index) {
  const TIntermTyped& argument = *call.arguments[index];
  const Shape shape = shapeOf(argument);
  converted(argument, shape.scalar, Scalar::Float);
  return shape.components;
}

// The sampler is on the stack.
void FunctionGenerator::describedLookUp(const TextureCall& call, unsigned corner) {
  std::vector<int64_t> counts;
  // What is pushed already, zeros, and another component if there is one.
  const auto column = [&](unsigned size, unsigned width) {
    if (size > 0) counts.push_back(size);
    if (size == width) return;
    code_.emit(VM_OP_PUSH_ZERO4);
    counts.push_back(width - size);
  };
  const auto scalar = [&](size_t index) {
    if (index == 0) code_.pushFloat(0);
    if (index != 0) floatArgument(call, index);
    counts.push_back(1);
  };
  const bool hasCoordinates =
      call.operation != LookupOperation::Size && call.operation != LookupOperation::Levels;
  if (hasCoordinates) textureCoordinates(call);
  // Sixteen components, column by column as host_contract.h has them.
  column(hasCoordinates ? shapeOf(*call.arguments[1]).components : 0, 4);
  column(gradientOf(call, 0), 3);
  scalar(call.reference);
  column(gradientOf(call, 1), 3);
  scalar(call.level);
  column(offsetOf(call, corner), 3);
  scalar(call.component);
  code_.emit(VM_OP_CTOR_MAT4, counts);
  const uint32_t apart = call.reference != 0 ? kLookupIsApart : 0;
  code_.pushInt(static_cast<int32_t>(descriptionOf(call.sampler, call.operation) | apart));
  code_.emit(VM_OP_HOST_LOOKUP_2, {lookupForm(3, kTexelKind)});
}

}  // namespace shadermachine::tools::glsl
