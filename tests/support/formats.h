// The sparse storage formats behind one interface, for tests that run for each of them.

#pragma once

#include "tests/support/instances.h"
#include "tests/support/pieces.h"

#include <gtest/gtest.h>

namespace Pavex {

// Compressed rows. A band is one of rows.
template <typename T = double, typename I = int>
struct CsrFormat {
  using Value = T;
  using Index = I;
  using Matrix = MatrixCSR<T, I>;
  using Piece = CsrPiece<T, I>;
  static constexpr auto kFirst = &Matrix::mRowPtr;
  static constexpr auto kSecond = &Matrix::mColIdx;

  // `compressed` rows, and `other` columns.
  static Piece Make(std::int64_t compressed, std::int64_t other, std::vector<int> const& ptr,
                    std::vector<int> const& idx, std::vector<int> const& values) {
    return {compressed, other, ptr, idx, values};
  }
  static void Place(Piece& piece, std::int64_t compressed, std::int64_t other,
                    MatrixPartition partition) {
    piece.matrix.PlaceIn(compressed, other, partition);
  }
  static MatrixPartition Band(std::int64_t begin) { return MatrixPartition::RowWise(begin); }
};

// Compressed columns. A band is one of columns.
template <typename T = double, typename I = int>
struct CscFormat {
  using Value = T;
  using Index = I;
  using Matrix = MatrixCSC<T, I>;
  using Piece = CscPiece<T, I>;
  static constexpr auto kFirst = &Matrix::mColPtr;
  static constexpr auto kSecond = &Matrix::mRowIdx;

  // `compressed` columns, and `other` rows.
  static Piece Make(std::int64_t compressed, std::int64_t other, std::vector<int> const& ptr,
                    std::vector<int> const& idx, std::vector<int> const& values) {
    return {other, compressed, ptr, idx, values};
  }
  static void Place(Piece& piece, std::int64_t compressed, std::int64_t other,
                    MatrixPartition partition) {
    piece.matrix.PlaceIn(other, compressed, partition);
  }
  static MatrixPartition Band(std::int64_t begin) { return MatrixPartition::ColumnWise(begin); }
};

// For tests that depend on the format only: TYPED_TEST_SUITE(MyTest, CompressedFormats).
using CompressedFormats = ::testing::Types<CsrFormat<>, CscFormat<>>;

// Both formats of every instance.
using CompressedInstances = EveryInstanceOf<CsrFormat, CscFormat>;

// The band of rank `rank` of a matrix of three rows (columns) and five columns (rows). The
// offsets of rank 0 start at 1.
template <typename Format>
typename Format::Piece BandOf(int rank, std::int64_t begin = 0) {
  auto piece = rank == 0 ? Format::Make(2, 5, {1, 3, 4}, {0, 2, 4}, {10, 20, 30})
                         : Format::Make(1, 5, {0, 2}, {1, 3}, {40, 50});
  Format::Place(piece, 3, 5, Format::Band(rank == 0 ? begin : begin + 2));
  return piece;
}

// Two rows (columns) whose offsets start at 1 on rank `holder`, an empty matrix elsewhere.
template <typename Format>
typename Format::Piece CompressedWholeOn(int holder, int rank) {
  return rank == holder ? Format::Make(2, 5, {1, 3, 4}, {0, 2, 4}, {10, 20, 30})
                        : Format::Make(0, 0, {}, {}, {});
}

}  // namespace Pavex
