// Block operations, and the ownership of blocks on failing runs.
#include "machine/blocks.h"

#include <gtest/gtest.h>

#include "machine/machine.h"
#include "machine/types.h"
#include "support/allocations.h"
#include "support/rig.h"

namespace shadermachine::tests {
namespace {

class Blocks : public ::testing::Test {
 protected:
  void SetUp() override {
    liveBefore_ = liveAllocations();
    ASSERT_TRUE(blockAlloc(machine_, &block_, 16, nullptr));
  }
  void TearDown() override {
    blockRelease(&block_);
    EXPECT_EQ(block_.data, nullptr);
    EXPECT_EQ(liveAllocations(), liveBefore_);
    EXPECT_EQ(machine_.memory.inUse, 0u);
    destroyMachine(&machine_);
  }

  Machine& machine_ = *createMachine(nullptr);
  BlockView block_;
  int64_t liveBefore_ = 0;
};

TEST_F(Blocks, StartZeroedWithOneReference) {
  EXPECT_EQ(blockRefCount(&block_), 1u);
  EXPECT_EQ(block_.size, 16u);
  for (uint32_t i = 0; i < 16; ++i) EXPECT_EQ(block_.data[i], 0);
}

TEST_F(Blocks, SubViewsStayInside) {
  BlockView part;
  EXPECT_TRUE(blockSubView(&part, &block_, 4, 12));
  EXPECT_EQ(part.data, block_.data + 12);
  EXPECT_EQ(part.offset, 12u);
  EXPECT_EQ(blockRefCount(&block_), 2u);
  BlockView inner;
  EXPECT_FALSE(blockSubView(&inner, &part, 4, 1));
  EXPECT_TRUE(blockSubView(&inner, &part, 1, 3));
  EXPECT_EQ(inner.offset, 15u);
  blockRelease(&inner);
  blockRelease(&part);
  EXPECT_EQ(blockRefCount(&block_), 1u);
  const std::pair<uint32_t, uint32_t> refused[] = {{8, 12}, {8, 4294967292u}, {0, 0},
                                                   {17, 0}, {1, 16},          {4294967295u, 2}};
  for (const auto& [size, offset] : refused) {
    part = block_;
    EXPECT_FALSE(blockSubView(&part, &block_, size, offset));
    EXPECT_EQ(part.data, nullptr);
  }
}

TEST_F(Blocks, StoresWriteOverAPrivateBlockOfTheSize) {
  BlockView variable;
  ASSERT_TRUE(blockAlloc(machine_, &variable, 16, nullptr));
  BlockView holder;
  ASSERT_TRUE(blockShare(&holder, &block_));
  block_.data[5] = 9;
  const int64_t before = requestedAllocations();
  const uint8_t* const data = variable.data;
  EXPECT_TRUE(blockStore(machine_, &variable, &block_));
  EXPECT_EQ(requestedAllocations(), before);
  EXPECT_EQ(variable.data, data);
  EXPECT_EQ(variable.data[5], 9);
  // One that others hold too keeps its bytes.
  BlockView shared;
  ASSERT_TRUE(blockShare(&shared, &variable));
  block_.data[5] = 10;
  EXPECT_TRUE(blockStore(machine_, &variable, &block_));
  EXPECT_EQ(requestedAllocations(), before + 1);
  EXPECT_EQ(shared.data[5], 9);
  EXPECT_EQ(variable.data[5], 10);
  for (BlockView* view : {&shared, &variable, &holder}) blockRelease(view);
}

TEST_F(Blocks, ClonesAreSeparate) {
  BlockView copy;
  block_.data[3] = 7;
  EXPECT_TRUE(blockClone(machine_, &copy, &block_));
  EXPECT_TRUE(blockEqual(machine_, &copy, &block_));
  EXPECT_NE(copy.data, block_.data);
  copy.data[3] = 8;
  EXPECT_FALSE(blockEqual(machine_, &copy, &block_));
  EXPECT_TRUE(blockClone(machine_, &copy, &copy));
  blockRelease(&copy);
  EXPECT_FALSE(blockClone(machine_, &copy, nullptr));
}

TEST_F(Blocks, Equality) {
  BlockView empty = {}, part;
  EXPECT_FALSE(blockEqual(machine_, &empty, &empty));
  EXPECT_FALSE(blockEqual(machine_, &block_, &empty));
  EXPECT_TRUE(blockEqual(machine_, &block_, &block_));
  ASSERT_TRUE(blockSubView(&part, &block_, 4, 0));
  EXPECT_TRUE(blockEqual(machine_, &block_, &part)) << "same data, different sizes";
  blockRelease(&part);
}

TEST_F(Blocks, EmptyViewsAndFailures) {
  BlockView view = block_, empty = {};
  EXPECT_FALSE(blockShare(&view, &empty));
  EXPECT_EQ(view.data, nullptr);
  EXPECT_FALSE(blockAlloc(machine_, &view, 0, nullptr));
  blockRelease(&empty);
  blockRelease(nullptr);
  EXPECT_EQ(blockRefCount(&empty), 0u);
  const AllocationFailure failure(0);
  view = block_;
  EXPECT_FALSE(blockClone(machine_, &view, &block_));
  EXPECT_EQ(view.data, nullptr);
}

// One reference under several names: each block is freed once, whatever the counts say.
TEST(Sweep, FreesEveryBlockOnce) {
  const int64_t liveBefore = liveAllocations();
  for (VmOpcode last : {VM_OP_HALT, VM_OP_DISCARD, VM_OP_RESERVED_195}) {
    Rig rig;
    EXPECT_NE(rig.run(buildShader([&](ShaderBuilder& shader, FunctionBuilder& code) {
      shader.addGlobal({.name = "g", .type = VM_TYPE_VEC4, .count = 3});
      code.addLocal({.name = "l", .type = VM_TYPE_INT, .count = 3});
      code.emit(VM_OP_LOAD_GLOBAL, {0});
      code.emit(VM_OP_DUP);
      code.emit(VM_OP_DUP);
      code.emit(VM_OP_LOAD_GLOBAL, {0});
      code.emit(VM_OP_PUSH_INDEX_IMM, {1});
      code.pushInt(1);
      code.emit(VM_OP_CTOR_ARRAY, {VM_TYPE_INT, 1});
      code.emit(VM_OP_DUP);
      code.emit(last);
    })),
              VM_OK);
    for (int slot = 0; slot < VM_STACK_CAPACITY; ++slot) {
      EXPECT_EQ(rig.machine->stack[slot].view.data, nullptr);
    }
  }
  EXPECT_EQ(liveAllocations(), liveBefore);
}

TEST(Types, SizesAndParts) {
  EXPECT_EQ(typeByteSize(-101), 0u);
  EXPECT_EQ(typeByteSize(-77), 0u);
  EXPECT_EQ(typeByteSize(0), 0u);
  EXPECT_EQ(typeByteSize(VM_TYPE_SAMPLER_0), 8u);
  EXPECT_EQ(typeByteSize(VM_TYPE_SAMPLER_7), 8u);
  EXPECT_EQ(typeByteSize(VM_TYPE_MAT3), 36u);
  EXPECT_EQ(typeStride(VM_TYPE_MAT3), 12u);
  EXPECT_EQ(matrixColumnType(VM_TYPE_MAT4), VM_TYPE_VEC4);
  EXPECT_EQ(vectorScalarType(VM_TYPE_IVEC3), VM_TYPE_INT);
  EXPECT_EQ(vectorScalarType(VM_TYPE_BVEC2), VM_TYPE_BOOL);
}

}  // namespace
}  // namespace shadermachine::tests
