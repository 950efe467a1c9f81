// A sparse matrix, or a piece of one, as the command holds it between input and gather.

#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace Pavex::Tool {

enum class Field { REAL, INTEGER, COMPLEX, PATTERN };
// The words of the banner of a file.
constexpr char const* NameOf(Field field) {
  switch (field) {
    case Field::REAL:
      return "real";
    case Field::INTEGER:
      return "integer";
    case Field::COMPLEX:
      return "complex";
    case Field::PATTERN:
      break;
  }
  return "pattern";
}

enum class Symmetry { GENERAL, SYMMETRIC, SKEW_SYMMETRIC, HERMITIAN };

// The most rows or columns that the command handles: 32-bit indices keep a real entry at 16
// bytes, so that 30 million entries take 480 MB.
constexpr long kMaxExtent = std::numeric_limits<std::int32_t>::max();

// Entries by position, 0-based and global, in the order of their source. Duplicates stay
// separate entries.
struct Triplets {
  long mRows = 0;  // of the whole matrix, also if this is only a piece of it
  long mCols = 0;
  Field mField = Field::REAL;
  // What the source said. The entries are always those of the full matrix: both triangles of a
  // symmetric, skew-symmetric or Hermitian one.
  Symmetry mSymmetry = Symmetry::GENERAL;
  // The source was dense: a file in array format (entries column by column) or a generated
  // dense matrix (row by row). Every position is present once, unless mSymmetry mixes the
  // order.
  bool mDense = false;
  std::vector<std::int32_t> mRow;
  std::vector<std::int32_t> mCol;
  std::vector<double> mReal;  // 1 for each entry of a pattern
  std::vector<double> mImag;  // as long as mReal for Field::COMPLEX, else empty

  std::size_t Entries() const { return mRow.size(); }
  bool IsComplex() const { return mField == Field::COMPLEX; }

  void Reserve(std::size_t entries) {
    mRow.reserve(entries);
    mCol.reserve(entries);
    mReal.reserve(entries);
    if (IsComplex()) mImag.reserve(entries);
  }

  // Appends one entry inside the matrix; `imag` counts for Field::COMPLEX only.
  void Add(long row, long col, double real, double imag = 0) {
    mRow.push_back(static_cast<std::int32_t>(row));
    mCol.push_back(static_cast<std::int32_t>(col));
    mReal.push_back(real);
    if (IsComplex()) mImag.push_back(imag);
  }
};

}  // namespace Pavex::Tool
