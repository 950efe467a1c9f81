// What an assembler says that its operations cost, for pieces that are small enough to count by
// hand. The random assemblies compare calls and bytes with those that a communicator counts.

#include "pavex/assembly/assembler.h"
#include "tests/assembly/small_case.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Pavex {
namespace {

std::string TextOf(AssemblyCost const& cost) {
  return std::to_string(cost.mCalls) + " calls, " + std::to_string(cost.mBytesOut) + " out, " +
         std::to_string(cost.mBytesIn) + " in, " + std::to_string(cost.mPasses) + " passes";
}

// Three ranks: 112 and 72 bytes of each tell what all have, 112 more that all are ready. The
// whole has 4 rows and 5 entries; the rank without rows sends an empty one.
TEST(AssemblerCost, OfBandsHasNoPasses) {
  TwoBands const bands;
  OnRanks(3, [&bands](auto const& comm, Assembler<double, int>& assembler) {
    ASSERT_EQ(assembler.Gather(comm, bands.Of(comm->Rank()), Square(4, 1)), STATUS_OK);
    std::vector<std::string> const gather = {
        "6 calls, 328 out, 888 in, 0 passes",  // 2 rows and 2 entries go
        "6 calls, 300 out, 968 in, 0 passes",  // 1 row goes; 5 rows and 5 entries arrive
        "6 calls, 340 out, 888 in, 0 passes"   // 2 rows and 3 entries go
    };
    std::vector<std::string> const update = {"2 calls, 128 out, 336 in, 0 passes",
                                             "2 calls, 112 out, 376 in, 0 passes",
                                             "2 calls, 136 out, 336 in, 0 passes"};
    auto const rank = static_cast<std::size_t>(comm->Rank());
    EXPECT_EQ(TextOf(assembler.CostOfGather()), gather[rank]);
    EXPECT_EQ(TextOf(assembler.CostOfUpdate()), update[rank]);
  });
}

TEST(AssemblerCost, OfRowsThatOverlapIsAPassOnTheReceiverAlone) {
  SharedRows const rows;
  std::vector<double> const values = {1, 2};
  OnRanks(2, [&](auto const& comm, Assembler<double, int>& assembler) {
    ASSERT_EQ(assembler.Gather(comm, rows.Pass(values.data()), Square(3)), STATUS_OK);
    bool const receives = comm->Rank() == 0;
    EXPECT_EQ(TextOf(assembler.CostOfGather()), receives
                                                    ? "6 calls, 328 out, 656 in, 2 passes"
                                                    : "6 calls, 328 out, 592 in, 0 passes");
    EXPECT_EQ(TextOf(assembler.CostOfUpdate()), receives
                                                    ? "2 calls, 128 out, 256 in, 1 passes"
                                                    : "2 calls, 128 out, 224 in, 0 passes");
  });
}

// Rows 0 and 1, the latter twice: 2 rows and 2 entries are sent.
struct RepeatedEntries {
  std::vector<int> rows = {1, 0, 1};
  std::vector<int> cols = {2, 0, 2};
  std::vector<double> values = {1, 2, 3};

  Own Pass() const { return Own().Coo(3, rows.data(), cols.data(), values.data()); }
};

TEST(AssemblerCost, OfEntriesIsAPassOfEachProcessAndOneMoreOnAReceiverThatMerges) {
  RepeatedEntries const entries;
  OnRanks(2, [&entries](auto const& comm, Assembler<double, int>& assembler) {
    AssemblyRequest request = Square(3);
    bool const receives = comm->Rank() == 0;
    request.mWithValues = false;
    ASSERT_EQ(assembler.Gather(comm, entries.Pass(), request), STATUS_OK);
    EXPECT_EQ(TextOf(assembler.CostOfGather()), receives
                                                    ? "4 calls, 200 out, 400 in, 2 passes"
                                                    : "4 calls, 200 out, 368 in, 1 passes");

    request.mWithValues = true;
    ASSERT_EQ(assembler.Gather(comm, entries.Pass(), request), STATUS_OK);
    EXPECT_EQ(TextOf(assembler.CostOfGather()), receives
                                                    ? "6 calls, 328 out, 656 in, 4 passes"
                                                    : "6 calls, 328 out, 592 in, 2 passes");
    EXPECT_EQ(TextOf(assembler.CostOfUpdate()), receives
                                                    ? "2 calls, 128 out, 256 in, 2 passes"
                                                    : "2 calls, 128 out, 224 in, 1 passes");
  });
}

TEST(AssemblerCost, OfASingleProcessIsPassesAlone) {
  RepeatedEntries const entries;
  OnRanks(1, [&entries](auto const& comm, Assembler<double, int>& assembler) {
    ASSERT_EQ(assembler.Gather(comm, entries.Pass(), Square(3)), STATUS_OK);
    EXPECT_EQ(assembler.Path(), AssemblyPath::BANDS);
    EXPECT_EQ(TextOf(assembler.CostOfGather()), "0 calls, 0 out, 0 in, 2 passes");
    EXPECT_EQ(TextOf(assembler.CostOfUpdate()), "0 calls, 0 out, 0 in, 1 passes");
  });
}

TEST(AssemblerCost, OfListsIsOneCallMoreForEachKind) {
  // Rank 0 has row 39, and entries in the rows 0 and 39. Rank 1 has nothing.
  std::vector<int> const list = {39};
  std::vector<int> const rows = {39, 0};
  std::vector<int> const cols = {0, 0};
  std::vector<double> const values = {1, 2};
  OnRanks(2, [&](auto const& comm, Assembler<double, int>& assembler) {
    auto own = Own::Rows(1, list.data());
    own.Coo(2, rows.data(), cols.data(), values.data());
    bool const has = comm->Rank() == 0;
    ASSERT_EQ(assembler.Gather(comm, has ? own : Own(), Square(40, 1)), STATUS_OK);
    // The list of one row, and that of two rows with entries.
    EXPECT_EQ(TextOf(assembler.CostOfGather()), has ? "8 calls, 340 out, 592 in, 2 passes"
                                                    : "8 calls, 300 out, 640 in, 2 passes");
  });
}

TEST(AssemblerCost, OfNothingIsTheAgreement) {
  OnRanks(2, [](auto const& comm, Assembler<double, int>& assembler) {
    EXPECT_EQ(TextOf(assembler.CostOfGather()), "0 calls, 0 out, 0 in, 0 passes");
    ASSERT_EQ(assembler.Gather(comm, Own(), Square(3)), STATUS_OK);
    EXPECT_EQ(TextOf(assembler.CostOfGather()), "2 calls, 224 out, 448 in, 0 passes");
    EXPECT_EQ(TextOf(assembler.CostOfUpdate()), "1 calls, 112 out, 224 in, 0 passes");
  });
}

TEST(AssemblerCost, OfDenseMatricesIsOneCallAndOnePassOnTheReceiver) {
  TwoBands const bands;  // 2 rows on ranks 0 and 2
  OnRanks(3, [&bands](auto const& comm, Assembler<double, int>& assembler) {
    ASSERT_EQ(assembler.Gather(comm, bands.Of(comm->Rank()), Square(4, 1)), STATUS_OK);
    std::string const scatter = TextOf(assembler.CostOfScatter(3));
    std::string const collect = TextOf(assembler.CostOfCollect(3));
    // 112 bytes to each of 3 ranks for the agreement; 2 rows of 3 columns have 48 bytes.
    bool const receives = comm->Rank() == 1;
    EXPECT_EQ(scatter, receives ? "2 calls, 208 out, 336 in, 1 passes"
                                : "2 calls, 112 out, 384 in, 0 passes");
    EXPECT_EQ(collect, receives ? "2 calls, 112 out, 432 in, 1 passes"
                                : "2 calls, 160 out, 336 in, 0 passes");
  });
}

TEST(AssemblerCost, OfAScatterFromAWholeOnEveryProcessMovesNothing) {
  TwoBands const bands;
  OnRanks(3, [&bands](auto const& comm, Assembler<double, int>& assembler) {
    ASSERT_EQ(assembler.Gather(comm, bands.Of(comm->Rank()), Square(4, kEverybody)), STATUS_OK);
    EXPECT_EQ(TextOf(assembler.CostOfScatter(3)), "1 calls, 112 out, 336 in, 1 passes");
  });
}

}  // namespace
}  // namespace Pavex
