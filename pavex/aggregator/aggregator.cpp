// The public operations, and the only translation unit that compiles the aggregator for its
// eight instances. The files included below contain the paths of the storage formats.

#include "pavex/aggregator/aggregator.h"

#include "pavex/aggregator/transfer.ipp"
#include "pavex/matrix/store_type.h"
#include "pavex/runtime/log.h"

namespace Pavex {

namespace {

PavexStatus Unsupported(PavexMatrixStoreType type) {
  Log::Error("Unsupported matrix store type %d.", static_cast<int>(type));
  return STATUS_NOT_SUPPORTED;
}

// Calls `run` with `local` as the class that `type` names. Another class throws std::bad_cast.
// Fixed: see docs/compatibility.md.
template <typename T, typename I, typename Run>
PavexStatus WithClassOf(PavexMatrixStoreType type, MatrixBase const& local, Run const& run) {
  switch (StoreKindOf(type)) {
    case StoreKind::CSR:
      return run(dynamic_cast<MatrixCSR<T, I> const&>(local));
    case StoreKind::CSC:
      return run(dynamic_cast<MatrixCSC<T, I> const&>(local));
    case StoreKind::COO:
      return run(dynamic_cast<MatrixCOO<T, I> const&>(local));
    case StoreKind::DENSE:
      return run(dynamic_cast<MatrixDense<T, I> const&>(local));
    case StoreKind::UNKNOWN:
      break;
  }
  return Unsupported(type);
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
  GatherPlan plan;
  PavexStatus status =
      Log::Report(InitMetadata(local, withValues, root, sizeof(T), sizeof(I), plan));
  if (status != STATUS_OK) return status;
  status = Log::Report(CheckLocalValues(mWithValues, local));
  if (status != STATUS_OK) return status;
  status = WithClassOf<T, I>(mStoreType, local, [this, &plan](auto const& matrix) {
    using M = std::decay_t<decltype(matrix)>;
    if constexpr (std::is_same_v<M, MatrixDense<T, I>>)
      return Log::Report(GatherDense(matrix, plan));
    else if constexpr (std::is_same_v<M, MatrixCOO<T, I>>)
      return Log::Report(GatherCOO(matrix));
    else
      return Log::Report(GatherCSRC(matrix, plan));
  });
  if (status != STATUS_OK) return status;
  if (mIsReceiver) StampTarget();
  return STATUS_OK;
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::Update(MatrixBase const& local) {
  return Update(local, false);
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::UpdateInPlace(MatrixBase const& local) {
  return Update(local, true);
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::Update(MatrixBase const& local, bool inPlace) {
  PavexStatus const status = CheckAfterGather(local);
  if (status != STATUS_OK) return status;
  return WithClassOf<T, I>(mStoreType, local, [this, inPlace](auto const& matrix) {
    using M = std::decay_t<decltype(matrix)>;
    if constexpr (std::is_same_v<M, MatrixDense<T, I>>)
      return UpdateDense(matrix, inPlace);
    else
      return UpdateSparse(matrix, inPlace);
  });
}

template <typename T, typename I>
Buffer<T> const* Aggregator<T, I>::PlaceOfUpdate(Buffer<T> const* gathered,
                                                 bool inPlace) const {
  if (!inPlace || gathered == nullptr) return nullptr;
  return gathered->mAllocator != nullptr && gathered->mSize == mNnz ? gathered : nullptr;
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::Scatter(MatrixBase& local) {
  PavexStatus const status = CheckAfterGather(local);
  if (status != STATUS_OK) return status;
  if (StoreKindOf(mStoreType) != StoreKind::DENSE) return Unsupported(mStoreType);
  return ScatterDense(dynamic_cast<MatrixDense<T, I>&>(local),
                      dynamic_cast<MatrixDense<T, I>*>(mTarget));
}

template <typename T, typename I>
PavexStatus Aggregator<T, I>::Scatter(MatrixBase& local, T const* values) {
  PavexStatus const status = CheckAfterGather(local);
  if (status != STATUS_OK) return status;
  if (StoreKindOf(mStoreType) != StoreKind::DENSE) return Unsupported(mStoreType);
  auto& matrix = dynamic_cast<MatrixDense<T, I>&>(local);
  auto const* const target = dynamic_cast<MatrixDense<T, I>*>(mTarget);
  if (target == nullptr) return ScatterDense(matrix, nullptr);
  auto const other = MatrixDense<T, I>::Borrow(target->mRows, target->mCols, target->mRowMajor,
                                               target->mLd, const_cast<T*>(values));
  return ScatterDense(matrix, &other);
}

template <typename T, typename I>
std::string Aggregator<T, I>::Describe(Listed listed) const {
  return Pavex::Describe(mLocalInfos, PlanGather(mLocalInfos, sizeof(T), sizeof(I)), listed);
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
