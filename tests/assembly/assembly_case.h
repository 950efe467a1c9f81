// Random contributions of several processes to one matrix.

#pragma once

#include "pavex/assembly/assembler.h"
#include "tests/property/rng.h"
#include "tests/support/most_per_call.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <utility>
#include <vector>

namespace Pavex {

// The arrays of one block of a contribution, and the whole's row and column of each entry.
template <typename T, typename I>
struct CaseBlock {
  bool compressed = false;
  bool localRows = false;
  std::vector<I> offsets;
  std::vector<I> rows;  // as passed
  std::vector<I> cols;  // as passed
  std::vector<I> map;   // empty: columns are global
  std::vector<T> values;
  std::vector<std::pair<long, long>> places;
};

// What one process passes.
template <typename T, typename I>
struct CasePiece {
  bool listed = false;
  long begin = 0;
  std::vector<I> ownRows;  // its rows in its order
  std::vector<CaseBlock<T, I>> blocks;

  Contribution<T, I> Pass(bool withValues) const {
    long const count = static_cast<long>(ownRows.size());
    auto own = listed ? Contribution<T, I>::Rows(count, ownRows.data())
                      : Contribution<T, I>::Band(begin, count);
    for (auto const& block : blocks) {
      T const* const values = withValues ? block.values.data() : nullptr;
      long const nnz = static_cast<long>(block.cols.size());
      if (block.compressed)
        own.Csr(block.offsets.data(), block.cols.data(), values);
      else if (block.localRows)
        own.LocalCoo(nnz, block.rows.data(), block.cols.data(), values);
      else
        own.Coo(nnz, block.rows.data(), block.cols.data(), values);
      if (!block.map.empty())
        own.Columns(block.map.data(), static_cast<long>(block.map.size()));
    }
    return own;
  }

  T const* Values(std::size_t block) const {
    return block < blocks.size() ? blocks[block].values.data() : nullptr;
  }
};

// Which shapes a case has.
enum class CaseKind { ANYTHING, BANDS, LISTS, ELEMENTS };

// One assembly of all processes, the same wherever it is made from the same number.
template <typename T, typename I>
struct AssemblyCase {
  AssemblyRequest request;
  std::vector<CasePiece<T, I>> pieces;  // by rank

  AssemblyCase(Rng& rng, int processes) {
    request.mRows = rng.Between(1, 12);
    request.mCols = rng.Between(1, 12);
    request.mReceiver = static_cast<int>(rng.Between(-1, processes - 1));
    request.mWithValues = !rng.OneIn(5);
    request.mSortColumns = !rng.OneIn(4);
    request.mBase = rng.OneIn(3) ? 1 : 0;
    auto const kind = static_cast<CaseKind>(rng.Between(0, 3));
    pieces.resize(static_cast<std::size_t>(processes));
    std::vector<long> const cuts = Cuts(rng, kind, processes);
    for (int k = 0; k < processes; ++k)
      Fill(rng, kind, cuts[static_cast<std::size_t>(k)], cuts[static_cast<std::size_t>(k) + 1],
           pieces[static_cast<std::size_t>(k)]);
    for (int k = processes - 1; k > 0; --k)  // bands in any order of the ranks
      std::swap(pieces[static_cast<std::size_t>(k)],
                pieces[static_cast<std::size_t>(rng.Between(0, k))]);
  }

  // Other values in the same places. Small whole numbers, so that sums are exact.
  void Revalue(Rng& rng) {
    for (auto& piece : pieces)
      for (auto& block : piece.blocks)
        for (auto& value : block.values)
          value = Value(rng);
  }

  // Whether all processes send more than one call counts. They send at least one row each,
  // their lists, and what is left of their entries when repeated ones are merged.
  bool SendsTooMuch() const {
    if (pieces.size() == 1 || SendsFew()) return false;
    long rows = 0;
    long listed = 0;
    long entries = 0;
    for (auto const& piece : pieces) {
      std::set<std::pair<long, long>> once;
      for (auto const& block : piece.blocks)
        once.insert(block.places.begin(), block.places.end());
      entries += static_cast<long>(once.size());
      rows += 1;
      listed += piece.listed ? static_cast<long>(piece.ownRows.size()) : 0;
    }
    return std::max(rows, listed) > kMostOfACall ||
           (entries > kMostOfACall && !MayFollowSeats());
  }

  // Whether the entries of the pieces, the receiver's first and the others by rank, may lie in
  // bands in this order, so that they go in rounds.
  bool MayFollowSeats() const {
    auto const first = static_cast<std::size_t>(std::max(request.mReceiver, 0));
    long free = 0;  // the first row behind the earlier pieces
    for (std::size_t seat = 0; seat < pieces.size(); ++seat) {
      std::size_t const rank = seat > first ? seat : seat == 0 ? first : seat - 1;
      long const begin = free;
      for (auto const& block : pieces[rank].blocks)
        for (auto const& place : block.places) {
          if (place.first < begin) return false;
          free = std::max(free, static_cast<long>(place.first) + 1);
        }
    }
    return true;
  }

  // Whether they cannot: they send no more entries than they pass, and no more rows than are
  // theirs or lie between the first and the last row of an entry.
  bool SendsFew() const {
    long rows = 0;
    long entries = 0;
    for (auto const& piece : pieces) {
      long first = request.mRows;
      long last = first;
      for (auto const& block : piece.blocks) {
        entries += static_cast<long>(block.places.size());
        for (auto const& place : block.places) {
          last = first == request.mRows ? place.first : std::max(last, place.first);
          first = std::min(first, place.first);
        }
      }
      rows += std::max(last - first + 1, static_cast<long>(piece.ownRows.size()));
    }
    return std::max(rows, entries) <= kMostOfACall;
  }

  // The rows of all processes.
  long RowsOfAll() const {
    long rows = 0;
    for (auto const& piece : pieces)
      rows += static_cast<long>(piece.ownRows.size());
    return rows;
  }

  bool HasEntries() const {
    for (auto const& piece : pieces)
      for (auto const& block : piece.blocks)
        if (!block.places.empty()) return true;
    return false;
  }

 private:
  static T Value(Rng& rng) { return T(static_cast<float>(rng.Between(-9, 9))); }

  // Bounds of bands that do not overlap, some empty, some with gaps behind them.
  std::vector<long> Cuts(Rng& rng, CaseKind kind, int processes) const {
    std::vector<long> cuts = {rng.OneIn(3) ? rng.Between(0, request.mRows) : 0};
    for (int k = 1; k < processes; ++k)
      cuts.push_back(rng.Between(0, request.mRows));
    cuts.push_back(request.mRows);
    if (kind == CaseKind::BANDS) std::sort(cuts.begin(), cuts.end());
    return cuts;
  }

  void Fill(Rng& rng, CaseKind kind, long begin, long end, CasePiece<T, I>& piece) {
    if (rng.OneIn(4)) return;
    bool const band = kind == CaseKind::BANDS || (kind != CaseKind::LISTS && rng.Coin());
    if (!band) {
      begin = 0;
      end = rng.Between(0, request.mRows);
    }
    piece.listed = !band;
    piece.begin = std::min(begin, end);
    for (long row = piece.begin; row < std::max(begin, end); ++row)
      piece.ownRows.push_back(static_cast<I>(band ? row : rng.Between(0, request.mRows - 1)));
    if (band && rng.OneIn(5)) piece.listed = true;  // a list that is a band
    long const blocks = rng.OneIn(4) ? 2 : 1;
    bool const compressed = kind == CaseKind::BANDS || kind == CaseKind::LISTS || rng.Coin();
    for (long b = 0; b < blocks; ++b) {
      CaseBlock<T, I> block;
      bool const other = kind == CaseKind::ANYTHING && rng.OneIn(4);
      if (kind != CaseKind::ELEMENTS && compressed != other)
        FillRows(rng, piece, block);
      else
        FillEntries(rng, piece, block);
      piece.blocks.push_back(std::move(block));
    }
  }

  void FillMap(Rng& rng, CaseBlock<T, I>& block) const {
    if (!rng.OneIn(3)) return;
    for (long k = rng.Between(1, 6); k > 0; --k)
      block.map.push_back(static_cast<I>(rng.Between(0, request.mCols - 1)));
  }

  void Push(long row, long col, Rng& rng, CaseBlock<T, I>& block) const {
    bool const mapped = !block.map.empty();
    block.cols.push_back(static_cast<I>(col));
    block.values.push_back(Value(rng));
    block.places.emplace_back(row,
                              mapped ? long{block.map[static_cast<std::size_t>(col)]} : col);
  }

  long Columns(CaseBlock<T, I> const& block) const {
    return block.map.empty() ? request.mCols : static_cast<long>(block.map.size());
  }

  void FillRows(Rng& rng, CasePiece<T, I> const& piece, CaseBlock<T, I>& block) const {
    block.compressed = true;
    bool const ascends = rng.Coin();
    if (!ascends) FillMap(rng, block);
    I const base = static_cast<I>(rng.Between(0, 3));
    block.offsets.push_back(base);
    for (I const row : piece.ownRows) {
      std::vector<long> cols;
      for (long k = rng.Between(0, 5); k > 0; --k)
        cols.push_back(rng.Between(0, Columns(block) - 1));
      if (ascends) {
        std::set<long> const once(cols.begin(), cols.end());
        cols.assign(once.begin(), once.end());
      }
      for (long const col : cols)
        Push(row, col, rng, block);
      block.offsets.push_back(static_cast<I>(base + static_cast<I>(block.cols.size())));
    }
  }

  void FillEntries(Rng& rng, CasePiece<T, I> const& piece, CaseBlock<T, I>& block) const {
    FillMap(rng, block);
    block.localRows = rng.Coin() && !piece.ownRows.empty();
    long const last =
        block.localRows ? static_cast<long>(piece.ownRows.size()) - 1 : request.mRows - 1;
    for (long k = rng.Between(0, 30); k > 0; --k) {
      long const row = rng.Between(0, last);
      block.rows.push_back(static_cast<I>(row));
      Push(block.localRows ? long{piece.ownRows[static_cast<std::size_t>(row)]} : row,
           rng.Between(0, Columns(block) - 1), rng, block);
    }
  }
};

}  // namespace Pavex
