// What an Assembler returns for pieces that are small enough to check by hand.

#include "pavex/assembly/assembler.h"

#include "pavex/runtime/self_comm.h"
#include "tests/assembly/small_case.h"
#include "tests/support/log_level.h"
#include "tests/support/outcome.h"
#include "tests/support/scripted_comm.h"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Pavex {
namespace {

TEST(AssemblerOfBands, TakesBandsInAnyRankOrderOntoAProcessWithoutRows) {
  TwoBands const bands;
  OnRanks(3, [&bands](auto const& comm, Assembler<double, int>& assembler) {
    ASSERT_EQ(assembler.Gather(comm, bands.Of(comm->Rank()), Square(4, 1)), STATUS_OK);

    EXPECT_EQ(assembler.Path(), AssemblyPath::BANDS);
    EXPECT_TRUE(assembler.SendsAsItIs());
    ASSERT_EQ(assembler.Whole() != nullptr, comm->Rank() == 1);
    if (assembler.Whole() == nullptr) return;
    EXPECT_EQ(List(assembler.Whole()->mRowPtr), (std::vector<int>{0, 1, 3, 4, 5}));
    EXPECT_EQ(List(assembler.Whole()->mColIdx), (std::vector<int>{0, 0, 1, 2, 3}));
    EXPECT_EQ(List(assembler.Whole()->mValues), (std::vector<double>{1, 2, 3, 4, 5}));
  });
}

TEST(AssemblerOfBands, MovesWhatAnAggregatorMovesAndOneRecordMore) {
  TwoBands const bands;
  OnRanks(3, [&bands](auto const& comm, Assembler<double, int>& assembler) {
    ASSERT_EQ(assembler.Gather(comm, bands.Of(comm->Rank()), Square(4, 1)), STATUS_OK);
    if (comm->Rank() == 1) {
      EXPECT_EQ(comm->DataTexts(),
                (std::vector<std::string>{
                    "Allgather(112 byte; 112 byte)", "Allgather(in place 72 byte; 72 byte)",
                    "Gatherv(1 int; {2, 1, 2} at {2, 4, 0} int; root 1)",
                    "Gatherv(0 int; {2, 0, 3} at {3, 5, 0} int; root 1)",
                    "Allgather(112 byte; 112 byte)",
                    "Gatherv(0 double; {2, 0, 3} at {3, 5, 0} double; root 1)"}));
    }
    comm->ForgetCalls();
    ASSERT_EQ(assembler.Update(bands.values[comm->Rank()].data()), STATUS_OK);
    EXPECT_EQ(comm->DataTexts().size(), 2U);
  });
}

TEST(AssemblerOfBands, LeavesRowsThatNoProcessHasEmpty) {
  OnRanks(2, [](auto const& comm, Assembler<double, int>& assembler) {
    std::vector<int> const offsets = {5, 6};
    int const col = comm->Rank();
    double const value = 7 + comm->Rank();
    auto const own = Own::Band(comm->Rank() == 0 ? 3 : 1, 1).Csr(offsets.data(), &col, &value);
    ASSERT_EQ(assembler.Gather(comm, own, Square(5)), STATUS_OK);

    EXPECT_EQ(assembler.Path(), AssemblyPath::BANDS);
    if (comm->Rank() != 0) return;
    EXPECT_EQ(List(assembler.Whole()->mRowPtr), (std::vector<int>{0, 0, 1, 1, 2, 2}));
    EXPECT_EQ(List(assembler.Whole()->mColIdx), (std::vector<int>{1, 0}));
    EXPECT_EQ(List(assembler.Whole()->mValues), (std::vector<double>{8, 7}));
  });
}

TEST(AssemblerOfBands, GivesTheWholeToEverybodyCountedFromOne) {
  TwoBands const bands;
  OnRanks(3, [&bands](auto const& comm, Assembler<double, int>& assembler) {
    AssemblyRequest request = Square(4, kEverybody);
    request.mBase = 1;
    ASSERT_EQ(assembler.Gather(comm, bands.Of(comm->Rank()), request), STATUS_OK);

    EXPECT_EQ(List(assembler.Whole()->mRowPtr), (std::vector<int>{1, 2, 4, 5, 6}));
    EXPECT_EQ(List(assembler.Whole()->mColIdx), (std::vector<int>{1, 1, 2, 3, 4}));
    EXPECT_EQ(List(assembler.Whole()->mValues), (std::vector<double>{1, 2, 3, 4, 5}));
  });
}

TEST(AssemblerOfOverlaps, AddsWhatProcessesHaveInCommon) {
  OnRanks(2, [](auto const& comm, Assembler<double, int>& assembler) {
    // Two elements, of nodes {0, 1} and {1, 2}.
    int const n = comm->Rank();
    std::vector<int> const rows = {n, n, n + 1, n + 1};
    std::vector<int> const cols = {n, n + 1, n, n + 1};
    std::vector<double> const values = {1, -1, -1, 1};
    ASSERT_EQ(assembler.Gather(comm, Own().Coo(4, rows.data(), cols.data(), values.data()),
                               Square(3)),
              STATUS_OK);

    EXPECT_EQ(assembler.Path(), AssemblyPath::MERGE);
    EXPECT_FALSE(assembler.SendsAsItIs());
    if (comm->Rank() != 0) return;
    EXPECT_EQ(List(assembler.Whole()->mRowPtr), (std::vector<int>{0, 2, 5, 7}));
    EXPECT_EQ(List(assembler.Whole()->mColIdx), (std::vector<int>{0, 1, 0, 1, 2, 1, 2}));
    EXPECT_EQ(List(assembler.Whole()->mValues), (std::vector<double>{1, -1, -1, 2, -1, -1, 1}));
  });
}

TEST(AssemblerOfOverlaps, TakesBothBlocksWithTheirMapsAndRowsInAnyOrder) {
  OnRanks(1, [](auto const& comm, Assembler<double, int>& assembler) {
    std::vector<int> const rows = {2, 0};
    std::vector<int> const offsets = {0, 1, 2};
    std::vector<int> const cols = {0, 1};
    std::vector<int> const diagonal = {2, 0};
    std::vector<double> const values = {22, 0.5};
    std::vector<int> const offOffsets = {0, 2, 2};
    std::vector<int> const offCols = {0, 0};
    std::vector<int> const off = {1};
    std::vector<double> const offValues = {20, 1};
    auto const own = Own::Rows(2, rows.data())
                         .Csr(offsets.data(), cols.data(), values.data())
                         .Columns(diagonal.data(), 2)
                         .Csr(offOffsets.data(), offCols.data(), offValues.data())
                         .Columns(off.data(), 1);
    ASSERT_EQ(assembler.Gather(comm, own, Square(3)), STATUS_OK);

    EXPECT_EQ(List(assembler.Whole()->mRowPtr), (std::vector<int>{0, 1, 1, 3}));
    EXPECT_EQ(List(assembler.Whole()->mColIdx), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(List(assembler.Whole()->mValues), (std::vector<double>{0.5, 21, 22}));
  });
}

TEST(AssemblerOfOverlaps, KeepsTheSignOfAZero) {
  OnRanks(2, [](auto const& comm, Assembler<double, int>& assembler) {
    std::vector<int> const rows = {1, 0};
    std::vector<int> const cols = {0, 1};
    std::vector<double> const values = {-0.0, comm->Rank() == 0 ? 1.0 : -1.0};
    auto const own = Own().Coo(comm->Rank() == 0 ? 2 : 1, rows.data() + comm->Rank(),
                               cols.data() + comm->Rank(), values.data() + comm->Rank());
    ASSERT_EQ(assembler.Gather(comm, own, Square(2)), STATUS_OK);

    if (comm->Rank() != 0) return;
    EXPECT_EQ(List(assembler.Whole()->mValues), (std::vector<double>{0, 0}));
    EXPECT_FALSE(std::signbit(assembler.Whole()->mValues.mData[0]));  // 1 - 1
    EXPECT_TRUE(std::signbit(assembler.Whole()->mValues.mData[1]));   // -0 alone
  });
}

TEST(AssemblerOfOverlaps, RoundsIdenticallyInEveryGatherAndUpdate) {
  OnRanks(3, [](auto const& comm, Assembler<double, int>& assembler) {
    std::vector<int> rows;
    std::vector<int> cols;
    std::vector<double> values;
    for (int k = 0; k < 500; ++k) {
      rows.push_back((k * 7 + comm->Rank()) % 5);
      cols.push_back((k * 3) % 4);
      values.push_back(1.0 / (k + 1 + comm->Rank()));
    }
    auto const own = Own().Coo(500, rows.data(), cols.data(), values.data());
    std::vector<double> earlier;
    for (int round = 0; round < 3; ++round) {
      ASSERT_EQ(assembler.Gather(comm, own, Square(5, 2)), STATUS_OK);
      ASSERT_EQ(assembler.Update(values.data()), STATUS_OK);
      if (comm->Rank() != 2) continue;
      std::vector<double> const now = List(assembler.Whole()->mValues);
      if (round > 0) {
        EXPECT_EQ(now, earlier);
      }
      earlier = now;
    }
  });
}

TEST(Assembler, NeedsNoOperationOfTheCommunicatorOfASingleProcess) {
  LedgerPool pool;
  Assembler<double, int> assembler(&pool);
  std::vector<int> const offsets = {3, 4, 6};
  std::vector<int> const cols = {1, 0, 1};
  std::vector<double> const values = {1, 2, 3};
  auto const own = Own::Band(0, 2).Csr(offsets.data(), cols.data(), values.data());
  ASSERT_EQ(assembler.Gather(std::make_shared<SelfComm>(), own, Square(2)), STATUS_OK);

  EXPECT_EQ(List(assembler.Whole()->mRowPtr), (std::vector<int>{0, 1, 3}));
  EXPECT_EQ(List(assembler.Whole()->mColIdx), cols);
  EXPECT_EQ(List(assembler.Whole()->mValues), values);
  EXPECT_TRUE(pool.Owns(assembler.Whole()->mColIdx.mData));
}

TEST(Assembler, GathersNothingFromNothing) {
  OnRanks(3, [](auto const& comm, Assembler<double, int>& assembler) {
    ASSERT_EQ(assembler.Gather(comm, Own(), Square(2, 2)), STATUS_OK);
    ASSERT_EQ(assembler.Update(nullptr), STATUS_OK);

    EXPECT_EQ(assembler.Path(), AssemblyPath::NOTHING);
    EXPECT_EQ(comm->DataTexts().size(), 3U) << "exchanges of records";
    if (comm->Rank() == 2) {
      EXPECT_EQ(List(assembler.Whole()->mRowPtr), (std::vector<int>{0, 0, 0}));
    }
  });
}

TEST(Assembler, HoldsNothingAfterClear) {
  TwoBands const bands;
  LogLevel const silent(-1);
  OnRanks(3, [&bands](auto const& comm, Assembler<double, int>& assembler) {
    ASSERT_EQ(assembler.Gather(comm, bands.Of(comm->Rank()), Square(4)), STATUS_OK);
    assembler.Clear();
    EXPECT_EQ(assembler.Whole(), nullptr);
    EXPECT_EQ(assembler.Update(bands.values[comm->Rank()].data()), STATUS_WRONG_ORDER);
    EXPECT_EQ(assembler.Path(), AssemblyPath::NOTHING);
    EXPECT_EQ(assembler.Describe(), "Nothing is gathered.");
    EXPECT_EQ(assembler.CostOfCollect(1).mCalls, 0);
  });
}

TEST(Assembler, DescribesWhatItHasGathered) {
  SharedRows const rows;
  double const values[] = {1, 2};
  LedgerPool pool;
  Assembler<double, int> assembler(&pool);
  auto const comm = std::make_shared<SelfComm>();
  ASSERT_EQ(assembler.Gather(comm, rows.Pass(values), Square(3)), STATUS_OK);
  EXPECT_EQ(assembler.Describe(),
            "path bands: 1 processes, 2 entries given, 2 sent, 3 x 3 whole");

  // A band without rows may begin anywhere, and a map without columns needs no array.
  Own const none = Own::Band(9, 0).Coo(0, nullptr, nullptr, nullptr).Columns(nullptr, 0);
  ASSERT_EQ(assembler.Gather(comm, none, Square(3)), STATUS_OK);
  EXPECT_EQ(assembler.Describe(),
            "path nothing: 1 processes, 0 entries given, 0 sent, 3 x 3 whole");
}

TEST(Assembler, RefusesWhatNeedsAGather) {
  Assembler<double, int> const unused(nullptr);
  EXPECT_EQ(unused.Whole(), nullptr);
  EXPECT_EQ(unused.CostOfGather().mCalls, 0);
  EXPECT_EQ(unused.CostOfUpdate().mCalls, 0);
  EXPECT_EQ(unused.CostOfScatter(1).mCalls, 0);
  EXPECT_EQ(unused.CostOfCollect(1).mCalls, 0);

  LedgerPool pool;
  Assembler<double, int> assembler(&pool);
  MatrixDense<double, int> own;
  MatrixDense<double, int> whole;
  ExpectOutcome(Watch([&] { return assembler.Scatter(whole, own); }), STATUS_WRONG_ORDER,
                kNotGathered);
  ExpectOutcome(Watch([&] { return assembler.Collect(own, Overlap::ADD, whole); }),
                STATUS_WRONG_ORDER, kNotGathered);
}

TEST(Assembler, RefusesACommunicatorWithoutThisRank) {
  for (auto const& [rank, size] :
       {std::pair{0, 0}, std::pair{-1, -1}, std::pair{-1, 2}, std::pair{2, 2}}) {
    LedgerPool pool;
    Assembler<double, int> assembler(&pool);
    auto const comm = std::make_shared<ScriptedComm>(rank, size);

    Outcome const outcome = Watch([&] { return assembler.Gather(comm, Own(), Square(1)); });

    ExpectOutcome(outcome, STATUS_INVALID_VALUE, StatusLines(1, STATUS_INVALID_VALUE));
    EXPECT_TRUE(pool.Events().empty());
  }
}

TEST(Assembler, ForgetsARefusalWithClear) {
  LogLevel const silent(-1);
  LedgerPool pool;
  Assembler<double, int> assembler(&pool);
  auto const comm = std::make_shared<SelfComm>();
  ASSERT_EQ(assembler.Gather(comm, Own(), Square(-1)), STATUS_INVALID_VALUE);
  EXPECT_NE(assembler.Describe(), "Nothing is gathered.");

  assembler.Clear();
  EXPECT_EQ(assembler.Describe(), "Nothing is gathered.");
}

}  // namespace
}  // namespace Pavex
