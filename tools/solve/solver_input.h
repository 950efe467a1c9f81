// A gathered operator in the form that the solvers take: compressed columns with offsets from
// 0, ascending rows and no duplicates.

#pragma once

#include "tools/matrix/elements.h"

#include <Eigen/SparseCore>
#include <string>
#include <vector>

namespace Pavex::Tool {

// Refers to the arrays of the gathered matrix if they have that form already. Arrays of
// compressed rows have it too, as the columns of the transpose. Everything else is converted:
// coordinates, duplicates (which are added up), and entries out of order.
template <typename T, typename I>
class SolverInput {
 public:
  using Columns = Eigen::Map<Eigen::SparseMatrix<T, Eigen::ColMajor, I> const>;

  // `gathered` is square, sparse and has values; it must outlive the use of this object.
  void Read(MatrixBase const& gathered);

  // Valid until the gathered matrix changes.
  Columns View() const;

  // View() is the transpose of the operator.
  bool IsTransposed() const { return mIsTransposed; }

  // Example: "csr in place, as the transpose".
  std::string Description() const;

 private:
  static bool IsCanonical(PavexMatrixStore const& store);
  void Convert(MatrixBase const& gathered);

  PavexMatrixStore mStore = {};
  bool mIsTransposed = false;
  bool mIsInPlace = false;
  Eigen::SparseMatrix<T, Eigen::ColMajor, I> mConverted;
};

template <typename T, typename I>
void SolverInput<T, I>::Read(MatrixBase const& gathered) {
  gathered.Query(mStore);
  mIsInPlace = mStore.type != STORE_COO_0 && IsCanonical(mStore);
  mIsTransposed = mIsInPlace && mStore.type == STORE_CSR_0;
  if (!mIsInPlace) Convert(gathered);
}

template <typename T, typename I>
typename SolverInput<T, I>::Columns SolverInput<T, I>::View() const {
  if (!mIsInPlace)
    return Columns(mConverted.rows(), mConverted.cols(), mConverted.nonZeros(),
                   mConverted.outerIndexPtr(), mConverted.innerIndexPtr(),
                   mConverted.valuePtr());
  auto const* const offsets = static_cast<I const*>(mStore.csc.ptr);
  return Columns(mStore.rows, mStore.cols, offsets[mStore.cols], offsets,
                 static_cast<I const*>(mStore.csc.idx),
                 static_cast<T const*>(mStore.csc.values));
}

template <typename T, typename I>
std::string SolverInput<T, I>::Description() const {
  if (mIsInPlace) return mIsTransposed ? "csr in place, as the transpose" : "csc in place";
  std::string const format = mStore.type == STORE_COO_0   ? "coo"
                             : mStore.type == STORE_CSR_0 ? "csr"
                                                          : "csc";
  return format + " copied into sorted columns, duplicates summed";
}

template <typename T, typename I>
bool SolverInput<T, I>::IsCanonical(PavexMatrixStore const& store) {
  auto const* const offsets = static_cast<I const*>(store.csc.ptr);
  auto const* const others = static_cast<I const*>(store.csc.idx);
  if (offsets == nullptr || offsets[0] != 0) return false;
  for (long i = 0; i < store.cols; ++i)
    for (I k = offsets[i] + 1; k < offsets[i + 1]; ++k)
      if (others[k - 1] >= others[k]) return false;
  return true;
}

template <typename T, typename I>
void SolverInput<T, I>::Convert(MatrixBase const& gathered) {
  Elements<T, I> const elements(gathered);
  std::vector<Eigen::Triplet<T, I>> entries;
  entries.reserve(static_cast<std::size_t>(gathered.NNZ()));
  ForEachElement(elements, [&](long row, long col, std::size_t k) {
    entries.emplace_back(static_cast<I>(row), static_cast<I>(col), elements.mValues[k]);
  });
  mConverted.resize(gathered.mRows, gathered.mCols);
  mConverted.setFromTriplets(entries.begin(), entries.end());
}

}  // namespace Pavex::Tool
