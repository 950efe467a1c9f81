// The part of an aggregator that does not depend on the value and index types: its members, the
// exchange of the records, the decision of the mode, the metadata and the checks.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/aggregator/plan.h"
#include "pavex/matrix/matrix_base.h"
#include "pavex/matrix/partition.h"
#include "pavex/runtime/buffer.h"
#include "pavex/runtime/comm.h"
#include "pavex/runtime/export.h"
#include "pavex/runtime/memory_pool.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Pavex {

enum class Moved;  // of pavex/aggregator/rounds.h

// Base of Aggregator<T, I>; not used on its own. Neither copyable nor movable; one thread per
// process uses it.
class PAVEX_API AggregatorBase {
 public:
  AggregatorBase(AggregatorBase const&) = delete;
  AggregatorBase& operator=(AggregatorBase const&) = delete;

  // The gathered matrix on a receiving process; null on the others and before a gather. The
  // aggregator owns it. It is valid until Clear, the next Gather or Allgather, or the
  // destruction. Local.
  MatrixBase* Target() { return mTarget; }

  // The gathered matrix as its class, for example TargetAs<MatrixCSR<double, int>>(). Returns
  // null where Target() does. Throws std::bad_cast if the gathered matrix is of another class.
  // Local.
  template <typename Matrix>
  Matrix* TargetAs() {
    return mTarget == nullptr ? nullptr : &dynamic_cast<Matrix&>(*mTarget);
  }
  // The gathered matrix as its class, for reading only.
  template <typename Matrix>
  Matrix const* TargetAs() const {
    return mTarget == nullptr ? nullptr : &dynamic_cast<Matrix const&>(*mTarget);
  }

  // The pointer to the communicator that the object holds, usually that of the last gather.
  // Local.
  std::shared_ptr<Comm> const& GetComm() const { return mComm; }

  // Binds another communicator, for later Updates and Scatters, and releases the previous one.
  // It must have the processes of the gather in the same order. A gather binds its own. Local.
  void SetComm(std::shared_ptr<Comm> const& comm) { mComm = comm; }

  // Deletes the gathered matrix, if any; nothing else changes. Local.
  void Clear();

  // The mode of the latest gather that chose one; DISTRIBUTED before the first. Local.
  DistMatrixMode Mode() const { return mMode; }

 protected:
  // The caller keeps `pool`, which must outlive this object. Local.
  explicit AggregatorBase(MemoryPool* pool) : mPool(pool) {}
  ~AggregatorBase();

  // The exchange of the records.

  // Replaces `infos` by one record per process, all filled. Collective.
  PavexStatus GatherLocalInfo(MatrixBase const& local, bool withValues,
                              Buffer<MatrixLocalInfo>& infos);

  // The mode and the agreement of the records. Local, with the same result on every process.

  // Decides the mode. `source` is the first process whose matrix is not empty, kNobody if all
  // are.
  static PavexStatus DetermineMode(Buffer<MatrixLocalInfo> const& infos, DistMatrixMode& mode,
                                   int& source);
  // Whether pieces that form one matrix agree, each with the next.
  static PavexStatus CheckForDistMode(Buffer<MatrixLocalInfo> const& infos);
  // Whether whole matrices agree, each with the next.
  static PavexStatus CheckForAllMode(Buffer<MatrixLocalInfo> const& infos);
  // Logs a notice about this process's own partition. Never fails.
  PavexStatus CheckForOneMode(Buffer<MatrixLocalInfo> const& infos) const;
  // Logs the mode of the plan of `infos` and writes it, or logs its refusal.
  static PavexStatus TakeMode(GatherPlan const& plan, Buffer<MatrixLocalInfo> const& infos,
                              DistMatrixMode& mode);
  // Logs the disagreement for which the plan of `infos` refuses them, if that is the reason.
  static PavexStatus TakeAgreement(GatherPlan const& plan,
                                   Buffer<MatrixLocalInfo> const& infos);

  // The metadata of a gather.

  // First step of every gather: exchanges the records, plans the gather and fills every member
  // below from mMode on, up to the stage that refuses the records. Refusals of the store type,
  // the offsets and the values are left to the later steps, which take them from `plan`. `root`
  // is the receiving rank or kEverybody; `valueBytes` and `indexBytes` are the sizes of T and
  // I. Collective.
  PavexStatus InitMetadata(MatrixBase const& local, bool withValues, int root,
                           std::size_t valueBytes, std::size_t indexBytes, GatherPlan& plan);
  // The same for callers that do not need the plan.
  PavexStatus InitMetadata(MatrixBase const& local, bool withValues, int root);

  // Whether `local` is still the matrix that this process passed to the gather.
  // STATUS_WRONG_ORDER on a process that has no record of that gather. Local.
  PavexStatus CheckConsistency(MatrixBase const& local) const;

  // Whether this process, if it must send values (`needValues`), has any. Local.
  PavexStatus CheckLocalValues(bool needValues, MatrixBase const& local) const;

  // The first checks of every operation after a gather. Local.
  PavexStatus CheckAfterGather(MatrixBase const& local) const;

  // Writes the agreed codes, partition and global shape into the gathered matrix. Local.
  void StampTarget();

  // Position of a local band's first row or column inside the gathered matrix. Local.
  long LocalRowColBegin(MatrixPartition const& partition) const;

  // The layouts of dense values. `rowMajor` is the flag of the caller's local matrix. Local.

  // Whether communication and global layout coincide.
  bool ContiguousLocalSubmat(bool rowMajor) const;
  // Whether the gathered shape and entries fit, and every piece lies inside. The result is the
  // same on every process. For an update or a scatter.
  PavexStatus CheckDense(bool rowMajor) const;
  // The same for a gather, whose plan has found `flaw`.
  PavexStatus CheckDense(GatherFlaw flaw) const;
  // Whether the communicator moves the runs of the pieces between the local arrays and the
  // gathered one itself. The same on every process.
  bool MovesRuns(bool rowMajor) const;
  // Makes `runs` what each process's piece is of the gathered array, one entry per process.
  PavexStatus ListRuns(bool rowMajor, Buffer<Runs>& runs) const;
  // How many records a reordering reads.
  int Pieces() const;
  // Elements from the beginning of a run of the gathered values to that of the next.
  long LeadingDimension(bool rowMajor) const { return rowMajor ? mCols : mRows; }

  // The offsets of compressed pieces: compressed.ipp.

  // Whether each process sends the final offsets of its rows, or columns unless `byRows`,
  // instead of their lengths. The same on every process.
  bool SendsOffsets(bool byRows) const;
  // Makes `counts` and `displs` the rows (columns) of each of `size` processes and where they
  // go in the gathered matrix.
  PavexStatus PlaceLines(bool byRows, int size, Buffer<int>& counts, Buffer<int>& displs) const;

  // Transfers that one call of a communicator cannot count: round_transfer.ipp.

  // Whether the entries of this gather move in more than one call.
  bool TakesRounds() const;
  // Returns STATUS_MISMATCH if the number of entries of this process is not the one in its
  // record. Rounds need that number to be right; a single call does not read it. Local.
  PavexStatus CheckOwnEntries(long count) const;
  // GatherDistributed in rounds: `own` as long as the own record says, `whole` on receivers.
  // Collective; a receiver takes two arrays of counts for the time of the transfer.
  PavexStatus GatherRounds(Moved moved, void const* own, void* whole, Datatype type) const;
  // Comm::Scatterv in rounds: the entries of each process out of `whole` on the receiver.
  // Otherwise the same.
  PavexStatus ScatterRounds(void const* whole, void* own, Datatype type) const;

  // The order matters: members are destroyed bottom up, so the buffers return their memory
  // before the communicator goes.
  std::shared_ptr<Comm> mComm;          // of the last gather; shared with the caller
  MemoryPool* mPool;                    // not owned; outlives the aggregator
  MatrixBase* mTarget = nullptr;        // gathered matrix, owned; null on non-receivers
  Buffer<MatrixLocalInfo> mLocalInfos;  // one record per process, by rank
  DistMatrixMode mMode = DISTRIBUTED;   // as decided by the records
  int mSourceRank = kNobody;            // holder of the whole: a rank, kEverybody or kNobody
  bool mLocalIsWhole = false;           // the local matrix is the whole matrix
  int mRoot = kNobody;                  // receiving rank or kEverybody; kNobody before a gather
  bool mIsReceiver = false;             // gets the gathered matrix
  bool mWithValues = false;             // values are aggregated as well as the pattern

  // What the reference process declared.
  std::int32_t mPattern = 0;    // the application's code
  std::int32_t mAttribute = 0;  // the application's code
  // The class and part of its matrix.
  PavexMatrixStoreType mStoreType = static_cast<PavexMatrixStoreType>(-1);
  MatrixPartition mPartition;  // how its piece sits in the whole
  long mGlobalRows = 0;        // as the process declared it
  long mGlobalCols = 0;        // as the process declared it

  // Sizes of the gathered matrix.
  long mRows = 0;       // as the pieces give
  long mCols = 0;       // as the pieces give
  long mNnz = 0;        // entries
  Buffer<int> mCounts;  // DISTRIBUTED, receivers: entries of each process
  Buffer<int> mDispls;  // and where they start in the gathered arrays

 private:
  void FillFromReference(MatrixLocalInfo const& reference, int rank, int root);
  PavexStatus FillCounts();
};

static_assert(sizeof(AggregatorBase) == 240, "part of the binary interface");

}  // namespace Pavex
