#include "pavex/comm/mpi_comm.h"
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

}  // namespace
}  // namespace Pavex
