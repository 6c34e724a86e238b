#include "support/text_cases.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace shadermachine::tests {
namespace {

void readCases(const std::filesystem::path& path, std::vector<TextCase>& cases) {
  std::istringstream text(readFile(path.string()));
  for (std::string line; std::getline(text, line);) {
    if (line.starts_with("=== ")) {
      cases.push_back({path.stem().string() + "_" + line.substr(4), "", "", ""});
    } else if (line.empty() || line.starts_with("# ")) {
      continue;
    } else if (line == "---") {
      std::swap(cases.back().own, cases.back().body);
    } else if (line.starts_with("=> ")) {
      cases.back().expected += line.substr(3) + "\n";
    } else {
      cases.back().body += line + "\n";
    }
  }
}

}  // namespace

std::string readFile(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

std::vector<TextCase> readCases(const std::string& folder) {
  std::vector<TextCase> cases;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == ".txt") readCases(entry.path(), cases);
  }
  if (cases.empty()) throw std::runtime_error("no cases in " + folder);
  return cases;
}

}  // namespace shadermachine::tests
