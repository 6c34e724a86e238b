// Pictures as PNG files.
#pragma once

#include <shadermachine-tools/image.h>

#include <string>

namespace shadermachine::tools {

// Both throw std::runtime_error that names the file and what is wrong with it.
ByteImage readPng(const std::string& path);
// Leaves the alpha channel out when every pixel is opaque.
void writePng(const std::string& path, const ByteImage& image);

}  // namespace shadermachine::tools
