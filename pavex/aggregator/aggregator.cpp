// The front doors, and the one translation unit that compiles the aggregator for its eight
// instances. The paths of the storage formats follow in the files included below.

#include "pavex/aggregator/aggregator.h"

#include "pavex/aggregator/transfer.ipp"
#include "pavex/matrix/store_type.h"
#include "pavex/runtime/log.h"

namespace Pavex {

namespace {

PavexStatus Unsupported(PavexMatrixStoreType type) {
  Log::Error("[%s] Unsupported matrix store type %d.\n", static_cast<int>(type));
  return STATUS_NOT_SUPPORTED;
}

}  // namespace

template <typename T, typename I>
Aggregator<T, I>::Aggregator(MemoryPool* pool) : AggregatorBase(pool) {}

template <typename T, typename I>
Aggregator<T, I>::~Aggregator() = default;

template <typename T, typename I>
PavexStatus Aggregator<T, I>::Gather(std::shared_ptr<Comm> const& comm, MatrixBase const& local,
                                     bool withValues) {
  Clear();
  SetComm(comm);
  return Gather(local, withValues, 0);
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::Allgather(std::shared_ptr<Comm> const& comm,
                                        MatrixBase const& local, bool withValues) {
  Clear();
  SetComm(comm);
  return Gather(local, withValues, kEverybody);
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::Gather(MatrixBase const& local, bool withValues, int root) {
  if (mComm == nullptr) return Log::Report(STATUS_INVALID_VALUE);
  PavexStatus status = Log::Report(InitMetadata(local, withValues, root));
  if (status != STATUS_OK) return status;
  status = Log::Report(CheckLocalValues(mWithValues, local));
  if (status != STATUS_OK) return status;
  status = GatherByStoreType(local);
  if (status != STATUS_OK) return status;
  if (mIsReceiver) StampTarget();
  return STATUS_OK;
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::GatherByStoreType(MatrixBase const& local) {
  switch (StoreKindOf(mStoreType)) {
    case StoreKind::CSR:
      return Log::Report(GatherCSRC(dynamic_cast<MatrixCSR<T, I> const&>(local)));
    case StoreKind::CSC:
      return Log::Report(GatherCSRC(dynamic_cast<MatrixCSC<T, I> const&>(local)));
    case StoreKind::COO:
      return Log::Report(GatherCOO(dynamic_cast<MatrixCOO<T, I> const&>(local)));
    case StoreKind::DENSE:
      return Log::Report(GatherDense(dynamic_cast<MatrixDense<T, I> const&>(local)));
    case StoreKind::UNKNOWN:
      break;
  }
  return Unsupported(mStoreType);
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::Update(MatrixBase const& local) {
  PavexStatus const status = CheckAfterGather(local);
  if (status != STATUS_OK) return status;
  switch (StoreKindOf(mStoreType)) {
    case StoreKind::CSR:
      return UpdateSparse(dynamic_cast<MatrixCSR<T, I> const&>(local));
    case StoreKind::CSC:
      return UpdateSparse(dynamic_cast<MatrixCSC<T, I> const&>(local));
    case StoreKind::COO:
      return UpdateSparse(dynamic_cast<MatrixCOO<T, I> const&>(local));
    case StoreKind::DENSE:
      return UpdateDense(dynamic_cast<MatrixDense<T, I> const&>(local));
    case StoreKind::UNKNOWN:
      break;
  }
  return Unsupported(mStoreType);
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::Scatter(MatrixBase& local) {
  PavexStatus const status = CheckAfterGather(local);
  if (status != STATUS_OK) return status;
  if (StoreKindOf(mStoreType) != StoreKind::DENSE) return Unsupported(mStoreType);
  return ScatterDense(dynamic_cast<MatrixDense<T, I>&>(local));
}

}  // namespace Pavex

#include "pavex/aggregator/compressed.ipp"
#include "pavex/aggregator/coo.ipp"
#include "pavex/aggregator/dense.ipp"
#include "pavex/aggregator/scatter.ipp"
#include "pavex/aggregator/sparse.ipp"

namespace Pavex {

#define PAVEX_INSTANTIATE(T, I) template class Aggregator<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_INSTANTIATE)
#undef PAVEX_INSTANTIATE

}  // namespace Pavex
