#include <shadermachine-tools/renderer.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <thread>

#include "cli/commands.h"
#include "cli/input_options.h"
#include "cli/png_file.h"
#include "cli/progress_bar.h"
#include "cli/shader_file.h"

namespace shadermachine::tools {
namespace {

struct RenderOptions {
  InputOptions input;
  std::string output = "out.png";
  std::string frames;  // first:last; empty for one picture
  uint32_t threads = 0;
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

// "out.png" becomes "out-0007.png".
std::string frameName(const std::string& output, int32_t frame) {
  const size_t slash = output.rfind('/');
  const size_t dot = output.rfind('.');
  const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
  const size_t stem = hasExtension ? dot : output.size();
  char number[16];
  std::snprintf(number, sizeof number, "-%04d", frame);
  return output.substr(0, stem) + number + output.substr(stem);
}

void printStatistics(const std::string& path, const FrameInputs& frame,
                     const RenderStatistics& statistics) {
  std::printf("%s: %ux%u, %.2f s on %u thread%s, %.0f ns per fragment\n", path.c_str(), frame.width,
              frame.height, statistics.seconds, statistics.threads,
              statistics.threads == 1 ? "" : "s", statistics.nanosecondsPerFragment);
  for (uint32_t code = 0; code < VM_ERROR_COUNT; ++code) {
    if (statistics.runs[code] == 0) continue;
    std::printf("  %10llu  code %u: %s\n", static_cast<unsigned long long>(statistics.runs[code]),
                code, vmGetErrorString(code));
  }
}

void printFailure(const std::string& shaderPath, const RenderResult& result,
                  const ShaderView& view) {
  const RunFailure& failure = *result.failure;
  const std::string pixel =
      "pixel (" + std::to_string(failure.x) + ", " + std::to_string(failure.y) + "): ";
  const std::string counts = "; " + std::to_string(result.statistics.failed()) + " of " +
                             std::to_string(result.statistics.total()) + " fragments failed";
  std::fputs(formatFailure(failure, view, shaderPath, pixel, counts).c_str(), stderr);
}

// Returns false when fragments failed; the picture is written all the same.
bool renderFrame(const RenderOptions& options, const ShaderView& view, Renderer& renderer,
                 int32_t frame, const std::string& path) {
  RenderSettings settings;
  settings.frame = frameInputs(options.input, frame);
  settings.threads = options.threads;
  settings.timeout = options.input.timeout;
  std::optional<ProgressBar> bar(std::in_place, path);
  settings.progress = [&](uint32_t done, uint32_t total) {
    bar->update(done, total, settings.frame.width);
  };
  const RenderResult result = renderer.render(settings);
  bar.reset();
  writePng(path, quantize(result.colour));
  if (options.stats) printStatistics(path, settings.frame, result.statistics);
  if (result.failure) printFailure(options.input.shaderPath, result, view);
  return !result.failure;
}

int renderAll(const RenderOptions& options) {
  const LoadedShader shader = loadShader(options.input.shaderPath, options.input.source);
  validateUnlessTrusted(options.input, shader.view());
  Renderer renderer(shader.view());
  applyInputs(options.input, shader, renderer.inputs());
  FrameRange range;
  parseFrames(options.frames, range);
  bool good = true;
  for (int64_t frame = range.first; frame <= range.last; ++frame) {
    const auto number = static_cast<int32_t>(frame);
    const std::string path =
        options.frames.empty() ? options.output : frameName(options.output, number);
    good = renderFrame(options, shader.view(), renderer, number, path) && good;
  }
  return good ? kSuccess : kRunFailed;
}

std::filesystem::file_time_type changeTime(const std::string& path) {
  std::error_code ignored;  // editors replace files; a missing one is back soon
  return std::filesystem::last_write_time(path, ignored);
}

// Renders again whenever the shader's file changes, until the user ends the program.
[[noreturn]] void renderAndWatch(const RenderOptions& options) {
  constexpr auto kPollInterval = std::chrono::milliseconds(200);
  while (true) {
    const auto seen = changeTime(options.input.shaderPath);
    try {
      renderAll(options);
      std::fprintf(stderr, "%s: rendered, waiting for changes\n", options.input.shaderPath.c_str());
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s\n", error.what());
    }
    while (changeTime(options.input.shaderPath) == seen) std::this_thread::sleep_for(kPollInterval);
  }
}

}  // namespace

void addRenderCommand(CLI::App& program, Outcome& outcome) {
  CLI::App* command = program.add_subcommand("render", "Render a picture with a fragment shader");
  auto options = std::make_shared<RenderOptions>();
  command->add_option("-o,--output", options->output, "the picture to write")
      ->type_name("FILE.png")
      ->capture_default_str();
  addInputOptions(*command, options->input);
  command
      ->add_option("--frames", options->frames,
                   "render these frames, 30 to the second, to FILE-0001.png and so on")
      ->type_name("FIRST:LAST")
      ->check(CLI::Validator(checkFrames, ""));
  command->add_option("--threads", options->threads, "threads to use; 0: all there are")
      ->check(CLI::Range(0, 1024))
      ->type_name("N")
      ->capture_default_str();
  command->add_flag("--stats", options->stats, "print time per fragment and runs by error code");
  command->add_flag("--watch", options->watch, "render again whenever the shader's file changes");
  command->callback([options, &outcome] {
    if (options->watch) renderAndWatch(*options);
    outcome.exitCode = renderAll(*options);
  });
}

}  // namespace shadermachine::tools
