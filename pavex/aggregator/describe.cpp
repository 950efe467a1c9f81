// The records of a gather in words. Any number may stand in a record of another process.

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/dense_reorder.h"
#include "pavex/aggregator/rules.h"
#include "pavex/matrix/store_type.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <limits>

namespace Pavex {

namespace {

using Infos = Buffer<MatrixLocalInfo>;

// The largest count and place of an operation.
constexpr std::int64_t kMostCounted = std::numeric_limits<int>::max();

std::string Text(std::int64_t number) {
  return std::to_string(number);
}

std::string Process(std::int64_t rank) {
  return "process " + Text(rank);
}

std::string StoreName(PavexMatrixStoreType type) {
  constexpr char const* kNames[] = {
      "STORE_TYPE_0",          "STORE_TYPE_1", "STORE_CSR_0", "STORE_CSR_1",
      "STORE_CSR_2",           "STORE_CSC_0",  "STORE_CSC_1", "STORE_CSC_2",
      "STORE_COO_0",           "STORE_COO_1",  "STORE_COO_2", "STORE_DENSE_ROW_MAJOR",
      "STORE_DENSE_COL_MAJOR",
  };
  if (StoreKindOf(type) == StoreKind::UNKNOWN) return "unknown store type " + Text(type);
  return kNames[type];
}

std::string PartitionName(std::int32_t type) {
  if (type == PARTITION_NONE) return "no partition";
  char const* const word = PartitionWord(type);
  if (word == nullptr) return "unknown partition type " + Text(type);
  return word;
}

std::string Shape(std::int64_t rows, std::int64_t cols) {
  return Text(rows) + " x " + Text(cols);
}

std::string Codes(MatrixLocalInfo const& info) {
  return "pattern " + Text(info.pattern) + ", attribute " + Text(info.attribute);
}

char const* Flag(MatrixLocalInfo const& info) {
  return info.WithValues() ? "with values" : "without values";
}

std::string RecordLine(MatrixLocalInfo const& info) {
  if (!info.Arrived()) return "its record never arrived";
  return StoreName(info.storeType) + ", " + PartitionName(info.partition.type) + " from " +
         Text(info.partition.begin) + ", " + Shape(info.rows, info.cols) + ", " +
         Text(info.nnz) + " entries, of " + Shape(info.globalRows, info.globalCols) + ", " +
         Codes(info) + ", " + Flag(info) + (IsEmpty(info) ? ", empty" : "");
}

// The first process that is empty, or is not; there is one.
std::int64_t FirstThatIs(bool empty, Infos const& infos) {
  std::int64_t p = 0;
  while (IsEmpty(infos.mData[p]) != empty)
    ++p;
  return p;
}

std::string UndecidedLine(Decision const& decision, Infos const& infos) {
  return "mode not decided\nrefused: " + Text(decision.mEmpty) + " of " + Text(infos.mSize) +
         " processes are empty, the first is " + Process(FirstThatIs(true, infos)) +
         ", and the others are not, the first is " + Process(decision.mSource) +
         "; expected none, all or all but one empty\n";
}

// In CENTRALIZED_ONE no partition is looked at.
std::string IgnoredPartitions(Infos const& infos) {
  std::int64_t count = 0;
  std::int64_t first = 0;
  for (std::int64_t p = infos.mSize - 1; p >= 0; --p) {
    if (infos.mData[p].partition.type == PARTITION_NONE) continue;
    ++count;
    first = p;
  }
  if (count == 0) return "";
  return "; partitions are ignored, the first that of " + Process(first) + " (" +
         PartitionName(infos.mData[first].partition.type) + ")";
}

bool IsDense(PavexMatrixStoreType type) {
  return type == STORE_DENSE_ROW_MAJOR || type == STORE_DENSE_COL_MAJOR;
}

// Nor is the order of dense values: a receiver takes them as if they stood in its own order.
std::string IgnoredOrders(std::int64_t holder, Infos const& infos) {
  PavexMatrixStoreType const order = infos.mData[holder].storeType;
  if (!IsDense(order)) return "";
  for (std::int64_t p = 0; p < infos.mSize; ++p) {
    PavexMatrixStoreType const other = infos.mData[p].storeType;
    if (IsDense(other) && other != order)
      return "; " + Process(p) + " has " + StoreName(other) + ", " + Process(holder) + " has " +
             StoreName(order) + ", and each takes what it receives in its own order";
  }
  return "";
}

std::string ModeLine(Decision const& decision, Infos const& infos) {
  std::string line = std::string("mode ") + DistMatrixModeStr(decision.mMode) + ": ";
  if (decision.mMode == DISTRIBUTED)
    line += "every process holds a piece";
  else if (decision.mMode == CENTRALIZED_ONE)
    line += Process(decision.mSource) + " holds the whole matrix" + IgnoredPartitions(infos) +
            IgnoredOrders(decision.mSource, infos);
  else if (decision.mSource == kNobody)
    line += "no process holds anything";
  else
    line += infos.mSize == 1 ? "a single process holds the whole matrix"
                             : "every process holds the whole matrix";
  return line + "\n";
}

// "process 0 has ..., process 1 has ...; expected the same".
template <typename Tell>
std::string Both(std::int64_t first, Infos const& infos, Tell const& tell) {
  return Process(first) + " has " + tell(infos.mData[first]) + ", " + Process(first + 1) +
         " has " + tell(infos.mData[first + 1]) + "; expected the same";
}

std::string NotAdjacent(std::int64_t first, Infos const& infos) {
  MatrixLocalInfo const& a = infos.mData[first];
  MatrixLocalInfo const& b = infos.mData[first + 1];
  bool const byRows = a.partition.type == PARTITION_ROW_WISE;
  std::string const what = byRows ? "row" : "column";
  std::int64_t const expected = AdjacentBegin(a);
  return Process(first + 1) + " begins at " + what + " " + Text(b.partition.begin) +
         "; expected " + Text(expected) + ", behind the " + Text(byRows ? a.rows : a.cols) +
         " " + what + "s of " + Process(first) + " from " + Text(a.partition.begin) +
         (b.partition.begin > expected ? " (a gap)" : " (an overlap)");
}

std::string Explain(Disagreement const& found, DistMatrixMode mode, Infos const& infos) {
  std::int64_t const first = found.mFirst;
  auto const both = [&](auto const& tell) { return Both(first, infos, tell); };
  switch (found.mFlaw) {
    case Flaw::NONE:  // GCOVR_EXCL_LINE: only a flaw is explained
      break;          // GCOVR_EXCL_LINE
    case Flaw::CODES:
      return both(Codes);
    case Flaw::STORE_TYPE:
      return both([](MatrixLocalInfo const& info) { return StoreName(info.storeType); });
    case Flaw::PARTITION_TYPE:
      return both(
          [](MatrixLocalInfo const& info) { return PartitionName(info.partition.type); });
    case Flaw::UNKNOWN_PARTITION:
      return Process(first) + " and " + Process(first + 1) + " have " +
             PartitionName(infos.mData[first].partition.type) +
             "; expected row-wise, column-wise or nonzero-wise";
    case Flaw::NOT_ADJACENT:
      return NotAdjacent(first, infos);
    case Flaw::DIMENSION:
      return both([mode](MatrixLocalInfo const& info) {
        std::string const whole = Shape(info.globalRows, info.globalCols);
        if (mode == DISTRIBUTED) return "a piece of " + whole;
        return Shape(info.rows, info.cols) + " of " + whole;
      });
    case Flaw::FLAG:
      return both(
          [](MatrixLocalInfo const& info) { return std::string("the flag ") + Flag(info); });
  }
  return "";  // GCOVR_EXCL_LINE
}

// --- What a gather with these records comes to

struct Gathering {
  Infos const& mInfos;
  DistMatrixMode mMode;
  std::int64_t mReferenceRank;
  MatrixLocalInfo const& mReference;
  StoreKind mKind;
  GatheredShape mShape;
};

Gathering GatheringOf(Decision const& decision, Infos const& infos) {
  std::int64_t const rank = decision.mSource == kNobody ? 0 : decision.mSource;
  MatrixLocalInfo const& reference = infos.mData[rank];
  GatheredShape const shape =
      decision.mMode == DISTRIBUTED
          ? ShapeOfPieces(infos, reference)
          : GatheredShape{reference.rows, reference.cols, reference.nnz, true};
  return {infos, decision.mMode, rank, reference, StoreKindOf(reference.storeType), shape};
}

// Each of the following says why the gather fails, or nothing if not for this reason.

std::string WhyDisagreeing(Gathering const& gathering) {
  Disagreement const found = FindDisagreement(gathering.mMode, gathering.mInfos);
  if (found.mFlaw == Flaw::NONE) return "";
  return Explain(found, gathering.mMode, gathering.mInfos);
}

std::string WhyTooMany(Gathering const& gathering) {
  if (gathering.mMode != DISTRIBUTED) return "";
  std::int64_t const bad = FindBadCount(gathering.mInfos);
  if (bad == kNobody) return "";
  std::int64_t const entries = gathering.mInfos.mData[bad].nnz;
  return Process(bad) + " has " + Text(entries) + " entries; expected " +
         (entries < 0 ? "0 or more" : "no more together than memory can hold");
}

std::string WhyUnknown(Gathering const& gathering) {
  if (gathering.mKind != StoreKind::UNKNOWN) return "";
  return Process(gathering.mReferenceRank) + " has " +
         StoreName(gathering.mReference.storeType) + "; expected 0 to 12";
}

// In CENTRALIZED_ONE no formats are compared, but a matrix of another class than the holder's
// throws on its own process.
std::string WhyOfAnotherClass(Gathering const& gathering) {
  Infos const& infos = gathering.mInfos;
  for (std::int64_t p = 0; p < infos.mSize; ++p) {
    if (StoreKindOf(infos.mData[p].storeType) == gathering.mKind) continue;
    return Process(p) + " has " + StoreName(infos.mData[p].storeType) + ", " +
           Process(gathering.mReferenceRank) + " has " +
           StoreName(gathering.mReference.storeType) +
           "; expected the same format (std::bad_cast where it is another)";
  }
  return "";
}

std::string WhyLengthsDoNotFit(Gathering const& gathering) {
  bool const byRows = gathering.mKind == StoreKind::CSR;
  if (gathering.mMode != DISTRIBUTED || (!byRows && gathering.mKind != StoreKind::CSC))
    return "";
  std::string const what = byRows ? " rows" : " columns";
  std::int64_t const count = byRows ? gathering.mShape.mRows : gathering.mShape.mCols;
  std::int64_t const first = gathering.mReference.partition.begin;
  std::int64_t const outside = FindLengthsOutside(byRows, first, count, gathering.mInfos);
  if (outside == kNobody) {
    // Offsets of the smaller index type take half the bytes, which are too many as well.
    if (FitsMemory<long>(WrappingAdd(count, std::int64_t{1}))) return "";
    return "the pieces have " + Text(count) + what + " together; expected what memory can hold";
  }
  MatrixLocalInfo const& info = gathering.mInfos.mData[outside];
  return Process(outside) + " has " + Text(byRows ? info.rows : info.cols) + what +
         " placed from " + Text(WrappingSub(info.partition.begin, first)) +
         " on; expected inside the " + Text(count) + " gathered";
}

// The first band of another width (height) than the whole; nothing if there is none.
std::string OtherExtent(Gathering const& gathering) {
  std::int32_t const cut = gathering.mReference.partition.type;
  if (cut == PARTITION_NONZERO_WISE) return "";
  bool const byRows = cut == PARTITION_ROW_WISE;
  std::int64_t const expected = byRows ? gathering.mShape.mCols : gathering.mShape.mRows;
  for (std::int64_t p = 0; p < gathering.mInfos.mSize; ++p) {
    MatrixLocalInfo const& info = gathering.mInfos.mData[p];
    std::int64_t const extent = byRows ? info.cols : info.rows;
    if (extent != expected)
      return Process(p) + " has " + Text(extent) + (byRows ? " columns" : " rows") +
             "; expected " + Text(expected) + ", those of the whole";
  }
  return "";
}

// Whose piece lies outside the gathered dense matrix; kNobody if none does.
std::int64_t FindDenseOutside(Gathering const& gathering) {
  GatheredShape const& shape = gathering.mShape;
  bool const rowMajor = gathering.mReference.storeType == STORE_DENSE_ROW_MAJOR;
  std::int32_t const cut = gathering.mReference.partition.type;
  if (gathering.mMode != DISTRIBUTED ||
      PiecesAreInOrder(cut, rowMajor, shape.mRows, shape.mCols))
    return kNobody;
  return FindRunsOutside(gathering.mInfos, static_cast<int>(gathering.mInfos.mSize), rowMajor,
                         rowMajor ? shape.mCols : shape.mRows, shape.mNnz);
}

// Only values are placed.
std::string WhyDenseDoesNotFit(Gathering const& gathering) {
  if (gathering.mKind != StoreKind::DENSE || gathering.mMode == CENTRALIZED_ALL ||
      !gathering.mReference.WithValues())
    return "";
  GatheredShape const& shape = gathering.mShape;
  bool const fills = FillsShape(shape.mRows, shape.mCols, shape.mNnz);
  std::int64_t const outside = fills ? FindDenseOutside(gathering) : kNobody;
  if (fills && outside == kNobody) return "";

  std::string const gathered = Shape(shape.mRows, shape.mCols);
  std::string const expected = Text(WrappingMul(shape.mRows, shape.mCols));
  if (gathering.mMode == CENTRALIZED_ONE)
    return Process(gathering.mReferenceRank) + " has " + gathered + " with " +
           Text(shape.mNnz) + " entries; expected " + expected;
  std::string band = OtherExtent(gathering);
  if (!band.empty()) return band;
  if (!fills)
    return "the pieces make a dense matrix of " + gathered + " with " + Text(shape.mNnz) +
           " entries; expected " + expected;
  MatrixLocalInfo const& info = gathering.mInfos.mData[outside];
  return Process(outside) + " has " + Shape(info.rows, info.cols) +
         ", placed behind the earlier ones; expected inside the " + gathered + " gathered";
}

// How many elements of one array move, together.
std::int64_t MostMoved(Gathering const& gathering) {
  GatheredShape const& shape = gathering.mShape;
  if (gathering.mMode == CENTRALIZED_ALL) return 0;
  if (gathering.mKind == StoreKind::DENSE)
    return gathering.mReference.WithValues() ? shape.mNnz : 0;
  if (gathering.mKind == StoreKind::COO) return shape.mNnz;
  std::int64_t const lengths = gathering.mKind == StoreKind::CSR ? shape.mRows : shape.mCols;
  // An only holder sends its offsets, of which there is one more.
  bool const offsets = gathering.mMode == CENTRALIZED_ONE && lengths < kMostCounted + 1;
  return std::max<std::int64_t>(shape.mNnz, offsets ? lengths + 1 : lengths);
}

// What should hold, but no gather looks at it: what becomes of it is up to the pool and the
// communicator.
std::string WhyUnsound(Gathering const& gathering) {
  GatheredShape const& shape = gathering.mShape;
  if (shape.mRows < 0 || shape.mCols < 0 || shape.mNnz < 0) return "none below 0";
  if (MostMoved(gathering) > kMostCounted)
    return "what a communicator can count, up to " + Text(kMostCounted);
  return "";
}

std::string WhoHas(Gathering const& gathering) {
  if (gathering.mMode == DISTRIBUTED) return "the pieces make ";
  return Process(gathering.mReferenceRank) + " has ";
}

std::string ResultLine(Gathering const& gathering) {
  for (auto const why : {WhyDisagreeing, WhyTooMany, WhyUnknown, WhyOfAnotherClass,
                         WhyLengthsDoNotFit, WhyDenseDoesNotFit}) {
    std::string const reason = why(gathering);
    if (!reason.empty()) return "refused: " + reason + "\n";
  }
  GatheredShape const& shape = gathering.mShape;
  std::string const gathered =
      Shape(shape.mRows, shape.mCols) + " with " + Text(shape.mNnz) + " entries";
  std::string const unsound = WhyUnsound(gathering);
  if (!unsound.empty())
    return "unsound: " + WhoHas(gathering) + gathered + "; expected " + unsound + "\n";
  return "agreed: " + gathered + ", " + Flag(gathering.mReference) + "\n";
}

std::int64_t Missing(Infos const& infos) {
  std::int64_t missing = 0;
  for (std::int64_t p = 0; p < infos.mSize; ++p)
    missing += infos.mData[p].Arrived() ? 0 : 1;
  return missing;
}

}  // namespace

std::string AggregatorBase::Describe() const {
  Infos const& infos = mLocalInfos;
  if (infos.mSize <= 0) return "no records: no gather has come to its exchange yet\n";

  std::string text = Text(infos.mSize) + (infos.mSize == 1 ? " process\n" : " processes\n");
  for (std::int64_t p = 0; p < infos.mSize; ++p)
    text += Process(p) + ": " + RecordLine(infos.mData[p]) + "\n";
  std::int64_t const missing = Missing(infos);
  if (missing > 0)
    return text + "mode not decided\nrefused: " + Text(missing) + " of " + Text(infos.mSize) +
           " records never arrived\n";

  Decision const decision = DecideMode(infos);
  if (!decision.mDecided) return text + UndecidedLine(decision, infos);
  return text + ModeLine(decision, infos) + ResultLine(GatheringOf(decision, infos));
}

}  // namespace Pavex
