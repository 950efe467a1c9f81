#include "pavex/aggregator/rules.h"

#include "pavex/matrix/store_type.h"
#include "pavex/runtime/wrapping.h"

#include <complex>
#include <initializer_list>

namespace Pavex {

namespace {

Flaw CompareKind(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  if (a.pattern != b.pattern || a.attribute != b.attribute) return Flaw::CODES;
  if (a.storeType != b.storeType) return Flaw::STORE_TYPE;
  if (a.partition.type != b.partition.type) return Flaw::PARTITION_TYPE;
  return Flaw::NONE;
}

Flaw ComparePlace(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  switch (a.partition.type) {
    case PARTITION_ROW_WISE:
    case PARTITION_COLUMN_WISE:
      return AdjacentBegin(a) == b.partition.begin ? Flaw::NONE : Flaw::NOT_ADJACENT;
    case PARTITION_NONZERO_WISE:
      return Flaw::NONE;
    default:
      return Flaw::UNKNOWN_PARTITION;
  }
}

Flaw CompareGlobal(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  bool const same = a.globalRows == b.globalRows && a.globalCols == b.globalCols;
  return same ? Flaw::NONE : Flaw::DIMENSION;
}

Flaw CompareShape(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  return a.rows == b.rows && a.cols == b.cols ? Flaw::NONE : Flaw::DIMENSION;
}

Flaw CompareFlag(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  return a.WithValues() == b.WithValues() ? Flaw::NONE : Flaw::FLAG;
}

using Rule = Flaw (*)(MatrixLocalInfo const&, MatrixLocalInfo const&);

// Applies the rules in their order to each pair of neighbours, up to the first flaw.
Disagreement CompareNeighbours(Buffer<MatrixLocalInfo> const& infos,
                               std::initializer_list<Rule> rules) {
  for (std::int64_t i = 0; i + 1 < infos.mSize; ++i) {
    for (Rule const rule : rules) {
      Flaw const flaw = rule(infos.mData[i], infos.mData[i + 1]);
      if (flaw != Flaw::NONE) return {flaw, i};
    }
  }
  return {};
}

}  // namespace

bool IsEmpty(MatrixLocalInfo const& info) {
  if (StoreKindOf(info.storeType) == StoreKind::COO) return info.nnz == 0;
  return info.rows == 0 || info.cols == 0;
}

Decision DecideMode(Buffer<MatrixLocalInfo> const& infos) {
  Decision decision;
  int const count = static_cast<int>(infos.mSize);
  std::int32_t firstPartition = PARTITION_NONE;
  for (int i = 0; i < count; ++i) {
    if (IsEmpty(infos.mData[i])) {
      ++decision.mEmpty;
    } else if (decision.mSource == kNobody) {
      decision.mSource = i;
      firstPartition = infos.mData[i].partition.type;
    }
  }

  int const empty = decision.mEmpty;
  bool const all =
      count <= 1 || empty == count || (empty == 0 && firstPartition == PARTITION_NONE);
  bool const one = empty == count - 1;
  decision.mDecided = all || one || empty == 0;
  if (!all) decision.mMode = one ? CENTRALIZED_ONE : DISTRIBUTED;
  return decision;
}

std::int64_t AdjacentBegin(MatrixLocalInfo const& band) {
  bool const byRows = band.partition.type == PARTITION_ROW_WISE;
  return WrappingAdd(band.partition.begin, byRows ? band.rows : band.cols);
}

Disagreement FindDisagreement(DistMatrixMode mode, Buffer<MatrixLocalInfo> const& infos) {
  switch (mode) {
    case DISTRIBUTED:
      return CompareNeighbours(infos, {CompareKind, ComparePlace, CompareGlobal, CompareFlag});
    case CENTRALIZED_ALL:
      return CompareNeighbours(infos, {CompareKind, CompareGlobal, CompareShape, CompareFlag});
    case CENTRALIZED_ONE:
      break;
  }
  return {};
}

std::int64_t FindBadCount(Buffer<MatrixLocalInfo> const& infos) {
  long entries = 0;
  for (std::int64_t p = 0; p < infos.mSize; ++p) {
    entries = WrappingAdd(entries, infos.mData[p].nnz);
    if (infos.mData[p].nnz < 0 || !FitsMemory<std::complex<double>>(entries)) return p;
  }
  return kNobody;
}

GatheredShape ShapeOfPieces(Buffer<MatrixLocalInfo> const& infos,
                            MatrixLocalInfo const& reference) {
  GatheredShape sums;
  for (std::int64_t p = 0; p < infos.mSize; ++p) {
    sums.mRows = WrappingAdd(sums.mRows, infos.mData[p].rows);
    sums.mCols = WrappingAdd(sums.mCols, infos.mData[p].cols);
    sums.mNnz = WrappingAdd(sums.mNnz, infos.mData[p].nnz);
  }
  long const globalRows = reference.globalRows;
  long const globalCols = reference.globalCols;
  switch (reference.partition.type) {
    case PARTITION_ROW_WISE:
      return {sums.mRows, globalCols, sums.mNnz, true};
    case PARTITION_COLUMN_WISE:
      return {globalRows, sums.mCols, sums.mNnz, true};
    case PARTITION_NONZERO_WISE:
      return {globalRows, globalCols, sums.mNnz, true};
    default:  // asked for by the description alone, which then refuses the partition
      return {0, 0, sums.mNnz, false};
  }
}

bool FillsShape(long rows, long cols, long nnz) {
  return WrappingMul(rows, cols) == nnz;
}

std::int64_t FindLengthsOutside(bool byRows, std::int64_t first, std::int64_t count,
                                Buffer<MatrixLocalInfo> const& infos) {
  for (std::int64_t p = 0; p < infos.mSize; ++p) {
    MatrixLocalInfo const& info = infos.mData[p];
    std::int64_t const length = byRows ? info.rows : info.cols;
    std::int64_t const begin = WrappingSub(info.partition.begin, first);
    if (length < 0 || begin < 0 || begin - 1 > count || length - 1 > count - begin) return p;
  }
  return kNobody;
}

bool PiecesAreInOrder(std::int32_t partition, bool rowMajor, long rows, long cols) {
  if (rowMajor) return partition == PARTITION_ROW_WISE || rows == 1;
  return partition == PARTITION_COLUMN_WISE || cols == 1;
}

char const* PartitionWord(std::int32_t type) {
  switch (type) {
    case PARTITION_ROW_WISE:
      return "row-wise";
    case PARTITION_COLUMN_WISE:
      return "column-wise";
    case PARTITION_NONZERO_WISE:
      return "nonzero-wise";
    default:
      return nullptr;
  }
}

}  // namespace Pavex
