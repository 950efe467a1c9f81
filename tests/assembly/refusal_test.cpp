// Wrong input: every process returns the same status and names the process at fault.

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "pavex/runtime/self_comm.h"
#include "tests/assembly/spoiled_input.h"
#include "tests/support/capture.h"
#include "tests/support/ledger_pool.h"

#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace Pavex {
namespace {

// What all ranks return, print and describe.
struct Verdict {
  PavexStatus status = STATUS_OK;
  std::string reason;
};

using SpoilRank = std::function<void(int rank, Input& input)>;

Verdict Spoil(SpoilRank const& spoil, int receiver = 0) {
  Verdict verdict;
  std::string const printed = CaptureStdout([&] {
    LocalComm::Run(3, [&](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      Assembler<double, int> assembler(&pool);
      Input input;
      input.request.mReceiver = receiver;
      spoil(comm->Rank(), input);
      PavexStatus const status = assembler.Gather(comm, input.own, input.request);
      EXPECT_EQ(assembler.Whole(), nullptr);
      int number = status;
      EXPECT_EQ(comm->Bcast(&number, 1, DATATYPE_INT, 1), STATUS_OK);
      EXPECT_EQ(number, status);
      if (comm->Rank() == 0) verdict = {status, assembler.Describe()};
      Input const good;
      EXPECT_EQ(assembler.Gather(comm, good.own, good.request), STATUS_OK) << "afterwards";
    });
  });
  EXPECT_EQ(CountOf("[ERROR] " + verdict.reason + "\n", printed), 3) << printed;
  return verdict;
}

void ExpectRefused(PavexStatus status, std::string const& reason,
                   std::function<void(Input& input)> const& spoil) {
  Verdict const verdict = Spoil([&spoil](int rank, Input& input) {
    if (rank == 1) spoil(input);
  });
  EXPECT_EQ(verdict.status, status) << reason;
  EXPECT_EQ(verdict.reason, reason);
}

TEST(AssemblerRefuses, RowsOutsideTheWhole) {
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1, row 1 of its list is 4; pass 0 to 3.",
                [](Input& input) { input.rows[1] = 4; });
  for (long const begin : {-1L, 5L}) {
    std::string const row = std::to_string(begin);
    ExpectRefused(STATUS_INVALID_VALUE,
                  "Process 1 has rows " + row + " to " + row +
                      " of 4; correct its begin, its rows or mRows.",
                  [begin](Input& input) {
                    input.own = Own::Band(begin, 1).Csr(input.offsets.data(), input.cols.data(),
                                                        input.values.data());
                  });
  }
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 has rows 3 to 4 of 4; correct its begin, its rows or mRows.",
                [](Input& input) {
                  input.own = Own::Band(3, 2).Csr(input.offsets.data(), input.cols.data(),
                                                  input.values.data());
                });
  ExpectRefused(
      STATUS_INVALID_VALUE, "Process 1, entry 1 has row -1; pass 0 to 3.", [](Input& input) {
        input.rows[1] = -1;
        input.own = Own().Coo(2, input.rows.data(), input.cols.data(), input.values.data());
      });
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1, entry 1 has row 2; pass 0 to 1.",
                [](Input& input) {
                  input.own = Own::Band(0, 2).LocalCoo(2, input.rows.data(), input.cols.data(),
                                                       input.values.data());
                });
}

TEST(AssemblerRefuses, ColumnsOutsideTheWholeOrTheMap) {
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1, row 2 has column 4; pass 0 to 3.",
                [](Input& input) { input.cols[1] = 4; });
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1, row 0 has column 7; pass 0 to 3.",
                [](Input& input) { input.cols[0] = 7; });
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1, row 0 has column -1; pass 0 to 3.",
                [](Input& input) { input.cols[0] = -1; });
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1, row 2 has column -2; pass 0 to 3.",
                [](Input& input) { input.cols[1] = -2; });
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1, row 2 has column 3; pass 0 to 2.",
                [](Input& input) { input.own.Columns(input.map.data(), 3); });
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1, column 2 of its map is -5; pass 0 to 3.",
                [](Input& input) {
                  input.map[2] = -5;
                  input.own.Columns(input.map.data(), 4);
                });
  ExpectRefused(
      STATUS_INVALID_VALUE, "Process 1, row 2 has column 9; pass 0 to 3.", [](Input& input) {
        input.cols[1] = 9;
        input.own =
            Own::Rows(2, input.rows.data())
                .LocalCoo(2, input.offsets.data(), input.cols.data(), input.values.data());
      });
}

TEST(AssemblerRefuses, RowsAndColumnsWhereThereAreNone) {
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 passes row 0, but there are no rows; pass none, or set the shape.",
                [](Input& input) {
                  input.own = Own().LocalCoo(2, input.offsets.data(), input.cols.data(),
                                             input.values.data());
                });
  ExpectRefused(
      STATUS_INVALID_VALUE,
      "Process 1 passes column 1, but there are no columns; pass none, or set the shape.",
      [](Input& input) { input.own.Columns(input.map.data(), 0); });
  ExpectRefused(
      STATUS_INVALID_VALUE,
      "Process 1 passes column 3, but there are no columns; pass none, or set the shape.",
      [](Input& input) {
        input.request.mCols = 0;
        input.own.Columns(input.map.data(), 4);
      });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 passes row 2, but there are no rows; pass none, or set the shape.",
                [](Input& input) {
                  input.request.mRows = 0;
                  input.own = Own::Rows(1, &input.rows[1]);
                });
}

TEST(AssemblerRefuses, ArraysThatAreMissing) {
  auto const missing = [](std::string const& name) {
    return "Process 1 passes no " + name + "; pass the array.";
  };
  ExpectRefused(STATUS_INVALID_VALUE, missing("row offsets"), [](Input& input) {
    input.own = Own::Band(0, 2).Csr(nullptr, input.cols.data(), input.values.data());
  });
  ExpectRefused(STATUS_INVALID_VALUE, missing("columns"), [](Input& input) {
    input.own = Own::Band(0, 2).Csr(input.offsets.data(), nullptr, input.values.data());
  });
  ExpectRefused(STATUS_INVALID_VALUE, missing("values"), [](Input& input) {
    input.own = Own::Band(0, 2).Csr(input.offsets.data(), input.cols.data(), nullptr);
  });
  ExpectRefused(STATUS_INVALID_VALUE, missing("list of its rows"),
                [](Input& input) { input.own = Own::Rows(1, nullptr); });
  ExpectRefused(STATUS_INVALID_VALUE, missing("rows of the entries"), [](Input& input) {
    input.own = Own().Coo(1, nullptr, input.cols.data(), input.values.data());
  });
  ExpectRefused(STATUS_INVALID_VALUE, missing("map of columns"),
                [](Input& input) { input.own.Columns(nullptr, 1); });
}

TEST(AssemblerRefuses, CountsThatMakeNoSense) {
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1, row 0 has -1 entries; pass offsets that ascend.", [](Input& input) {
                  input.offsets = {1, 0, 2};
                });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 passes -2 rows, entries or columns; pass 0 or more.",
                [](Input& input) { input.own = Own::Band(0, -2); });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 passes -3 rows, entries or columns; pass 0 or more.",
                [](Input& input) { input.own = Own().Coo(-3, nullptr, nullptr, nullptr); });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 passes -4 rows, entries or columns; pass 0 or more.",
                [](Input& input) { input.own.Columns(input.map.data(), -4); });
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1 passes 3 blocks; pass at most 2.",
                [](Input& input) {
                  for (int k = 0; k < 2; ++k)
                    input.own.LocalCoo(0, nullptr, nullptr, nullptr).Columns(nullptr, 0);
                });
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1 passes 3 blocks; pass at most 2.",
                [](Input& input) {
                  for (int k = 0; k < 2; ++k)
                    input.own.Csr(input.offsets.data(), input.cols.data(), input.values.data());
                });
}

TEST(AssemblerRefuses, CountsBeyondAnyArrayBeforeItReadsOne) {
  constexpr long kMost = std::numeric_limits<long>::max();
  ExpectRefused(STATUS_NOT_SUPPORTED, "Process 1 passes 3000000000 entries; use long indices.",
                [](Input& input) {
                  input.own = Own().Coo(3000000000, input.rows.data(), input.cols.data(),
                                        input.values.data());
                });
  ExpectRefused(STATUS_NOT_SUPPORTED,
                "Up to process 1 there are more than 2147483647 entries or rows; pass fewer.",
                [](Input& input) { input.own = Own::Rows(kMost, input.rows.data()); });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 has rows 2 to -9223372036854775808 of 4; correct its begin, its "
                "rows or mRows.",
                [](Input& input) {
                  input.own = Own::Band(2, kMost).LocalCoo(0, nullptr, nullptr, nullptr);
                });
}

TEST(AssemblerRefuses, OffsetsWhoseDifferencesTheIndexTypeCannotCount) {
  ExpectRefused(
      STATUS_NOT_SUPPORTED, "Process 1 passes 4294967295 entries; use long indices.",
      [](Input& input) {
        input.offsets = {std::numeric_limits<int>::min(), 0, std::numeric_limits<int>::max()};
      });
  ExpectRefused(
      STATUS_INVALID_VALUE,
      "Process 1, row 0 has -4294967295 entries; pass offsets that ascend.", [](Input& input) {
        input.offsets = {std::numeric_limits<int>::max(), std::numeric_limits<int>::min(), 0};
      });
}

TEST(AssemblerRefuses, SizesWhoseBytesCannotBeCounted) {
  CaptureStdout([] {
    LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      Assembler<double, long> assembler(&pool);
      AssemblyRequest request;
      request.mRows = (1L << 61) - 1;  // 1 more offsets take 2^64 bytes
      request.mCols = 4;
      EXPECT_EQ(assembler.Gather(comm, Contribution<double, long>(), request),
                STATUS_INVALID_VALUE);
      EXPECT_EQ(assembler.Describe(),
                "Process 0 wants a whole of 2305843009213693951 x 4; pass 0 to "
                "1152921504606846973.");
      long const offsets[] = {std::numeric_limits<long>::min(),
                              std::numeric_limits<long>::max()};
      long const col = 0;
      double const value = 1;
      request.mRows = 4;
      auto const own = Contribution<double, long>::Band(0, 1).Csr(offsets, &col, &value);
      EXPECT_EQ(assembler.Gather(comm, own, request), STATUS_INVALID_VALUE);
      EXPECT_EQ(assembler.Describe(),
                "Process 0 passes -1 rows, entries or columns; pass 0 or more.");
      constexpr long kMost = std::numeric_limits<long>::max();
      auto const sum = Contribution<double, long>()
                           .Coo(1, &col, &col, &value)
                           .Coo(kMost, &col, &col, &value);  // refused before it is read
      EXPECT_EQ(assembler.Gather(comm, sum, request), STATUS_INVALID_VALUE);
      EXPECT_EQ(assembler.Describe(),
                "Process 0 passes -9223372036854775808 rows, entries or columns of block 2; "
                "pass 0 or more.");
    });
  });
}

TEST(AssemblerRefuses, AMapOfColumnsBeforeItsBlock) {
  ExpectRefused(
      STATUS_INVALID_VALUE,
      "Process 1 maps columns before it adds a block; add the block first.", [](Input& input) {
        input.own = Own::Rows(2, input.rows.data())
                        .Columns(input.map.data(), 4)
                        .Csr(input.offsets.data(), input.cols.data(), input.values.data());
      });
}

TEST(AssemblerRefuses, RequestsThatDiffer) {
  ExpectRefused(STATUS_INCONSISTENT,
                "Process 1 wants a whole of 5 x 4, process 0 wants 4 x 4; pass one shape.",
                [](Input& input) { input.request.mRows = 5; });
  ExpectRefused(STATUS_INCONSISTENT,
                "Process 1 wants a whole of 4 x 5, process 0 wants 4 x 4; pass one shape.",
                [](Input& input) { input.request.mCols = 5; });
  ExpectRefused(STATUS_INCONSISTENT,
                "Process 1 wants receiver -1, process 0 wants 0; pass one receiver.",
                [](Input& input) { input.request.mReceiver = kEverybody; });
  ExpectRefused(STATUS_INCONSISTENT,
                "Process 1 wants no values, process 0 wants values; pass one request.",
                [](Input& input) { input.request.mWithValues = false; });
  ExpectRefused(
      STATUS_INCONSISTENT,
      "Process 1 wants columns in any order, process 0 wants them sorted; pass one order.",
      [](Input& input) { input.request.mSortColumns = false; });
  ExpectRefused(STATUS_INCONSISTENT,
                "Process 1 wants base 1, process 0 wants 0; pass one base.",
                [](Input& input) { input.request.mBase = 1; });
}

TEST(AssemblerRefuses, ARequestThatOnlyProcess0DoesNotMake) {
  Verdict verdict = Spoil([](int rank, Input& input) { input.request.mWithValues = rank > 0; });
  EXPECT_EQ(verdict.status, STATUS_INCONSISTENT);
  EXPECT_EQ(verdict.reason,
            "Process 1 wants values, process 0 wants no values; pass one request.");

  verdict = Spoil([](int rank, Input& input) { input.request.mSortColumns = rank > 0; });
  EXPECT_EQ(verdict.status, STATUS_INCONSISTENT);
  EXPECT_EQ(
      verdict.reason,
      "Process 1 wants columns sorted, process 0 wants them in any order; pass one order.");
}

// A second block, which a test spoils.
TEST(AssemblerRefuses, OneOfTwoBlocksByItsNumber) {
  auto const second = [](Input& input) -> Own& {
    return input.own.Csr(input.offsets.data(), input.cols.data(), input.values.data());
  };
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1, row 2 of block 1 has column 4; pass 0 to 3.",
                [&](Input& input) {
                  second(input).Columns(input.map.data(), 4);
                  input.cols[1] = 4;
                });
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1, row 2 of block 2 has column 3; pass 0 to 2.",
                [&](Input& input) { second(input).Columns(input.map.data(), 3); });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1, column 2 of its map of block 2 is 4; pass 0 to 3.",
                [&](Input& input) {
                  second(input).Columns(input.map.data(), 3);
                  input.map[2] = 4;
                });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 passes column 1 of block 2, but there are no columns; pass none, or "
                "set the shape.",
                [&](Input& input) { second(input).Columns(input.map.data(), 0); });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 passes no map of columns of block 2; pass the array.",
                [&](Input& input) { second(input).Columns(nullptr, 1); });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 passes -4 rows, entries or columns of block 2; pass 0 or more.",
                [&](Input& input) { second(input).Columns(nullptr, -4); });
  ExpectRefused(
      STATUS_INVALID_VALUE, "Process 1 passes no row offsets of block 2; pass the array.",
      [](Input& input) { input.own.Csr(nullptr, input.cols.data(), input.values.data()); });
  ExpectRefused(
      STATUS_INVALID_VALUE, "Process 1 passes no values of block 2; pass the array.",
      [](Input& input) { input.own.Csr(input.offsets.data(), input.cols.data(), nullptr); });
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1, entry 1 of block 2 has row -1; pass 0 to 3.",
                [](Input& input) {
                  input.map = {1, -1};
                  input.own.Coo(2, input.map.data(), input.cols.data(), input.values.data());
                });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1, row 2 of block 2 has -1 entries; pass offsets that ascend.",
                [](Input& input) {
                  input.map = {0, 1, 0};
                  input.own.Csr(input.map.data(), input.cols.data(), input.values.data());
                });
}

TEST(AssemblerRefuses, TheFlawOfTheFirstProcessThatHasOneUnderAnyReceiver) {
  for (int const receiver : {0, 1, 2, kEverybody}) {
    Verdict const verdict = Spoil(
        [](int rank, Input& input) {
          if (rank > 0) input.rows[1] = 3 + rank;
        },
        receiver);

    EXPECT_EQ(verdict.status, STATUS_INVALID_VALUE);
    EXPECT_EQ(verdict.reason, "Process 1, row 1 of its list is 4; pass 0 to 3.");
  }
}

TEST(AssemblerRefuses, RequestsThatNoGatherCanMeet) {
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1 wants receiver 3; pass 0 to 2, or kEverybody.",
                [](Input& input) { input.request.mReceiver = 3; });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 wants receiver -2; pass 0 to 2, or kEverybody.",
                [](Input& input) { input.request.mReceiver = -2; });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 wants a whole of 4 x -1; pass 0 to 2147483646.",
                [](Input& input) { input.request.mCols = -1; });
  ExpectRefused(STATUS_INVALID_VALUE, "Process 1 wants base 2; pass 0 or 1.",
                [](Input& input) { input.request.mBase = 2; });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 wants a whole of -1 x 4; pass 0 to 2147483646.",
                [](Input& input) { input.request.mRows = -1; });
  ExpectRefused(STATUS_INVALID_VALUE,
                "Process 1 wants a whole of 4 x 2147483647; pass 0 to 2147483646.",
                [](Input& input) { input.request.mCols = 2147483647; });
}

TEST(AssemblerRefuses, IndicesThatLieTooFarApartToBeCounted) {
  long const far[] = {std::numeric_limits<long>::max(), std::numeric_limits<long>::min()};
  long const near[] = {0, 1};
  double const values[] = {1, 2};
  AssemblyRequest request;
  request.mRows = request.mCols = 4;
  for (bool const rows : {true, false}) {
    LedgerPool pool;
    Assembler<double, long> assembler(&pool);
    auto const own =
        Contribution<double, long>().Coo(2, rows ? far : near, rows ? near : far, values);
    CaptureStdout([&] {
      EXPECT_EQ(assembler.Gather(std::make_shared<SelfComm>(), own, request),
                STATUS_INVALID_VALUE);
    });
    EXPECT_EQ(assembler.Describe(),
              rows ? "Process 0, entry 0 has row 9223372036854775807; pass 0 to 3."
                   : "Process 0, row 0 has column 9223372036854775807; pass 0 to 3.");
  }
}

TEST(AssemblerRefuses, AMissingCommunicatorAlone) {
  LedgerPool pool;
  Assembler<double, int> assembler(&pool);
  CaptureStdout([&assembler] {
    EXPECT_EQ(assembler.Gather(nullptr, Own(), AssemblyRequest()), STATUS_INVALID_VALUE);
  });
}

}  // namespace
}  // namespace Pavex
