// The common interface of the direct solvers.

#pragma once

#include "pavex/matrix/matrix_base.h"
#include "tools/choice/job_error.h"

#include <memory>
#include <string>

namespace Pavex::Tool {

// `count` columns of `rows` elements, `ld` apart.
template <typename T>
struct DenseView {
  T* mValues;
  long mRows;
  long mCount;
  long mLd;

  T* Column(long j) const { return mValues + j * mLd; }
};

// The LU factors of one gathered operator. Local; used by one thread. Throws JobError if the
// matrix is (numerically) singular or memory does not suffice.
template <typename T, typename I>
class SparseLu {
 public:
  virtual ~SparseLu() = default;

  // Example: "UMFPACK 5.7.9, umfpack_di".
  virtual std::string Name() const = 0;

  // Orders the unknowns for the pattern of `gathered`, a square sparse matrix with values.
  virtual void Analyse(MatrixBase const& gathered) = 0;

  // Computes the factors for the values of `gathered`, which has the analysed pattern.
  virtual void Factor(MatrixBase const& gathered) = 0;

  // Solves for each column of `b` into that of `x`, with iterative refinement. The arrays of
  // the matrix factored last must be as they were then.
  virtual void Solve(DenseView<T const> const& b, DenseView<T> const& x) = 0;

  // How the arrays of the matrix were read. Example: "csr in place, as the transpose".
  virtual std::string Reading() const = 0;
};

// Makes the solver: UMFPACK for double and complex double if the build has it, else that of
// Eigen.
template <typename T, typename I>
std::unique_ptr<SparseLu<T, I>> MakeSparseLu();

// Takes the memory that MakeSparseLu's solver needs before the matrix takes it. Throws
// JobError.
template <typename T, typename I>
void ReserveSparseLu();

// What `pavex --version` says about the solvers and the licence that follows from them.
std::string SolversAndLicence();

}  // namespace Pavex::Tool
