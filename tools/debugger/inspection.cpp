// Looking: frames, variables, places of breakpoints.
#include <algorithm>
#include <cstring>
#include <utility>

#include "debugger/debugger.h"

namespace shadermachine::tools {

const CallFrame& Debugger::frame(size_t index) const {
  const Machine& machine = run_.machine();
  return machine.frames[static_cast<size_t>(machine.frameIndex) - index];
}

size_t Debugger::frameCount() const {
  return static_cast<size_t>(std::max(run_.machine().frameIndex + 1, 0));
}

uint32_t Debugger::functionOf(const CallFrame& current) const {
  const auto found = functions_.find(current.function);
  return found != functions_.end() ? found->second : 0;
}

uint32_t Debugger::codeHere() const {
  const CallFrame& current = frame(0);
  return static_cast<uint32_t>(current.code - view_.shader->code) + current.pc;
}

// Below the current frame the counter stands behind the call; after a failure, behind what failed.
DebugPlace Debugger::place(size_t index) const {
  const CallFrame& current = frame(index);
  DebugPlace place{functionOf(current), current.pc, {}};
  if (run_.isOver() && index == 0) {
    RunFailure failure;
    failure.error = run_.error();
    locateFailure(run_.machine(), view_, failure);
    place.offset = failure.offset;
  } else if (index > 0 && place.offset > 0) {
    // The position of the call, not of what follows it, which may be another line's.
    --place.offset;
  }
  if (view_.sources != nullptr) {
    place.position = view_.sources->position(place.function, place.offset);
  }
  return place;
}

const SourceRow* Debugger::statementHere() const {
  if (view_.sources == nullptr || run_.isOver()) return nullptr;
  const CallFrame& current = frame(0);
  const SourceRow* row = view_.sources->row(functionOf(current), current.pc);
  const bool isHere = row != nullptr && row->isStatement && row->offset == current.pc;
  return isHere ? row : nullptr;
}

DebugValue Debugger::slotValue(const VarInfo& info, const ValueSlot& slot, std::string type) const {
  DebugValue value{debugType(view_, info.type, info.count, std::move(type)), {}};
  const bool isBlock = info.type >= 0 || info.count > 0;
  if (isBlock) {
    if (slot.view.data != nullptr) {
      value.bytes.assign(slot.view.data, slot.view.data + slot.view.size);
    }
    return value;
  }
  const auto* words = reinterpret_cast<const uint8_t*>(slot.value.words);
  value.bytes.assign(words, words + inlineByteSize(info));
  return value;
}

// What the host gives is never in a slot.
DebugValue Debugger::globalValue(uint16_t index, std::string type) const {
  const VarInfo& info = view_.shader->globals[index];
  if ((info.flags & VM_VAR_HOST_0) == 0) {
    return slotValue(info, run_.machine().stack[index], std::move(type));
  }
  DebugValue value{debugType(view_, info.type, info.count, std::move(type)), {}};
  value.bytes.resize(info.byteSize);
  run_.inputs().write(index, run_.x(), run_.y(), value.bytes.data());
  return value;
}

DebugVariable Debugger::variable(const SourceVariable& known, const CallFrame* current) const {
  using Home = SourceVariable::Home;
  DebugVariable result;
  result.name = known.name;
  result.scope = current != nullptr ? DebugVariable::Scope::Local : DebugVariable::Scope::Global;
  const bool isLocal = known.home == Home::Local && current != nullptr &&
                       known.index < current->function->localCount;
  if (isLocal) {
    result.value =
        slotValue(current->function->locals[known.index], current->locals[known.index], known.type);
  } else if (known.home == Home::Global && known.index < view_.shader->globalCount) {
    result.value = globalValue(known.index, known.type);
  } else if (known.home == Home::Constant) {
    result.isConstant = true;
    const TypeCode code = typeCodeOf(known.type);
    result.value = {debugType(view_, code, 0, known.type), {}};
    result.value.bytes.resize(known.words.size() * 4);
    std::memcpy(result.value.bytes.data(), known.words.data(), result.value.bytes.size());
  } else {
    result.isHere = false;
    result.value.type.name = known.type;
  }
  return result;
}

// The inner ones of equal names hide the outer ones.
std::vector<DebugVariable> Debugger::variables(size_t index) const {
  std::vector<DebugVariable> found;
  const auto add = [&found](DebugVariable variable) {
    const bool isHidden =
        std::ranges::find(found, variable.name, &DebugVariable::name) != found.end();
    if (!isHidden) found.push_back(std::move(variable));
  };
  const CallFrame& current = frame(index);
  const DebugPlace where = place(index);
  const SourceMap* map = view_.sources;
  const SourceFunction* source = map != nullptr && where.function < map->functions.size()
                                     ? &map->functions[where.function]
                                     : nullptr;
  const bool isDescribed = source != nullptr && !source->variables.empty();
  if (isDescribed) {
    // From the last, since variables of inner blocks stand behind those around them.
    for (size_t i = source->variables.size(); i-- > 0;) {
      const SourceVariable& known = source->variables[i];
      if (known.isIn(where.offset)) add(variable(known, &current));
    }
    std::ranges::reverse(found);
  }
  for (uint16_t i = 0; !isDescribed && i < current.function->localCount; ++i) {
    const VarInfo& info = current.function->locals[i];
    const bool isOwn = info.name != nullptr && *info.name != '\0';
    if (isOwn)
      add({info.name, slotValue(info, current.locals[i], ""), DebugVariable::Scope::Local});
  }
  if (map != nullptr && !map->globals.empty()) {
    for (const SourceVariable& known : map->globals) add(variable(known, nullptr));
    return found;
  }
  for (uint16_t i = 0; i < view_.shader->globalCount; ++i) {
    const char* name = view_.shader->globals[i].name;
    if (name == nullptr || *name == '\0') continue;
    add({name, globalValue(i, ""), DebugVariable::Scope::Global});
  }
  return found;
}

std::optional<DebugVariable> Debugger::find(const std::string& name, size_t index) const {
  for (DebugVariable& variable : variables(index)) {
    if (variable.name == name) return std::optional(std::move(variable));
  }
  return std::nullopt;
}

DebugValue Debugger::evaluate(const std::string& expression, size_t index) const {
  const auto lookUp = [&](const std::string& name) -> std::optional<DebugValue> {
    const std::optional<DebugVariable> found = find(name, index);
    if (!found) return std::nullopt;
    if (!found->isHere) throw ExpressionError("'" + name + "' is optimised away here");
    return found->value;
  };
  return tools::evaluate(view_, expression, lookUp);
}

std::string Debugger::sourceLine(const SourcePosition& position) const {
  if (!position.isKnown()) return "";
  return printable(lineOfText(view_.sources->files[position.file].text, position.line));
}

std::string Debugger::fileName(const SourcePosition& position) const {
  return position.isKnown() ? view_.sources->files[position.file].name : "";
}

void Debugger::needRoomForBreakpoint() const {
  constexpr size_t kMaxBreakpoints = 1000;
  if (breakpoints_.size() >= kMaxBreakpoints)
    throw ExpressionError("there are too many breakpoints");
}

Breakpoint& Debugger::add(Breakpoint breakpoint) {
  breakpoint.id = nextId_++;
  const int id = breakpoint.id;
  breakpoints_.emplace(id, std::move(breakpoint));
  markPlaces();
  return breakpoints_.at(id);
}

void Debugger::markPlaces() {
  marks_.clear();
  hasWatches_ = false;
  for (const auto& [id, breakpoint] : breakpoints_) {
    hasWatches_ = hasWatches_ || breakpoint.kind == Breakpoint::Kind::Watch;
    for (const uint32_t code : breakpoint.codes) {
      marks_.resize(std::max<size_t>(marks_.size(), code + size_t{1}));
      marks_[code] = 1;
    }
  }
}

// The first statement of the line, or of the next line that has one, in each function.
Breakpoint& Debugger::breakAtLine(const std::string& file, uint32_t line) {
  needRoomForBreakpoint();
  Breakpoint breakpoint;
  breakpoint.what = file + ":" + std::to_string(line);
  const SourceMap* map = view_.sources;
  if (map == nullptr) throw ExpressionError("the shader's source is not known");
  const auto isFile = [&](uint32_t number) {
    const std::string& name = map->files[number].name;
    return file.empty() || name == file || name.ends_with("/" + file) || file.ends_with("/" + name);
  };
  uint32_t best = UINT32_MAX;
  const auto forEachRow = [&](auto visit) {
    for (uint32_t f = 0; f < map->functions.size(); ++f) {
      for (const SourceRow& row : map->functions[f].rows) {
        if (row.isStatement && row.position.line >= line && isFile(row.position.file))
          visit(f, row);
      }
    }
  };
  forEachRow([&](uint32_t, const SourceRow& row) { best = std::min(best, row.position.line); });
  std::optional<uint32_t> last;
  forEachRow([&](uint32_t function, const SourceRow& row) {
    if (row.position.line != best || last == function) return;
    last = function;
    breakpoint.position = row.position;
    breakpoint.codes.push_back(view_.shader->functions[function]->codeOffset + row.offset);
  });
  if (breakpoint.codes.empty())
    throw ExpressionError("no code comes from that line or a later one");
  return add(std::move(breakpoint));
}

Breakpoint& Debugger::breakAtFunction(const std::string& name) {
  needRoomForBreakpoint();
  Breakpoint breakpoint;
  breakpoint.kind = Breakpoint::Kind::Function;
  breakpoint.what = name;
  for (uint32_t i = 0; i < view_.shader->functionCount; ++i) {
    const char* known = view_.functionNames != nullptr ? view_.functionNames[i] : nullptr;
    const ShaderFunction* function = view_.shader->functions[i];
    if (known == nullptr || name != known || function == nullptr) continue;
    uint32_t offset = 0;
    if (view_.sources != nullptr && i < view_.sources->functions.size()) {
      const std::vector<SourceRow>& rows = view_.sources->functions[i].rows;
      const auto first = std::ranges::find(rows, true, &SourceRow::isStatement);
      if (first != rows.end()) {
        offset = first->offset;
        breakpoint.position = first->position;
      }
    }
    breakpoint.codes.push_back(function->codeOffset + offset);
  }
  if (breakpoint.codes.empty()) throw ExpressionError("no function is named '" + name + "'");
  return add(std::move(breakpoint));
}

Breakpoint& Debugger::watch(const std::string& expression) {
  needRoomForBreakpoint();
  Breakpoint breakpoint;
  breakpoint.kind = Breakpoint::Kind::Watch;
  breakpoint.what = expression;
  breakpoint.last = evaluate(expression);
  return add(std::move(breakpoint));
}

bool Debugger::remove(int id) {
  const bool wasThere = breakpoints_.erase(id) > 0;
  markPlaces();
  return wasThere;
}

void Debugger::removeAll(Breakpoint::Kind kind) {
  std::erase_if(breakpoints_, [kind](const auto& entry) { return entry.second.kind == kind; });
  markPlaces();
}

}  // namespace shadermachine::tools
