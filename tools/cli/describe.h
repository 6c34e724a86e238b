// What the program says about itself, made from its options.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace shadermachine::tools {

// The manual page, for man(1).
std::string manualPage(const CLI::App& program);

inline constexpr const char* kShells[] = {"bash", "fish", "zsh"};
std::string completion(const CLI::App& program, const std::string& shell);

// The host variables that have a value by their name.
std::string inputsText();

}  // namespace shadermachine::tools
