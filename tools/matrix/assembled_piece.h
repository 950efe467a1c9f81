// One rank's rows and entries for an Assembler: bands, bands that overlap, or rows dealt out at
// random.

#pragma once

#include "pavex/assembly/contribution.h"
#include "tools/choice/options.h"
#include "tools/cut/pieces.h"
#include "tools/matrix/piece_values.h"
#include "tools/source/source.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Pavex::Tool {

// The rank that has `row` with Partition::RANDOM. Every row is dealt by itself, the same way in
// every run.
inline int RandomOwner(long row, int ranks) {
  auto const mixed = static_cast<std::uint64_t>(row + 1) * 0x9e3779b97f4a7c15U;
  return static_cast<int>((mixed >> 33U) % static_cast<std::uint64_t>(ranks));
}

// The arrays of a contribution. With Partition::OVERLAP, a rank also has the first half of the
// rows of the next one; each of the two has half of every value there, so that the sum is
// exact. With Partition::RANDOM the rows descend. Not copyable: the contribution points into
// it.
template <typename T, typename I>
class AssembledPiece {
 public:
  // The piece of `rank` of `ranks`; reads the whole source if rows are dealt out at random.
  AssembledPiece(Source const& source, CutOptions const& options, int ranks, int rank,
                 ProgressFunction const& progress);
  AssembledPiece(AssembledPiece const&) = delete;
  AssembledPiece& operator=(AssembledPiece const&) = delete;

  // What this rank passes to a gather.
  Contribution<T, I> Pass() const;

  // The values as they are now.
  T const* Values() const { return mValues.data(); }
  long Rows() const { return static_cast<long>(mRows.size()); }
  long Begin() const { return mIsBand && !mRows.empty() ? static_cast<long>(mRows[0]) : 0; }
  long Entries() const { return static_cast<long>(mCols.size()); }

  // Bytes of the index and value arrays that are passed.
  long Bytes() const {
    std::size_t const indices = mCols.size() + (mIsCsr ? mOffsets.size() : mEntryRows.size()) +
                                (mIsBand ? 0 : mRows.size());
    return static_cast<long>(indices * sizeof(I) +
                             (mWithValues ? mValues.size() * sizeof(T) : 0));
  }

  // Changes the values by one step.
  void Advance() {
    for (std::size_t k = 0; k < mValues.size(); ++k)
      mValues[k] += Share(mEntryRows[k]) * StepIncrement<T>(mEntryRows[k], mCols[k]);
  }

 private:
  // The part of each value in `row` that this rank has.
  T Share(long row) const {
    bool const isShared = row < mSharedEnd || row >= mSharedBegin;
    return static_cast<T>(isShared ? 0.5F : 1.0F);
  }

  Triplets OwnEntries(Source const& source, int ranks, int rank,
                      ProgressFunction const& progress) const;
  void TakeRows(Extent const& whole, CutOptions const& options, int ranks, int rank);
  void TakeEntries(Triplets const& entries, long wholeRows, int base);

  bool mIsBand = true;
  bool mIsCsr = true;
  bool mWithValues = true;
  long mSharedEnd = 0;        // rows before it are shared with the rank before
  long mSharedBegin = 0;      // rows from it on are shared with the rank behind
  Piece mBand;                // of a band, shared rows included
  std::vector<I> mRows;       // rows of the whole
  std::vector<I> mOffsets;    // csr
  std::vector<I> mEntryRows;  // row of each entry in the whole
  std::vector<I> mCols;       // column of each entry
  std::vector<T> mValues;     // also if the pattern alone is passed
};

template <typename T, typename I>
AssembledPiece<T, I>::AssembledPiece(Source const& source, CutOptions const& options, int ranks,
                                     int rank, ProgressFunction const& progress)
    : mIsBand(options.mPartition != Partition::RANDOM),
      mIsCsr(options.mFormat == Format::CSR),
      mWithValues(options.mWithValues) {
  TakeRows(source.Whole(), options, ranks, rank);
  TakeEntries(OwnEntries(source, ranks, rank, progress), source.Whole().mRows, options.mBase);
}

template <typename T, typename I>
void AssembledPiece<T, I>::TakeRows(Extent const& whole, CutOptions const& options, int ranks,
                                    int rank) {
  if (!mIsBand) {
    for (long row = whole.mRows - 1; row >= 0; --row)
      if (RandomOwner(row, ranks) == rank) mRows.push_back(static_cast<I>(row));
    mSharedBegin = whole.mRows;
    return;
  }
  auto const bandOf = [&](int r) { return CutRowsOrNone(whole, options.mCuts, ranks, r); };
  mBand = bandOf(rank);
  mSharedBegin = mBand.mRowEnd;
  if (options.mPartition == Partition::OVERLAP) {
    if (rank > 0) mSharedEnd = mBand.mRowBegin + (mBand.Rows() + 1) / 2;
    if (rank + 1 < ranks) mBand.mRowEnd += (bandOf(rank + 1).Rows() + 1) / 2;
  }
  for (long row = mBand.mRowBegin; row < mBand.mRowEnd; ++row)
    mRows.push_back(static_cast<I>(row));
}

template <typename T, typename I>
Triplets AssembledPiece<T, I>::OwnEntries(Source const& source, int ranks, int rank,
                                          ProgressFunction const& progress) const {
  if (mIsBand) return source.Cut(mBand, progress);
  constexpr long kRowsAtOnce = 1 << 14;
  long const rows = source.Whole().mRows;
  Triplets own;
  for (long from = 0; from < rows; from += kRowsAtOnce) {
    Triplets const some = source.Rows(from, std::min(rows, from + kRowsAtOnce));
    own.mField = some.mField;
    for (std::size_t k = 0; k < some.Entries(); ++k)
      if (RandomOwner(some.mRow[k], ranks) == rank)
        own.Add(some.mRow[k], some.mCol[k], some.mReal[k],
                some.IsComplex() ? some.mImag[k] : 0);
  }
  return own;
}

// Compressed rows by a counting sort that keeps the order of the entries of a row; coordinates
// as they come.
template <typename T, typename I>
void AssembledPiece<T, I>::TakeEntries(Triplets const& entries, long wholeRows, int base) {
  std::vector<std::size_t> order(entries.Entries());
  for (std::size_t k = 0; k < order.size(); ++k)
    order[k] = k;
  if (mIsCsr) {
    std::vector<std::size_t> local(static_cast<std::size_t>(wholeRows), 0);
    for (std::size_t i = 0; i < mRows.size(); ++i)
      local[static_cast<std::size_t>(mRows[i])] = i;
    std::vector<std::size_t> next(mRows.size() + 1, 0);
    auto const rowOf = [&](std::size_t k) {
      return local[static_cast<std::size_t>(entries.mRow[k])];
    };
    for (std::size_t k = 0; k < order.size(); ++k)
      ++next[rowOf(k) + 1];
    for (std::size_t i = 0; i < mRows.size(); ++i)
      next[i + 1] += next[i];
    for (std::size_t const offset : next)
      mOffsets.push_back(static_cast<I>(static_cast<long>(offset) + base));
    for (std::size_t k = 0; k < entries.Entries(); ++k)
      order[next[rowOf(k)]++] = k;
  }
  for (std::size_t const k : order) {
    mEntryRows.push_back(entries.mRow[k]);
    mCols.push_back(entries.mCol[k]);
    mValues.push_back(Share(entries.mRow[k]) * InputValue<T>(entries, k));
  }
}

template <typename T, typename I>
Contribution<T, I> AssembledPiece<T, I>::Pass() const {
  T const* const values = mWithValues ? mValues.data() : nullptr;
  auto own = mIsBand ? Contribution<T, I>::Band(mBand.mRowBegin, Rows())
                     : Contribution<T, I>::Rows(Rows(), mRows.data());
  if (mIsCsr)
    own.Csr(mOffsets.data(), mCols.data(), values);
  else
    own.Coo(Entries(), mEntryRows.data(), mCols.data(), values);
  return own;
}

}  // namespace Pavex::Tool
