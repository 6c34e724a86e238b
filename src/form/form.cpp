#include "form/form.h"

#include <algorithm>

#include "instructions/operand_shapes.h"

namespace shadermachine::form {

uint32_t operandCount(const Operation& operation) {
  switch (operation.kind) {
    case Kind::Store:
    case Kind::Branch:
    case Kind::CheckIndex:
    case Kind::CheckBound:
      return 1;
    case Kind::Element:
    case Kind::Column:
      return 2;
    case Kind::LoadIndexed:
      return operation.n;
    case Kind::ReadMember:
    case Kind::ShareView:
    case Kind::CopyBlock:
    case Kind::CopyWords:
    case Kind::FillStorage:
      return operation.steps == nullptr ? 0 : 1;
    case Kind::ReadElement:
      return operation.steps == nullptr ? 1 : 2;
    case Kind::StorePart:
    case Kind::StoreIndexed:
      return 1 + operation.count;
    case Kind::Compose:
      return operation.words;
    case Kind::Operate:
      return operandShape(operation.opcode).operands;
    default:
      return 0;
  }
}

uint32_t operandWords(const Operation& operation, uint32_t i) {
  switch (operation.kind) {
    case Kind::Store:
      return operation.n;
    case Kind::StorePart:
    case Kind::StoreIndexed:
    case Kind::Element:
      return i == 0 ? operation.n : 1;
    case Kind::Column:
      return i == 0 ? uint32_t{operation.n} * operation.n : 1;
    case Kind::Operate:
      return operandShape(operation.opcode).operandWords(i, operation.n);
    default:
      return 1;
  }
}

bool isSeen(Kind kind) {
  switch (kind) {
    case Kind::FillStorage:
    case Kind::HostVariable:
    case Kind::HostAggregate:
    case Kind::HostBuiltin:
    case Kind::Plain:
    case Kind::PlainCall:
      return true;
    default:
      return false;
  }
}

bool isPure(Kind kind) {
  switch (kind) {
    case Kind::Constant:
    case Kind::RunWord:
    case Kind::Load:
    case Kind::Compose:
    case Kind::Operate:
    case Kind::ReadMember:
      return true;
    default:
      return false;
  }
}

bool endsBlock(Kind kind) {
  return kind == Kind::Jump || kind == Kind::JumpBack || kind == Kind::Finish || kind == Kind::Stop;
}

Written writtenBy(const Operation& operation) {
  constexpr uint32_t kAll = (1u << kPlaceWords) - 1;
  const Place place = operation.place;
  switch (operation.kind) {
    case Kind::Store: {
      const uint32_t n = operation.spare ? kPlaceWords - operation.first : operation.n;
      return {place, place + 1, wordMask(operation.first, n)};
    }
    case Kind::InitLocals:
      return {place, place + operation.count, kAll};
    case Kind::OpenStorage:
    case Kind::CopyWords:
    case Kind::FillStorage:
      return {place, place + operation.size, kAll};
    case Kind::StoreIndexed:
      return {place, place + std::max(operation.size, 1u), kAll};
    case Kind::ShareView:
    case Kind::MoveSlot:
    case Kind::HostVariable:
    case Kind::HostAggregate:
    case Kind::HostBuiltin:
      return {place, place + 1, kAll};
    default:
      return {0, 0, 0};
  }
}

PlaceRange readBy(const Operation& operation) {
  if (operation.kind == Kind::LoadIndexed) {
    return {operation.place, operation.place + operation.size};
  }
  if (operation.kind != Kind::CopyWords) return {0, 0};
  return {operation.other, operation.other + operation.stride};
}

bool touchesReference(const Operation& operation, Place slot) {
  switch (operation.kind) {
    case Kind::ReadMember:
    case Kind::ReadElement:
    case Kind::CheckIndex:
    case Kind::StorePart:
    case Kind::Renew:
    case Kind::ClearSlot:
    case Kind::ReleaseSlot:
      return operation.place == slot;
    case Kind::OpenStorage:
    case Kind::FillStorage:
      return operation.other == slot;
    case Kind::InitLocals:
      return operation.place <= slot && slot - operation.place < operation.count;
    case Kind::ShareView:
    case Kind::CopyBlock:
    case Kind::StoreBlock:
    case Kind::MoveSlot:
      return operation.place == slot || operation.other == slot;
    default:
      return false;
  }
}

int32_t seenTop(const Operation& operation) {
  const int32_t top = operation.site->topSlot();
  const bool pushes = operation.kind == Kind::HostVariable ||
                      operation.kind == Kind::HostAggregate || operation.kind == Kind::HostBuiltin;
  return pushes ? top - 1 : top;  // what is pushed has nothing to show yet
}

}  // namespace shadermachine::form
