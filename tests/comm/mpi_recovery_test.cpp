// The next gather after one that failed on the receiver when the others had already sent.

#include "pavex/pavex.h"
#include "tests/comm/mpi_fixture.h"
#include "tests/support/arrays.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/pieces.h"

#include <memory>

namespace Pavex {

namespace {

// Communicators of failed gathers, which must not be destroyed before MPI is finalised.
std::vector<std::shared_ptr<MpiComm>> gSpent;

// The rows 2r and 2r + 1 of a square matrix with two rows for each rank:
//   (2r, r) = 10r + 1    (2r + 1, 0) = 10r + 2    (2r + 1, r + 1) = 10r + 3
CsrPiece<> RowsOf(int rank, int size) {
  CsrPiece<> piece(2, 2 * size, {0, 1, 3}, {rank, 0, rank + 1},
                   {10 * rank + 1, 10 * rank + 2, 10 * rank + 3});
  piece.matrix.mGlobalRows = 2 * size;
  piece.matrix.mPartition = MatrixPartition::RowWise(2 * rank);
  return piece;
}

void ExpectWhole(MatrixBase const* target, int size) {
  std::vector<int> ptr = {0};
  std::vector<int> columns;
  std::vector<double> values;
  for (int r = 0; r < size; ++r) {
    ptr.insert(ptr.end(), {3 * r + 1, 3 * r + 3});
    columns.insert(columns.end(), {r, 0, r + 1});
    values.insert(values.end(), {10.0 * r + 1, 10.0 * r + 2, 10.0 * r + 3});
  }
  ASSERT_NE(target, nullptr);
  auto const& whole = dynamic_cast<MatrixCSR<double, int> const&>(*target);
  EXPECT_EQ(Elements(whole.mRowPtr), ptr);
  EXPECT_EQ(Elements(whole.mColIdx), columns);
  EXPECT_EQ(Elements(whole.mValues), values);
}

}  // namespace

TEST(MpiRecovery, ANewCommunicatorGathersRightAfterTheReceiversPoolRefusedMemory) {
  int failures = 0;

  // The first allocation does not fail: it is for the exchanged records, and without it the
  // receiver would leave the others in an exchange that cannot end.
  for (int nth = 2, struck = 1; struck != 0; ++nth) {
    LedgerPool pool;
    Aggregator<double, int> aggregator(&pool);
    gSpent.push_back(std::make_shared<MpiComm>(MPI_COMM_WORLD));
    auto const& spent = gSpent.back();
    CsrPiece<> const rows = RowsOf(spent->Rank(), spent->Size());
    bool const isReceiver = spent->Rank() == 0;
    if (isReceiver) pool.Fail(Fault::Once(nth, STATUS_OUT_OF_MEMORY));

    PavexStatus failed = STATUS_OK;
    CaptureStdout([&] { failed = aggregator.Gather(spent, rows.matrix, true); });
    struck = isReceiver && pool.FaultStruck() ? 1 : 0;
    pool.Fail(Fault());
    auto const fresh = std::make_shared<MpiComm>(MPI_COMM_WORLD);
    PavexStatus const repeated = aggregator.Gather(fresh, rows.matrix, true);

    ASSERT_EQ(fresh->Bcast(&struck, 1, DATATYPE_INT, 0), STATUS_OK);
    EXPECT_EQ(failed, isReceiver && struck != 0 ? STATUS_OUT_OF_MEMORY : STATUS_OK);
    EXPECT_EQ(repeated, STATUS_OK);
    if (isReceiver) ExpectWhole(aggregator.Target(), fresh->Size());
    failures += struck;
  }

  EXPECT_GE(failures, 3);  // at least offsets, indices and values
}

}  // namespace Pavex
