#include "render/tile.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <optional>

#include "render/texture.h"

namespace shadermachine::tools {
namespace {

constexpr uint32_t kValueWords = 4;

template <class Function>
void forEach(const BatchRequest& group, Function function) {
  for (uint32_t i = 0; i < group.count; ++i) {
    if ((group.mask >> i & 1) != 0) function(i);
  }
}

FragmentHost& hostOf(const BatchRequest& group, uint32_t i) {
  return *reinterpret_cast<FragmentHost*>(group.userData[i]);
}

}  // namespace

std::shared_ptr<ShaderBatch> TileRunner::createBatch(const BatchFunctions& functions) {
  const HostCallbacks single = FragmentHost::callbacks();
  const BatchCallbacks wide = callbacks();
  const BatchCreateInfo info = {&single, &wide};
  return {functions.create(&info), functions.destroy};
}

TileRunner::TileRunner(const ShaderView& view, const HostInputs& inputs, ShaderBatch* batch,
                       const RenderSettings& settings)
    : view_(view), inputs_(inputs), settings_(settings), batch_(batch) {
  for (uint32_t i = 0; i < kFragments; ++i) {
    Fragment& fragment = fragments_.emplace_back(view, inputs);
    fragment.tile = this;
    fragment.setPixelSize(settings.pixelSize);
    // Not a failure's, whose block would be open: only a QuadRunner can say where it happened.
    results_[i].isComplete = true;
    userData_[i] = reinterpret_cast<uint64_t>(static_cast<FragmentHost*>(&fragment));
  }
}

BatchCallbacks TileRunner::callbacks() {
  BatchCallbacks callbacks = {};
  callbacks.output0 = takeColour;
  callbacks.output1 = takeDepth;
  callbacks.hostVariable = answerVariable;
  callbacks.hostAggregate = answerAggregate;
  callbacks.builtin = answerBuiltin;
  for (auto& lookup : callbacks.lookup) lookup = answerLookup;
  callbacks.hostUnary[0] = answerDerivative<0>;
  callbacks.hostUnary[1] = answerDerivative<1>;
  callbacks.hostUnary[2] = answerDerivative<2>;
  return callbacks;
}

bool TileRunner::run(std::span<const Block> blocks, std::array<float, 2> offset) {
  // One by one, a batch has no neighbours to take derivatives from, and is no faster.
  if (batch_ == nullptr || isAlone_) return false;
  count_ = static_cast<uint32_t>(blocks.size()) * DerivativeRecord::kFragments;
  openBlocks_ = 0;
  derivatives_ = 0;
  for (uint32_t i = 0; i < count_; ++i) {
    const Block& block = blocks[i / DerivativeRecord::kFragments];
    fragments_[i].setOffset(offset);
    fragments_[i].startFragment(2 * block.x + (i & 1), 2 * block.y + (i >> 1 & 1));
  }
  BatchStartupInfo startup = {};
  startup.count = count_;
  startup.timeout = settings_.timeout;
  startup.userData = userData_.data();
  const BatchFunctions& functions = *settings_.batches;
  if (functions.execute(batch_, view_.shader, &startup, errors_.data()) != VM_OK) return false;
  for (uint32_t i = 0; i < count_; ++i) {
    if (isFailure(errors_[i])) openBlocks_ |= 1u << i / DerivativeRecord::kFragments;
    results_[i].error = errors_[i];
    results_[i].colour = fragments_[i].colour();
    results_[i].depth = fragments_[i].depth();
  }
  return !isAlone_;
}

TileRunner& TileRunner::tileOf(const BatchRequest& group) {
  return *static_cast<Fragment&>(hostOf(group, 0)).tile;
}

// There are never fewer than four fragments, so a group of one tells how the batch runs them.
void TileRunner::noteGroup(const BatchRequest& group) { isAlone_ = isAlone_ || group.count == 1; }

// Fragments of a block that have come to all derivatives together have come to each as often as
// their neighbours.
void TileRunner::noteDerivative(const BatchRequest& group) {
  noteGroup(group);
  constexpr uint64_t kWhole = (1u << DerivativeRecord::kFragments) - 1;
  const bool isDeep = ++derivatives_ > QuadRunner::kMaxReplays;
  for (uint32_t b = 0; b < group.count / DerivativeRecord::kFragments; ++b) {
    const uint64_t taking = group.mask >> b * DerivativeRecord::kFragments & kWhole;
    if (taking == 0 || (taking == kWhole && !isDeep)) continue;
    openBlocks_ |= 1u << (group.first / DerivativeRecord::kFragments + b);
  }
}

// As FragmentHost answers: the neighbour's value minus one's own, to the right and upwards.
template <unsigned which>
BatchAnswer TileRunner::answerDerivative(const BatchRequest* request) {
  const BatchRequest& group = *request;
  tileOf(group).noteDerivative(group);
  float values[VM_BATCH_GROUP_LIMIT] = {};
  float answers[VM_BATCH_GROUP_LIMIT];
  for (uint32_t w = 0; w < kValueWords; ++w) {
    uint32_t* const row = group.words + size_t{w} * group.stride;
    std::memcpy(values, row, group.count * sizeof(float));
    for (uint32_t block = 0; block < VM_BATCH_GROUP_LIMIT; block += 4) {
      const float* const v = values + block;
      // To the bit what DerivativeRecord answers, which multiplies by the sign: -(a - b) and b - a
      // are different zeros.
      const float dx[] = {v[1] - v[0], -1.0f * (v[0] - v[1]), v[3] - v[2], -1.0f * (v[2] - v[3])};
      const float dy[] = {v[2] - v[0], v[3] - v[1], -1.0f * (v[0] - v[2]), -1.0f * (v[1] - v[3])};
      for (uint32_t i = 0; i < 4; ++i) {
        answers[block + i] = which == 0   ? dx[i]
                             : which == 1 ? dy[i]
                                          : std::abs(dx[i]) + std::abs(dy[i]);
      }
    }
    if (group.mask == ~uint64_t{0}) {
      std::memcpy(row, answers, sizeof answers);
    } else {
      forEach(group, [&](uint32_t i) { std::memcpy(&row[i], &answers[i], sizeof(float)); });
    }
  }
  return VM_BATCH_ANSWERED;
}

BatchAnswer TileRunner::answerVariable(const BatchVariableRequest* request) {
  const BatchRequest& group = request->group;
  TileRunner& tile = tileOf(group);
  tile.noteGroup(group);
  const auto put = [&](uint32_t i) {
    uint32_t words[VM_COMPONENT_COUNT] = {};
    const FragmentHost& host = hostOf(group, i);
    tile.inputs_.write(request->index, host.x(), host.y(), words);
    for (uint32_t w = 0; w < group.wordCount; ++w) group.words[w * group.stride + i] = words[w];
  };
  if (tile.inputs_.isSameForAll(request->index)) {
    // In column 0, whether that invocation takes part or not.
    put(0);
    return VM_BATCH_SAME_FOR_ALL;
  }
  forEach(group, put);
  return VM_BATCH_ANSWERED;
}

BatchAnswer TileRunner::answerAggregate(const BatchVariableRequest* request) {
  const BatchRequest& group = request->group;
  TileRunner& tile = tileOf(group);
  tile.noteGroup(group);
  if (!tile.inputs_.isSameForAll(request->index)) return VM_BATCH_ONE_BY_ONE;
  uint32_t words[VM_BATCH_AGGREGATE_LIMIT / sizeof(uint32_t)];
  tile.inputs_.write(request->index, 0, 0, words);
  for (uint32_t w = 0; w < group.wordCount; ++w) group.words[w * group.stride] = words[w];
  return VM_BATCH_SAME_FOR_ALL;
}

BatchAnswer TileRunner::answerBuiltin(const BatchBuiltinRequest* request) {
  const BatchRequest& group = request->group;
  tileOf(group).noteGroup(group);
  forEach(group, [&](uint32_t i) {
    const std::array<float, 4> value =
        hostOf(group, i).builtinValue(static_cast<uint16_t>(request->id));
    for (uint32_t w = 0; w < kValueWords; ++w) {
      std::memcpy(&group.words[w * group.stride + i], &value[w], sizeof(float));
    }
  });
  return VM_BATCH_ANSWERED;
}

BatchAnswer TileRunner::answerLookup(const BatchLookupRequest* request) {
  const BatchRequest& group = request->group;
  TileRunner& tile = tileOf(group);
  tile.noteGroup(group);
  // As a rule all ask for the same texture.
  std::optional<uint64_t> sampler;
  const Texture* texture = nullptr;
  forEach(group, [&](uint32_t i) {
    if (sampler != request->samplers[i]) {
      sampler = request->samplers[i];
      texture = tile.inputs_.texture(*sampler);
    }
    float coords[kValueWords];
    for (uint32_t w = 0; w < kValueWords; ++w) {
      coords[w] = std::bit_cast<float>(request->coords[w * group.stride + i]);
    }
    const bool hasExtra = request->extra != nullptr;
    const LookupRequest single = {nullptr,
                                  request->samplers[i],
                                  coords,
                                  request->kind,
                                  request->param,
                                  hasExtra ? request->extra[i] : 0,
                                  hasExtra ? 1u : 0u,
                                  0};
    const std::array<float, 4> colour = lookUpIn(texture, single);
    for (uint32_t w = 0; w < kValueWords; ++w) {
      group.words[w * group.stride + i] = std::bit_cast<uint32_t>(colour[w]);
    }
  });
  return VM_BATCH_ANSWERED;
}

void TileRunner::takeColour(const BatchRequest* request) {
  const BatchRequest& group = *request;
  tileOf(group).noteGroup(group);
  forEach(group, [&](uint32_t i) {
    uint32_t words[kValueWords];
    for (uint32_t w = 0; w < kValueWords; ++w) words[w] = group.words[w * group.stride + i];
    hostOf(group, i).takeColour(words);
  });
}

void TileRunner::takeDepth(const BatchRequest* request) {
  const BatchRequest& group = *request;
  tileOf(group).noteGroup(group);
  forEach(group,
          [&](uint32_t i) { hostOf(group, i).takeDepth(std::bit_cast<float>(group.words[i])); });
}

}  // namespace shadermachine::tools
