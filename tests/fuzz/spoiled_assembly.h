// Assemblies in which some processes pass wrong numbers.

#pragma once

#include "pavex/runtime/wrapping.h"
#include "tests/assembly/assembly_case.h"

#include <cstddef>
#include <limits>
#include <vector>

namespace Pavex {

// A case of the property test, of which one process or all have spoiled some numbers. No array
// is shorter than what is said of it: the library cannot notice that.
template <typename T, typename I>
struct SpoiledAssembly {
  std::vector<CasePiece<T, I>> pieces;    // by rank
  std::vector<AssemblyRequest> requests;  // by rank
  std::vector<bool> hasValues;            // by rank

  SpoiledAssembly(Rng& rng, int ranks) {
    AssemblyCase<T, I> const fitting(rng, ranks);
    auto const count = static_cast<std::size_t>(ranks);
    pieces = fitting.pieces;
    requests.assign(count, fitting.request);
    hasValues.assign(count, fitting.request.mWithValues);
    auto const chosen = static_cast<std::size_t>(rng.Between(0, ranks));  // `ranks`: all
    for (long spoils = rng.Between(1, 2); spoils > 0; --spoils) {
      long const kind = rng.Between(0, 5);
      for (std::size_t rank = 0; rank < count; ++rank)
        if (chosen == count || chosen == rank) Spoil(rng, kind, rank);
    }
  }

 private:
  static I AnyNumber(Rng& rng) {
    constexpr long kOdd[] = {1L << 16, 1L << 31, 1L << 32,
                             1L << 60, 1L << 62, std::numeric_limits<long>::max()};
    long const small = rng.Between(-2, 21);
    return static_cast<I>(
        small < 14 ? small : WrappingAdd(kOdd[rng.Between(0, 5)], rng.Between(-2, 2)));
  }

  static void SpoilOne(Rng& rng, std::vector<I>& numbers) {
    auto const last = static_cast<long>(numbers.size()) - 1;
    if (last >= 0) numbers[static_cast<std::size_t>(rng.Between(0, last))] = AnyNumber(rng);
  }

  // Any offset except the ends, or fewer entries.
  static void SpoilOffsets(Rng& rng, CaseBlock<T, I>& block) {
    auto const inner = static_cast<long>(block.offsets.size()) - 2;
    if (inner > 0 && rng.Coin())
      block.offsets[static_cast<std::size_t>(rng.Between(1, inner))] = AnyNumber(rng);
    else if (inner >= 0)
      block.offsets.back() = static_cast<I>(block.offsets.back() - rng.Between(0, 9));
  }

  static void SpoilBlock(Rng& rng, CaseBlock<T, I>& block) {
    switch (rng.Between(0, 3)) {
      case 0:
        return SpoilOffsets(rng, block);
      case 1:
        return SpoilOne(rng, block.rows);
      case 2:
        return SpoilOne(rng, block.cols);
      default:
        return SpoilOne(rng, block.map);
    }
  }

  static void SpoilRequest(Rng& rng, AssemblyRequest& request) {
    switch (rng.Between(0, 5)) {
      case 0:
        request.mRows = AnyNumber(rng);
        break;
      case 1:
        request.mCols = AnyNumber(rng);
        break;
      case 2:
        request.mReceiver = static_cast<int>(rng.Between(-2, 6));
        break;
      case 3:
        request.mBase = static_cast<int>(rng.Between(-1, 2));
        break;
      case 4:
        request.mSortColumns = !request.mSortColumns;
        break;
      default:
        request.mWithValues = !request.mWithValues;
    }
  }

  void Spoil(Rng& rng, long kind, std::size_t rank) {
    CasePiece<T, I>& piece = pieces[rank];
    switch (kind) {
      case 0:
        return SpoilRequest(rng, requests[rank]);
      case 1:
        return SpoilOne(rng, piece.ownRows);
      case 2:
        piece.begin = AnyNumber(rng);
        return;
      case 3:
        hasValues[rank] = !hasValues[rank];
        return;
      default:
        if (!piece.blocks.empty())
          SpoilBlock(rng, piece.blocks[rng.Coin() ? 0 : piece.blocks.size() - 1]);
    }
  }
};

}  // namespace Pavex
