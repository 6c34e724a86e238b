#include "view/file_watch.h"

namespace shadermachine::tools {

FileWatch::Stamp FileWatch::stampOf(const std::string& path) {
  std::error_code error;
  const Time time = std::filesystem::last_write_time(path, error);
  if (error) return {};
  const uintmax_t size = std::filesystem::file_size(path, error);
  return error ? Stamp() : Stamp(time, size);
}

void FileWatch::watch(const std::vector<std::string>& paths, Time readAt) {
  stamps_.clear();
  for (const std::string& path : paths) {
    const Stamp stamp = stampOf(path);
    stamps_[path] = stamp.first < readAt ? stamp : Stamp();
  }
}

bool FileWatch::hasChange() {
  bool result = false;
  for (auto& [path, stamp] : stamps_) {
    const Stamp present = stampOf(path);
    if (present == Stamp() || present == stamp) continue;
    stamp = present;
    result = true;
  }
  return result;
}

}  // namespace shadermachine::tools
