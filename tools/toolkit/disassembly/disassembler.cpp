#include <shadermachine-tools/disassembler.h>

#include <algorithm>
#include <numeric>
#include <tuple>

#include "assembly/literals.h"
#include "disassembly/instruction_text.h"
#include "disassembly/names.h"
#include "disassembly/record.h"
#include "disassembly/source_text.h"
#include "disassembly/stack_depth.h"
#include "instructions/builtin_variables.h"
#include "instructions/opcode_info.h"
#include "machine/types.h"

namespace shadermachine::tools {
namespace disassembly {
namespace {

constexpr size_t kBytesPerLine = 16;
constexpr size_t kCommentColumn = 40;

std::string hexByte(uint8_t byte) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  return {kDigits[byte >> 4], kDigits[byte & 15]};
}

std::string padded(const std::string& text, size_t width) {
  return std::string(text.size() < width ? width - text.size() : 0, ' ') + text;
}

class Disassembler {
 public:
  Disassembler(const ShaderView& view, const DisassemblyOptions& options)
      : record_(view), handles_(record_), source_(view.sources, handles_), options_(options) {}

  std::string run() {
    // A name must be declared before the text uses it as a type; `structLimit` of the members says
    // which are.
    for (size_t i = 0; i < record_.structCount(); ++i) writeStruct(i);
    for (size_t i = 0; i < record_.globals().size(); ++i) {
      text_ += ".global ";
      writeVariable(record_.globals()[i], handles_.globals[i], record_.structCount());
      text_ += '\n';
    }
    if (!record_.globals().empty()) text_ += '\n';
    writeSettings();
    text_ += source_.outside();
    writeFunctions();
    return std::move(text_);
  }

 private:
  void writeStruct(size_t index) {
    const StructInfo* info = record_.structure(index);
    text_ += ".struct " + handles_.structs[index];
    if (!info) {
      text_ += " null\n";
      return;
    }
    const std::span<const VarInfo> members = record_.members(index);
    // The assembler packs members in order: what differs from that is written.
    const uint64_t sum = std::accumulate(
        members.begin(), members.end(), uint64_t{0},
        [](uint64_t total, const VarInfo& member) { return total + member.byteSize; });
    if (sum != info->size) text_ += " size " + std::to_string(info->size);
    text_ += '\n';
    uint64_t offset = 0;
    for (size_t i = 0; i < members.size(); ++i) {
      text_ += "  .member ";
      writeVariable(members[i], handles_.members[index][i], index);
      if (members[i].memberOffset != static_cast<uint32_t>(offset)) {
        text_ += " offset " + std::to_string(members[i].memberOffset);
      }
      text_ += '\n';
      offset += members[i].byteSize;
    }
    text_ += ".end\n\n";
  }

  // The size that the assembler computes; structures from the limit on are unknown to it.
  uint64_t computedSize(const VarInfo& variable, size_t structLimit) const {
    uint64_t size = typeByteSize(variable.type);
    if (variable.type >= 0 && static_cast<size_t>(variable.type) < structLimit) {
      const StructInfo* info = record_.structure(static_cast<size_t>(variable.type));
      size = info ? info->size : 0;
    }
    return variable.count == 0 ? size : size * variable.count;
  }

  void writeVariable(const VarInfo& variable, const std::string& handle, size_t structLimit) {
    text_ += typeText(handles_, variable.type, structLimit) + ' ' + handle;
    if (variable.count != 0) text_ += '[' + std::to_string(variable.count) + ']';
    if (variable.flags & VM_VAR_HOST_0) text_ += " host";
    const int otherFlags = variable.flags & ~VM_VAR_HOST_0;
    if (otherFlags != 0) {
      text_ += " flags 0x" + hexByte(static_cast<uint8_t>(otherFlags >> 8)) +
               hexByte(static_cast<uint8_t>(otherFlags));
    }
    if (!variable.name) {
      text_ += " unnamed";
    } else if (variable.name != handle) {
      text_ += " named " + assembly::formatString(variable.name);
    }
    if (variable.byteSize != computedSize(variable, structLimit)) {
      text_ += " size " + std::to_string(variable.byteSize);
    }
  }

  void writeSetting(const char* directive, const std::string& value) {
    text_ += directive + (' ' + value) + '\n';
  }

  void writeReference(const char* directive, int32_t index, const Handles& handles) {
    if (index != -1) writeSetting(directive, handles.text(index));
  }

  void writeSettings() {
    const CompiledShader& shader = record_.shader();
    if (shader.version != 1) writeSetting(".version", std::to_string(shader.version));
    if (record_.functionCount() > 0 || shader.entryIndex != 0) {
      writeSetting(".entry", handles_.functions.text(shader.entryIndex));
    }
    writeReference(".output0", shader.outputGlobal0, handles_.globals);
    writeReference(".output1", shader.outputGlobal1, handles_.globals);
    for (uint32_t id = kFirstBuiltinVariable; id <= kLastBuiltinVariable; ++id) writeBuiltin(id);
    writeReference(".host_function_a", shader.hostFunctionA, handles_.functions);
    if (shader.hostFunctionAType != -1) {
      writeSetting(".host_function_a_type",
                   typeText(handles_, shader.hostFunctionAType, record_.structCount()));
    }
    writeReference(".host_function_b", shader.hostFunctionB, handles_.functions);
    if (shader.hostFunctionBase != -1 || shader.hostFunctionCount != 0) {
      writeSetting(".host_functions", handles_.functions.text(shader.hostFunctionBase) + ", " +
                                          std::to_string(shader.hostFunctionCount));
    }
    if (shader.hostStructMode != 0) {
      writeSetting(".host_struct_mode", std::to_string(shader.hostStructMode));
    }
  }

  void writeBuiltin(uint32_t id) {
    const BuiltinVariable variable = builtinVariable(id);
    if (variable.family != BuiltinFamily::GlobalElement &&
        variable.family != BuiltinFamily::GlobalArray) {
      return;
    }
    int32_t global = -1;
    const auto* bytes = reinterpret_cast<const char*>(&record_.shader());
    std::copy_n(bytes + variable.recordOffset, sizeof(global), reinterpret_cast<char*>(&global));
    if (global == -1) return;
    writeSetting(".builtin", std::to_string(id) + ", " + handles_.globals.text(global));
  }

  // Functions whose code can stand in the text in one piece, in the order of their code. The others
  // share code with those, or have a range that does not exist.
  std::vector<size_t> placedFunctions() const {
    std::vector<size_t> order;
    for (size_t i = 0; i < record_.functionCount(); ++i) {
      if (record_.function(i) && record_.code(*record_.function(i))) order.push_back(i);
    }
    std::sort(order.begin(), order.end(), [this](size_t a, size_t b) {
      const ShaderFunction& first = *record_.function(a);
      const ShaderFunction& second = *record_.function(b);
      // By length, too: an empty function stands before the one whose code begins where its own
      // would.
      return std::tuple(first.codeOffset, first.codeLength, a) <
             std::tuple(second.codeOffset, second.codeLength, b);
    });
    uint64_t position = 0;
    std::erase_if(order, [this, &position](size_t index) {
      const ShaderFunction& function = *record_.function(index);
      if (function.codeOffset < position) return true;
      position = uint64_t{function.codeOffset} + function.codeLength;
      return false;
    });
    return order;
  }

  void writeFunctions() {
    const std::vector<size_t> placed = placedFunctions();
    std::vector<bool> isPlaced(record_.functionCount());
    for (size_t index : placed) isPlaced[index] = true;
    std::vector<size_t> order(record_.functionCount());
    std::iota(order.begin(), order.end(), size_t{0});
    // The text's order is the order of the code. Where it is not that of the numbers, .declare
    // gives these; functions that have no place in the code follow in any order.
    if (!std::is_sorted(placed.begin(), placed.end())) {
      writeDeclarations();
      std::stable_partition(order.begin(), order.end(),
                            [&isPlaced](size_t index) { return isPlaced[index]; });
      std::copy(placed.begin(), placed.end(), order.begin());
    }
    uint32_t position = 0;
    for (size_t index : order) {
      text_ += '\n';
      writeFunction(index, isPlaced[index], position);
    }
    // What no function of the text covers, between them and behind the last, is in the record too.
    writeLooseBytes(record_.code().subspan(position));
  }

  void writeDeclarations() {
    text_ += "\n.declare ";
    for (size_t i = 0; i < record_.functionCount(); ++i) {
      text_ += (i ? ", " : "") + handles_.functions[i];
    }
    text_ += '\n';
  }

  void writeLooseBytes(std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
      const std::span<const uint8_t> line = bytes.first(std::min(bytes.size(), kBytesPerLine));
      writeBytes(line);
      text_ += '\n';
      bytes = bytes.subspan(line.size());
    }
  }

  void writeBytes(std::span<const uint8_t> bytes) {
    text_ += ".byte ";
    for (size_t i = 0; i < bytes.size(); ++i) text_ += (i ? ", 0x" : "0x") + hexByte(bytes[i]);
  }

  void writeFunction(size_t index, bool isPlaced, uint32_t& position) {
    const ShaderFunction* function = record_.function(index);
    if (function && isPlaced) {
      // Not negative: placed functions come in the order of their code and do not overlap.
      writeLooseBytes(record_.code().subspan(position, function->codeOffset - position));
      position = function->codeOffset + function->codeLength;
    }
    text_ += ".function " + handles_.functions[index];
    if (!function) {
      text_ += " null\n";
      return;
    }
    const std::span<const VarInfo> locals = Record::locals(*function);
    const Handles localHandles = variableHandles("local", locals);
    writeFunctionHead(*function, localHandles);
    if (!isPlaced) {
      text_ += " code " + std::to_string(function->codeOffset) + ' ' +
               std::to_string(function->codeLength);
    }
    text_ += '\n';
    for (size_t i = function->paramCount; i < locals.size(); ++i) {
      text_ += "  .local ";
      writeVariable(locals[i], localHandles[i], record_.structCount());
      text_ += '\n';
    }
    if (isPlaced) {
      text_ += source_.signature(index);
      writeBody(*function, locals, localHandles, source_.lines(index, localHandles));
    }
    text_ += ".end\n";
  }

  void writeFunctionHead(const ShaderFunction& function, const Handles& localHandles) {
    const std::span<const VarInfo> locals = Record::locals(function);
    const size_t paramCount = std::min<size_t>(function.paramCount, locals.size());
    for (size_t i = 0; i < paramCount; ++i) {
      text_ += i == 0 ? "(" : ", ";
      writeVariable(locals[i], localHandles[i], record_.structCount());
    }
    if (paramCount > 0) text_ += ')';
    if (paramCount != function.paramCount) {
      text_ += " params " + std::to_string(function.paramCount);
    }
  }

  void writeBody(const ShaderFunction& function, std::span<const VarInfo> locals,
                 const Handles& localHandles, const std::map<uint32_t, std::string>& sourceLines) {
    const std::span<const uint8_t> code = *record_.code(function);
    const LabelMap labels = findLabels(code);
    const CodeContext context{record_, handles_, locals, localHandles, labels};
    const auto depths =
        options_.annotate ? stackDepths(record_, function, code) : std::map<uint32_t, int64_t>();
    const auto size = static_cast<uint32_t>(code.size());
    uint32_t offset = 0;
    while (offset < size) {
      writeLabel(labels, offset);
      const auto source = sourceLines.find(offset);
      if (source != sourceLines.end()) text_ += source->second;
      const size_t lineStart = text_.size();
      // A byte that begins no instruction is written by itself, here as in findLabels(), so that
      // both agree on where instructions start.
      const uint32_t length = instructionLength(code.data() + offset, size - offset);
      const std::span<const uint8_t> bytes = code.subspan(offset, std::max(length, 1u));
      text_ += "  ";
      if (length == 0) {
        writeBytes(bytes);
      } else {
        text_ += instructionText(context, code, offset);
      }
      if (options_.annotate) writeAnnotation(lineStart, offset, bytes, depths);
      text_ += '\n';
      offset += static_cast<uint32_t>(bytes.size());
    }
    writeLabel(labels, size);
    const auto source = sourceLines.find(size);
    if (source != sourceLines.end()) text_ += source->second;
  }

  void writeLabel(const LabelMap& labels, uint32_t offset) {
    const auto label = labels.find(offset);
    if (label != labels.end()) text_ += label->second + ":\n";
  }

  void writeAnnotation(size_t lineStart, uint32_t offset, std::span<const uint8_t> bytes,
                       const std::map<uint32_t, int64_t>& depths) {
    const size_t width = text_.size() - lineStart;
    text_.append(width < kCommentColumn ? kCommentColumn - width : 1, ' ');
    const auto depth = depths.find(offset);
    text_ += ";" + padded(std::to_string(offset), 6) + "  depth " +
             padded(depth == depths.end() ? "?" : std::to_string(depth->second), 2) + " ";
    for (uint8_t byte : bytes) text_ += ' ' + hexByte(byte);
  }

  // Jump targets that instructions start at, and the end.
  static LabelMap findLabels(std::span<const uint8_t> code) {
    std::vector<uint32_t> starts;
    std::vector<uint32_t> targets;
    const auto size = static_cast<uint32_t>(code.size());
    for (uint32_t offset = 0; offset < size;) {
      starts.push_back(offset);
      const uint32_t length = instructionLength(code.data() + offset, size - offset);
      if (length != 0 && isJump(code[offset])) targets.push_back(jumpTarget(code, offset));
      offset += std::max(length, 1u);
    }
    // Ascending as they are found; the targets are sorted so that labels count up in the text.
    starts.push_back(size);
    std::sort(targets.begin(), targets.end());
    LabelMap labels;
    for (uint32_t target : targets) {
      if (!std::binary_search(starts.begin(), starts.end(), target)) continue;
      labels.emplace(target, "L" + std::to_string(labels.size() + 1));
    }
    return labels;
  }

  Record record_;
  RecordHandles handles_;
  SourceText source_;
  DisassemblyOptions options_;
  std::string text_;
};

}  // namespace
}  // namespace disassembly

std::string disassemble(const ShaderView& view, const DisassemblyOptions& options) {
  return view.shader ? disassembly::Disassembler(view, options).run() : "";
}

std::string disassembleInstruction(const ShaderView& view, uint32_t function, uint32_t offset) {
  using namespace disassembly;
  if (!view.shader) return "";
  const Record record(view);
  const ShaderFunction* info = record.function(function);
  const auto code = info ? record.code(*info) : std::nullopt;
  if (!code || offset >= code->size()) return "";
  const auto available = static_cast<uint32_t>(code->size()) - offset;
  if (instructionLength(code->data() + offset, available) == 0) return "";
  const RecordHandles handles(record);
  const std::span<const VarInfo> locals = Record::locals(*info);
  const Handles localHandles = variableHandles("local", locals);
  const LabelMap labels;
  return instructionText({record, handles, locals, localHandles, labels}, *code, offset);
}

}  // namespace shadermachine::tools
