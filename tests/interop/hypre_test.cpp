// Rows of hypre's matrices and vectors as pieces, on each number of processes.

#include "pavex/interop/hypre.h"

#include "pavex/aggregator/aggregator.h"
#include "pavex/comm/mpi_comm.h"
#include "tests/support/capture.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/log_level.h"

#include <HYPRE.h>
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace Pavex {
namespace {

// hypre's own memory lasts as long as the tests.
class HypreLibrary : public testing::Environment {
 public:
  void SetUp() override { HYPRE_Init(); }
  void TearDown() override { HYPRE_Finalize(); }
};
[[maybe_unused]] testing::Environment* const kHypre =
    testing::AddGlobalTestEnvironment(new HypreLibrary);

// Rows and columns of the whole, in the type of this hypre.
using Global = HYPRE_BigInt;

double ValueOf(Global row, Global col, int step) {
  return 1 + static_cast<double>(row) + 0.001 * static_cast<double>(col) + 1000.0 * step;
}

// Which columns row i has, in any order.
using Pattern = std::function<std::vector<Global>(Global row)>;

// The first row or column of this process, and the one behind its last: `counts[r]` each.
struct Range {
  Range(std::vector<int> const& counts, int rank)
      : begin(std::accumulate(counts.begin(), counts.begin() + rank, 0)),
        end(begin + counts[static_cast<std::size_t>(rank)]) {}
  Global begin;
  Global end;
};

// A matrix of hypre whose rows and columns the processes share as `rowCounts` and `colCounts`
// say, with the values of ValueOf.
class Matrix {
 public:
  Matrix(std::vector<int> const& rowCounts, std::vector<int> const& colCounts, int rank,
         Pattern pattern)
      : mRows(rowCounts, rank), mPattern(std::move(pattern)) {
    Range const cols(colCounts, rank);
    HYPRE_IJMatrixCreate(MPI_COMM_WORLD, mRows.begin, mRows.end - 1, cols.begin, cols.end - 1,
                         &mMatrix);
    HYPRE_IJMatrixSetObjectType(mMatrix, HYPRE_PARCSR);
    SetValues(0);
  }
  Matrix(Matrix const&) = delete;
  Matrix& operator=(Matrix const&) = delete;
  ~Matrix() { HYPRE_IJMatrixDestroy(mMatrix); }

  void SetValues(int step) {
    HYPRE_IJMatrixInitialize(mMatrix);
    for (Global row = mRows.begin; row < mRows.end; ++row) {
      std::vector<Global> const cols = mPattern(row);
      std::vector<double> values;
      values.reserve(cols.size());
      for (Global const col : cols)
        values.push_back(ValueOf(row, col, step));
      auto count = static_cast<HYPRE_Int>(cols.size());
      if (count > 0)
        HYPRE_IJMatrixSetValues(mMatrix, 1, &count, &row, cols.data(), values.data());
    }
    HYPRE_IJMatrixAssemble(mMatrix);
  }

  HYPRE_ParCSRMatrix ParCsr() const {
    void* object = nullptr;
    HYPRE_IJMatrixGetObject(mMatrix, &object);
    return static_cast<HYPRE_ParCSRMatrix>(object);
  }

 private:
  Range mRows;
  Pattern mPattern;
  HYPRE_IJMatrix mMatrix = nullptr;
};

// The rows [begin, end) of a matrix as they should be.
struct Expected {
  Expected(Global begin, Global end, Pattern const& pattern, int step) {
    for (Global row = begin; row < end; ++row) {
      std::vector<Global> cols = pattern(row);
      std::sort(cols.begin(), cols.end());
      for (Global const col : cols) {
        idx.push_back(static_cast<HypreIndex>(col));
        values.push_back(ValueOf(row, col, step));
      }
      ptr.push_back(static_cast<HypreIndex>(idx.size()));
    }
  }
  std::vector<HypreIndex> ptr{0};
  std::vector<HypreIndex> idx;
  std::vector<double> values;
};

void ExpectRows(HypreCsr const& piece, Expected const& expected) {
  ASSERT_EQ(piece.mRows + 1, static_cast<long>(expected.ptr.size()));
  ASSERT_EQ(piece.NNZ(), static_cast<long>(expected.idx.size()));
  auto const entries = expected.idx.size();
  EXPECT_EQ(std::vector<HypreIndex>(piece.mRowPtr.mData, piece.mRowPtr.mData + piece.mRows + 1),
            expected.ptr);
  EXPECT_EQ(std::vector<HypreIndex>(piece.mColIdx.mData, piece.mColIdx.mData + entries),
            expected.idx);
  EXPECT_EQ(std::vector<double>(piece.mValues.mData, piece.mValues.mData + entries),
            expected.values);
}

// A different number of rows on each process, and none on those in `empty`.
std::vector<int> Counts(int size, std::vector<int> const& empty = {}) {
  std::vector<int> counts;
  for (int r = 0; r < size; ++r) {
    bool const none = std::find(empty.begin(), empty.end(), r) != empty.end();
    counts.push_back(none ? 0 : 3 + r % 3);
  }
  return counts;
}

int Total(std::vector<int> const& counts) {
  return std::accumulate(counts.begin(), counts.end(), 0);
}

// Columns on all processes, in descending order; row 2 has none.
Pattern Scattered(int cols) {
  return [cols](Global row) {
    std::vector<Global> columns;
    for (Global col = cols - 1; col >= 0 && row != 2; --col)
      if (col == row || (3 * row + 5 * col) % 4 == 1) columns.push_back(col);
    return columns;
  };
}

class Hypre : public testing::Test {
 protected:
  std::shared_ptr<MpiComm> const mComm = std::make_shared<MpiComm>(MPI_COMM_WORLD);
  int const mRank = mComm->Rank();
  int const mSize = mComm->Size();
  std::vector<int> const mCounts = Counts(mSize);
  int const mTotal = Total(mCounts);
  Range const mOwn{mCounts, mRank};
  Pattern const mPattern = Scattered(mTotal);
  LedgerPool mPool;
};

using HypreRowsTest = Hypre;

TEST_F(HypreRowsTest, AreThoseOfTheMatrixWithAscendingColumns) {
  Matrix const matrix(mCounts, mCounts, mRank, mPattern);
  HypreRows rows(&mPool);

  ASSERT_EQ(rows.Attach(matrix.ParCsr()), STATUS_OK);

  ExpectRows(rows.Piece(), Expected(mOwn.begin, mOwn.end, mPattern, 0));
  EXPECT_EQ(rows.Piece().mGlobalRows, mTotal);
  EXPECT_EQ(rows.Piece().mGlobalCols, mTotal);
  EXPECT_EQ(rows.Piece().mPartition.type, PARTITION_ROW_WISE);
  EXPECT_EQ(rows.Piece().mPartition.begin, mOwn.begin);
}

TEST_F(HypreRowsTest, OfARectangularMatrixAreThoseOfTheMatrix) {
  std::vector<int> colCounts = mCounts;
  for (int& count : colCounts)
    count += 2;
  Pattern const pattern = Scattered(Total(colCounts));
  Matrix const matrix(mCounts, colCounts, mRank, pattern);
  HypreRows rows(&mPool);

  ASSERT_EQ(rows.Attach(matrix.ParCsr()), STATUS_OK);

  ExpectRows(rows.Piece(), Expected(mOwn.begin, mOwn.end, pattern, 0));
  EXPECT_EQ(rows.Piece().mGlobalCols, Total(colCounts));
}

TEST_F(HypreRowsTest, TakeNewValuesIntoTheSameArrays) {
  Matrix matrix(mCounts, mCounts, mRank, mPattern);
  HypreRows rows(&mPool);
  ASSERT_EQ(rows.Attach(matrix.ParCsr()), STATUS_OK);
  double const* const values = rows.Piece().mValues.mData;
  std::size_t const events = mPool.Events().size();

  matrix.SetValues(1);
  ASSERT_EQ(rows.Refresh(), STATUS_OK);

  ExpectRows(rows.Piece(), Expected(mOwn.begin, mOwn.end, mPattern, 1));
  EXPECT_EQ(rows.Piece().mValues.mData, values);
  EXPECT_EQ(mPool.Events().size(), events);
}

TEST_F(HypreRowsTest, WithoutEntriesHaveOneZero) {
  bool const isMine = mRank == mSize - 1;
  Range const last(mCounts, mSize - 1);
  Pattern const pattern = [&](Global row) {
    return row >= last.begin ? std::vector<Global>{} : mPattern(row);
  };
  Matrix const matrix(mCounts, mCounts, mRank, pattern);
  HypreRows rows(&mPool);

  ASSERT_EQ(rows.Attach(matrix.ParCsr()), STATUS_OK);
  ASSERT_EQ(rows.Refresh(), STATUS_OK);

  if (isMine) {
    EXPECT_EQ(rows.Piece().NNZ(), 1);
    EXPECT_EQ(rows.Piece().mValues.mData[0], 0);
    EXPECT_EQ(rows.Piece().mColIdx.mData[0], 0);
    EXPECT_EQ(rows.Piece().mRowPtr.mData[rows.Piece().mRows], 1);
  } else {
    ExpectRows(rows.Piece(), Expected(mOwn.begin, mOwn.end, pattern, 0));
  }
}

TEST_F(HypreRowsTest, OfWhichSomeProcessesHaveNoneAreGatheredByTheOthers) {
  for (std::vector<int> const& empty :
       std::vector<std::vector<int>>{{}, {0}, {1}, {mSize - 1}, {0, mSize - 1}, {1, 2}}) {
    std::vector<int> const counts = Counts(mSize, empty);
    int const total = Total(counts);
    if (total == 0) continue;
    Pattern const pattern = Scattered(total);
    Matrix matrix(counts, counts, mRank, pattern);
    HypreRows rows(&mPool);
    ASSERT_EQ(rows.Attach(matrix.ParCsr()), STATUS_OK);

    auto const withRows = mComm->Split(rows.Piece().mRows > 0 ? 0 : -1, mRank);
    if (withRows == nullptr) continue;
    Aggregator<HypreValue, HypreIndex> aggregator(&mPool);
    ASSERT_EQ(aggregator.Gather(withRows, rows.Piece(), true), STATUS_OK);
    HypreCsr const* whole = aggregator.TargetAs<HypreCsr>();

    if (whole != nullptr) ExpectRows(*whole, Expected(0, total, pattern, 0));
    EXPECT_EQ(whole != nullptr, withRows->Rank() == 0);
  }
}

TEST_F(HypreRowsTest, UpdateAGatheredMatrix) {
  Matrix matrix(mCounts, mCounts, mRank, mPattern);
  HypreRows rows(&mPool);
  Aggregator<HypreValue, HypreIndex> aggregator(&mPool);
  ASSERT_EQ(rows.Attach(matrix.ParCsr()), STATUS_OK);
  ASSERT_EQ(aggregator.Allgather(mComm, rows.Piece(), true), STATUS_OK);

  matrix.SetValues(2);
  ASSERT_EQ(rows.Refresh(), STATUS_OK);
  ASSERT_EQ(aggregator.Update(rows.Piece()), STATUS_OK);

  ExpectRows(*aggregator.TargetAs<HypreCsr>(), Expected(0, mTotal, mPattern, 2));
}

TEST_F(HypreRowsTest, OfAMatrixWithAnotherPatternAreRefused) {
  Matrix const matrix(mCounts, mCounts, mRank, mPattern);
  HypreRows rows(&mPool);
  ASSERT_EQ(rows.Attach(matrix.ParCsr()), STATUS_OK);
  HYPRE_Int* const offsets = hypre_CSRMatrixI(hypre_ParCSRMatrixDiag(matrix.ParCsr()));
  PavexStatus status = STATUS_OK;

  --offsets[1];
  std::string const log = CaptureStdout([&] { status = rows.Refresh(); });
  ++offsets[1];

  EXPECT_EQ(status, STATUS_MISMATCH);
  EXPECT_EQ(log.rfind("[ERROR] The pattern of the hypre matrix has changed.\n", 0), 0U) << log;
  EXPECT_EQ(rows.Refresh(), STATUS_OK);
}

TEST_F(HypreRowsTest, OfNoMatrixAreRefused) {
  HypreRows rows(&mPool);
  LogLevel const silent(LOG_FATAL);

  EXPECT_EQ(rows.Refresh(), STATUS_WRONG_ORDER);
  EXPECT_EQ(rows.Attach(nullptr), STATUS_INVALID_VALUE);
  EXPECT_EQ(rows.Refresh(), STATUS_WRONG_ORDER);
  EXPECT_EQ(rows.Piece().mRows, 0);
}

TEST_F(HypreRowsTest, AreNotAttachedWithoutMemory) {
  Matrix const matrix(mCounts, mCounts, mRank, mPattern);
  LogLevel const silent(LOG_FATAL);
  int failures = 0;
  for (int nth = 1;; ++nth) {
    HypreRows rows(&mPool);
    mPool.Fail(Fault::Once(nth, STATUS_OUT_OF_MEMORY));
    PavexStatus const status = rows.Attach(matrix.ParCsr());
    bool const struck = mPool.FaultStruck();
    mPool.Fail(Fault());
    if (!struck) break;
    ++failures;
    EXPECT_EQ(status, STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(rows.Piece().mRows, 0);
    EXPECT_EQ(rows.Refresh(), STATUS_WRONG_ORDER);
  }
  EXPECT_EQ(failures, 5);  // three arrays of the piece, two of its own
}

// A vector of hypre with `components` columns: element (row, column) is row + 0.5 * column.
class Vector {
 public:
  Vector(Range const& rows, int components) : mRows(rows), mComponents(components) {
    HYPRE_IJVectorCreate(MPI_COMM_WORLD, rows.begin, rows.end - 1, &mVector);
    HYPRE_IJVectorSetObjectType(mVector, HYPRE_PARCSR);
    HYPRE_IJVectorSetNumComponents(mVector, components);
    HYPRE_IJVectorInitialize(mVector);
    for (int column = 0; column < components; ++column) {
      HYPRE_IJVectorSetComponent(mVector, column);
      for (Global row = rows.begin; row < rows.end; ++row) {
        double const value = static_cast<double>(row) + 0.5 * column;
        HYPRE_IJVectorSetValues(mVector, 1, &row, &value);
      }
    }
    HYPRE_IJVectorAssemble(mVector);
  }
  Vector(Vector const&) = delete;
  Vector& operator=(Vector const&) = delete;
  ~Vector() { HYPRE_IJVectorDestroy(mVector); }

  HYPRE_IJVector Get() const { return mVector; }

  void ExpectValues(double shift) const {
    for (int column = 0; column < mComponents; ++column) {
      HYPRE_IJVectorSetComponent(mVector, column);
      for (Global row = mRows.begin; row < mRows.end; ++row) {
        double value = -1;
        HYPRE_IJVectorGetValues(mVector, 1, &row, &value);
        EXPECT_EQ(value, static_cast<double>(row) + 0.5 * column + shift);
      }
    }
  }

 private:
  Range mRows;
  int mComponents;
  HYPRE_IJVector mVector = nullptr;
};

using HypreVectorTest = Hypre;

TEST_F(HypreVectorTest, IsGatheredAndScatteredWithoutACopyOfItsBand) {
  for (int const components : {1, 3}) {
    Vector const vector(mOwn, components);
    HypreDense band;
    ASSERT_EQ(BorrowHypreVector(vector.Get(), band), STATUS_OK);
    EXPECT_EQ(band.mValues.mAllocator, nullptr);
    Aggregator<HypreValue, HypreIndex> aggregator(&mPool);
    ASSERT_EQ(aggregator.Gather(mComm, band, true), STATUS_OK);
    HypreDense* const whole = aggregator.TargetAs<HypreDense>();
    if (whole != nullptr) {
      ASSERT_EQ(whole->mRows, mTotal);
      ASSERT_EQ(whole->mCols, components);
      for (int i = 0; i < mTotal * components; ++i) {
        EXPECT_EQ(whole->mValues.mData[i], i % mTotal + 0.5 * (i / mTotal));
      }
      for (int i = 0; i < mTotal * components && mSize > 1; ++i)
        whole->mValues.mData[i] += 100;
    }
    ASSERT_EQ(aggregator.Scatter(band), STATUS_OK);

    vector.ExpectValues(mSize > 1 ? 100 : 0);
  }
}

TEST_F(HypreVectorTest, WithoutValuesIsRefused) {
  LogLevel const silent(LOG_FATAL);
  HypreDense band;

  EXPECT_EQ(BorrowHypreVector(nullptr, band), STATUS_INVALID_VALUE);
}

}  // namespace
}  // namespace Pavex
