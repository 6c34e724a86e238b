// The batch library's functions, and random programs in batches against machines.

#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/validator.h>
#include <shadermachine/batch.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <vector>

#include "fuzz/batch_comparison.h"
#include "support/allocations.h"

namespace shadermachine::tests {
namespace {

struct BatchDeleter {
  void operator()(ShaderBatch* batch) const { vmShaderBatchDestroy(batch); }
};
using BatchPtr = std::unique_ptr<ShaderBatch, BatchDeleter>;

BatchPtr makeBatch(const HostCallbacks* callbacks, const BatchCallbacks* batchCallbacks = nullptr) {
  const BatchCreateInfo info = {callbacks, batchCallbacks};
  return BatchPtr(vmShaderBatchCreate(&info));
}

tools::BuiltShader assembled(const char* source) {
  tools::AssemblyResult result = tools::assemble(source);
  EXPECT_TRUE(result.errors.empty()) << result.errors.front().message;
  return std::move(*result.shader);
}

// `way` 1 discards, 2 halts, 3 reads out of bounds, 4 never ends, and others return. The result is
// the way, and how often this invocation has counted.
constexpr char kWays[] = R"(
.global vec2 result
.global int count
.global int way host
.output0 result
.entry main
.function main
  LOAD_GLOBAL count
  INC_I 1
  STORE_GLOBAL count
  LOAD_GLOBAL way
  INT_TO_FLOAT 1
  LOAD_GLOBAL count
  INT_TO_FLOAT 1
  CTOR_VEC2_A 1, 1
  STORE_GLOBAL result
  LOAD_GLOBAL way
  PUSH_1
  EQ_I 1
  JUMP_IF_FALSE notDiscarded
  DISCARD
notDiscarded:
  LOAD_GLOBAL way
  PUSH_2
  EQ_I 1
  JUMP_IF_FALSE notHalted
  HALT
notHalted:
  LOAD_GLOBAL way
  PUSH_3
  EQ_I 1
  JUMP_IF_FALSE notOutside
  LOAD_GLOBAL result
  PUSH_9
  PUSH_INDEX
  VEC_ELEMENT 2
  POP
notOutside:
  LOAD_GLOBAL way
  PUSH_4
  EQ_I 1
  JUMP_IF_FALSE end
again:
  JUMP again
end:
  RETURN
.end
)";

// userData is the way; results are collected, and `onVariable` runs before every answer.
struct WaysHost {
  std::vector<std::pair<float, float>> results;
  void (*onVariable)() = nullptr;
  BatchAnswer answer = VM_BATCH_ANSWERED;
};
WaysHost host;

void giveWay(const HostVariableRequest* request) {
  if (host.onVariable != nullptr) host.onVariable();
  const auto way = static_cast<uint32_t>(request->userData);
  std::memcpy(request->data, &way, sizeof way);
}
void takeResult(const void* value, uint64_t) {
  float words[2];
  std::memcpy(words, value, sizeof words);
  host.results.emplace_back(words[0], words[1]);
}

constexpr HostCallbacks kCallbacks = [] {
  HostCallbacks callbacks = {};
  callbacks.hostVariable = giveWay;
  callbacks.output0 = takeResult;
  return callbacks;
}();

BatchAnswer giveWays(const BatchVariableRequest* request) {
  const BatchRequest& group = request->group;
  EXPECT_EQ(reinterpret_cast<uintptr_t>(group.words) % VM_BATCH_ALIGNMENT, 0u);
  EXPECT_EQ(group.stride * 4 % VM_BATCH_ALIGNMENT, 0u);
  EXPECT_EQ(group.wordCount, 1u);
  EXPECT_EQ(request->elements[0], -1);
  if (host.answer == VM_BATCH_SAME_FOR_ALL) group.words[0] = 7;
  for (uint32_t i = 0; host.answer == VM_BATCH_ANSWERED && i < group.count; ++i) {
    if ((group.mask >> i & 1) != 0) group.words[i] = static_cast<uint32_t>(group.userData[i]);
  }
  return host.answer;
}
void takeResults(const BatchRequest* request) {
  for (uint32_t i = 0; i < request->count; ++i) {
    if ((request->mask >> i & 1) == 0) continue;
    host.results.emplace_back(std::bit_cast<float>(request->words[i]),
                              std::bit_cast<float>(request->words[request->stride + i]));
  }
}
constexpr BatchCallbacks kBatchCallbacks = [] {
  BatchCallbacks callbacks = {};
  callbacks.output0 = takeResults;
  callbacks.hostVariable = giveWays;
  return callbacks;
}();

class BatchTest : public testing::Test {
 protected:
  BatchTest() { host = {}; }

  // The errors of so many invocations as there are ways.
  std::vector<VmError> run(ShaderBatch* batch, const std::vector<uint64_t>& ways,
                           uint32_t timeout = 0, const CompiledShader* shader = nullptr) {
    if (shader == nullptr) shader = shader_.record();
    const BatchStartupInfo startup = {
        static_cast<uint32_t>(ways.size()), timeout, ways.data(), 0, 0, 0, 0};
    std::vector<VmError> errors(ways.size(), VM_ERROR_COUNT);
    EXPECT_EQ(vmShaderBatchExecuteShader(batch, shader, &startup, errors.data()), VM_OK);
    return errors;
  }

  const tools::BuiltShader shader_ = assembled(kWays);
};

using Errors = std::vector<VmError>;
using Results = std::vector<std::pair<float, float>>;

TEST_F(BatchTest, EndsOfOneLeaveTheOthersAlone) {
  const Errors expected = {VM_OK, VM_ERR_DISCARDED, VM_ERR_HALTED, VM_ERR_INDEX_OUT_OF_BOUNDS,
                           VM_OK};
  const Results delivered = {{0.0f, 1.0f}, {2.0f, 1.0f}, {5.0f, 1.0f}};
  for (const BatchCallbacks* wide :
       {static_cast<const BatchCallbacks*>(nullptr), &kBatchCallbacks}) {
    const BatchPtr batch = makeBatch(&kCallbacks, wide);
    for (int call = 0; call < 2; ++call) {
      host = {};
      EXPECT_EQ(run(batch.get(), {0, 1, 2, 3, 5}), expected);
      std::sort(host.results.begin(), host.results.end());
      EXPECT_EQ(host.results, delivered);
    }
  }
}

TEST_F(BatchTest, AnswersOfBatchCallbacks) {
  const BatchPtr batch = makeBatch(&kCallbacks, &kBatchCallbacks);
  host.answer = VM_BATCH_SAME_FOR_ALL;
  EXPECT_EQ(run(batch.get(), {1, 2}), (Errors{VM_OK, VM_OK}));
  EXPECT_EQ(host.results, (Results{{7.0f, 1.0f}, {7.0f, 1.0f}}));
  host.answer = VM_BATCH_ONE_BY_ONE;
  EXPECT_EQ(run(batch.get(), {1, 2}), (Errors{VM_ERR_DISCARDED, VM_ERR_HALTED}));
  // Nobody answers: the variable keeps what its slot held, and nothing fails.
  const BatchPtr alone = makeBatch(nullptr, &kBatchCallbacks);
  EXPECT_EQ(run(alone.get(), {0}).size(), 1u);
}

TEST_F(BatchTest, TheTimeLimitIsForAll) {
  const BatchPtr batch = makeBatch(&kCallbacks);
  EXPECT_EQ(run(batch.get(), {4, 4, 4}, 5), Errors(3, VM_ERR_TIMEOUT));
  EXPECT_EQ(run(batch.get(), std::vector<uint64_t>(100, 4), 5), Errors(100, VM_ERR_TIMEOUT));
  EXPECT_TRUE(host.results.empty());
  EXPECT_EQ(run(batch.get(), {0}), Errors{VM_OK}) << "usable again";
}

// Even invocations ask again, which their reference shows; the others keep what was answered first.
// The result is the second member of the second element.
tools::BuiltShader asksTwice(uint32_t elements) {
  return assembled((R"(
.struct S
  .member float a
  .member vec2 b
.end
.global vec2 result
.global int way host
.global S given[)" + std::to_string(elements) +
                    R"(] host
.output0 result
.entry main
.function main
  LOAD_GLOBAL given
  LOAD_GLOBAL way
  PUSH_1
  BIT_AND 1
  INT_TO_BOOL 1
  JUMP_IF_FALSE again
  JUMP end
again:
  LOAD_GLOBAL given
  POP_RELEASE
end:
  PUSH_1
  PUSH_INDEX
  ARRAY_ELEMENT S
  STRUCT_FIELD S, b
  STORE_GLOBAL result
  RETURN
.end
)")
                       .c_str());
}

// Word w of the answer is w + 10 for the first request of a group, and w + 20 for the next.
struct AggregateHost {
  BatchAnswer answer;
  uint32_t requests, asked;
};
AggregateHost aggregates;

void giveWayOrBlock(const HostVariableRequest* request) {
  if (request->count == 0) return giveWay(request);
  ++aggregates.asked;
  const std::vector<float> words(request->varInfo->byteSize / 4, 1.0f);
  std::memcpy(request->data, words.data(), request->varInfo->byteSize);
}

BatchAnswer giveBlocks(const BatchVariableRequest* request) {
  const BatchRequest& group = request->group;
  EXPECT_EQ(reinterpret_cast<uintptr_t>(group.words) % VM_BATCH_ALIGNMENT, 0u);
  EXPECT_EQ(group.wordCount, request->varInfo->byteSize / 4);
  const uint32_t base = aggregates.requests++ % 2 == 0 ? 10 : 20;
  if (aggregates.answer == VM_BATCH_ONE_BY_ONE) return aggregates.answer;
  for (uint32_t w = 0; w < group.wordCount; ++w) {
    const auto word = std::bit_cast<uint32_t>(static_cast<float>(base + w));
    uint32_t* const row = group.words + size_t{w} * group.stride;
    if (aggregates.answer == VM_BATCH_SAME_FOR_ALL) row[0] = word;
    for (uint32_t i = 0; aggregates.answer == VM_BATCH_ANSWERED && i < group.count; ++i) {
      if ((group.mask >> i & 1) != 0) row[i] = word;
    }
  }
  return aggregates.answer;
}

TEST_F(BatchTest, StructuresAndArraysForAllAtOnce) {
  HostCallbacks callbacks = kCallbacks;
  callbacks.hostVariable = giveWayOrBlock;
  BatchCallbacks wide = kBatchCallbacks;
  wide.hostAggregate = giveBlocks;
  [[maybe_unused]] const std::pair<float, float> odd = {14.0f, 15.0f}, even = {24.0f, 25.0f},
                                                 single = {1.0f, 1.0f};
  constexpr uint32_t kTooMany = VM_BATCH_AGGREGATE_LIMIT / 12 + 1;
  const struct {
    BatchAnswer answer;
    uint32_t elements;
    uint64_t pairs;  // of an odd and an even invocation
    uint32_t requests, asked;
    Results expected;  // in order
  } kCases[] = {
#ifdef SHADERMACHINE_HAVE_ENGINE
      {VM_BATCH_ANSWERED, 3, 32, 2, 0, {odd, even}},
      {VM_BATCH_SAME_FOR_ALL, 3, 32, 2, 0, {odd, even}},
      {VM_BATCH_ONE_BY_ONE, 3, 32, 2, 96, {single}},
      {VM_BATCH_SAME_FOR_ALL, kTooMany - 1, 32, 2, 0, {odd, even}},
      {VM_BATCH_SAME_FOR_ALL, kTooMany, 32, 0, 96, {single}},
#endif
      // On the machine: the first asks once, the other twice.
      {VM_BATCH_ANSWERED, 3, 1, 3, 0, {odd}},
      {VM_BATCH_SAME_FOR_ALL, kTooMany - 1, 1, 3, 0, {odd}},
      {VM_BATCH_ONE_BY_ONE, 3, 1, 3, 3, {single}},
      {VM_BATCH_ANSWERED, kTooMany, 1, 0, 3, {single}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.answer << ", " << c.elements << ", " << c.pairs);
    const tools::BuiltShader shader = asksTwice(c.elements);
    const BatchPtr batch = makeBatch(&callbacks, &wide);
    host = {};
    aggregates = {c.answer, 0, 0};
    std::vector<uint64_t> ways;
    for (uint64_t i = 0; i < c.pairs; ++i) ways.insert(ways.end(), {5, 6});
    EXPECT_EQ(run(batch.get(), ways, 0, shader.record()), Errors(ways.size(), VM_OK));
    EXPECT_EQ(aggregates.requests, c.requests);
    EXPECT_EQ(aggregates.asked, c.asked);
    std::sort(host.results.begin(), host.results.end());
    Results expected;
    for (const auto& result : c.expected) {
      expected.insert(expected.end(), ways.size() / c.expected.size(), result);
    }
    EXPECT_EQ(host.results, expected);
  }
}

// Host variables that nobody answers are globals like others.
TEST_F(BatchTest, BasicVariablesWithoutACallbackKeepTheirValues) {
  BatchCallbacks wide = kBatchCallbacks;
  wide.hostVariable = nullptr;
  wide.hostAggregate = giveBlocks;
  const tools::BuiltShader shader = assembled(R"(
.global vec2 result host
.output0 result
.entry main
.function main
  PUSH_U32 2.0
  PUSH_1_F
  CTOR_VEC2_A 1, 1
  STORE_GLOBAL result
  LOAD_GLOBAL result
  SWIZZLE .yx
  STORE_GLOBAL result
  RETURN
.end
)");
  for (const size_t count : {size_t{1}, size_t{64}}) {
    const BatchPtr batch = makeBatch(nullptr, &wide);
    host = {};
    run(batch.get(), std::vector<uint64_t>(count), 0, shader.record());
    EXPECT_EQ(host.results, Results(count, {1.0f, 2.0f}));
  }
}

#ifdef SHADERMACHINE_HAVE_ENGINE

uint32_t groups = 0;

BatchCallbacks countingGroups() {
  BatchCallbacks wide = {};
  wide.hostVariable = [](const BatchVariableRequest* request) {
    ++groups;
    return giveWays(request);
  };
  return wide;
}

// One whole copy names thousands of rows: many would take hundreds of megabytes.
TEST_F(BatchTest, ProgramsOfTooManyRowsAreLeftToTheMachine) {
  const BatchCallbacks wide = countingGroups();
  for (const uint32_t copies : {1u, 300u}) {
    std::string source = R"(
.global int way host
.entry main
.function main
  .local float a[4096]
  .local float b[4096]
  LOAD_GLOBAL way
  POP
)";
    for (uint32_t i = 0; i < copies; ++i) source += "LOAD_LOCAL a\nSTORE_LOCAL b\n";
    const tools::BuiltShader shader = assembled((source + "RETURN\n.end\n").c_str());
    const BatchPtr batch = makeBatch(&kCallbacks, &wide);
    groups = 0;
    EXPECT_EQ(run(batch.get(), std::vector<uint64_t>(64), 0, shader.record()), Errors(64, VM_OK));
    EXPECT_EQ(groups, copies == 1 ? 1u : 64u);
  }
}

// To look at the code that no invocation runs takes many times as long as the first call may.
TEST_F(BatchTest, AProgramThatTookTooLongIsNotMadeAgain) {
  std::string source = R"(
.global int way host
.entry main
.function main
  LOAD_GLOBAL way
  PUSH_1
  EQ_I 1
  JUMP_IF_FALSE long
  DISCARD
long:
)";
  for (uint32_t i = 0; i < 50000; ++i) source += "PUSH_0\nPOP\n";
  const tools::BuiltShader shader = assembled((source + "RETURN\n.end\n").c_str());
  const BatchCallbacks wide = countingGroups();
  const BatchPtr batch = makeBatch(&kCallbacks, &wide);
  const std::vector<uint64_t> ways(64, 1);
  run(batch.get(), ways, 1, shader.record());
  groups = 0;
  EXPECT_EQ(run(batch.get(), ways, 0, shader.record()), Errors(64, VM_ERR_DISCARDED));
  EXPECT_EQ(groups, 64u) << "one by one";
  const BatchPtr other = makeBatch(&kCallbacks, &wide);
  groups = 0;
  run(other.get(), ways, 0, shader.record());
  EXPECT_EQ(groups, 1u) << "on rows, with time";
}

#endif

// The same code; the structure decides how much of each value is kept, and what is read.
tools::BuiltShader structured(const std::string& members) {
  return assembled((".struct S\n" + members + R"(.end
.global vec2 result
.output0 result
.entry main
.function main
  PUSH_U32 1.0
  PUSH_U32 2.0
  CTOR_VEC2_A 1, 1
  PUSH_U32 3.0
  PUSH_U32 4.0
  CTOR_VEC2_A 1, 1
  CTOR_STRUCT S
  STRUCT_FIELD S, 1
  STORE_GLOBAL result
  RETURN
.end
)")
                       .c_str());
}

TEST_F(BatchTest, ProgramsBelongToTheirStructureTypes) {
  const BatchPtr batch = makeBatch(&kCallbacks, &kBatchCallbacks);
  const std::vector<uint64_t> ways(64, 0);
  const tools::BuiltShader first = structured(".member vec2 a\n.member float b\n");
  const tools::BuiltShader second = structured(".member float a\n.member vec2 b\n");
  for (const tools::BuiltShader* shader : {&first, &second}) {
    host = {};
    run(batch.get(), ways, 0, shader->record());
  }
  EXPECT_EQ(host.results, Results(64, {3.0f, 4.0f}));
}

ShaderBatch* running = nullptr;

TEST_F(BatchTest, RunningBatchesCannotBeRunOrDestroyed) {
  const BatchPtr batch = makeBatch(&kCallbacks, &kBatchCallbacks);
  host.answer = VM_BATCH_ONE_BY_ONE;
  running = batch.get();
  host.onVariable = [] {
    host.onVariable = nullptr;
    VmError error = VM_ERROR_COUNT;
    EXPECT_EQ(vmShaderBatchExecuteShader(running, nullptr, nullptr, &error),
              VmError{VM_ERR_ALREADY_RUNNING});
    EXPECT_EQ(error, VmError{VM_ERROR_COUNT});
    EXPECT_EQ(vmShaderBatchDestroy(running), VmError{VM_OK});
    // Another batch may run inside; the outer one goes on with its own host.
    const tools::BuiltShader shader = assembled(kWays);
    const BatchPtr inner = makeBatch(&kCallbacks, &kBatchCallbacks);
    const uint64_t way = 9;
    const BatchStartupInfo startup = {1, 0, &way, 0, 0, 0, 0};
    EXPECT_EQ(vmShaderBatchExecuteShader(inner.get(), shader.record(), &startup, &error),
              VmError{VM_OK});
  };
  EXPECT_EQ(run(batch.get(), {5, 6}), (Errors{VM_OK, VM_OK}));
  EXPECT_EQ(host.results, (Results{{9.0f, 1.0f}, {5.0f, 1.0f}, {6.0f, 1.0f}}));
}

TEST_F(BatchTest, ArgumentsAreCheckedInOrder) {
  const BatchPtr batch = makeBatch(nullptr);
  const uint64_t way = 0;
  VmError error = VM_ERROR_COUNT;
  const BatchStartupInfo startup = {1, 0, &way, 0, 0, 0, 0};
  const BatchStartupInfo noData = {1, 0, nullptr, 0, 0, 0, 0};
  const BatchStartupInfo none = {0, 0, &way, 0, 0, 0, 0};
  CompiledShader newer = *shader_.record(), beyond = newer, empty = newer;
  newer.version = 2;
  beyond.entryIndex = beyond.functionCount;
  const ShaderFunction* const functions[] = {nullptr};
  empty.functions = functions;
  const CompiledShader* good = shader_.record();
  const struct {
    ShaderBatch* batch;
    const CompiledShader* shader;
    const BatchStartupInfo* startup;
    VmError* errors;
    VmError expected;
  } kCases[] = {
      {nullptr, nullptr, nullptr, nullptr, VM_ERR_INVALID_HANDLE},
      {batch.get(), nullptr, nullptr, &error, VM_ERR_NO_STARTUP_INFO},
      {batch.get(), nullptr, &noData, &error, VM_ERR_NO_STARTUP_INFO},
      {batch.get(), nullptr, &startup, nullptr, VM_ERR_NO_STARTUP_INFO},
      {batch.get(), nullptr, &startup, &error, VM_ERR_INVALID_SHADER},
      {batch.get(), &newer, &startup, &error, VM_ERR_NEWER_COMPILER},
      {batch.get(), &beyond, &startup, &error, VM_ERR_INVALID_ENTRY},
      {batch.get(), &empty, &startup, &error, VM_ERR_INVALID_ENTRY},
      {batch.get(), good, &none, &error, VM_OK},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(vmShaderBatchExecuteShader(c.batch, c.shader, c.startup, c.errors), c.expected);
    EXPECT_EQ(error, VmError{VM_ERROR_COUNT}) << "untouched";
  }
  EXPECT_EQ(vmShaderBatchDestroy(nullptr), VmError{VM_OK});
}

TEST_F(BatchTest, AllocationsMayFail) {
  makeBatch(&kCallbacks, &kBatchCallbacks);  // the first one fills the noise tables, which stay
  const int64_t liveBefore = liveAllocations();
  // So many that they run on rows, if memory suffices.
  const std::vector<uint64_t> ways(64, 1);
  for (int64_t allocation = 0; allocation < 80; ++allocation) {
    const AllocationFailure failure(allocation, 1);
    const BatchPtr batch = makeBatch(&kCallbacks, &kBatchCallbacks);
    EXPECT_EQ(batch == nullptr, allocation < 4) << "batch, machine, stack and frames";
    if (batch != nullptr) {
      EXPECT_EQ(run(batch.get(), ways), Errors(ways.size(), VM_ERR_DISCARDED));
    }
  }
  EXPECT_EQ(liveAllocations(), liveBefore);
}

TEST(BatchDifferential, InvocationsEndAsOnMachines) {
  constexpr uint32_t kShaders = 1500;
  vmInitialize();
  uint64_t calls = 0;
  uint32_t finished = 0;
  uint32_t onRows = 0;
  for (uint32_t seed = 1; seed <= kShaders; ++seed) {
    const tools::BuiltShader shader = fuzz::batchProgram(seed);
    if (!tools::validate(shader.view()).valid()) continue;
    const fuzz::BatchComparison comparison =
        fuzz::compareBatch(*shader.record(), seed, seed % 70 + 1);
    ASSERT_EQ(comparison.difference, "") << "seed " << seed << "\n"
                                         << tools::disassemble(shader.view(), {.annotate = true});
    calls += comparison.calls;
    finished += comparison.finished;
    onRows += comparison.onRows ? 1 : 0;
  }
  // There must have been something to compare.
  EXPECT_GT(calls, 100 * kShaders);
  EXPECT_GT(finished, 10 * kShaders);
#ifdef SHADERMACHINE_HAVE_ENGINE
  EXPECT_GT(onRows, kShaders / 4);
#endif
}

// What is read before a store keeps its value; what is a reference shows it; a loop goes on with
// another reference than it began with.
TEST(BatchDifferential, ReferencesOverStores) {
  constexpr const char* kBodies[] = {
      "LOAD_GLOBAL a; STRUCT_FIELD S, m; PUSH_1_F; STORE_GLOBAL_ELEM_IMM a, 0; STORE_GLOBAL c",
      "LOAD_GLOBAL i; PUSH_1; BIT_AND 1; PUSH_INDEX; LOAD_GLOBAL many; ARRAY_ELEMENT S; "
      "LOAD_GLOBAL i; POP; PUSH_1_F; STORE_GLOBAL_ELEM_IMM many, 1, 0; STRUCT_FIELD S, m; "
      "STORE_GLOBAL c",
      "PUSH_1_F; STORE_GLOBAL_ELEM_IMM a, 0; LOAD_GLOBAL b\nagain:\nSTRUCT_FIELD S, m; "
      "LOAD_GLOBAL c; ADD_F 1; STORE_GLOBAL c; LOAD_GLOBAL a; LOAD_GLOBAL n; INC_I 1; "
      "STORE_GLOBAL n; LOAD_GLOBAL n; PUSH_3; LT_I; JUMP_IF_FALSE done; JUMP again\ndone:\n"
      "POP_RELEASE",
  };
  constexpr uint32_t kCount = 70;
  for (const char* body : kBodies) {
    std::string source =
        ".struct S; .member float m; .end; .global float c; .global S a; .global S b; "
        ".global S many[2]; .global int i host; .global int n; .output0 c; .entry main; "
        ".function main; " +
        std::string(body) + "; RETURN; .end";
    std::replace(source.begin(), source.end(), ';', '\n');
    const tools::BuiltShader shader = assembled(source.c_str());
    for (uint32_t seed = 1; seed <= 12; ++seed) {
      EXPECT_EQ(fuzz::compareBatch(*shader.record(), seed, kCount).difference, "") << body;
    }
  }
}

}  // namespace
}  // namespace shadermachine::tests
