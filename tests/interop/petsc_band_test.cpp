// The rows of a PETSc vector or dense matrix as a piece, on every process of an MPI job.

#include "pavex/aggregator/aggregator.h"
#include "pavex/comm/mpi_comm.h"
#include "tests/interop/petsc_matrix.h"
#include "tests/support/capture.h"

#include <algorithm>
#include <memory>
#include <petsc/private/petscimpl.h>
#include <string>

namespace Pavex {
namespace {

using PetscAggregator = Aggregator<PetscScalar, PetscInt>;

// A Vec of which the process has so many rows, numbered from `step`.
Vec MakeVec(PetscInt rows, int step) {
  Vec vec = nullptr;
  EXPECT_EQ(VecCreateMPI(PETSC_COMM_WORLD, rows, PETSC_DETERMINE, &vec), 0);
  PetscInt begin = 0;
  EXPECT_EQ(VecGetOwnershipRange(vec, &begin, nullptr), 0);
  for (PetscInt i = 0; i < rows; ++i)
    EXPECT_EQ(VecSetValue(vec, begin + i, Number(begin + i, 0, step), INSERT_VALUES), 0);
  EXPECT_EQ(VecAssemblyBegin(vec), 0);
  EXPECT_EQ(VecAssemblyEnd(vec), 0);
  return vec;
}

template <typename Object>
PetscObjectState StateOf(Object object) {
  PetscObjectState state = 0;
  EXPECT_EQ(PetscObjectStateGet(reinterpret_cast<PetscObject>(object), &state), 0);
  return state;
}

class PetscBandIn : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Layouts, PetscBandIn, testing::Range(0, kLayouts));

// Gathers the vector, scatters twice the whole into another one.
TEST_P(PetscBandIn, GoesToTheFirstOwnerAndBack) {
  Job const job;
  Vec from = MakeVec(RowsOf(GetParam(), job.rank, job.size), 1);
  Vec to = nullptr;
  ASSERT_EQ(VecDuplicate(from, &to), 0);
  PetscInt const* ranges = nullptr;
  ASSERT_EQ(VecGetOwnershipRanges(from, &ranges), 0);
  PetscOwners owners;
  ASSERT_EQ(owners.Find(PETSC_COMM_WORLD, ranges), STATUS_OK);
  MemoryPool pool;
  PetscAggregator aggregator(&pool);
  if (owners.Get() != MPI_COMM_NULL) {
    PetscBand band;
    ASSERT_EQ(band.Borrow(from, PetscAccess::READ), STATUS_OK);

    ASSERT_EQ(aggregator.Gather(std::make_shared<MpiComm>(owners.Get()), band.Piece(), true),
              STATUS_OK);

    std::vector<PetscScalar> twice;
    ASSERT_EQ(aggregator.Target() != nullptr, job.rank == owners.First());
    if (aggregator.Target() != nullptr) {
      auto const& whole = *aggregator.TargetAs<PetscDense>();
      for (PetscInt i = 0; i < whole.mRows; ++i) {
        EXPECT_EQ(whole.mValues.mData[i], Number(i, 0, 1));
        twice.push_back(2.0 * Number(i, 0, 1));
      }
    }
    ASSERT_EQ(band.Borrow(to, PetscAccess::WRITE), STATUS_OK);
    ASSERT_EQ(aggregator.Scatter(band.Piece(), twice.data()), STATUS_OK);
  }
  PetscReal difference = 1;
  ASSERT_EQ(VecAXPY(to, -2.0, from), 0);
  ASSERT_EQ(VecNorm(to, NORM_INFINITY, &difference), 0);
  EXPECT_EQ(difference, 0);
  ASSERT_EQ(VecDestroy(&from), 0);
  ASSERT_EQ(VecDestroy(&to), 0);
}

// PETSc compares these numbers to know what it has computed before, such as a norm. Processes
// that see different ones no longer make the same calls.
TEST(PetscBandOfNoRows, LeavesTheStateOfWhatIsReadOnEveryProcess) {
  Job const job;
  PetscInt const rows = job.rank == job.size - 1 ? 0 : 3;
  Vec vec = MakeVec(rows, 1);
  Mat mat = nullptr;
  ASSERT_EQ(
      MatCreateDense(PETSC_COMM_WORLD, rows, PETSC_DECIDE, PETSC_DETERMINE, 2, nullptr, &mat),
      0);
  ASSERT_EQ(MatAssemblyBegin(mat, MAT_FINAL_ASSEMBLY), 0);
  ASSERT_EQ(MatAssemblyEnd(mat, MAT_FINAL_ASSEMBLY), 0);
  PetscObjectState const ofVec = StateOf(vec);
  PetscObjectState const ofMat = StateOf(mat);
  PetscBand band;

  ASSERT_EQ(band.Borrow(vec, PetscAccess::READ), STATUS_OK);
  ASSERT_EQ(band.Return(), STATUS_OK);
  ASSERT_EQ(band.Borrow(mat, PetscAccess::READ), STATUS_OK);
  ASSERT_EQ(band.Return(), STATUS_OK);

  EXPECT_EQ(StateOf(vec), ofVec);
  EXPECT_EQ(StateOf(mat), ofMat);

  ASSERT_EQ(band.Borrow(vec, PetscAccess::WRITE), STATUS_OK);
  ASSERT_EQ(band.Return(), STATUS_OK);
  EXPECT_GT(StateOf(vec), ofVec);
  ASSERT_EQ(VecDestroy(&vec), 0);
  ASSERT_EQ(MatDestroy(&mat), 0);
}

// So the Mat can update what was gathered from a Vec, also where the gathered matrix borrows.
TEST(PetscBandOfADenseMat, HasNoGapsIfItHasOneColumn) {
  Job const job;
  std::vector<PetscScalar> array(7);
  Mat mat = nullptr;
  ASSERT_EQ(
      MatCreateDense(PETSC_COMM_WORLD, 4, PETSC_DECIDE, PETSC_DETERMINE, 1, array.data(), &mat),
      0);
  ASSERT_EQ(MatDenseSetLDA(mat, 7), 0);
  PetscBand band;

  ASSERT_EQ(band.Borrow(mat, PetscAccess::READ), STATUS_OK);

  EXPECT_EQ(band.Piece().mLd, 4);
  EXPECT_EQ(band.Piece().mValues.mSize, 4);
  EXPECT_EQ(band.Piece().mValues.mData, array.data());
  ASSERT_EQ(band.Return(), STATUS_OK);
  ASSERT_EQ(MatDestroy(&mat), 0);
}

TEST(PetscBandOfADenseMat, UsesItsArrayAndItsLeadingDimension) {
  Job const job;
  PetscInt const rows = job.rank + 2;
  PetscInt const ld = rows + 3;
  std::vector<PetscScalar> array(static_cast<std::size_t>(ld) * 2, -1.0);
  Mat mat = nullptr;
  ASSERT_EQ(MatCreate(PETSC_COMM_WORLD, &mat), 0);
  ASSERT_EQ(MatSetSizes(mat, rows, PETSC_DECIDE, PETSC_DETERMINE, 2), 0);
  ASSERT_EQ(MatSetType(mat, MATDENSE), 0);
  ASSERT_EQ(MatDenseSetLDA(mat, ld), 0);
  ASSERT_EQ(MatSeqDenseSetPreallocation(mat, array.data()), 0);
  ASSERT_EQ(MatMPIDenseSetPreallocation(mat, array.data()), 0);
  PetscInt begin = 0;
  ASSERT_EQ(MatGetOwnershipRange(mat, &begin, nullptr), 0);
  for (PetscInt i = 0; i < rows; ++i)
    for (PetscInt j = 0; j < 2; ++j)
      ASSERT_EQ(MatSetValue(mat, begin + i, j, Number(begin + i, j, 0), INSERT_VALUES), 0);
  ASSERT_EQ(MatAssemblyBegin(mat, MAT_FINAL_ASSEMBLY), 0);
  ASSERT_EQ(MatAssemblyEnd(mat, MAT_FINAL_ASSEMBLY), 0);
  MemoryPool pool;
  PetscAggregator aggregator(&pool);
  auto const comm = std::make_shared<MpiComm>(PETSC_COMM_WORLD);
  {
    PetscBand band;
    ASSERT_EQ(band.Borrow(mat, PetscAccess::READ), STATUS_OK);
    EXPECT_EQ(band.Piece().mValues.mData, array.data());
    EXPECT_EQ(band.Piece().mLd, ld);
    ASSERT_EQ(aggregator.Gather(comm, band.Piece(), true), STATUS_OK);
  }
  if (aggregator.Target() != nullptr) {
    auto& whole = *aggregator.TargetAs<PetscDense>();
    for (PetscInt i = 0; i < whole.mRows; ++i)
      for (PetscInt j = 0; j < 2; ++j)
        EXPECT_EQ(whole.mValues.mData[i + j * whole.mLd], Number(i, j, 0));
  }
  std::vector<PetscScalar> other(
      aggregator.Target() == nullptr ? 0 : static_cast<std::size_t>(job.size) * 100, 7.0);

  PetscBand band;
  ASSERT_EQ(band.Borrow(mat, PetscAccess::WRITE), STATUS_OK);
  ASSERT_EQ(aggregator.Scatter(band.Piece(), other.data()), STATUS_OK);
  ASSERT_EQ(band.Return(), STATUS_OK);

  for (PetscInt i = 0; i < ld; ++i)
    EXPECT_EQ(array[static_cast<std::size_t>(i)], i < rows ? 7.0 : -1.0);
  ASSERT_EQ(MatDestroy(&mat), 0);
}

// PETSc keeps the norm of a vector until the vector changes.
TEST(PetscBandOfAVec, CountsAsAChangeWhenItWasWritten) {
  Vec vec = MakeVec(3, 0);
  PetscReal norm = 0;
  ASSERT_EQ(VecNorm(vec, NORM_INFINITY, &norm), 0);
  EXPECT_GT(norm, 0);
  PetscBand band;
  ASSERT_EQ(band.Borrow(vec, PetscAccess::WRITE), STATUS_OK);
  std::fill_n(band.Piece().mValues.mData, 3, PetscScalar(0.0));
  ASSERT_EQ(band.Return(), STATUS_OK);
  ASSERT_EQ(VecNorm(vec, NORM_INFINITY, &norm), 0);
  EXPECT_EQ(norm, 0);
  ASSERT_EQ(VecDestroy(&vec), 0);
}

// PETSc locks a vector that is read.
TEST(PetscBandOfAVec, IsReadWithoutAChange) {
  Vec vec = MakeVec(3, 0);
  PetscInt locks = 0;
  PetscBand band;
  ASSERT_EQ(band.Borrow(vec, PetscAccess::READ), STATUS_OK);
  ASSERT_EQ(VecLockReadPush(vec), 0);
  ASSERT_EQ(band.Return(), STATUS_OK);
  ASSERT_EQ(VecLockReadPop(vec), 0);
  ASSERT_EQ(VecLockGet(vec, &locks), 0);
  EXPECT_EQ(locks, 0);
  ASSERT_EQ(VecDestroy(&vec), 0);
}

TEST(PetscBandRefuses, NullPointersAndSparseMats) {
  TestMat mat(MATAIJ, 4);
  mat.Fill(0);
  PetscBand band;
  PavexStatus ofVec = STATUS_OK;
  PavexStatus ofMat = STATUS_OK;
  PavexStatus ofSparse = STATUS_OK;
  std::string const log = CaptureStdout([&] {
    ofVec = band.Borrow(static_cast<Vec>(nullptr), PetscAccess::READ);
    ofMat = band.Borrow(static_cast<Mat>(nullptr), PetscAccess::READ);
    ofSparse = band.Borrow(mat.Get(), PetscAccess::READ);
  });
  EXPECT_EQ(ofVec, STATUS_INVALID_VALUE);
  EXPECT_EQ(ofMat, STATUS_INVALID_VALUE);
  EXPECT_EQ(ofSparse, STATUS_NOT_SUPPORTED);
  EXPECT_EQ(log,
            "[ERROR] PETSc returned error 85.\n[ERROR] PETSc returned error 85.\n"
            "[ERROR] The Mat is not dense.\n");
}

}  // namespace
}  // namespace Pavex
