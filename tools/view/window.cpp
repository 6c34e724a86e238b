#include "view/window.h"

#include <SDL2/SDL.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace shadermachine::tools {
namespace {

[[noreturn]] void fail() {
  throw std::runtime_error(std::string("no window can be opened: ") + SDL_GetError());
}

// SDL while it is needed.
struct Library {
  Library() {
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");  // Ctrl-C ends the program
    SDL_SetHint(SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "1");
    SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");  // pictures are made here, not there
    if (SDL_Init(SDL_INIT_VIDEO) != 0) fail();
  }
  ~Library() { SDL_Quit(); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
};

using WindowHandle = std::unique_ptr<SDL_Window, decltype(&SDL_DestroyWindow)>;

struct KeyNumber {
  SDL_Keycode code;
  uint32_t number;
};

constexpr KeyNumber kKeyNumbers[] = {
    {SDLK_BACKSPACE, 8},      {SDLK_TAB, 9},         {SDLK_RETURN, 13},       {SDLK_LSHIFT, 16},
    {SDLK_RSHIFT, 16},        {SDLK_LCTRL, 17},      {SDLK_RCTRL, 17},        {SDLK_LALT, 18},
    {SDLK_RALT, 18},          {SDLK_PAUSE, 19},      {SDLK_CAPSLOCK, 20},     {SDLK_ESCAPE, 27},
    {SDLK_SPACE, 32},         {SDLK_PAGEUP, 33},     {SDLK_PAGEDOWN, 34},     {SDLK_END, 35},
    {SDLK_HOME, 36},          {SDLK_LEFT, 37},       {SDLK_UP, 38},           {SDLK_RIGHT, 39},
    {SDLK_DOWN, 40},          {SDLK_INSERT, 45},     {SDLK_DELETE, 46},       {SDLK_KP_0, 96},
    {SDLK_KP_PLUS, 107},      {SDLK_KP_MINUS, 109},  {SDLK_SEMICOLON, 186},   {SDLK_EQUALS, 187},
    {SDLK_PLUS, 187},         {SDLK_COMMA, 188},     {SDLK_MINUS, 189},       {SDLK_PERIOD, 190},
    {SDLK_SLASH, 191},        {SDLK_BACKQUOTE, 192}, {SDLK_LEFTBRACKET, 219}, {SDLK_BACKSLASH, 220},
    {SDLK_RIGHTBRACKET, 221}, {SDLK_QUOTE, 222},
};

// As browsers number keys; 0 for one that they do not have.
uint32_t numberOf(SDL_Keycode code) {
  if (code >= SDLK_a && code <= SDLK_z) return static_cast<uint32_t>(code - SDLK_a) + 'A';
  if (code >= SDLK_0 && code <= SDLK_9) return static_cast<uint32_t>(code);
  if (code >= SDLK_F1 && code <= SDLK_F12) return static_cast<uint32_t>(code - SDLK_F1) + 112;
  if (code >= SDLK_KP_1 && code <= SDLK_KP_9) return static_cast<uint32_t>(code - SDLK_KP_1) + 97;
  for (const KeyNumber& key : kKeyNumbers) {
    if (key.code == code) return key.number;
  }
  return 0;
}

class Window {
 public:
  Window(View& view, const std::string& title, uint32_t width, uint32_t height)
      : view_(view),
        window_(SDL_CreateWindow(title.c_str(), SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED,
                                 static_cast<int>(width), static_cast<int>(height),
                                 SDL_WINDOW_RESIZABLE),
                &SDL_DestroyWindow) {
    if (window_ == nullptr) fail();
  }

  void run() {
    constexpr uint32_t kBusyWait = 4;  // milliseconds
    constexpr uint32_t kRestingWait = 20;
    const auto start = std::chrono::steady_clock::now();
    while (!isClosed_ && !view_.isDone()) {
      SDL_Event event;
      while (SDL_PollEvent(&event) != 0) handle(event);
      view_.update(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
      if (view_.hasNews() || isExposed_) show();
      // Not by SDL_WaitEvent(), which may still send itself events when the window is gone.
      SDL_Delay(view_.isAtRest() ? kRestingWait : kBusyWait);
    }
  }

 private:
  void handle(const SDL_Event& event) {
    switch (event.type) {
      case SDL_QUIT:
        isClosed_ = true;
        break;
      case SDL_WINDOWEVENT:
        handleWindow(event.window);
        break;
      case SDL_KEYDOWN:
        view_.press(numberOf(event.key.keysym.sym), (event.key.keysym.mod & KMOD_CTRL) != 0);
        break;
      case SDL_KEYUP:
        view_.release(numberOf(event.key.keysym.sym));
        break;
      case SDL_MOUSEMOTION:
        handleMotion(event.motion);
        break;
      case SDL_MOUSEBUTTONDOWN:
        if (event.button.button == SDL_BUTTON_LEFT) view_.pressButton();
        if (event.button.button == SDL_BUTTON_RIGHT) view_.pick(event.button.x, event.button.y);
        break;
      case SDL_MOUSEBUTTONUP:
        if (event.button.button == SDL_BUTTON_LEFT) view_.releaseButton();
        break;
      case SDL_MOUSEWHEEL:
        view_.zoom(event.wheel.y);
        break;
      default:
        break;
    }
  }

  void handleWindow(const SDL_WindowEvent& event) {
    isExposed_ = true;
    if (event.event == SDL_WINDOWEVENT_SIZE_CHANGED && event.data1 > 0 && event.data2 > 0) {
      view_.resize(static_cast<uint32_t>(event.data1), static_cast<uint32_t>(event.data2));
    }
  }

  void handleMotion(const SDL_MouseMotionEvent& event) {
    view_.movePointer(event.x, event.y);
    if ((event.state & SDL_BUTTON_MMASK) != 0) view_.drag(event.xrel, event.yrel);
  }

  void show() {
    isExposed_ = false;
    ByteImage image = view_.compose();
    SDL_Surface* const screen = SDL_GetWindowSurface(window_.get());
    if (screen == nullptr) fail();
    const auto width = static_cast<int>(image.width);
    const std::unique_ptr<SDL_Surface, decltype(&SDL_FreeSurface)> picture(
        SDL_CreateRGBSurfaceWithFormatFrom(image.rgba.data(), width, static_cast<int>(image.height),
                                           32, 4 * width, SDL_PIXELFORMAT_RGBA32),
        &SDL_FreeSurface);
    if (picture == nullptr) fail();
    SDL_SetSurfaceBlendMode(picture.get(), SDL_BLENDMODE_NONE);
    SDL_BlitSurface(picture.get(), nullptr, screen, nullptr);
    SDL_UpdateWindowSurface(window_.get());
  }

  View& view_;
  WindowHandle window_;
  bool isExposed_ = true;
  bool isClosed_ = false;
};

}  // namespace

void showWindow(View& view, const std::string& title, uint32_t width, uint32_t height) {
  const Library library;
  Window(view, title, width, height).run();
}

}  // namespace shadermachine::tools
