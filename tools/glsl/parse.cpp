// From source text to a tree: versions, precision and entries that people leave out.
#include <glslang/Public/ResourceLimits.h>

#include <array>
#include <mutex>
#include <optional>

#include "entries.h"
#include "program.h"
#include "source.h"
#include "structure_sizes.h"

namespace shadermachine::tools::glsl {
namespace {

constexpr EShMessages kMessages =
    static_cast<EShMessages>(EShMsgRelaxedErrors | EShMsgSuppressWarnings | EShMsgCascadingErrors);

constexpr const char* kDefaultPrecision = "precision highp float; precision highp int; ";
constexpr const char* kIncludes = "#extension GL_GOOGLE_include_directive : enable\n";

// A way to read the source.
struct Attempt {
  int version;
  const char* directive;  // what stands for a #version that the source leaves out
  bool addsPrecision = false;
};

// A source that leaves out its version may be written for any of these; precisions are often
// missing.
constexpr std::array kAttempts = {
    Attempt{100, "#version 100"}, Attempt{100, "#version 100", true}, Attempt{120, "#version 120"},
    Attempt{300, "#version 300 es", true}, Attempt{330, "#version 330 compatibility"}};

std::vector<Attempt> attemptsFor(const Source& source) {
  if (source.version == 0) return {kAttempts.begin(), kAttempts.end()};
  const char* directive = source.versionDirective.c_str();
  const bool isEs = source.version == 100 || source.version == 300 || source.version == 310 ||
                    source.version == 320;
  if (!isEs) {
    std::vector<Attempt> attempts = {{source.version, directive}};
    // glslang has the names of this extension in later versions only.
    const bool isExtended = source.text.find("GL_ARB_gpu_shader5") != std::string::npos;
    if (isExtended && source.version < 400) attempts.push_back({400, "#version 400 compatibility"});
    return attempts;
  }
  return {{source.version, directive}, {source.version, directive, true}};
}

// Asks the caller of the compiler for files, as long as they are few and small.
class Includer final : public glslang::TShader::Includer {
 public:
  Includer(const GlslOptions& options, const Expanded& sizes) : options_(options), sizes_(sizes) {}

  IncludeResult* includeLocal(const char* name, const char* includer, size_t depth) override {
    if (!options_.include || depth > kMaxIncludeDepth) return nullptr;
    const bool isSource = std::string_view(includer).empty();
    std::optional<GlslInclude> found =
        options_.include(name, isSource ? options_.fileName : includer);
    if (!found || (bytes_ += found->text.size()) > kMaxIncludedBytes) return nullptr;
    const auto size = sizes_.tokens.find(found->path);
    if (size == sizes_.tokens.end()) return nullptr;
    if ((tokens_ += size->second) > kMaxExpandedTokens) return nullptr;
    auto* text = new std::string(std::move(found->text));
    return new IncludeResult(found->path, text->data(), text->size(), text);
  }
  IncludeResult* includeSystem(const char* name, const char* includer, size_t depth) override {
    return includeLocal(name, includer, depth);
  }
  void releaseInclude(IncludeResult* result) override {
    if (result != nullptr) delete static_cast<std::string*>(result->userData);
    delete result;
  }

 private:
  const GlslOptions& options_;
  const Expanded& sizes_;
  size_t bytes_ = 0;
  size_t tokens_ = 0;
};

// All texts that make up a shader, in order.
struct Texts {
  std::string version;
  std::string preamble;
  GlslInclude common;
  const std::string* source;
  std::string entry = "\n";
};

// The same for glslang, which keeps nothing but the pointers while it parses.
struct Strings {
  Strings(const Texts& all, const std::string& fileName)
      : names{kVersionText, kPreambleText, all.common.path.c_str(), fileName.c_str(), kEntryText} {
    const std::string* const parts[] = {&all.version, &all.preamble, &all.common.text, all.source,
                                        &all.entry};
    for (size_t i = 0; i < names.size(); ++i) {
      texts[i] = parts[i]->c_str();
      lengths[i] = static_cast<int>(parts[i]->size());
    }
  }

  std::array<const char*, 5> names;
  std::array<const char*, 5> texts;
  std::array<int, 5> lengths;
};

class Reader {
 public:
  Reader(const Source& source, const GlslOptions& options, const Expanded& sizes)
      : source_(source), options_(options), sizes_(sizes) {}

  // Null when the source cannot be read this way; the errors say why.
  std::unique_ptr<glslang::TShader> read(const Attempt& attempt, Diagnostics& errors) {
    // Twice through glslang: what the source defines is known only once conditions have been
    // followed, and the texts around it depend on that.
    Texts texts = {std::string(attempt.directive) + "\n", defines(), {}, &source_.text};
    std::string visible = preprocessed(attempt, texts);
    const Surroundings around =
        surroundingsOf(tokensOf(visible), attempt.version, options_.isBuffer);
    if (attempt.addsPrecision) texts.preamble += kDefaultPrecision;
    texts.preamble += around.before + "\n";
    texts.entry = around.after;
    kind_ = around.kind;
    if (kind_ == Entry::Image && options_.include) {
      texts.common = options_.include(kCommonFile, options_.fileName).value_or(GlslInclude{});
      visible = preprocessed(attempt, texts);
    }
    // On what glslang's own macros make of all texts, and before it parses any of them.
    if (const std::string problem = structureProblem(tokensOf(visible)); !problem.empty()) {
      errors.add(Unsupported(TSourceLoc(), problem));
      return nullptr;
    }
    // Only pointers to these reach glslang, so they live until it has parsed.
    const Strings strings(texts, options_.fileName);
    auto shader = std::make_unique<glslang::TShader>(EShLangFragment);
    shader->setStringsWithLengthsAndNames(strings.texts.data(), strings.lengths.data(),
                                          strings.names.data(),
                                          static_cast<int>(strings.texts.size()));
    Includer includer(options_, sizes_);
    if (shader->parse(GetDefaultResources(), attempt.version, ENoProfile, false, false, kMessages,
                      includer)) {
      return shader;
    }
    errors.addLog(shader->getInfoLog());
    return nullptr;
  }

  Entry kind() const { return kind_; }

 private:
  // In one piece, since glslang counts columns over the ends of its strings. Errors come again when
  // the source is parsed.
  std::string preprocessed(const Attempt& attempt, const Texts& texts) const {
    const std::string whole = texts.version + texts.preamble + texts.common.text + *texts.source;
    const char* string = whole.c_str();
    glslang::TShader shader(EShLangFragment);
    shader.setStrings(&string, 1);
    std::string result;
    Includer includer(options_, sizes_);
    shader.preprocess(GetDefaultResources(), attempt.version, ENoProfile, false, false, kMessages,
                      &result, includer);
    return result;
  }

  std::string defines() const {
    std::string text = options_.include ? kIncludes : "";
    for (const std::string& define : options_.defines) {
      const size_t equals = define.find('=');
      text += "#define " + define.substr(0, equals) + " ";
      text += (equals == std::string::npos ? "1" : define.substr(equals + 1)) + "\n";
    }
    return text;
  }

  const Source& source_;
  const GlslOptions& options_;
  const Expanded& sizes_;
  Entry kind_ = Entry::Main;
};

// The compiler works through the tree recursively.
bool isTooDeep(glslang::TShader& shader, Diagnostics& diagnostics) {
  const TIntermNode* root = shader.getIntermediate()->getTreeRoot();
  const TIntermNode* deep = root != nullptr ? deeperThan(*root, kMaxTreeDepth) : nullptr;
  if (deep != nullptr) diagnostics.add(Unsupported(deep->getLoc(), "nested too deeply"));
  return deep != nullptr;
}

// Of several ways that fail, the one that gets furthest is likely the one that was meant.
bool isBetter(const Diagnostics& errors, const Diagnostics& best) {
  if (errors.firstErrorLine() != best.firstErrorLine()) {
    return errors.firstErrorLine() > best.firstErrorLine();
  }
  return errors.count() < best.count();
}

}  // namespace

std::unique_ptr<Program> Program::parse(std::string_view text, const GlslOptions& options,
                                        Diagnostics& diagnostics) {
  static std::once_flag initialized;
  std::call_once(initialized, [] { glslang::InitializeProcess(); });
  Source source;
  if (!readSource(text, source, diagnostics)) return nullptr;
  diagnostics.setLines(source.versionLine, source.lines);
  const Expanded sizes = expanded(source, options);
  if (!sizes.problem.empty()) {
    diagnostics.add(Unsupported(TSourceLoc(), sizes.problem));
    return nullptr;
  }
  std::optional<Diagnostics> best;
  std::string readAs;
  for (const Attempt& attempt : attemptsFor(source)) {
    // Every attempt starts from what is known already; errors of those that fail are dropped but
    // for the best one's.
    Diagnostics errors = diagnostics;
    Reader reader(source, options, sizes);
    if (auto shader = reader.read(attempt, errors)) {
      // Before anything else looks at the tree, by recursion.
      if (isTooDeep(*shader, diagnostics)) return nullptr;
      std::unique_ptr<Program> program(new Program(std::move(shader)));
      if (program->isTooLarge()) {
        diagnostics.add(Unsupported(TSourceLoc(), "too many functions use too many globals"));
        return nullptr;
      }
      if (reader.kind() == Entry::Transition) {
        program->suggestedValues_ = valuesInComments(source.text);
      }
      return program;
    }
    if (best && !isBetter(errors, *best)) continue;
    best = std::move(errors);
    readAs = attempt.directive;
  }
  diagnostics = std::move(*best);
  if (source.version == 0) diagnostics.addNote("read as " + readAs + ", as the source names none");
  return nullptr;
}

}  // namespace shadermachine::tools::glsl
