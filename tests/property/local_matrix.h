// Makes the matrix objects of the library from a random round.

#pragma once

#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"
#include "tests/property/round.h"

#include <complex>
#include <memory>
#include <vector>

namespace Pavex {

// An element made of a whole number. Exact up to 2^24.
template <typename T>
struct ElementOf {
  static T From(long number) { return static_cast<T>(number); }
};
template <typename R>
struct ElementOf<std::complex<R>> {
  static std::complex<R> From(long number) {
    return {static_cast<R>(number), static_cast<R>(-number - 1)};
  }
};

// Element `number` in version `version` of the values.
template <typename T>
T ValueOf(long version, long number) {
  return ElementOf<T>::From(version * 10000 + number);
}

// The value of the array elements between the runs and after the entries.
template <typename T>
T Filler() {
  return ElementOf<T>::From(-77);
}

// The arrays of a matrix of any class. COO: row and column indices; compressed: offsets and
// indices; dense: values only.
template <typename T, typename I>
struct ArraysOf {
  ArraysOf(Format format, MatrixBase const& matrix) {
    switch (format) {
      case Format::DENSE_ROW:
      case Format::DENSE_COL: {
        auto const& dense = dynamic_cast<MatrixDense<T, I> const&>(matrix);
        values = &dense.mValues;
        rowMajor = dense.mRowMajor;
        ld = dense.mLd;
        break;
      }
      case Format::COO: {
        auto const& coo = dynamic_cast<MatrixCOO<T, I> const&>(matrix);
        Set(coo.mRowIdx, coo.mColIdx, coo.mValues, coo.mPart);
        break;
      }
      case Format::CSR: {
        auto const& csr = dynamic_cast<MatrixCSR<T, I> const&>(matrix);
        Set(csr.mRowPtr, csr.mColIdx, csr.mValues, csr.mPart);
        break;
      }
      case Format::CSC: {
        auto const& csc = dynamic_cast<MatrixCSC<T, I> const&>(matrix);
        Set(csc.mColPtr, csc.mRowIdx, csc.mValues, csc.mPart);
        break;
      }
    }
  }

  void Set(Buffer<I> const& a, Buffer<I> const& b, Buffer<T> const& v, int p) {
    first = &a;
    second = &b;
    values = &v;
    part = p;
  }

  Buffer<I> const* first = nullptr;
  Buffer<I> const* second = nullptr;
  Buffer<T> const* values = nullptr;
  int part = 0;
  bool rowMajor = false;
  long ld = 0;
};

// A rank's local matrix for one phase. The arrays are exactly as long as they must be, so that
// a sanitizer sees every access beyond them.
template <typename T, typename I>
class LocalMatrix {
 public:
  LocalMatrix(Round const& round, int rank, Phase phase, bool withValues, long version)
      : mRound(round), mPiece(round.PieceOf(rank)), mPhase(phase) {
    FillArrays(withValues, version);
    mMatrix = Build();
    mMatrix->mRows = mPiece.rows;
    mMatrix->mCols = mPiece.cols;
    mMatrix->mPattern = mPiece.pattern;
    mMatrix->mAttribute = mPiece.attribute;
    mMatrix->PlaceIn(mPiece.globalRows, mPiece.globalCols, {mPiece.partition, mPiece.begin});
  }

  MatrixBase& Matrix() { return *mMatrix; }
  std::vector<T> const& Values() const { return mValues; }
  ArraysOf<T, I> Arrays() const { return {mRound.format, *mMatrix}; }

  // The position in the value array of element k of a dense piece, counted run by run.
  std::size_t DenseIndex(long k) const {
    long const length = mPiece.RunLength();
    return static_cast<std::size_t>(k / length * mPiece.Ld(mPhase) + k % length);
  }

 private:
  void FillArrays(bool withValues, long version) {
    auto const entries = static_cast<long>(mPiece.entries.size());
    long needed = entries;
    if (mRound.IsDense() && entries != 0)
      needed = static_cast<long>(DenseIndex(entries - 1)) + 1;
    if (withValues)
      mValues.assign(static_cast<std::size_t>(needed + mPiece.spare), Filler<T>());
    for (long k = 0; withValues && k < entries; ++k) {
      std::size_t const at = mRound.IsDense() ? DenseIndex(k) : static_cast<std::size_t>(k);
      mValues[at] = ValueOf<T>(version, mPiece.entries[static_cast<std::size_t>(k)].number);
    }
    if (mRound.format == Format::COO) FillCoordinates();
    if (mRound.IsCompressed()) FillCompressed();
  }

  void FillCoordinates() {
    for (Entry const& entry : mPiece.entries) {
      mFirst.push_back(static_cast<I>(entry.row + mRound.indexBase));
      mSecond.push_back(static_cast<I>(entry.col + mRound.indexBase));
    }
    mSecond.resize(mSecond.size() + static_cast<std::size_t>(mPiece.spare), I{-77});
  }

  void FillCompressed() {
    long const count = mRound.CompressedCount(mPiece.rows, mPiece.cols);
    std::vector<long> lengths(static_cast<std::size_t>(count), 0);
    for (Entry const& entry : mPiece.entries) {
      ++lengths[static_cast<std::size_t>(mRound.Compressed(entry) - mPiece.firstCompressed)];
      long const other = mRound.format == Format::CSR ? entry.col : entry.row;
      mSecond.push_back(static_cast<I>(other + mRound.indexBase));
    }
    mSecond.resize(mSecond.size() + static_cast<std::size_t>(mPiece.spare), I{-77});
    if (!mPiece.hasOffsets) return;
    long offset = mPiece.offsetBase;
    mFirst.push_back(static_cast<I>(offset));
    for (long const length : lengths)
      mFirst.push_back(static_cast<I>(offset += length));
  }

  std::unique_ptr<MatrixBase> Build() {
    switch (mRound.format) {
      case Format::DENSE_ROW:
      case Format::DENSE_COL: {
        auto dense = std::make_unique<MatrixDense<T, I>>();
        dense->mRowMajor = mPiece.rowMajor;
        dense->mLd = mPiece.Ld(mPhase);
        View(mValues, dense->mValues);
        return dense;
      }
      case Format::COO: {
        auto coo = std::make_unique<MatrixCOO<T, I>>();
        SetArrays(coo->mRowIdx, coo->mColIdx, coo->mValues, coo->mPart);
        return coo;
      }
      case Format::CSR: {
        auto csr = std::make_unique<MatrixCSR<T, I>>();
        SetArrays(csr->mRowPtr, csr->mColIdx, csr->mValues, csr->mPart);
        return csr;
      }
      case Format::CSC:
        break;
    }
    auto csc = std::make_unique<MatrixCSC<T, I>>();
    SetArrays(csc->mColPtr, csc->mRowIdx, csc->mValues, csc->mPart);
    return csc;
  }

  void SetArrays(Buffer<I>& first, Buffer<I>& second, Buffer<T>& values, std::int32_t& part) {
    View(mFirst, first);
    View(mSecond, second);
    View(mValues, values);
    part = mPiece.part;
  }

  template <typename E>
  static void View(std::vector<E>& elements, Buffer<E>& buffer) {
    buffer.Borrow(elements.data(), static_cast<std::int64_t>(elements.size()));
  }

  Round const& mRound;
  Piece const& mPiece;
  Phase mPhase;
  std::vector<I> mFirst;
  std::vector<I> mSecond;
  std::vector<T> mValues;
  std::unique_ptr<MatrixBase> mMatrix;
};

}  // namespace Pavex
