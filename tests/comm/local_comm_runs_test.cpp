// What moves in runs over LocalComm, beyond the contract of every communicator: large and many
// pieces, refusals, and ranks that run on at once.

#include "tests/comm/failing_new.h"
#include "tests/comm/local_ranks.h"

#include <climits>
#include <gtest/gtest.h>
#include <ostream>
#include <utility>
#include <vector>

namespace Pavex {
namespace {

constexpr PavexStatus kFailed = STATUS_COMM_FAILED;

// Pieces of `ranks` ranks, `count` runs each, side by side in an array with one element more to
// each run. Rank r has runs of `length` + r elements, except rank 1, which has none. In its own
// array a gap of two elements follows each run.
struct Bands {
  Bands(int ranks, long length, long runs) : count(runs) {
    long width = 0;
    for (int r = 0; r < ranks; ++r) {
      long const own = r == 1 ? 0 : length + r;
      places.push_back({width, own, runs, 0});
      width += own;
    }
    for (Runs& runsOf : places)
      runsOf.stride = width + 1;
    size = Index(static_cast<int>(runs)) * static_cast<std::size_t>(width + 1);
  }

  Runs Own(int rank) const {
    long const length = places[Index(rank)].length;
    return {0, length, count, length + 2};
  }

  static long Element(int rank, long run, long position) {
    return (rank + 1) * 100000000L + run * 10000 + position;
  }

  std::vector<long> Filled(std::vector<long> array, int rank, Runs const& runs) const {
    for (long k = 0; k < runs.count; ++k)
      for (long t = 0; t < runs.length; ++t)
        array[static_cast<std::size_t>(runs.begin + k * runs.stride + t)] = Element(rank, k, t);
    return array;
  }
  std::vector<long> NoPiece(int rank) const {
    std::vector<long> array(static_cast<std::size_t>(count * Own(rank).stride), -1);
    return array;
  }
  std::vector<long> Piece(int rank) const { return Filled(NoPiece(rank), rank, Own(rank)); }
  std::vector<long> NoWhole() const {
    std::vector<long> array(size, -1);
    return array;
  }
  std::vector<long> Whole() const {
    std::vector<long> whole = NoWhole();
    for (int r = 0; r < static_cast<int>(places.size()); ++r)
      whole = Filled(std::move(whole), r, places[Index(r)]);
    return whole;
  }

  long count;
  std::vector<Runs> places;
  std::size_t size = 0;
};

struct Size {
  int ranks;
  long length;
  long runs;
};
void PrintTo(Size const& size, std::ostream* out) {
  *out << size.ranks << " ranks, " << size.runs << " runs of " << size.length;
}

// The ranks share the copying of the first four, in chunks that end within runs. Of the others
// one rank copies everything, or all of them copy small pieces out of a bundle.
class LocalCommRuns : public testing::TestWithParam<Size> {};
INSTANTIATE_TEST_SUITE_P(Sizes, LocalCommRuns,
                         testing::Values(Size{2, 1, 70000}, Size{3, 5000, 33},
                                         Size{4, 700, 300}, Size{8, 41, 900}, Size{5, 3, 20},
                                         Size{200, 1, 2}));

TEST_P(LocalCommRuns, GoToTheLastRankAndBack) {
  int const n = GetParam().ranks;
  Bands const bands(n, GetParam().length, GetParam().runs);
  std::vector<long> whole = bands.NoWhole();

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    bool const root = rank == n - 1;
    std::vector<long> const mine = bands.Piece(rank);
    std::vector<long> back = bands.NoPiece(rank);
    PavexStatus const sum =
        comm.GatherRuns(mine.data(), bands.Own(rank), root ? whole.data() : nullptr,
                        root ? bands.places.data() : nullptr, DATATYPE_LONG, n - 1) +
        comm.ScatterRuns(root ? whole.data() : nullptr, root ? bands.places.data() : nullptr,
                         back.data(), bands.Own(rank), DATATYPE_LONG, n - 1);
    EXPECT_TRUE(back == mine) << "rank " << rank;
    return sum;
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_TRUE(whole == bands.Whole());
}

TEST_P(LocalCommRuns, ReachEveryRank) {
  int const n = GetParam().ranks;
  Bands const bands(n, GetParam().length, GetParam().runs);
  std::vector<long> const expected = bands.Whole();

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    std::vector<long> const mine = bands.Piece(rank);
    std::vector<long> whole = bands.NoWhole();
    PavexStatus const status = comm.GatherRuns(mine.data(), bands.Own(rank), whole.data(),
                                               bands.places.data(), DATATYPE_LONG, -1);
    EXPECT_TRUE(whole == expected) << "rank " << rank;
    return status;
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
}

// Each rank overwrites its piece as soon as its call has returned.
TEST_P(LocalCommRuns, AreNotReadAfterTheCallOfTheirRank) {
  int const n = GetParam().ranks;
  Bands const bands(n, GetParam().length, GetParam().runs);
  std::vector<long> const expected = bands.Whole();

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    PavexStatus sum = STATUS_OK;
    for (int round = 0; round < 5; ++round) {
      std::vector<long> mine = bands.Piece(rank);
      std::vector<long> whole = bands.NoWhole();
      sum += comm.GatherRuns(mine.data(), bands.Own(rank), whole.data(), bands.places.data(),
                             DATATYPE_LONG, round % n);
      mine.assign(mine.size(), -2);
      EXPECT_TRUE(whole == (rank == round % n ? expected : bands.NoWhole()));
    }
    return sum;
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
}

TEST_P(LocalCommRuns, OfTheReceiverStayWhereTheyAre) {
  int const n = GetParam().ranks;
  Bands const bands(n, GetParam().length, GetParam().runs);
  std::vector<long> whole = bands.Filled(bands.NoWhole(), 0, bands.places[0]);

  auto const statuses = RunRanks(n, [&](Comm const& comm, int rank) {
    std::vector<long> const mine = bands.Piece(rank);
    return comm.GatherRuns(rank == 0 ? whole.data() : mine.data(),
                           rank == 0 ? bands.places[0] : bands.Own(rank), whole.data(),
                           bands.places.data(), DATATYPE_LONG, 0);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_TRUE(whole == bands.Whole());
}

// Ranks 0 and 1 gather two runs of two ints each on rank 0, to elements 0, 1, 4, 5 and 2, 3,
// 6, 7. Rank 1 says that it sends `sent` of `type`.
Statuses GatherOdd(Runs const& sent, Datatype type, std::vector<int>& whole) {
  Runs const places[] = {{0, 2, 2, 4}, {2, 2, 2, 4}};
  std::vector<int> const mine(8, 5);
  return RunRanks(2, [&](Comm const& comm, int rank) {
    bool const odd = rank == 1;
    PavexStatus const status = comm.GatherRuns(
        mine.data(), odd ? sent : Runs{0, 2, 2, 3}, odd ? nullptr : whole.data(),
        odd ? nullptr : places, odd ? type : DATATYPE_INT, 0);
    EXPECT_EQ(comm.Barrier(), STATUS_OK) << "a failure leaves no trace";
    return status;
  });
}

TEST(LocalCommRunsMismatch, FailsOnEveryRankAndMovesNothing) {
  std::vector<int> whole(8, -1);

  EXPECT_EQ(GatherOdd({0, 3, 1, 3}, DATATYPE_INT, whole), All(2, kFailed));  // another count
  EXPECT_EQ(GatherOdd({0, 1, 4, 2}, DATATYPE_INT, whole), All(2, kFailed));  // another length
  EXPECT_EQ(GatherOdd({0, 2, 2, 3}, DATATYPE_FLOAT, whole), All(2, kFailed));
  EXPECT_EQ(whole, std::vector<int>(8, -1));

  EXPECT_EQ(GatherOdd({1, 4, 1, 0}, DATATYPE_INT, whole), All(2, STATUS_OK));
  EXPECT_EQ(whole, std::vector<int>(8, 5));
}

// Of so many elements that their number wraps to that of the others.
TEST(LocalCommRunsMismatch, OfMoreElementsThanALongCountsFails) {
  std::vector<int> whole(8, -1);
  long const many = LONG_MAX / 2 + 2;  // times 4 it wraps to 4

  EXPECT_EQ(GatherOdd({0, many, 4, many}, DATATYPE_INT, whole), All(2, kFailed));
  EXPECT_EQ(GatherOdd({0, 4, many, 5}, DATATYPE_INT, whole), All(2, kFailed));

  EXPECT_EQ(whole, std::vector<int>(8, -1));
}

TEST(LocalCommRunsMismatch, OfElementsWithoutAnArrayFails) {
  Runs const places[] = {{0, 1, 1, 1}, {1, 1, 1, 1}};
  int const mine = 5;
  std::vector<int> whole(2, -1);

  EXPECT_EQ(RunRanks(2,
                     [&](Comm const& comm, int rank) {
                       return comm.GatherRuns(rank == 0 ? &mine : nullptr, {0, 1, 1, 1},
                                              whole.data(), places, DATATYPE_INT, 0);
                     }),
            All(2, kFailed));
  EXPECT_EQ(RunRanks(2,
                     [&](Comm const& comm, int rank) {
                       return comm.ScatterRuns(whole.data(), rank == 0 ? places : nullptr,
                                               nullptr, {0, 1, 1, 1}, DATATYPE_INT, 0);
                     }),
            All(2, kFailed));
  EXPECT_EQ(whole, std::vector<int>(2, -1));
}

// The root of one rank is the receiver; the other wants both to receive, or calls something
// else.
TEST(LocalCommRunsMismatch, WithAnotherCollectiveFailsOnEveryRank) {
  Runs const places[] = {{0, 1, 1, 1}, {1, 1, 1, 1}};
  auto const fails = [&](auto const& other) {
    auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
      int const mine = 5;
      int whole[] = {-1, -1};
      PavexStatus const status =
          rank == 0 ? comm.GatherRuns(&mine, {0, 1, 1, 1}, whole, places, DATATYPE_INT, 0)
                    : other(comm, &mine, whole);
      EXPECT_EQ(whole[0], -1);
      return status;
    });
    EXPECT_EQ(statuses, All(2, kFailed));
  };

  fails([&](Comm const& comm, int const* mine, int* whole) {
    return comm.GatherRuns(mine, {0, 1, 1, 1}, whole, places, DATATYPE_INT, -1);
  });
  fails([&](Comm const& comm, int const* mine, int* whole) {
    return comm.GatherRuns(mine, {0, 1, 1, 1}, whole, places, DATATYPE_INT, 1);
  });
  fails([&](Comm const& comm, int const* mine, int* whole) {
    return comm.ScatterRuns(mine, places, whole, {0, 1, 1, 1}, DATATYPE_INT, 0);
  });
  fails([&](Comm const& comm, int const* mine, int* /*whole*/) {
    return comm.Gatherv(mine, 1, DATATYPE_INT, nullptr, nullptr, nullptr, DATATYPE_INT, 0);
  });
  fails([](Comm const& /*comm*/, int const* /*mine*/, int* /*whole*/) {
    return kFailed;  // and returns
  });
}

// Every number of the calls of operator new on the ranks fails once, until none is left.
void ExpectNoTraceOfLackingMemory(int root) {
  Bands const bands(3, 100, 50);
  int nth = 0;
  for (Statuses statuses = All(3, kFailed); statuses != All(3, STATUS_OK);) {
    ++nth;
    statuses = RunRanks(3, [&](Comm const& comm, int rank) {
      std::vector<long> const mine = bands.Piece(rank);
      std::vector<long> whole = bands.NoWhole();
      FailNewAt(nth);
      PavexStatus const status = comm.GatherRuns(mine.data(), bands.Own(rank), whole.data(),
                                                 bands.places.data(), DATATYPE_LONG, root);
      FailNewAt(0);
      bool const receives = status == STATUS_OK && (root < 0 || root == rank);
      EXPECT_TRUE(whole == (receives ? bands.Whole() : bands.NoWhole()));
      return status;
    });
    PavexStatus const expected = statuses.front() == STATUS_OK ? STATUS_OK : kFailed;
    ASSERT_EQ(statuses, All(3, expected)) << nth;
  }
  EXPECT_GT(nth, 1);
}

TEST(LocalCommRunsMismatch, WithoutMemoryForThePlanFailsOnEveryRank) {
  ExpectNoTraceOfLackingMemory(0);
  ExpectNoTraceOfLackingMemory(-1);
}

}  // namespace
}  // namespace Pavex
