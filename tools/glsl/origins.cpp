// What the source map is told: where code comes from and where variables are.
#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

using Home = SourceVariable::Home;

Home homeOf(const Place& place) {
  if (place.kind == Place::Kind::Builtin) return Home::Gone;
  return place.kind == Place::Kind::Local ? Home::Local : Home::Global;
}

SourceVariable described(const std::string& name, const TType& type, const Place& place) {
  return {.name = name,
          .type = typeName(type),
          .home = homeOf(place),
          .index = place.index,
          .words = {}};
}

SourceVariable described(const std::string& name, const TIntermConstantUnion& constant) {
  const TType& type = constant.getType();
  SourceVariable variable{.name = name, .type = typeName(type), .home = Home::Gone, .words = {}};
  if (type.isArray() || type.isStruct()) return variable;
  variable.home = Home::Constant;
  variable.words = constantWords(constant);
  return variable;
}

}  // namespace

std::string signatureOf(const FunctionInfo& info) {
  std::string text = typeName(info.definition->getType());
  text += " " + info.name.substr(0, info.name.find('(')) + "(";
  for (const TIntermSymbol* parameter : info.parameters) {
    if (parameter != info.parameters.front()) text += ", ";
    const glslang::TQualifier& qualifier = parameter->getQualifier();
    if (qualifier.isParamOutput()) text += qualifier.isParamInput() ? "inout " : "out ";
    text += typeName(parameter->getType());
    if (!parameter->getName().empty()) text += std::string(" ") + parameter->getName().c_str();
  }
  return text + ")";
}

// Functions of the library count as part of what calls them.
FunctionGenerator::At::At(FunctionGenerator& generator, const TSourceLoc& where)
    : code_(generator.code_), outer_(code_.position()), depth_(generator.depth_) {
  ++depth_;
  if (!generator.isSource()) return;
  const SourcePosition position = generator.module_.diagnostics().position(where);
  if (position.isKnown()) code_.setPosition(position);
}

void FunctionGenerator::beginStatement() {
  if (isSource() && code_.position().isKnown()) code_.beginStatement();
}

void FunctionGenerator::describe(const TIntermSymbol& symbol, const Binding& binding) {
  if (!isSource()) return;
  const std::string name = symbol.getName().c_str();
  const Place* place = std::get_if<Place>(&binding);
  SourceVariable variable = place != nullptr
                                ? described(name, symbol.getType(), *place)
                                : described(name, *std::get<const TIntermConstantUnion*>(binding));
  variable.begin = code_.size();
  // What is first mentioned in a list of declarations lives in the block around it; so may what is
  // first mentioned by a statement.
  const unsigned depth = scope().blockDepth > 0 ? scope().blockDepth - 1 : 0;
  scope().open.push_back({code_.source().variables.size(), symbol.getId(), depth});
  code_.source().variables.push_back(std::move(variable));
}

// The tree does not say where variables are declared, only where they are mentioned.
void FunctionGenerator::endVariables(const TIntermNode& block) {
  const FunctionInfo& function = *scope().function;
  const auto end = function.blockEnds.find(&block);
  const unsigned depth = scope().blockDepth;
  if (end == function.blockEnds.end() || depth == 1) return;  // until the function ends
  std::erase_if(scope().open, [&](OpenVariable& open) {
    if (open.depth < depth) return false;
    const auto last = function.lastMentions.find(open.symbol);
    if (last != function.lastMentions.end() && last->second <= end->second) {
      code_.source().variables[open.index].end = code_.size();
      return true;
    }
    open.depth = depth - 1;
    return false;
  });
}

void Module::describe(const std::string& name, const TType& type, const Place& place) {
  builder_->sources().globals.push_back(described(name, type, place));
}

void Module::describe(const std::string& name, const TIntermConstantUnion& constant) {
  builder_->sources().globals.push_back(described(name, constant));
}

}  // namespace shadermachine::tools::glsl
