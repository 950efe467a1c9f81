// Dense matrices over a communicator that moves runs: results, statuses and lines are those of
// the ordinary way; what packs and reorders does not occur.

#include "pavex/comm/local_comm.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/dense_rank.h"
#include "tests/support/log_level.h"
#include "tests/support/plain_comm.h"
#include "tests/support/strided_comm.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <numeric>
#include <sstream>
#include <utility>

namespace Pavex {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// The matrices of the ranks of a job: those gathered, those with the values of an update, and
// those that a scatter fills.
struct Job {
  std::string name;
  std::vector<DensePiece<>> (*pieces)(int padding);
  bool toAll = false;
};

// What one rank sees of a job.
struct Seen {
  std::vector<PavexStatus> statuses;
  std::vector<double> gathered;
  std::vector<double> updated;
  std::vector<double> scattered;
  long ld = -1;
  bool owns = false;

  bool operator==(Seen const& other) const {
    return statuses == other.statuses && gathered == other.gathered &&
           updated == other.updated && scattered == other.scattered && ld == other.ld &&
           owns == other.owns;
  }
};

// What a whole job did: what each rank saw, its blocks, its calls of runs, and all lines in
// alphabetical order (ranks print at the same time).
struct Done {
  std::vector<Seen> seen;
  std::vector<std::vector<PoolEvent>> events;  // of the gather
  std::vector<std::vector<std::string>> runCalls;
  std::vector<std::string> lines;
};

std::vector<std::string> Sorted(std::string const& output) {
  std::vector<std::string> lines;
  std::istringstream stream(output);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  return lines;
}

std::vector<double> ValuesOf(MatrixBase* target) {
  if (target == nullptr) return {};
  auto const& values = dynamic_cast<MatrixDense<double, int>&>(*target).mValues;
  return {values.mData, values.mData + values.mSize};
}

// Gathers the pieces with padding 1, updates and scatters with others.
template <typename CommOfRank>
Seen RunRank(Job const& job, int rank, std::shared_ptr<CommOfRank> const& comm,
             std::vector<PoolEvent>& events) {
  auto const r = static_cast<std::size_t>(rank);
  DensePiece<> const local = std::move(job.pieces(1)[r]);
  DensePiece<> newer = std::move(job.pieces(job.name == "all" ? 1 : 0)[r]);
  DensePiece<> filled = std::move(job.pieces(2)[r]);
  for (double& value : newer.values)
    value += 100;
  std::fill(filled.values.begin(), filled.values.end(), 7.0);
  LedgerPool pool;
  Aggregator<double, int> aggregator(&pool);
  Seen seen;
  seen.statuses.push_back(job.toAll ? aggregator.Allgather(comm, local.matrix, true)
                                    : aggregator.Gather(comm, local.matrix, true));
  events = pool.Events();
  seen.gathered = ValuesOf(aggregator.Target());
  if (auto const* target = aggregator.TargetAs<MatrixDense<double, int>>()) {
    seen.ld = target->mLd;
    seen.owns = target->mValues.mAllocator != nullptr;
  }
  seen.statuses.push_back(aggregator.Update(newer.matrix));
  seen.updated = ValuesOf(aggregator.Target());
  seen.statuses.push_back(aggregator.Scatter(filled.matrix));
  seen.scattered = filled.values;
  return seen;
}

// What a rank of a LocalComm passes to its aggregator: its communicator, or a wrapper of it.
template <typename CommOfRank>
auto CommFor(std::shared_ptr<Comm> const& inner) {
  if constexpr (std::is_same_v<CommOfRank, LocalComm>)
    return inner;
  else
    return std::make_shared<CommOfRank>(inner);
}

template <typename CommOfRank>
Done RunJob(Job const& job) {
  LogLevel const debug(LOG_DEBUG);
  auto const ranks = job.pieces(0).size();
  Done done;
  done.seen.resize(ranks);
  done.events.resize(ranks);
  done.runCalls.resize(ranks);
  std::string const output = CaptureStdout([&] {
    LocalComm::Run(static_cast<int>(ranks), [&](std::shared_ptr<Comm> const& inner) {
      auto const r = static_cast<std::size_t>(inner->Rank());
      auto const comm = CommFor<CommOfRank>(inner);
      done.seen[r] = RunRank(job, inner->Rank(), comm, done.events[r]);
      if constexpr (std::is_same_v<CommOfRank, StridedComm>)
        done.runCalls[r] = comm->RunCalls();
    });
  });
  done.lines = Sorted(output);
  return done;
}

bool IsReorder(std::string const& line) {
  return line.find("Reorder values") != std::string::npos;
}

std::vector<std::string> WithoutReorders(std::vector<std::string> lines) {
  lines.erase(std::remove_if(lines.begin(), lines.end(), IsReorder), lines.end());
  return lines;
}

// A column of a matrix: its runs are one element long, or it is one run.
std::vector<DensePiece<>> OneColumn(int padding) {
  auto const rows = [padding](int first, int count) {
    return DenseBlock(first, count, 1, 1, true, padding)
        .In(5, 1, MatrixPartition::RowWise(first - 1));
  };
  return Pieces(rows(1, 2), rows(3, 1), rows(4, 2));
}

std::vector<Job> Jobs() {
  return {
      {"rows of columns",
       [](int p) { return Pieces(RowShare(0, false, p), RowShare(1, false, p)); }},
      {"rows of rows",
       [](int p) { return Pieces(RowShare(0, true, p), RowShare(1, true, p)); }},
      {"columns of rows",
       [](int p) { return Pieces(ColumnShare(0, true, p), ColumnShare(1, true, p)); }},
      {"columns of columns",
       [](int p) { return Pieces(ColumnShare(0, false, p), ColumnShare(1, false, p)); }},
      {"one column", OneColumn},
      {"held by the last",
       [](int p) { return Pieces(EmptyShare(true), EmptyShare(true), WholeShare(true, p)); }},
      {"held by the last, other order at the root",
       [](int p) { return Pieces(EmptyShare(false), WholeShare(true, p)); }},
      {"held by the root",
       [](int p) { return Pieces(WholeShare(false, p), EmptyShare(false)); }},
      {"all", [](int p) { return Pieces(WholeShare(true, p), WholeShare(true, p)); }},
  };
}

void ExpectTheSame(Done const& strided, Done const& ordinary) {
  EXPECT_EQ(strided.seen.size(), ordinary.seen.size());
  for (std::size_t r = 0; r < strided.seen.size(); ++r) {
    EXPECT_EQ(strided.seen[r].statuses, ordinary.seen[r].statuses) << r;
    EXPECT_EQ(strided.seen[r].gathered, ordinary.seen[r].gathered) << r;
    EXPECT_TRUE(strided.seen[r] == ordinary.seen[r]) << r;
  }
  EXPECT_EQ(strided.lines, WithoutReorders(ordinary.lines));
}

TEST(DenseRuns, GiveTheResultsStatusesAndLinesOfTheOrdinaryWay) {
  for (Job job : Jobs()) {
    for (bool const toAll : {false, true}) {
      job.toAll = toAll;
      SCOPED_TRACE(job.name + (toAll ? " to all" : ""));

      Done const ordinary = RunJob<TraceComm>(job);
      ExpectTheSame(RunJob<StridedComm>(job), ordinary);
      ExpectTheSame(RunJob<LocalComm>(job), ordinary);
    }
  }
}

TEST(DenseRuns, GoFromTheLocalArraysToTheirPlaceAndBackInOneCallEach) {
  Done const done = RunJob<StridedComm>(Jobs()[2]);

  EXPECT_THAT(done.runCalls[0],
              ElementsAre("GatherRuns({0, 2, 3, 3}; {0, 2, 3, 5} {2, 3, 3, 5}; root 0)",
                          "GatherRuns({0, 6, 1, 6}; {0, 2, 3, 5} {2, 3, 3, 5}; root 0)",
                          "ScatterRuns({0, 2, 3, 5} {2, 3, 3, 5}; {0, 2, 3, 4}; root 0)"));
  EXPECT_THAT(done.runCalls[1], ElementsAre("GatherRuns({0, 3, 3, 4}; root 0)",
                                            "GatherRuns({0, 9, 1, 9}; root 0)",
                                            "ScatterRuns({0, 3, 3, 5}; root 0)"));
}

// Records, counts, displacements, values, and the list of runs. The ordinary way would pack 6
// or 9 elements and reorder 15.
TEST(DenseRuns, TakeNoMemoryToPackOrReorder) {
  for (Done const& done : {RunJob<StridedComm>(Jobs()[2]), RunJob<LocalComm>(Jobs()[2])}) {
    EXPECT_EQ(done.events[0],
              (std::vector<PoolEvent>{Took(2 * 72), Took(2 * 4), Took(2 * 4), Took(15 * 8),
                                      Took(2 * 32), GaveBack(2 * 32)}));
    EXPECT_EQ(done.events[1], std::vector<PoolEvent>{Took(2 * 72)});
    EXPECT_EQ(WithoutReorders(done.lines), done.lines);
  }
}

TEST(DenseRuns, LeaveTheOrdinaryWayAsItIs) {
  Done const done = RunJob<TraceComm>(Jobs()[2]);

  EXPECT_EQ(done.events[0], (std::vector<PoolEvent>{Took(2 * 72), Took(2 * 4), Took(2 * 4),
                                                    Took(15 * 8), Took(6 * 8), Took(15 * 8),
                                                    GaveBack(15 * 8), GaveBack(6 * 8)}));
  EXPECT_EQ(std::count_if(done.lines.begin(), done.lines.end(), IsReorder), 3);
}

// A packed array that is longer than its piece does not match what the others expect.
TEST(DenseRuns, SendAPackedArrayThatIsTooLongWhole) {
  Job const job{"too long", [](int) {
                  DensePiece<> longer = ColumnShare(1, true);
                  longer.values.resize(10);
                  longer.matrix.mValues.Borrow(longer.values.data(), 10);
                  return Pieces(ColumnShare(0, true), std::move(longer));
                }};

  Done const ordinary = RunJob<TraceComm>(job);
  Done const strided = RunJob<StridedComm>(job);
  Done const threads = RunJob<LocalComm>(job);

  EXPECT_EQ(strided.runCalls[1][0], "GatherRuns({0, 10, 1, 10}; root 0)");
  EXPECT_EQ(threads.seen[1].statuses, ordinary.seen[1].statuses);
  EXPECT_EQ(strided.seen[1].statuses, ordinary.seen[1].statuses);
  EXPECT_EQ(strided.seen[1].statuses[0], STATUS_COMM_FAILED);
  EXPECT_EQ(strided.lines, WithoutReorders(ordinary.lines));
}

// Shares of the entries that lie across each other: the last one wins, so order matters.
TEST(DenseRuns, AreNotUsedForPiecesThatMeet) {
  Job const job{
      "meeting", [](int p) {
        auto const share = [p](int rows) {
          return DenseBlock(1, rows, 1, 2, true, p).In(4, 2, MatrixPartition::NonzeroWise());
        };
        return Pieces(share(1), share(3));
      }};

  Done const ordinary = RunJob<TraceComm>(job);
  Done const strided = RunJob<StridedComm>(job);

  EXPECT_THAT(strided.runCalls[0], IsEmpty());
  EXPECT_EQ(strided.seen[0].statuses, ordinary.seen[0].statuses);
  EXPECT_EQ(strided.lines, ordinary.lines);
}

// Only the holder and rank 0 take part there, and runs move in a call of all.
TEST(DenseRuns, AreNotUsedBetweenAHolderAndRankZero) {
  for (std::size_t const number : {5U, 6U, 7U}) {
    Done const done = RunJob<StridedComm>(Jobs()[number]);

    SCOPED_TRACE(Jobs()[number].name);
    EXPECT_THAT(done.runCalls, Each(IsEmpty()));
  }
}

// The update of a rank without a part in it is refused on that rank alone.
TEST(DenseRuns, DoNotMakeAHolderWaitForOthers) {
  LogLevel const silent(LOG_FATAL);
  std::vector<PavexStatus> updates(3);
  std::vector<PavexStatus> barriers(3);
  LocalComm::Run(3, [&](std::shared_ptr<Comm> const& comm) {
    auto const r = static_cast<std::size_t>(comm->Rank());
    DensePiece<> local = r == 1 ? WholeShare(true) : EmptyShare(true);
    MemoryPool pool;
    Aggregator<double, int> aggregator(&pool);
    EXPECT_EQ(aggregator.Gather(comm, local.matrix, true), STATUS_OK);
    if (r == 2) local.matrix.mAttribute = 5;

    updates[r] = aggregator.Update(local.matrix);
    barriers[r] = comm->Barrier();
  });

  EXPECT_THAT(updates, ElementsAre(STATUS_OK, STATUS_OK, STATUS_MISMATCH));
  EXPECT_THAT(barriers, Each(STATUS_OK));
}

// The array that a gathered matrix of all shows is the one to be filled, now with another
// leading dimension.
TEST(DenseRuns, FillTheArrayThatTheyComeFrom) {
  for (long const ld : {5L, 6L, 7L}) {
    std::vector<double> arrays[3];
    for (int way = 0; way < 3; ++way) {
      LocalComm::Run(2, [&](std::shared_ptr<Comm> const& inner) {
        std::vector<double> array(21);
        for (std::size_t i = 0; i < array.size(); ++i)
          array[i] = static_cast<double>(i);
        auto local = MatrixDense<double, int>::Borrow(3, 5, true, 6, array.data());
        auto filled = MatrixDense<double, int>::Borrow(3, 5, true, ld, array.data());
        std::shared_ptr<Comm> comm = inner;
        if (way == 0) comm = std::make_shared<PlainComm>(inner);
        if (way == 1) comm = std::make_shared<StridedComm>(inner);
        MemoryPool pool;
        Aggregator<double, int> aggregator(&pool);
        EXPECT_EQ(aggregator.Gather(comm, local, true), STATUS_OK);

        EXPECT_EQ(aggregator.Scatter(filled), STATUS_OK);

        auto& seen = arrays[way];
        if (inner->Rank() == 0) seen = array;
      });
    }
    EXPECT_EQ(arrays[1], arrays[0]) << ld;
    EXPECT_EQ(arrays[2], arrays[0]) << ld;
  }
}

// What a scatter brings to each rank out of an array that rank 0 has given to its gathered
// matrix, with gaps between the runs.
template <typename CommOfRank>
std::vector<std::vector<double>> ScatterAnotherArray(Job const& job) {
  auto const ranks = job.pieces(0).size();
  std::vector<std::vector<double>> scattered(ranks);
  LocalComm::Run(static_cast<int>(ranks), [&](std::shared_ptr<Comm> const& inner) {
    auto const r = static_cast<std::size_t>(inner->Rank());
    DensePiece<> const local = std::move(job.pieces(1)[r]);
    DensePiece<> filled = std::move(job.pieces(2)[r]);
    std::fill(filled.values.begin(), filled.values.end(), 7.0);
    MemoryPool pool;
    Aggregator<double, int> aggregator(&pool);
    EXPECT_EQ(aggregator.Gather(CommFor<CommOfRank>(inner), local.matrix, true), STATUS_OK);
    std::vector<double> array(5 * 7);
    std::iota(array.begin(), array.end(), 100.0);
    if (auto* const target = aggregator.TargetAs<MatrixDense<double, int>>()) {
      target->mLd = 7;
      target->SetValues(array.data());
    }

    EXPECT_EQ(aggregator.Scatter(filled.matrix), STATUS_OK);

    scattered[r] = filled.values;
  });
  return scattered;
}

TEST(DenseRuns, ReadAnArrayThatTheCallerHasGivenToTheGatheredMatrixWithItsLeadingDimension) {
  EXPECT_THAT(ScatterAnotherArray<StridedComm>(Jobs()[1])[1],
              ElementsAre(107, 108, 109, 110, 111, 7, 7, 114, 115, 116, 117, 118));
  for (std::size_t const number : {0U, 1U, 2U, 3U, 5U}) {
    SCOPED_TRACE(Jobs()[number].name);
    auto const ordinary = ScatterAnotherArray<TraceComm>(Jobs()[number]);
    EXPECT_EQ(ScatterAnotherArray<StridedComm>(Jobs()[number]), ordinary);
    EXPECT_EQ(ScatterAnotherArray<LocalComm>(Jobs()[number]), ordinary);
  }
}

// A matrix of one row, row by row, has no distance from one row to the next.
TEST(DenseRuns, DoNotPassOnTheLeadingDimensionOfASingleRun) {
  Job job{"one row", [](int) {
            DensePiece<> row = DenseBlock(1, 1, 1, 5, true);
            row.matrix.mLd = -1;
            return Pieces(EmptyShare(true), std::move(row));
          }};
  job.toAll = true;

  Done const done = RunJob<StridedComm>(job);

  EXPECT_EQ(done.seen[0].gathered, (std::vector<double>{11, 12, 13, 14, 15}));
  ASSERT_THAT(done.runCalls[1], SizeIs(2));
  EXPECT_THAT(done.runCalls[1],
              Each("GatherRuns({0, 5, 1, 5}; {0, 0, 0, 0} {0, 5, 1, 5}; root -1)"));
}

// The statuses of rank 0 and the sorted lines of all ranks of a job whose calls fail from the
// `nth` on.
template <typename CommOfRank>
std::pair<std::vector<PavexStatus>, std::vector<std::string>> FailJob(Job const& job, int nth) {
  std::vector<PavexStatus> statuses;
  std::string const output = CaptureStdout([&] {
    LocalComm::Run(2, [&](std::shared_ptr<Comm> const& inner) {
      auto const comm = std::make_shared<CommOfRank>(inner);
      comm->Fail(Fault::From(nth, -77));
      std::vector<PoolEvent> events;
      Seen const seen = RunRank(job, inner->Rank(), comm, events);
      if (inner->Rank() == 0) statuses = seen.statuses;
    });
  });
  return {statuses, Sorted(output)};
}

TEST(DenseRuns, FailWithTheStatusesAndLinesOfTheOrdinaryWay) {
  for (std::size_t const number : {std::size_t{0}, std::size_t{3}, std::size_t{6}}) {
    for (int const nth : {2, 3, 4}) {  // the first call exchanges the records
      SCOPED_TRACE(Jobs()[number].name + ", call " + std::to_string(nth));

      auto const ordinary = FailJob<TraceComm>(Jobs()[number], nth);
      auto const strided = FailJob<StridedComm>(Jobs()[number], nth);

      EXPECT_EQ(strided.first, ordinary.first);
      EXPECT_EQ(strided.first[static_cast<std::size_t>(nth) - 2], -77);
      EXPECT_EQ(strided.second, ordinary.second);
    }
  }
}

}  // namespace
}  // namespace Pavex
