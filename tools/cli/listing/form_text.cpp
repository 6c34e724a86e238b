#include "cli/listing/form_text.h"

#include <bit>
#include <sstream>

namespace shadermachine::tools {
namespace {

using form::Form;
using form::Kind;
using form::Operand;
using form::Operation;
using form::Place;

constexpr const char* kKindNames[] = {
#define KIND(name, text) text,
#include "form/kinds.def"
#undef KIND
};

std::string placeText(Place place) {
  if (place < form::kFirstIndexPlace) return "s" + std::to_string(place);
  if (place < form::kFirstScratchPlace) return "i" + std::to_string(place - form::kFirstIndexPlace);
  return "t" + std::to_string(place - form::kFirstScratchPlace);
}

std::string wordsText(Place place, uint32_t first, uint32_t n) {
  std::string text = placeText(place);
  if (first != 0) text += "." + std::to_string(first);
  return text + "+" + std::to_string(n);
}

std::string operandText(Operand operand) {
  std::string text = "%" + std::to_string(operand.value);
  if (operand.first != 0) text += "." + std::to_string(operand.first);
  return text;
}

std::string constantText(const Form& form, const Operation& operation) {
  std::ostringstream out;
  for (uint32_t w = 0; w < operation.words; ++w) {
    const uint32_t word = *form.constantWords(operation, w);
    const float x = std::bit_cast<float>(word);
    out << (w == 0 ? " " : ", ");
    const bool isFloat = word >= 0x00800000 && (word & 0x7F800000) != 0x7F800000;
    if (isFloat) {
      out << x;
    } else {
      out << static_cast<int32_t>(word);
    }
    if (isFloat && out.str().find_first_of(".e", out.str().rfind(' ')) == std::string::npos) {
      out << ".0";
    }
  }
  return out.str();
}

std::string siteText(const form::Site& site) {
  return " at f" + std::to_string(site.call->function) + ":" + std::to_string(site.pc) + " top s" +
         std::to_string(site.topSlot());
}

// Where run-time indices lead, from a byte on.
std::string stepsText(const Operation& operation, uint32_t byte) {
  std::string text = " byte " + std::to_string(byte);
  const bool loads = operation.kind == Kind::LoadIndexed;
  const uint32_t count = loads                                ? operation.n
                         : operation.kind == Kind::CheckBound ? 1
                                                              : operation.count;
  for (uint32_t k = 0; k < count; ++k) {
    const form::IndexStep& step = operation.steps[k];
    text += " [";
    if (step.add != 0) text += "+" + std::to_string(static_cast<int32_t>(step.add)) + " ";
    if (step.mask != UINT32_MAX) text += "& " + std::to_string(step.mask) + " ";
    text += "* " + std::to_string(step.stride);
    if (step.bound != 0) text += " < " + std::to_string(step.bound);
    text += "]";
  }
  return text;
}

// What follows the name of an operation on a storage, and of Renew.
std::string storageText(const Operation& operation) {
  switch (operation.kind) {
    case Kind::LoadIndexed:
    case Kind::CheckBound:
      return " " + placeText(operation.place) + stepsText(operation, operation.first);
    case Kind::StoreIndexed:
      return " " + placeText(operation.place) + stepsText(operation, operation.first) + "+" +
             std::to_string(operation.n * sizeof(uint32_t)) + " =";
    case Kind::OpenStorage:
      return " " + placeText(operation.place) + " in " + placeText(operation.other);
    case Kind::CopyWords:
    case Kind::FillStorage:
      return " " + placeText(operation.place) + " = " + placeText(operation.other) + " byte " +
             std::to_string(operation.first);
    case Kind::ReserveStorage:
      return " " + std::to_string(operation.count);
    case Kind::Renew:
      return " " + placeText(operation.place) + " " + std::to_string(operation.size);
    default:
      return "";
  }
}

// What follows the operation's name.
std::string detailText(const Form& form, const Operation& operation) {
  switch (operation.kind) {
    case Kind::Constant:
      return constantText(form, operation);
    case Kind::RunWord:
      return " " + std::to_string(operation.first);
    case Kind::Load:
      return " " + wordsText(operation.place, operation.first, operation.words);
    case Kind::Store:
      return " " + wordsText(operation.place, operation.first, operation.n) + " =";
    case Kind::Element:
    case Kind::Column:
      return " " + std::to_string(operation.n);
    case Kind::ReadMember:
    case Kind::ReadElement:
    case Kind::CheckIndex:
      return " " + placeText(operation.place) + " byte " + std::to_string(operation.first);
    case Kind::StorePart:
      return " " + placeText(operation.place) + " byte " + std::to_string(operation.first) + "+" +
             std::to_string(operation.n * sizeof(uint32_t)) + " =";
    case Kind::CopyBlock:
    case Kind::StoreBlock:
    case Kind::MoveSlot:
    case Kind::ShareView:
      return " " + placeText(operation.place) + " = " + placeText(operation.other);
    case Kind::InitLocals:
      return " " + placeText(operation.place) + " .. " +
             placeText(operation.place + operation.count - 1);
    case Kind::ClearSlot:
    case Kind::ReleaseSlot:
      return " " + placeText(operation.place);
    case Kind::HostVariable:
    case Kind::HostAggregate:
      return " g" + std::to_string(operation.first) + " in " + placeText(operation.place);
    case Kind::HostBuiltin:
      return " " + std::to_string(operation.first) + " in " + placeText(operation.place);
    case Kind::Plain:
    case Kind::PlainCall:
      return std::string(" ") + opcodeInfo(operation.opcode).mnemonic;
    case Kind::Finish:
    case Kind::Stop:
      return " " + std::to_string(operation.first);
    default:
      return storageText(operation);
  }
}

}  // namespace

std::string operationText(const Form& form, const Operation& operation) {
  std::string text = form::isSeen(operation.kind) ? "*" : "";
  if (operation.kind == Kind::Operate) {
    text += opcodeInfo(operation.opcode).mnemonic;
    text += " " + std::to_string(operation.n);
  } else {
    text += kKindNames[static_cast<size_t>(operation.kind)];
    text += detailText(form, operation);
  }
  const uint32_t operands = operandCount(operation);
  for (uint32_t i = 0; i < operands; ++i) {
    text += (i == 0 ? " " : ", ") + operandText(operation.in[i]);
  }
  const bool jumps = operation.kind == Kind::Branch || operation.kind == Kind::Jump ||
                     operation.kind == Kind::JumpBack;
  if (jumps) text += " -> block " + std::to_string(form.order[operation.block]);
  if (operation.site != nullptr) text += siteText(*operation.site);
  return text;
}

std::string formText(const Form& form) {
  std::ostringstream out;
  for (uint32_t b = 0; b < form.blocks.size(); ++b) {
    out << "block " << b << "\n";
    for (uint32_t i = form.blocks[b].begin; i < form.blocks[b].end; ++i) {
      const Operation& operation = form.operations[i];
      if (operation.kind == Kind::Nothing) continue;
      out << "  ";
      if (operation.words > 0) out << "%" << i << ":" << unsigned{operation.words} << " = ";
      out << operationText(form, operation) << "\n";
    }
  }
  return out.str();
}

}  // namespace shadermachine::tools
