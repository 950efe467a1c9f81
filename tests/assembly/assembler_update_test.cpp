// New values for a whole that is there: in which array they arrive, and what is refused.

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "pavex/runtime/self_comm.h"
#include "tests/assembly/small_case.h"
#include "tests/assembly/spoiled_input.h"
#include "tests/support/capture.h"
#include "tests/support/log_level.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace Pavex {
namespace {

TEST(AssemblerUpdateInPlace, KeepsTheArrayOfBands) {
  TwoBands const bands;
  OnRanks(3, [&bands](auto const& comm, Assembler<double, int>& assembler) {
    ASSERT_EQ(assembler.Gather(comm, bands.Of(comm->Rank()), Square(4, 1)), STATUS_OK);
    std::vector<double> other = bands.values[comm->Rank()];
    for (double& value : other)
      value += 10;
    double const* const array = comm->Rank() == 1 ? assembler.Whole()->mValues.mData : nullptr;
    comm->ForgetCalls();
    ASSERT_EQ(assembler.UpdateInPlace(other.data()), STATUS_OK);

    EXPECT_EQ(comm->DataTexts().size(), 2U);
    if (comm->Rank() != 1) return;
    EXPECT_EQ(assembler.Whole()->mValues.mData, array);
    EXPECT_EQ(List(assembler.Whole()->mValues), (std::vector<double>{11, 12, 13, 14, 15}));
  });
}

TEST(AssemblerUpdateInPlace, KeepsTheArrayWhereRowsAreAdded) {
  SharedRows const rows;
  OnRanks(2, [&rows](auto const& comm, Assembler<double, int>& assembler) {
    std::vector<double> const first = {1, 2};
    std::vector<double> const second = {3, 4};
    ASSERT_EQ(assembler.Gather(comm, rows.Pass(first.data()), Square(3)), STATUS_OK);
    double const* const array = comm->Rank() == 0 ? assembler.Whole()->mValues.mData : nullptr;
    // The other process need not know.
    ASSERT_EQ(comm->Rank() == 0 ? assembler.UpdateInPlace(second.data())
                                : assembler.Update(second.data()),
              STATUS_OK);

    if (comm->Rank() != 0) return;
    EXPECT_EQ(assembler.Whole()->mValues.mData, array);
    EXPECT_EQ(List(assembler.Whole()->mValues), (std::vector<double>{6, 8}));
  });
}

TEST(AssemblerUpdate, BringsAllValuesAfterTheIndicesWereMovedOut) {
  SharedRows const rows;
  OnRanks(2, [&rows](auto const& comm, Assembler<double, int>& assembler) {
    std::vector<double> const first = {1, 2};
    std::vector<double> const second = {3, 4};
    ASSERT_EQ(assembler.Gather(comm, rows.Pass(first.data()), Square(3)), STATUS_OK);
    Buffer<int> taken;
    if (comm->Rank() == 0) taken.Swap(assembler.Whole()->mColIdx);
    ASSERT_EQ(assembler.UpdateInPlace(second.data()), STATUS_OK);
    if (comm->Rank() == 0) {
      EXPECT_EQ(List(assembler.Whole()->mValues), (std::vector<double>{6, 8}));
    }
    ASSERT_EQ(assembler.Update(first.data()), STATUS_OK);

    if (comm->Rank() != 0) return;
    EXPECT_EQ(List(assembler.Whole()->mValues), (std::vector<double>{2, 4}));
    EXPECT_EQ(List(taken), (std::vector<int>{1, 2}));
  });
}

TEST(AssemblerUpdateInPlace, KeepsTheArrayOfASingleProcessAndTakesNothing) {
  SharedRows const rows;
  LedgerPool pool;
  Assembler<double, int> assembler(&pool);
  std::vector<double> const first = {1, 2};
  std::vector<double> const second = {3, 4};
  ASSERT_EQ(assembler.Gather(std::make_shared<SelfComm>(), rows.Pass(first.data()), Square(3)),
            STATUS_OK);
  double const* const array = assembler.Whole()->mValues.mData;
  pool.ForgetEvents();
  ASSERT_EQ(assembler.UpdateInPlace(second.data()), STATUS_OK);

  EXPECT_TRUE(pool.Events().empty());
  EXPECT_EQ(assembler.Whole()->mValues.mData, array);
  EXPECT_EQ(List(assembler.Whole()->mValues), second);
}

TEST(AssemblerUpdateInPlace, TakesAnArrayIfTheWholeHasOneOfAnotherLength) {
  SharedRows const rows;
  LedgerPool pool;
  Assembler<double, int> assembler(&pool);
  std::vector<double> const first = {1, 2};
  std::vector<double> const second = {3, 4};
  ASSERT_EQ(assembler.Gather(std::make_shared<SelfComm>(), rows.Pass(first.data()), Square(3)),
            STATUS_OK);
  Buffer<double> other;
  ASSERT_EQ(pool.Get(other, 1), STATUS_OK);
  other.Swap(assembler.Whole()->mValues);
  ASSERT_EQ(assembler.UpdateInPlace(second.data()), STATUS_OK);

  EXPECT_EQ(List(assembler.Whole()->mValues), second);
  EXPECT_EQ(List(other), first);
}

TEST(AssemblerUpdateInPlace, TakesAnArrayAfterAGatherOfThePattern) {
  SharedRows const rows;
  OnRanks(2, [&rows](auto const& comm, Assembler<double, int>& assembler) {
    AssemblyRequest request = Square(3);
    request.mWithValues = false;
    std::vector<double> const values = {1, 2};
    ASSERT_EQ(assembler.Gather(comm, rows.Pass(nullptr), request), STATUS_OK);
    ASSERT_EQ(assembler.UpdateInPlace(values.data()), STATUS_OK);

    if (comm->Rank() == 0) {
      EXPECT_EQ(List(assembler.Whole()->mValues), (std::vector<double>{2, 4}));
    }
  });
}

TEST(AssemblerUpdateInPlace, NeedsAGather) {
  LogLevel const silent(-1);
  LedgerPool pool;
  Assembler<double, int> assembler(&pool);
  double const value = 1;
  EXPECT_EQ(assembler.UpdateInPlace(&value), STATUS_WRONG_ORDER);
}

TEST(AssemblerUpdate, IsRefusedOnEveryProcessIfItMeetsAnotherOperation) {
  enum class Other { SCATTER, COLLECT };
  for (Other const other : {Other::SCATTER, Other::COLLECT}) {
    std::string const printed = CaptureStdout([other] {
      LocalComm::Run(3, [other](std::shared_ptr<Comm> const& comm) {
        using Dense = MatrixDense<double, int>;
        LedgerPool pool;
        Assembler<double, int> assembler(&pool);
        Input input;
        ASSERT_EQ(assembler.Gather(comm, input.own, input.request), STATUS_OK);
        // No columns: the dense operation moves as little as an update of nothing.
        double array[2] = {1, 2};
        auto own = Dense::Borrow(2, 0, false, 2, array);
        auto whole = Dense::Borrow(4, 0, false, 4, array);
        std::vector<double> const values = {5, 6};
        bool const updates = comm->Rank() != 1;
        EXPECT_EQ(updates                   ? assembler.Update(values.data())
                  : other == Other::SCATTER ? assembler.Scatter(whole, own)
                                            : assembler.Collect(own, Overlap::ADD, whole),
                  STATUS_INCONSISTENT);
        if (assembler.Whole() != nullptr) {
          EXPECT_EQ(assembler.Whole()->mValues.mData[0], 3) << "keeps its values";
        }
        EXPECT_EQ(assembler.UpdateInPlace(input.values.data()), STATUS_OK) << "afterwards";
      });
    });
    std::string const line =
        "[ERROR] Process 1 calls another operation or overlap than process 0; call one.\n";
    EXPECT_EQ(CountOf(line, printed), 3) << printed;
  }
}

TEST(AssemblerUpdate, IsRefusedOnEveryProcessIfTheReceiverHasNoRoom) {
  std::string const printed = CaptureStdout([] {
    LocalComm::Run(3, [](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      Assembler<double, int> assembler(&pool);
      Input input;
      ASSERT_EQ(assembler.Gather(comm, input.own, input.request), STATUS_OK);
      for (int nth = 1; nth <= 2; ++nth) {  // the values of the whole, and those that arrive
        if (comm->Rank() == 0) pool.Fail(Fault::Once(nth, STATUS_OUT_OF_MEMORY));
        EXPECT_EQ(assembler.Update(input.values.data()), STATUS_OUT_OF_MEMORY);
      }
      EXPECT_EQ(assembler.Update(input.values.data()), STATUS_OK) << "afterwards";
    });
  });
  EXPECT_EQ(CountOf("[ERROR] Process 0 got no memory from its pool: Out of memory; give it "
                    "more.\n",
                    printed),
            6)
      << printed;
}

TEST(AssemblerGather, IsRefusedOnEveryProcessIfTheReceiverHasNoRoomToMerge) {
  CaptureStdout([] {
    LocalComm::Run(3, [](std::shared_ptr<Comm> const& comm) {
      LedgerPool counting;
      Input input;
      int last = 0;  // allocation of the receiver before the values
      {
        Assembler<double, int> assembler(&counting);
        input.request.mWithValues = false;
        ASSERT_EQ(assembler.Gather(comm, input.own, input.request), STATUS_OK);
        for (PoolEvent const& event : counting.Events())
          last += event.kind == PoolEvent::TOOK ? 1 : 0;
      }
      LedgerPool pool;
      Assembler<double, int> assembler(&pool);
      input.request.mWithValues = true;
      if (comm->Rank() == 0) pool.Fail(Fault::Once(last, STATUS_OUT_OF_MEMORY));
      EXPECT_EQ(assembler.Gather(comm, input.own, input.request), STATUS_OUT_OF_MEMORY);
      EXPECT_EQ(assembler.Whole(), nullptr);
      EXPECT_EQ(assembler.Gather(comm, input.own, input.request), STATUS_OK) << "afterwards";
    });
  });
}

}  // namespace
}  // namespace Pavex
