// The store types, and the plain record through which a matrix shows its raw arrays.

#pragma once

#include <cstddef>
#include <cstdint>

// The thirteen store types. A sparse class reports one of three, by its part code. The numbers
// are fixed: see docs/compatibility.md.
enum PavexMatrixStoreType : std::int32_t {
  STORE_TYPE_0 = 0,  // further dense kinds, reported by no class of the library
  STORE_TYPE_1 = 1,
  STORE_CSR_0 = 2,
  STORE_CSR_1 = 3,
  STORE_CSR_2 = 4,
  STORE_CSC_0 = 5,
  STORE_CSC_1 = 6,
  STORE_CSC_2 = 7,
  STORE_COO_0 = 8,
  STORE_COO_1 = 9,
  STORE_COO_2 = 10,
  STORE_DENSE_ROW_MAJOR = 11,
  STORE_DENSE_COL_MAJOR = 12
};

// MatrixBase::Query fills it. It owns nothing: every pointer is valid as long as the matrix and
// its arrays are unchanged. `type` says which view is filled. Array elements have the value and
// index type of the matrix (mValueType, mIndexType).
//
//   offset  size  member
//        0     8  rows
//        8     8  cols
//       16     4  type (4 bytes of padding follow)
//       24    32  one of the views, whose members are 8 bytes each
struct PavexMatrixStore {
  // The view of a dense matrix.
  struct DenseView {
    void* values;     // its first element
    std::int64_t ld;  // elements between the starts of consecutive runs
  };
  // The view of a compressed row or column matrix.
  struct CompressedView {
    void* ptr;     // offsets, rows + 1 (CSR) or cols + 1 (CSC)
    void* idx;     // column (CSR) or row (CSC) of each entry
    void* values;  // null for a pattern
  };
  // The view of a coordinate matrix.
  struct CooView {
    std::int64_t nnz;  // length of the value array: 0 for a pattern
    void* row;         // row of each entry
    void* col;         // column of each entry
    void* values;      // null for a pattern
  };

  std::int64_t rows;          // of the piece
  std::int64_t cols;          // of the piece
  PavexMatrixStoreType type;  // names the view that is filled
  union {
    DenseView dense;
    CompressedView csr;
    CompressedView csc;
    CooView coo;
  };
};

static_assert(sizeof(PavexMatrixStoreType) == 4, "part of the binary interface");
static_assert(sizeof(PavexMatrixStore) == 56, "part of the binary interface");
static_assert(offsetof(PavexMatrixStore, rows) == 0, "part of the binary interface");
static_assert(offsetof(PavexMatrixStore, cols) == 8, "part of the binary interface");
static_assert(offsetof(PavexMatrixStore, type) == 16, "part of the binary interface");
static_assert(offsetof(PavexMatrixStore, dense) == 24, "part of the binary interface");
static_assert(offsetof(PavexMatrixStore, csr) == 24, "part of the binary interface");
static_assert(offsetof(PavexMatrixStore, csc) == 24, "part of the binary interface");
static_assert(offsetof(PavexMatrixStore, coo) == 24, "part of the binary interface");

namespace Pavex {

using ::PavexMatrixStore;
using ::PavexMatrixStoreType;

using ::STORE_COO_0;
using ::STORE_COO_1;
using ::STORE_COO_2;
using ::STORE_CSC_0;
using ::STORE_CSC_1;
using ::STORE_CSC_2;
using ::STORE_CSR_0;
using ::STORE_CSR_1;
using ::STORE_CSR_2;
using ::STORE_DENSE_COL_MAJOR;
using ::STORE_DENSE_ROW_MAJOR;
using ::STORE_TYPE_0;
using ::STORE_TYPE_1;

}  // namespace Pavex
