// Wrong input after a gather: every process refuses an update, a scatter and a collect with the
// same status and line.

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "tests/assembly/spoiled_input.h"
#include "tests/support/capture.h"
#include "tests/support/ledger_pool.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace Pavex {
namespace {

using Dense = MatrixDense<double, int>;

constexpr int kRanks = 3;
constexpr double kOld = 7;

// Two rows of its own on each rank, in one column, and a whole of 4 rows. A test spoils them.
struct Columns {
  double mine[16];
  double all[16];
  Dense own = Dense::Borrow(2, 1, false, 2, mine);
  Dense whole = Dense::Borrow(4, 1, false, 4, all);

  Columns() {
    std::fill_n(mine, 16, kOld);
    std::fill_n(all, 16, kOld);
  }
};

// Gathers the rows {0, 2} of each rank, then scatters and collects what `spoil` leaves: each
// rank returns `status` and prints the reason once for each, and no element changes.
void ExpectRefused(PavexStatus status, std::string const& reason,
                   std::function<void(int rank, Columns& columns)> const& spoil,
                   int receiver = 0) {
  std::string const printed = CaptureStdout([&] {
    LocalComm::Run(kRanks, [&](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      Assembler<double, int> assembler(&pool);
      Input input;
      input.request.mReceiver = receiver;
      ASSERT_EQ(assembler.Gather(comm, input.own, input.request), STATUS_OK);
      Columns columns;
      spoil(comm->Rank(), columns);
      EXPECT_EQ(assembler.Scatter(columns.whole, columns.own), status);
      EXPECT_EQ(assembler.Collect(columns.own, Overlap::ADD, columns.whole), status);
      auto const isOld = [](double element) { return element == kOld; };
      EXPECT_TRUE(std::all_of(columns.mine, columns.mine + 16, isOld));
      EXPECT_TRUE(std::all_of(columns.all, columns.all + 16, isOld));
      Columns good;
      EXPECT_EQ(assembler.Scatter(good.whole, good.own), STATUS_OK) << "afterwards";
    });
  });
  EXPECT_EQ(CountOf("[ERROR] " + reason + "\n", printed), 2 * kRanks) << reason << "\n"
                                                                      << printed;
}

// The same with a flaw in the matrix of rank 1 that has its rows.
void ExpectOwnRefused(PavexStatus status, std::string const& reason,
                      std::function<void(Columns& columns)> const& spoil) {
  ExpectRefused(status, reason, [&spoil](int rank, Columns& columns) {
    if (rank == 1) spoil(columns);
  });
}

// The same with a flaw in the whole on rank 2, which receives.
void ExpectWholeRefused(PavexStatus status, std::string const& reason,
                        std::function<void(Columns& columns)> const& spoil) {
  for (int const receiver : {2, int{kEverybody}}) {
    auto const onTwo = [&spoil](int rank, Columns& columns) {
      if (rank == 2) spoil(columns);
    };
    ExpectRefused(status, reason, onTwo, receiver);
  }
}

TEST(AssemblerRefuses, ADenseMatrixWithOtherRows) {
  ExpectOwnRefused(
      STATUS_INVALID_VALUE, "Process 1 passes 3 dense rows of its own; pass 2.",
      [](Columns& columns) { columns.own = Dense::Borrow(3, 1, false, 3, columns.mine); });
  ExpectWholeRefused(
      STATUS_INVALID_VALUE, "Process 2 passes 2 dense rows of the whole; pass 4.",
      [](Columns& columns) { columns.whole = Dense::Borrow(2, 1, false, 2, columns.all); });
}

TEST(AssemblerRefuses, ADenseMatrixWithFewerThanNoColumns) {
  ExpectOwnRefused(STATUS_INVALID_VALUE,
                   "Process 1 passes -1 rows, entries or columns of its own; pass 0 or more.",
                   [](Columns& columns) { columns.own.mCols = -1; });
  ExpectWholeRefused(
      STATUS_INVALID_VALUE,
      "Process 2 passes -3 rows, entries or columns of the whole; pass 0 or more.",
      [](Columns& columns) { columns.whole.mCols = -3; });
}

TEST(AssemblerRefuses, ADenseMatrixWhoseRunsOverlap) {
  ExpectOwnRefused(
      STATUS_INVALID_VALUE, "Process 1 passes leading dimension 1 of its own; pass at least 2.",
      [](Columns& columns) { columns.own = Dense::Borrow(2, 2, false, 1, columns.mine); });
  ExpectWholeRefused(
      STATUS_INVALID_VALUE,
      "Process 2 passes leading dimension 1 of the whole; pass at least 3.",
      [](Columns& columns) { columns.whole = Dense::Borrow(4, 3, true, 1, columns.all); });
}

TEST(AssemblerRefuses, ADenseMatrixWithoutValues) {
  ExpectOwnRefused(STATUS_INVALID_VALUE,
                   "Process 1 passes no values of its own; pass the array.",
                   [](Columns& columns) {
                     columns.own = Dense::Borrow(2, 1, false, 2, static_cast<double*>(nullptr));
                   });
  ExpectWholeRefused(
      STATUS_INVALID_VALUE, "Process 2 passes no values of the whole; pass the array.",
      [](Columns& columns) {
        columns.whole = Dense::Borrow(4, 1, false, 4, static_cast<double*>(nullptr));
      });
}

TEST(AssemblerRefuses, ADenseMatrixWhoseArrayEndsBeforeItsLastElement) {
  ExpectOwnRefused(STATUS_INVALID_VALUE,
                   "Process 1 passes 1 values of its own; pass at least 2.",
                   [](Columns& columns) { columns.own.mValues.mSize = 1; });
  ExpectOwnRefused(STATUS_INVALID_VALUE,
                   "Process 1 passes 4 values of its own; pass at least 5.",
                   [](Columns& columns) {
                     columns.own = Dense::Borrow(2, 2, false, 3, columns.mine);
                     columns.own.mValues.mSize = 4;
                   });
  ExpectWholeRefused(STATUS_INVALID_VALUE,
                     "Process 2 passes 4 values of the whole; pass at least 16.",
                     [](Columns& columns) { columns.whole.mCols = 4; });
  constexpr long kFar = 1L << 62;  // elements between two columns
  ExpectOwnRefused(STATUS_INVALID_VALUE,
                   "Process 1 passes 2 values of its own; pass at least 4611686018427387906.",
                   [](Columns& columns) {
                     columns.own.mCols = 2;
                     columns.own.mLd = kFar;
                   });
}

TEST(AssemblerRefuses, DenseMatricesWithDifferentColumns) {
  ExpectOwnRefused(
      STATUS_INCONSISTENT,
      "Process 1 passes 2 dense columns, process 0 passes 1; pass as many.",
      [](Columns& columns) { columns.own = Dense::Borrow(2, 2, false, 2, columns.mine); });
  ExpectWholeRefused(
      STATUS_INVALID_VALUE,
      "Process 2 passes 2 columns of the whole and 1 of its own; pass as many.",
      [](Columns& columns) { columns.whole = Dense::Borrow(4, 2, false, 4, columns.all); });
}

TEST(AssemblerRefuses, MoreDenseElementsThanOneCallCounts) {
  constexpr long kMany = 1L << 30;  // columns, of which no element is read
  ExpectRefused(STATUS_NOT_SUPPORTED,
                "Process 0 counts 6 x 1073741824 elements, more than 2147483647; pass fewer "
                "columns.",
                [](int /*rank*/, Columns& columns) {
                  columns.own = Dense::Borrow(2, kMany, false, 2, columns.mine);
                  columns.whole = Dense::Borrow(4, kMany, false, 4, columns.all);
                });
}

TEST(AssemblerRefuses, TheFirstOfSeveralFlawsOfDenseMatrices) {
  ExpectRefused(
      STATUS_INVALID_VALUE, "Process 1 passes 3 dense rows of its own; pass 2.",
      [](int rank, Columns& columns) {
        columns.whole.mCols = -1;  // read on receivers only
        if (rank > 0) columns.own.mRows = 2 + rank;
      },
      1);
}

TEST(AssemblerRefuses, DenseExchangesThatDifferOnEveryProcess) {
  std::string const printed = CaptureStdout([] {
    LocalComm::Run(kRanks, [](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      Assembler<double, int> assembler(&pool);
      Input input;
      input.request.mReceiver = kEverybody;
      ASSERT_EQ(assembler.Gather(comm, input.own, input.request), STATUS_OK);
      Columns columns;
      bool const isOther = comm->Rank() == 2;
      EXPECT_EQ(
          assembler.Collect(columns.own, isOther ? Overlap::ONCE : Overlap::ADD, columns.whole),
          STATUS_INCONSISTENT);
      EXPECT_EQ(isOther ? assembler.Scatter(columns.whole, columns.own)
                        : assembler.Collect(columns.own, Overlap::ADD, columns.whole),
                STATUS_INCONSISTENT);
      EXPECT_EQ(columns.all[0], kOld);
      EXPECT_EQ(columns.mine[0], kOld);
    });
  });
  EXPECT_EQ(CountOf("[ERROR] Process 2 calls another operation or overlap than process 0; call "
                    "one.\n",
                    printed),
            2 * kRanks)
      << printed;
}

TEST(AssemblerRefuses, AnUpdateWithoutValuesOnEveryProcess) {
  std::string const printed = CaptureStdout([] {
    LocalComm::Run(kRanks, [](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      Assembler<double, int> assembler(&pool);
      Input input;
      ASSERT_EQ(assembler.Gather(comm, input.own, input.request), STATUS_OK);
      bool const missing = comm->Rank() == 2;
      EXPECT_EQ(assembler.Update(missing ? nullptr : input.values.data()),
                STATUS_INVALID_VALUE);
      if (assembler.Whole() != nullptr) {
        EXPECT_EQ(assembler.Whole()->mValues.mData[0], kRanks);
      }
      EXPECT_EQ(assembler.Update(input.values.data()), STATUS_OK);
    });
  });
  EXPECT_EQ(CountOf("[ERROR] Process 2 passes no values; pass the array.\n", printed), kRanks)
      << printed;
}

TEST(AssemblerRefuses, AnUpdateWithoutTheValuesOfOneOfTwoBlocksByItsNumber) {
  for (bool const first : {true, false}) {
    std::string const printed = CaptureStdout([first] {
      LocalComm::Run(kRanks, [first](std::shared_ptr<Comm> const& comm) {
        LedgerPool pool;
        Assembler<double, int> assembler(&pool);
        Input input;
        double const* const values = input.values.data();
        input.own.Csr(input.offsets.data(), input.cols.data(), values);
        ASSERT_EQ(assembler.Gather(comm, input.own, input.request), STATUS_OK);
        bool const missing = comm->Rank() == 1;
        EXPECT_EQ(assembler.Update(missing && first ? nullptr : values,
                                   missing && !first ? nullptr : values),
                  STATUS_INVALID_VALUE);
      });
    });
    EXPECT_EQ(CountOf("[ERROR] Process 1 passes no values of block " +
                          std::to_string(first ? 1 : 2) + "; pass the array.\n",
                      printed),
              kRanks)
        << printed;
  }
}

}  // namespace
}  // namespace Pavex
