// Every call of a pool and of MPI that attaching or refreshing a process's rows of a PETSc
// matrix makes fails in turn, on every process of an MPI job. The binary defines the two
// functions of MPI that they call.

#include "pavex/aggregator/aggregator.h"
#include "pavex/comm/mpi_comm.h"
#include "tests/interop/petsc_matrix.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/log_level.h"

#include <memory>
#include <string>

namespace Pavex {
namespace {

// Which of MPI's functions below fails: the calls are counted while a test asks for it.
Fault gFault;
bool gCounts = false;

bool Fails() {
  return gCounts && gFault.Due();
}

}  // namespace
}  // namespace Pavex

#undef MPI_Allreduce  // a macro of PETSc's that counts the calls
extern "C" __attribute__((visibility("default"))) int MPI_Allreduce(void const* sent,
                                                                    void* received, int count,
                                                                    MPI_Datatype type,
                                                                    MPI_Op op, MPI_Comm comm) {
  if (Pavex::Fails()) return MPI_ERR_OTHER;
  return PMPI_Allreduce(sent, received, count, type, op, comm);
}
extern "C" __attribute__((visibility("default"))) int MPI_Comm_split(MPI_Comm comm, int color,
                                                                     int key, MPI_Comm* made) {
  if (Pavex::Fails()) return MPI_ERR_OTHER;
  return PMPI_Comm_split(comm, color, key, made);
}

namespace Pavex {
namespace {

bool OnAnyProcess(bool own) {
  int any = own ? 1 : 0;
  MPI_Allreduce(MPI_IN_PLACE, &any, 1, MPI_INT, MPI_MAX, PETSC_COMM_WORLD);
  return any == 1;
}

// The rows of a matrix of which every second process owns some, with a pool that keeps count.
class PetscRowsWithFaults : public testing::TestWithParam<char const*> {
 protected:
  static constexpr int kEveryEvenRank = 5;

  ~PetscRowsWithFaults() override { gFault = Fault(); }

  void ExpectAttached(PetscRows const& rows) const {
    RowArrays own = RowsByMatGetRow(mMat.Get());
    AddZero(own);
    if (own.ptr.size() > 1) ExpectEqual(ArraysOf(rows.Piece()), own);
  }
  void ExpectNothingAttached(PetscRows const& rows) const {
    EXPECT_EQ(rows.Owners(), MPI_COMM_NULL);
    EXPECT_EQ(rows.Piece().mRows, 0);
    EXPECT_EQ(mPool.OutstandingBlocks(), 0U);
  }

  // Runs `operation` while the n-th call of MPI fails on every process.
  template <typename Operation>
  static PavexStatus WithFailingCall(int nth, Operation const& operation) {
    gFault = Fault::Once(nth, STATUS_COMM_FAILED);
    gCounts = true;
    PavexStatus const status = operation();
    gCounts = false;
    return status;
  }

  Job const mJob;
  LogLevel const mSilent{LOG_FATAL};
  TestMat mMat{GetParam(), RowsOf(kEveryEvenRank, mJob.rank, mJob.size)};
  LedgerPool mPool;
};
INSTANTIATE_TEST_SUITE_P(Types, PetscRowsWithFaults,
                         testing::Values(MATMPIAIJ, MATBAIJ, MATDENSE),
                         [](auto const& type) { return std::string(type.param); });

TEST_P(PetscRowsWithFaults, AreNotAttachedOnAnyProcessWhenOnePoolRefuses) {
  mMat.Fill(0);
  int faults = 0;
  for (int failing = 0; failing < mJob.size; failing += 2) {
    for (int nth = 1;; ++nth) {
      PetscRows rows(&mPool);
      if (mJob.rank == failing) mPool.Fail(Fault::Once(nth, STATUS_OUT_OF_MEMORY));
      PavexStatus const status = rows.Attach(mMat.Get());
      bool const struck = OnAnyProcess(mPool.FaultStruck());
      mPool.Fail(Fault());
      EXPECT_EQ(status, struck ? STATUS_OUT_OF_MEMORY : STATUS_OK);
      if (!struck) break;
      ++faults;
      ExpectNothingAttached(rows);
      ASSERT_EQ(rows.Attach(mMat.Get()), STATUS_OK);
      ExpectAttached(rows);
    }
  }
  EXPECT_GE(faults, 3 * ((mJob.size + 1) / 2));  // three arrays on each owner
}

TEST_P(PetscRowsWithFaults, AreNotAttachedWhenMpiFails) {
  mMat.Fill(0);
  int faults = 0;
  for (int nth = 1;; ++nth) {
    PetscRows rows(&mPool);
    PavexStatus const status = WithFailingCall(nth, [&] { return rows.Attach(mMat.Get()); });
    if (!gFault.Struck()) {
      EXPECT_EQ(status, STATUS_OK);
      break;
    }
    ++faults;
    EXPECT_EQ(status, STATUS_COMM_FAILED);
    ExpectNothingAttached(rows);
    ASSERT_EQ(rows.Attach(mMat.Get()), STATUS_OK);
    ExpectAttached(rows);
  }
  EXPECT_EQ(faults, mJob.size == 1 ? 2 : 3);  // two agreements and the owners' communicator
}

// New values take no memory, neither in the piece nor in the gathered matrix.
TEST_P(PetscRowsWithFaults, TakeNewValuesWithoutAPool) {
  mMat.Fill(0);
  PetscRows rows(&mPool);
  Aggregator<PetscScalar, PetscInt> aggregator(&mPool);
  ASSERT_EQ(rows.Attach(mMat.Get()), STATUS_OK);
  bool const owns = rows.Owners() != MPI_COMM_NULL;
  if (owns) {
    ASSERT_EQ(aggregator.Gather(std::make_shared<MpiComm>(rows.Owners()), rows.Piece(), true),
              STATUS_OK);
  }
  mMat.Fill(1);
  mPool.Fail(Fault::From(1, STATUS_OUT_OF_MEMORY));

  EXPECT_EQ(WithFailingCall(1, [&] { return rows.Refresh(); }), STATUS_COMM_FAILED);
  ASSERT_EQ(rows.Refresh(), STATUS_OK);
  if (owns) {
    ASSERT_EQ(aggregator.UpdateInPlace(rows.Piece()), STATUS_OK);
  }

  EXPECT_FALSE(mPool.FaultStruck());
  mPool.Fail(Fault());
  ExpectAttached(rows);
  RowArrays own = RowsByMatGetRow(mMat.Get());
  AddZero(own);
  RowArrays const all = OfAllProcesses(own);
  if (mJob.rank == rows.Receiver())
    ExpectEqual(ArraysOf(*aggregator.TargetAs<PetscCsr>()), all);
}

}  // namespace
}  // namespace Pavex
