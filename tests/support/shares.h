// One small matrix in the shares of two ranks, for the tests of the front doors.

#pragma once

#include "pavex/runtime/self_comm.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/outcome.h"
#include "tests/support/pieces.h"

namespace Pavex {

// The share of rank `rank` of a 4 x 5 matrix of two ranks.
inline CooPiece<> Share(int rank) {
  CooPiece<> piece = rank == 0 ? CooPiece<>(4, 5, {0, 1}, {0, 2}, {10, 20})
                               : CooPiece<>(4, 5, {3, 1, 2}, {4, 0, 2}, {30, 40, 50});
  piece.matrix.PlaceIn(4, 5, MatrixPartition::NonzeroWise());
  return piece;
}

// Rank `rank` of the two that hold the shares.
inline RankUnderTest<> ShareRank(int rank) {
  CooPiece<> const first = Share(0);
  CooPiece<> const second = Share(1);
  return RankUnderTest<>(ScriptedRank(rank, {&first.matrix, &second.matrix}));
}

// The only rank of its job.
inline RankUnderTest<> SingleRank() {
  return RankUnderTest<>(std::make_shared<SelfComm>());
}

// Gathers onto rank 0.
inline Outcome Gather(RankUnderTest<>& rank, MatrixBase const& local, bool withValues = true) {
  return Watch([&] { return rank.aggregator.Gather(rank.comm, local, withValues); });
}

}  // namespace Pavex
