// A gather refuses records of peers whose numbers would lead outside an array, before anything
// moves.

#include "pavex/aggregator/aggregator.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/log_level.h"
#include "tests/support/records.h"
#include "tests/support/scripted_comm.h"
#include "tests/support/trace_comm.h"

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace Pavex {
namespace {

constexpr long kHuge = 1L << 60;

// Rank 0 of two, whose peer sends `peer` as its record.
std::shared_ptr<TraceComm> WithPeer(MatrixLocalInfo const& own, MatrixLocalInfo const& peer) {
  auto const scripted = std::make_shared<ScriptedComm>(0, 2);
  scripted->SetRecords(Records{own, peer});
  return std::make_shared<TraceComm>(scripted);
}

// Expects that only the records were exchanged.
void ExpectNothingMoved(TraceComm const& comm) {
  ASSERT_EQ(comm.DataTexts().size(), 1U);
  EXPECT_EQ(comm.DataTexts()[0].rfind("Allgather(", 0), 0U) << comm.DataTexts()[0];
}

// Gathers 3 compressed rows while the peer claims to have `rows` rows. Returns the status.
// Expects that only the records were exchanged.
PavexStatus GatherBeforePeerWithRows(std::int64_t rows) {
  LogLevel const silent(-1);
  LedgerPool pool;
  int ptr[] = {0, 1, 2, 3};
  int col[] = {0, 0, 0};
  double values[] = {1, 2, 3};
  auto local = MatrixCSR<double, int>::Borrow(3, 1, ptr, col, values);
  local.PlaceIn(3, 1, MatrixPartition::RowWise(0));
  MatrixLocalInfo peer = RecordOf(local, true);
  peer.partition.begin = 3;
  peer.rows = rows;
  peer.nnz = 0;
  auto const comm = WithPeer(RecordOf(local, true), peer);
  Aggregator<double, int> aggregator(&pool);

  PavexStatus const status = aggregator.Gather(comm, local, true);

  ExpectNothingMoved(*comm);
  return status;
}

TEST(HostileRecords, RefusesCompressedRowsWhoseOffsetsWrapInBytes) {
  EXPECT_EQ(GatherBeforePeerWithRows(4 * kHuge), STATUS_INCONSISTENT);
}

// The bytes of 2^61 offsets of 4 bytes are one more than a signed number can be.
TEST(HostileRecords, LeavesMoreRowsThanThereIsMemoryForToThePool) {
  constexpr std::int64_t kMostRows = 2 * kHuge - 2;

  EXPECT_EQ(GatherBeforePeerWithRows(kMostRows - 3), STATUS_OUT_OF_MEMORY);
  EXPECT_EQ(GatherBeforePeerWithRows(kMostRows - 2), STATUS_INCONSISTENT);
}

TEST(HostileRecords, RefusesCompressedPiecesWithANegativeNumberOfRows) {
  EXPECT_EQ(GatherBeforePeerWithRows(-1), STATUS_INCONSISTENT);
}

TEST(HostileRecords, RefusesCompressedRowsThatAddUpToANegativeNumber) {
  EXPECT_EQ(GatherBeforePeerWithRows(-10), STATUS_INCONSISTENT);
}

TEST(HostileRecords, RefusesDensePiecesWhoseStorageWrapsInBytes) {
  LogLevel const silent(-1);
  MemoryPool pool;
  std::vector<double> values(64);
  auto local = MatrixDense<double, int>::Borrow(64, 1, true, 1, values.data());
  local.PlaceIn(kHuge + 32, 2, MatrixPartition::ColumnWise(0));
  MatrixLocalInfo peer = RecordOf(local, true);
  peer.partition.begin = 1;
  peer.rows = 1;
  peer.nnz = 2 * kHuge;
  auto const comm = WithPeer(RecordOf(local, true), peer);
  Aggregator<double, int> aggregator(&pool);

  PavexStatus const status = aggregator.Gather(comm, local, true);

  EXPECT_EQ(status, STATUS_INCONSISTENT);
  ExpectNothingMoved(*comm);
}

TEST(HostileRecords, RefusesADensePatternWhoseStorageWrapsInBytes) {
  LogLevel const silent(-1);
  LedgerPool pool;
  double values[] = {1, 2, 3, 4};
  auto local = MatrixDense<double, int>::Borrow(2, 2, false, 2, values);
  local.PlaceIn(4, 2, MatrixPartition::RowWise(0));
  MatrixLocalInfo peer = RecordOf(local, false);
  peer.partition.begin = 2;
  peer.nnz = 4 * kHuge + 4;
  auto const comm = WithPeer(RecordOf(local, false), peer);
  Aggregator<double, int> aggregator(&pool);

  PavexStatus const status = aggregator.Allgather(comm, local, false);

  EXPECT_EQ(status, STATUS_INCONSISTENT);
  ExpectNothingMoved(*comm);
}

// Expects that a gather of 4 entries is refused if the peers claim to have `peers` entries.
void ExpectCountsRefused(std::vector<std::int64_t> const& peers) {
  LogLevel const silent(-1);
  LedgerPool pool;
  int index[] = {0, 1, 2, 3};
  double values[] = {1, 2, 3, 4};
  auto local = MatrixCOO<double, int>::Borrow(4, 4, 4, index, index, values);
  local.PlaceIn(4, 4, MatrixPartition::NonzeroWise());
  Records records(peers.size() + 1, RecordOf(local, true));
  for (std::size_t p = 0; p < peers.size(); ++p)
    records[p + 1].nnz = peers[p];
  auto const scripted = std::make_shared<ScriptedComm>(0, static_cast<int>(records.size()));
  scripted->SetRecords(records);
  auto const comm = std::make_shared<TraceComm>(scripted);
  Aggregator<double, int> aggregator(&pool);

  PavexStatus const status = aggregator.Gather(comm, local, true);

  EXPECT_EQ(status, STATUS_INCONSISTENT);
  ExpectNothingMoved(*comm);
}

TEST(HostileRecords, RefusesANegativeEntryCount) {
  ExpectCountsRefused({-1});
}

// The counts are 2^31 - 1 each when they are cut to 32 bits, but their sum wraps to 3.
TEST(HostileRecords, RefusesEntryCountsWhoseSumWraps) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

  ExpectCountsRefused({kMost - (1L << 31), kMost - (1L << 31), (1L << 32) + 1});
}

// The counts are 2^31 - 1 each when they are cut to 32 bits, but the sizes of the arrays of
// 2^62 + 2 indices and values wrap to 8 and 16 bytes.
TEST(HostileRecords, RefusesEntryCountsWhoseArraysWrapInBytes) {
  constexpr std::int64_t kCount = (1L << 31) - 1;

  ExpectCountsRefused({kCount + 4 * kHuge - (1L << 32), kCount});
}

TEST(HostileRecords, ReadsNoMoreRecordsThanTheGatherHad) {
  LogLevel const silent(-1);
  MemoryPool pool;
  double values[] = {1, 2, 3, 4};
  auto local = MatrixDense<double, int>::Borrow(2, 2, true, 2, values);
  local.PlaceIn(2, 4, MatrixPartition::ColumnWise(0));
  MatrixLocalInfo peer = RecordOf(local, true);
  peer.partition.begin = 2;
  Aggregator<double, int> aggregator(&pool);
  ASSERT_EQ(aggregator.Gather(WithPeer(RecordOf(local, true), peer), local, true), STATUS_OK);

  aggregator.SetComm(std::make_shared<ScriptedComm>(0, 5));

  EXPECT_EQ(aggregator.Scatter(local), STATUS_OK);
}

}  // namespace
}  // namespace Pavex
