// Collects the pieces of a distributed matrix into the whole one, sends new values of the same
// pattern, and returns dense results to the owners of the pieces.

#pragma once

#include "pavex/aggregator/aggregator_base.h"
#include "pavex/aggregator/plan.h"
#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"
#include "pavex/matrix/instances.h"

#include <memory>
#include <string>
#include <type_traits>

namespace Pavex {

// T is the value type (float, double, or std::complex of them), I the index type (int or long).
//
// It shares the communicator, borrows the pool (which must outlive it), and owns the gathered
// matrix and its buffers. If the caller's local matrix already is the whole one, the gathered
// matrix borrows its arrays instead of copying them. The arrays, and a local matrix that owns
// them, must then outlive the gathered matrix.
//
// Gather, Allgather, Update, UpdateInPlace, UpdateCOO and Scatter are collective: every process
// of the communicator calls the same operation in the same order with its own local matrix.
// They return STATUS_OK, a status of the library after a line in the log, or the unchanged
// status of the pool or the communicator. If the local matrix is not of the class that its
// store type, or that of the reference process, names, std::bad_cast is thrown. One thread per
// process uses an aggregator.
template <typename T, typename I>
class PAVEX_API Aggregator : public AggregatorBase {
  PAVEX_REQUIRE_INSTANCE(T, I);

 public:
  // Takes all memory from `pool`, which the caller owns. Local.
  explicit Aggregator(MemoryPool* pool);
  ~Aggregator();

  // Gathers the whole matrix onto rank 0 of `comm`. With `withValues` false, gathers the
  // pattern only; the flag of the first process whose matrix is not empty decides. Deletes an
  // earlier result first, also if the gather fails. Errors on every process:
  // STATUS_INCONSISTENT if the pieces do not fit together, STATUS_INVALID_VALUE for an unknown
  // partition, STATUS_NOT_SUPPORTED for an unknown store type and for
  // compressed pieces with more entries together than offsets of I can count. Errors on this
  // process alone, while the others may wait for it: STATUS_INVALID_VALUE without a usable
  // communicator, STATUS_INCONSISTENT without values that it must send.
  [[nodiscard]] PavexStatus Gather(std::shared_ptr<Comm> const& comm, MatrixBase const& local,
                                   bool withValues);

  // Gathers the whole matrix onto every process of `comm`, otherwise like Gather.
  [[nodiscard]] PavexStatus Allgather(std::shared_ptr<Comm> const& comm,
                                      MatrixBase const& local, bool withValues);

  // Sends the values of `local`, which has the pattern and shape that this process gathered,
  // into the gathered matrix. A gathered matrix that borrows then borrows the values of this
  // `local`. Errors on this process alone, while the others may wait for it: STATUS_WRONG_ORDER
  // without a gather, STATUS_MISMATCH if `local` is not the matrix gathered,
  // STATUS_INCONSISTENT if it has no values. A dense matrix that is whole on every process with
  // another leading dimension gives STATUS_NOT_SUPPORTED (no process waits). After a gather of
  // the pattern, dense pieces that do not tile the whole give STATUS_INCONSISTENT on every
  // process. On a failure the gathered matrix keeps its values.
  [[nodiscard]] PavexStatus Update(MatrixBase const& local);

  // Like Update, but the values arrive in the array that the gathered matrix already has. Its
  // address stays, so a solver may keep it. A process may call Update while another one calls
  // this. Memory is taken for packing and for a reorder only. The arrays of `local` do not
  // overlap those of the gathered matrix. Errors as for Update, except that the values of the
  // gathered matrix are undefined after a failed transfer. Where the gathered matrix does not
  // own an array of that many values, this is Update: where it borrows, and where only the
  // pattern of a sparse matrix was gathered.
  [[nodiscard]] PavexStatus UpdateInPlace(MatrixBase const& local);

  // Updates a gathered coordinate matrix without any check. A gather of a coordinate matrix
  // must have succeeded on this object, and `local` must match it.
  [[nodiscard]] PavexStatus UpdateCOO(MatrixCOO<T, I> const& local);

  // Fills the value array of `local`, the dense matrix that this process gathered, with its
  // piece of the gathered matrix. Elements between its runs are not written. Errors as for
  // Update, except that the leading dimension may differ. STATUS_NOT_SUPPORTED on every process
  // for a sparse matrix. A failed transfer may leave values partly overwritten where they are
  // received in place (any if Comm::Strided is true). STATUS_INCONSISTENT on this process
  // alone: where an array is missing (the others may then wait for it), and after Allgather
  // where its piece is not inside its gathered matrix. Array lengths are not checked.
  [[nodiscard]] PavexStatus Scatter(MatrixBase& local);

  // Like Scatter, but sends the elements of `values` instead of those of the gathered matrix,
  // for example a solution that a solver has written elsewhere. `values`: read on receivers
  // only, laid out as Target() with its leading dimension. Target() must exist there. They must
  // not overlap the array of `local`, which is written while they are read. A null pointer
  // gives STATUS_INCONSISTENT on its process alone unless there is nothing to send.
  [[nodiscard]] PavexStatus Scatter(MatrixBase& local, T const* values);

  // Describes the last exchange of records in lines of text: the verdict first, then the
  // mode and one line per process (of many only the first and the last few, unless `listed` is
  // ALL). Example, in which the second band should begin at row 10:
  //
  //   refused: process 1 begins at row 11; expected 10, because process 0 begins at 0 and has
  //   10 rows (a gap)
  //   stage: agreement
  //   mode DISTRIBUTED: every process holds a piece
  //   2 processes
  //   process 0: STORE_CSR_0, row-wise from 0, 10 x 7, 28 entries, of 20 x 7, [...] with values
  //   process 1: STORE_CSR_0, row-wise from 11, 9 x 7, 42 entries, of 20 x 7, [...] with values
  //
  // "refused": the gather fails on every process before anything moves; the first process or
  // pair of neighbours at fault, the values, what was expected, and the step of the gather.
  // "agreed": the records show no reason for a process to fail. "agreed, but ...": what
  // FindSuspicious finds, such as rows that no process holds, or a reason for which only some
  // processes fail. The text is for readers; its wording may change.
  //
  // Computed from the records alone, so after a complete exchange it is the same on every
  // process; it names records that never arrived. It does not contain what the records do not
  // show: a refused communicator, lack of memory, a failed transfer, missing values, arrays
  // that are shorter than the record says. A gather that ends before its exchange leaves the
  // records of the earlier one, an Update or Scatter those of its gather; an Update of a dense
  // pattern may be refused for pieces of which the gather placed no values. Local, and needs no
  // communicator; std::bad_alloc may leave, as from any std::string.
  std::string Describe(Listed listed = Listed::FIRST_AND_LAST) const;

 private:
  PavexStatus Gather(MatrixBase const& local, bool withValues, int root);
  PavexStatus Update(MatrixBase const& local, bool inPlace);
  // The value array of the gathered matrix, null on a process that has none, if an update in
  // place writes it.
  Buffer<T> const* PlaceOfUpdate(Buffer<T> const* gathered, bool inPlace) const;

  // Dense layouts: dense_layout.ipp. `rowMajor` is the flag of the caller's local matrix.
  long LocalSubmatOffset(MatrixDense<T, I> const& local) const;
  PavexStatus PackDenseValues(MatrixDense<T, I> const& matrix, Buffer<T>& packed);
  PavexStatus Dense2Comm(bool rowMajor, Buffer<T> const& global, Buffer<T>& commValues);
  PavexStatus Comm2Dense(bool rowMajor, Buffer<T> const* place, Buffer<T>& values);

  // Dense gather and update: dense.ipp.
  PavexStatus GatherDense(MatrixDense<T, I> const& local, GatherPlan const& plan);
  PavexStatus GatherDenseValues(MatrixDense<T, I> const& local, Buffer<T> const* place,
                                Buffer<T>& values);
  PavexStatus UpdateDense(MatrixDense<T, I> const& local, bool inPlace);

  // The same values over a communicator that moves runs: dense_runs.ipp.
  Runs PieceToSend(MatrixDense<T, I> const& local) const;
  PavexStatus GatherDenseRuns(MatrixDense<T, I> const& local, Buffer<T> const* place,
                              Buffer<T>& values);
  PavexStatus ScatterDenseRuns(MatrixDense<T, I> const* whole, MatrixDense<T, I> const& local);
  PavexStatus ListWhole(MatrixDense<T, I> const& whole, MatrixDense<T, I> const& local,
                        Runs& filled, Buffer<T>& values, Buffer<Runs>& pieces);

  // Dense scatter: scatter.ipp. The array of `local` is written, not the object.
  PavexStatus ScatterDense(MatrixDense<T, I> const& local, MatrixDense<T, I> const* whole);
  PavexStatus CopyOwnPiece(MatrixDense<T, I> const& whole, MatrixDense<T, I> const& local);
  PavexStatus ScatterDenseValues(Buffer<T> const& global, MatrixDense<T, I> const& local);
  PavexStatus PrepareReceive(MatrixDense<T, I> const& local, long entries, Buffer<T>& received);

  // The common steps of the sparse paths: sparse.ipp.
  template <typename E>
  PavexStatus PrepareArray(Buffer<E> const& local, long count, bool wanted, Buffer<E>& array);
  template <typename E>
  PavexStatus TransferArray(Buffer<E> const& local, long localCount, int tag, Buffer<E>& array);
  template <typename M>
  void SetSparseTarget(Buffer<I>& first, Buffer<I>& second, Buffer<T>& values);
  template <typename M>
  PavexStatus UpdateSparse(M const& local, bool inPlace);

  // Coordinate path: coo.ipp.
  PavexStatus GatherCOO(MatrixCOO<T, I> const& local);

  // Compressed path: compressed.ipp.
  template <typename M>
  PavexStatus GatherCSRC(M const& local, GatherPlan const& plan);
  template <typename M>
  PavexStatus GatherOffsets(M const& local, GatherPlan const& plan, Buffer<I>& offsets);
  template <typename M>
  PavexStatus GatherLines(M const& local, int size, long count, Buffer<I>& offsets);
};

static_assert(sizeof(Aggregator<double, int>) == sizeof(AggregatorBase),
              "holds nothing beyond its base");
static_assert(!std::is_polymorphic_v<Aggregator<double, int>>, "has no virtual function");

#define PAVEX_EXTERN(T, I) extern template class Aggregator<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_EXTERN)
#undef PAVEX_EXTERN

}  // namespace Pavex
