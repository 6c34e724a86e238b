// Notices when files change.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace shadermachine::tools {

class FileWatch {
 public:
  using Time = std::filesystem::file_time_type;

  // Which files, read at the given time or later: what changed after it may have been missed.
  void watch(const std::vector<std::string>& paths, Time readAt);
  // Whether a file is another one than before; asks the file system. Files that are missing are
  // about to be written.
  bool hasChange();

 private:
  using Stamp = std::pair<Time, uintmax_t>;  // with the size

  static Stamp stampOf(const std::string& path);

  std::map<std::string, Stamp> stamps_;
};

}  // namespace shadermachine::tools
