#include "tests/faults/kinds.h"

#include <algorithm>
#include <map>
#include <utility>

namespace Pavex {

namespace {

constexpr std::uint64_t kSeed = 6;
constexpr std::uint64_t kMaxDraws = 100000;

bool IsPadded(Round const& round) {
  return std::any_of(round.pieces.begin(), round.pieces.end(),
                     [](Piece const& piece) { return !piece.IsPacked(GATHERED); });
}

bool IsEmpty(Round const& round, Piece const& piece) {
  if (round.format == Format::COO) return piece.entries.empty();
  return piece.rows == 0 || piece.cols == 0;
}

}  // namespace

std::string KindOf(Round const& round) {
  Piece const& reference = round.Reference();
  std::string kind = "format " + std::to_string(static_cast<int>(round.format));
  kind += round.toAll ? ", to all" : ", to rank 0";
  kind += reference.withValues ? ", with values" : ", pattern only";
  switch (round.holding) {
    case Holding::PIECES:
      kind += ", pieces of partition " + std::to_string(reference.partition);
      break;
    case Holding::ONE:
      kind += round.holder == 0 ? ", on rank 0" : ", on another rank";
      break;
    case Holding::ALL:
      if (IsEmpty(round, reference)) return kind + ", nowhere";
      kind += ", on all ranks";
      break;
  }
  return kind + (round.IsDense() && IsPadded(round) ? ", padded" : "");
}

std::size_t CountOfKinds(int ranks) {
  std::size_t const requests = 4;              // one or all receive, with or without values
  std::size_t const denseOnAll = 2 * (2 + 1);  // both orders; packed, padded, nowhere
  std::size_t const sparseOnAll = 3 * 2;       // three formats; somewhere, nowhere
  std::size_t const densePieces = 2 * 3 * 2;   // both orders, partitions, packed or padded
  std::size_t const sparsePieces = 3 + 2 + 2;  // partitions of coo, csr and csc
  std::size_t const densePlaces = 2 * 2 * 2;   // both orders; rank 0 or another; padded
  std::size_t const sparsePlaces = 3 * 2;      // three formats; rank 0 or another
  std::size_t const onAll = denseOnAll + sparseOnAll;
  std::size_t const elsewhere = densePieces + sparsePieces + densePlaces + sparsePlaces;
  return requests * (ranks == 1 ? onAll : onAll + elsewhere);
}

std::vector<Round> OneRoundOfEachKind(int ranks) {
  std::map<std::string, Round> byKind;
  for (std::uint64_t draw = 0; draw < kMaxDraws && byKind.size() < CountOfKinds(ranks);
       ++draw) {
    Rng rng(kSeed, draw);
    Round round = MakeRound(rng, ranks);
    if (round.flaw == RoundFlaw::NONE) byKind.emplace(KindOf(round), std::move(round));
  }
  std::vector<Round> rounds;
  for (auto& [kind, round] : byKind)
    rounds.push_back(std::move(round));
  return rounds;
}

}  // namespace Pavex
