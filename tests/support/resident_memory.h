// Memory of the process that is in use.
#pragma once

#include <unistd.h>

#include <fstream>

namespace shadermachine::tests {

inline long residentKilobytes() {
  std::ifstream statistics("/proc/self/statm");
  long pages = 0;
  long residentPages = 0;
  statistics >> pages >> residentPages;
  return residentPages * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace shadermachine::tests
