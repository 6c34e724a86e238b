#include <shadermachine-tools/binary_file.h>

#include <utility>

#include "binary/bytes.h"
#include "binary/source_section.h"
#include "builder/shader_tables.h"

namespace shadermachine::tools {
namespace {

using binary::ByteReader;

class Reader {
 public:
  void readRecord(ByteReader& bytes) {
    CompiledShader& record = tables_->record;
    record.version = bytes.number<uint16_t>();
    record.entryIndex = bytes.number<uint16_t>();
    record.hostFunctionCount = bytes.number<uint16_t>();
    record.hostStructMode = bytes.number<uint32_t>();
    for (int32_t& global : record.builtinGlobals) global = bytes.number<int32_t>();
    for (int32_t* field :
         {&record.outputGlobal0, &record.outputGlobal1, &record.hostFunctionA,
          &record.hostFunctionBase, &record.hostFunctionB, &record.hostFunctionAType,
          &record.builtinGlobal300, &record.builtinGlobal303, &record.builtinGlobal304}) {
      *field = bytes.number<int32_t>();
    }
  }

  void readStructs(ByteReader& bytes) {
    const auto count = bytes.number<uint32_t>();
    if (count > binary::kMaxStructs) bytes.spoil();
    for (uint32_t i = 0; i < count && bytes.isGood(); ++i) {
      StructTable& table = tables_->structs.emplace_back();
      table.name = name(bytes);
      // A null entry keeps its name: the view has names for the whole table.
      table.isNull = !bytes.flag();
      if (table.isNull) continue;
      table.info.size = bytes.number<uint32_t>();
      table.members = variables(bytes);
    }
  }

  void readGlobals(ByteReader& bytes) { tables_->globals = variables(bytes); }

  void readFunctions(ByteReader& bytes) {
    const auto count = bytes.number<uint16_t>();
    for (uint32_t i = 0; i < count && bytes.isGood(); ++i) {
      FunctionTable& table = tables_->functions.emplace_back();
      table.name = name(bytes);
      table.isNull = !bytes.flag();
      if (table.isNull) continue;
      table.info.paramCount = bytes.number<uint16_t>();
      table.info.codeOffset = bytes.number<uint32_t>();
      table.info.codeLength = bytes.number<uint32_t>();
      table.locals = variables(bytes);
    }
  }

  void readCode(std::string_view bytes) { tables_->code.assign(bytes.begin(), bytes.end()); }

  void readValues(ByteReader& bytes) {
    const auto count = bytes.number<uint32_t>();
    // Each turn takes bytes or spoils them: what claims more than there is ends with the section.
    for (uint32_t i = 0; i < count && bytes.isGood(); ++i) {
      NamedValue& value = values_.emplace_back();
      value.name = bytes.text().value_or("");
      const auto components = bytes.number<uint32_t>();
      for (uint32_t c = 0; c < components && bytes.isGood(); ++c) {
        value.components.push_back(bytes.number<double>());
      }
    }
  }

  // Empty, or what is wrong with the section.
  std::string readSection(std::string_view tag, std::string_view content) {
    ByteReader bytes(content);
    if (tag == binary::kRecordTag) {
      readRecord(bytes);
    } else if (tag == binary::kStructsTag) {
      readStructs(bytes);
    } else if (tag == binary::kGlobalsTag) {
      readGlobals(bytes);
    } else if (tag == binary::kFunctionsTag) {
      readFunctions(bytes);
    } else if (tag == binary::kValuesTag) {
      readValues(bytes);
    } else if (tag == binary::kSourcesTag) {
      binary::readSources(bytes, tables_->sources);
    } else {
      if (tag == binary::kCodeTag) readCode(content);
      return "";
    }
    const std::string name(tag);
    if (!bytes.isGood()) return "section " + name + " is malformed or cut off";
    return bytes.isAtEnd() ? "" : "section " + name + " is longer than what it holds";
  }

  // What the tables say of each other is the validator's business; here they only have to exist.
  BinaryResult finish() && {
    tables_->connect();
    return {BuiltShader(std::move(tables_)), std::move(values_), ""};
  }

 private:
  const char* name(ByteReader& bytes) {
    const std::optional<std::string_view> text = bytes.text();
    return text ? tables_->keepName(*text) : nullptr;
  }

  std::vector<VarInfo> variables(ByteReader& bytes) {
    std::vector<VarInfo> result;
    const auto count = bytes.number<uint16_t>();
    for (uint32_t i = 0; i < count && bytes.isGood(); ++i) {
      VarInfo& info = result.emplace_back();
      info.type = bytes.number<int16_t>();
      info.flags = bytes.number<uint16_t>();
      info.count = bytes.number<uint32_t>();
      info.byteSize = bytes.number<uint32_t>();
      info.memberOffset = bytes.number<uint32_t>();
      info.name = name(bytes);
    }
    return result;
  }

  std::unique_ptr<ShaderTables> tables_ = std::make_unique<ShaderTables>();
  std::vector<NamedValue> values_;
};

bool isOptional(std::string_view tag) { return tag[0] >= 'a' && tag[0] <= 'z'; }

BinaryResult failure(std::string error) { return {std::nullopt, {}, std::move(error)}; }

constexpr std::string_view kRequired[] = {binary::kRecordTag, binary::kStructsTag,
                                          binary::kGlobalsTag, binary::kFunctionsTag,
                                          binary::kCodeTag};

}  // namespace

bool isBinary(std::string_view bytes) { return bytes.starts_with(binary::kMagic); }

BinaryResult readBinary(std::string_view text) {
  if (!isBinary(text)) return failure("is no binary shader");
  ByteReader bytes(text.substr(binary::kMagic.size()));
  const auto version = bytes.number<uint32_t>();
  if (version != binary::kVersion) {
    return failure("has version " + std::to_string(version) +
                   " of the format; this program reads " + std::to_string(binary::kVersion));
  }
  Reader reader;
  size_t next = 0;  // of the required sections
  while (!bytes.isAtEnd()) {
    const std::string_view tag = bytes.take(binary::kTagSize);
    const auto size = bytes.number<uint32_t>();
    const std::string_view content = bytes.take(size);
    if (!bytes.isGood()) return failure("is cut off");
    if (!isOptional(tag)) {
      if (next == std::size(kRequired))
        return failure("has sections that this program cannot read");
      if (tag != kRequired[next++]) return failure("has sections in the wrong order");
    }
    std::string error = reader.readSection(tag, content);
    if (!error.empty()) return failure(std::move(error));
  }
  if (next != std::size(kRequired)) return failure("is cut off");
  return std::move(reader).finish();
}

}  // namespace shadermachine::tools
