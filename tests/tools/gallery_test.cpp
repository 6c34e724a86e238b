// Every shader of the gallery gives the same picture by the plain handlers, translated, in batches,
// and compiled for debuggers.
#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/renderer.h>

#ifdef GALLERY_WITH_BATCHES
#include <shadermachine/batch.h>
#endif

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#ifdef GALLERY_WITH_GLSL
#include <shadermachine-tools/glsl.h>
#endif

#include "engine/engine.h"
#include "machine/machine.h"
#include "support/text_cases.h"

namespace {

bool runsPlain = false;
bool wasTranslated = false;
#ifdef SHADERMACHINE_HAVE_ENGINE
constexpr bool kHasEngine = true;
#else
constexpr bool kHasEngine = false;
#endif

}  // namespace

// The linker puts these around the library's functions, which the renderer calls.
extern "C" {
ShaderMachine* __real_vmShaderMachineCreate(const MachineCreateInfo* info);
VmError __real_vmShaderMachineDestroy(ShaderMachine* machine);

ShaderMachine* __wrap_vmShaderMachineCreate(const MachineCreateInfo* info) {
  ShaderMachine* machine = __real_vmShaderMachineCreate(info);
  static_cast<shadermachine::Machine*>(machine)->engineUse =
      runsPlain ? shadermachine::EngineUse::Never : shadermachine::EngineUse::WhenWorth;
  return machine;
}

VmError __wrap_vmShaderMachineDestroy(ShaderMachine* machine) {
  using namespace shadermachine;
  wasTranslated = wasTranslated || engine::isTranslated(static_cast<Machine&>(*machine));
  return __real_vmShaderMachineDestroy(machine);
}
}

namespace shadermachine::tools {
namespace {

std::vector<std::string> galleryFiles() {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(GALLERY_FOLDER)) {
    const std::string extension = entry.path().extension().string();
    if (extension == ".sasm") files.push_back(entry.path().string());
#ifdef GALLERY_WITH_GLSL
    if (extension == ".frag") files.push_back(entry.path().string());
#endif
  }
  std::sort(files.begin(), files.end());
  return files;
}

enum class Way : uint8_t { Translated, Plain, Debugging, Batches };

BuiltShader load(const std::string& path, [[maybe_unused]] Way way) {
#ifdef GALLERY_WITH_GLSL
  const GlslOptions options = {.isForDebugging = way == Way::Debugging};
  if (path.ends_with(".frag")) {
    return std::move(compileGlsl(tests::readFile(path), options).shader).value();
  }
#endif
  return std::move(assemble(tests::readFile(path)).shader).value();
}

Texture checkerboard() {
  Texture texture = {ByteImage(8, 8)};
  for (uint32_t i = 0; i < 64; ++i) {
    std::memset(texture.image.pixel(i % 8, i / 8), (i + i / 8) % 2 == 0 ? 255 : 40, 4);
  }
  return texture;
}

// The values that the file asks for, and something to see for its textures.
void setInputs(HostInputs& inputs, const std::string& path) {
  const std::string text = tests::readFile(path);
  static const std::regex option("--set (\\w+)=([^ \n]+)");
  for (std::sregex_iterator set(text.begin(), text.end(), option), end; set != end; ++set) {
    std::vector<double> components;
    std::istringstream values((*set)[2]);
    for (std::string value; std::getline(values, value, ',');) {
      components.push_back(std::stod(value));
    }
    EXPECT_EQ(inputs.set((*set)[1].str(), components), "");
  }
  for (const std::string& name : inputs.missing()) {
    EXPECT_EQ(inputs.setTexture(name, checkerboard()), "");
  }
}

// For comparing builds: scripts/matrix.sh reads it in the test's report.
template <class Value>
std::string checksum(const std::vector<Value>& values) {
  uint64_t sum = 0xCBF29CE484222325;
  for (const Value value : values) sum = (sum ^ value) * 0x100000001B3;
  return std::to_string(sum);
}

std::vector<uint32_t> picture(const std::string& path, Way way) {
  runsPlain = way == Way::Plain || way == Way::Debugging;
  wasTranslated = false;
  const BuiltShader shader = load(path, way);
  auto renderer = std::make_unique<Renderer>(shader.view());
  setInputs(renderer->inputs(), path);
  RenderSettings settings;
  settings.frame = {.width = 40, .height = 23, .time = 1.5f, .frame = 45};
  settings.threads = 1;
  settings.timeout = 0;
#ifdef GALLERY_WITH_BATCHES
  constexpr BatchFunctions kBatches = {vmShaderBatchCreate, vmShaderBatchDestroy,
                                       vmShaderBatchExecuteShader};
  if (way == Way::Batches) settings.batches = &kBatches;
  if (way == Way::Batches) settings.threads = 3;
#endif
  const RenderResult result = renderer->render(settings);
  EXPECT_EQ(result.statistics.failed(), 0u);
  renderer.reset();  // and its machines
  EXPECT_TRUE(way == Way::Batches || wasTranslated == (kHasEngine && !runsPlain));
  std::vector<uint32_t> bits(result.colour.rgba.size());
  std::memcpy(bits.data(), result.colour.rgba.data(), bits.size() * sizeof(uint32_t));
  testing::Test::RecordProperty("floats", checksum(bits));
  testing::Test::RecordProperty("bytes", checksum(quantize(result.colour).rgba));
  return bits;
}

class Gallery : public testing::TestWithParam<std::string> {};

TEST_P(Gallery, LooksTheSameInAllWays) {
  const std::vector<uint32_t> translated = picture(GetParam(), Way::Translated);
  EXPECT_EQ(translated, picture(GetParam(), Way::Plain));
  EXPECT_EQ(translated, picture(GetParam(), Way::Batches));
#ifdef GALLERY_WITH_GLSL
  if (GetParam().ends_with(".frag")) {
    EXPECT_EQ(translated, picture(GetParam(), Way::Debugging));
  }
#endif
  EXPECT_GT(std::set(translated.begin(), translated.end()).size(), 10u) << "an empty picture";
}

INSTANTIATE_TEST_SUITE_P(Shaders, Gallery, testing::ValuesIn(galleryFiles()), [](const auto& test) {
  return std::filesystem::path(test.param).stem().string();
});

}  // namespace
}  // namespace shadermachine::tools
