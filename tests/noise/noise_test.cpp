// The noise generator: its tables, and values to the bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <thread>

#include "noise/evaluation.h"
#include "noise/kernel.h"
#include "support/allocations.h"
#include "support/words.h"

namespace shadermachine::tests {
namespace {

constexpr uint32_t kFlat = 0xB6080000;  // -2.0265579e-6

class Noise : public ::testing::Test {
 protected:
  void SetUp() override { noiseTablesFill(noiseTables()); }

  static const NoiseTableEntries& entries() { return *noiseTables().read(); }
  static float noise(std::initializer_list<float> point) {
    return noiseScalar(point.begin(), static_cast<uint32_t>(point.size()));
  }
};

// Tables of a test's own.
struct OwnTables : NoiseTables {
  ~OwnTables() { std::free(entries.load()); }
};

TEST_F(Noise, Permutation) {
  const int32_t* p = entries().permutation;
  EXPECT_EQ(std::vector(p, p + 3), (std::vector{160, 255, 147}));
  EXPECT_EQ(std::vector(p + 253, p + 256), (std::vector{96, 136, 128}));
  std::vector sorted(p, p + 256);
  std::ranges::sort(sorted);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(sorted[static_cast<size_t>(i)], i);
}

TEST_F(Noise, Gradients) {
  double sum[3] = {};
  for (const NoiseGradient& g : entries().gradients) {
    EXPECT_NEAR(std::hypot(double{g.x}, double{g.y}, double{g.z}), 1.0, 1e-6);
    sum[0] += g.x;
    sum[1] += g.y;
    sum[2] += g.z;
    for (const NoiseGradient& other : entries().gradients) {
      if (&other == &g) break;
      EXPECT_GT(std::hypot(g.x - other.x, g.y - other.y, g.z - other.z), 0.1f) << "well spread";
    }
  }
  for (double s : sum) EXPECT_NEAR(s, 0, 0.5) << "no preferred direction";
  EXPECT_EQ(entries().gradients[0].x, -0.215150f);
  EXPECT_EQ(entries().gradients[3].z, -0.735632f);
  EXPECT_EQ(entries().gradients[255].y, 0.644714f);
}

TEST_F(Noise, HashesOfLatticePoints) {
  const auto index = [](int32_t i, int32_t j, int32_t k) {
    return gradientIndex(entries(), i, j, k);
  };
  EXPECT_EQ(index(0, 0, 0), 60u);
  EXPECT_EQ(index(1, 0, 0), 61u);
  EXPECT_EQ(index(-1, 0, 0), 59u);
  EXPECT_EQ(index(0, 1, 0), 149u);
  EXPECT_EQ(index(0, 0, 1), 128u);
  EXPECT_EQ(index(0, 0, -1), 137u);
  EXPECT_EQ(index(256, 0, 0), 60u);
  EXPECT_EQ(index(kIntMin, kIntMin, kIntMin), 60u);
}

TEST_F(Noise, KernelProperties) {
  const auto kernel = [](double x, double y, double z) {
    return gradientNoise3(noiseTables(), kNoiseSettings, x, y, z);
  };
  EXPECT_EQ(kernel(3, -7, 100), 0.0);
  EXPECT_EQ(kernel(-16777216.0, 0, 0), kernel(-16777216.0, 256, 0));
  for (double shift : {256.0, -512.0}) {
    EXPECT_EQ(kernel(0.5 + shift, 0.25, -0.75), kernel(0.5, 0.25, -0.75));
    EXPECT_EQ(kernel(0.5, 0.25 + shift, -0.75), kernel(0.5, 0.25, -0.75));
    EXPECT_EQ(kernel(0.5, 0.25, -0.75 + shift), kernel(0.5, 0.25, -0.75));
  }
  EXPECT_NE(kernel(0.5, 0.25, -0.75), 0.0);
}

TEST_F(Noise, IntegerPointsAreNearlyZero) {
  EXPECT_EQ(bits(noise({})), kFlat);
  EXPECT_EQ(bits(noise({5})), kFlat);
  EXPECT_EQ(bits(noise({-1048575, 1048575})), kFlat);
  EXPECT_EQ(bits(noise({1, 2, 3})), kFlat);
  EXPECT_EQ(bits(noise({1, 2, 3, 4})), kFlat);
  EXPECT_FLOAT_EQ(asFloat(kFlat), -2.0265579e-6f);
}

TEST_F(Noise, WholeFourthComponentMovesThePoint) {
  for (float w : {-3.0f, 0.0f, 2.0f}) {
    EXPECT_EQ(noise({0.5f, 0.25f, 0.125f, w}),
              noise({0.5f + 9 * w, 0.25f + 17 * w, 0.125f + 51 * w}));
  }
}

TEST_F(Noise, NanPointsGiveNan) {
  EXPECT_TRUE(std::isnan(noise({kNan})));
  EXPECT_TRUE(std::isnan(noise({0.5f, 0.5f, kNan})));
  EXPECT_TRUE(std::isnan(noise({0.5f, 0.5f, 0.5f, kNan})));
}

struct ReferenceValue {
  Words point;
  uint32_t noise;
  uint64_t kernel;
};

TEST_F(Noise, ReferenceValues) {
  const std::vector<ReferenceValue> values = {
#include "noise/reference_values.inc"
  };
  for (const ReferenceValue& value : values) {
    std::vector<float> point;
    for (uint32_t word : value.point) point.push_back(asFloat(word));
    EXPECT_EQ(bits(noiseScalar(point.data(), static_cast<uint32_t>(point.size()))), value.noise)
        << ::testing::PrintToString(point);
    point.resize(3);
    const double kernel =
        gradientNoise3(noiseTables(), kNoiseSettings, point[0], point[1], point[2]);
    EXPECT_EQ(std::bit_cast<uint64_t>(kernel), value.kernel) << ::testing::PrintToString(point);
  }
}

TEST_F(Noise, UnitMappingMeetsItsEnds) {
  EXPECT_EQ(toUnit(kNoiseSettings, -1.0), 0.0f);
  EXPECT_FLOAT_EQ(toUnit(kNoiseSettings, 1.0), 0.9999990f);
  NoiseSettings eased;
  eased.cosineWeight = 1.0f;
  EXPECT_NEAR(toUnit(eased, 0.5), (1 - std::cos(3.1415 * 0.75)) / 2, 1e-5);
}

TEST_F(Noise, OtherWaysToCombineOctaves) {
  const double point[3] = {0.3, 0.7, -0.4};
  const auto sum = [&](const NoiseSettings& settings) {
    return octaveSum(noiseTables(), settings, point);
  };
  double octaves[3];
  for (int i = 0; i < 3; ++i) {
    const double f = 1 << i;
    octaves[i] = gradientNoise3(noiseTables(), kNoiseSettings, 0.3 * f, 0.7 * f, -0.4 * f);
  }
  const double mean = (octaves[0] + octaves[1] + octaves[2]) / 3;
  EXPECT_EQ(sum({.combineMode = 0}), octaves[0]);
  EXPECT_EQ(sum({.combineMode = 3}), mean);
  EXPECT_EQ(sum({.combineMode = 2}), std::fabs(mean));
  EXPECT_EQ(sum({.combineMode = 4}), 0.0);
  EXPECT_EQ(sum({.absolute = 1}),
            (std::fabs(octaves[0]) + std::fabs(octaves[1]) + std::fabs(octaves[2])) / 3);
  EXPECT_EQ(sum({.ampDivisor = 2.0f, .octaves = 2}), (octaves[0] + octaves[1] * 0.5) / 1.5);
}

TEST(NoiseTables, EmptyTablesGiveAFlatField) {
  const OwnTables tables;
  const float point[] = {0.3f, 0.7f};
  EXPECT_EQ(bits(noiseScalar(tables, kNoiseSettings, point, 2)), kFlat);
}

TEST(NoiseTables, FillingWithoutMemoryCanBeRepeated) {
  OwnTables tables;
  {
    const AllocationFailure failure(0);
    noiseTablesFill(tables);
  }
  EXPECT_EQ(tables.read(), nullptr);
  noiseTablesFill(tables);
  const NoiseTableEntries* filled = tables.read();
  ASSERT_NE(filled, nullptr);
  noiseTablesFill(tables);
  EXPECT_EQ(tables.read(), filled);
}

TEST(NoiseTables, ThreadsFillOnce) {
  const int64_t liveBefore = liveAllocations();
  {
    OwnTables tables;
    std::vector<const NoiseTableEntries*> seen(4);
    std::vector<std::thread> threads;
    for (const NoiseTableEntries*& entries : seen) {
      threads.emplace_back([&] {
        noiseTablesFill(tables);
        entries = tables.read();
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_NE(seen[0], nullptr);
    EXPECT_EQ(std::ranges::count(seen, seen[0]), 4);
  }
  EXPECT_EQ(liveAllocations(), liveBefore);
}

}  // namespace
}  // namespace shadermachine::tests
