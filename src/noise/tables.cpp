#include "noise/tables.h"

#include <cstdlib>
#include <cstring>

namespace shadermachine {
namespace {

constexpr NoiseTableEntries kEntries = {
    {
// clang-format off
#include "noise/permutation.inc"
    },
    {
#include "noise/gradients.inc"
        // clang-format on
    },
};

constinit NoiseTables processTables;

[[gnu::destructor]] void freeNoiseTables() {
  std::free(processTables.entries.exchange(nullptr, std::memory_order_acq_rel));
}

}  // namespace

NoiseTables& noiseTables() { return processTables; }

void noiseTablesFill(NoiseTables& tables) {
  if (tables.read() != nullptr) return;
  auto* entries = static_cast<NoiseTableEntries*>(std::malloc(sizeof(NoiseTableEntries)));
  if (entries == nullptr) return;
  std::memcpy(entries, &kEntries, sizeof kEntries);
  NoiseTableEntries* empty = nullptr;
  const bool published = tables.entries.compare_exchange_strong(
      empty, entries, std::memory_order_acq_rel, std::memory_order_acquire);
  if (!published) std::free(entries);
}

}  // namespace shadermachine
