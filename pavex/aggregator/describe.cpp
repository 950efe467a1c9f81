// The records of a gather in words. Any number may stand in a record of another process.

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/rules.h"
#include "pavex/matrix/store_type.h"

namespace Pavex {

namespace {

using Infos = Buffer<MatrixLocalInfo>;

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
  return word != nullptr ? word : "unknown partition type " + Text(type);
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

std::string ModeLine(Decision const& decision, Infos const& infos) {
  std::string line = std::string("mode ") + DistMatrixModeStr(decision.mMode) + ": ";
  if (decision.mMode == DISTRIBUTED)
    line += "every process holds a piece";
  else if (decision.mMode == CENTRALIZED_ONE)
    line += Process(decision.mSource) + " holds the whole matrix" + IgnoredPartitions(infos);
  else if (decision.mSource == -2)
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

GatheredShape ShapeOf(DistMatrixMode mode, MatrixLocalInfo const& reference,
                      Infos const& infos) {
  if (mode == DISTRIBUTED) return ShapeOfPieces(infos, reference);
  return {reference.rows, reference.cols, reference.nnz, true};
}

// What the gather comes to, or why it does not.
std::string ResultLine(Decision const& decision, Infos const& infos) {
  DistMatrixMode const mode = decision.mMode;
  Disagreement const found = FindDisagreement(mode, infos);
  if (found.mFlaw != Flaw::NONE) return "refused: " + Explain(found, mode, infos) + "\n";

  std::int64_t const bad = mode == DISTRIBUTED ? FindBadCount(infos) : -1;
  if (bad >= 0) {
    std::int64_t const entries = infos.mData[bad].nnz;
    return "refused: " + Process(bad) + " has " + Text(entries) + " entries; expected " +
           (entries < 0 ? "0 or more" : "no more together than memory can hold") + "\n";
  }

  std::int64_t const referenceRank = decision.mSource == -2 ? 0 : decision.mSource;
  MatrixLocalInfo const& reference = infos.mData[referenceRank];
  StoreKind const kind = StoreKindOf(reference.storeType);
  if (kind == StoreKind::UNKNOWN)
    return "refused: " + Process(referenceRank) + " has " + StoreName(reference.storeType) +
           "; expected 0 to 12\n";

  GatheredShape const shape = ShapeOf(mode, reference, infos);
  std::string const gathered =
      Shape(shape.mRows, shape.mCols) + " with " + Text(shape.mNnz) + " entries";
  if (kind == StoreKind::DENSE && mode != CENTRALIZED_ALL && reference.WithValues() &&
      !FillsShape(shape.mRows, shape.mCols, shape.mNnz))
    return "refused: the pieces make a dense matrix of " + gathered +
           "; expected rows times columns\n";
  return "agreed: " + gathered + ", " + Flag(reference) + "\n";
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
  return text + ModeLine(decision, infos) + ResultLine(decision, infos);
}

}  // namespace Pavex
