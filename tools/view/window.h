// A window on the screen for a view. Only in builds that found SDL.
#pragma once

#include <string>

#include "view/view.h"

namespace shadermachine::tools {

// Until the user closes it. Throws std::runtime_error where there is no screen.
void showWindow(View& view, const std::string& title, uint32_t width, uint32_t height);

}  // namespace shadermachine::tools
