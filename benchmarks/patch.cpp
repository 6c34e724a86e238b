#include "patch.h"

#include <bit>
#include <cstring>

#include "batch/batch.h"

namespace shadermachine::benchmarks {
namespace {

// Fragments side by side lie so far apart.
constexpr float kStep = 1.0f / 256;

// Whose batch runs.
const Patch* running = nullptr;

// Tile by tile of 8 x 8, as a renderer has them.
void moveInputs(Inputs& inputs, uint32_t i) {
  constexpr uint32_t kTile = 8;
  const uint32_t tile = i / (kTile * kTile);
  const uint32_t tilesAcross = Patch::kSide / kTile;
  const float x = static_cast<float>(tile % tilesAcross * kTile + i % kTile) - Patch::kSide / 2;
  const float y =
      static_cast<float>(tile / tilesAcross * kTile + i / kTile % kTile) - Patch::kSide / 2;
  for (float* vector : {inputs.coord, inputs.position, inputs.normal, inputs.direction}) {
    vector[0] += x * kStep;
    vector[1] += y * kStep;
  }
}

}  // namespace

Patch::Patch(const Subject& subject)
    : shader_(loadShader(subject)), fragments_(kFragments), errors_(kFragments) {
  HostCallbacks callbacks = {};
  callbacks.hostVariable = fillVariable;
  if (subject.deliversColor) callbacks.output0 = takeColor;
  BatchCallbacks wide = {};
  wide.hostVariable = fillVariables;
  wide.hostAggregate = fillLights;
  if (subject.deliversColor) wide.output0 = takeColors;
  const MachineCreateInfo machineInfo = {&callbacks};
  const BatchCreateInfo batchInfo = {&callbacks, &wide};
  machine_ = vmShaderMachineCreate(&machineInfo);
  batch_ = vmShaderBatchCreate(&batchInfo);
  for (uint32_t i = 0; i < kFragments; ++i) {
    moveInputs(fragments_[i].inputs, i);
    userData_.push_back(reinterpret_cast<uintptr_t>(&fragments_[i]));
  }
  for (size_t w = 0; w < sizeof(Inputs) / sizeof(uint32_t); ++w) {
    for (const Fragment& fragment : fragments_) {
      uint32_t word;
      std::memcpy(&word, reinterpret_cast<const char*>(&fragment.inputs) + w * sizeof word,
                  sizeof word);
      inputRows_.push_back(word);
    }
  }
}

Patch::~Patch() {
  vmShaderMachineDestroy(machine_);
  vmShaderBatchDestroy(batch_);
}

void Patch::runOnMachine() {
  StartupInfo startup = {};
  for (uint32_t i = 0; i < kFragments; ++i) {
    startup.userData = userData_[i];
    errors_[i] = vmShaderMachineExecuteShader(machine_, record_, &startup);
  }
}

bool Patch::use(batch::InstructionSet set) {
  const batch::RowFunctions* functions = batch::rowFunctions(set);
  if (functions != nullptr) batch_->rowFunctions = functions;
  return functions != nullptr;
}

void Patch::runInBatch() {
  BatchStartupInfo startup = {};
  startup.count = kFragments;
  startup.userData = userData_.data();
  running = this;
  vmShaderBatchExecuteShader(batch_, record_, &startup, errors_.data());
}

BatchAnswer Patch::fillVariables(const BatchVariableRequest* request) {
  const BatchRequest& group = request->group;
  const size_t offset = inputOffset(*request->varInfo);
  const bool areAll = std::popcount(group.mask) == static_cast<int>(group.count);
  for (uint32_t w = 0; w < group.wordCount; ++w) {
    const uint32_t* const row = running->inputRow(offset / sizeof(uint32_t) + w) + group.first;
    uint32_t* const words = group.words + size_t{w} * group.stride;
    if (areAll) {
      std::memcpy(words, row, group.count * sizeof(uint32_t));
      continue;
    }
    for (uint32_t i = 0; i < group.count; ++i) {
      if ((group.mask >> i & 1) != 0) words[i] = row[i];
    }
  }
  return VM_BATCH_ANSWERED;
}

BatchAnswer Patch::fillLights(const BatchVariableRequest* request) {
  const BatchRequest& group = request->group;
  const size_t offset = inputOffset(*request->varInfo);
  for (uint32_t w = 0; w < group.wordCount; ++w) {
    group.words[size_t{w} * group.stride] = running->inputRow(offset / sizeof(uint32_t) + w)[0];
  }
  return VM_BATCH_SAME_FOR_ALL;
}

void Patch::takeColors(const BatchRequest* request) {
  for (uint32_t i = 0; i < request->count; ++i) {
    if ((request->mask >> i & 1) == 0) continue;
    Color& color = reinterpret_cast<Fragment*>(request->userData[i])->color;
    for (uint32_t w = 0; w < color.size(); ++w) {
      std::memcpy(&color[w], &request->words[w * request->stride + i], sizeof(float));
    }
  }
}

}  // namespace shadermachine::benchmarks
