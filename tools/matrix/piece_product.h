// Products with an operator that is cut into pieces, one on each rank.

#pragma once

#include "tools/choice/options.h"
#include "tools/matrix/elements.h"
#include "tools/ranks/collect.h"

#include <cmath>
#include <complex>
#include <string>
#include <type_traits>
#include <vector>

namespace Pavex::Tool {

template <typename T>
constexpr bool kIsComplex = !std::is_floating_point_v<T>;

// The type in which products are added up.
template <typename T>
using Wide = std::conditional_t<kIsComplex<T>, std::complex<double>, double>;

// Row sums over all rows of the operator A, for each column of x: A x, |A| |x|, and, for the
// rows alone, |A| 1. Each array is `rows` long per column.
template <typename T>
struct RowSums {
  RowSums(long rows, long count)
      : mRows(rows),
        mProduct(static_cast<std::size_t>(rows * count)),
        mAbsolute(static_cast<std::size_t>(rows * count)),
        mNorm(static_cast<std::size_t>(rows)) {}

  long mRows;
  std::vector<Wide<T>> mProduct;
  std::vector<double> mAbsolute;
  std::vector<double> mNorm;

  std::size_t At(long row, long column) const {
    return DenseLayout{false, mRows}.At(row, column);
  }
};

// Adds what the entries of `piece` contribute; xAt(row, column) is an element of x.
template <typename T, typename I, typename XAt>
void AddProduct(MatrixBase const& piece, long count, XAt const& xAt, RowSums<T>& sums) {
  Elements<T, I> const elements(piece);
  ForEachElement(elements, [&](long row, long col, std::size_t k) {
    Wide<T> const value(elements.mValues[k]);
    sums.mNorm[static_cast<std::size_t>(row)] += std::abs(value);
    for (long column = 0; column < count; ++column) {
      Wide<T> const x = xAt(col, column);
      std::size_t const at = sums.At(row, column);
      sums.mProduct[at] += value * x;
      sums.mAbsolute[at] += std::abs(value) * std::abs(x);
    }
  });
}

template <typename W>
void SumOverRanks(Comm const& comm, std::vector<W>& values) {
  constexpr Datatype kType = kIsComplex<W> ? DATATYPE_COMPLEX_DOUBLE : DATATYPE_DOUBLE;
  std::vector<W> sum(values.size());
  Require(comm.Allreduce(values.data(), sum.data(), static_cast<int>(values.size()), kType,
                         REDUCE_SUM),
          "the sum of the ranks' products", comm);
  values.swap(sum);
}

// Completes the row sums if several pieces contribute to a row. With any other cut, the sums of
// a row are already complete on the rank with its part of the right-hand side. Collective.
template <typename T>
void Complete(Comm const& comm, Partition partition, RowSums<T>& sums) {
  if (partition != Partition::COLUMNS && partition != Partition::ENTRIES) return;
  SumOverRanks(comm, sums.mProduct);
  SumOverRanks(comm, sums.mAbsolute);
  SumOverRanks(comm, sums.mNorm);
}

}  // namespace Pavex::Tool
