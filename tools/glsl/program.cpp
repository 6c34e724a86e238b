#include "program.h"

#include <algorithm>
#include <functional>
#include <iterator>

namespace shadermachine::tools::glsl {
namespace {

constexpr size_t kMaxClosure = 4'000'000;  // globals in all functions' sets together

bool isDerivative(TOperator op) {
  return (op >= glslang::EOpDPdx && op <= glslang::EOpFwidthCoarse) ||
         op == glslang::EOpTextureQueryLod || op == glslang::EOpInterpolateAtOffset;
}

// A local variable or parameter of the function that mentions it.
bool isOwn(const TIntermSymbol& symbol) {
  const glslang::TStorageQualifier storage = symbol.getQualifier().storage;
  return storage == glslang::EvqTemporary || storage == glslang::EvqIn ||
         storage == glslang::EvqOut || storage == glslang::EvqInOut ||
         storage == glslang::EvqConstReadOnly;
}

void noteWrite(FunctionInfo& info, const TIntermNode& target) {
  const TIntermSymbol* root = rootSymbol(target);
  if (root == nullptr) return;
  info.written.insert(root->getId());
  ++info.writeCounts[root->getId()];
}

void noteOutputArguments(FunctionInfo& info, const TIntermAggregate& call) {
  for (size_t i = 0; i < call.getSequence().size(); ++i) {
    if (isOutputArgument(call, i)) noteWrite(info, *call.getSequence()[i]);
  }
}

void noteNode(FunctionInfo& info, const TIntermNode& node) {
  ++info.size;
  if (const TIntermSymbol* symbol = node.getAsSymbolNode()) {
    info.mentioned.insert(symbol->getId());
    if (isOwn(*symbol)) info.own.insert(symbol->getId());
  }
  const TIntermTyped* typed = node.getAsTyped();
  const TIntermOperator* op = typed != nullptr ? typed->getAsOperator() : nullptr;
  if (op == nullptr) return;
  info.usesDerivatives = info.usesDerivatives || isDerivative(op->getOp());
  if (const TIntermBinary* binary = node.getAsBinaryNode()) {
    if (isAssignment(op->getOp())) noteWrite(info, *binary->getLeft());
  } else if (const TIntermUnary* unary = node.getAsUnaryNode()) {
    if (isIncrement(op->getOp())) noteWrite(info, *unary->getOperand());
  } else if (const TIntermAggregate* call = node.getAsAggregate()) {
    if (isUserCall(node)) info.callees.insert(call->getName().c_str());
    noteOutputArguments(info, *call);
  }
}

// Walks in the order of evaluation and finds variables whose first mention is not their complete
// assignment.
class FirstMentions {
 public:
  explicit FirstMentions(FunctionInfo& info) : info_(info) {
    for (const TIntermSymbol* parameter : info.parameters) seen_.insert(parameter->getId());
  }

  void visit(const TIntermNode& node) {
    const TIntermBinary* binary = node.getAsBinaryNode();
    if (binary != nullptr && binary->getOp() == glslang::EOpAssign &&
        binary->getLeft()->getAsSymbolNode() != nullptr) {
      visit(*binary->getRight());
      seen_.insert(binary->getLeft()->getAsSymbolNode()->getId());
    } else if (const TIntermSymbol* symbol = node.getAsSymbolNode()) {
      const bool isOwn = symbol->getQualifier().storage == glslang::EvqTemporary;
      if (seen_.insert(symbol->getId()).second && isOwn) info_.readFirst.push_back(symbol);
    } else {
      forEachChild(node, [this](const TIntermNode& child) { visit(child); });
    }
  }

 private:
  FunctionInfo& info_;
  std::set<SymbolId> seen_;
};

// Returns the number of the last node of the tree.
unsigned numberNodes(FunctionInfo& info, const TIntermNode& node, unsigned number) {
  if (const TIntermSymbol* symbol = node.getAsSymbolNode()) {
    info.lastMentions[symbol->getId()] = number;
  }
  unsigned last = number;
  forEachChild(node, [&](const TIntermNode& child) { last = numberNodes(info, child, last + 1); });
  if (node.getAsAggregate() != nullptr) info.blockEnds[&node] = last;
  return last;
}

}  // namespace

Program::Program(std::unique_ptr<glslang::TShader> shader) : shader_(std::move(shader)) {
  const TIntermNode* root = shader_->getIntermediate()->getTreeRoot();
  if (root == nullptr) return;
  for (const TIntermNode* node : children(*root->getAsAggregate())) {
    const TIntermAggregate* aggregate = node->getAsAggregate();
    if (aggregate != nullptr && aggregate->getOp() == glslang::EOpFunction) {
      addFunction(*aggregate);
    } else if (aggregate == nullptr || aggregate->getOp() != glslang::EOpLinkerObjects) {
      initializers_.push_back(node);
    } else {
      for (const TIntermNode* object : children(*aggregate))
        addInterface(object->getAsSymbolNode());
    }
  }
  closeOverCalls();
}

Program::~Program() = default;

const FunctionInfo* Program::findFunction(const std::string& name) const {
  const auto found = functions_.find(name);
  return found != functions_.end() ? &found->second : nullptr;
}

void Program::addInterface(const TIntermSymbol* symbol) {
  if (symbol == nullptr || symbol->getBasicType() == glslang::EbtBlock) return;
  if (symbol->getQualifier().storage == glslang::EvqUniform) uniforms_.push_back(symbol);
  if (symbol->getQualifier().storage == glslang::EvqVaryingOut) outputs_.push_back(symbol);
}

void Program::addFunction(const TIntermAggregate& definition) {
  FunctionInfo& info = functions_[definition.getName().c_str()];
  info.owner = this;
  info.name = definition.getName().c_str();
  info.definition = &definition;
  for (const TIntermNode* parameter : children(*definition.getSequence()[0]->getAsAggregate())) {
    info.parameters.push_back(parameter->getAsSymbolNode());
  }
  if (definition.getSequence().size() > 1) {
    info.body = definition.getSequence()[1]->getAsAggregate();
  }
  if (info.body == nullptr) return;
  visitTree(*info.body, [&info](const TIntermNode& node) { noteNode(info, node); });
  FirstMentions(info).visit(*info.body);
  numberNodes(info, *info.body, 0);
}

// What callees write and use of the globals holds for their callers too.
void Program::closeOverCalls() {
  size_t total = 0;
  std::vector<const FunctionInfo*> all;
  for (const auto& [name, info] : functions_) all.push_back(&info);
  // Callees are complete when a caller takes them over. On circles they are not, but these are
  // refused before code is made (reachable()).
  for (const FunctionInfo* info : calleesFirst(all, [](const FunctionInfo&) {})) {
    FunctionInfo& caller = functions_.at(info->name);
    for (const std::string& callee : caller.callees) {
      const FunctionInfo* called = findFunction(callee);
      if (called == nullptr || total > kMaxClosure) continue;
      const auto addGlobals = [&](std::set<SymbolId>& to, const std::set<SymbolId>& from) {
        std::copy_if(from.begin(), from.end(), std::inserter(to, to.end()),
                     [called](SymbolId id) { return !called->own.contains(id); });
      };
      addGlobals(caller.written, called->written);
      addGlobals(caller.mentioned, called->mentioned);
      caller.usesDerivatives = caller.usesDerivatives || called->usesDerivatives;
    }
    total += caller.written.size() + caller.mentioned.size();
  }
  isTooLarge_ = total > kMaxClosure;
}

std::vector<const FunctionInfo*> Program::calleesFirst(
    const std::vector<const FunctionInfo*>& roots,
    const std::function<void(const FunctionInfo&)>& onCircle) const {
  struct Entered {
    const FunctionInfo* info;
    std::set<std::string>::const_iterator next;
  };
  std::vector<const FunctionInfo*> order;
  std::set<const FunctionInfo*> open, done;
  // With a path of its own: chains of calls are as long as the source likes.
  std::vector<Entered> path;
  const auto enter = [&](const FunctionInfo* info) {
    if (info == nullptr || done.contains(info)) return;
    if (!open.insert(info).second) return onCircle(*info);
    path.push_back({info, info->callees.begin()});
  };
  for (const FunctionInfo* root : roots) {
    enter(root);
    while (!path.empty()) {
      Entered& current = path.back();
      if (current.next != current.info->callees.end()) {
        enter(findFunction(*current.next++));
        continue;
      }
      open.erase(current.info);
      done.insert(current.info);
      order.push_back(current.info);
      path.pop_back();
    }
  }
  return order;
}

std::set<SymbolId> Program::writtenBy(const TIntermNode& tree) const {
  FunctionInfo found;
  visitTree(tree, [&found](const TIntermNode& node) { noteNode(found, node); });
  for (const std::string& callee : found.callees) {
    if (const FunctionInfo* called = findFunction(callee)) {
      found.written.insert(called->written.begin(), called->written.end());
    }
  }
  return std::move(found.written);
}

std::vector<const FunctionInfo*> Program::reachable(const std::string& from) const {
  return calleesFirst({&function(from)}, [](const FunctionInfo& info) {
    throw Unsupported(info.definition->getLoc(),
                      "recursion through " + info.name.substr(0, info.name.find('(')) + "()");
  });
}

}  // namespace shadermachine::tools::glsl
