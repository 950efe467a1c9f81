// A small coordinate matrix, as the shares of two ranks or whole on one rank.

#pragma once

#include "pavex/runtime/self_comm.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/outcome.h"
#include "tests/support/pieces.h"

namespace Pavex {

// The share of rank `rank` of a 4 x 5 matrix of two ranks.
template <typename T = double, typename I = int>
CooPiece<T, I> Share(int rank) {
  CooPiece<T, I> piece = rank == 0 ? CooPiece<T, I>(4, 5, {0, 1}, {0, 2}, {10, 20})
                                   : CooPiece<T, I>(4, 5, {3, 1, 2}, {4, 0, 2}, {30, 40, 50});
  piece.matrix.PlaceIn(4, 5, MatrixPartition::NonzeroWise());
  return piece;
}

// The whole 4 x 5 matrix on rank `holder`, an empty one elsewhere.
template <typename T = double, typename I = int>
CooPiece<T, I> WholeOn(int holder, int rank) {
  return rank == holder ? CooPiece<T, I>(4, 5, {0, 1, 3}, {0, 2, 4}, {10, 20, 30})
                        : CooPiece<T, I>(0, 0, {}, {}, {});
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
