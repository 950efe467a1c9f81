// Every instance of the assembler, also in trees whose typed tests run on two of them.

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "pavex/runtime/self_comm.h"
#include "tests/support/capture.h"
#include "tests/support/ledger_pool.h"

#include <algorithm>
#include <complex>
#include <cstddef>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace Pavex {
namespace {

template <typename T>
class EveryAssembler;

template <typename T, typename I>
class EveryAssembler<Assembler<T, I>> : public testing::Test {
 protected:
  using Own = Contribution<T, I>;
  using Dense = MatrixDense<T, I>;

  static std::vector<T> Values(std::vector<int> const& numbers) {
    std::vector<T> values;
    for (int const number : numbers)
      values.push_back(static_cast<T>(static_cast<float>(number)));
    return values;
  }
  static std::vector<T> ValuesOf(MatrixCSR<T, I> const& whole) {
    return {whole.mValues.mData, whole.mValues.mData + whole.mValues.mSize};
  }

  static AssemblyRequest Request(int receiver) {
    AssemblyRequest request;
    request.mRows = request.mCols = 3;
    request.mReceiver = receiver;
    return request;
  }

  // A band of one row, for bands; or rows {2, 0} of which every process has both, for a merge.
  // Each entry is 1. Rank 1 has nothing.
  struct Piece {
    std::vector<I> list = {2, 0};
    std::vector<I> offsets = {0, 1, 2};
    std::vector<I> cols = {1, 2};
    std::vector<T> ones = Values({1, 1});

    Own Pass(int rank, bool merge) const {
      if (rank == 1) return {};
      I const* const o = offsets.data();
      if (merge) return Own::Rows(2, list.data()).Csr(o, cols.data(), ones.data());
      return Own::Band(rank == 0 ? 2 : 0, 1).Csr(o, cols.data(), ones.data());
    }
  };

  // Sends `factor` times as much in the next update.
  static PavexStatus Update(Assembler<T, I>& assembler, int factor, bool inPlace) {
    std::vector<T> const values = Values({factor, factor});
    return inPlace ? assembler.UpdateInPlace(values.data()) : assembler.Update(values.data());
  }

  // Scatters a whole of 1 2 3 | 4 5 6 to rows with a gap between the columns, and collects
  // them. Returns what arrives on a receiver.
  static std::vector<T> ScatterAndCollect(Assembler<T, I>& assembler, int rows,
                                          Overlap overlap) {
    std::vector<T> all = Values({1, 2, 3, 4, 5, 6});
    std::vector<T> mine(10);
    auto own = Dense::Borrow(rows, 2, false, rows + 1, mine.data());
    auto whole = Dense::Borrow(3, 2, false, 3, all.data());
    EXPECT_EQ(assembler.Scatter(whole, own), STATUS_OK);
    std::fill(all.begin(), all.end(), T{});
    EXPECT_EQ(assembler.Collect(own, overlap, whole), STATUS_OK);
    return all;
  }

  static void RunAll(std::shared_ptr<Comm> const& comm, int receiver, bool merge);

  static void RefuseUngathered() {
    LedgerPool pool;
    Assembler<T, I> assembler(&pool);
    Dense own;
    Dense whole;
    EXPECT_EQ(Update(assembler, 1, false), STATUS_WRONG_ORDER);
    EXPECT_EQ(assembler.Scatter(whole, own), STATUS_WRONG_ORDER);
    EXPECT_EQ(assembler.Collect(own, Overlap::ADD, whole), STATUS_WRONG_ORDER);
  }

  // Gathers on a single process whose nth allocation is refused, for each n that there is.
  static void RefuseEachAllocation(bool merge) {
    Piece const piece;
    auto const comm = std::make_shared<SelfComm>();
    for (int nth = 1;; ++nth) {
      ASSERT_LT(nth, 50) << "it never succeeds";
      LedgerPool pool;
      Assembler<T, I> assembler(&pool);
      EXPECT_EQ(assembler.Gather(nullptr, piece.Pass(0, merge), Request(0)),
                STATUS_INVALID_VALUE);
      pool.Fail(Fault::Once(nth, STATUS_OUT_OF_MEMORY));
      PavexStatus const status = assembler.Gather(comm, piece.Pass(0, merge), Request(0));
      EXPECT_EQ(assembler.Whole() != nullptr, status == STATUS_OK);
      if (!pool.FaultStruck()) return;
      EXPECT_EQ(status, STATUS_OUT_OF_MEMORY) << nth;
    }
  }
};

template <typename T, typename I>
void EveryAssembler<Assembler<T, I>>::RunAll(std::shared_ptr<Comm> const& comm, int receiver,
                                             bool merge) {
  int const rank = comm->Rank();
  int const processes = comm->Size();
  bool const receives = receiver == kEverybody || receiver == rank;
  int const holders = merge && processes > 1 ? processes - 1 : 1;
  int const entries = merge || processes > 1 ? 2 : 1;
  Piece const piece;
  LedgerPool pool;
  Assembler<T, I> assembler(&pool);

  ASSERT_EQ(assembler.Gather(comm, piece.Pass(rank, merge), Request(receiver)), STATUS_OK);
  for (int factor = 1; factor <= 3; ++factor) {
    if (factor > 1) {
      ASSERT_EQ(Update(assembler, factor, factor == 3), STATUS_OK);
    }
    ASSERT_EQ(assembler.Whole() != nullptr, receives);
    if (receives) {
      EXPECT_EQ(ValuesOf(*assembler.Whole()),
                std::vector<T>(static_cast<std::size_t>(entries),
                               static_cast<T>(static_cast<float>(holders * factor))));
    }
  }
  int const rows = rank == 1 ? 0 : merge ? 2 : 1;
  for (Overlap const overlap : {Overlap::ADD, Overlap::ONCE}) {
    int const sum = overlap == Overlap::ADD ? holders : 1;
    std::vector<T> const all = ScatterAndCollect(assembler, rows, overlap);
    bool const first = entries == 2;  // the first row of the whole has an owner
    if (receives) {
      EXPECT_EQ(all, Values({first ? sum : 0, 0, 3 * sum, first ? 4 * sum : 0, 0, 6 * sum}));
    }
  }
  EXPECT_EQ(assembler.CostOfGather().mCalls > 0, processes > 1);
  EXPECT_EQ(assembler.CostOfUpdate().mCalls > 0, processes > 1);
  EXPECT_EQ(assembler.CostOfScatter(2).mCalls > 0, processes > 1);
  EXPECT_EQ(assembler.CostOfCollect(2).mCalls > 0, processes > 1);
}

using Instances =
    testing::Types<Assembler<float, int>, Assembler<float, long>, Assembler<double, int>,
                   Assembler<double, long>, Assembler<std::complex<float>, int>,
                   Assembler<std::complex<float>, long>, Assembler<std::complex<double>, int>,
                   Assembler<std::complex<double>, long>>;
TYPED_TEST_SUITE(EveryAssembler, Instances);

TYPED_TEST(EveryAssembler, MovesBandsAndMergesRowsToAnyReceiver) {
  for (bool const merge : {false, true}) {
    this->RunAll(std::make_shared<SelfComm>(), 0, merge);
    for (int const receiver : {1, 2, kEverybody})
      LocalComm::Run(
          3, [&](std::shared_ptr<Comm> const& comm) { this->RunAll(comm, receiver, merge); });
  }
}

TYPED_TEST(EveryAssembler, RefusesEveryOperationBeforeAGather) {
  CaptureStdout([this] { this->RefuseUngathered(); });
}

TYPED_TEST(EveryAssembler, ReturnsTheStatusOfARefusedAllocation) {
  CaptureStdout([this] {
    for (bool const merge : {false, true})
      this->RefuseEachAllocation(merge);
  });
}

}  // namespace
}  // namespace Pavex
