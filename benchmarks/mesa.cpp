#include "mesa.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace shadermachine::benchmarks {
namespace {

constexpr int kNoContext = 2;  // exit code of a process

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
  // Both stages must be of one version.
  const bool isModern = source.starts_with("#version 3");
  const std::string head = isModern ? source.substr(0, source.find('\n') + 1) + "in vec2 corner;\n"
                                    : "attribute vec2 corner;\n";
  const GLuint program = glCreateProgram();
  glAttachShader(program,
                 compileStage(GL_VERTEX_SHADER,
                              head + "void main() { gl_Position = vec4(corner, 0.0, 1.0); }"));
  glAttachShader(program, compileStage(GL_FRAGMENT_SHADER, source));
  glBindAttribLocation(program, 0, "corner");
  glLinkProgram(program);
  GLint linked = 0;
  glGetProgramiv(program, GL_LINK_STATUS, &linked);
  require(linked != 0, "the program cannot be linked");
  glUseProgram(program);
  const auto width = static_cast<float>(size.width);
  const auto height = static_cast<float>(size.height);
  for (const char* name : {"u_resolution", "resolution"}) {
    glUniform2f(glGetUniformLocation(program, name), width, height);
  }
  glUniform3f(glGetUniformLocation(program, "iResolution"), width, height, 1);
  for (const char* name : {"iTime", "u_time", "time"}) {
    glUniform1f(glGetUniformLocation(program, name), kTime);
  }
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

}  // namespace

Picture renderWithMesa(const char* driver, const std::string& source, const Size& size) {
  int ends[2];
  require(pipe(ends) == 0, "no pipe");
  const pid_t child = fork();
  require(child >= 0, "no process");
  if (child == 0) {
    try {
      setenv("LIBGL_ALWAYS_SOFTWARE", "1", 1);
      setenv("GALLIUM_DRIVER", driver, 1);
      setenv("LP_NUM_THREADS", "0", 1);
      try {
        createContext(size);
      } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", driver, error.what());
        _exit(kNoContext);
      }
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
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNoContext) {
    throw MissingDriver(std::string("there is no ") + driver);
  }
  require(complete, "a driver failed");
  return picture;
}

}  // namespace shadermachine::benchmarks
