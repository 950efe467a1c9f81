// Compares the verdict of a description with the result of the gather, for random, flawed and
// hostile records.

#include "pavex/aggregator/plan.h"
#include "tests/property/rng.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/cases_to_run.h"
#include "tests/support/comm_call.h"
#include "tests/support/log_level.h"
#include "tests/support/records.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace Pavex {
namespace {

#ifdef PAVEX_TESTS_ALL
constexpr long kCases = 1000000;
#else
constexpr long kCases = 6000;
#endif

// --- One rank with the matrix that its record describes

// A matrix of class M that describes itself as a record does. Its arrays are never read.
template <typename M>
class Announced final : public M {
 public:
  Announced(MatrixLocalInfo const& info, bool rowMajor, bool hasValues)
      : mInfo(info), mHasValues(hasValues) {
    this->mRows = info.rows;
    this->mCols = info.cols;
    this->mPattern = info.pattern;
    this->mAttribute = info.attribute;
    this->PlaceIn(info.globalRows, info.globalCols, info.partition);
    if constexpr (std::is_same_v<M, MatrixDense<double, int>>) {
      this->mRowMajor = rowMajor;
      this->mLd = this->RunLength();
    }
  }

  long NNZ() const override { return mInfo.nnz; }
  PavexMatrixStoreType StoreType() const override { return mInfo.storeType; }
  bool HasValues() const override { return mHasValues || mInfo.nnz != 0; }

 private:
  MatrixLocalInfo const mInfo;
  bool const mHasValues;
};

std::unique_ptr<MatrixBase> MatrixOf(MatrixLocalInfo const& info, bool rowMajor,
                                     bool hasValues) {
  switch (StoreKindOf(info.storeType)) {
    case StoreKind::CSR:
      return std::make_unique<Announced<MatrixCSR<double, int>>>(info, rowMajor, hasValues);
    case StoreKind::CSC:
      return std::make_unique<Announced<MatrixCSC<double, int>>>(info, rowMajor, hasValues);
    case StoreKind::COO:
      return std::make_unique<Announced<MatrixCOO<double, int>>>(info, rowMajor, hasValues);
    default:
      return std::make_unique<Announced<MatrixDense<double, int>>>(info, rowMajor, hasValues);
  }
}

// Exchanges the records, and ends the gather with a failure before anything else moves.
class StoppingComm final : public CallComm {
 public:
  StoppingComm(int rank, Records const& records)
      : CallComm(rank, static_cast<int>(records.size())), mRecords(records) {}

  bool Moved() const { return mMoved; }

 private:
  PavexStatus Handle(CommCall& call) const override {
    if (call.op == CommOp::RANK) return mRank;
    if (call.op == CommOp::SIZE) return mSize;
    if (call.op != CommOp::ALLGATHER) {
      mMoved = true;
      return STATUS_COMM_FAILED;
    }
    std::memcpy(call.recvbuf, static_cast<void const*>(mRecords.data()),
                mRecords.size() * sizeof(MatrixLocalInfo));
    return STATUS_OK;
  }

  Records const& mRecords;
  bool mutable mMoved = false;
};

// Refuses large requests. For arrays that no process touches before a transfer it grants them
// with an address that must not be used.
class LargePool final : public MemoryPool {
 public:
  explicit LargePool(bool grants) : mGrants(grants) {}

  bool Refused() const { return mRefused; }
  PavexStatus Allocate(void** block, std::size_t bytes) override {
    if (bytes <= kLarge) return MemoryPool::Allocate(block, bytes);
    mRefused = !mGrants;
    *block = mGrants ? &mNothing : nullptr;
    return mGrants ? STATUS_OK : STATUS_OUT_OF_MEMORY;
  }
  void Deallocate(void* block, std::size_t bytes) override {
    if (block != &mNothing) MemoryPool::Deallocate(block, bytes);
  }

 private:
  static constexpr std::size_t kLarge = 1 << 20;
  bool const mGrants;
  bool mRefused = false;
  char mNothing = 0;
};

enum class End { DONE, MOVED, NO_MEMORY, THREW, REFUSED };

struct Ending {
  End end = End::DONE;
  std::string stage;  // of a refusal
  std::string text;
};

constexpr int kUnset = 12345;

// The stage of a refusal, deduced from the members that the gather has written.
std::string StageOf(AggregatorProbe<double, int> const& aggregator) {
  if (aggregator.mSourceRank == kUnset) return "mode";
  if (aggregator.mRoot == kUnset) return "agreement";
  if (aggregator.mRows == kUnset) return "counts";
  StoreKind const kind = StoreKindOf(aggregator.mStoreType);
  if (kind == StoreKind::UNKNOWN) return "store type";
  return kind == StoreKind::DENSE ? "values" : "offsets";
}

struct Case {
  Records records;
  bool toAll = false;
  bool hasValues = true;  // also without entries
};

Ending GatherOn(Case const& input, int rank, bool rowMajor, bool dense) {
  MatrixLocalInfo const& info = input.records[static_cast<std::size_t>(rank)];
  auto const local = MatrixOf(info, rowMajor, input.hasValues);
  auto const comm = std::make_shared<StoppingComm>(rank, input.records);
  LargePool pool(dense);
  AggregatorProbe<double, int> aggregator(&pool);
  aggregator.mSourceRank = aggregator.mRoot = kUnset;
  aggregator.mRows = kUnset;

  Ending ending;
  PavexStatus status = STATUS_OK;
  try {
    status = input.toAll ? aggregator.Allgather(comm, *local, info.WithValues())
                         : aggregator.Gather(comm, *local, info.WithValues());
  } catch (std::bad_cast const&) {
    ending.end = End::THREW;
  }
  if (comm->Moved())
    ending.end = End::MOVED;
  else if (pool.Refused())
    ending.end = End::NO_MEMORY;
  else if (status != STATUS_OK)
    ending.end = End::REFUSED;
  ending.stage = StageOf(aggregator);
  ending.text = aggregator.Describe();
  return ending;
}

// --- Records

constexpr PavexMatrixStoreType kTypes[] = {STORE_CSR_0,           STORE_CSC_1,
                                           STORE_COO_2,           STORE_DENSE_ROW_MAJOR,
                                           STORE_DENSE_COL_MAJOR, STORE_TYPE_0};

// A matrix cut into bands or shares, or held by one rank or by all.
Records FittingRecords(Rng& rng, int ranks) {
  Records records;
  PavexMatrixStoreType const type = kTypes[rng.Between(0, 5)];
  long const holding = rng.Between(0, 4);  // rows, columns, entries, one, all
  bool const withValues = rng.Coin();
  long begin = rng.OneIn(4) ? rng.Between(-1, 2) : 0;
  long const across = rng.Between(1, 4);
  long const holder = rng.Between(0, ranks - 1);
  for (int p = 0; p < ranks; ++p) {
    MatrixLocalInfo info{};
    info.withValues = withValues;
    info.pattern = info.attribute = 0;
    info.storeType = type;
    long const along = rng.Between(1, 3);
    info.rows = holding == 0 ? along : across;
    info.cols = holding == 1 ? along : across;
    if (holding < 3) info.partition = {static_cast<std::int32_t>(holding), begin};
    if (holding == 3 && p != holder) info.rows = info.cols = 0;
    bool const dense = StoreKindOf(type) == StoreKind::DENSE;
    info.nnz = info.rows * info.cols;
    if (!dense && info.nnz > 0 && rng.OneIn(3)) info.nnz = rng.Between(0, info.nnz);
    begin += along;
    records.push_back(info);
  }
  for (MatrixLocalInfo& info : records) {
    info.globalRows = holding == 0 ? begin : across;
    info.globalCols = holding == 1 ? begin : across;
  }
  return records;
}

std::int64_t AnyNumber(Rng& rng) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  constexpr std::array<std::int64_t, 14> kHuge = {
      kMost,          kMost - 1, -kMost - 1,     -kMost,         1L << 62,
      1L << 61,       1L << 60,  (1L << 60) - 1, (1L << 59) - 1, (1L << 59) - 2,
      (1L << 61) - 1, 1L << 40,  -(1L << 40),    (1L << 61) - 2};
  if (rng.OneIn(3)) return kHuge[static_cast<std::size_t>(rng.Between(0, 13))];
  return rng.Between(-2, 6);
}

void Spoil(Rng& rng, MatrixLocalInfo& info) {
  switch (rng.Between(0, 9)) {
    case 0: {
      auto const byte = static_cast<unsigned char>(rng.Between(0, 255));
      std::memcpy(static_cast<void*>(&info.withValues), &byte, 1);
      return;
    }
    case 1:
      info.pattern = static_cast<std::int32_t>(AnyNumber(rng));
      return;
    case 2:
      info.attribute = static_cast<std::int32_t>(AnyNumber(rng));
      return;
    case 3:
      info.storeType = static_cast<PavexMatrixStoreType>(rng.Between(-1, 14));
      return;
    case 4:
      info.partition.type = static_cast<std::int32_t>(rng.Between(-1, 4));
      return;
    case 5:
      info.partition.begin = AnyNumber(rng);
      return;
    case 6:
      info.globalRows = AnyNumber(rng);
      return;
    case 7:
      info.globalCols = AnyNumber(rng);
      return;
    case 8:
      (rng.Coin() ? info.rows : info.cols) = AnyNumber(rng);
      return;
    default:
      info.nnz = AnyNumber(rng);
  }
}

Records AnyRecords(Rng& rng) {
  int const ranks = static_cast<int>(rng.Between(1, 5));
  Records records = FittingRecords(rng, ranks);
  if (rng.OneIn(3)) return records;
  if (rng.OneIn(3)) {  // the same flaw everywhere: no comparison finds it
    Rng const choice = rng;
    for (MatrixLocalInfo& info : records) {
      Rng same = choice;
      Spoil(same, info);
    }
  }
  if (rng.OneIn(50)) records.back() = MatrixLocalInfo();  // as if it had never arrived
  for (long edits = rng.Between(0, 3); edits > 0; --edits)
    Spoil(rng, records[static_cast<std::size_t>(rng.Between(0, ranks - 1))]);
  return records;
}

// --- The verdict

std::string StageIn(std::string const& text) {
  std::string const word = "\nstage: ";
  std::size_t const at = text.find(word);
  if (at == std::string::npos) return "";
  std::size_t const begin = at + word.size();
  return text.substr(begin, text.find('\n', begin) - begin);
}

bool AllArrived(Records const& records) {
  return std::all_of(records.begin(), records.end(),
                     [](MatrixLocalInfo const& info) { return info.Arrived(); });
}

// The text, which is the same on every rank, and how each rank ends.
struct Verdict {
  std::string text;
  std::vector<Ending> endings;
};

// Gathers on every rank. A rank whose record does not say the order of its dense elements tries
// both orders.
Verdict GatherEverywhere(Case const& input) {
  Records records = input.records;
  GatherPlan const plan = PlanGather(View(records), sizeof(double), sizeof(int));
  bool const dense = plan.mKind == StoreKind::DENSE;
  Verdict verdict;
  for (int rank = 0; rank < static_cast<int>(records.size()); ++rank) {
    PavexMatrixStoreType const type = records[static_cast<std::size_t>(rank)].storeType;
    for (bool const rowMajor : {false, true})
      if (type != (rowMajor ? STORE_DENSE_COL_MAJOR : STORE_DENSE_ROW_MAJOR))
        verdict.endings.push_back(GatherOn(input, rank, rowMajor, dense));
  }
  verdict.text = verdict.endings.front().text;
  return verdict;
}

template <typename... Ends>
bool AnyEnds(Verdict const& verdict, Ends... ends) {
  return std::any_of(verdict.endings.begin(), verdict.endings.end(),
                     [&](Ending const& ending) { return ((ending.end == ends) || ...); });
}

// What is wrong with the verdict; empty if nothing is.
std::string Complaint(Case const& input, Verdict const& verdict) {
  for (Ending const& ending : verdict.endings)
    if (ending.text != verdict.text) return "the ranks say different things";
  bool const refused = verdict.text.rfind("refused: ", 0) == 0;
  bool const agreed = verdict.text.rfind("agreed: ", 0) == 0;
  bool const but = verdict.text.rfind("agreed, but ", 0) == 0;
  if (refused + agreed + but != 1) return "there is no verdict";
  if (!input.hasValues) {
    if (agreed && AnyEnds(verdict, End::THREW, End::REFUSED))
      return "agreed, but a rank fails by itself";
    return "";
  }
  bool const goesOn = AnyEnds(verdict, End::DONE, End::MOVED, End::NO_MEMORY);
  if (refused && goesOn) return "refused, but a rank does not fail before data moves";
  if (!refused && !goesOn) return "not refused, but every rank fails before data moves";
  if (!refused && AnyEnds(verdict, End::REFUSED) && !but) return "agreed, but a rank refuses";
  if (agreed && AnyEnds(verdict, End::THREW)) return "agreed, but a rank throws";
  if (!refused) return StageIn(verdict.text).empty() ? "" : "a stage of no refusal";
  if (!AllArrived(input.records)) return "";  // then the text only says what is missing
  for (Ending const& ending : verdict.endings)
    if (ending.end == End::REFUSED && ending.stage != StageIn(verdict.text))
      return "refused at " + ending.stage + ", told another stage";
  return "";
}

TEST(Verdict, IsRefusedExactlyWhereEveryProcessFailsBeforeDataMovesAndNamesTheStage) {
  LogLevel const silent(-1);
  char const* const first = std::getenv("PAVEX_VERDICT_FIRST");
  long const begin = first == nullptr ? 0 : std::atol(first);
  long const end = begin + CasesToRun(kCases);
  std::map<std::string, long> seen;
  for (long number = begin; number < end; ++number) {
    Rng rng(5, static_cast<std::uint64_t>(number));
    Case input;
    input.records = AnyRecords(rng);
    input.toAll = rng.Coin();
    input.hasValues = !rng.OneIn(4);

    Verdict const verdict = GatherEverywhere(input);

    std::string const complaint = Complaint(input, verdict);
    ASSERT_EQ(complaint, "") << "PAVEX_VERDICT_FIRST=" << number << "\n" << verdict.text;
    std::string const stage = StageIn(verdict.text);
    ++seen[stage.empty() ? verdict.text.substr(0, 7) : stage];
  }
  // The cases reach every verdict.
  for (char const* const word : {"agreed:", "agreed,", "mode", "agreement", "counts",
                                 "store type", "offsets", "values", "exchange"})
    EXPECT_GT(seen[word], 0) << word;
}

}  // namespace
}  // namespace Pavex
