// The live window.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "cli/batches.h"
#include "cli/commands.h"
#include "cli/input_options.h"
#include "cli/picture_file.h"
#include "cli/project.h"
#include "cli/system.h"
#include "debugger/trace.h"
#ifdef SHADERMACHINE_HAVE_WINDOW
#include "view/window.h"
#endif

namespace shadermachine::tools {
namespace {

struct ViewOptions {
  InputOptions input;
  uint32_t threads = 0;
  bool showsRate = false;
};

#ifdef SHADERMACHINE_HAVE_WINDOW
void say(const std::string& text) {
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

// A word as shells read it.
std::string quoted(const std::string& word) {
  const auto isPlain = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
           std::string_view("_-+=.,/:@%").find(c) != std::string_view::npos;
  };
  if (!word.empty() && std::ranges::all_of(word, isPlain)) return word;
  std::string result = "'";
  for (const char c : word) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "'";
}

constexpr std::string_view kProgram = "shadermachine";

// The terminal belongs to the debugger while it runs; Ctrl-C is for it. A window that is closed
// before leaves the program waiting for it.
class TerminalDebugger {
 public:
  void start(const std::string& command) {
    if (isRunning_.exchange(true)) return say("the debugger runs already");
    const bool hasTerminal = isTerminal(stdin);
    if (!hasTerminal) {
      isRunning_ = false;
      return say("the debugger needs a terminal: enter the command above in one");
    }
    std::error_code ignored;
    const std::string self = std::filesystem::read_symlink("/proc/self/exe", ignored).string();
    const std::string program = self.empty() ? std::string(kProgram) : quoted(self);
    thread_ = std::jthread([this, line = program + command.substr(kProgram.size())] {
      if (std::system(line.c_str()) == -1) say("no debugger can be started");
      isRunning_ = false;
    });
  }

 private:
  std::atomic<bool> isRunning_ = false;
  std::jthread thread_;
};

class ProjectScene final : public Scene {
 public:
  ProjectScene(const InputOptions& options, std::vector<std::string>& files)
      : options_(options), project_(options, &files) {}

  Passes& passes() override { return project_.passes(); }
  bool hasKeyboard() const override { return project_.hasKeyboard(); }
  void setKeyboard(const Texture& keyboard) override { project_.setKeyboard(keyboard); }

  std::string failureText(size_t pass, const RenderResult& result) override {
    std::string text = project_.failureText(pass, result);
    while (text.ends_with('\n')) text.pop_back();
    return text;
  }

  void trace(const FrameInputs& frame, uint32_t x, uint32_t y) override {
    FragmentRun run(project_.pictureShader().view(), passes().picture().inputs(), frame, x, y,
                    options_.timeout);
    Debugger debugger(run, options_.timeout);
    traceSource(debugger, [](const std::string& line) { std::fputs(line.c_str(), stdout); });
    std::fflush(stdout);
  }

  std::string debugCommand(const FrameInputs& frame, uint32_t x, uint32_t y) override {
    std::string command = std::string(kProgram) + " debug " + quoted(options_.shaderPath);
    const auto add = [&command](const std::string& option, const std::string& value) {
      command += " " + option + " " + quoted(value);
    };
    const SourceOptions& source = options_.source;
    for (const std::string& define : source.defines) add("-D", define);
    for (const std::string& folder : source.includes) add("-I", folder);
    for (const std::string& texture : options_.textures) add("--texture", texture);
    for (const std::string& value : options_.values) add("--set", value);
    add("--size", std::to_string(frame.width) + "x" + std::to_string(frame.height));
    // What buffers keep is made again from the beginning, as well as it can be.
    const bool hasBuffers = passes().count() > 1;
    if (hasBuffers) add("--frame", std::to_string(frame.frame));
    add("--time", number(hasBuffers ? options_.time : frame.time));
    addWhatIsAsked(frame, add);
    add("--pixel", std::to_string(x) + "," + std::to_string(y));
    return command;
  }

 private:
  static std::string number(float value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", double{value});
    return text;
  }

  // Standard inputs that no option of their own sets.
  template <class Add>
  void addWhatIsAsked(const FrameInputs& frame, const Add& add) {
    const bool hasBuffers = passes().count() > 1;
    const auto& [x, y, startX, startY] = frame.mouse;
    const std::pair<std::string_view, std::string> inputs[] = {
        {hasBuffers ? "" : "iFrame", std::to_string(frame.frame)},
        {"iMouse", number(x) + "," + number(y) + "," + number(startX) + "," + number(startY)},
        {"u_mouse", number(frame.pointer[0]) + "," + number(frame.pointer[1])}};
    const std::vector<std::string_view> names = passes().picture().inputs().names();
    for (const auto& [name, value] : inputs) {
      if (std::ranges::count(names, name) > 0) add("--set", std::string(name) + "=" + value);
    }
  }

  const InputOptions& options_;
  Project project_;
};

LoadResult load(const InputOptions& options) {
  LoadResult result;
  result.readAt = std::filesystem::file_time_type::clock::now();
  try {
    result.scene = std::make_unique<ProjectScene>(options, result.files);
  } catch (const std::exception& error) {
    result.error = error.what();
  }
  return result;
}

void savePicture(const std::string& path, const FloatImage& picture) {
  OutputFile file(path);
  writePicture(file, path, picture, PictureFormat::Png, 1);
  file.commit();
}

void showView(const ViewOptions& options) {
  ViewSettings settings;
  settings.render.frame = frameInputs(options.input, options.input.frame);
  settings.render.threads = options.threads;
  settings.render.timeout = options.input.timeout;
  settings.render.batches = batchFunctions();
  settings.showsRate = options.showsRate;
  TerminalDebugger debugger;
  const ViewHost host = {.load = [&options] { return load(options.input); },
                         .save = savePicture,
                         .say = say,
                         .debug = [&](const std::string& line) { debugger.start(line); },
                         .name = std::filesystem::path(options.input.shaderPath).stem().string()};
  View view(host, settings);
  const FrameInputs& frame = settings.render.frame;
  showWindow(view, options.input.shaderPath, frame.width, frame.height);
}
#else
void showView(const ViewOptions&) {
  throw InputError("this program was built without SDL2, which windows need");
}
#endif

}  // namespace

void addViewCommand(CLI::App& program, Outcome&) {
  CLI::App* command = program.add_subcommand(
      "view", "Show a shader live in a window, and again whenever its files change");
  auto options = std::make_shared<ViewOptions>();
  addInputOptions(*command, options->input);
  command->add_option("--threads", options->threads, "threads to use; 0: all there are")
      ->check(CLI::Range(0, 1024).description(""))
      ->type_name("N")
      ->capture_default_str();
  command->add_flag("--fps", options->showsRate, "show time, frames per second and size");
  command->callback([options] {
    if (options->input.shaderPath == "-") throw CLI::ValidationError("view", "needs a file");
    showView(*options);
  });
}

}  // namespace shadermachine::tools
