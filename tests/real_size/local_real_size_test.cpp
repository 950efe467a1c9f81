#include "pavex/comm/local_comm.h"
#include "tests/real_size/real_size.h"
#include "tests/support/plain_comm.h"

namespace Pavex {
namespace {

// `movesRuns`: whether dense pieces go from array to array, or in rounds of calls.
void OnEach(int ranks, long total, void (*body)(RealSizeRank&), bool movesRuns = false) {
  LocalComm::Run(ranks, [=](std::shared_ptr<Comm> const& comm) {
    RealSizeRank rank(movesRuns ? comm : std::make_shared<PlainComm>(comm), total);
    body(rank);
  });
}

TEST(RealSize, OfDenseElementsBeyondIntMovesThereAndBack) {
  OnEach(2, kBeyondInt, [](RealSizeRank& rank) { rank.MoveDense(); });
}

#ifdef PAVEX_TESTS_ALL
TEST(RealSize, OfDenseElementsBeyondIntMovesInOneCall) {
  OnEach(
      2, kBeyondInt, [](RealSizeRank& rank) { rank.MoveDense(); }, true);
}

TEST(RealSize, OfDenseElementsBeyondUnsignedMovesThereAndBack) {
  OnEach(3, kBeyondUnsigned, [](RealSizeRank& rank) { rank.MoveDense(); });
}

TEST(RealSize, OfDenseElementsBeyondUnsignedMovesInOneCall) {
  OnEach(
      3, kBeyondUnsigned, [](RealSizeRank& rank) { rank.MoveDense(); }, true);
}

TEST(RealSize, OfEntriesBeyondIntIsGatheredAndUpdated) {
  OnEach(3, kBeyondInt, [](RealSizeRank& rank) { rank.GatherEntries(false); });
}

TEST(RealSize, OfEntriesBeyondIntReachesAll) {
  OnEach(2, kBeyondInt, [](RealSizeRank& rank) { rank.GatherEntries(true); });
}

TEST(RealSize, OfEntriesBeyondUnsignedIsGatheredAndUpdated) {
  OnEach(2, kBeyondUnsigned, [](RealSizeRank& rank) { rank.GatherEntries(false); });
}

TEST(RealSize, OfEntriesOfAHolderMoves) {
  OnEach(2, kBeyondUnsigned, [](RealSizeRank& rank) { rank.GatherFromHolder(false); });
  OnEach(2, kBeyondInt, [](RealSizeRank& rank) { rank.GatherFromHolder(true); });
}

TEST(RealSize, OfCompressedEntriesIsGathered) {
  OnEach(3, kBeyondInt, [](RealSizeRank& rank) { rank.GatherRows(); });
  OnEach(2, kBeyondUnsigned, [](RealSizeRank& rank) { rank.GatherRows(); });
}

TEST(RealSize, OfRowsWithoutEntriesIsGathered) {
  OnEach(2, kBeyondInt, [](RealSizeRank& rank) { rank.GatherEmptyRows(); });
}
#endif

}  // namespace
}  // namespace Pavex
