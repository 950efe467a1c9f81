// Assemblies in a library whose calls move at most 7 elements: entries of plain bands go in
// rounds, what else one call does not count is refused on every process before anything large
// moves, and the rest is put together.

#include "pavex/aggregator/rounds.h"
#include "pavex/comm/local_comm.h"
#include "tests/assembly/assembly_run.h"
#include "tests/support/capture.h"
#include "tests/support/instances.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/log_level.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

namespace Pavex {
namespace {

static_assert(kMostPerCall == 7, "the numbers below count on it");

constexpr long kCases = 1000;
constexpr std::uint64_t kSeed = 20261122;

template <typename Types>
class AssemblerOfFewPerCall : public testing::Test {};
TYPED_TEST_SUITE(AssemblerOfFewPerCall, AllInstances);

TYPED_TEST(AssemblerOfFewPerCall, PutsTogetherWhatOneCallCountsAndRefusesTheRest) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  LogLevel const silent(-1);
  for (int const ranks : {1, 2, 3, 4}) {
    long done = 0;
    LocalComm::Run(ranks, [&done](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      for (long number = 0; number < kCases; ++number) {
        std::string const difference = RunAssemblyCase<T, I>(kSeed, number, comm, pool);
        if (!difference.empty()) {
          ADD_FAILURE() << difference;
          return;
        }
        Rng rng(kSeed, static_cast<std::uint64_t>(number));
        if (comm->Rank() == 0) done += AssemblyCase<T, I>(rng, comm->Size()).SendsFew() ? 1 : 0;
      }
    });
    if (this->HasFailure()) return;
    EXPECT_GE(done, 20) << ranks << " ranks: hardly any case is small";
    EXPECT_LE(done, kCases / 4 * 3) << ranks << " ranks: hardly any case is large";
  }
}

// Two rows of two entries on each of three ranks: 12 entries take two rounds.
TEST(BandsOfFewPerCall, GoInRoundsIfTheyLieInTheOrderOfTheSeats) {
  LogLevel const silent(-1);
  for (int const receiver : {0, kEverybody, 2}) {
    LocalComm::Run(3, [receiver](std::shared_ptr<Comm> const& inner) {
      LedgerPool pool;
      auto const comm = std::make_shared<TraceComm>(inner);
      Assembler<double, long> assembler(&pool);
      long const offsets[] = {0, 2, 4};
      long const cols[] = {0, 1, 0, 1};
      double const first = 4.0 * comm->Rank();
      double const values[] = {first, first + 1, first + 2, first + 3};
      AssemblyRequest request;
      request.mRows = 6;
      request.mCols = 2;
      request.mReceiver = receiver;
      auto const band = Contribution<double, long>::Band(2L * comm->Rank(), 2);
      PavexStatus const status = assembler.Gather(
          comm, Contribution<double, long>(band).Csr(offsets, cols, values), request);
      if (receiver == 2) {  // has the first seat and the last band
        EXPECT_EQ(status, STATUS_NOT_SUPPORTED);
        return;
      }
      ASSERT_EQ(status, STATUS_OK);
      EXPECT_EQ(CompareCost(*comm, assembler.CostOfGather()), "");
      if (assembler.Whole() == nullptr) return;
      for (long k = 0; k < 12; ++k) {
        EXPECT_EQ(assembler.Whole()->mValues.mData[k], static_cast<double>(k));
        EXPECT_EQ(assembler.Whole()->mColIdx.mData[k], k % 2);
      }
    });
  }
}

// Three rows of one element on each of two ranks, and of two elements.
TEST(DenseOfFewPerCall, RefusesDenseMatricesThatOneCallDoesNotCount) {
  std::string const printed = CaptureStdout([] {
    LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
      using Dense = MatrixDense<double, int>;
      LedgerPool pool;
      Assembler<double, int> assembler(&pool);
      int const offsets[] = {0, 1, 1, 1};
      int const cols[] = {0};
      double const values[] = {1};
      AssemblyRequest request;
      request.mRows = request.mCols = 6;
      auto const rows = Contribution<double, int>::Band(3L * comm->Rank(), 3);
      ASSERT_EQ(assembler.Gather(
                    comm, Contribution<double, int>(rows).Csr(offsets, cols, values), request),
                STATUS_OK);
      for (long const columns : {1, 2}) {
        double array[6] = {1, 2, 3, 4, 5, 6};
        double all[12] = {};
        auto own = Dense::Borrow(3, columns, false, 3, array);
        auto whole = Dense::Borrow(6, columns, false, 6, all);
        PavexStatus const expected = columns == 1 ? STATUS_OK : STATUS_NOT_SUPPORTED;
        EXPECT_EQ(assembler.Collect(own, Overlap::ADD, whole), expected);
        EXPECT_EQ(all[0], columns == 1 && comm->Rank() == 0 ? 1 : 0);
        EXPECT_EQ(assembler.Scatter(whole, own), expected);
        EXPECT_EQ(array[2], 3);
      }
    });
  });
  EXPECT_NE(printed.find("[ERROR] Process 0 counts 6 x 2 elements, more than 2147483647; pass "
                         "fewer columns.\n"),
            std::string::npos)
      << printed;
}

}  // namespace
}  // namespace Pavex
