#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/passes.h>

#include <algorithm>
#include <limits>

namespace shadermachine::tools {
namespace {

constexpr const char* kHead =
    ".global vec4 colour\n.output0 colour\n.entry main\n"
    ".global vec2 fragCoord host\n.global vec2 uv host\n";

BuiltShader build(const std::string& globals, const std::string& code) {
  const std::string text = kHead + globals + ".function main\n" + code + "\nRETURN\n.end\n";
  AssemblyResult result = assemble(text);
  for (const AssemblyError& error : result.errors) {
    ADD_FAILURE() << formatError(error, text, "test");
  }
  return std::move(result.shader).value();
}

// A shader that stores what `code` leaves on the stack, `words` components of it, as its colour.
BuiltShader showing(const std::string& globals, const std::string& code, int words) {
  const char* const fill[] = {"", "PUSH_0_F\nPUSH_0_F\nPUSH_1_F\nCTOR_VEC4_A 1, 1, 1, 1",
                              "PUSH_0_F\nPUSH_1_F\nCTOR_VEC4_A 2, 1, 1",
                              "PUSH_1_F\nCTOR_VEC4_A 3, 1", ""};
  return build(globals, code + "\n" + fill[words] + "\nSTORE_GLOBAL colour");
}

using Pixel = std::array<float, 4>;

Pixel pixelAt(const RenderResult& result, uint32_t x, uint32_t y) {
  Pixel pixel;
  std::copy_n(result.colour.pixel(x, y), 4, pixel.begin());
  return pixel;
}

RenderSettings sized(uint32_t width, uint32_t height) {
  RenderSettings settings;
  settings.frame = {.width = width, .height = height, .time = 1.5f, .frame = 45};
  settings.threads = 1;
  return settings;
}

TEST(Renderer, ThreadsDoNotChangeThePicture) {
  const BuiltShader shader =
      showing("", "LOAD_GLOBAL uv\nPUSH_U32 9.0\nCTOR_VEC2_A 1\nMUL_F 2\nNOISE4 2", 4);
  RenderSettings settings = sized(33, 21);
  const RenderResult one = Renderer(shader.view()).render(settings);
  settings.threads = 4;
  const RenderResult four = Renderer(shader.view()).render(settings);
  EXPECT_EQ(one.colour.rgba, four.colour.rgba);
  EXPECT_EQ(four.statistics.threads, 4u);
  EXPECT_EQ(four.statistics.runs[VM_OK], 33u * 21);
  EXPECT_NE(pixelAt(one, 3, 3), pixelAt(one, 17, 3));
}

// Where the row at the top is, and what standard variables hold, in the top right pixel of 4 x 2.
TEST(Renderer, StandardInputs) {
  struct Case {
    const char* globals;
    const char* code;
    int words;
    Pixel expected;
  };
  const Case cases[] = {
      {"", "LOAD_GLOBAL fragCoord", 2, {3.5f, 1.5f, 0, 1}},
      {"", "LOAD_GLOBAL uv", 2, {0.875f, 0.75f, 0, 1}},
      {"", "LOAD_BUILTIN 283", 4, {3.5f, 1.5f, 0.5f, 1}},
      {"", "LOAD_BUILTIN 284", 2, {0.875f, 0.75f, 0, 1}},
      {"", "LOAD_BUILTIN 280\nBOOL_TO_FLOAT 1", 1, {1, 0, 0, 1}},
      {"", "LOAD_BUILTIN 390", 4, {0, 0, 0, 0}},
      {".global vec3 iResolution host\n", "LOAD_GLOBAL iResolution", 3, {4, 2, 1, 1}},
      {".global vec2 u_resolution host\n", "LOAD_GLOBAL u_resolution", 2, {4, 2, 0, 1}},
      {".global float iTime host\n", "LOAD_GLOBAL iTime", 1, {1.5f, 0, 0, 1}},
      {".global int iFrame host\n", "LOAD_GLOBAL iFrame\nINT_TO_FLOAT 1", 1, {45, 0, 0, 1}},
      {".global float iChannelTime[4] host\n",
       "LOAD_GLOBAL iChannelTime\nPUSH_INDEX_IMM 3\nARRAY_ELEMENT float",
       1,
       {1.5f, 0, 0, 1}},
      {".global vec4 iMouse host\n", "LOAD_GLOBAL iMouse", 4, {0, 0, 0, 0}},
  };
  for (const Case& c : cases) {
    const BuiltShader shader = showing(c.globals, c.code, c.words);
    const RenderResult result = Renderer(shader.view()).render(sized(4, 2));
    EXPECT_EQ(pixelAt(result, 3, 0), c.expected) << c.code;
  }
}

TEST(Renderer, ValuesThatWereSet) {
  const BuiltShader shader = showing(
      ".struct Lamp\n.member vec3 place\n.member int power\n.end\n"
      ".global Lamp lamps[2] host\n.global float iTime host\n",
      "PUSH_INDEX_IMM 1\nLOAD_GLOBAL lamps\nARRAY_ELEMENT Lamp\nDUP\n"
      "STRUCT_FIELD Lamp, power\nINT_TO_FLOAT 1\nLOAD_GLOBAL iTime\nCTOR_VEC2_A 1, 1",
      2);
  Renderer renderer(shader.view());
  EXPECT_EQ(renderer.inputs().missing(), std::vector<std::string>{"lamps"});
  EXPECT_EQ(renderer.inputs().set("lamps", std::array{1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, -8.0}),
            "");
  EXPECT_EQ(renderer.inputs().set("iTime", std::array{0.25}), "");
  EXPECT_EQ(pixelAt(renderer.render(sized(1, 1)), 0, 0), (Pixel{-8, 0.25f, 0, 1}));
  EXPECT_TRUE(renderer.inputs().missing().empty());

  EXPECT_EQ(renderer.inputs().set("lamps[1].power", std::array{3.0}), "");
  EXPECT_EQ(pixelAt(renderer.render(sized(1, 1)), 0, 0), (Pixel{3, 0.25f, 0, 1}));
  EXPECT_EQ(renderer.inputs().set("lamps[1].place", std::array{3.0}),
            "'lamps[1].place' has 3 components, 1 given");
  EXPECT_EQ(renderer.inputs().set("lamps[2]", std::array{3.0}), "there is no element [2]");
  EXPECT_EQ(renderer.inputs().set("lamps[1].colour", std::array{3.0}),
            "there is no member .colour");
  EXPECT_EQ(renderer.inputs().set("lamps", std::array{1.0}), "'lamps' has 8 components, 1 given");
  EXPECT_EQ(renderer.inputs().set("colour", std::array{1.0}),
            "the shader has no host variable 'colour'");
  EXPECT_EQ(renderer.inputs().setTexture("iTime", {}), "'iTime' is not a sampler");
}

// Red at the bottom left, green beside it; blue at the top left, white beside it.
Texture fourTexels(TextureFilter filter) {
  Texture texture;
  texture.image = ByteImage(2, 2);
  texture.image.rgba = {0, 0, 255, 255, 255, 255, 255, 255, 255, 0, 0, 255, 0, 255, 0, 255};
  texture.filter = filter;
  return texture;
}

TEST(Renderer, Textures) {
  constexpr Pixel kRed = {1, 0, 0, 1}, kGreen = {0, 1, 0, 1}, kBlue = {0, 0, 1, 1};
  constexpr Pixel kWhite = {1, 1, 1, 1}, kMean = {0.5f, 0.5f, 0.5f, 1};
  struct Case {
    TextureFilter filter;
    const char* coordinates;
    const char* lookUp;
    Pixel expected;
    TextureWrap wrap = TextureWrap::Repeat;
    bool isCube = false;
  };
  using enum TextureFilter;
  using enum TextureWrap;
  const Case cases[] = {
      {Nearest, "0.1, 0.1", "HOST_LOOKUP_1 2, 2", kRed},
      {Nearest, "0.9, 0.4", "HOST_LOOKUP_1 2, 2", kGreen},
      {Nearest, "0.9, 0.9", "HOST_LOOKUP_2 2, 2", kWhite},
      {Nearest, "-0.9, 7.9", "HOST_LOOKUP_1 2, 2", kBlue},
      {Linear, "0.25, 0.25", "HOST_LOOKUP_1 2, 2", kRed},
      {Linear, "0.5, 0.25", "HOST_LOOKUP_1 2, 2", {0.5f, 0.5f, 0, 1}},
      {Linear, "0.5, 0.5", "HOST_LOOKUP_1 2, 2", kMean},
      {Linear, "1.0, 1.0", "HOST_LOOKUP_1 2, 2", kMean},
      {Linear, "+inf, 0.25", "HOST_LOOKUP_1 2, 2", {0.5f, 0.5f, 0, 1}},
      {Nearest, "1.0, 0.0, 0.0", "HOST_LOOKUP_2 2, 0", kGreen},
      {Nearest, "2.0, 0.0, 0.0", "HOST_LOOKUP_2 2, 0", {0, 0, 0, 0}},
      {Nearest, "0.0, 0.0, 0.0", "HOST_LOOKUP_1 2, 0", {2, 2, 1, 1}},
      {Nearest, "1.8, 0.2, 2.0", "HOST_LOOKUP_1 2, 6", kGreen},
      {Nearest, "1.0, 0.5, 0.0", "HOST_LOOKUP_1 2, 4", kWhite},
      {Nearest, "-1.0, -0.5, 0.0", "HOST_LOOKUP_1 2, 4", kRed},
      {Nearest, "1.1, -0.1", "HOST_LOOKUP_1 2, 2", kGreen, Clamp},
      {Linear, "1.0, 0.25", "HOST_LOOKUP_1 2, 2", kGreen, Clamp},
      {Linear, "0.0, 9.0", "HOST_LOOKUP_1 2, 2", kBlue, Clamp},
      {Nearest, "1.1, 0.1", "HOST_LOOKUP_1 2, 2", kGreen, Mirror},
      {Nearest, "1.9, -0.1", "HOST_LOOKUP_1 2, 2", kRed, Mirror},
      {Linear, "2.0, 2.0", "HOST_LOOKUP_1 2, 2", kRed, Mirror},
      // Faces as they are seen from inside: what is right on +x is ahead of it, towards -z.
      {Nearest, "9.0, 1.0, -1.0", "HOST_LOOKUP_1 2, 4", kWhite, Repeat, true},
      {Nearest, "-9.0, 1.0, -1.0", "HOST_LOOKUP_1 2, 4", kBlue, Repeat, true},
      {Nearest, "1.0, 9.0, 1.0", "HOST_LOOKUP_1 2, 4", kGreen, Repeat, true},
      {Nearest, "1.0, -9.0, 1.0", "HOST_LOOKUP_1 2, 4", kWhite, Repeat, true},
      {Nearest, "-1.0, -1.0, 9.0", "HOST_LOOKUP_1 2, 4", kRed, Repeat, true},
      {Nearest, "-1.0, -1.0, -9.0", "HOST_LOOKUP_1 2, 4", {0, 0, 0, 0}, Repeat, true},
  };
  for (const Case& c : cases) {
    const std::string coordinates = c.coordinates;
    std::string code = "LOAD_GLOBAL picture";
    std::string counts;
    for (size_t at = 0; at < coordinates.size(); at = coordinates.find(", ", at) + 2) {
      code += "\nPUSH_U32 " + coordinates.substr(at, coordinates.find(", ", at) - at);
      counts += counts.empty() ? "1" : ", 1";
      if (coordinates.find(", ", at) == std::string::npos) break;
    }
    code +=
        "\nCTOR_VEC" + std::to_string((counts.size() + 2) / 3) + "_A " + counts + "\n" + c.lookUp;
    const BuiltShader shader = showing(".global sampler2 picture host\n", code, 4);
    Renderer renderer(shader.view());
    Texture texture = fourTexels(c.filter);
    texture.wrap = c.wrap;
    if (c.isCube) texture.faces.assign(5, texture.image);
    if (c.isCube) texture.faces.emplace_back(2, 2);  // -z is empty
    EXPECT_EQ(renderer.inputs().setTexture("picture", texture), "");
    EXPECT_EQ(pixelAt(renderer.render(sized(1, 1)), 0, 0), c.expected) << code;
  }
}

// In the block of columns 2 and 3 and rows 0 and 1, also where the picture ends within it.
TEST(Renderer, DerivativesAreDifferencesInABlock) {
  const std::string squares = "LOAD_GLOBAL fragCoord\nDUP\nMUL_F 2\n";
  const std::string product = "LOAD_GLOBAL fragCoord\nDUP\nSWIZZLE .yx\nMUL_F 2\n";
  const std::string apart = "LOAD_GLOBAL fragCoord\nDUP\nSWIZZLE .x\nPUSH_U32 3.0\nLT_F\n";
  const std::pair<std::string, Pixel> cases[] = {
      {squares + "HOST_UNARY_1 2", {6, 0, 0, 1}},
      {squares + "HOST_UNARY_2 2", {0, 2, 0, 1}},
      {squares + "HOST_UNARY_3 2", {6, 2, 0, 1}},
      {product + "HOST_UNARY_1 2\nHOST_UNARY_2 2", {1, 1, 0, 1}},
      {apart + "JUMP_IF_FALSE right\nHOST_UNARY_3 2\nJUMP end\nright:\nHOST_UNARY_3 2\nend:",
       {0, 1, 0, 1}}};
  for (const auto& [code, expected] : cases) {
    const BuiltShader shader = showing("", code, 2);
    const RenderResult whole = Renderer(shader.view()).render(sized(4, 2));
    EXPECT_EQ(pixelAt(whole, 3, 0), expected) << code;
    EXPECT_EQ(pixelAt(whole, 2, 1), expected) << code;
    const RenderResult part = Renderer(shader.view()).render(sized(3, 1));
    EXPECT_EQ(pixelAt(part, 2, 0), expected) << code;
    EXPECT_EQ(part.statistics.total(), 3u);
  }
}

TEST(Renderer, SamplerWithoutTextureIsBlack) {
  const BuiltShader shader =
      showing(".global sampler2 iChannel0 host\n",
              "LOAD_GLOBAL iChannel0\nLOAD_GLOBAL uv\nHOST_LOOKUP_1 2, 2", 4);
  EXPECT_EQ(pixelAt(Renderer(shader.view()).render(sized(1, 1)), 0, 0), (Pixel{0, 0, 0, 1}));
}

// Left half: colour and depth. Right half: as `ending` says.
BuiltShader halves(const char* ending) {
  return build(".global float depth\n.output1 depth\n",
               std::string("PUSH_ONE4_F\nSTORE_GLOBAL colour\nPUSH_U32 0.25\nSTORE_GLOBAL depth\n"
                           "LOAD_GLOBAL uv\nSWIZZLE .x\nPUSH_U32 0.5\nGT_F\nJUMP_IF_FALSE left\n") +
                   ending + "\nleft:");
}

// What a region shows is what the whole picture shows there, derivatives included.
TEST(Renderer, RegionsArePartsOfThePicture) {
  const BuiltShader shader =
      showing("", "LOAD_GLOBAL fragCoord\nDUP\nDUP\nMUL_F 2\nHOST_UNARY_3 2\nCTOR_VEC4_A 2, 2", 4);
  RenderSettings settings = sized(7, 5);
  const RenderResult whole = Renderer(shader.view()).render(settings);
  for (const PixelRegion region : {PixelRegion{1, 2, 3, 2}, PixelRegion{6, 0, 1, 5}}) {
    uint32_t rows = 0;
    settings.region = region;
    settings.progress = [&](uint32_t done, uint32_t) { rows = done; };
    const RenderResult part = Renderer(shader.view()).render(settings);
    EXPECT_EQ(rows, region.height);
    EXPECT_EQ(part.statistics.total(), uint64_t{region.width} * region.height);
    for (uint32_t y = 0; y < region.height; ++y) {
      for (uint32_t x = 0; x < region.width; ++x) {
        EXPECT_EQ(pixelAt(part, x, y), pixelAt(whole, region.x + x, region.y + y));
      }
    }
  }
}

// Every larger pixel shows what the frame has in its middle.
TEST(Renderer, LargerPixels) {
  const BuiltShader shader = showing("", "LOAD_GLOBAL fragCoord", 2);
  RenderSettings settings = sized(7, 4);
  settings.pixelSize = 2;
  const RenderResult result = Renderer(shader.view()).render(settings);
  ASSERT_EQ(std::pair(result.colour.width, result.colour.height), std::pair(4u, 2u));
  EXPECT_EQ(pixelAt(result, 3, 0), (Pixel{7, 3, 0, 1}));
}

constexpr const char* kBuffers = ".global sampler2 a host\n.global sampler2 b host\n";

std::string middleOf(const std::string& sampler) {
  return "LOAD_GLOBAL " + sampler +
         "\nPUSH_U32 0.5\nPUSH_U32 0.5\nCTOR_VEC2_A 1, 1\nHOST_LOOKUP_1 2, 2\n";
}

// Pass a is 2 a + b + 1.5, where its own buffer and the one behind it are those of the frame
// before; b is 2 a of the same frame, the picture a + b.
TEST(Passes, BuffersOfThisFrameAndTheLast) {
  const auto sum = [](const std::string& one, const std::string& other) {
    return middleOf(one) + middleOf(other) + "ADD_F 4\n";
  };
  const BuiltShader a =
      showing(kBuffers, sum("a", "a") + middleOf("b") + "ADD_F 4\nPUSH_U32 1.5\nADD_VS_F 4", 4);
  const BuiltShader b = showing(kBuffers, sum("a", "a"), 4);
  const BuiltShader picture = showing(kBuffers, sum("a", "b"), 4);
  Passes passes;
  const std::vector<BufferRead> reads = {{.sampler = "a", .pass = 0}, {.sampler = "b", .pass = 1}};
  for (const BuiltShader* shader : {&a, &b, &picture}) passes.add(shader->view(), reads);
  RenderSettings settings = sized(3, 2);
  const auto nextFrame = [&] {
    EXPECT_TRUE(passes.renderBuffers(settings));
    return pixelAt(passes.picture().render(settings), 0, 0)[0];
  };
  EXPECT_EQ(nextFrame(), 4.5f);
  EXPECT_EQ(nextFrame(), 22.5f);
  std::stop_source stopped;
  stopped.request_stop();
  settings.stop = stopped.get_token();
  EXPECT_FALSE(passes.renderBuffers(settings));
  settings.stop = {};
  EXPECT_EQ(nextFrame(), 94.5f);
  settings.frame.width = 4;
  EXPECT_EQ(nextFrame(), 4.5f) << "a frame of another size begins anew";
}

TEST(Renderer, SamplesAreAveragedByTheirAlpha) {
  // Opaque red left of the pixel's middle, transparent blue right of it.
  const BuiltShader shader =
      build("",
            "PUSH_1_F\nPUSH_0_F\nPUSH_0_F\nPUSH_1_F\nCTOR_VEC4_A 1, 1, 1, 1\n"
            "STORE_GLOBAL colour\nLOAD_GLOBAL uv\nSWIZZLE .x\nPUSH_U32 0.5\nGT_F\n"
            "JUMP_IF_FALSE left\nPUSH_0_F\nPUSH_0_F\nPUSH_1_F\nPUSH_0_F\n"
            "CTOR_VEC4_A 1, 1, 1, 1\nSTORE_GLOBAL colour\nleft:");
  RenderSettings settings = sized(1, 1);
  settings.samples = 256;
  const Pixel pixel = pixelAt(Renderer(shader.view()).render(settings), 0, 0);
  EXPECT_EQ(pixel[0], 1);
  EXPECT_EQ(pixel[2], 0);
  EXPECT_NEAR(pixel[3], 0.5f, 0.01f);
}

TEST(Renderer, SamplesBelongToTheirPixels) {
  const BuiltShader shader = showing("", "LOAD_GLOBAL uv", 2);
  RenderSettings settings = sized(4, 4);
  settings.samples = 3;
  const RenderResult result = Renderer(shader.view()).render(settings);
  for (uint32_t i = 0; i < 16; ++i) {
    const Pixel pixel = pixelAt(result, i % 4, i / 4);
    EXPECT_EQ(static_cast<uint32_t>(4 * pixel[0]), i % 4);
    EXPECT_EQ(static_cast<uint32_t>(4 * pixel[1]), 3 - i / 4);
  }
}

TEST(Renderer, VaryingsOfTheHost) {
  const BuiltShader shader = showing(".global vec2 slope host\n", "LOAD_GLOBAL slope", 2);
  Renderer renderer(shader.view());
  const auto slope = [](float x, float y, std::span<float> components) {
    components[0] = 2 * x;
    components[1] = y;
  };
  EXPECT_EQ(renderer.inputs().setVarying("slope", slope), "");
  EXPECT_EQ(pixelAt(renderer.render(sized(3, 1)), 2, 0), (Pixel{5, 0.5f, 0, 1}));
}

TEST(Renderer, StopsWhenAsked) {
  const BuiltShader shader = showing("", "LOAD_GLOBAL uv", 2);
  std::stop_source source;
  RenderSettings settings = sized(4, 64);
  settings.stop = source.get_token();
  settings.progress = [&](uint32_t, uint32_t) { source.request_stop(); };
  EXPECT_LE(Renderer(shader.view()).render(settings).statistics.total(), 8u);
}

TEST(Renderer, ThrowsWhatAThreadThrew) {
  const BuiltShader shader = showing("", "LOAD_GLOBAL uv", 2);
  RenderSettings settings = sized(4, 64);
  settings.threads = 3;
  settings.progress = [](uint32_t, uint32_t) { throw std::runtime_error("enough"); };
  Renderer renderer(shader.view());
  EXPECT_THROW(renderer.render(settings), std::runtime_error);
}

TEST(Renderer, DiscardedFragmentsShowTheBackground) {
  RenderSettings settings = sized(4, 2);
  settings.background = {0.1f, 0.2f, 0.3f, 0.4f};
  const BuiltShader shader = halves("DISCARD");
  const RenderResult result = Renderer(shader.view()).render(settings);
  EXPECT_EQ(pixelAt(result, 1, 1), (Pixel{1, 1, 1, 1}));
  EXPECT_EQ(pixelAt(result, 2, 1), settings.background);
  EXPECT_EQ(result.depth, (std::vector<float>{0.25f, 0.25f, 1, 1, 0.25f, 0.25f, 1, 1}));
  EXPECT_EQ(result.statistics.runs[VM_ERR_DISCARDED], 4u);
  EXPECT_EQ(result.statistics.failed(), 0u);
  EXPECT_FALSE(result.failure);
}

TEST(Renderer, FirstFailureInReadingOrder) {
  const BuiltShader shader = halves("PUSH_INDEX_IMM 4\nPUSH_ZERO4\nVEC_ELEMENT 4\nPOP");
  RenderSettings settings = sized(6, 8);
  settings.threads = 4;
  const RenderResult result = Renderer(shader.view()).render(settings);
  ASSERT_TRUE(result.failure);
  EXPECT_EQ(result.failure->x, 3u);
  EXPECT_EQ(result.failure->y, 0u);
  EXPECT_EQ(result.statistics.failed(), 24u);
  EXPECT_EQ(describeFailure(*result.failure, shader.view()),
            "Array index out of bounds. (function main, offset 33, VEC_ELEMENT)");
}

TEST(Renderer, EndlessShaderEndsByItsTimeLimit) {
  const BuiltShader shader = halves("again:\nJUMP again");
  RenderSettings settings = sized(4, 64);
  settings.threads = 2;
  settings.timeout = 200;
  const RenderResult result = Renderer(shader.view()).render(settings);
  ASSERT_TRUE(result.failure);
  EXPECT_EQ(describeFailure(*result.failure, shader.view()),
            "Shader execution timed out. (function main, offset 30, JUMP)");
  EXPECT_LE(result.statistics.runs[VM_ERR_TIMEOUT], 2u);
  EXPECT_EQ(pixelAt(result, 1, 0), (Pixel{1, 1, 1, 1}));
}

// A batch holds what was made of the shader.
TEST(Renderer, BatchesStayFromPictureToPicture) {
  static int created;
  created = 0;
  constexpr BatchFunctions kNoMemory = {
      [](const BatchCreateInfo*) -> ShaderBatch* { return ++created, nullptr; },
      [](ShaderBatch*) { return VmError{VM_ERR_INVALID_HANDLE}; },
      [](ShaderBatch*, const CompiledShader*, const BatchStartupInfo*, VmError*) {
        return VmError{VM_ERR_INVALID_HANDLE};
      }};
  const BuiltShader shader = halves("");
  Renderer renderer(shader.view());
  RenderSettings settings = sized(4, 4);
  settings.threads = 1;
  settings.batches = &kNoMemory;
  for (int picture = 0; picture < 3; ++picture) {
    EXPECT_EQ(renderer.render(settings).statistics.failed(), 0u);
  }
  EXPECT_EQ(created, 1);
}

TEST(Image, QuantizeClampsAndRounds) {
  FloatImage image(1, 2);
  image.rgba = {-1,
                0,
                0.5f,
                1,
                2,
                std::numeric_limits<float>::quiet_NaN(),
                std::numeric_limits<float>::infinity(),
                0.0019f};
  EXPECT_EQ(quantize(image).rgba, (std::vector<uint8_t>{0, 0, 128, 255, 255, 0, 255, 0}));
}

}  // namespace
}  // namespace shadermachine::tools
