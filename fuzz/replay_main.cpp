// Runs a fuzz target over files and directories, or over the inputs of the numbers from FIRST to
// before LAST; how fuzzers run as ordinary tests.
//
//   NAME_replay FILE_OR_FOLDER...
//   NAME_replay --numbers FIRST LAST

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/choices.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" [[gnu::weak]] size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t mostSize,
                                                        unsigned seed);

namespace {

int replayed = 0;

void replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  ++replayed;
}

// Any bytes, or what the target's own mutator makes of nothing.
void runNumber(uint32_t number) {
  constexpr size_t kBytes = 64;
  constexpr size_t kMostBytes = size_t{1} << 16;
  std::vector<uint8_t> bytes = shadermachine::fuzz::randomBytes(number, kBytes);
  if (LLVMFuzzerCustomMutator != nullptr) {
    bytes.resize(kMostBytes);
    bytes.resize(LLVMFuzzerCustomMutator(bytes.data(), 0, bytes.size(), number));
  }
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  ++replayed;
}

}  // namespace

int main(int argc, char** argv) {
  LLVMFuzzerTestOneInput(nullptr, 0);
  if (argc == 4 && std::strcmp(argv[1], "--numbers") == 0) {
    const auto last = static_cast<uint32_t>(std::atoi(argv[3]));
    for (auto i = static_cast<uint32_t>(std::atoi(argv[2])); i < last; ++i) runNumber(i);
    argc = 0;
  }
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      replay(argv[i]);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) replay(entry.path());
  }
  std::printf("%d inputs\n", replayed);
  return replayed == 0 ? 1 : 0;
}
