// A process's rows of a PETSc matrix as a piece, on every process of an MPI job.

#include "pavex/aggregator/aggregator.h"
#include "pavex/comm/mpi_comm.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "tests/interop/petsc_matrix.h"
#include "tests/support/capture.h"

#include <memory>
#include <string>

namespace Pavex {
namespace {

using PetscAggregator = Aggregator<PetscScalar, PetscInt>;

constexpr int kSteps = 5;
constexpr char kChanged[] =
    "[ERROR] The pattern of the Mat has changed since it was attached.\n";

// The rows of a Mat, gathered onto the first process that owns some.
class GatheredRows {
 public:
  explicit GatheredRows(bool overNodes) : mOverNodes(overNodes) {}

  PavexStatus Gather(Mat mat) {
    mAggregator.Clear();
    PavexStatus const status = mRows.Attach(mat);
    if (status != STATUS_OK || mRows.Owners() == MPI_COMM_NULL) return status;
    std::shared_ptr<Comm> comm;
    if (mOverNodes)
      comm = std::make_shared<NodeComm>(mRows.Owners());
    else
      comm = std::make_shared<MpiComm>(mRows.Owners());
    return mAggregator.Gather(comm, mRows.Piece(), true);
  }
  PavexStatus Update() {
    PavexStatus const status = mRows.Refresh();
    if (status != STATUS_OK || mRows.Owners() == MPI_COMM_NULL) return status;
    return mAggregator.UpdateInPlace(mRows.Piece());
  }
  PetscRows const& Rows() const { return mRows; }
  PetscCsr const* Target() { return mAggregator.TargetAs<PetscCsr>(); }

 private:
  bool mOverNodes;
  NodePool mPool;
  PetscRows mRows{&mPool};
  PetscAggregator mAggregator{&mPool};
};

// Expects the piece to be what MatGetRow returns, and the gathered matrix the pieces together.
void ExpectGathered(GatheredRows& gathered, Mat mat) {
  RowArrays own = RowsByMatGetRow(mat);
  PetscBool isBorrowed = PETSC_FALSE;
  ASSERT_EQ(PetscObjectTypeCompare(reinterpret_cast<PetscObject>(mat), MATSEQAIJ, &isBorrowed),
            0);
  if (isBorrowed == PETSC_FALSE) AddZero(own);
  bool const isReceiver = Job().rank == gathered.Rows().Receiver();
  if (own.ptr.size() > 1) ExpectEqual(ArraysOf(gathered.Rows().Piece()), own);
  RowArrays const all = OfAllProcesses(own);
  ASSERT_EQ(gathered.Target() != nullptr, isReceiver);
  if (isReceiver) ExpectEqual(ArraysOf(*gathered.Target()), all);
}

// Gathers, and updates in place with the values of each step.
void ExpectGatheredInEachStep(MatType type, int layout, PetscInt extraCols) {
  Job const job;
  SCOPED_TRACE(std::string(type) + ", layout " + std::to_string(layout) + ", columns + " +
               std::to_string(extraCols));
  TestMat mat(type, RowsOf(layout, job.rank, job.size), extraCols);
  mat.Fill(0);
  GatheredRows gathered(layout % 2 == 1);
  ASSERT_EQ(gathered.Gather(mat.Get()), STATUS_OK);
  ExpectGathered(gathered, mat.Get());
  PetscCsr const* const target = gathered.Target();
  PetscScalar const* const values = target == nullptr ? nullptr : target->mValues.mData;
  for (int step = 1; step <= 2; ++step) {
    mat.Fill(step);

    ASSERT_EQ(gathered.Update(), STATUS_OK);

    ExpectGathered(gathered, mat.Get());
    ASSERT_EQ(gathered.Target(), target);
    if (target == nullptr) continue;
    EXPECT_EQ(target->mValues.mData, values);
  }
}

class PetscRowsOf : public testing::TestWithParam<char const*> {};
INSTANTIATE_TEST_SUITE_P(Types, PetscRowsOf,
                         testing::Values(MATAIJ, MATMPIAIJ, MATBAIJ, MATDENSE),
                         [](auto const& type) { return std::string(type.param); });

TEST_P(PetscRowsOf, AreThoseOfMatGetRowWhicheverProcessesOwnRows) {
  for (int layout = 0; layout < kLayouts; ++layout)
    ExpectGatheredInEachStep(GetParam(), layout, 0);
}

TEST_P(PetscRowsOf, AreThoseOfARectangularMatrix) {
  if (std::string(GetParam()) == MATBAIJ) return ExpectGatheredInEachStep(GetParam(), 0, 4);
  for (int layout = 0; layout < kLayouts; ++layout)
    ExpectGatheredInEachStep(GetParam(), layout, 3);
}

TEST_P(PetscRowsOf, HoldOneZeroWhereTheBandHasNoEntries) {
  Job const job;
  TestMat mat(GetParam(), 2 * (job.rank + 1), 0, 2);  // the rows of process 0 are empty
  mat.Fill(0);
  GatheredRows gathered(false);

  ASSERT_EQ(gathered.Gather(mat.Get()), STATUS_OK);

  ExpectGathered(gathered, mat.Get());
  ASSERT_EQ(gathered.Update(), STATUS_OK);
  ExpectGathered(gathered, mat.Get());
}

TEST_P(PetscRowsOf, RefuseOnEveryProcessARefreshAfterAnotherPattern) {
  if (std::string(GetParam()) == MATDENSE) return;  // has one pattern only
  Job const job;
  TestMat mat(GetParam(), 2 * (job.rank + 2));
  mat.Fill(0);
  GatheredRows gathered(false);
  ASSERT_EQ(gathered.Gather(mat.Get()), STATUS_OK);
  PetscScalar const added[] = {5.0};
  PetscInt const at[] = {1, 2};
  ASSERT_EQ(
      MatSetValues(mat.Get(), job.rank == 0 ? 1 : 0, &at[0], 1, &at[1], added, INSERT_VALUES),
      0);
  mat.Assemble();

  PavexStatus status = STATUS_OK;
  std::string const log = CaptureStdout([&] { status = gathered.Update(); });

  EXPECT_EQ(status, STATUS_MISMATCH);
  if (job.rank == 0 || !log.empty()) {  // not every type tells the other processes
    EXPECT_EQ(log, kChanged);
  }
  ASSERT_EQ(gathered.Gather(mat.Get()), STATUS_OK);
  ExpectGathered(gathered, mat.Get());
}

TEST(PetscRowsOfOneProcess, BorrowTheArraysOfTheMat) {
  TestMat mat(MATSEQAIJ, 6, 0, 0, PETSC_COMM_SELF);
  mat.Fill(0);
  MemoryPool pool;
  PetscRows rows(&pool);

  ASSERT_EQ(rows.Attach(mat.Get()), STATUS_OK);

  PetscInt count = 0;
  PetscInt const* ptr = nullptr;
  PetscInt const* idx = nullptr;
  PetscBool done = PETSC_FALSE;
  PetscScalar const* values = nullptr;
  ASSERT_EQ(MatGetRowIJ(mat.Get(), 0, PETSC_FALSE, PETSC_FALSE, &count, &ptr, &idx, &done), 0);
  ASSERT_EQ(MatSeqAIJGetArrayRead(mat.Get(), &values), 0);
  EXPECT_EQ(rows.Piece().mRowPtr.mData, ptr);
  EXPECT_EQ(rows.Piece().mColIdx.mData, idx);
  EXPECT_EQ(rows.Piece().mValues.mData, values);
  EXPECT_EQ(pool.BytesInUse(), 0U);
  ASSERT_EQ(MatSeqAIJRestoreArrayRead(mat.Get(), &values), 0);
  ASSERT_EQ(MatRestoreRowIJ(mat.Get(), 0, PETSC_FALSE, PETSC_FALSE, &count, &ptr, &idx, &done),
            0);
  EXPECT_EQ(rows.Receiver(), 0);
}

TEST(PetscRowsOfOneProcess, OutliveTheMatThatTheUserDestroys) {
  MemoryPool pool;
  PetscRows rows(&pool);
  RowArrays expected;
  {
    TestMat mat(MATSEQAIJ, 6, 0, 0, PETSC_COMM_SELF);
    mat.Fill(0);
    expected = RowsByMatGetRow(mat.Get());
    ASSERT_EQ(rows.Attach(mat.Get()), STATUS_OK);
  }

  ExpectEqual(ArraysOf(rows.Piece()), expected);
  EXPECT_EQ(rows.Refresh(), STATUS_OK);
}

// --- Refusals

// A pool that has nothing on process 0.
class EmptyOnRankZero : public MemoryPool {
 public:
  PavexStatus Allocate(void** block, std::size_t bytes) override {
    return Job().rank == 0 ? STATUS_OUT_OF_MEMORY : MemoryPool::Allocate(block, bytes);
  }
};

// What attaching the Mat returns on this process.
PavexStatus AttachQuietly(Mat mat, std::string& log) {
  MemoryPool pool;
  PetscRows rows(&pool);
  PavexStatus status = 99;
  log = CaptureStdout([&] { status = rows.Attach(mat); });
  EXPECT_EQ(rows.Owners(), MPI_COMM_NULL);
  EXPECT_EQ(rows.Piece().mRows, 0);
  return status;
}

TEST(PetscRowsRefuse, ANullPointer) {
  std::string log;
  EXPECT_EQ(AttachQuietly(nullptr, log), STATUS_INVALID_VALUE);
  EXPECT_EQ(log, "[ERROR] The Mat is a null pointer.\n");
}

TEST(PetscRowsRefuse, AMatThatIsNotAssembled) {
  TestMat const mat(MATAIJ, 4);
  std::string log;
  EXPECT_EQ(AttachQuietly(mat.Get(), log), STATUS_WRONG_ORDER);
  EXPECT_EQ(log, "[ERROR] The Mat is not assembled.\n");
}

TEST(PetscRowsRefuse, AMatThatStoresItsUpperHalf) {
  TestMat mat(MATSBAIJ, 4);
  mat.Assemble();
  std::string log;
  EXPECT_EQ(AttachQuietly(mat.Get(), log), STATUS_NOT_SUPPORTED);
  EXPECT_EQ(log,
            "[ERROR] The Mat is factored, symmetric in storage, or has no rows to read.\n");
}

TEST(PetscRowsRefuse, AMatWithoutRowsToRead) {
  TestMat mat(MATSHELL, 4);
  mat.Assemble();
  std::string log;
  EXPECT_EQ(AttachQuietly(mat.Get(), log), STATUS_NOT_SUPPORTED);
}

TEST(PetscRowsRefuse, ARefreshWithoutAMat) {
  MemoryPool pool;
  PetscRows rows(&pool);
  PavexStatus status = 99;
  std::string const log = CaptureStdout([&] { status = rows.Refresh(); });
  EXPECT_EQ(status, STATUS_WRONG_ORDER);
  EXPECT_EQ(log, "[ERROR] No Mat is attached.\n");
}

TEST(PetscRowsRefuse, OnEveryProcessWhatOnePoolRefuses) {
  TestMat mat(MATMPIAIJ, 4);
  mat.Fill(0);
  EmptyOnRankZero pool;
  PetscRows rows(&pool);
  PavexStatus status = 99;
  std::string const log = CaptureStdout([&] { status = rows.Attach(mat.Get()); });
  EXPECT_EQ(status, STATUS_OUT_OF_MEMORY);
  EXPECT_EQ(log.empty(), Job().rank != 0);
}

TEST(WorstStatus, IsTheSameOnEveryProcess) {
  Job const job;
  EXPECT_EQ(WorstStatus(PETSC_COMM_WORLD, STATUS_OK), STATUS_OK);
  EXPECT_EQ(WorstStatus(PETSC_COMM_WORLD, job.rank == 0 ? 1234 : STATUS_OK), 1234);
  EXPECT_EQ(WorstStatus(PETSC_COMM_WORLD, job.rank == job.size - 1 ? STATUS_MISMATCH : 7),
            STATUS_MISMATCH);
}

}  // namespace
}  // namespace Pavex
