// Renders GLSL fragment shaders with this machine and with Mesa's software drivers, on one thread,
// and prints nanoseconds of processor time per fragment and how many pixels agree.
#include <shadermachine-tools/glsl.h>
#include <shadermachine-tools/renderer.h>
#include <shadermachine/shadermachine.h>
#if defined(SHADERMACHINE_HAVE_BATCH)
#include <shadermachine/batch.h>
#endif

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "cli/picture_file.h"
#include "mesa.h"

namespace {

using namespace shadermachine::tools;
using namespace shadermachine::benchmarks;

constexpr int kSkipped = 77;  // exit code that ctest counts as a test that could not run

std::string readFile(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path + ": cannot be read");
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// A driver has no entry for shaders that consist of mainImage() alone.
std::string withEntry(const std::string& source) {
  if (source.find("void mainImage") == std::string::npos) return source;
  return "#version 300 es\nprecision highp float; uniform vec3 iResolution; uniform float iTime;\n"
         "out vec4 pixelColour;\n" +
         source +
         "\nvoid main() { vec4 c; mainImage(c, gl_FragCoord.xy); pixelColour = vec4(c.rgb, 1.0); "
         "}\n";
}

#if defined(SHADERMACHINE_HAVE_BATCH)
constexpr BatchFunctions kBatchFunctions = {vmShaderBatchCreate, vmShaderBatchDestroy,
                                            vmShaderBatchExecuteShader};
constexpr const BatchFunctions* kBatches = &kBatchFunctions;
#else
constexpr const BatchFunctions* kBatches = nullptr;
#endif

Picture renderHere(const std::string& source, const std::string& path, const Size& size,
                   const BatchFunctions* batches) {
  GlslResult compiled = compileGlsl(source, {.fileName = path});
  if (!compiled.shader) throw std::runtime_error(toString(compiled.messages.front()));
  Renderer renderer(compiled.shader->view());
  for (const NamedValue& value : compiled.uniformValues) {
    renderer.inputs().set(value.name, value.components);
  }
  RenderSettings settings;
  settings.frame.width = static_cast<uint32_t>(size.width);
  settings.frame.height = static_cast<uint32_t>(size.height);
  settings.frame.time = kTime;
  settings.threads = 1;
  settings.batches = batches;
  RenderResult result;
  Picture picture;
  picture.nanoseconds =
      bestNanoseconds([&] { result = renderer.render(settings); }, size.fragments());
  for (uint32_t y = settings.frame.height; y-- > 0;) {
    const float* row = result.colour.pixel(0, y);
    picture.pixels.insert(picture.pixels.end(), row, row + 4 * settings.frame.width);
  }
  return picture;
}

float shown(float x) { return x > 0 ? std::min(x, 1.0f) : 0; }

// Largest difference of a displayed colour's components.
float difference(const Picture& a, const Picture& b, size_t pixel) {
  float largest = 0;
  for (size_t i = 4 * pixel; i < 4 * pixel + 3; ++i) {
    largest = std::max(largest, std::abs(shown(a.pixels[i]) - shown(b.pixels[i])));
  }
  return largest;
}

bool agrees(const Picture& a, const Picture& b, size_t pixel) {
  return difference(a, b, pixel) <= 1.0f / 255 + 1e-6f;
}

// Percentage of the pixels whose displayed colours differ by at most one step of 255.
double agreement(const Picture& a, const Picture& b) {
  const size_t count = a.pixels.size() / 4;
  size_t alike = 0;
  for (size_t pixel = 0; pixel < count; ++pixel) alike += agrees(a, b, pixel) ? 1 : 0;
  return 100.0 * static_cast<double>(alike) / static_cast<double>(count);
}

// One row of panels per shader: the machine's picture, then every driver's with the pixels in which
// it differs: a square around each, orange to white with the size of the difference.
class DifferencePicture {
 public:
  explicit DifferencePicture(const Size& size) : size_(size) {}

  void addRow(const Picture& ours, const std::vector<Picture>& others) {
    const auto width = static_cast<uint32_t>(size_.width);
    const auto panels = static_cast<uint32_t>(1 + 2 * others.size());
    ByteImage grown(panels * width, image_.height + static_cast<uint32_t>(size_.height));
    std::ranges::copy(image_.rgba, grown.rgba.begin());
    top_ = image_.height;
    image_ = std::move(grown);
    uint32_t left = 0;
    addPanel(left, ours, 1);
    for (const Picture& other : others) {
      addPanel(left += width, other, 1);
      addPanel(left += width, ours, 0.25f);
      for (size_t pixel = 0; pixel < size_.fragments(); ++pixel) {
        if (!agrees(ours, other, pixel)) mark(left, pixel, difference(ours, other, pixel));
      }
    }
  }

  void write(const std::string& path) const {
    OutputFile file(path);
    writePng(file, path, image_);
    file.commit();
  }

 private:
  uint8_t* place(uint32_t left, int x, int y) {
    return image_.pixel(left + static_cast<uint32_t>(x),
                        top_ + static_cast<uint32_t>(size_.height - 1 - y));
  }

  void addPanel(uint32_t left, const Picture& picture, float brightness) {
    for (int y = 0; y < size_.height; ++y) {
      for (int x = 0; x < size_.width; ++x) {
        const float* colour = &picture.pixels[4 * static_cast<size_t>(y * size_.width + x)];
        uint8_t* bytes = place(left, x, y);
        for (size_t i = 0; i < 3; ++i) {
          bytes[i] = static_cast<uint8_t>(std::lround(shown(colour[i]) * brightness * 255));
        }
        bytes[3] = 255;
      }
    }
  }

  void mark(uint32_t left, size_t pixel, float amount) {
    const int centreX = static_cast<int>(pixel) % size_.width;
    const int centreY = static_cast<int>(pixel) / size_.width;
    const auto strength = static_cast<uint8_t>(std::lround(255 * std::min(4 * amount, 1.0f)));
    for (int y = std::max(centreY - 1, 0); y <= std::min(centreY + 1, size_.height - 1); ++y) {
      for (int x = std::max(centreX - 1, 0); x <= std::min(centreX + 1, size_.width - 1); ++x) {
        uint8_t* bytes = place(left, x, y);
        bytes[0] = 255;
        bytes[1] = static_cast<uint8_t>(std::max(128, int{strength}));
        bytes[2] = strength;
      }
    }
  }

  Size size_;
  ByteImage image_{0, 0};
  uint32_t top_ = 0;
};

struct Options {
  std::vector<std::string> paths;
  Size size;
  std::string differencePath;
  double least = 0;
};

// Returns whether every shader agrees with one of the drivers in as many pixels as it should.
bool compare(const Options& options) {
  std::printf(
      "| shader | machine, ns | batch, ns | softpipe, ns | llvmpipe, ns | machine / softpipe | "
      "batch / llvmpipe | agrees with softpipe | with llvmpipe |\n"
      "|---|---|---|---|---|---|---|---|---|\n");
  double logarithms = 0;
  double batchLogarithms = 0;
  bool allAgree = true;
  DifferencePicture differences(options.size);
  for (const std::string& path : options.paths) {
    const std::string source = readFile(path);
    const Picture ours = renderHere(source, path, options.size, nullptr);
    const Picture batch = renderHere(source, path, options.size, kBatches);
    const Picture soft = renderWithMesa("softpipe", withEntry(source), options.size);
    const Picture llvm = renderWithMesa("llvmpipe", withEntry(source), options.size);
    const double ratio = ours.nanoseconds / soft.nanoseconds;
    const double batchRatio = batch.nanoseconds / llvm.nanoseconds;
    logarithms += std::log(ratio);
    batchLogarithms += std::log(batchRatio);
    const double withSoft = agreement(ours, soft), withLlvm = agreement(ours, llvm);
    allAgree = allAgree && std::max(withSoft, withLlvm) >= options.least;
    const size_t slash = path.rfind('/');
    std::printf("| %s | %.0f | %.0f | %.0f | %.0f | %.2f | %.1f | %.2f%% | %.2f%% |\n",
                path.substr(slash == std::string::npos ? 0 : slash + 1).c_str(), ours.nanoseconds,
                batch.nanoseconds, soft.nanoseconds, llvm.nanoseconds, ratio, batchRatio, withSoft,
                withLlvm);
    std::fflush(stdout);
    if (!options.differencePath.empty()) differences.addRow(ours, {soft, llvm});
  }
  const auto count = static_cast<double>(options.paths.size());
  std::printf("\nGeometric mean of machine / softpipe: %.2f, of batch / llvmpipe: %.1f\n",
              std::exp(logarithms / count), std::exp(batchLogarithms / count));
  if (!options.differencePath.empty()) differences.write(options.differencePath);
  return allAgree;
}

std::string parseSize(const std::string& text, Size& size) {
  const bool isSize = std::sscanf(text.c_str(), "%dx%d", &size.width, &size.height) == 2 &&
                      size.width > 0 && size.height > 0 && size.width <= 8192 &&
                      size.height <= 8192;
  return isSize ? "" : "expected WIDTHxHEIGHT";
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App program("Compares pictures and times with Mesa's software drivers.", "compare-mesa");
  program.add_option("shader", options.paths, "GLSL fragment shaders")->required();
  program.add_option("--size", "size of the pictures; 240x135 unless given")
      ->type_name("WxH")
      ->each([&](const std::string& text) {
        const std::string error = parseSize(text, options.size);
        if (!error.empty()) throw CLI::ValidationError("--size", error);
      });
  program
      .add_option("--difference", options.differencePath,
                  "write every shader's pictures, and where they differ, side by side")
      ->type_name("FILE.png");
  program.add_option("--at-least", options.least,
                     "fail unless so many percent of every shader's pixels agree with a driver");
  CLI11_PARSE(program, argc, argv);
  try {
    vmInitialize();
    return compare(options) ? 0 : 1;
  } catch (const MissingDriver& error) {
    std::fprintf(stderr, "compare-mesa: %s\n", error.what());
    return kSkipped;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "compare-mesa: %s\n", error.what());
    return 1;
  }
}
