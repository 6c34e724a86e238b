#include "engine/snapshot.h"

#include "engine/decode.h"

namespace shadermachine::engine {
namespace {

class Writer {
 public:
  explicit Writer(Array<uint8_t>& bytes) : bytes_(bytes) {}
  bool put(const void* data, size_t size) {
    for (size_t i = 0; i < size; ++i) {
      if (!bytes_.append(static_cast<const uint8_t*>(data)[i])) return false;
    }
    return true;
  }

 private:
  Array<uint8_t>& bytes_;
};

class Comparer {
 public:
  Comparer(const uint8_t* bytes, size_t size) : bytes_(bytes), left_(size) {}
  bool put(const void* data, size_t size) {
    if (size > left_ || std::memcmp(bytes_, data, size) != 0) return false;
    bytes_ += size;
    left_ -= size;
    return true;
  }
  bool atEnd() const { return left_ == 0; }

 private:
  const uint8_t* bytes_;
  size_t left_;
};

template <class Sink, class T>
bool putValue(Sink& sink, const T& value) {
  return sink.put(&value, sizeof value);
}

template <class Sink>
bool putVariables(Sink& sink, const VarInfo* entries, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    // The name is nothing to a translation, and may have moved.
    if (!sink.put(&entries[i], offsetof(VarInfo, name))) return false;
  }
  return true;
}

template <class Sink>
bool putShader(Sink& sink, const CompiledShader& shader) {
  return putValue(sink, shader.entryIndex) && putValue(sink, shader.functionCount) &&
         putValue(sink, shader.globalCount) && putValue(sink, shader.hostFunctionBase) &&
         putValue(sink, shader.hostFunctionCount) && putValue(sink, shader.hostFunctionA) &&
         putValue(sink, shader.hostFunctionB) &&
         putVariables(sink, shader.globals, shader.globalCount);
}

template <class Sink>
bool putFunction(Sink& sink, const CompiledShader& shader, uint32_t number) {
  const ShaderFunction* function = shader.functions[number];
  const uint32_t codeLength = function == nullptr ? 0 : function->codeLength;
  if (!putValue(sink, codeLength) || codeLength == 0) return codeLength == 0;
  return putValue(sink, function->paramCount) && putValue(sink, function->localCount) &&
         putVariables(sink, function->locals, function->localCount) &&
         sink.put(shader.code + function->codeOffset, codeLength);
}

template <class Sink>
bool putStruct(Sink& sink, const CompiledShader& shader, uint32_t number) {
  const StructInfo* info = shader.structTypes == nullptr ? nullptr : shader.structTypes[number];
  const bool present = info != nullptr && info->members != nullptr;
  if (!putValue(sink, present) || !present) return !present;
  return putValue(sink, info->size) && putValue(sink, info->memberCount) &&
         putVariables(sink, info->members, info->memberCount);
}

// Which functions and structure types a translation depends on; kept before the copy itself.
struct Dependencies {
  Array<uint32_t> functions;
  Array<uint32_t> structs;

  bool failed() const { return functions.failed() || structs.failed(); }

  void addStruct(uint32_t number) {
    for (uint32_t i = 0; i < structs.size(); ++i) {
      if (structs[i] == number) return;
    }
    structs.append(number);
  }

  void addStructsOf(const DecodedFunction& function) {
    for (uint32_t i = 0; i < function.count; ++i) {
      const Instruction& item = function.instructions[i];
      const bool names = item.opcode == Opcode::STRUCT_FIELD ||
                         item.opcode == Opcode::ARRAY_ELEMENT ||
                         item.opcode == Opcode::CTOR_STRUCT || item.opcode == Opcode::CTOR_ARRAY;
      if (!names) continue;
      const uint32_t number = operandU16(function.code, item.pc + 1);
      const bool basic = item.opcode != Opcode::STRUCT_FIELD && static_cast<int16_t>(number) < 0;
      if (!basic) addStruct(number);
    }
  }
};

template <class Sink>
bool putAll(Sink& sink, const CompiledShader& shader, const uint32_t* functions,
            uint32_t functionCount, const uint32_t* structs, uint32_t structCount) {
  if (!putShader(sink, shader)) return false;
  for (uint32_t i = 0; i < functionCount; ++i) {
    if (!putFunction(sink, shader, functions[i])) return false;
  }
  for (uint32_t i = 0; i < structCount; ++i) {
    if (!putStruct(sink, shader, structs[i])) return false;
  }
  return true;
}

}  // namespace

bool Snapshot::take(const CompiledShader& shader, const Decoder& decoder) {
  Dependencies needs;
  for (uint32_t f = 0; f < shader.functionCount; ++f) {
    if (!decoder.consulted(f)) continue;
    needs.functions.append(f);
    if (decoder.decoded(f) != nullptr) needs.addStructsOf(*decoder.decoded(f));
  }
  if (needs.failed()) return false;
  Array<uint8_t> copy;
  Writer writer(copy);
  if (!putAll(writer, shader, needs.functions.data(), needs.functions.size(), needs.structs.data(),
              needs.structs.size())) {
    return false;
  }
  lists_ = static_cast<uint32_t*>(
      std::malloc((needs.functions.size() + needs.structs.size() + 1) * sizeof(uint32_t)));
  bytes_ = static_cast<uint8_t*>(std::malloc(copy.size()));
  if (lists_ == nullptr || bytes_ == nullptr) return false;
  functionCount_ = needs.functions.size();
  structCount_ = needs.structs.size();
  size_ = copy.size();
  for (uint32_t i = 0; i < functionCount_; ++i) lists_[i] = needs.functions[i];
  for (uint32_t i = 0; i < structCount_; ++i) lists_[functionCount_ + i] = needs.structs[i];
  std::memcpy(bytes_, copy.data(), size_);
  return true;
}

bool Snapshot::matches(const CompiledShader& shader) const {
  if (bytes_ == nullptr) return false;
  Comparer comparer(bytes_, size_);
  return putAll(comparer, shader, lists_, functionCount_, lists_ + functionCount_, structCount_) &&
         comparer.atEnd();
}

}  // namespace shadermachine::engine
