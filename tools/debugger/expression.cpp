#include "debugger/expression.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <span>

#include "assembly/literals.h"
#include "machine/types.h"

namespace shadermachine::tools {
namespace {

constexpr unsigned kMaxExpressionNesting = 100;

struct Operator {
  std::string_view text;
  int precedence;
};

// Longer ones first.
constexpr Operator kOperators[] = {
    {"||", 1}, {"&&", 2}, {"==", 3}, {"!=", 3}, {"<=", 4}, {">=", 4}, {"<", 4},
    {">", 4},  {"+", 5},  {"-", 5},  {"*", 6},  {"/", 6},  {"%", 6},
};

class Evaluator {
 public:
  Evaluator(const ShaderView& view, std::string_view text, const FindVariable& find)
      : view_(view), rest_(text), find_(find) {}

  DebugValue run() {
    DebugValue value = binary(0);
    skipSpace();
    if (!rest_.empty()) fail("unexpected '" + std::string(rest_) + "'");
    return value;
  }

 private:
  [[noreturn]] static void fail(const std::string& message) { throw ExpressionError(message); }

  void skipSpace() {
    while (!rest_.empty() && (rest_[0] == ' ' || rest_[0] == '\t')) rest_.remove_prefix(1);
  }

  bool accept(std::string_view token) {
    skipSpace();
    if (!rest_.starts_with(token)) return false;
    rest_.remove_prefix(token.size());
    return true;
  }

  DebugValue binary(int precedence) {
    DebugValue left = unary();
    while (const Operator* op = nextOperator(precedence)) {
      rest_.remove_prefix(op->text.size());
      // One level higher on the right: operators of the same level belong to the left.
      left = applied(op->text, left, binary(op->precedence + 1));
    }
    return left;
  }

  const Operator* nextOperator(int precedence) {
    skipSpace();
    for (const Operator& op : kOperators) {
      // The first that fits decides, whatever its level: "<=" is never a "<" followed by "=".
      if (rest_.starts_with(op.text)) return op.precedence >= precedence ? &op : nullptr;
    }
    return nullptr;
  }

  DebugValue unary() {
    // All recursion comes through here.
    if (++nesting_ > kMaxExpressionNesting) fail("nested too deeply");
    DebugValue value;
    if (accept("-")) {
      value = unary();
      value = applied("-", zeroLike(value), value);
    } else if (accept("!")) {
      value = scalar(VM_TYPE_BOOL, isTrue(unary()) ? 0 : 1);
    } else {
      value = postfix(primary());
    }
    --nesting_;
    return value;
  }

  DebugValue primary() {
    if (accept("(")) {
      DebugValue value = binary(0);
      if (!accept(")")) fail("')' is missing");
      return value;
    }
    skipSpace();
    if (rest_.empty()) fail("a value is missing");
    const char first = rest_[0];
    if ((first >= '0' && first <= '9') || first == '.') return number();
    if (!assembly::isNameStart(first)) fail("unexpected '" + std::string(rest_) + "'");
    const std::string name = takeName();
    if (name == "true") return scalar(VM_TYPE_BOOL, 1);
    if (name == "false") return scalar(VM_TYPE_BOOL, 0);
    std::optional<DebugValue> found = find_(name);
    if (!found) fail("no variable '" + name + "' is in scope here");
    return std::move(*found);
  }

  std::string takeName() {
    size_t length = 0;
    while (length < rest_.size() && assembly::isNamePart(rest_[length])) ++length;
    std::string name(rest_.substr(0, length));
    rest_.remove_prefix(length);
    return name;
  }

  DebugValue number() {
    const char* const end = rest_.data() + rest_.size();
    const size_t digits = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    const bool isFloat = digits < rest_.size() && std::strchr(".eEf", rest_[digits]) != nullptr;
    DebugValue value;
    const char* stop = nullptr;
    if (isFloat) {
      float parsed = 0;
      stop = std::from_chars(rest_.data(), end, parsed).ptr;
      value = scalar(VM_TYPE_FLOAT, std::bit_cast<uint32_t>(parsed));
    } else {
      uint32_t parsed = 0;
      const auto result = std::from_chars(rest_.data(), end, parsed);
      if (result.ec != std::errc()) fail("the number is too large");
      stop = result.ptr;
      value = scalar(VM_TYPE_INT, parsed);
    }
    if (stop == rest_.data()) fail("unexpected '" + std::string(rest_) + "'");
    rest_.remove_prefix(static_cast<size_t>(stop - rest_.data()));
    if (!rest_.empty() && (rest_[0] == 'u' || (isFloat && rest_[0] == 'f'))) {
      if (rest_[0] == 'u') value.type.name = "uint";
      rest_.remove_prefix(1);
    }
    return value;
  }

  DebugValue postfix(DebugValue value) {
    while (true) {
      if (accept("[")) {
        const DebugValue index = binary(0);
        if (!accept("]")) fail("']' is missing");
        if (componentsOf(index.type.code) != 1 || isFloatType(index.type.code)) {
          fail("an index is a whole number");
        }
        value = named(value, "", index.word(0));
      } else if (accept(".")) {
        value = member(value, takeName());
      } else {
        return value;
      }
    }
  }

  // The part of this name, or the one at this place.
  DebugValue named(const DebugValue& whole, const std::string& name, size_t index) {
    // All of them only to look for a name: an array may have millions.
    const size_t limit = name.empty() ? index + 1 : SIZE_MAX;
    std::vector<DebugPart> parts = partsOf(view_, whole, limit);
    if (parts.empty()) fail("a " + whole.type.name + " has no parts");
    if (name.empty() && index >= parts.size()) {
      fail("the index " + std::to_string(static_cast<int32_t>(index)) +
           " is out of range: there are " + std::to_string(parts.size()));
    }
    if (name.empty()) return std::move(parts[index].value);
    for (DebugPart& part : parts) {
      if (part.name == name) return std::move(part.value);
    }
    fail("a " + whole.type.name + " has no member '" + name + "'");
  }

  DebugValue member(const DebugValue& whole, const std::string& name) {
    if (!isVectorType(whole.type.code) || whole.type.count > 0) return named(whole, name, 0);
    const auto swizzle = assembly::parseSwizzle(name);
    if (!swizzle) fail("'" + name + "' selects no components");
    std::vector<uint32_t> words;
    for (unsigned i = 0; i < swizzle->count; ++i) {
      const unsigned component = swizzle->mask >> 2 * i & 3;
      if (component >= componentsOf(whole.type.code)) {
        fail("a " + whole.type.name + " has no component '" + name + "'");
      }
      words.push_back(whole.word(component));
    }
    return vector(scalarTypeOf(whole.type.code), words, whole.type.isUnsigned());
  }

  DebugValue scalar(TypeCode type, uint32_t word) { return vector(type, {word}, false); }

  DebugValue vector(TypeCode scalarType, const std::vector<uint32_t>& words, bool isUnsigned) {
    const int family = scalarType == VM_TYPE_FLOAT  ? VM_TYPE_VEC2
                       : scalarType == VM_TYPE_BOOL ? VM_TYPE_BVEC2
                                                    : VM_TYPE_IVEC2;
    const auto count = static_cast<int>(words.size());
    const auto code = count == 1 ? scalarType : static_cast<TypeCode>(family + count - 2);
    DebugValue value{debugType(view_, code, 0), {}};
    if (isUnsigned) value.type.name = count == 1 ? "uint" : "uvec" + std::to_string(count);
    const auto bytes = std::as_bytes(std::span(words));
    value.bytes.reserve(bytes.size());
    for (const std::byte byte : bytes) value.bytes.push_back(std::to_integer<uint8_t>(byte));
    return value;
  }

  DebugValue zeroLike(const DebugValue& value) {
    DebugValue zero = value;
    // The other zero, so that the sign of a zero turns, too.
    const uint32_t word = isFloatType(value.type.code) ? 0x80000000u : 0;
    for (size_t i = 0; 4 * i + 4 <= zero.bytes.size(); ++i) {
      std::memcpy(zero.bytes.data() + 4 * i, &word, sizeof word);
    }
    return zero;
  }

  DebugValue applied(std::string_view op, const DebugValue& left, const DebugValue& right) {
    // Both sides have been evaluated already: nothing here has effects.
    if (op == "&&") return scalar(VM_TYPE_BOOL, isTrue(left) && isTrue(right) ? 1 : 0);
    if (op == "||") return scalar(VM_TYPE_BOOL, isTrue(left) || isTrue(right) ? 1 : 0);
    const bool isAggregate = left.type.count > 0 || left.type.code >= 0 || right.type.count > 0 ||
                             right.type.code >= 0 || isMatrixType(left.type.code) ||
                             isMatrixType(right.type.code);
    if (isAggregate) {
      if (op == "==") return scalar(VM_TYPE_BOOL, left.bytes == right.bytes ? 1 : 0);
      if (op == "!=") return scalar(VM_TYPE_BOOL, left.bytes != right.bytes ? 1 : 0);
      fail("'" + std::string(op) + "' is for scalars and vectors");
    }
    return componentwise(op, left, right);
  }

  DebugValue componentwise(std::string_view op, const DebugValue& left, const DebugValue& right) {
    const unsigned a = componentsOf(left.type.code);
    const unsigned b = componentsOf(right.type.code);
    if (a != b && a != 1 && b != 1) fail("the operands have different numbers of components");
    const bool isFloat = isFloatType(left.type.code) || isFloatType(right.type.code);
    const bool isUnsigned = left.type.isUnsigned() || right.type.isUnsigned();
    std::vector<uint32_t> words;
    bool all = true;
    for (unsigned i = 0; i < std::max(a, b); ++i) {
      const size_t l = a == 1 ? 0 : i;
      const size_t r = b == 1 ? 0 : i;
      if (isFloat) {
        const float value = floats(op, number(left, l), number(right, r));
        words.push_back(std::bit_cast<uint32_t>(value));
        all = all && value != 0;
      } else {
        const int64_t value = integers(op, whole(left, l, isUnsigned), whole(right, r, isUnsigned));
        words.push_back(static_cast<uint32_t>(value));
        all = all && value != 0;
      }
    }
    if (op == "==" || op == "<" || op == ">" || op == "<=" || op == ">=") {
      return scalar(VM_TYPE_BOOL, all ? 1 : 0);
    }
    // Not component by component: vectors differ where any component does.
    if (op == "!=") return scalar(VM_TYPE_BOOL, isEqual(left, right) ? 0 : 1);
    return vector(isFloat ? TypeCode{VM_TYPE_FLOAT} : TypeCode{VM_TYPE_INT}, words, isUnsigned);
  }

  bool isEqual(const DebugValue& left, const DebugValue& right) {
    return isTrue(componentwise("==", left, right));
  }

  static float number(const DebugValue& value, size_t index) {
    if (isFloatType(value.type.code)) return value.asFloat(index);
    return value.type.isUnsigned() ? static_cast<float>(value.word(index))
                                   : static_cast<float>(static_cast<int32_t>(value.word(index)));
  }
  static int64_t whole(const DebugValue& value, size_t index, bool isUnsigned) {
    const uint32_t word = value.word(index);
    return isUnsigned ? int64_t{word} : int64_t{static_cast<int32_t>(word)};
  }

  static float floats(std::string_view op, float a, float b) {
    if (op == "+") return a + b;
    if (op == "-") return a - b;
    if (op == "*") return a * b;
    if (op == "/") return a / b;
    if (op == "%") return std::fmod(a, b);
    return compared(op, a, b) ? 1.0f : 0.0f;
  }

  static int64_t integers(std::string_view op, int64_t a, int64_t b) {
    if (op == "+") return a + b;
    if (op == "-") return a - b;
    if (op == "*") return a * b;
    if ((op == "/" || op == "%") && b == 0) fail("a division by zero");
    if (op == "/") return a / b;
    if (op == "%") return a % b;
    return compared(op, a, b) ? 1 : 0;
  }

  template <class T>
  static bool compared(std::string_view op, T a, T b) {
    if (op == "<") return a < b;
    if (op == ">") return a > b;
    if (op == "<=") return a <= b;
    if (op == ">=") return a >= b;
    return a == b;
  }

  const ShaderView& view_;
  std::string_view rest_;
  const FindVariable& find_;
  unsigned nesting_ = 0;
};

}  // namespace

DebugValue evaluate(const ShaderView& view, std::string_view text, const FindVariable& find) {
  return Evaluator(view, text, find).run();
}

bool isTrue(const DebugValue& value) {
  if (value.type.count > 0 || value.type.code >= 0 || componentsOf(value.type.code) != 1) {
    throw ExpressionError("a condition is a single value");
  }
  return isFloatType(value.type.code) ? value.asFloat() != 0 : value.word(0) != 0;
}

}  // namespace shadermachine::tools
