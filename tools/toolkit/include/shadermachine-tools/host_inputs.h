// What a shader can ask the renderer for by name: the values of its host variables, and textures.
#pragma once

#include <shadermachine-tools/image.h>
#include <shadermachine-tools/shader_view.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools {

enum class TextureFilter : uint8_t { Nearest, Linear };
enum class TextureWrap : uint8_t { Repeat, Clamp, Mirror };

// v = 0 is the bottom edge.
struct Texture {
  ByteImage image;
  TextureFilter filter = TextureFilter::Linear;
  TextureWrap wrap = TextureWrap::Repeat;
  // Six pictures for look-ups by direction: +x, -x, +y, -y, +z, -z, each as cube maps usually have
  // them (seen from inside, the top row first). Without them `image` is a panorama.
  std::vector<ByteImage> faces = {};
  std::vector<ByteImage> smaller = {};  // levels 1 and up of `image`; HostInputs makes them
  // Read instead of all these where it is there: what a shader made, as it made it. One level.
  std::shared_ptr<const FloatImage> floats = nullptr;
};

// Computes the components of a variable for the point x, y (in pixels, y up). Called from all
// rendering threads at once.
using Varying = std::function<void(float x, float y, std::span<float> components)>;

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
  // iMouse, in pixels, y up: where the mouse is, or was when its button was released; where it was
  // pressed, negative while it is not held, the second one but in the first frame too.
  std::array<float, 4> mouse = {};
  std::array<float, 2> pointer = {};  // where the mouse is, button or not
};

// Host variables that have a value by their name.
struct StandardInput {
  const char* names;  // with commas between them
  const char* value;
};
std::span<const StandardInput> standardInputs();

// Values for the host variables of one shader. A variable gets, in this order of precedence: what
// set() or setTexture() gave it; a standard value, if its name is one of standardInputs();
// and zeros otherwise.
class HostInputs {
 public:
  // Throws std::length_error for more than 64 MiB of host variables.
  explicit HostInputs(const ShaderView& view);

  // A place is a variable or a part of it: "scale", "lights[2]", "lights[0].position". Components
  // come in declaration order: columns of matrices, elements of arrays, members of structures one
  // after another. All return why it is impossible, or an empty text.
  std::string set(std::string_view place, std::span<const double> components);
  // Takes the place of the texture that was there.
  std::string setTexture(std::string_view place, Texture texture);
  // For a whole variable of floats.
  std::string setVarying(std::string_view name, Varying varying);
  // The same with the position in the picture, 0 to 1, as "uv" has it.
  std::string setUnitPosition(std::string_view name);

  // Of all host variables that have one.
  std::vector<std::string_view> names() const;

  // Host variables that stay zero: neither set nor standard.
  std::vector<std::string> missing() const;

  void startFrame(const FrameInputs& frame);

  // For the callbacks: writes byteSize bytes of global `index`. x, y: centre of the pixel, y up.
  void write(uint32_t index, float x, float y, void* data) const;
  // Whether write() gives the same wherever the fragment is.
  bool isSameForAll(uint32_t index) const;
  std::array<float, 2> unitPosition(float x, float y) const;
  // The texture behind a sampler value; null when there is none.
  const Texture* texture(uint64_t sampler) const;

 private:
  enum class Source : uint8_t { None, Frame, FragmentPosition, UnitPosition, User, Function };
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
    Varying varying;
  };
  // Some of a variable's leaves; an error when the variable is null.
  struct Part {
    Variable* variable = nullptr;
    size_t first = 0;
    size_t count = 0;
    std::string error;
  };

  void addLeaves(const VarInfo& info, std::vector<Leaf>& leaves) const;
  static void addComponents(TypeCode type, uint32_t offset, std::vector<Leaf>& leaves);
  const StructInfo* structureOf(TypeCode type) const;  // null when there is none
  size_t leafCount(const VarInfo& info) const;
  Variable* find(std::string_view name);
  Part resolve(std::string_view place);
  // Narrows a part to the step "[k]" or ".member" that `steps` begins with, and takes it off.
  std::string descend(Part& part, VarInfo& info, std::string_view& steps) const;
  std::vector<double> channelSizes();
  std::array<double, 3> pictureSize(std::string_view samplerName);
  std::string_view measuredSampler(const Variable& variable);
  static void assign(Variable& variable, size_t first, std::span<const double> components);

  ShaderView view_;
  std::map<std::string_view, size_t> numbers_;  // by name; the first of a name
  std::vector<Variable> variables_;  // by global index; info is null unless a host variable
  std::vector<Texture> textures_;
  float width_ = 1;
  float height_ = 1;
};

}  // namespace shadermachine::tools
