#include "tests/fuzz/conclusion.h"

#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <cstddef>

namespace Pavex {

namespace {

bool IsCoordinate(MatrixLocalInfo const& info) {
  return info.storeType >= 8 && info.storeType <= 10;
}

bool HasEntries(MatrixLocalInfo const& info) {
  return IsCoordinate(info) ? info.nnz != 0 : info.rows != 0 && info.cols != 0;
}

bool SameKind(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  return a.pattern == b.pattern && a.attribute == b.attribute && a.storeType == b.storeType &&
         a.partition.type == b.partition.type;
}

bool Touch(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  if (a.partition.type == 2) return true;
  return WrappingAdd(a.partition.begin, a.partition.type == 0 ? a.rows : a.cols) ==
         b.partition.begin;
}

bool SameGlobalShape(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  return a.globalRows == b.globalRows && a.globalCols == b.globalCols;
}

bool SameShape(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  return a.rows == b.rows && a.cols == b.cols;
}

PavexStatus ExpectedOfPair(DistMatrixMode mode, MatrixLocalInfo const& a,
                           MatrixLocalInfo const& b) {
  if (!SameKind(a, b)) return STATUS_INCONSISTENT;
  bool const pieces = mode == DISTRIBUTED;
  if (pieces && (a.partition.type < 0 || a.partition.type > 2)) return STATUS_INVALID_VALUE;
  bool const fit = pieces ? Touch(a, b) : SameShape(a, b);
  bool const agreed = SameGlobalShape(a, b) && FlagOf(a) == FlagOf(b);
  return fit && agreed ? STATUS_OK : STATUS_INCONSISTENT;
}

// Memory has room for so many elements of 16 bytes.
constexpr long kMostHeld = (1L << 59) - 1;

// Whether memory has room for the entries of all records.
bool CanBeHeld(Records const& records) {
  long room = kMostHeld;
  for (MatrixLocalInfo const& info : records) {
    if (info.nnz < 0 || info.nnz > room) return false;
    room -= info.nnz;
  }
  return true;
}

void DescribePieces(Records const& records, Conclusion& conclusion) {
  for (MatrixLocalInfo const& info : records) {
    conclusion.rows = WrappingAdd(conclusion.rows, info.rows);
    conclusion.cols = WrappingAdd(conclusion.cols, info.cols);
    conclusion.entries = WrappingAdd(conclusion.entries, info.nnz);
  }
  MatrixLocalInfo const& first = records.front();
  if (first.partition.type != 0) conclusion.rows = first.globalRows;
  if (first.partition.type != 1) conclusion.cols = first.globalCols;
}

Conclusion Refused(PavexStatus status) {
  Conclusion conclusion;
  conclusion.status = status;
  return conclusion;
}

}  // namespace

bool operator==(Conclusion const& a, Conclusion const& b) {
  return a.status == b.status && a.mode == b.mode && a.source == b.source &&
         a.withValues == b.withValues && a.rows == b.rows && a.cols == b.cols &&
         a.entries == b.entries;
}

bool FlagOf(MatrixLocalInfo const& info) {
  return *reinterpret_cast<unsigned char const*>(&info) != 0;
}

Conclusion ExpectedConclusion(Records const& records) {
  auto const ranks = static_cast<std::ptrdiff_t>(records.size());
  auto const filled = std::count_if(records.begin(), records.end(), HasEntries);
  auto const first = std::find_if(records.begin(), records.end(), HasEntries);
  MatrixLocalInfo const& reference = first == records.end() ? records.front() : *first;

  Conclusion conclusion;
  bool const undeclared = filled == ranks && reference.partition.type == 3;
  if (undeclared || filled == 0 || ranks == 1)
    conclusion.mode = CENTRALIZED_ALL;
  else if (filled == 1)
    conclusion.mode = CENTRALIZED_ONE;
  else if (filled < ranks)
    return Refused(STATUS_INCONSISTENT);

  for (std::size_t i = 0; conclusion.mode != CENTRALIZED_ONE && i + 1 < records.size(); ++i) {
    PavexStatus const status = ExpectedOfPair(conclusion.mode, records[i], records[i + 1]);
    if (status != STATUS_OK) return Refused(status);
  }

  conclusion.withValues = FlagOf(reference);
  if (conclusion.mode == CENTRALIZED_ONE && reference.nnz > kMostHeld)
    return Refused(STATUS_INCONSISTENT);
  if (conclusion.mode == DISTRIBUTED) {
    if (!CanBeHeld(records)) return Refused(STATUS_INCONSISTENT);
    conclusion.source = -2;
    DescribePieces(records, conclusion);
    return conclusion;
  }
  conclusion.source =
      conclusion.mode == CENTRALIZED_ALL ? -1 : static_cast<int>(first - records.begin());
  conclusion.rows = reference.rows;
  conclusion.cols = reference.cols;
  conclusion.entries = reference.nnz;
  return conclusion;
}

}  // namespace Pavex
