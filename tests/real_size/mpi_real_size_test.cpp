#include "pavex/comm/mpi_comm.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "tests/real_size/real_size.h"

namespace Pavex {
namespace {

void OnThisRank(long total, void (*body)(RealSizeRank&)) {
  RealSizeRank rank(std::make_shared<MpiComm>(MPI_COMM_WORLD), total);
  body(rank);
}

TEST(RealSize, OfDenseElementsBeyondIntMovesThereAndBack) {
  OnThisRank(kBeyondInt, [](RealSizeRank& rank) { rank.MoveDense(); });
}

TEST(RealSize, OfDenseElementsBeyondUnsignedMovesThereAndBack) {
  OnThisRank(kBeyondUnsigned, [](RealSizeRank& rank) { rank.MoveDense(); });
}

TEST(RealSize, OfEntriesBeyondIntIsGatheredAndUpdated) {
  OnThisRank(kBeyondInt, [](RealSizeRank& rank) { rank.GatherEntries(false); });
}

TEST(RealSize, OfEntriesBeyondIntReachesAll) {
  OnThisRank(kBeyondInt, [](RealSizeRank& rank) { rank.GatherEntries(true); });
}

TEST(RealSize, OfEntriesOfAHolderMoves) {
  OnThisRank(kBeyondInt, [](RealSizeRank& rank) { rank.GatherFromHolder(false); });
}

TEST(RealSize, OfCompressedEntriesIsGathered) {
  OnThisRank(kBeyondInt, [](RealSizeRank& rank) { rank.GatherRows(); });
}

TEST(RealSize, OfRowsWithoutEntriesIsGathered) {
  OnThisRank(kBeyondInt, [](RealSizeRank& rank) { rank.GatherEmptyRows(); });
}

// --- Memory shared on a node

void OnThisNode(long total, void (*body)(RealSizeRank&)) {
  auto const comm = std::make_shared<NodeComm>(MPI_COMM_WORLD);
  ASSERT_TRUE(comm->Active());
  RealSizeRank rank(comm, total);
  body(rank);
}

// Repeated pages are not shared memory, so the pieces go over MPI.
TEST(RealSizeOnANode, OfDenseElementsBeyondIntMovesOverMpi) {
  OnThisNode(kBeyondInt, [](RealSizeRank& rank) { rank.MoveDense(); });
}

TEST(RealSizeOnANode, OfEntriesBeyondIntMovesOverMpi) {
  OnThisNode(kBeyondInt, [](RealSizeRank& rank) { rank.GatherEntries(false); });
}

TEST(RealSizeOnANode, OfEntriesOfAHolderMovesOverMpi) {
  OnThisNode(kBeyondInt, [](RealSizeRank& rank) { rank.GatherFromHolder(true); });
}

// The gathered matrix takes 8.6 GB of real memory on rank 0, where the others store their
// pieces.
TEST(RealSizeInSharedMemory, OfDenseElementsBeyondIntMovesThereAndBack) {
  OnThisNode(kBeyondInt, [](RealSizeRank& rank) {
    NodePool pool;
    rank.MoveDense(pool);
  });
}

}  // namespace
}  // namespace Pavex
