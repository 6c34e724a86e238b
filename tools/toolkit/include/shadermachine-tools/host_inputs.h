// What a shader can ask the renderer for by name: the values of its host variables, and textures.
#pragma once

#include <shadermachine-tools/image.h>
#include <shadermachine-tools/shader_view.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools {

enum class TextureFilter : uint8_t { Nearest, Linear };

// Repeats in both directions; v = 0 is the bottom edge.
struct Texture {
  ByteImage image;
  TextureFilter filter = TextureFilter::Linear;
};

// A host variable and its components, for HostInputs::set().
struct NamedValue {
  std::string name;
  std::vector<double> components;
};

// Fills the standard variables of one frame.
struct FrameInputs {
  uint32_t width = 0;
  uint32_t height = 0;
  float time = 0;  // seconds
  float timeDelta = 1.0f / 30;
  int32_t frame = 0;
};

// Values for the host variables of one shader. A variable gets, in this order of precedence: what
// set() or setTexture() gave it; a standard value, if its name is one of
//   per frame     iResolution, u_resolution, resolution (width, height, 1); iTime, iGlobalTime,
//                 u_time, time; iTimeDelta, iFrameRate, iFrame; iMouse, u_mouse, mouse (zeros);
//                 iDate (year, month, day, seconds); iChannel0 to 3, iChannelTime,
//                 iChannelResolution
//   per fragment  fragCoord (pixel centre, y up), uv, vUv, v_uv, texCoord, vTexCoord, v_texCoord,
//                 the first element of gl_TexCoord (the same from 0 to 1);
// and zeros otherwise.
class HostInputs {
 public:
  explicit HostInputs(const ShaderView& view);

  // Components in declaration order: columns of matrices, elements of arrays, members of structures
  // one after another. Returns why that is impossible, or an empty text.
  std::string set(std::string_view name, std::span<const double> components);
  // Makes a sampler, or element [k] of an array of them ("name[k]"), refer to a texture.
  std::string setTexture(std::string_view name, Texture texture);

  // Host variables that stay zero: neither set nor standard.
  std::vector<std::string> missing() const;

  void startFrame(const FrameInputs& frame);

  // For the callbacks: writes byteSize bytes of global `index`. x, y: centre of the pixel, y up.
  void write(uint32_t index, float x, float y, void* data) const;
  std::array<float, 2> unitPosition(float x, float y) const;
  // The texture behind a sampler value; null when there is none.
  const Texture* texture(uint64_t sampler) const;

 private:
  enum class Source : uint8_t { None, Frame, FragmentPosition, UnitPosition, User };
  // One 32-bit component or 8-byte sampler of a variable.
  struct Leaf {
    TypeCode type;  // VM_TYPE_FLOAT, _INT, _BOOL or a sampler
    uint32_t offset;
  };
  struct Variable {
    const VarInfo* info = nullptr;
    Source source = Source::None;
    std::vector<Leaf> leaves;
    std::vector<uint8_t> bytes;
  };

  void addLeaves(const VarInfo& info, uint32_t offset, std::vector<Leaf>& leaves) const;
  void addElement(TypeCode type, uint32_t offset, std::vector<Leaf>& leaves) const;
  Variable* find(std::string_view name);
  std::vector<double> channelSizes();
  static void assign(Variable& variable, std::span<const double> components);

  ShaderView view_;
  std::vector<Variable> variables_;  // by global index; info is null unless a host variable
  std::vector<Texture> textures_;
  float width_ = 1;
  float height_ = 1;
};

}  // namespace shadermachine::tools
