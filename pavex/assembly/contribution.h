// What one process contributes to a matrix that an Assembler puts together: some rows, and
// entries in them.

#pragma once

#include "pavex/matrix/instances.h"

#include <cstdint>

namespace Pavex {

// One block of entries without their values; see Contribution.
template <typename I>
struct BlockPattern {
  std::int64_t mNnz = 0;        // entries; compressed rows: counted from the offsets
  I const* mOffsets = nullptr;  // compressed rows: one offset more than rows, from any base
  I const* mRowIdx = nullptr;   // coordinates: the row of each entry
  I const* mColIdx = nullptr;   // the column of each entry
  I const* mColMap = nullptr;   // the global column of each local one, if mMapped
  std::int64_t mColumns = 0;    // the length of mColMap
  bool mCompressed = false;     // compressed rows, not coordinates
  bool mLocalRows = false;      // mRowIdx counts within the rows of the contribution
  bool mMapped = false;         // mColIdx counts within mColMap; else it is global
};

// The rows and blocks of a contribution without values; see Contribution.
template <typename I>
struct ContributionPattern {
  static constexpr int kMostBlocks = 2;  // blocks of a contribution

  std::int64_t mRows = 0;               // rows of the process
  std::int64_t mBegin = 0;              // the first global row of a band
  I const* mRowList = nullptr;          // the global rows of a list, in any order
  bool mListed = false;                 // a list, not a band
  bool mMapFirst = false;               // a map came before its block, which is refused
  int mBlocks = 0;                      // more than kMostBlocks are refused
  BlockPattern<I> mBlock[kMostBlocks];  // the first mBlocks are used
};

// The rows and entries of one process, over arrays of the caller, which are only read. All
// indices count from 0; offsets start anywhere. Example: rows 7 and 3 of the whole, in this
// order, with the diagonal block and the off-diagonal block apart, each with local columns:
//
//   auto const own = Contribution<double, int>::Rows(2, rows)  // rows: {7, 3}
//                        .Csr(offsets, cols, values).Columns(map, mapped)
//                        .Csr(offOffsets, offCols, offValues).Columns(offMap, offMapped);
//
// Rows may be repeated, within a process and among processes, and so may entries: what has the
// same row and column is added. A process without anything passes a default-constructed one.
// Copyable; keeps pointers only. Every function is local.
template <typename T, typename I>
class Contribution {
  PAVEX_REQUIRE_INSTANCE(T, I);

 public:
  Contribution() = default;

  // The process has the `rows` rows of the whole from row `begin` on.
  static Contribution Band(std::int64_t begin, std::int64_t rows) {
    Contribution own;
    own.mPattern.mBegin = begin;
    own.mPattern.mRows = rows;
    return own;
  }

  // The process has the `rows` rows that `list` names, in any order.
  static Contribution Rows(std::int64_t rows, I const* list) {
    Contribution own;
    own.mPattern.mRowList = list;
    own.mPattern.mRows = rows;
    own.mPattern.mListed = true;
    return own;
  }

  // Adds a block of compressed rows, one for each row of the process. Row i has the entries
  // from offsets[i] - offsets[0] on. `values` may be null for a pattern.
  Contribution& Csr(I const* offsets, I const* cols, T const* values) {
    BlockPattern<I> block;
    block.mOffsets = offsets;
    block.mColIdx = cols;
    block.mCompressed = true;
    return Add(block, values);
  }

  // Adds a block of `nnz` entries whose rows are rows of the whole; they need not be among the
  // rows of the process. `values` may be null for a pattern.
  Contribution& Coo(std::int64_t nnz, I const* rows, I const* cols, T const* values) {
    BlockPattern<I> block;
    block.mNnz = nnz;
    block.mRowIdx = rows;
    block.mColIdx = cols;
    return Add(block, values);
  }

  // Adds a block of `nnz` entries whose rows count within the rows of the process. `values` may
  // be null for a pattern.
  Contribution& LocalCoo(std::int64_t nnz, I const* rows, I const* cols, T const* values) {
    Coo(nnz, rows, cols, values);
    if (BlockPattern<I>* const block = Last()) block->mLocalRows = true;
    return *this;
  }

  // The columns of the block that was added last are local: column j is column `map[j]` of the
  // whole, 0 <= j < `columns`. A gather refuses a map that comes before its block.
  Contribution& Columns(I const* map, std::int64_t columns) {
    if (mPattern.mBlocks == 0) mPattern.mMapFirst = true;
    BlockPattern<I>* const block = Last();
    if (block == nullptr) return *this;
    block->mColMap = map;
    block->mColumns = columns;
    block->mMapped = true;
    return *this;
  }

  // Rows and blocks without values.
  ContributionPattern<I> const& Pattern() const { return mPattern; }

  // The values of block `block`.
  T const* Values(int block) const { return mValues[block]; }

 private:
  // The block that was added last; null if it did not fit, which the gather refuses.
  BlockPattern<I>* Last() {
    int const last = mPattern.mBlocks - 1;
    return last < 0 || last >= mPattern.kMostBlocks ? nullptr : &mPattern.mBlock[last];
  }

  Contribution& Add(BlockPattern<I> const& block, T const* values) {
    int const at = mPattern.mBlocks++;
    if (at >= mPattern.kMostBlocks) return *this;
    mPattern.mBlock[at] = block;
    mValues[at] = values;
    return *this;
  }

  ContributionPattern<I> mPattern;
  T const* mValues[ContributionPattern<I>::kMostBlocks] = {};
};

}  // namespace Pavex
