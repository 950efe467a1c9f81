// Small local matrices over arrays of their own, for tests. The arrays come from the ordinary
// heap, so that the ledger of a pool shows only what the library takes.

#pragma once

#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"

#include <complex>
#include <cstdint>
#include <utility>
#include <vector>

namespace Pavex {

// The names that a test communicator gives to the element types.
template <typename E>
inline constexpr char const* kTypeName = nullptr;
template <>
inline constexpr char const* kTypeName<int> = "int";
template <>
inline constexpr char const* kTypeName<long> = "long";
template <>
inline constexpr char const* kTypeName<float> = "float";
template <>
inline constexpr char const* kTypeName<double> = "double";
template <>
inline constexpr char const* kTypeName<std::complex<float>> = "complex float";
template <>
inline constexpr char const* kTypeName<std::complex<double>> = "complex double";

// Whole numbers as elements of any value or index type.
template <typename E>
std::vector<E> Numbers(std::vector<int> const& numbers) {
  std::vector<E> elements;
  for (int const number : numbers)
    elements.push_back(static_cast<E>(static_cast<float>(number)));
  return elements;
}

// A sparse matrix and its three arrays. `first` and `second` are its index arrays in their
// order. Empty `values` give a pattern. Movable: the arrays stay where they are.
template <typename M, typename T, typename I>
struct SparsePiece {
  SparsePiece(std::int64_t rows, std::int64_t cols, std::vector<int> const& firstNumbers,
              std::vector<int> const& secondNumbers, std::vector<int> const& valueNumbers)
      : first(Numbers<I>(firstNumbers)),
        second(Numbers<I>(secondNumbers)),
        values(Numbers<T>(valueNumbers)) {
    matrix.mRows = matrix.mGlobalRows = rows;
    matrix.mCols = matrix.mGlobalCols = cols;
    if (!values.empty())
      matrix.mValues.Borrow(values.data(), static_cast<std::int64_t>(values.size()));
  }

  // Borrows the index arrays; an empty one stays a null array.
  void SetIndices(Buffer<I>& firstArray, Buffer<I>& secondArray) {
    if (!first.empty())
      firstArray.Borrow(first.data(), static_cast<std::int64_t>(first.size()));
    if (!second.empty())
      secondArray.Borrow(second.data(), static_cast<std::int64_t>(second.size()));
  }

  std::vector<I> first;
  std::vector<I> second;
  std::vector<T> values;
  M matrix;
};

// Rows and columns of the entries.
template <typename T = double, typename I = int>
struct CooPiece : SparsePiece<MatrixCOO<T, I>, T, I> {
  CooPiece(std::int64_t rows, std::int64_t cols, std::vector<int> const& rowIdx,
           std::vector<int> const& colIdx, std::vector<int> const& valueNumbers)
      : SparsePiece<MatrixCOO<T, I>, T, I>(rows, cols, rowIdx, colIdx, valueNumbers) {
    this->SetIndices(this->matrix.mRowIdx, this->matrix.mColIdx);
  }
};

// Row offsets and columns of the entries.
template <typename T = double, typename I = int>
struct CsrPiece : SparsePiece<MatrixCSR<T, I>, T, I> {
  CsrPiece(std::int64_t rows, std::int64_t cols, std::vector<int> const& rowPtr,
           std::vector<int> const& colIdx, std::vector<int> const& valueNumbers)
      : SparsePiece<MatrixCSR<T, I>, T, I>(rows, cols, rowPtr, colIdx, valueNumbers) {
    this->SetIndices(this->matrix.mRowPtr, this->matrix.mColIdx);
  }
};

// Column offsets and rows of the entries.
template <typename T = double, typename I = int>
struct CscPiece : SparsePiece<MatrixCSC<T, I>, T, I> {
  CscPiece(std::int64_t rows, std::int64_t cols, std::vector<int> const& colPtr,
           std::vector<int> const& rowIdx, std::vector<int> const& valueNumbers)
      : SparsePiece<MatrixCSC<T, I>, T, I>(rows, cols, colPtr, rowIdx, valueNumbers) {
    this->SetIndices(this->matrix.mColPtr, this->matrix.mRowIdx);
  }
};

}  // namespace Pavex
