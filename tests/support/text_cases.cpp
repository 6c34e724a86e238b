#include "support/text_cases.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace shadermachine::tests {
namespace {

// Takes what stands behind the separator, or nothing.
std::string cutBehind(std::string& line, const std::string& separator) {
  const size_t at = line.find(separator);
  if (at == std::string::npos) return "";
  std::string rest = line.substr(at + separator.size());
  line.erase(at);
  return rest;
}

void startCase(TextCase& started, const std::string& stem, std::string line) {
  const std::string expected = cutBehind(line, " => ");
  std::string body = cutBehind(line, ": ");
  started.name = stem + "_" + line;
  if (const size_t own = body.find(" ---"); own != std::string::npos) {
    started.own = body.substr(0, own) + "\n";
    body.erase(0, own + 4);
  }
  if (!body.empty()) started.body = body + "\n";
  if (!expected.empty()) started.expected = expected + "\n";
}

void readCases(const std::filesystem::path& path, std::vector<TextCase>& cases) {
  std::istringstream text(readFile(path.string()));
  for (std::string line; std::getline(text, line);) {
    if (line.starts_with("=== ")) {
      startCase(cases.emplace_back(), path.stem().string(), line.substr(4));
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

std::string linesOf(std::string code) {
  std::ranges::replace(code, ';', '\n');
  return code;
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
