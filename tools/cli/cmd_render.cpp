#include <shadermachine-tools/passes.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "cli/batches.h"
#include "cli/commands.h"
#include "cli/input_options.h"
#include "cli/picture_file.h"
#include "cli/progress_bar.h"
#include "cli/project.h"
#include "cli/system.h"
#include "view/file_watch.h"

namespace shadermachine::tools {
namespace {

struct RenderOptions {
  InputOptions input;
  std::string output = std::string("out.") + kUsualFormat;
  std::string format;  // empty: as the output's extension says
  std::string region;  // x,y,WxH; empty: all
  uint32_t samples = 1;
  float gamma = 1;
  std::string frames;  // first:last; empty for one picture
  uint32_t threads = 0;
  bool oneByOne = false;
  bool stats = false;
  bool watch = false;
};

struct FrameRange {
  int32_t first = 0;
  int32_t last = 0;
};

bool parseFrames(const std::string& text, FrameRange& range) {
  const char* const end = text.data() + text.size();
  const auto first = std::from_chars(text.data(), end, range.first);
  if (first.ec != std::errc() || first.ptr == end || *first.ptr != ':') return false;
  const auto last = std::from_chars(first.ptr + 1, end, range.last);
  return last.ec == std::errc() && last.ptr == end && range.first >= 0 && range.first <= range.last;
}

std::string checkFrames(const std::string& text) {
  FrameRange range;
  return parseFrames(text, range) ? "" : "expected FIRST:LAST, not " + text;
}

// Position and size of the region, which must lie in the picture.
bool parseRegion(const std::string& text, PixelRegion& region) {
  const char separators[] = {',', ',', 'x', '\0'};
  const char* place = text.c_str();
  const char* const end = place + text.size();
  uint32_t* const numbers[] = {&region.x, &region.y, &region.width, &region.height};
  for (size_t i = 0; i < std::size(numbers); ++i) {
    const auto [stop, error] = std::from_chars(place, end, *numbers[i]);
    if (error != std::errc() || *stop != separators[i]) return false;
    place = stop + 1;
  }
  return place == end + 1 && region.width > 0 && region.height > 0;
}

std::string checkRegion(const std::string& text) {
  PixelRegion region;
  return parseRegion(text, region) ? "" : "expected X,Y,WIDTHxHEIGHT, not " + text;
}

std::string checkFormat(const std::string& name) {
  return pictureFormat(name) ? "" : "expected " + pictureFormatNames() + ", not " + name;
}

// Devices and the like have no extension.
PictureFormat formatOf(const RenderOptions& options) {
  if (!options.format.empty()) return *pictureFormat(options.format);
  const std::string extension = std::filesystem::path(options.output).extension().string();
  if (extension.empty()) return *pictureFormat(kUsualFormat);
  const auto format = pictureFormat(extension.substr(1));
  if (!format) throw CLI::ValidationError("--output", checkFormat(extension.substr(1)));
  return *format;
}

// "out.png" becomes "out-0007.png"; standard output takes one frame after the other.
std::string frameName(const std::string& output, int32_t frame) {
  if (output == "-") return output;
  const std::filesystem::path path = output;
  char number[16];
  std::snprintf(number, sizeof number, "-%04d", frame);
  const std::string name = path.stem().string() + number + path.extension().string();
  return (path.parent_path() / name).string();
}

// To standard error when the picture goes to standard output.
void printStatistics(const std::string& path, const RenderResult& result) {
  const RenderStatistics& statistics = result.statistics;
  std::FILE* const stream = path == "-" ? stderr : stdout;
  std::fprintf(stream, "%s: %ux%u, %.2f s on %u thread%s, %.0f ns per fragment\n", path.c_str(),
               result.colour.width, result.colour.height, statistics.seconds, statistics.threads,
               statistics.threads == 1 ? "" : "s", statistics.nanosecondsPerFragment);
  for (uint32_t code = 0; code < VM_ERROR_COUNT; ++code) {
    if (statistics.runs[code] == 0) continue;
    std::fprintf(stream, "  %10llu  code %u: %s\n",
                 static_cast<unsigned long long>(statistics.runs[code]), code,
                 vmGetErrorString(code));
  }
}

RenderSettings settingsOf(const RenderOptions& options, int32_t frame) {
  RenderSettings settings;
  settings.frame = frameInputs(options.input, frame);
  settings.threads = options.threads;
  settings.timeout = options.input.timeout;
  settings.samples = options.samples;
  settings.batches = options.oneByOne ? nullptr : batchFunctions();
  if (options.region.empty()) return settings;
  PixelRegion region;
  parseRegion(options.region, region);
  const auto [width, height] = std::pair(settings.frame.width, settings.frame.height);
  if (region.x >= width || region.width > width - region.x || region.y >= height ||
      region.height > height - region.y) {
    throw CLI::ValidationError("--region", "lies outside of the picture");
  }
  settings.region = region;
  return settings;
}

// Refuses what cannot fit into the machine's memory before any work is done.
void requireMemory(const RenderSettings& settings) {
  // Colour and depth of the picture, and what its file is made from: colour with gamma, bytes.
  constexpr double kBytesPerPixel = 16 + 4 + 16 + 8;
  const PixelRegion region =
      settings.region.value_or(PixelRegion{0, 0, settings.frame.width, settings.frame.height});
  const double needed = kBytesPerPixel * region.width * region.height;
  const double present = memoryBytes();
  if (needed <= present || present == 0) return;
  char text[96];
  std::snprintf(text, sizeof text, "the picture needs %.1f GiB of memory, the machine has %.1f",
                needed / 0x1p30, present / 0x1p30);
  throw InputError(text);
}

RenderResult renderWithBar(Renderer& renderer, RenderSettings settings, const std::string& path) {
  ProgressBar bar(path);
  const uint32_t rowWidth = settings.region ? settings.region->width : settings.frame.width;
  settings.progress = [&](uint32_t done, uint32_t total) {
    bar.update(done, total, rowWidth * settings.samples);
  };
  return renderer.render(settings);
}

// A project's frames, and whether any of their fragments failed: pictures are written all the same.
class FrameSeries {
 public:
  FrameSeries(const RenderOptions& options, Project& project)
      : options_(options), project_(project) {}

  // Those before the first one are only there for what buffers keep from frame to frame.
  bool render(const FrameRange& range) {
    const bool hasBuffers = project_.passes().count() > 1;
    for (int64_t frame = hasBuffers ? 0 : range.first; frame <= range.last; ++frame) {
      const auto number = static_cast<int32_t>(frame);
      const RenderSettings settings = settingsOf(options_, number);
      if (hasBuffers) renderBuffers(settings);
      if (number >= range.first) renderPicture(settings, number);
    }
    return isGood_;
  }

 private:
  void note(size_t pass, const RenderResult& result) {
    if (!result.failure) return;
    std::fputs(project_.failureText(pass, result).c_str(), stderr);
    isGood_ = false;
  }

  void renderBuffers(const RenderSettings& settings) {
    project_.passes().renderBuffers(
        settings, [this](size_t pass, const RenderResult& result) { note(pass, result); });
  }

  void renderPicture(const RenderSettings& settings, int32_t frame) {
    const std::string path =
        options_.frames.empty() ? options_.output : frameName(options_.output, frame);
    OutputFile file(path);
    const RenderResult result = renderWithBar(project_.passes().picture(), settings, path);
    writePicture(file, path, result.colour, formatOf(options_), options_.gamma);
    file.commit();
    if (options_.stats) printStatistics(path, result);
    note(project_.passes().count() - 1, result);
  }

  const RenderOptions& options_;
  Project& project_;
  bool isGood_ = true;
};

int renderAll(const RenderOptions& options, std::vector<std::string>* files = nullptr) {
  formatOf(options);
  requireMemory(settingsOf(options, 0));
  Project project(options.input, files);
  FrameRange range = {options.input.frame, options.input.frame};
  parseFrames(options.frames, range);
  return FrameSeries(options, project).render(range) ? kSuccess : kRunFailed;
}

// Renders again whenever a file changes that the picture was made from, until the user ends the
// program.
[[noreturn]] void renderAndWatch(const RenderOptions& options) {
  constexpr auto kPollInterval = std::chrono::milliseconds(200);
  FileWatch watch;
  while (true) {
    const FileWatch::Time start = FileWatch::Time::clock::now();
    std::vector<std::string> files;
    try {
      renderAll(options, &files);
      std::fprintf(stderr, "%s: rendered, waiting for changes\n", options.input.shaderPath.c_str());
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s\n", error.what());
    }
    watch.watch(files, start);
    while (!watch.hasChange()) std::this_thread::sleep_for(kPollInterval);
  }
}

}  // namespace

void addRenderCommand(CLI::App& program, Outcome& outcome) {
  CLI::App* command = program.add_subcommand("render", "Render a picture with a fragment shader");
  auto options = std::make_shared<RenderOptions>();
  command->add_option("-o,--output", options->output, "the picture to write")
      ->type_name("FILE")
      ->capture_default_str();
  command
      ->add_option("--format", options->format,
                   pictureFormatNames() + "; told from the file's name unless given")
      ->type_name("NAME")
      ->check(CLI::Validator(checkFormat, ""));
  addInputOptions(*command, options->input);
  command->add_option("--region", options->region, "render this part of the picture only")
      ->type_name("X,Y,WxH")
      ->check(CLI::Validator(checkRegion, ""));
  command->add_option("--samples", options->samples, "fragments per pixel, against jagged edges")
      ->type_name("N")
      ->check(CLI::Range(1, 1024).description(""))
      ->capture_default_str();
  command->add_option("--gamma", options->gamma, "raise the colours of 8-bit formats to 1 / G")
      ->type_name("G")
      ->check(CLI::Range(0.1, 10.0).description(""))
      ->capture_default_str();
  command
      ->add_option("--frames", options->frames,
                   "render these frames, 30 to the second, to FILE-0001.png and so on, or one "
                   "after another to standard output")
      ->type_name("FIRST:LAST")
      ->check(CLI::Validator(checkFrames, ""));
  command->add_option("--threads", options->threads, "threads to use; 0: all there are")
      ->check(CLI::Range(0, 1024).description(""))
      ->type_name("N")
      ->capture_default_str();
  command->add_flag("--one-by-one", options->oneByOne,
                    "run every fragment by itself, not side by side in batches: the same picture");
  command->add_flag("--stats", options->stats, "print time per fragment and runs by error code");
  command->add_flag("--watch", options->watch,
                    "render again whenever a file changes that was read");
  command->callback([options, &outcome] {
    if (options->watch && options->input.shaderPath == "-") {
      throw CLI::ValidationError("--watch", "needs a file");
    }
    if (options->watch) renderAndWatch(*options);
    outcome.exitCode = renderAll(*options);
  });
}

}  // namespace shadermachine::tools
