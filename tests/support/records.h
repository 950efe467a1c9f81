// Makes records as the processes of a job exchange them, and captures what a step says about
// them.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/matrix/store_type.h"
#include "pavex/runtime/buffer.h"
#include "tests/support/log_level.h"
#include "tests/support/outcome.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Pavex {

using Records = std::vector<MatrixLocalInfo>;

// A piece of a 100 x 100 matrix.
inline MatrixLocalInfo Piece(PavexMatrixStoreType type, MatrixPartition partition,
                             std::int64_t rows, std::int64_t cols, std::int64_t nnz) {
  MatrixLocalInfo info{};
  info.withValues = true;
  info.pattern = 1;
  info.attribute = 2;
  info.storeType = type;
  info.partition = partition;
  info.globalRows = 100;
  info.globalCols = 100;
  info.rows = rows;
  info.cols = cols;
  info.nnz = nnz;
  return info;
}

inline MatrixLocalInfo RowBand(std::int64_t begin, std::int64_t rows) {
  return Piece(STORE_CSR_0, MatrixPartition::RowWise(begin), rows, 100, 7);
}

inline MatrixLocalInfo ColumnBand(std::int64_t begin, std::int64_t cols) {
  return Piece(STORE_CSC_0, MatrixPartition::ColumnWise(begin), 100, cols, 7);
}

inline MatrixLocalInfo Whole() {
  return Piece(STORE_CSR_0, {}, 100, 100, 7);
}

inline MatrixLocalInfo Empty() {
  return Piece(STORE_CSR_0, {}, 0, 0, 0);
}

// Valid as long as `records` is unchanged.
inline Buffer<MatrixLocalInfo> View(Records& records) {
  Buffer<MatrixLocalInfo> view;
  view.Borrow(records.data(), static_cast<std::int64_t>(records.size()));
  return view;
}

struct Verdict {
  PavexStatus status = 99;
  std::string output;
};

// The status of `check`, and what it prints with debug lines on.
template <typename Check>
Verdict Judge(Check check, Records records) {
  LogLevel const level(LOG_DEBUG);
  Verdict verdict;
  verdict.output = CaptureStdout([&] { verdict.status = check(View(records)); });
  return verdict;
}

inline void ExpectAgreed(Verdict const& verdict) {
  EXPECT_EQ(verdict.status, STATUS_OK);
  EXPECT_EQ(verdict.output, "");
}

inline void ExpectInconsistent(Verdict const& verdict, char const* line) {
  EXPECT_EQ(verdict.status, -16);
  EXPECT_EQ(verdict.output, line);
}

}  // namespace Pavex
