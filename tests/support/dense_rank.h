// One rank of a job of dense matrices. A test scripts the other ranks.

#pragma once

#include "tests/support/aggregator_probe.h"
#include "tests/support/dense_piece.h"
#include "tests/support/outcome.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace Pavex {

// The pieces of all ranks, one each: Pieces(ColumnShare(0, true), ColumnShare(1, true)).
template <typename First, typename... More>
std::vector<First> Pieces(First first, More... more) {
  std::vector<First> pieces;
  pieces.push_back(std::move(first));
  (pieces.push_back(std::move(more)), ...);
  return pieces;
}

// Rank `self` of a job whose ranks hold `pieces`. The records are exchanged; `script` supplies
// what else comes from the other ranks.
template <typename T = double, typename I = int>
struct DenseRank {
  DenseRank(int self, std::vector<DensePiece<T, I>> allPieces, bool withValues = true)
      : pieces(std::move(allPieces)),
        local(pieces[static_cast<std::size_t>(self)]),
        script(ScriptedRank(self, Matrices(pieces), withValues)),
        rank(script),
        withValuesFlag(withValues) {}

  Outcome Gather() {
    return Watch(
        [&] { return rank.aggregator.Gather(rank.comm, local.matrix, withValuesFlag); });
  }
  Outcome Allgather() {
    return Watch(
        [&] { return rank.aggregator.Allgather(rank.comm, local.matrix, withValuesFlag); });
  }
  Outcome Update(DensePiece<T, I> const& values) {
    return Watch([&] { return rank.aggregator.Update(values.matrix); });
  }
  Outcome Scatter(DensePiece<T, I>& destination) {
    return Watch([&] { return rank.aggregator.Scatter(destination.matrix); });
  }

  MatrixDense<T, I>& Target() { return rank.template Target<MatrixDense<T, I>>(); }
  std::vector<T> TargetValues() {
    Buffer<T> const& values = Target().mValues;
    return {values.mData, values.mData + values.mSize};
  }

  // What a test checks after its operation has run.
  std::vector<PoolEvent> const& Events() const { return rank.pool.Events(); }
  std::vector<std::string> Calls() const { return rank.comm->DataTexts(); }

  std::vector<DensePiece<T, I>> pieces;  // declared first: a gathered matrix may borrow them
  DensePiece<T, I>& local;
  std::shared_ptr<ScriptedComm> script;
  RankUnderTest<T, I> rank;
  bool withValuesFlag;

 private:
  static std::vector<MatrixBase const*> Matrices(std::vector<DensePiece<T, I>> const& pieces) {
    std::vector<MatrixBase const*> matrices;
    for (DensePiece<T, I> const& piece : pieces)
      matrices.push_back(&piece.matrix);
    return matrices;
  }
};

// Makes a scripted operation that receives put these elements into the receive buffer.
template <typename T = double>
ScriptedComm::Handler Deliver(std::vector<int> const& numbers) {
  return [elements = Numbers<T>(numbers)](CommCall const& call) {
    std::copy(elements.begin(), elements.end(), static_cast<T*>(call.recvbuf));
    return STATUS_OK;
  };
}

// Makes a scripted operation that sends copy `sent.size()` elements of its send buffer to
// `sent`.
template <typename T = double>
ScriptedComm::Handler Keep(std::vector<T>& sent) {
  return [&sent](CommCall const& call) {
    auto const* const from = static_cast<T const*>(call.sendbuf);
    std::copy_n(from, sent.size(), sent.begin());
    return STATUS_OK;
  };
}

}  // namespace Pavex
