// Checks that a gather does what the plan says: the mode, the calls, the messages with their
// bytes and the peak of the pool on each rank.

#include "tools/plan/plan.h"

#include "pavex/comm/local_comm.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/log_level.h"
#include "tests/tools/temporary_folder.h"
#include "tools/choice/input_error.h"
#include "tools/matrix/local_matrix.h"
#include "tools/source/type_choice.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <numeric>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The calls of one rank, and the messages and bytes that they bring from others.
struct Received {
  int mCalls = 0;
  long mMessages = 0;
  long mBytes = 0;
};

void AddCall(CommCall const& call, int rank, int size, Received& received) {
  long const bytes = static_cast<long>(DatatypeSize(call.recvtype));
  auto const add = [&received, bytes](long messages, long elements) {
    received.mMessages += messages;
    received.mBytes += elements * bytes;
  };
  ++received.mCalls;
  switch (call.op) {
    case CommOp::ALLGATHER:
      return add(size - 1, (size - 1L) * call.recvcount);
    case CommOp::GATHERV:
      if (rank != call.peer) return;
      [[fallthrough]];
    case CommOp::ALLGATHERV:
      return add(size - 1,
                 std::accumulate(call.recvcountsRead.begin(), call.recvcountsRead.end(), 0L) -
                     call.recvcountsRead[static_cast<std::size_t>(rank)]);
    case CommOp::BCAST:
      if (rank != call.peer) add(1, call.recvcount);
      return;
    case CommOp::RECV:
      return add(1, call.recvcount);
    case CommOp::SEND:
      return;
    default:
      ADD_FAILURE() << "a gather does not do this: " << call;
  }
}

Received ReceivedBy(TraceComm const& comm, int rank, int size) {
  Received received;
  for (CommCall const& call : comm.Calls())
    if (call.op != CommOp::RANK && call.op != CommOp::SIZE) AddCall(call, rank, size, received);
  return received;
}

Plan PlanOf(Source const& source, GatherOptions const& options) {
  return MakePlan(source, options, options);
}

// Gathers on one rank, and compares the calls with the plan.
template <typename T, typename I>
void ExpectAsPlanned(Plan const& plan, Source const& source,
                     std::shared_ptr<Comm> const& comm) {
  int const ranks = plan.mRun.mRanks;
  int const rank = comm->Rank();
  bool const withValues = plan.mCut.mWithValues;
  Piece const piece = CutPiece(source.Whole(), plan.mCut, ranks, rank);
  LocalMatrix<T, I> const local(source.Cut(piece, {}), piece, source.Whole(), plan.mCut);
  RankUnderTest<T, I> here(comm);
  auto& aggregator = here.aggregator;

  PavexStatus const status = plan.mRun.mToAll
                                 ? aggregator.Allgather(here.comm, local.Matrix(), withValues)
                                 : aggregator.Gather(here.comm, local.Matrix(), withValues);

  PlanRank const& planned = plan.mRanks[static_cast<std::size_t>(rank)];
  Received const received = ReceivedBy(*here.comm, rank, ranks);
  ASSERT_EQ(status, STATUS_OK);
  EXPECT_EQ(aggregator.Mode(), plan.mMode);
  EXPECT_EQ(aggregator.Describe(), plan.mDescription);
  EXPECT_EQ(local.Matrix().NNZ(), planned.mEntries);
  EXPECT_EQ(local.Bytes(), planned.mBytes);
  EXPECT_EQ(aggregator.Target() != nullptr, planned.mReceiver);
  EXPECT_EQ(received.mCalls, planned.mCalls);
  EXPECT_EQ(received.mMessages, planned.mMessages);
  EXPECT_EQ(received.mBytes, planned.mMessageBytes);
  EXPECT_EQ(static_cast<long>(here.pool.PeakBytes()), planned.mPeakPoolBytes);
}

void CheckPlan(std::string const& input, GatherOptions const& options) {
  SCOPED_TRACE(input + " " + NameOf(options.mFormat) + " by " + NameOf(options.mPartition) +
               " on " + std::to_string(options.mRanks) + (options.mToAll ? " to all" : "") +
               (options.mWithValues ? "" : " without values"));
  auto const source = OpenGenerator(input);
  Plan const plan = PlanOf(*source, options);
  ASSERT_TRUE(plan.Accepted()) << plan.mRefusal;
  EXPECT_THAT(plan.mWarnings, IsEmpty());
  WithTypes(plan.mValue, options.mIndex, [&](auto valueTag, auto indexTag) {
    using T = typename decltype(valueTag)::Type;
    using I = typename decltype(indexTag)::Type;
    LocalComm::Run(options.mRanks, [&](std::shared_ptr<Comm> const& comm) {
      ExpectAsPlanned<T, I>(plan, *source, comm);
    });
  });
}

struct Cut {
  Format format;
  Partition partition;
};

class PlannedGather : public testing::TestWithParam<Cut> {};

// Each case runs on one to five ranks, to the root and to all, with two pairs of types. With
// the second pair a sparse matrix has no values, and a dense one has gaps between the runs.
TEST_P(PlannedGather, DoesWhatThePlanSays) {
  GatherOptions options;
  options.mFormat = GetParam().format;
  options.mPartition = GetParam().partition;
  // A matrix of a single row or column that can be cut that way.
  std::string const thin = options.mPartition == Partition::COLUMNS ? "dense:1x9" : "dense:9x1";
  for (options.mRanks = 1; options.mRanks <= 5; ++options.mRanks) {
    if (options.mPartition == Partition::ONE) options.mHolder = options.mRanks / 2;
    for (bool const toAll : {false, true}) {
      options.mToAll = toAll;
      for (bool const plain : {true, false}) {
        options.mValue = plain ? ValueKind::FLOAT : ValueKind::COMPLEX_DOUBLE;
        options.mIndex = plain ? IndexKind::LONG : IndexKind::INT;
        options.mWithValues = plain || IsDense(options.mFormat);
        options.mPad = !plain && IsDense(options.mFormat) ? 3 : 0;
        CheckPlan("random:23", options);
        CheckPlan(thin, options);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    , PlannedGather,
    testing::Values(
        Cut{Format::COO, Partition::ROWS}, Cut{Format::COO, Partition::COLUMNS},
        Cut{Format::COO, Partition::ENTRIES}, Cut{Format::COO, Partition::ONE},
        Cut{Format::COO, Partition::ALL}, Cut{Format::CSR, Partition::ROWS},
        Cut{Format::CSR, Partition::ONE}, Cut{Format::CSR, Partition::ALL},
        Cut{Format::CSC, Partition::COLUMNS}, Cut{Format::CSC, Partition::ONE},
        Cut{Format::CSC, Partition::ALL}, Cut{Format::DENSE_ROW, Partition::ROWS},
        Cut{Format::DENSE_ROW, Partition::COLUMNS}, Cut{Format::DENSE_ROW, Partition::ONE},
        Cut{Format::DENSE_ROW, Partition::ALL}, Cut{Format::DENSE_COL, Partition::ROWS},
        Cut{Format::DENSE_COL, Partition::COLUMNS}, Cut{Format::DENSE_COL, Partition::ONE},
        Cut{Format::DENSE_COL, Partition::ALL}),
    [](testing::TestParamInfo<Cut> const& test) {
      std::string name =
          std::string(NameOf(test.param.format)) + "_" + NameOf(test.param.partition);
      std::replace(name.begin(), name.end(), '-', '_');
      return name;
    });

// --- Sizes beyond memory, and warnings

GatherOptions Options(Format format, int ranks) {
  GatherOptions options;
  options.mFormat = format;
  options.mRanks = ranks;
  return options;
}

TEST(Plan, CountsAMatrixThatNoMemoryHolds) {
  auto const source = OpenGenerator("poisson3d:1000");

  Plan const plan = PlanOf(*source, Options(Format::CSR, 1000));

  EXPECT_EQ(plan.mEntries, 6994000000);
  EXPECT_EQ(plan.mRanks[0].mEntries, 1000000 + 2 * 1998000 + 1000000);
  EXPECT_EQ(
      plan.mRefusal,
      "poisson3d:1000 has 6994000000 entries, more than the 2147483647 that offsets can count "
      "with --index int: use --index long");
  EXPECT_THAT(plan.mWarnings, IsEmpty());
}

TEST(Plan, AcceptsAnyNumberOfEntriesThatCanBeCounted) {
  auto const source = OpenGenerator("poisson3d:1000");
  GatherOptions wide = Options(Format::CSR, 1000);
  wide.mIndex = IndexKind::LONG;

  Plan const plan = PlanOf(*source, wide);

  EXPECT_EQ(plan.mRefusal, "");
  // The records, the lengths, and 4 calls for each of the indices and the values.
  EXPECT_EQ(plan.mRanks[0].mCalls, 1 + 1 + 2 * 4);
  EXPECT_EQ(plan.mRanks[0].mMessages, 999 + 999 + 2 * (999 + 3)) << "3 shares are cut";
  EXPECT_EQ(PlanOf(*source, Options(Format::COO, 1000)).mRefusal, "");
  EXPECT_EQ(PlanOf(*OpenGenerator("dense:50000x50000"), Options(Format::DENSE_COL, 4)).mRefusal,
            "");
}

GatherOptions OptionsOfLargest(Format format, int ranks) {
  GatherOptions options = Options(format, ranks);
  options.mValue = ValueKind::COMPLEX_DOUBLE;
  options.mIndex = IndexKind::LONG;
  options.mToAll = true;
  return options;
}

TEST(Plan, CountsTheBytesOfTheLargestPaddedPiece) {
  auto const source = OpenGenerator("dense:379625062x379625062");
  GatherOptions options = OptionsOfLargest(Format::DENSE_ROW, 1);
  options.mPad = 1 << 20;

  Plan const plan = PlanOf(*source, options);

  EXPECT_EQ(plan.mRanks[0].mBytes, 2312212054823471680);
}

TEST(Plan, CountsTheBytesOfTheMostMessages) {
  auto const source = OpenGenerator("dense:47453132x47453132");
  GatherOptions options = OptionsOfLargest(Format::COO, 64);
  options.mPartition = Partition::ENTRIES;

  Plan const plan = PlanOf(*source, options);

  EXPECT_EQ(plan.MessageBytes(), 4539628269004889088);
}

// The peak is the matrix twice, because its bands are side by side, and a packed copy of a
// band.
TEST(Plan, CountsTheBytesOfTheLargestBands) {
  auto const source = OpenGenerator("dense:47453132x47453132");
  GatherOptions options = OptionsOfLargest(Format::DENSE_ROW, 64);
  options.mPartition = Partition::COLUMNS;
  options.mPad = 1 << 20;

  Plan const plan = PlanOf(*source, options);

  EXPECT_EQ(plan.mRanks[63].mPeakPoolBytes, 72620542122549760);
}

std::string RefusalOf(std::string const& input, GatherOptions const& options) {
  try {
    PlanOf(*OpenGenerator(input), options);
  } catch (InputError const& refusal) {
    return refusal.what();
  }
  return "";
}

TEST(Plan, RefusesWhatItCannotCountTheBytesOf) {
  GatherOptions wholes = Options(Format::DENSE_ROW, 4);
  wholes.mPartition = Partition::ALL;
  GatherOptions complexWholes = wholes;
  complexWholes.mValue = ValueKind::COMPLEX_DOUBLE;
  std::string const uncountable =
      "dense:2147483647x2147483647 has 4611686014132420609 entries, more than the "
      "36028797018963968 that a plan can count on 4 ranks";

  EXPECT_EQ(RefusalOf("dense:2147483647x2147483647", wholes), uncountable);
  EXPECT_EQ(RefusalOf("dense:2147483647x2147483647", complexWholes), uncountable);
  EXPECT_EQ(RefusalOf("dense:2147483647x2147483647", Options(Format::COO, 4)), uncountable);
  EXPECT_EQ(RefusalOf("dense:379625063x379625063", Options(Format::COO, 1)),
            "dense:379625063x379625063 has 144115188457753969 entries, more than the "
            "144115188075855872 that a plan can count on 1 rank");
  EXPECT_EQ(RefusalOf("poisson3d:1290", Options(Format::DENSE_COL, 4)),
            "poisson3d:1290 has 4608273662721000000 entries, more than the 36028797018963968 "
            "that a plan can count on 4 ranks");
}

TEST(Plan, WarnsOfEntriesThatOffsetsCanHardlyCount) {
  auto const source = OpenGenerator("dense:45000x45000");
  GatherOptions wide = Options(Format::CSR, 4);
  wide.mIndex = IndexKind::LONG;

  EXPECT_THAT(PlanOf(*source, Options(Format::CSR, 4)).mWarnings,
              ElementsAre("2025000000 entries are near the 2147483647 that offsets can count "
                          "with --index int"));
  EXPECT_THAT(PlanOf(*source, wide).mWarnings, IsEmpty());
  EXPECT_THAT(PlanOf(*source, Options(Format::DENSE_ROW, 4)).mWarnings, IsEmpty());
}

TEST(Plan, AcceptsMoreOffsetsOfAHolderThanAnIntCounts) {
  auto const source = OpenGenerator("dense:2147483647x1");
  GatherOptions options = Options(Format::CSR, 4);
  options.mPartition = Partition::ONE;
  options.mHolder = 2;

  EXPECT_EQ(PlanOf(*source, options).mRefusal, "");
}

constexpr char kFirstRowsOnly[] =
    "%%MatrixMarket matrix coordinate real general\n"
    "4 4 2\n1 1 5\n1 3 6\n";

TEST(Plan, WarnsOfALoneBandThatIsTreatedAsTheWhole) {
  TemporaryFolder const folder;
  auto const source = OpenFile(folder.Write("a.mtx", kFirstRowsOnly));

  Plan const plan = PlanOf(*source, Options(Format::COO, 4));

  EXPECT_EQ(plan.mMode, CENTRALIZED_ONE);
  EXPECT_EQ(plan.mRows, 1);
  EXPECT_THAT(plan.mWarnings, ElementsAre("only process 0 is not empty: its 1 x 4 piece of 4 x "
                                          "4 (row-wise from 0) is treated as the whole matrix",
                                          "3 of 4 ranks have no entries, the first is rank 1"));
  EXPECT_EQ(plan.mRefusal,
            "rank 1 would be left empty: its rows hold no entries; use fewer --ranks");
}

TEST(Plan, WarnsInTextAndJsonOfWhatTheLibraryFindsSuspicious) {
  TemporaryFolder const folder;
  auto const source = OpenFile(folder.Write("a.mtx", kFirstRowsOnly));
  std::string const finding =
      "process 1 has no entries (the first of 3 such processes), so no values to send: it "
      "fails, and the others may wait for it";

  Plan const plan = PlanOf(*source, Options(Format::CSR, 4));
  auto const json = nlohmann::json::parse(InJson(plan));

  EXPECT_THAT(plan.mWarnings,
              ElementsAre(finding, "3 of 4 ranks have no entries, the first is rank 1"));
  EXPECT_THAT(InText(plan), HasSubstr("\nwarning: " + finding + "\n"));
  EXPECT_EQ(json["warnings"][0], finding);
}

TEST(Plan, DescribesThePiecesThatAGatherRefuses) {
  TemporaryFolder const folder;
  auto const source = OpenFile(folder.Write("a.mtx",
                                            "%%MatrixMarket matrix coordinate real general\n"
                                            "4 4 2\n1 1 5\n3 3 6\n"));
  Pavex::LogLevel const silent(-1);

  Plan const plan = PlanOf(*source, Options(Format::COO, 4));

  EXPECT_FALSE(plan.mDecided);
  EXPECT_THAT(
      InText(plan),
      HasSubstr("refused: 2 of 4 processes are empty (the first is process 1), the others are "
                "not (the first is process 0); expected 0, 3 or 4 empty processes\n"));
  EXPECT_FALSE(nlohmann::json::parse(InJson(plan)).contains("mode"));
}

TEST(Plan, CountsTheColumnsOfAFile) {
  TemporaryFolder const folder;
  auto const source = OpenFile(folder.Write("a.mtx",
                                            "%%MatrixMarket matrix coordinate real general\n"
                                            "2 4 5\n1 1 5\n2 1 6\n1 2 7\n2 3 8\n1 4 9\n"));
  GatherOptions options = Options(Format::CSC, 2);
  options.mPartition = Partition::COLUMNS;
  options.mCuts = {1};

  Plan const plan = PlanOf(*source, options);

  EXPECT_EQ(plan.mRanks[0].mEntries, 2);
  EXPECT_EQ(plan.mRanks[1].mEntries, 3);
}

TEST(Plan, ReportsTheSameToReadersAndPrograms) {
  auto const source = OpenGenerator("dense:4x3");

  Plan const plan = PlanOf(*source, Options(Format::DENSE_ROW, 2));
  auto const json = nlohmann::json::parse(InJson(plan));

  EXPECT_EQ(InText(plan),
            "accepted: mode DISTRIBUTED\n"
            "dense:4x3: 4 x 3, 12 entries, real\n"
            "dense-row of double with int indices, partition rows\n"
            "\n"
            "pieces, mode DISTRIBUTED\n"
            "  rank        rows     columns       begin     entries          MB    messages  "
            "MB received  peak pool MB\n"
            "     0           2           3           0           6       0.000           2  "
            "      0.000         0.000\n"
            "     1           2           3           2           6       0.000           1  "
            "      0.000         0.000\n"
            "   sum           -           -           -          12       0.000           3  "
            "      0.000         0.000\n"
            "\n"
            "gathered: 4 x 3, 12 entries, on rank 0\n"
            "messages: 3 with 0.000 MB\n");
  EXPECT_EQ(json["mode"], "DISTRIBUTED");
  EXPECT_EQ(json["messages"], 3);
  EXPECT_EQ(json["messageBytes"], 72 + 48 + 72);
  EXPECT_EQ(json["pieces"][0]["peakPoolBytes"], 2 * 72 + 2 * 2 * 4 + 12 * 8);
  EXPECT_EQ(json["pieces"][1]["peakPoolBytes"], 2 * 72);
}

}  // namespace
}  // namespace Pavex::Tool
