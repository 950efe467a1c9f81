// PETSc matrices whose rows lie on some of the processes, for tests.

#pragma once

#include "pavex/interop/petsc.h"

#include <gtest/gtest.h>
#include <initializer_list>
#include <vector>

namespace Pavex {

// The number of processes of the job, and this one's.
struct Job {
  Job() {
    MPI_Comm_size(PETSC_COMM_WORLD, &size);
    MPI_Comm_rank(PETSC_COMM_WORLD, &rank);
  }
  int size = 0;
  int rank = 0;
};

// Nine ways to leave processes without rows. Process p has 2 (p + 1) rows or none.
constexpr int kLayouts = 9;
inline PetscInt RowsOf(int layout, int rank, int size) {
  bool const owns[kLayouts] = {true,          rank != 0,        rank != size - 1,
                               rank == 0,     rank == size - 1, rank % 2 == 0,
                               rank % 2 == 1, rank == size / 2, false};
  return owns[layout] ? 2 * (rank + 1) : 0;
}

inline PetscScalar Number(PetscInt row, PetscInt col, int step) {
  PetscReal const real = static_cast<PetscReal>(1 + 100 * step + 10 * row + col);
#ifdef PETSC_USE_COMPLEX
  return PetscScalar(real, static_cast<PetscReal>(row - col));
#else
  return real;
#endif
}

// Rows 1, 5, 9 ... are empty.
inline bool HasEntry(PetscInt row, PetscInt col) {
  return row % 4 != 1 && (row == col || (row + 2 * col) % 5 == 0);
}

// A Mat that is destroyed with this object. Collective.
class TestMat {
 public:
  // `localRows` rows of this process, of type `type`; `extraCols` more columns than rows. Rows
  // with a number below `emptyBelow` have no entries. Not assembled before the first Fill.
  TestMat(MatType type, PetscInt localRows, PetscInt extraCols = 0, PetscInt emptyBelow = 0,
          MPI_Comm comm = PETSC_COMM_WORLD)
      : mEmptyBelow(emptyBelow) {
    PetscInt rows = localRows;
    MPI_Allreduce(MPI_IN_PLACE, &rows, 1, MPIU_INT, MPI_SUM, comm);
    EXPECT_EQ(MatCreate(comm, &mMat), 0);
    if (extraCols == 0)
      EXPECT_EQ(MatSetSizes(mMat, localRows, localRows, PETSC_DETERMINE, PETSC_DETERMINE), 0);
    else
      EXPECT_EQ(MatSetSizes(mMat, localRows, PETSC_DECIDE, PETSC_DETERMINE, rows + extraCols),
                0);
    EXPECT_EQ(MatSetType(mMat, type), 0);
    PetscBool blocked = PETSC_FALSE;
    EXPECT_EQ(PetscObjectTypeCompareAny(reinterpret_cast<PetscObject>(mMat), &blocked,
                                        MATSEQBAIJ, MATMPIBAIJ, ""),
              0);
    EXPECT_EQ(MatSetBlockSize(mMat, blocked == PETSC_TRUE ? 2 : 1), 0);
    EXPECT_EQ(MatSetUp(mMat), 0);
    EXPECT_EQ(MatSetOption(mMat, MAT_NEW_NONZERO_ALLOCATION_ERR, PETSC_FALSE), 0);
  }
  TestMat(TestMat const&) = delete;
  TestMat& operator=(TestMat const&) = delete;
  ~TestMat() { EXPECT_EQ(MatDestroy(&mMat), 0); }

  Mat Get() const { return mMat; }

  // Sets the values of `step` and assembles.
  void Fill(int step) {
    PetscInt begin = 0;
    PetscInt end = 0;
    PetscInt cols = 0;
    EXPECT_EQ(MatGetOwnershipRange(mMat, &begin, &end), 0);
    EXPECT_EQ(MatGetSize(mMat, nullptr, &cols), 0);
    for (PetscInt row = begin; row < end; ++row) {
      for (PetscInt col = 0; col < cols; ++col) {
        if (row < mEmptyBelow || !HasEntry(row, col)) continue;
        EXPECT_EQ(MatSetValue(mMat, row, col, Number(row, col, step), INSERT_VALUES), 0);
      }
    }
    Assemble();
  }

  void Assemble() {
    EXPECT_EQ(MatAssemblyBegin(mMat, MAT_FINAL_ASSEMBLY), 0);
    EXPECT_EQ(MatAssemblyEnd(mMat, MAT_FINAL_ASSEMBLY), 0);
  }

 private:
  Mat mMat = nullptr;
  PetscInt mEmptyBelow;
};

// Compressed rows.
struct RowArrays {
  std::vector<PetscInt> ptr{0};
  std::vector<PetscInt> idx;
  std::vector<PetscScalar> values;
};

// This process's rows as MatGetRow returns them.
inline RowArrays RowsByMatGetRow(Mat mat) {
  RowArrays rows;
  PetscInt begin = 0;
  PetscInt end = 0;
  EXPECT_EQ(MatGetOwnershipRange(mat, &begin, &end), 0);
  for (PetscInt row = begin; row < end; ++row) {
    PetscInt count = 0;
    PetscInt const* idx = nullptr;
    PetscScalar const* values = nullptr;
    EXPECT_EQ(MatGetRow(mat, row, &count, &idx, &values), 0);
    rows.idx.insert(rows.idx.end(), idx, idx + count);
    rows.values.insert(rows.values.end(), values, values + count);
    rows.ptr.push_back(static_cast<PetscInt>(rows.idx.size()));
    EXPECT_EQ(MatRestoreRow(mat, row, &count, &idx, &values), 0);
  }
  return rows;
}

// A process that has rows without any entry sends one zero.
inline void AddZero(RowArrays& rows) {
  if (rows.ptr.size() == 1 || !rows.idx.empty()) return;
  rows.idx.push_back(0);
  rows.values.push_back(0.0);
  rows.ptr.back() = 1;
}

// All elements of `own` by rank, on every process.
template <typename E>
std::vector<E> OfAllProcesses(std::vector<E> const& own) {
  Job const job;
  auto const bytes = static_cast<int>(own.size() * sizeof(E));
  std::vector<int> counts(static_cast<std::size_t>(job.size));
  MPI_Allgather(&bytes, 1, MPI_INT, counts.data(), 1, MPI_INT, PETSC_COMM_WORLD);
  std::vector<int> displs{0};
  for (int const count : counts)
    displs.push_back(displs.back() + count);
  std::vector<E> all(static_cast<std::size_t>(displs.back()) / sizeof(E));
  MPI_Allgatherv(own.data(), bytes, MPI_BYTE, all.data(), counts.data(), displs.data(),
                 MPI_BYTE, PETSC_COMM_WORLD);
  return all;
}

// The rows of all processes as one matrix, on every process.
inline RowArrays OfAllProcesses(RowArrays const& own) {
  std::vector<PetscInt> lengths;
  for (std::size_t i = 0; i + 1 < own.ptr.size(); ++i)
    lengths.push_back(own.ptr[i + 1] - own.ptr[i]);
  RowArrays all;
  for (PetscInt const length : OfAllProcesses(lengths))
    all.ptr.push_back(all.ptr.back() + length);
  all.idx = OfAllProcesses(own.idx);
  all.values = OfAllProcesses(own.values);
  return all;
}

// The arrays of a matrix.
inline RowArrays ArraysOf(PetscCsr const& matrix) {
  RowArrays rows;
  rows.ptr.assign(matrix.mRowPtr.mData, matrix.mRowPtr.mData + matrix.mRows + 1);
  rows.idx.assign(matrix.mColIdx.mData, matrix.mColIdx.mData + matrix.NNZ());
  rows.values.assign(matrix.mValues.mData, matrix.mValues.mData + matrix.NNZ());
  return rows;
}

inline void ExpectEqual(RowArrays const& actual, RowArrays const& expected) {
  EXPECT_EQ(actual.ptr, expected.ptr);
  EXPECT_EQ(actual.idx, expected.idx);
  EXPECT_EQ(actual.values, expected.values);
}

}  // namespace Pavex
