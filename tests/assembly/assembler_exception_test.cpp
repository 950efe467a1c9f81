// Exceptions that a pool or a communicator of an application throws in an operation of an
// assembler. They reach the caller, and leave what a failed status leaves.

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "pavex/runtime/self_comm.h"
#include "tests/assembly/small_case.h"
#include "tests/support/log_level.h"
#include "tests/support/throwing.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace Pavex {
namespace {

enum class Step { GATHER, UPDATE, UPDATE_IN_PLACE, SCATTER, COLLECT };
enum class Place { POOL, COMM };

struct Injection {
  Step step;
  Place place;
  AssemblyPath path;
  int ranks;
  int rank;  // the one whose pool or communicator throws
  int nth;
};

std::string Text(Injection const& of) {
  return "step " + std::to_string(static_cast<int>(of.step)) + ", place " +
         std::to_string(static_cast<int>(of.place)) + ", path " + AssemblyPathStr(of.path) +
         ", rank " + std::to_string(of.rank) + " of " + std::to_string(of.ranks) + ", number " +
         std::to_string(of.nth);
}

// One rank of an assembly on rank 0: two rows of its own with one entry each or, if rows are
// merged, two entries in the first row of the whole. Dense matrices have a gap between columns.
class ThrowingRank {
 public:
  ThrowingRank(std::shared_ptr<Comm> const& comm, AssemblyPath path)
      : mComm(std::make_shared<ThrowingComm>(comm)), mMerges(path == AssemblyPath::MERGE) {
    mRequest = Square(2 * comm->Size());
  }

  PavexStatus Run(Step step) {
    using Dense = MatrixDense<double, int>;
    Dense own = Dense::Borrow(2, 2, false, 3, mOwnDense.data());
    long const rows = mComm->Rank() == 0 ? mRequest.mRows : 0;
    Dense whole = Dense::Borrow(rows, 2, false, rows + 1, mWholeDense.data());
    switch (step) {
      case Step::GATHER:
        return mAssembler.Gather(mComm, Pass(), mRequest);
      case Step::UPDATE:
        return mAssembler.Update(mNewValues.data());
      case Step::UPDATE_IN_PLACE:
        return mAssembler.UpdateInPlace(mNewValues.data());
      case Step::SCATTER:
        return mAssembler.Scatter(whole, own);
      case Step::COLLECT:
        return mAssembler.Collect(own, Overlap::ADD, whole);
    }
    return 1;
  }

  // Runs the step of `injection`, which throws, and checks what is left. Returns whether it
  // has thrown.
  bool Throws(Injection const& injection) {
    if (injection.step != Step::GATHER && Run(Step::GATHER) != STATUS_OK) return false;
    MatrixCSR<double, int> const* const whole = mAssembler.Whole();
    double const* const address = whole != nullptr ? whole->mValues.mData : nullptr;
    std::vector<double> values;
    if (whole != nullptr) values = List(whole->mValues);
    if (injection.place == Place::POOL)
      mPool.ThrowAt(injection.nth);
    else
      mComm->ThrowAt(injection.nth);
    try {
      EXPECT_EQ(Run(injection.step), STATUS_OK);
      return false;
    } catch (Thrown const&) {
    }
    if (injection.step == Step::GATHER) {
      EXPECT_EQ(mAssembler.Whole(), nullptr);
      EXPECT_EQ(mAssembler.Path(), AssemblyPath::NOTHING);
      EXPECT_EQ(mAssembler.Describe(), "Nothing is gathered.");
    } else if (whole != nullptr) {
      EXPECT_EQ(mAssembler.Whole(), whole);
      EXPECT_EQ(whole->mValues.mData, address);
      EXPECT_EQ(List(whole->mValues), values);
    }
    return true;
  }

  // Gathers the contribution of this rank alone with the same object.
  void GatherAlone() {
    mPool.ThrowAt(0);
    ASSERT_EQ(mAssembler.Gather(std::make_shared<SelfComm>(), Pass(), mRequest), STATUS_OK);
    EXPECT_EQ(List(mAssembler.Whole()->mValues), mValues);
  }

 private:
  Own Pass() {
    if (mMerges) return Own::Rows(2, mSame).Csr(mOffsets.data(), mCols.data(), mValues.data());
    return Own::Band(2L * mComm->Rank(), 2).Csr(mOffsets.data(), mCols.data(), mValues.data());
  }

  std::shared_ptr<ThrowingComm> const mComm;
  bool const mMerges;
  AssemblyRequest mRequest;
  int const mSame[2] = {0, 0};
  std::vector<int> const mOffsets = {0, 1, 2};
  std::vector<int> const mCols = {0, 1};
  std::vector<double> const mValues = {1, 2};
  std::vector<double> const mNewValues = {3, 4};
  std::vector<double> mOwnDense = std::vector<double>(6, 5);
  std::vector<double> mWholeDense = std::vector<double>(14, 6);
  ThrowingPool mPool;
  Assembler<double, int> mAssembler{&mPool};
};

bool RunInjection(Injection const& injection) {
  bool thrown = false;
  LocalComm::Run(injection.ranks, [&](std::shared_ptr<Comm> const& comm) {
    ThrowingRank rank(comm, injection.path);
    if (comm->Rank() != injection.rank) {  // fails as soon as the other one has ended
      PavexStatus const before =
          injection.step == Step::GATHER ? STATUS_OK : rank.Run(Step::GATHER);
      EXPECT_EQ(before, STATUS_OK);
      PavexStatus const status = rank.Run(injection.step);
      EXPECT_TRUE(status == STATUS_OK || status == STATUS_COMM_FAILED) << status;
      return;
    }
    thrown = rank.Throws(injection);
    rank.GatherAlone();
  });
  return thrown;
}

// Raises the number of the request or call that throws until none does. Returns how many did.
int ThrowEverywhere(Injection injection) {
  for (injection.nth = 1; injection.nth < 100; ++injection.nth) {
    SCOPED_TRACE(Text(injection));
    bool const thrown = RunInjection(injection);
    if (!thrown || testing::Test::HasFailure()) return injection.nth - 1;
  }
  ADD_FAILURE() << "it never succeeds";
  return 0;
}

TEST(ExceptionInAnAssembler, LeavesWhatAFailedStatusLeaves) {
  LogLevel const silent(-1);
  int ofPool = 0;
  int ofComm = 0;
  for (int const ranks : {1, 3})
    for (AssemblyPath const path : {AssemblyPath::BANDS, AssemblyPath::MERGE})
      for (Step const step :
           {Step::GATHER, Step::UPDATE, Step::UPDATE_IN_PLACE, Step::SCATTER, Step::COLLECT})
        for (int rank = 0; rank < ranks; ++rank) {
          ofPool += ThrowEverywhere({step, Place::POOL, path, ranks, rank, 0});
          if (!(step == Step::UPDATE_IN_PLACE && path == AssemblyPath::BANDS))
            ofComm += ThrowEverywhere({step, Place::COMM, path, ranks, rank, 0});
          if (HasFailure()) return;
        }
  EXPECT_GT(ofPool, 100);
  EXPECT_GT(ofComm, 50);
}

// The transfer of bands goes into the array of the whole, so only its address is promised.
TEST(ExceptionInAnAssembler, LeavesTheArrayOfBandsThatAreUpdatedInPlace) {
  LogLevel const silent(-1);
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    LedgerPool pool;
    auto const throwing = std::make_shared<ThrowingComm>(comm);
    Assembler<double, int> assembler(&pool);
    int const offsets[] = {0, 1};
    int const cols[] = {0};
    double const values[] = {1};
    auto const own = Own::Band(comm->Rank(), 1).Csr(offsets, cols, values);
    ASSERT_EQ(assembler.Gather(throwing, own, Square(2)), STATUS_OK);
    if (comm->Rank() == 1) return (void)assembler.UpdateInPlace(values);
    double const* const address = assembler.Whole()->mValues.mData;
    throwing->ThrowAt(2);  // after the agreement
    EXPECT_THROW((void)assembler.UpdateInPlace(values), Thrown);
    ASSERT_EQ(assembler.Whole()->mValues.mData, address);
    EXPECT_TRUE(pool.Owns(address));
  });
}

TEST(AssemblerClear, GivesUpItsMemoryAndItsShareOfTheCommunicator) {
  LocalComm::Run(3, [](std::shared_ptr<Comm> const& comm) {
    LedgerPool pool;
    TwoBands const bands;
    auto const traced = std::make_shared<TraceComm>(comm);
    Assembler<double, int> assembler(&pool);
    ASSERT_EQ(assembler.Gather(traced, bands.Of(comm->Rank()), Square(4, 1)), STATUS_OK);
    EXPECT_GT(traced.use_count(), 1);

    assembler.Clear();

    EXPECT_EQ(traced.use_count(), 1);
    EXPECT_EQ(pool.OutstandingBlocks(), 0U);
    EXPECT_EQ(assembler.Gather(traced, bands.Of(comm->Rank()), Square(4, 1)), STATUS_OK);
  });
}

}  // namespace
}  // namespace Pavex
