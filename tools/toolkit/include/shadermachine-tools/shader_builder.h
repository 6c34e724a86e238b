// Builds compiled shaders in memory.
//
//   ShaderBuilder shader;
//   GlobalId color = shader.addGlobal({"color", VM_TYPE_VEC4});
//   FunctionBuilder& entry = shader.addFunction("main");
//   entry.pushFloat(0.5f);
//   entry.construct(VM_OP_CTOR_VEC4_A, {1});
//   entry.store(color);
//   entry.emit(VM_OP_RETURN);
//   shader.record().outputGlobal0 = color.index;
//   BuiltShader built = std::move(shader).build();
//   vmShaderMachineExecuteShader(machine, built.record(), &startup);
//
// The builder computes sizes, member offsets, jump offsets and the lengths of operand lists. It
// does not judge what it builds: code and tables may be wrong on purpose, and the validator says
// so. Mistakes in the use of the builder itself (an unbound label, more than 65,535 globals, a size
// of 4 GiB or more, a wrong number of operands) throw std::logic_error.
#pragma once

#include <shadermachine-tools/shader_view.h>
#include <shadermachine-tools/source_map.h>
#include <shadermachine/opcodes.h>
#include <shadermachine/shadermachine.h>

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools {

struct ShaderTables;

struct GlobalId {
  uint16_t index = 0;
};
struct LocalId {
  uint16_t index = 0;
};
struct FunctionId {
  uint16_t index = 0;
};
// A place in the code of one function.
struct Label {
  uint32_t index = 0;
};

// A variable or structure member to add.
struct Variable {
  std::string name;
  TypeCode type = VM_TYPE_FLOAT;
  uint32_t count = 0;  // array length; 0: not an array
  uint16_t flags = 0;  // VM_VAR_HOST_0 for a host variable
};

// Bytes of one value of a basic type; 0 for codes that name none.
uint32_t basicTypeSize(TypeCode type);

// Up to four components out of "xyzw" (or "rgba", "stpq").
// swizzleMask: operand of the SWIZZLE instructions, selector i in bits 2i and 2i + 1.
// swizzleStep: the same selection as a step of an element store's access path.
uint8_t swizzleMask(std::string_view components);
int16_t swizzleStep(std::string_view components);

// A finished shader: the record and everything it points to. Addresses stay the same when it moves.
class BuiltShader {
 public:
  explicit BuiltShader(std::unique_ptr<ShaderTables> tables);
  BuiltShader(BuiltShader&&) noexcept;
  BuiltShader& operator=(BuiltShader&&) noexcept;
  ~BuiltShader();

  const CompiledShader* record() const;
  ShaderView view() const;
  // Free to change, for texts of files that are read later, say.
  SourceMap& sources();

 private:
  std::unique_ptr<ShaderTables> tables_;
};

// Parameters, locals and code of one function. Made by ShaderBuilder, valid as long as it.
class FunctionBuilder {
 public:
  FunctionId id() const { return id_; }

  // Parameters must all be added before the first other local.
  LocalId addParam(const Variable& variable);
  LocalId addLocal(const Variable& variable);
  // Looks a parameter or local up by name; throws when there is none.
  LocalId local(std::string_view name) const;

  Label newLabel();
  // Sets the label to the current position.
  void bind(Label label);
  void jump(Label target) { emitJump(VM_OP_JUMP, target); }
  void jumpIfFalse(Label target) { emitJump(VM_OP_JUMP_IF_FALSE, target); }
  void emitJump(VmOpcode opcode, Label target);

  // Any instruction: its operands in table order, except that the lengths of the lists of the
  // constructors and of immediate access paths are counted, not given. Values are cut to their
  // operand's width; negative ones are allowed.
  void emit(VmOpcode opcode, std::span<const int64_t> operands);
  void emit(VmOpcode opcode, std::initializer_list<int64_t> operands = {}) {
    emit(opcode, std::span<const int64_t>(operands.begin(), operands.size()));
  }
  // Arbitrary bytes, for code no instruction forms.
  void emitBytes(std::span<const uint8_t> bytes);

  // Constants, in the shortest instruction that pushes exactly this word.
  void pushFloat(float value);
  void pushInt(int32_t value);

  void load(LocalId variable) { emit(VM_OP_LOAD_LOCAL, {variable.index}); }
  void load(GlobalId variable) { emit(VM_OP_LOAD_GLOBAL, {variable.index}); }
  void store(LocalId variable) { emit(VM_OP_STORE_LOCAL, {variable.index}); }
  void store(GlobalId variable) { emit(VM_OP_STORE_GLOBAL, {variable.index}); }
  // Access path: array positions, member numbers, columns and components, or swizzleStep().
  void storeElement(LocalId variable, std::initializer_list<int64_t> path);
  void storeElement(GlobalId variable, std::initializer_list<int64_t> path);

  // A CTOR_VEC or CTOR_MAT instruction; one component count per operand on the stack.
  void construct(VmOpcode constructor, std::initializer_list<int64_t> componentCounts) {
    emit(constructor, componentCounts);
  }
  void swizzle(std::string_view components);
  void call(FunctionId function) { emit(VM_OP_CALL, {function.index}); }

  // What is emitted from here on comes from this place of a file (ShaderBuilder::addSourceFile).
  void setPosition(SourcePosition position) { position_ = position; }
  SourcePosition position() const { return position_; }
  // A statement begins with the next instruction.
  void beginStatement() { beginsStatement_ = true; }
  // Signature and variables; rows are added as code is emitted.
  SourceFunction& source() { return source_; }

  // Bytes emitted so far.
  uint32_t size() const { return static_cast<uint32_t>(code_.size()); }

  // What the finished function will say: free to change, also into something invalid. Its code
  // range and counts are set by build(), unless setCodeRange() was called.
  VarInfo& info(LocalId variable) { return locals_.at(variable.index); }
  void setParamCount(uint16_t count) { paramCount_ = count; }
  // Says this range whatever lies there. Code of its own is laid out all the same, and belongs to
  // those whose range it is in.
  void setCodeRange(uint32_t offset, uint32_t length);
  // Makes the entry in the function table null.
  void setNull() { isNull_ = true; }

 private:
  friend class ShaderBuilder;
  struct Fixup {
    uint32_t position;  // of the u32 offset
    Label target;
  };

  FunctionBuilder(ShaderTables& tables, FunctionId id, std::string_view name)
      : tables_(&tables), id_(id), name_(name) {}
  void appendValue(int64_t value, unsigned width);
  void noteRow();
  LocalId appendVariable(const Variable& variable);
  void storeElement(VmOpcode opcode, uint16_t variable, std::initializer_list<int64_t> path);
  void resolveJumps();

  // Of the ShaderBuilder, which owns this object too: neither moves when that one does.
  ShaderTables* tables_;
  FunctionId id_;
  std::string name_;
  std::vector<VarInfo> locals_;
  uint16_t paramCount_ = 0;
  std::vector<uint8_t> code_;
  std::vector<uint32_t> labels_;  // position of each label
  std::vector<Fixup> fixups_;     // offsets in code_ that are still zeros
  SourceFunction source_;
  SourcePosition position_;
  bool beginsStatement_ = false;
  uint32_t codeOffset_ = 0;
  uint32_t codeLength_ = 0;
  bool hasCodeRange_ = false;
  bool isPlaced_ = false;
  bool isNull_ = false;
};

class ShaderBuilder {
 public:
  ShaderBuilder();
  ShaderBuilder(ShaderBuilder&&) noexcept;
  ShaderBuilder& operator=(ShaderBuilder&&) noexcept;
  ~ShaderBuilder();

  // Returns the type code of the new structure. Members are packed in order without gaps;
  // structures among them must have been added before.
  TypeCode addStruct(std::string_view name, const std::vector<Variable>& members);
  // Adds a null entry to the structure table.
  TypeCode addNullStruct(std::string_view name);

  GlobalId addGlobal(const Variable& variable);
  GlobalId global(std::string_view name) const;

  // Declares a function; its index is the order of these calls. Calls may precede its code, which
  // is added through the returned builder at any time before build(). A function without code
  // stays without a body.
  FunctionBuilder& addFunction(std::string_view name);
  FunctionBuilder& function(FunctionId id) { return functions_.at(id.index); }

  // Code is laid out in index order, unless a place is chosen: code placed by these calls comes
  // first, in the order of the calls. Loose bytes belong to no function.
  void placeCode(FunctionId function);
  void placeLooseCode(std::span<const uint8_t> bytes);

  // Returns the number that positions name the file by.
  uint32_t addSourceFile(SourceFile file);
  SourceMap& sources();

  // Every field of the record: entry function, outputs, bound globals and host functions. Version
  // 1, entry function 0 and unbound (-1) to begin with. build() sets tables, their counts and code.
  CompiledShader& record();
  // For making tables that disagree with the rule.
  VarInfo& info(GlobalId variable);
  StructInfo& info(TypeCode structure);
  VarInfo& member(TypeCode structure, uint32_t index);

  // Bytes of a variable of this type and array length, modulo 2^32; 0 for unknown types.
  uint32_t sizeOf(TypeCode type, uint32_t count = 0) const;

  BuiltShader build() &&;

 private:
  // Code placed by request: of a function, or loose bytes when functionIndex is -1.
  struct Chunk {
    int32_t functionIndex = -1;
    std::vector<uint8_t> looseBytes;
  };

  void layOutCode();
  void finishFunctions();

  std::unique_ptr<ShaderTables> tables_;
  std::deque<FunctionBuilder> functions_;
  std::vector<Chunk> chunks_;
};

}  // namespace shadermachine::tools
