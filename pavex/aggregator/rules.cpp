#include "pavex/aggregator/rules.h"

#include "pavex/aggregator/dense_reorder.h"
#include "pavex/matrix/store_type.h"
#include "pavex/runtime/wrapping.h"

#include <complex>

namespace Pavex {

namespace {

GatherFlaw CompareKind(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  if (a.pattern != b.pattern || a.attribute != b.attribute) return GatherFlaw::CODES;
  if (a.storeType != b.storeType) return GatherFlaw::STORE_TYPE;
  if (a.partition.type != b.partition.type) return GatherFlaw::PARTITION_TYPE;
  return GatherFlaw::NONE;
}

GatherFlaw ComparePlace(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  switch (a.partition.type) {
    case PARTITION_ROW_WISE:
    case PARTITION_COLUMN_WISE:
      return AdjacentBegin(a) == b.partition.begin ? GatherFlaw::NONE
                                                   : GatherFlaw::NOT_ADJACENT;
    case PARTITION_NONZERO_WISE:
      return GatherFlaw::NONE;
    default:
      return GatherFlaw::UNKNOWN_PARTITION;
  }
}

GatherFlaw CompareGlobal(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  bool const same = a.globalRows == b.globalRows && a.globalCols == b.globalCols;
  return same ? GatherFlaw::NONE : GatherFlaw::DIMENSION;
}

GatherFlaw CompareShape(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  return a.rows == b.rows && a.cols == b.cols ? GatherFlaw::NONE : GatherFlaw::DIMENSION;
}

GatherFlaw CompareFlag(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  return a.WithValues() == b.WithValues() ? GatherFlaw::NONE : GatherFlaw::FLAG;
}

// Applies the rules of the mode in their order, up to the first flaw.
GatherFlaw CompareNeighbours(DistMatrixMode mode, MatrixLocalInfo const& a,
                             MatrixLocalInfo const& b) {
  bool const pieces = mode == DISTRIBUTED;
  GatherFlaw flaw = CompareKind(a, b);
  if (flaw == GatherFlaw::NONE && pieces) flaw = ComparePlace(a, b);
  if (flaw == GatherFlaw::NONE) flaw = CompareGlobal(a, b);
  if (flaw == GatherFlaw::NONE && !pieces) flaw = CompareShape(a, b);
  if (flaw == GatherFlaw::NONE) flaw = CompareFlag(a, b);
  return flaw;
}

}  // namespace

bool IsEmpty(MatrixLocalInfo const& info) {
  if (StoreKindOf(info.storeType) == StoreKind::COO) return info.nnz == 0;
  return info.rows == 0 || info.cols == 0;
}

std::int64_t AdjacentBegin(MatrixLocalInfo const& band) {
  return WrappingAdd(band.partition.begin,
                     band.Lines(band.partition.type == PARTITION_ROW_WISE));
}

bool HoldsEntries(long count) {
  return FitsMemory<std::complex<double>>(count);
}

Disagreement FindDisagreement(DistMatrixMode mode, Buffer<MatrixLocalInfo> const& infos) {
  if (mode == CENTRALIZED_ONE) return {};
  for (std::int64_t i = 0; i + 1 < infos.mSize; ++i) {
    GatherFlaw const flaw = CompareNeighbours(mode, infos.mData[i], infos.mData[i + 1]);
    if (flaw != GatherFlaw::NONE) return {flaw, i};
  }
  return {};
}

Survey TakeSurvey(Buffer<MatrixLocalInfo> const& infos) {
  Survey survey;
  auto const count = static_cast<int>(infos.mSize);
  bool const whole = count > 0 && infos.mData[0].partition.type == PARTITION_NONE;
  survey.mAssumed = whole ? CENTRALIZED_ALL : DISTRIBUTED;
  for (int p = 0; p < count; ++p) {
    MatrixLocalInfo const& info = infos.mData[p];
    if (IsEmpty(info))
      ++survey.mEmpty;
    else if (survey.mSource == kNobody)
      survey.mSource = p;

    survey.mRows = WrappingAdd(survey.mRows, info.rows);
    survey.mCols = WrappingAdd(survey.mCols, info.cols);
    survey.mNnz = WrappingAdd(survey.mNnz, info.nnz);
    survey.mNegative |= (info.rows | info.cols | survey.mRows | survey.mCols) < 0;
    if ((info.nnz < 0 || !HoldsEntries(survey.mNnz)) && survey.mBadCount == kNobody)
      survey.mBadCount = p;

    if (p == 0 || survey.mEmpty != 0 || survey.mDisagreement.mFlaw != GatherFlaw::NONE)
      continue;
    GatherFlaw const flaw = CompareNeighbours(survey.mAssumed, infos.mData[p - 1], info);
    if (flaw != GatherFlaw::NONE) survey.mDisagreement = {flaw, p - 1};
  }
  return survey;
}

bool FillsShape(GatheredShape const& shape) {
  return WrappingMul(shape.mRows, shape.mCols) == shape.mNnz;
}

std::int64_t FindLengthsOutside(bool byRows, std::int64_t first, std::int64_t count,
                                Buffer<MatrixLocalInfo> const& infos) {
  for (std::int64_t p = 0; p < infos.mSize; ++p) {
    MatrixLocalInfo const& info = infos.mData[p];
    std::int64_t const length = info.Lines(byRows);
    std::int64_t const begin = WrappingSub(info.partition.begin, first);
    if (length < 0 || begin < 0 || begin - 1 > count || length - 1 > count - begin) return p;
  }
  return kNobody;
}

bool PiecesAreInOrder(std::int32_t partition, bool rowMajor, long rows, long cols) {
  if (rowMajor) return partition == PARTITION_ROW_WISE || rows == 1;
  return partition == PARTITION_COLUMN_WISE || cols == 1;
}

std::int64_t FindPieceOutside(Buffer<MatrixLocalInfo> const& infos, std::int32_t partition,
                              bool rowMajor, GatheredShape const& shape) {
  if (PiecesAreInOrder(partition, rowMajor, shape.mRows, shape.mCols)) return kNobody;
  return FindRunsOutside(infos, static_cast<int>(infos.mSize), rowMajor,
                         rowMajor ? shape.mCols : shape.mRows, shape.mNnz);
}

bool StatesOrder(PavexMatrixStoreType type) {
  return type == STORE_DENSE_ROW_MAJOR || type == STORE_DENSE_COL_MAJOR;
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
