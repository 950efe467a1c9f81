// Describes how a local piece lies in the global matrix.

#pragma once

#include <cstddef>
#include <cstdint>

namespace Pavex {

// The kinds of pieces.
enum PartitionType : std::int32_t {
  PARTITION_ROW_WISE = 0,      // a band of whole rows
  PARTITION_COLUMN_WISE = 1,   // a band of whole columns
  PARTITION_NONZERO_WISE = 2,  // any share of the entries
  PARTITION_NONE = 3           // not declared as a piece of a larger matrix
};

// The kind of a piece and where it begins.
struct MatrixPartition {
  std::int32_t type = PARTITION_NONE;  // a PartitionType; any number may arrive from a peer
  std::int64_t begin = 0;  // first global row (row-wise) or column (column-wise) of the piece

  // A band of whole rows from the global row `begin` on.
  static MatrixPartition RowWise(std::int64_t begin) { return {PARTITION_ROW_WISE, begin}; }

  // A band of whole columns from the global column `begin` on.
  static MatrixPartition ColumnWise(std::int64_t begin) {
    return {PARTITION_COLUMN_WISE, begin};
  }

  // Any share of the entries.
  static MatrixPartition NonzeroWise() { return {PARTITION_NONZERO_WISE, 0}; }
};

static_assert(sizeof(MatrixPartition) == 16, "part of the binary interface");
static_assert(offsetof(MatrixPartition, type) == 0, "part of the binary interface");
static_assert(offsetof(MatrixPartition, begin) == 8, "part of the binary interface");

}  // namespace Pavex
