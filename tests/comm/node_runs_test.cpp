// Runs between processes that share memory: of every length around the thresholds, from and to
// blocks that are shared and such that are not.

#include "pavex/comm/mpi_call.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "pavex/comm/node_region.h"
#include "pavex/runtime/buffer.h"
#include "tests/comm/mpi_fixture.h"

#include <climits>
#include <cstring>
#include <memory>
#include <numeric>
#include <vector>

namespace Pavex {
namespace {

// One communicator for all tests with at most `largest` processes that share memory.
NodeComm const& CommOf(int largest) {
  static NodeComm const all(MPI_COMM_WORLD, INT_MAX);
  static NodeComm const pairs(MPI_COMM_WORLD, 2);
  return largest == 2 ? pairs : all;
}

double ElementOf(int rank, long run, long t) {
  return static_cast<double>(1000000 * (rank + 1) + 1000 * (run % 900) + t % 1000);
}

// Elements in a block of a pool, all -1.
class Elements {
 public:
  Elements(long size, MemoryPool& pool) {
    EXPECT_EQ(pool.Get(mBuffer, size), STATUS_OK);
    for (long i = 0; i < size; ++i)
      mBuffer.mData[i] = -1;
  }
  double* Data() { return mBuffer.mData; }
  double& At(long i) { return mBuffer.mData[i]; }
  long Size() const { return mBuffer.mSize; }

 private:
  Buffer<double> mBuffer;
};

// What a rank's piece is: rank r has `length` + r elements to a run, the last of three and more
// ranks has none.
struct Bands {
  Bands(int ranks, long length, long count) : mCount(count) {
    long width = 0;
    for (int r = 0; r < ranks; ++r) {
      long const mine = ranks > 2 && r == ranks - 1 ? 0 : length + r;
      mPlaces.push_back({width, mine, count, 0});
      width += mine;
    }
    mStride = width + 1;
    for (Runs& runs : mPlaces)
      runs.stride = mStride;
  }
  long WholeSize() const { return mStride * mCount; }
  Runs Place(int rank) const { return mPlaces[static_cast<std::size_t>(rank)]; }
  Runs Own(int rank, long padding) const {
    long const length = Place(rank).length;
    return {0, length, mCount, length + padding};
  }

  long mCount;
  long mStride = 0;
  std::vector<Runs> mPlaces;
};

void FillPiece(int rank, Runs const& runs, double* array) {
  for (long k = 0; k < runs.count; ++k)
    for (long t = 0; t < runs.length; ++t)
      array[runs.begin + k * runs.stride + t] = ElementOf(rank, k, t);
}

int WrongElements(int rank, Runs const& runs, double const* array) {
  int wrong = 0;
  for (long k = 0; k < runs.count; ++k)
    for (long t = 0; t < runs.length; ++t)
      wrong += array[runs.begin + k * runs.stride + t] != ElementOf(rank, k, t) ? 1 : 0;
  return wrong;
}

class NodeRuns : public ::testing::TestWithParam<int> {
 protected:
  NodeComm const& mComm = CommOf(GetParam());
  int const mRank = mComm.Rank();
  int const mSize = mComm.Size();
  NodePool mShared;
  MemoryPool mPlain;

  // A job of one process has no one to share with.
  void SetUp() override { ASSERT_EQ(mComm.Strided(), mSize > 1); }

  // Calls `test(bands, padding, source, target)` for runs of every kind and every choice of
  // pools: the same on all ranks, or another one on each.
  template <typename Test>
  void WithEveryShape(Test const& test) {
    // Length and number of the runs. A small message has at most 512 elements, a chunk 8192.
    if (mSize == 1) return;
    long const shapes[][2] = {{1, 7},   {2, 256}, {3, 5000}, {8, 1025}, {100, 200}, {511, 1},
                              {512, 1}, {600, 3}, {8191, 2}, {8192, 3}, {8193, 3},  {20000, 4}};
    for (auto const& shape : shapes) {
      for (int choice = 0; choice < 6; ++choice) {
        if (mSize > 2 && choice != 0 && choice != 4) continue;
        int const mine = choice < 4 ? choice : choice + mRank;
        Bands const bands(mSize, shape[0], shape[1]);
        SCOPED_TRACE(std::to_string(shape[0]) + " x " + std::to_string(shape[1]) + ", choice " +
                     std::to_string(choice));
        test(bands, choice % 2, (mine & 1) != 0 ? mPlain : mShared,
             (mine & 2) != 0 ? mPlain : mShared);
      }
    }
  }

  void ExpectWhole(Bands const& bands, Elements& whole) {
    for (int r = 0; r < mSize; ++r)
      EXPECT_EQ(WrongElements(r, bands.Place(r), whole.Data()), 0) << "piece " << r;
    for (long k = 1; k <= bands.mCount; ++k)
      ASSERT_EQ(whole.At(k * bands.mStride - 1), -1) << "the gap behind run " << k;
  }
};

TEST_P(NodeRuns, AreGatheredOntoOneAndAll) {
  WithEveryShape([&](Bands const& bands, long padding, MemoryPool& source, MemoryPool& target) {
    for (int const root : {static_cast<int>(bands.mCount) % mSize, -1}) {
      Runs const mine = bands.Own(mRank, padding);
      Elements own(mine.count * mine.stride, source);
      Elements whole(bands.WholeSize(), target);
      FillPiece(mRank, mine, own.Data());

      EXPECT_EQ(mComm.GatherRuns(own.Data(), mine, whole.Data(), bands.mPlaces.data(),
                                 DATATYPE_DOUBLE, root),
                STATUS_OK);

      if (root < 0 || root == mRank) ExpectWhole(bands, whole);
    }
  });
}

TEST_P(NodeRuns, AreScattered) {
  WithEveryShape([&](Bands const& bands, long padding, MemoryPool& source, MemoryPool& target) {
    int const root = static_cast<int>(bands.mCount) % mSize;
    Runs const mine = bands.Own(mRank, padding);
    Elements whole(mRank == root ? bands.WholeSize() : 1, source);
    Elements own(mine.count * mine.stride + 1, target);
    for (int r = 0; r < mSize && mRank == root; ++r)
      FillPiece(r, bands.Place(r), whole.Data());

    EXPECT_EQ(mComm.ScatterRuns(whole.Data(), bands.mPlaces.data(), own.Data(), mine,
                                DATATYPE_DOUBLE, root),
              STATUS_OK);

    EXPECT_EQ(WrongElements(mRank, mine, own.Data()), 0);
    for (long k = 1; k <= mine.count && padding > 0; ++k)
      ASSERT_EQ(own.At(k * mine.stride - 1), -1);
    EXPECT_EQ(own.At(own.Size() - 1), -1);
  });
}

INSTANTIATE_TEST_SUITE_P(Groups, NodeRuns, ::testing::Values(INT_MAX, 2));

class NodeRunsFailure : public ::testing::Test {
 protected:
  NodeComm const& mComm = CommOf(INT_MAX);
  int const mRank = mComm.Rank();
  int const mSize = mComm.Size();
  NodePool mPool;

  // Rank 1 sends `sent`; the root expects `received` from every rank.
  Outcome Gather(Runs const& received, Runs const& sent, Elements& whole) {
    std::vector<Runs> places;
    for (int r = 0; r < mSize; ++r)
      places.push_back({r * 10000L, received.length, received.count, received.stride});
    Elements own(20000, mPool);
    return OutcomeOf([&] {
      return mComm.GatherRuns(own.Data(), mRank == 1 ? sent : received, whole.Data(),
                              places.data(), DATATYPE_DOUBLE, 0);
    });
  }
};

TEST_F(NodeRunsFailure, NumbersOfElementsThatDifferFailOnBothSidesAndStoreNothing) {
  if (mSize == 1) return;
  Elements whole(mSize * 10000L, mPool);

  Outcome const outcome = Gather({0, 50, 100, 60}, {0, 50, 101, 60}, whole);

  EXPECT_EQ(outcome.mStatus, mRank < 2 ? STATUS_COMM_FAILED : STATUS_OK);
  if (mRank == 0) {
    EXPECT_EQ(outcome.mLog.find("[ERROR] NodeComm::GatherRuns failed on rank 0 of "), 0U)
        << outcome.mLog;
  }
  for (long i = 10000; i < 20000 && mRank == 0; ++i)
    ASSERT_EQ(whole.At(i), -1);
}

// As many elements, but neither side's runs follow each other.
TEST_F(NodeRunsFailure, RunsOfAnotherLengthFailOnBothSidesAndStoreNothing) {
  if (mSize == 1) return;
  Elements whole(mSize * 10000L, mPool);

  Outcome const outcome = Gather({0, 50, 100, 60}, {0, 25, 200, 30}, whole);

  EXPECT_EQ(outcome.mStatus, mRank < 2 ? STATUS_COMM_FAILED : STATUS_OK);
  for (long i = 10000; i < 20000 && mRank == 0; ++i)
    ASSERT_EQ(whole.At(i), -1);
}

// The root's own piece goes from array to array, whatever becomes of the others.
TEST_F(NodeRunsFailure, AScatterThatFailsLeavesOldOrNewElementsAndWritesNoGap) {
  if (mSize == 1) return;
  Bands const bands(mSize, 50, 100);
  Elements whole(bands.WholeSize(), mPool);
  for (int r = 0; r < mSize; ++r)
    FillPiece(r, bands.Place(r), whole.Data());
  Runs const mine = bands.Own(mRank, 3);
  Elements own(mine.stride * (mine.count + 1), mPool);
  Runs asked = mine;
  if (mRank == 1) ++asked.count;

  PavexStatus const status = mComm.ScatterRuns(whole.Data(), bands.mPlaces.data(), own.Data(),
                                               asked, DATATYPE_DOUBLE, 0);

  EXPECT_EQ(status, mRank < 2 ? STATUS_COMM_FAILED : STATUS_OK);
  for (long i = 0; i < own.Size(); ++i) {
    long const run = i / mine.stride;
    long const t = i % mine.stride;
    bool const isNew = run < mine.count && t < mine.length && mRank != 1 &&
                       own.At(i) == ElementOf(mRank, run, t);
    ASSERT_TRUE(own.At(i) == -1 || isNew) << "run " << run << ", element " << t;
  }
}

TEST(NodeRegion, SpansFromTheFirstRunToTheEndOfTheLast) {
  char array[64] = {};
  EXPECT_EQ(NodeRegion::Of(array, {2, 3, 4, 10}, DATATYPE_BYTE).Span(), 33U);
  EXPECT_EQ(NodeRegion::Of(array, {2, 3, 4, 10}, DATATYPE_BYTE).data,
            reinterpret_cast<unsigned char*>(array) + 2);
  EXPECT_EQ(NodeRegion::Of(array, {0, 3, 4, 3}, DATATYPE_BYTE).count, 1U);
  EXPECT_EQ(NodeRegion::Of(array, {0, 3, 0, 3}, DATATYPE_BYTE).Span(), 0U);
  NodeRegion const endless{nullptr, 2, 3, ~std::uint64_t{0} / 2};
  EXPECT_EQ(endless.Span(), ~std::uint64_t{0});
}

// Every part of 4 runs of 5 ints, wherever it begins and ends.
TEST(NodeRegion, IsATypeOfMpiPartByPart) {
  std::vector<int> array(40);
  std::iota(array.begin(), array.end(), 0);
  NodeRegion const region = NodeRegion::Of(array.data(), {3, 5, 4, 8}, DATATYPE_INT);
  for (std::uint64_t first = 0; first < 20; ++first) {
    for (std::uint64_t count = 1; first + count <= 20; ++count) {
      MPI_Datatype type = MPI_DATATYPE_NULL;
      std::vector<int> part(count, -1);
      std::vector<int> expected;
      for (std::uint64_t i = first; i < first + count; ++i)
        expected.push_back(static_cast<int>(3 + i / 5 * 8 + i % 5));

      ASSERT_EQ(MakeMpiType(region, 4 * first, 4 * count, DATATYPE_INT, &type), MPI_SUCCESS);

      MPI_Sendrecv(region.data, 1, type, 0, 7, part.data(), static_cast<int>(count), MPI_INT, 0,
                   7, MPI_COMM_SELF, MPI_STATUS_IGNORE);
      MPI_Type_free(&type);
      ASSERT_EQ(part, expected) << first << " " << count;
    }
  }
}

TEST(NodeRegion, IsATypeOfMpiAlsoBeyondWhatMpiCounts) {
  constexpr long kLength = (5L << 30) + 7;
  NodeRegion const region =
      NodeRegion::Of(nullptr, {0, kLength, 3, kLength + 1}, DATATYPE_DOUBLE);
  MPI_Datatype type = MPI_DATATYPE_NULL;

  ASSERT_EQ(MakeMpiType(region, kLength * 8 - 800, 1 << 30, DATATYPE_DOUBLE, &type),
            MPI_SUCCESS);

  MPI_Count bytes = 0;
  MPI_Count first = 0;
  MPI_Count span = 0;
  MPI_Type_size_x(type, &bytes);
  MPI_Type_get_true_extent_x(type, &first, &span);
  EXPECT_EQ(bytes, 1 << 30);
  EXPECT_EQ(first, kLength * 8 - 800);
  EXPECT_EQ(span, (1 << 30) + 8);
  MPI_Type_free(&type);
}

}  // namespace
}  // namespace Pavex
