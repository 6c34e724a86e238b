// A parsed shader and what is known about its functions before code is made.
//
// Invariants: nothing changes once parse() has returned; what a function writes and mentions of the
// globals includes what its callees do, unless it can call itself; no tree is deeper than
// kMaxTreeDepth.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics.h"
#include "glslang_tree.h"

namespace shadermachine::tools::glsl {

class Program;

struct FunctionInfo {
  const Program* owner = nullptr;
  std::string name;  // with the types of its parameters
  const TIntermAggregate* definition = nullptr;
  std::vector<const TIntermSymbol*> parameters;
  const TIntermAggregate* body = nullptr;  // null: nothing to do
  unsigned size = 0;                       // nodes of the tree
  unsigned callCount = 0;                  // calls in reachable functions
  bool usesDerivatives = false;            // here or in functions it calls
  std::set<std::string> callees;
  // Variables that it writes or mentions, its own and globals; globals in what it calls, too.
  std::set<SymbolId> written;
  std::map<SymbolId, unsigned> writeCounts;  // here only
  std::set<SymbolId> mentioned;
  std::set<SymbolId> own;                       // its locals and parameters that are mentioned
  std::vector<const TIntermSymbol*> readFirst;  // own variables that may be read before written
  // In the order of the source: each variable's last mention, and the ends of blocks.
  std::map<SymbolId, unsigned> lastMentions;
  std::map<const TIntermNode*, unsigned> blockEnds;
};

// A source that glslang has accepted. Trees are valid as long as their program.
class Program {
 public:
  // Null when the source has errors.
  static std::unique_ptr<Program> parse(std::string_view source, const GlslOptions& options,
                                        Diagnostics& diagnostics);
  ~Program();

  // More functions and globals than the compiler is willing to relate.
  bool isTooLarge() const { return isTooLarge_; }

  // Values of uniforms that the source names in comments.
  const std::vector<NamedValue>& suggestedValues() const { return suggestedValues_; }

  const FunctionInfo& function(const std::string& name) const { return functions_.at(name); }
  const FunctionInfo* findFunction(const std::string& name) const;
  std::map<std::string, FunctionInfo>& functions() { return functions_; }
  // Initial values of global variables, as assignments in order.
  const std::vector<const TIntermNode*>& initializers() const { return initializers_; }
  // Variables that evaluating the tree may change.
  std::set<SymbolId> writtenBy(const TIntermNode& tree) const;
  // All that the source declares, apart from blocks.
  const std::vector<const TIntermSymbol*>& uniforms() const { return uniforms_; }
  const std::vector<const TIntermSymbol*>& outputs() const { return outputs_; }
  // How the source wants gl_FragCoord: from the top left, without the half to the pixel's centre.
  bool hasUpperOrigin() const { return shader_->getIntermediate()->getOriginUpperLeft(); }
  bool countsFromCorners() const { return shader_->getIntermediate()->getPixelCenterInteger(); }
  bool movesOrigin() const { return hasUpperOrigin() || countsFromCorners(); }
  // Functions that main() calls, directly or not, itself among them. Throws on recursion.
  std::vector<const FunctionInfo*> reachable(const std::string& from) const;

 private:
  Program(std::unique_ptr<glslang::TShader> shader);
  void addFunction(const TIntermAggregate& definition);
  void addInterface(const TIntermSymbol* symbol);
  void closeOverCalls();
  // The roots and what they call, each once.
  std::vector<const FunctionInfo*> calleesFirst(
      const std::vector<const FunctionInfo*>& roots,
      const std::function<void(const FunctionInfo&)>& onCircle) const;

  std::unique_ptr<glslang::TShader> shader_;
  std::map<std::string, FunctionInfo> functions_;
  std::vector<const TIntermNode*> initializers_;
  bool isTooLarge_ = false;
  std::vector<const TIntermSymbol*> uniforms_;
  std::vector<const TIntermSymbol*> outputs_;
  std::vector<NamedValue> suggestedValues_;
};

// "float shade(vec3 p)"
std::string signatureOf(const FunctionInfo& info);

// Name of main() as glslang writes it.
inline constexpr const char* kMainFunction = "main(";

}  // namespace shadermachine::tools::glsl
