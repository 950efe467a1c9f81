// Random assemblies and their check against a dense reference, over any communicator.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/assembly/assembler.h"
#include "tests/property/rng.h"
#include "tests/support/most_per_call.h"
#include "tests/support/trace_comm.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <numeric>
#include <set>
#include <string>
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
    return std::max({rows, listed, entries}) > kMostOfACall;
  }

  // Whether they cannot: they send no more entries than they pass, and no more rows than are
  // theirs or lie between the first and the last row of an entry.
  bool SendsFew() const {
    long rows = 0;
    long entries = 0;
    for (auto const& piece : pieces) {
      std::set<long> touched;
      for (auto const& block : piece.blocks) {
        entries += static_cast<long>(block.places.size());
        for (auto const& place : block.places)
          touched.insert(place.first);
      }
      long const span = touched.empty() ? 1 : *touched.rbegin() - *touched.begin() + 1;
      rows += std::max(span, static_cast<long>(piece.ownRows.size()));
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

  // The whole by position.
  std::map<std::pair<long, long>, T> Reference() const {
    std::map<std::pair<long, long>, T> whole;
    for (auto const& piece : pieces)
      for (auto const& block : piece.blocks)
        for (std::size_t k = 0; k < block.places.size(); ++k)
          whole[block.places[k]] += block.values[k];
    return whole;
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

// What is wrong with `whole`; empty if nothing is.
template <typename T, typename I>
std::string CheckWhole(AssemblyCase<T, I> const& expected, bool withValues,
                       MatrixCSR<T, I> const& whole) {
  AssemblyRequest const& request = expected.request;
  auto const reference = expected.Reference();
  long const base = request.mBase;
  if (whole.mRows != request.mRows || whole.mCols != request.mCols) return "shape";
  if (whole.mRowPtr.mSize != request.mRows + 1 || whole.mRowPtr.mData[0] != base)
    return "offsets";
  if (whole.NNZ() != static_cast<long>(reference.size()))
    return std::to_string(whole.NNZ()) + " entries, expected " +
           std::to_string(reference.size());
  if (whole.mColIdx.mSize != whole.NNZ()) return "length of the columns";
  if (whole.mValues.mSize != (withValues ? whole.NNZ() : 0)) return "length of the values";
  for (long row = 0; row < request.mRows; ++row) {
    std::set<long> seen;
    for (long k = whole.mRowPtr.mData[row] - base; k < whole.mRowPtr.mData[row + 1] - base;
         ++k) {
      long const col = whole.mColIdx.mData[k] - base;
      std::string const place = std::to_string(row) + ", " + std::to_string(col);
      if (request.mSortColumns && !seen.empty() && col < *seen.rbegin())
        return "order at " + place;
      if (!seen.insert(col).second) return "repeated " + place;
      auto const found = reference.find({row, col});
      if (found == reference.end()) return "no entry belongs to " + place;
      if (withValues && whole.mValues.mData[k] != found->second) return "value of " + place;
    }
  }
  return {};
}

// A dense matrix with room between its runs.
template <typename T, typename I>
struct CaseDense {
  std::vector<T> values;
  MatrixDense<T, I> matrix;

  CaseDense(long rows, long cols, bool rowMajor, long gap) {
    long const ld = (rowMajor ? cols : rows) + gap;
    values.assign(static_cast<std::size_t>(ld * (rowMajor ? rows : cols) + 1), T(-99.0F));
    matrix = MatrixDense<T, I>::Borrow(rows, cols, rowMajor, ld, values.data());
  }

  T& At(long i, long j) {
    long const at = matrix.mRowMajor ? i * matrix.mLd + j : i + j * matrix.mLd;
    return values[static_cast<std::size_t>(at)];
  }
};

// A number for an element of a dense matrix that one process has.
template <typename T>
T DenseValue(long process, long i, long j) {
  return T(static_cast<float>(process * 100 + i * 10 + j + 1));
}

// How the calls that `comm` has recorded differ from what `cost` says; empty if they do not.
inline std::string CompareCost(TraceComm const& comm, AssemblyCost const& cost) {
  AssemblyCost seen;
  long const processes = comm.Size();
  for (CommCall const& call : comm.Calls()) {
    if (call.op == CommOp::RANK || call.op == CommOp::SIZE) continue;
    long const each = static_cast<long>(DatatypeSize(call.sendtype));
    auto const sum = [](std::vector<int> const& counts) {
      return std::accumulate(counts.begin(), counts.end(), 0L);
    };
    bool const scatters = call.op == CommOp::SCATTERV;
    long const received = scatters                       ? call.recvcount
                          : call.op == CommOp::ALLGATHER ? call.recvcount * processes
                                                         : sum(call.recvcountsRead);
    ++seen.mCalls;
    seen.mBytesOut += (scatters ? sum(call.sendcountsRead) : call.sendcount) * each;
    seen.mBytesIn += received * static_cast<long>(DatatypeSize(call.recvtype));
  }
  auto const text = [](AssemblyCost const& some) {
    return std::to_string(some.mCalls) + " calls, " + std::to_string(some.mBytesOut) +
           " bytes out, " + std::to_string(some.mBytesIn) + " in";
  };
  if (text(seen) == text(cost)) return {};
  std::string calls;
  for (std::string const& call : comm.DataTexts())
    calls += "\n  " + call;
  return text(seen) + "; expected " + text(cost) + calls;
}

// Scatters and collects dense matrices over `comm`; what is wrong is returned.
template <typename T, typename I>
std::string CheckDense(AssemblyCase<T, I> const& expected, Rng& rng, TraceComm& comm,
                       Assembler<T, I>& assembler) {
  int const rank = comm.Rank();
  AssemblyRequest const& request = expected.request;
  bool const receives = request.mReceiver == kEverybody || request.mReceiver == rank;
  auto const& rows = expected.pieces[static_cast<std::size_t>(rank)].ownRows;
  long const count = static_cast<long>(rows.size());
  long const columns = rng.Between(1, 3);
  auto const overlap = rng.Coin() ? Overlap::ADD : Overlap::ONCE;
  Rng mine(static_cast<std::uint64_t>(rng.Between(0, 1L << 40)),
           static_cast<std::uint64_t>(rank));
  CaseDense<T, I> own(count, columns, mine.Coin(), mine.Between(0, 2));
  CaseDense<T, I> whole(receives ? request.mRows : 0, columns, mine.Coin(), mine.Between(0, 2));
  MatrixDense<T, I> nothing;
  MatrixDense<T, I>& passed = receives || mine.Coin() ? whole.matrix : nothing;

  if (receives)
    for (long i = 0; i < request.mRows; ++i)
      for (long j = 0; j < columns; ++j)
        whole.At(i, j) = DenseValue<T>(9, i, j);
  bool const several = expected.pieces.size() > 1;
  bool const tooMuch = expected.RowsOfAll() * columns > kMostOfACall;
  auto const statusIf = [tooMuch](bool moves) {
    return moves && tooMuch ? STATUS_NOT_SUPPORTED : STATUS_OK;
  };
  PavexStatus const scatters = statusIf(several && request.mReceiver != kEverybody);
  comm.ForgetCalls();
  if (assembler.Scatter(passed, own.matrix) != scatters) return "status of the scatter";
  std::string cost = CompareCost(comm, assembler.CostOfScatter(columns));
  if (scatters == STATUS_OK && !cost.empty()) return "scatter: " + cost;
  for (long i = 0; i < (scatters == STATUS_OK ? count : 0); ++i)
    for (long j = 0; j < columns; ++j)
      if (own.At(i, j) != DenseValue<T>(9, rows[static_cast<std::size_t>(i)], j))
        return "scattered row " + std::to_string(i);

  for (long i = 0; i < count; ++i)
    for (long j = 0; j < columns; ++j)
      own.At(i, j) = DenseValue<T>(rank, i, j);
  comm.ForgetCalls();
  PavexStatus const collects = statusIf(several);
  if (assembler.Collect(own.matrix, overlap, passed) != collects)
    return "status of the collect";
  if (collects != STATUS_OK) return {};
  cost = CompareCost(comm, assembler.CostOfCollect(columns));
  if (!cost.empty()) return "collect: " + cost;
  if (!receives) return {};
  std::map<std::pair<long, long>, T> sums;
  for (std::size_t p = 0; p < expected.pieces.size(); ++p) {
    auto const& list = expected.pieces[p].ownRows;
    for (std::size_t i = 0; i < list.size(); ++i)
      for (long j = 0; j < columns; ++j) {
        T const value = DenseValue<T>(static_cast<long>(p), static_cast<long>(i), j);
        auto const [place, isNew] = sums.try_emplace({list[i], j}, value);
        if (!isNew && overlap == Overlap::ADD) place->second += value;
      }
  }
  for (long i = 0; i < request.mRows; ++i)
    for (long j = 0; j < columns; ++j) {
      auto const found = sums.find({i, j});
      if (whole.At(i, j) != (found == sums.end() ? T{} : found->second))
        return "collected row " + std::to_string(i);
    }
  return {};
}

// What is wrong with a gather that was refused because of its size; empty if nothing is.
// `made`: the calls of the communicator.
template <typename T, typename I>
std::string CheckTooLarge(AssemblyCase<T, I> const& expected,
                          std::vector<std::string> const& made,
                          Assembler<T, I> const& assembler) {
  if (expected.SendsFew()) return "a small gather is refused";
  if (assembler.Describe().rfind("Up to process ", 0) != 0)
    return "refused: " + assembler.Describe();
  if (assembler.Whole() != nullptr) return "a whole without a gather";
  std::size_t const exchanges = expected.pieces.size() > 1 ? 1 : 0;
  return made.size() == exchanges ? "" : "something has moved";
}

// Runs case `number` of `seed` on this process. Empty if all is right here.
template <typename T, typename I>
std::string RunAssemblyCase(std::uint64_t seed, long number, std::shared_ptr<Comm> const& comm,
                            MemoryPool& pool) {
  int const rank = comm->Rank();
  Rng rng(seed, static_cast<std::uint64_t>(number));
  AssemblyCase<T, I> expected(rng, comm->Size());
  AssemblyRequest const& request = expected.request;
  bool const receives = request.mReceiver == kEverybody || request.mReceiver == rank;
  std::string const name = "case " + std::to_string(number) + ", rank " + std::to_string(rank) +
                           " of " + std::to_string(comm->Size()) + ": ";

  Assembler<T, I> assembler(&pool);
  auto const counted = std::make_shared<TraceComm>(comm);
  auto const& piece = expected.pieces[static_cast<std::size_t>(rank)];
  PavexStatus status = assembler.Gather(counted, piece.Pass(request.mWithValues), request);
  if (status == STATUS_NOT_SUPPORTED) {
    std::string const difference = CheckTooLarge(expected, counted->DataTexts(), assembler);
    return difference.empty() ? difference : name + difference;
  }
  if (status != STATUS_OK) return name + "status of the gather";
  if (expected.SendsTooMuch()) return name + "a gather that no call counts is not refused";
  std::string cost = CompareCost(*counted, assembler.CostOfGather());
  if (!cost.empty()) return name + "gather: " + cost;
  if ((assembler.Whole() != nullptr) != receives) return name + "receiver";
  for (int round = 0; round < 3; ++round) {
    bool const withValues = request.mWithValues || (round > 0 && !expected.Reference().empty());
    if (receives) {
      std::string const difference = CheckWhole(expected, withValues, *assembler.Whole());
      if (!difference.empty())
        return name + "round " + std::to_string(round) + ", " + assembler.Describe() + ": " +
               difference;
    }
    expected.Revalue(rng);
    counted->ForgetCalls();
    // Processes choose on their own whether their array stays.
    bool const stays = withValues && (number + round + rank) % 2 == 0;
    auto const address = [&] { return receives ? assembler.Whole()->mValues.mData : nullptr; };
    T const* const before = address();
    status = stays ? assembler.UpdateInPlace(piece.Values(0), piece.Values(1))
                   : assembler.Update(piece.Values(0), piece.Values(1));
    if (status != STATUS_OK) return name + "status of the update";
    if (stays && address() != before) return name + "address of the values";
    cost = CompareCost(*counted, assembler.CostOfUpdate());
    if (!cost.empty()) return name + "update: " + cost;
  }
  std::string const difference = CheckDense(expected, rng, *counted, assembler);
  return difference.empty() ? difference : name + difference;
}

}  // namespace Pavex
