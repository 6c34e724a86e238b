// Renders GLSL fragment shaders with this machine and with Mesa's software drivers, on one thread,
// and prints nanoseconds of processor time per fragment and how many pixels agree.
//
//   compare-mesa [--size WxH] shader.frag...
//
// Each driver runs in a process of its own, because it is chosen by the environment.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl3.h>
#include <shadermachine-tools/glsl.h>
#include <shadermachine-tools/renderer.h>
#include <shadermachine/shadermachine.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace shadermachine::tools;

constexpr float kTime = 1.5f;

struct Picture {
  double nanoseconds = 0;     // per fragment
  std::vector<float> pixels;  // four components each, bottom row first
};

struct Size {
  int width = 320;
  int height = 180;
  size_t fragments() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
};

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

double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Least processor time of a few repetitions: other programs disturb it little.
template <class Work>
double bestNanoseconds(const Work& work, size_t fragments) {
  double best = 1e30;
  for (int i = 0; i < 5; ++i) {
    const double start = processorSeconds();
    work();
    best = std::min(best, (processorSeconds() - start) * 1e9 / static_cast<double>(fragments));
  }
  return best;
}

Picture renderHere(const std::string& source, const std::string& path, const Size& size) {
  GlslResult compiled = compileGlsl(source, {.fileName = path});
  if (!compiled.shader) throw std::runtime_error(toString(compiled.messages.front()));
  Renderer renderer(compiled.shader->view());
  RenderSettings settings;
  settings.frame.width = static_cast<uint32_t>(size.width);
  settings.frame.height = static_cast<uint32_t>(size.height);
  settings.frame.time = kTime;
  settings.threads = 1;
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

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

GLuint compileStage(GLenum stage, const std::string& source) {
  const GLuint shader = glCreateShader(stage);
  const char* text = source.c_str();
  glShaderSource(shader, 1, &text, nullptr);
  glCompileShader(shader);
  GLint compiled = 0;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
  if (compiled != 0) return shader;
  char log[2000] = "";
  glGetShaderInfoLog(shader, sizeof log, nullptr, log);
  throw std::runtime_error(log);
}

// A window-less context with a framebuffer of floats.
void createContext(const Size& size) {
  const auto getDisplay = reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(
      eglGetProcAddress("eglGetPlatformDisplayEXT"));
  require(getDisplay != nullptr, "EGL has no platform displays");
  const EGLDisplay display = getDisplay(EGL_PLATFORM_SURFACELESS_MESA, nullptr, nullptr);
  require(eglInitialize(display, nullptr, nullptr) == EGL_TRUE, "EGL cannot be initialized");
  eglBindAPI(EGL_OPENGL_ES_API);
  const EGLint attributes[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_NONE};
  const EGLContext context =
      eglCreateContext(display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attributes);
  require(context != EGL_NO_CONTEXT, "no GLES 3 context");
  eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context);
  GLuint buffer = 0;
  GLuint target = 0;
  glGenRenderbuffers(1, &buffer);
  glBindRenderbuffer(GL_RENDERBUFFER, buffer);
  glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA32F, size.width, size.height);
  glGenFramebuffers(1, &target);
  glBindFramebuffer(GL_FRAMEBUFFER, target);
  glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, buffer);
  require(glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE,
          "no framebuffer of floats");
  glViewport(0, 0, size.width, size.height);
}

Picture renderWithDriver(const std::string& source, const Size& size) {
  const bool isModern = source.starts_with("#version 300 es");
  const GLuint program = glCreateProgram();
  glAttachShader(program,
                 compileStage(GL_VERTEX_SHADER,
                              isModern ? "#version 300 es\nin vec2 corner;\n"
                                         "void main() { gl_Position = vec4(corner, 0.0, 1.0); }"
                                       : "attribute vec2 corner;\n"
                                         "void main() { gl_Position = vec4(corner, 0.0, 1.0); }"));
  glAttachShader(program, compileStage(GL_FRAGMENT_SHADER, source));
  glBindAttribLocation(program, 0, "corner");
  glLinkProgram(program);
  glUseProgram(program);
  const auto width = static_cast<float>(size.width);
  const auto height = static_cast<float>(size.height);
  glUniform2f(glGetUniformLocation(program, "u_resolution"), width, height);
  glUniform3f(glGetUniformLocation(program, "iResolution"), width, height, 1);
  glUniform1f(glGetUniformLocation(program, "u_time"), kTime);
  glUniform1f(glGetUniformLocation(program, "iTime"), kTime);
  const float corners[] = {-1, -1, 3, -1, -1, 3};
  glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, corners);
  glEnableVertexAttribArray(0);
  const auto draw = [] {
    glDrawArrays(GL_TRIANGLES, 0, 3);
    glFinish();
  };
  draw();  // translates the shader
  Picture picture;
  picture.nanoseconds = bestNanoseconds(draw, size.fragments());
  picture.pixels.resize(4 * size.fragments());
  glReadPixels(0, 0, size.width, size.height, GL_RGBA, GL_FLOAT, picture.pixels.data());
  return picture;
}

void writeAll(int file, const void* data, size_t size) {
  const char* next = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written = write(file, next, size);
    if (written <= 0) _exit(1);
    next += written;
    size -= static_cast<size_t>(written);
  }
}

bool readAll(int file, void* data, size_t size) {
  char* next = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t got = read(file, next, size);
    if (got <= 0) return false;
    next += got;
    size -= static_cast<size_t>(got);
  }
  return true;
}

Picture renderInChild(const char* driver, const std::string& source, const Size& size) {
  int ends[2];
  require(pipe(ends) == 0, "no pipe");
  const pid_t child = fork();
  require(child >= 0, "no process");
  if (child == 0) {
    try {
      setenv("LIBGL_ALWAYS_SOFTWARE", "1", 1);
      setenv("GALLIUM_DRIVER", driver, 1);
      setenv("LP_NUM_THREADS", "0", 1);
      createContext(size);
      const Picture picture = renderWithDriver(source, size);
      writeAll(ends[1], &picture.nanoseconds, sizeof picture.nanoseconds);
      writeAll(ends[1], picture.pixels.data(), picture.pixels.size() * sizeof(float));
      _exit(0);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s: %s\n", driver, error.what());
      _exit(1);
    }
  }
  close(ends[1]);
  Picture picture;
  picture.pixels.resize(4 * size.fragments());
  const bool complete =
      readAll(ends[0], &picture.nanoseconds, sizeof picture.nanoseconds) &&
      readAll(ends[0], picture.pixels.data(), picture.pixels.size() * sizeof(float));
  close(ends[0]);
  waitpid(child, nullptr, 0);
  require(complete, "a driver failed");
  return picture;
}

// Percentage of the pixels whose displayed colours differ by at most one step of 255.
double agreement(const Picture& a, const Picture& b) {
  size_t alike = 0;
  const auto shown = [](float x) { return x > 0 ? std::min(x, 1.0f) : 0; };
  for (size_t pixel = 0; pixel < a.pixels.size(); pixel += 4) {
    bool close = true;
    for (size_t i = pixel; i < pixel + 3; ++i) {
      close = close && std::abs(shown(a.pixels[i]) - shown(b.pixels[i])) <= 1.0f / 255 + 1e-6f;
    }
    alike += close ? 1 : 0;
  }
  return 400.0 * static_cast<double>(alike) / static_cast<double>(a.pixels.size());
}

void compare(const std::vector<std::string>& paths, const Size& size) {
  std::printf(
      "| shader | machine, ns | softpipe, ns | llvmpipe, ns | machine / softpipe | "
      "agrees with softpipe | with llvmpipe |\n|---|---|---|---|---|---|---|\n");
  double logarithms = 0;
  for (const std::string& path : paths) {
    const std::string source = readFile(path);
    const Picture ours = renderHere(source, path, size);
    const Picture soft = renderInChild("softpipe", withEntry(source), size);
    const Picture llvm = renderInChild("llvmpipe", withEntry(source), size);
    const double ratio = ours.nanoseconds / soft.nanoseconds;
    logarithms += std::log(ratio);
    const size_t slash = path.rfind('/');
    std::printf("| %s | %.0f | %.0f | %.0f | %.2f | %.2f%% | %.2f%% |\n",
                path.substr(slash == std::string::npos ? 0 : slash + 1).c_str(), ours.nanoseconds,
                soft.nanoseconds, llvm.nanoseconds, ratio, agreement(ours, soft),
                agreement(ours, llvm));
    std::fflush(stdout);
  }
  std::printf("\nGeometric mean of machine / softpipe: %.2f\n",
              std::exp(logarithms / static_cast<double>(paths.size())));
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Size size;
    std::vector<std::string> paths(argv + 1, argv + argc);
    if (paths.size() >= 2 && paths[0] == "--size") {
      require(std::sscanf(paths[1].c_str(), "%dx%d", &size.width, &size.height) == 2 &&
                  size.width > 0 && size.height > 0,
              "expected --size WIDTHxHEIGHT");
      paths.erase(paths.begin(), paths.begin() + 2);
    }
    require(!paths.empty(), "usage: compare-mesa [--size WxH] shader.frag...");
    vmInitialize();
    compare(paths, size);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "compare-mesa: %s\n", error.what());
    return 1;
  }
  return 0;
}
