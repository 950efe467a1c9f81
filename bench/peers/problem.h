// What all contestants work on: the 7-point operator of a cubic grid, in PETSc and in hypre.

#pragma once

#include <HYPRE.h>
#include <HYPRE_IJ_mv.h>
#include <_hypre_parcsr_mv.h>
#include <cstdio>
#include <memory>
#include <petscksp.h>
#include <vector>

namespace Peers {

// Ends the job if a call of PETSc, hypre or Pavex has failed.
inline void Check(int code, char const* call) {
  if (code == 0) return;
  std::fprintf(stderr, "%s failed with %d\n", call, code);
  MPI_Abort(MPI_COMM_WORLD, 1);
}
#define PEERS_CHECK(call) ::Peers::Check((call), #call)

// The operator on n * n * n points.
struct Grid {
  int n;

  int Rows() const { return n * n * n; }

  // The columns of a row, ascending.
  std::vector<int> Columns(int row) const {
    int const x = row % n;
    int const y = row / n % n;
    int const z = row / (n * n);
    std::vector<int> columns;
    if (z > 0) columns.push_back(row - n * n);
    if (y > 0) columns.push_back(row - n);
    if (x > 0) columns.push_back(row - 1);
    columns.push_back(row);
    if (x < n - 1) columns.push_back(row + 1);
    if (y < n - 1) columns.push_back(row + n);
    if (z < n - 1) columns.push_back(row + n * n);
    return columns;
  }

  static double Value(int row, int col) {
    return row == col ? 6.5 + row % 5 : -1 - 0.125 * (col % 3);
  }

  // Whether the arrays hold the whole operator, all values multiplied by `scale`. The columns
  // of a row may have any order.
  bool IsWhole(long rows, int const* ptr, int const* idx, double const* values,
               double scale) const {
    if (rows != Rows()) return false;
    for (int row = 0; row < rows; ++row) {
      std::vector<int> const columns = Columns(row);
      if (ptr[row + 1] - ptr[row] != static_cast<int>(columns.size())) return false;
      long expected = 0;
      long found = 0;
      for (int const column : columns)
        expected += long{column} * column;
      for (int k = ptr[row]; k < ptr[row + 1]; ++k) {
        if (values[k] != scale * Value(row, idx[k])) return false;
        found += long{idx[k]} * idx[k];
      }
      if (found != expected) return false;
    }
    return true;
  }
};

// The distributed operator and vectors. Construction, destruction and NextValues are
// collective.
class Problem {
 public:
  explicit Problem(int n) : mGrid{n} {
    MPI_Comm_rank(MPI_COMM_WORLD, &mRank);
    MPI_Comm_size(MPI_COMM_WORLD, &mSize);
    int const rows = mGrid.Rows();
    MakePetsc(rows);
    MakeHypre();
  }
  Problem(Problem const&) = delete;
  Problem& operator=(Problem const&) = delete;
  ~Problem() {
    PEERS_CHECK(MatDestroy(&mMat));
    PEERS_CHECK(VecDestroy(&mX));
    PEERS_CHECK(VecDestroy(&mY));
    HYPRE_IJMatrixDestroy(mHypre);
  }

  // Another time step: all values are twice as large as before, or half as large.
  void NextValues() {
    double const factor = mScale == 1 ? 2 : 0.5;
    mScale *= factor;
    PEERS_CHECK(MatScale(mMat, factor));
    PEERS_CHECK(VecScale(mX, factor));
    ScaleBlock(hypre_ParCSRMatrixDiag(ParCsr()), factor);
    ScaleBlock(hypre_ParCSRMatrixOffd(ParCsr()), factor);
  }

  HYPRE_ParCSRMatrix ParCsr() const {
    void* object = nullptr;
    HYPRE_IJMatrixGetObject(mHypre, &object);
    return static_cast<HYPRE_ParCSRMatrix>(object);
  }

  Grid const mGrid;
  int mRank = 0;
  int mSize = 0;
  double mScale = 1;
  Mat mMat = nullptr;
  Vec mX = nullptr;  // its row i is mScale * (1 + i)
  Vec mY = nullptr;

 private:
  static void ScaleBlock(hypre_CSRMatrix* block, double factor) {
    for (HYPRE_Int k = 0; k < hypre_CSRMatrixNumNonzeros(block); ++k)
      hypre_CSRMatrixData(block)[k] *= factor;
  }

  void MakePetsc(int rows) {
    PEERS_CHECK(MatCreateAIJ(MPI_COMM_WORLD, PETSC_DECIDE, PETSC_DECIDE, rows, rows, 7, nullptr,
                             6, nullptr, &mMat));
    PEERS_CHECK(MatGetOwnershipRange(mMat, &mBegin, &mEnd));
    PEERS_CHECK(MatCreateVecs(mMat, &mX, &mY));
    for (int row = mBegin; row < mEnd; ++row) {
      std::vector<int> const columns = mGrid.Columns(row);
      std::vector<double> const values = ValuesOf(row, columns);
      PEERS_CHECK(MatSetValues(mMat, 1, &row, static_cast<int>(columns.size()), columns.data(),
                               values.data(), INSERT_VALUES));
      PEERS_CHECK(VecSetValue(mX, row, 1.0 + row, INSERT_VALUES));
    }
    PEERS_CHECK(MatAssemblyBegin(mMat, MAT_FINAL_ASSEMBLY));
    PEERS_CHECK(MatAssemblyEnd(mMat, MAT_FINAL_ASSEMBLY));
    PEERS_CHECK(VecAssemblyBegin(mX));
    PEERS_CHECK(VecAssemblyEnd(mX));
  }

  void MakeHypre() {
    HYPRE_IJMatrixCreate(MPI_COMM_WORLD, mBegin, mEnd - 1, mBegin, mEnd - 1, &mHypre);
    HYPRE_IJMatrixSetObjectType(mHypre, HYPRE_PARCSR);
    HYPRE_IJMatrixInitialize(mHypre);
    for (int row = mBegin; row < mEnd; ++row) {
      std::vector<int> const columns = mGrid.Columns(row);
      std::vector<double> const values = ValuesOf(row, columns);
      int count = static_cast<int>(columns.size());
      HYPRE_IJMatrixSetValues(mHypre, 1, &count, &row, columns.data(), values.data());
    }
    HYPRE_IJMatrixAssemble(mHypre);
  }

  static std::vector<double> ValuesOf(int row, std::vector<int> const& columns) {
    std::vector<double> values;
    values.reserve(columns.size());
    for (int const column : columns)
      values.push_back(Grid::Value(row, column));
    return values;
  }

  int mBegin = 0;
  int mEnd = 0;
  HYPRE_IJMatrix mHypre = nullptr;
};

// One way to do a piece of work. All functions are collective.
class Contestant {
 public:
  Contestant() = default;
  Contestant(Contestant const&) = delete;
  Contestant& operator=(Contestant const&) = delete;
  virtual ~Contestant() = default;

  // The work for the first time, and again after Problem::NextValues.
  virtual void First() = 0;
  virtual void Again() = 0;

  // Whether what this process has is right for the present values; not timed.
  virtual bool IsRight() = 0;
};

using Maker = std::unique_ptr<Contestant> (*)(Problem& problem);

}  // namespace Peers
