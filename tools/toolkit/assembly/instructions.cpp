// Function bodies.
#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>

#include "assembly/literals.h"
#include "assembly/operand_names.h"
#include "assembly/path.h"
#include "assembly/scope.h"
#include "assembly/source_directives.h"
#include "instructions/lookup_form.h"
#include "instructions/opcode_info.h"

namespace shadermachine::tools::assembly {
namespace {

constexpr size_t kMaxListLength = 65535;

std::optional<Opcode> findOpcode(std::string_view mnemonic) {
  static const auto kOpcodes = [] {
    std::unordered_map<std::string, Opcode> opcodes;
    for (unsigned i = 0; i < kOpcodeCount; ++i) {
      opcodes.emplace(kOpcodeTable[i].mnemonic, static_cast<Opcode>(i));
    }
    return opcodes;
  }();
  // No mnemonic is as long; a word of the text can be of any length.
  std::string upper(mnemonic.substr(0, 64));
  for (char& c : upper) c = c >= 'a' && c <= 'z' ? static_cast<char>(c & ~0x20) : c;
  const auto place = kOpcodes.find(upper);
  return place == kOpcodes.end() ? std::nullopt : std::optional(place->second);
}

std::vector<std::string_view> allMnemonics() {
  std::vector<std::string_view> mnemonics;
  mnemonics.reserve(kOpcodeCount);
  for (const OpcodeInfo& info : kOpcodeTable) mnemonics.push_back(info.mnemonic);
  return mnemonics;
}

// How an operand is shown in the form of an instruction; empty when it is left out.
std::string operandForm(const OpcodeInfo& info, unsigned slot) {
  using enum OperandKind;
  switch (info.operands[slot]) {
    case Skip8:
    case Skip16:
    case Mask:
      return "";
    case SwizzleCount:
      return ".xyz";
    case LookupForm:
      return "arguments, kind";
    default:
      return isListLength(info, slot) ? "" : operandNames(info.operands[slot]).name;
  }
}

// What the text of an instruction looks like, as in "LOAD_LOCAL local".
std::string usage(const OpcodeInfo& info) {
  std::string text = info.mnemonic;
  const char* separator = " ";
  for (unsigned slot = 0; slot < kMaxOperands; ++slot) {
    const std::string form = operandForm(info, slot);
    if (form.empty()) continue;
    text += separator + form + (isOperandList(info.operands[slot]) ? "..." : "");
    separator = ", ";
  }
  return text;
}

class FunctionAssembler {
 public:
  FunctionAssembler(Scope& scope, const FunctionSyntax& syntax, FunctionBuilder& function)
      : scope_(scope), syntax_(syntax), function_(function) {}

  void run() {
    for (const VariableSyntax& param : syntax_.params) locals_.add(param.name, scope_.diagnostics);
    for (const VariableSyntax& local : syntax_.locals) locals_.add(local.name, scope_.diagnostics);
    // Labels before the rest: jumps lead forward, too. They are bound by their place in this order
    // and not by name, since after an error two may have the same.
    for (const StatementSyntax& statement : syntax_.body) {
      if (statement.kind != StatementSyntax::Kind::Label) continue;
      labelNames_.add(statement.head, scope_.diagnostics);
      labels_.push_back(function_.newLabel());
    }
    hasSource_ = std::any_of(syntax_.body.begin(), syntax_.body.end(), [](const auto& statement) {
      return statement.kind == StatementSyntax::Kind::Source;
    });
    for (const StatementSyntax& statement : syntax_.body) {
      if (scope_.diagnostics.isFull()) return;
      assemble(statement);
    }
    if (syntax_.codeRange && !syntax_.body.empty()) {
      scope_.error(syntax_.name, "a function with a given code range has no instructions");
    }
  }

 private:
  void assemble(const StatementSyntax& statement) {
    switch (statement.kind) {
      case StatementSyntax::Kind::Label:
        function_.bind(labels_[nextLabel_++]);
        return;
      case StatementSyntax::Kind::Bytes:
        noteOwnPlace(statement.head);
        function_.emitBytes(statement.bytes);
        return;
      case StatementSyntax::Kind::Source:
        applySourceDirective(source_, statement);
        return;
      case StatementSyntax::Kind::Instruction:
        assembleInstruction(statement);
        return;
    }
  }

  // Code that does not say where it comes from comes from this text.
  void noteOwnPlace(const Token& head) {
    if (hasSource_) return;
    function_.setPosition(scope_.diagnostics.positionOf(head.text));
    function_.beginStatement();
  }

  void assembleInstruction(const StatementSyntax& statement) {
    const auto opcode = findOpcode(statement.head.text);
    if (!opcode) {
      scope_.error(statement.head, "unknown instruction " + quoted(statement.head.text) +
                                       suggestion(statement.head.text, allMnemonics()));
      return;
    }
    statement_ = &statement;
    info_ = &opcodeInfo(*opcode);
    nextOperand_ = 0;
    values_.clear();
    target_.reset();
    isMaskKnown_ = false;
    if (!readOperands()) return;
    noteOwnPlace(statement.head);
    const auto number = static_cast<VmOpcode>(*opcode);
    if (target_) {
      function_.emitJump(number, *target_);
    } else {
      function_.emit(number, values_);
    }
  }

  bool readOperands() {
    for (unsigned slot = 0; slot < kMaxOperands; ++slot) {
      if (!isListLength(*info_, slot) && !readOperand(info_->operands[slot])) return false;
    }
    if (const Token* token = peek()) {
      return fail(*token, "one operand too many; the form is " + quoted(usage(*info_)));
    }
    return true;
  }

  const Token* peek() const {
    const std::vector<Token>& operands = statement_->operands;
    return nextOperand_ < operands.size() ? &operands[nextOperand_] : nullptr;
  }

  bool fail(const Token& place, std::string message) {
    scope_.error(place, std::move(message));
    return false;
  }

  bool failMissing(OperandKind kind) {
    return fail(statement_->head, std::string("missing operand ") + operandNames(kind).name +
                                      "; the form is " + quoted(usage(*info_)));
  }

  bool readOperand(OperandKind kind) {
    using enum OperandKind;
    switch (kind) {
      case None:
        return true;
      case Skip8:
      case Skip16:
        return readUnused(kind);
      case CountList:
        return readCounts();
      case Path:
        return readPath();
      case Mask:
        return isMaskKnown_ || readSingle(kind);
      default:
        return readSingle(kind);
    }
  }

  bool readSingle(OperandKind kind) {
    using enum OperandKind;
    const Token* token = peek();
    if (!token) return failMissing(kind);
    ++nextOperand_;
    switch (kind) {
      case Local:
        return readName(*token, locals_, UINT16_MAX);
      case Global:
        return readName(*token, scope_.globals, UINT16_MAX);
      case Function:
        return readName(*token, scope_.functions, UINT16_MAX);
      case StructType:
        return readName(*token, scope_.structs, UINT16_MAX);
      case Member:
        return readMember(*token);
      case ElementType:
        return readType(*token);
      case Jump:
        return readJump(*token);
      case Word:
        return readWord(*token);
      case LookupForm:
        return readLookupForm(*token);
      case SwizzleCount:
        return token->is(TokenKind::DotWord) ? readSwizzle(*token) : readInteger(*token, 0, 255);
      default:
        return readInteger(*token, 0, operandWidth(kind) == 1 ? UINT8_MAX : UINT16_MAX);
    }
  }

  bool readInteger(const Token& token, int64_t lowest, int64_t highest) {
    if (!token.is(TokenKind::Integer)) {
      return fail(token, "expected a whole number, found " + quoted(token.text));
    }
    if (token.number < lowest || token.number > highest) {
      return fail(token, "the number must be from " + std::to_string(lowest) + " to " +
                             std::to_string(highest));
    }
    values_.push_back(token.number);
    return true;
  }

  bool readName(const Token& token, const SymbolTable& names, int64_t highest) {
    if (token.is(TokenKind::Integer)) return readInteger(token, 0, highest);
    if (!token.is(TokenKind::Word)) {
      return fail(token, "expected a name or number, found " + quoted(token.text));
    }
    const auto number = names.require(token, scope_.diagnostics);
    values_.push_back(number.value_or(0));
    return number.has_value();
  }

  // The structure is the operand before.
  bool readMember(const Token& token) {
    const auto structure = static_cast<size_t>(values_.back());
    if (!token.is(TokenKind::Word)) return readInteger(token, 0, UINT32_MAX);
    if (structure >= scope_.members.size()) return fail(token, "the structure has no such member");
    return readName(token, scope_.members[structure], UINT32_MAX);
  }

  bool readType(const Token& token) {
    const auto type = resolveType(scope_, token);
    values_.push_back(type.value_or(TypeCode{0}));
    return type.has_value();
  }

  bool readJump(const Token& token) {
    if (!token.is(TokenKind::Word)) return readInteger(token, INT32_MIN, UINT32_MAX);
    const auto label = labelNames_.require(token, scope_.diagnostics);
    if (label) target_ = labels_[*label];
    return label.has_value();
  }

  bool readWord(const Token& token) {
    if (!token.is(TokenKind::Float)) return readInteger(token, INT32_MIN, UINT32_MAX);
    values_.push_back(token.number);
    return true;
  }

  // Either the byte itself, or argument count and kind.
  bool readLookupForm(const Token& token) {
    const Token* kind = peek();
    if (!kind) return readInteger(token, 0, UINT8_MAX);
    ++nextOperand_;
    if (!readInteger(token, 0, 3) || !readInteger(*kind, 0, 7)) return false;
    const auto kindNumber = static_cast<uint32_t>(values_.back());
    values_.pop_back();
    values_.back() = lookupForm(static_cast<uint32_t>(values_.back()), kindNumber);
    return true;
  }

  bool readSwizzle(const Token& token) {
    const auto swizzle = requireSwizzle(token);
    if (!swizzle) return false;
    values_.push_back(swizzle->count);
    values_.push_back(swizzle->mask);
    return isMaskKnown_ = true;
  }

  std::optional<Swizzle> requireSwizzle(const Token& token) {
    const auto swizzle = parseSwizzle(token.text.substr(1));
    if (!swizzle) {
      fail(token, "a swizzle is one to four letters of xyzw, rgba or stpq, as in .xyz");
    }
    return swizzle;
  }

  // May be left out: before a swizzle, or at the end.
  bool readUnused(OperandKind kind) {
    const Token* token = peek();
    if (!token || token->is(TokenKind::DotWord)) {
      values_.push_back(0);
      return true;
    }
    return readSingle(kind);
  }

  bool listFits() {
    const std::vector<Token>& operands = statement_->operands;
    const size_t length = operands.size() - nextOperand_;
    if (length <= kMaxListLength) return true;
    return fail(operands[nextOperand_ + kMaxListLength], "a list has at most 65535 entries");
  }

  bool readCounts() {
    if (!listFits()) return false;
    while (const Token* token = peek()) {
      ++nextOperand_;
      if (!readInteger(*token, 0, UINT8_MAX)) return false;
    }
    return true;
  }

  // The variable is the operand before.
  bool readPath() {
    if (!listFits()) return false;
    PathWalk walk = walkFrom(static_cast<uint16_t>(values_.back()));
    while (const Token* token = peek()) {
      ++nextOperand_;
      if (!readStep(*token, walk)) return false;
      walk.step(values_.back());
    }
    return true;
  }

  PathWalk walkFrom(uint16_t variable) {
    return {findVariable(variable), [this](size_t structure, size_t member) -> const VarInfo* {
              if (structure >= scope_.members.size()) return nullptr;
              if (member >= scope_.members[structure].size()) return nullptr;
              return &scope_.builder.member(static_cast<TypeCode>(structure),
                                            static_cast<uint32_t>(member));
            }};
  }

  const VarInfo* findVariable(uint16_t number) {
    if (info_->operands[0] == OperandKind::Local) {
      return number < locals_.size() ? &function_.info(LocalId{number}) : nullptr;
    }
    return number < scope_.globals.size() ? &scope_.builder.info(GlobalId{number}) : nullptr;
  }

  bool readStep(const Token& token, const PathWalk& walk) {
    if (token.is(TokenKind::DotWord)) {
      const auto swizzle = requireSwizzle(token);
      if (swizzle) values_.push_back(swizzleStep(token.text.substr(1)));
      return swizzle.has_value();
    }
    if (!token.is(TokenKind::Word)) return readInteger(token, INT16_MIN, INT16_MAX);
    const auto structure = walk.structure();
    if (!structure || *structure >= scope_.members.size()) {
      return fail(token, quoted(token.text) + " names a member, but this is no structure");
    }
    return readName(token, scope_.members[*structure], INT16_MAX);
  }

  Scope& scope_;
  const FunctionSyntax& syntax_;
  FunctionBuilder& function_;
  SymbolTable locals_{"local"};
  SymbolTable labelNames_{"label"};
  std::vector<Label> labels_;
  size_t nextLabel_ = 0;
  SourceContext source_{scope_, locals_, function_};
  bool hasSource_ = false;

  // Of the current instruction.
  const StatementSyntax* statement_ = nullptr;
  const OpcodeInfo* info_ = nullptr;
  size_t nextOperand_ = 0;
  std::vector<int64_t> values_;
  std::optional<Label> target_;
  bool isMaskKnown_ = false;
};

}  // namespace

void assembleFunction(Scope& scope, const FunctionSyntax& syntax, FunctionBuilder& function) {
  FunctionAssembler(scope, syntax, function).run();
}

}  // namespace shadermachine::tools::assembly
