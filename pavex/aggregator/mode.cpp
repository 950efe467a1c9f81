// Decisions from the exchanged records: the mode, and whether the processes agree. Every
// process runs them on the same records and so comes to the same result.

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/matrix/store_type.h"
#include "pavex/runtime/log.h"
#include "pavex/runtime/wrapping.h"

#include <initializer_list>

namespace Pavex {

namespace {

// A compressed or dense piece with rows and columns counts even without entries; a coordinate
// piece does not.
bool IsEmpty(MatrixLocalInfo const& info) {
  if (StoreKindOf(info.storeType) == StoreKind::COO) return info.nnz == 0;
  return info.rows == 0 || info.cols == 0;
}

PavexStatus Decide(DistMatrixMode decided, DistMatrixMode& mode) {
  mode = decided;
  switch (decided) {
    case DISTRIBUTED:
      Log::Debug("[%s] Matrix mode is DISTRIBUTED.\n");
      break;
    case CENTRALIZED_ALL:
      Log::Debug("[%s] Matrix mode is CENTRALIZED_ALL.\n");
      break;
    case CENTRALIZED_ONE:
      Log::Debug("[%s] Matrix mode is CENTRALIZED_ONE.\n");
      break;
  }
  return STATUS_OK;
}

PavexStatus Disagree(char const* message) {
  Log::Error(message);
  return STATUS_INCONSISTENT;
}

PavexStatus CheckSameKind(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  if (a.pattern != b.pattern || a.attribute != b.attribute) {
    return Disagree("[%s] The pattern and attribute of local matrix is inconsistent.\n");
  }
  if (a.storeType != b.storeType) {
    return Disagree("[%s] The store type of local matrix is inconsistent.\n");
  }
  if (a.partition.type != b.partition.type) {
    return Disagree("[%s] Partition type of matrix is inconsistent.\n");
  }
  return STATUS_OK;
}

PavexStatus CheckAdjacent(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  std::int64_t extent = 0;
  switch (a.partition.type) {
    case PARTITION_ROW_WISE:
      extent = a.rows;
      break;
    case PARTITION_COLUMN_WISE:
      extent = a.cols;
      break;
    case PARTITION_NONZERO_WISE:
      return STATUS_OK;
    default:
      Log::Error("[%s] Unknown partition type, %d.\n", a.partition.type);
      return STATUS_INVALID_VALUE;
  }
  if (WrappingAdd(a.partition.begin, extent) != b.partition.begin) {
    return Disagree("[%s] Local matrices are not adjacent for DISTRIBUTED mode.\n");
  }
  return STATUS_OK;
}

PavexStatus CheckSameGlobal(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  if (a.globalRows != b.globalRows || a.globalCols != b.globalCols) {
    return Disagree("[%s] The dimension of global matrix is inconsistent.\n");
  }
  return STATUS_OK;
}

PavexStatus CheckSameWhole(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  if (a.globalRows != b.globalRows || a.globalCols != b.globalCols || a.rows != b.rows ||
      a.cols != b.cols) {
    return Disagree("[%s] The dimension of global matrix is inconsistent.\n");
  }
  return STATUS_OK;
}

PavexStatus CheckSameFlag(MatrixLocalInfo const& a, MatrixLocalInfo const& b) {
  if (a.WithValues() != b.WithValues()) {
    return Disagree("[%s] Processes disagree on whether to aggregate values.\n");
  }
  return STATUS_OK;
}

using Check = PavexStatus (*)(MatrixLocalInfo const&, MatrixLocalInfo const&);

// Runs the checks in their order on each pair of neighbours, up to the first failure.
PavexStatus CheckNeighbours(Buffer<MatrixLocalInfo> const& infos,
                            std::initializer_list<Check> checks) {
  for (std::int64_t i = 0; i + 1 < infos.mSize; ++i) {
    for (Check const check : checks) {
      PavexStatus const status = check(infos.mData[i], infos.mData[i + 1]);
      if (status != STATUS_OK) return status;
    }
  }
  return STATUS_OK;
}

char const* PartitionName(std::int32_t type) {
  switch (type) {
    case PARTITION_ROW_WISE:
      return "row-wise";
    case PARTITION_COLUMN_WISE:
      return "column-wise";
    case PARTITION_NONZERO_WISE:
      return "nonzero-wise";
    default:
      Log::NeverBeenHere();
  }
}

}  // namespace

PavexStatus AggregatorBase::DetermineMode(Buffer<MatrixLocalInfo> const& infos,
                                          DistMatrixMode& mode, int& source) {
  source = -2;
  int const count = static_cast<int>(infos.mSize);
  if (count <= 0) return Decide(CENTRALIZED_ALL, mode);

  int empty = 0;
  std::int32_t firstPartition = PARTITION_NONE;
  for (int i = 0; i < count; ++i) {
    if (IsEmpty(infos.mData[i])) {
      ++empty;
    } else if (source == -2) {
      source = i;
      firstPartition = infos.mData[i].partition.type;
    }
  }

  if (empty == 0 && firstPartition == PARTITION_NONE) return Decide(CENTRALIZED_ALL, mode);
  if (empty == count || count == 1) return Decide(CENTRALIZED_ALL, mode);
  if (empty == count - 1) return Decide(CENTRALIZED_ONE, mode);
  if (empty != 0) {
    Log::Error(
        "[%s] Invalid distribution mode: %d processes (out of %ld) has empty local matrix.\n",
        empty, static_cast<long>(count));
    return STATUS_INCONSISTENT;
  }
  return Decide(DISTRIBUTED, mode);
}

PavexStatus AggregatorBase::CheckForDistMode(Buffer<MatrixLocalInfo> const& infos) {
  return CheckNeighbours(infos, {CheckSameKind, CheckAdjacent, CheckSameGlobal, CheckSameFlag});
}

PavexStatus AggregatorBase::CheckForAllMode(Buffer<MatrixLocalInfo> const& infos) {
  return CheckNeighbours(infos, {CheckSameKind, CheckSameWhole, CheckSameFlag});
}

PavexStatus AggregatorBase::CheckForOneMode(Buffer<MatrixLocalInfo> const& infos) const {
  std::int32_t const type = infos.mData[mComm->Rank()].partition.type;
  if (type == PARTITION_NONE || !Log::Enabled(LOG_DEBUG)) return STATUS_OK;
  Log::Debug("[%s] Partition type (%s) ignored for CENTRALIZED_ONE mode.\n",
             PartitionName(type));
  return STATUS_OK;
}

}  // namespace Pavex
