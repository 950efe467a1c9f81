// The record by which each process describes its local matrix to the others at the start of a
// gather.

#pragma once

#include "pavex/matrix/partition.h"
#include "pavex/matrix/store.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Pavex {

// How the matrix is spread over the processes.
enum DistMatrixMode : std::int32_t {
  DISTRIBUTED = 0,      // every process holds a non-empty piece
  CENTRALIZED_ALL = 1,  // every process holds the whole matrix
  CENTRALIZED_ONE = 2   // one process holds the whole matrix, the others hold empty ones
};

// Used in place of a rank: all processes, as the root of a gather to all.
inline constexpr int kEverybody = -1;
// Used in place of a rank: no process.
inline constexpr int kNobody = -2;

// The enumerator's name; "unknown" for any other value.
inline char const* DistMatrixModeStr(DistMatrixMode mode) noexcept {
  switch (mode) {
    case DISTRIBUTED:
      return "DISTRIBUTED";
    case CENTRALIZED_ALL:
      return "CENTRALIZED_ALL";
    case CENTRALIZED_ONE:
      return "CENTRALIZED_ONE";
  }
  return "unknown";
}

// The record of one process. It crosses process boundaries as 72 raw bytes, so that all
// processes of a job must share byte order and this layout:
//
//   offset  size  field
//        0     1  withValues (3 bytes of padding follow)
//        4     4  pattern
//        8     4  attribute
//       12     4  storeType
//       16    16  partition: type at 16, 4 bytes of padding, begin at 24
//       32     8  globalRows
//       40     8  globalCols
//       48     8  rows
//       56     8  cols
//       64     8  nnz
//
// Until it arrives, a record has no partition, and a store type, shapes and entries that no
// matrix has. The padding is not written. Fixed: see docs/compatibility.md.
struct MatrixLocalInfo {
  bool withValues = false;      // the caller's flag: aggregate values as well as the pattern
  std::int32_t pattern = -1;    // MatrixBase::mPattern
  std::int32_t attribute = -1;  // MatrixBase::mAttribute
  PavexMatrixStoreType storeType =
      static_cast<PavexMatrixStoreType>(-1);  // MatrixBase::StoreType()
  MatrixPartition partition;                  // MatrixBase::mPartition
  std::int64_t globalRows = -1;               // MatrixBase::mGlobalRows
  std::int64_t globalCols = -1;               // MatrixBase::mGlobalCols
  std::int64_t rows = -1;                     // MatrixBase::mRows
  std::int64_t cols = -1;                     // MatrixBase::mCols
  std::int64_t nnz = -1;                      // MatrixBase::NNZ()

  // Whether a process has filled this record.
  bool Arrived() const noexcept {
    return storeType != -1 || partition.type != PARTITION_NONE || rows != -1 || cols != -1 ||
           nnz != -1;
  }

  // Rows, or columns unless `byRows`.
  std::int64_t Lines(bool byRows) const noexcept { return byRows ? rows : cols; }

  // How many runs a dense piece in that order has.
  std::int64_t Runs(bool rowMajor) const noexcept { return Lines(rowMajor); }

  // How many elements a run of a dense piece in that order has.
  std::int64_t RunLength(bool rowMajor) const noexcept { return Lines(!rowMajor); }

  // The flag of a peer is a byte with any value. Every value except 0 is true.
  bool WithValues() const noexcept {
    unsigned char byte = 0;
    std::memcpy(&byte, &withValues, 1);
    return byte != 0;
  }
};

static_assert(sizeof(MatrixLocalInfo) == 72, "fixed by the exchange between processes");
static_assert(std::is_trivially_copyable_v<MatrixLocalInfo>, "crosses processes as raw bytes");
static_assert(offsetof(MatrixLocalInfo, withValues) == 0, "fixed by the exchange");
static_assert(offsetof(MatrixLocalInfo, pattern) == 4, "fixed by the exchange");
static_assert(offsetof(MatrixLocalInfo, attribute) == 8, "fixed by the exchange");
static_assert(offsetof(MatrixLocalInfo, storeType) == 12, "fixed by the exchange");
static_assert(offsetof(MatrixLocalInfo, partition) == 16, "fixed by the exchange");
static_assert(offsetof(MatrixLocalInfo, globalRows) == 32, "fixed by the exchange");
static_assert(offsetof(MatrixLocalInfo, globalCols) == 40, "fixed by the exchange");
static_assert(offsetof(MatrixLocalInfo, rows) == 48, "fixed by the exchange");
static_assert(offsetof(MatrixLocalInfo, cols) == 56, "fixed by the exchange");
static_assert(offsetof(MatrixLocalInfo, nnz) == 64, "fixed by the exchange");

}  // namespace Pavex
