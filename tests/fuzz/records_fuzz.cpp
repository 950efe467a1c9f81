// Reads any bytes as records. Every rank must come to the expected conclusion about them and
// describe it with the same text. A rank whose own matrix is what its record says trusts the
// peers: it must gather, update and scatter with a known status, and access nothing outside its
// arrays. Its description of the gather must agree with the result. The rounds of records that
// are accepted must move every entry once, in order, and never too many in a call.
//
// The input: a byte for the number of ranks, a byte of choices, then 72 bytes a rank. Missing
// bytes are 0.

#include "pavex/aggregator/aggregator.h"
#include "pavex/matrix/store_type.h"
#include "tests/fuzz/announced_comm.h"
#include "tests/fuzz/conclusion.h"
#include "tests/fuzz/known_status.h"
#include "tests/fuzz/quiet.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/rounds_of_records.h"
#include "tests/fuzz/small_pool.h"
#include "tests/property/local_matrix.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/log_level.h"

#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

namespace Pavex {
namespace {

constexpr std::size_t kRecordBytes = sizeof(MatrixLocalInfo);

struct Input {
  bool toAll = false;
  bool hasValues = true;  // the local matrices have their values
  bool wide = false;      // the largest elements instead of the smallest
  bool debug = false;
  long padding = 0;  // of dense matrices
  Records records;
};

int RankCount(Input const& input) {
  return static_cast<int>(input.records.size());
}

Input Parse(std::uint8_t const* data, std::size_t size) {
  std::vector<std::uint8_t> bytes(data, data + size);
  bytes.resize(std::max<std::size_t>(size, 2));
  std::size_t const ranks = 1 + bytes[0] % 8U;
  std::uint8_t const choices = bytes[1];
  bytes.resize(2 + ranks * kRecordBytes);

  Input input;
  input.toAll = (choices & 1U) != 0;
  input.hasValues = (choices & 2U) == 0;
  input.wide = (choices & 4U) != 0;
  input.debug = (choices & 8U) != 0;
  input.padding = (choices >> 4U) & 3U;
  input.records.resize(ranks);
  std::memcpy(static_cast<void*>(input.records.data()), bytes.data() + 2, ranks * kRecordBytes);
  return input;
}

// --- The conclusion

GatherPlan PlanOf(Records records) {
  Buffer<MatrixLocalInfo> view;
  view.Borrow(records.data(), static_cast<std::int64_t>(records.size()));
  return PlanGather(view, sizeof(double), sizeof(int));
}

// The conclusion of the first step of a gather with this plan.
Conclusion ConclusionOf(GatherPlan const& plan) {
  Conclusion conclusion;
  if (plan.mStage <= GatherStage::COUNTS) {
    conclusion.status = plan.mStatus;
    return conclusion;
  }
  conclusion.mode = plan.mMode;
  conclusion.source = plan.mSource;
  if (plan.mMode != CENTRALIZED_ONE)
    conclusion.source = plan.mMode == DISTRIBUTED ? kNobody : kEverybody;
  conclusion.withValues = plan.mWithValues;
  conclusion.rows = plan.mRows;
  conclusion.cols = plan.mCols;
  conclusion.entries = plan.mNnz;
  return conclusion;
}

// Runs the first step on one rank and returns its conclusion. `text` becomes its description.
Conclusion Conclude(Records const& records, int rank, bool toAll, std::string& text) {
  SmallPool pool;
  AggregatorProbe<double, int> aggregator(&pool);
  aggregator.SetComm(std::make_shared<AnnouncedComm>(rank, records, true));
  MatrixDense<double, int> const nothing;

  Conclusion conclusion;
  conclusion.status = aggregator.InitMetadata(nothing, false, toAll ? -1 : 0);
  text = aggregator.Describe();
  if (conclusion.status != STATUS_OK) return conclusion;
  conclusion.mode = aggregator.mMode;
  conclusion.source = aggregator.mSourceRank;
  conclusion.withValues = aggregator.mWithValues;
  conclusion.rows = aggregator.mRows;
  conclusion.cols = aggregator.mCols;
  conclusion.entries = aggregator.mNnz;
  return conclusion;
}

void CheckConclusions(Input const& input, Conclusion const& expected) {
  Require(ConclusionOf(PlanOf(input.records)) == expected,
          "the plan comes to the expected conclusion");
  if (RankCount(input) == 1) return;  // nothing is exchanged
  std::string firstText;
  for (int rank = 0; rank < RankCount(input); ++rank) {
    std::string text;
    Require(Conclude(input.records, rank, input.toAll, text) == expected,
            "every rank comes to the expected conclusion");
    if (rank == 0) firstText = text;
    Require(text == firstText, "all ranks have the same description");
    Require(expected.status == STATUS_OK || text.rfind("refused: ", 0) == 0,
            "a refusal is told as one");
  }
}

// --- The operations

Format FormatOf(PavexMatrixStoreType type) {
  switch (StoreKindOf(type)) {
    case StoreKind::CSR:
      return Format::CSR;
    case StoreKind::CSC:
      return Format::CSC;
    case StoreKind::COO:
      return Format::COO;
    default:
      return type == STORE_DENSE_ROW_MAJOR ? Format::DENSE_ROW : Format::DENSE_COL;
  }
}

// Whether a small matrix of the library can have this record.
bool CanExist(MatrixLocalInfo const& info) {
  constexpr long kMostExtent = 16;
  constexpr long kMostEntries = 64;
  bool const small = info.rows >= 0 && info.rows <= kMostExtent && info.cols >= 0 &&
                     info.cols <= kMostExtent && info.nnz >= 0 && info.nnz <= kMostEntries;
  if (!small) return false;
  if (info.storeType == STORE_DENSE_ROW_MAJOR || info.storeType == STORE_DENSE_COL_MAJOR)
    return info.nnz == info.rows * info.cols;
  bool const sparse = info.storeType >= STORE_CSR_0 && info.storeType <= STORE_COO_2;
  return sparse && (info.nnz == 0 || (info.rows > 0 && info.cols > 0));
}

Piece PieceOf(MatrixLocalInfo const& info, long padding) {
  Piece piece;
  piece.rows = info.rows;
  piece.cols = info.cols;
  piece.globalRows = info.globalRows;
  piece.globalCols = info.globalCols;
  piece.partition = info.partition.type;
  piece.begin = info.partition.begin;
  piece.pattern = info.pattern;
  piece.attribute = info.attribute;
  piece.withValues = FlagOf(info);
  piece.entries.resize(static_cast<std::size_t>(info.nnz), Entry{0, 0, 1});
  piece.rowMajor = info.storeType == STORE_DENSE_ROW_MAJOR;
  piece.paddings.fill(padding);
  piece.part = GetMatrixPart(info.storeType);
  piece.hasOffsets = info.nnz != 0 || padding > 0;
  return piece;
}

// Checks that every array of the gathered matrix from the pool is as long as the matrix says.
template <typename E>
void RequireRoom(Buffer<E> const& array, LedgerPool const& pool) {
  if (array.mAllocator == nullptr) return;
  Require(array.mSize >= 0 &&
              static_cast<std::size_t>(array.mSize) <= pool.SizeOf(array.mData) / sizeof(E),
          "a gathered array has room for its elements");
}

template <typename T, typename I>
void RequireRoom(Format format, MatrixBase const& target, LedgerPool const& pool) {
  ArraysOf<T, I> const arrays(format, target);
  RequireRoom(*arrays.values, pool);
  if (arrays.first != nullptr) RequireRoom(*arrays.first, pool);
  if (arrays.second != nullptr) RequireRoom(*arrays.second, pool);
}

// The result of the gather of one rank.
struct Outcome {
  PavexStatus status = STATUS_OK;
  bool threw = false;        // std::bad_cast
  bool lacksValues = false;  // it has no values, but must send some
  bool hasTarget = false;
  bool moved = false;  // anything but the records
  std::string text;    // the rank's description of the gather
};

// Whether the gather must throw std::bad_cast: classes are not compared if one process holds
// the whole, so a matrix of another class throws.
bool MustThrow(Input const& input, int rank, Conclusion const& conclusion) {
  if (conclusion.status != STATUS_OK || conclusion.mode != CENTRALIZED_ONE) return false;
  auto const kindOf = [&input](int of) {
    return StoreKindOf(input.records[static_cast<std::size_t>(of)].storeType);
  };
  StoreKind const kind = kindOf(conclusion.source);
  return kind != StoreKind::UNKNOWN && kindOf(rank) != kind;
}

// Checks that the description of a gather says how it ends.
void CheckText(Input const& input, Outcome const& outcome) {
  bool const agreed = outcome.text.rfind("agreed: ", 0) == 0;
  bool const refused = outcome.text.rfind("refused: ", 0) == 0;
  Require(!agreed || !outcome.threw, "the description names a matrix of another class");
  Require(!agreed || !outcome.lacksValues || !input.hasValues,
          "a process without entries that has to send values is told");
  Require(refused || outcome.threw || outcome.lacksValues || outcome.status == STATUS_OK ||
              IsOthersFailure(outcome.status),
          "records are gathered or refused, if the values, the memory and the peers allow");
  Require(!refused || ((outcome.threw || outcome.status != STATUS_OK) && !outcome.moved),
          "refused records fail the gather before anything moves");
}

void CheckGather(Input const& input, int rank, Outcome const& outcome,
                 Conclusion const& conclusion) {
  Require(outcome.threw == MustThrow(input, rank, conclusion),
          "a matrix of another class is thrown at, and no other");
  CheckText(input, outcome);
  if (outcome.threw) return;
  Require(IsGatherStatus(outcome.status), "the status of the gather is one of a gather");
  Require(conclusion.status == STATUS_OK || outcome.status == conclusion.status,
          "refused records fail the gather");
  Require(conclusion.status != STATUS_OK || !outcome.lacksValues ||
              outcome.status == STATUS_INCONSISTENT,
          "missing values fail the gather");
  bool const receives = input.toAll || rank == 0;
  Require(outcome.hasTarget == (outcome.status == STATUS_OK && receives),
          "receivers have a matrix after success");
}

template <typename T, typename I>
Outcome GatherOn(Input const& input, int rank, Conclusion const& conclusion,
                 MatrixBase const& local, Aggregator<T, I>& aggregator) {
  auto const comm =
      std::make_shared<TraceComm>(std::make_shared<AnnouncedComm>(rank, input.records, false));
  bool const withValues = FlagOf(input.records[static_cast<std::size_t>(rank)]);
  Outcome outcome;
  try {
    outcome.status = input.toAll ? aggregator.Allgather(comm, local, withValues)
                                 : aggregator.Gather(comm, local, withValues);
  } catch (std::bad_cast const&) {
    outcome.threw = true;
  }
  bool const sends = conclusion.mode == DISTRIBUTED || conclusion.source == rank;
  outcome.lacksValues = conclusion.withValues && sends && !local.HasValues();
  outcome.hasTarget = aggregator.Target() != nullptr;
  outcome.moved = comm->DataTexts().size() > 1;
  outcome.text = aggregator.Describe();
  return outcome;
}

template <typename T, typename I>
Outcome Operate(Input const& input, int rank, Conclusion const& conclusion) {
  MatrixLocalInfo const& info = input.records[static_cast<std::size_t>(rank)];
  Round round;
  round.format = FormatOf(info.storeType);
  round.pieces.resize(input.records.size());
  round.pieces[static_cast<std::size_t>(rank)] = PieceOf(info, input.padding);
  LocalMatrix<T, I> local(round, rank, GATHERED, input.hasValues, 1);

  SmallPool pool;
  Aggregator<T, I> aggregator(&pool);
  Outcome outcome = GatherOn(input, rank, conclusion, local.Matrix(), aggregator);
  CheckGather(input, rank, outcome, conclusion);
  if (outcome.threw) return outcome;
  // The record of a holder of the whole is not checked.
  if (outcome.hasTarget && conclusion.mode == DISTRIBUTED)
    RequireRoom<T, I>(round.format, *aggregator.Target(), pool);

  try {
    Require(IsKnownStatus(aggregator.Update(local.Matrix())),
            "the status of the update is a known one");
    Require(IsKnownStatus(aggregator.Scatter(local.Matrix())),
            "the status of the scatter is a known one");
  } catch (std::bad_cast const&) {
    Require(conclusion.status != STATUS_OK && !outcome.hasTarget,
            "classes may differ only where the gather was refused before it compared them");
  }
  return outcome;
}

// Checks that all ranks end in the same way, except those that fail for a reason of their own.
void CheckAlike(std::vector<Outcome> const& outcomes) {
  bool const own = std::any_of(outcomes.begin(), outcomes.end(), [](Outcome const& outcome) {
    return outcome.threw || outcome.lacksValues || IsOthersFailure(outcome.status);
  });
  if (own) return;
  for (Outcome const& outcome : outcomes)
    Require(outcome.status == outcomes.front().status, "all ranks end with the same status");
}

void OperateOnRanks(Input const& input, Conclusion const& conclusion) {
  std::vector<Outcome> outcomes;
  for (int rank = 0; rank < RankCount(input); ++rank) {
    if (!CanExist(input.records[static_cast<std::size_t>(rank)])) continue;
    outcomes.push_back(input.wide ? Operate<std::complex<double>, long>(input, rank, conclusion)
                                  : Operate<float, int>(input, rank, conclusion));
  }
  CheckAlike(outcomes);
}

void Run(Input const& input) {
  // Printing a partition type without a name would end the process.
  bool const named =
      std::all_of(input.records.begin(), input.records.end(), [](MatrixLocalInfo const& info) {
        return info.partition.type >= PARTITION_ROW_WISE &&
               info.partition.type <= PARTITION_NONE;
      });
  LogLevel const level(input.debug && named ? LOG_DEBUG : LOG_ERROR);

  Conclusion const expected = ExpectedConclusion(input.records);
  CheckConclusions(input, expected);
  std::string const problem = CheckRoundsOf(input.records);
  Require(problem.empty(), ("rounds move every entry once: " + problem).c_str());
  OperateOnRanks(input, expected);
}

}  // namespace
}  // namespace Pavex

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  [[maybe_unused]] static bool const quiet = Pavex::BeQuiet();
  Pavex::Run(Pavex::Parse(data, size));
  return 0;
}
