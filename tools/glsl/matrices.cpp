// Matrices that are not square. The machine has none: they are arrays of their columns, and what is
// done with them is written out column by column.
#include <algorithm>

#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

Shape vectorOf(unsigned components) { return {Scalar::Float, components}; }

Shape matrixOf(unsigned columns, unsigned rows) {
  return {Scalar::Float, columns * rows, columns, columns == rows ? 0 : rows};
}

VmOpcode vectorConstructor(unsigned components) {
  return static_cast<VmOpcode>(VM_OP_CTOR_VEC2_A + components - 2);
}

}  // namespace

// What is used several times is kept in a local.
FunctionGenerator::Kept FunctionGenerator::keep(const Operand& operand) {
  const Place place = takeLocal("part", floatType(operand.shape));
  operand.emit();
  store(place);
  return {operand.shape, place};
}

void FunctionGenerator::release(const Kept& kept) {
  freeLocals_[kept.place.type].push_back(kept.place);
}

// Of a matrix; scalars are columns of any matrix.
Operand FunctionGenerator::columnOf(const Kept& kept, unsigned column) {
  if (kept.shape.dimension == 0) {
    return {kept.shape, nullptr, [this, kept] { load(kept.place); }};
  }
  return {vectorOf(kept.shape.rows()), nullptr, [this, kept, column] {
            load(kept.place);
            code_.emit(VM_OP_PUSH_INDEX_IMM, {column});
            if (!kept.shape.isOblong()) return emitCounted(VM_OP_MAT_COLUMN, kept.shape.dimension);
            code_.emit(VM_OP_ARRAY_ELEMENT, {floatType(kept.shape).code});
          }};
}

Operand FunctionGenerator::componentOf(const Operand& vector, unsigned component) {
  return {vectorOf(1), nullptr, [this, vector, component] {
            vector.emit();
            if (!vector.shape.isScalar()) swizzle({&component, 1}, vector.shape.components);
          }};
}

// The columns are on the stack.
void FunctionGenerator::joinColumns(const Shape& shape) {
  if (shape.isOblong()) {
    return code_.emit(VM_OP_CTOR_ARRAY, {floatType(shape).code, shape.dimension});
  }
  code_.emit(static_cast<VmOpcode>(VM_OP_CTOR_MAT2 + shape.dimension - 2),
             std::vector<int64_t>(shape.dimension, shape.dimension));
}

// A vector of scalars that are on the stack.
void FunctionGenerator::joinComponents(unsigned count) {
  code_.emit(vectorConstructor(count), std::vector<int64_t>(count, 1));
}

void FunctionGenerator::matrixArithmetic(TOperator op, const Operand& left, const Operand& right,
                                         const TSourceLoc& where) {
  const Kept a = keep(left), b = keep(right);
  if (op == glslang::EOpMatrixTimesVector) {
    matrixTimesVector(a, columnOf(b, 0), where);
  } else if (op == glslang::EOpVectorTimesMatrix) {
    for (unsigned column = 0; column < b.shape.dimension; ++column) {
      load(a.place);
      columnOf(b, column).emit();
      emitCounted(VM_OP_DOT, b.shape.rows());
    }
    joinComponents(b.shape.dimension);
  } else if (op == glslang::EOpMatrixTimesMatrix) {
    for (unsigned column = 0; column < b.shape.dimension; ++column) {
      const Kept vector = keep(columnOf(b, column));
      matrixTimesVector(a, columnOf(vector, 0), where);
      release(vector);
    }
    joinColumns(matrixOf(b.shape.dimension, a.shape.rows()));
  } else {
    const Shape shape = a.shape.dimension > 0 ? a.shape : b.shape;
    for (unsigned column = 0; column < shape.dimension; ++column) {
      arithmetic(op, columnOf(a, column), columnOf(b, column), where);
    }
    joinColumns(shape);
  }
  release(a);
  release(b);
}

void FunctionGenerator::matrixTimesVector(const Kept& matrix, const Operand& vector,
                                          const TSourceLoc& where) {
  for (unsigned column = 0; column < matrix.shape.dimension; ++column) {
    arithmetic(glslang::EOpMul, columnOf(matrix, column), componentOf(vector, column), where);
    if (column > 0) emitCounted(VM_OP_ADD_F, matrix.shape.rows());
  }
}

void FunctionGenerator::negateMatrix(const Operand& operand) {
  const Kept matrix = keep(operand);
  for (unsigned column = 0; column < matrix.shape.dimension; ++column) {
    columnOf(matrix, column).emit();
    emitCounted(VM_OP_NEG_F, matrix.shape.rows());
  }
  joinColumns(matrix.shape);
  release(matrix);
}

void FunctionGenerator::compareMatrices(const Operand& left, const Operand& right,
                                        bool wantsEqual) {
  const Kept a = keep(left), b = keep(right);
  for (unsigned column = 0; column < a.shape.dimension; ++column) {
    columnOf(a, column).emit();
    columnOf(b, column).emit();
    emitCounted(VM_OP_EQ_F, a.shape.rows());
    if (column > 0) code_.emit(VM_OP_LOGICAL_AND_B);
  }
  if (!wantsEqual) code_.emit(VM_OP_LOGICAL_NOT_B);
  release(a);
  release(b);
}

void FunctionGenerator::transposeMatrix(const Operand& operand) {
  const Kept matrix = keep(operand);
  for (unsigned row = 0; row < matrix.shape.rows(); ++row) {
    for (unsigned column = 0; column < matrix.shape.dimension; ++column) {
      componentOf(columnOf(matrix, column), row).emit();
    }
    joinComponents(matrix.shape.dimension);
  }
  joinColumns(matrixOf(matrix.shape.rows(), matrix.shape.dimension));
  release(matrix);
}

void FunctionGenerator::outerProduct(const Operand& left, const Operand& right,
                                     const TSourceLoc& where) {
  const Kept column = keep(left), row = keep(right);
  for (unsigned i = 0; i < row.shape.components; ++i) {
    arithmetic(glslang::EOpMul, columnOf(column, 0), componentOf(columnOf(row, 0), i), where);
  }
  joinColumns(matrixOf(row.shape.components, column.shape.components));
  release(column);
  release(row);
}

// The functions of matrices that the library has for square ones only.
bool FunctionGenerator::oblongCall(const TIntermOperator& node,
                                   std::span<const TIntermTyped* const> arguments) {
  const bool isOblong = shapeOf(node).isOblong();
  switch (node.getOp()) {
    case glslang::EOpMul:  // matrixCompMult
      if (!isOblong) return false;
      matrixArithmetic(node.getOp(), operand(*arguments[0]), operand(*arguments[1]), node.getLoc());
      return true;
    case glslang::EOpTranspose:
      if (isOblong) transposeMatrix(operand(*arguments[0]));
      return isOblong;
    case glslang::EOpOuterProduct:
      if (!isOblong) return false;
      outerProduct(operand(*arguments[0]), operand(*arguments[1]), node.getLoc());
      return true;
    default:
      return false;
  }
}

// One scalar makes a diagonal; of a matrix, a matrix takes what fits and a diagonal of ones.
void FunctionGenerator::constructColumns(const Shape& shape,
                                         std::span<TIntermNode* const> arguments) {
  std::vector<Kept> parts;
  for (const TIntermNode* node : arguments) {
    const TIntermTyped& argument = *node->getAsTyped();
    const Scalar scalar = shapeOf(argument).scalar;
    Shape part = shapeOf(argument);
    part.scalar = Scalar::Float;
    parts.push_back(keep({part, nullptr, [this, &argument, scalar] {
                            converted(argument, scalar, Scalar::Float);
                          }}));
  }
  const Shape& first = parts.front().shape;
  const bool isDiagonal =
      shape.dimension > 0 && parts.size() == 1 && (first.isScalar() || first.dimension > 0);
  const unsigned rows = shape.dimension > 0 ? shape.rows() : shape.components;
  size_t part = 0;
  unsigned used = 0;
  for (unsigned i = 0; i < shape.components; ++i) {
    if (isDiagonal) {
      pushOfDiagonal(parts.front(), i / rows, i % rows);
    } else {
      if (used == parts[part].shape.components) {
        ++part;
        used = 0;
      }
      pushComponent(parts[part], used++);
    }
    if (rows > 1 && i % rows == rows - 1) joinComponents(rows);
  }
  if (shape.dimension > 0) joinColumns(shape);
  for (const Kept& kept : parts) release(kept);
}

void FunctionGenerator::pushComponent(const Kept& source, unsigned component) {
  const unsigned rows = source.shape.dimension > 0 ? source.shape.rows() : source.shape.components;
  componentOf(columnOf(source, component / rows), component % rows).emit();
}

void FunctionGenerator::pushOfDiagonal(const Kept& source, unsigned column, unsigned row) {
  if (source.shape.isScalar() && column == row) return load(source.place);
  if (column < source.shape.dimension && row < source.shape.rows()) {
    return pushComponent(source, column * source.shape.rows() + row);
  }
  code_.pushFloat(column == row ? 1.0f : 0.0f);
}

}  // namespace shadermachine::tools::glsl
