// Puts a whole matrix together from what the processes have: rows in any order, owned by one
// process, by several or by none.

#pragma once

#include "pavex/aggregator/aggregator.h"
#include "pavex/assembly/assembly_plan.h"
#include "pavex/assembly/contribution.h"
#include "pavex/assembly/merge_map.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"
#include "pavex/matrix/instances.h"

#include <memory>
#include <optional>
#include <string>

namespace Pavex {

// What becomes of the elements of a row that several processes have.
enum class Overlap {
  ADD,  // their sum
  ONCE  // the element of the first process that has the row
};

// T is the value type, I the index type, as for Aggregator, on which it is built. It shares the
// communicator and borrows the pool, which must outlive it and takes everything that it needs.
// One thread per process uses it. It starts none.
//
// Gather, Update, UpdateInPlace, Scatter and Collect are collective. Before anything large
// moves, the processes tell each other what they found: if one refuses what it was given, or
// has no room for it, all return the same status after the same line, which names the process,
// the row and what to do. So they do if the last gather of one has failed. Six failures stay on
// their process alone, while others may wait for it:
//
// - an operation of the communicator fails;
// - the communicator of a gather is null, or that of any operation has no rank for the process
//   (any more), as an MpiComm after MPI was finalised: STATUS_INVALID_VALUE;
// - a process calls another operation before any gather, after Clear, or after a gather without
//   a usable communicator or without room for what it takes first: gather on all processes
//   first;
// - a process has no room for the 228 P bytes that a gather takes first, or for the 112 P bytes
//   and the lengths of its rows that it takes after the processes have told each other;
// - a receiver of a gather has no room for the rows and columns of the pieces, which it counts
//   only after the processes have told each other;
// - a receiver of a gather without values has no room to make a whole of them.
//
// If a gather fails, nothing is gathered. If an update fails, the whole keeps its values,
// except that UpdateInPlace of bands may leave any values after a failed transfer. The same
// holds if the pool or the communicator throws: the exception leaves the operation on this
// process. std::bad_alloc leaves a gather in the same way if the heap has no room for two small
// objects.
//
// The whole is the same, bit by bit, whenever the same processes pass the same contributions.
// Each process first adds the entries of each of its rows, in the order of blocks and entries.
// The rows are then added in the order of the ranks, and those of one process in the order of
// its list: a row that a list repeats is several rows, unless the process passes coordinates. A
// different number of processes may round differently.
//
// Bytes of the pool at most, with i bytes an index and t a value. P: processes. n: entries of a
// process. m: those that it sends, at most n. c: the columns between its first and its last. r:
// the rows that it passes or, if that is more, those between its first and its last entry. Q,
// M: rows and entries that all processes send. L: rows in all lists, and the rows with entries
// of each process that passes coordinates in fewer than half of the rows between its first and
// its last entry. R, C, N: rows, columns and entries of the whole.
//
// - Every process: 340 P + i r, of which 330 P are kept until the next gather.
// - A process that does not send its rows as they are, or whose columns neither ascend nor need
//   to: i (5 n + r + c) more until the gather returns, of which i n are kept, and t m in an
//   update.
// - A receiver: i (N + R + L) + t N more, and i Q until the gather returns. An update takes t N
//   more, because old values stay until new ones have arrived, unless in place. Where entries
//   were added, up to i N / 7 of unused room are kept.
// - A receiver that merges: i (3 M + 2 Q + 3 R + C) more until the gather returns, of which
//   i (M + 2 Q + 2 R) are kept, and t M in an update.
//
// A gather with values ends with an update. Scatter and Collect of k columns take t k for each
// row of the process, unless its matrix lies column by column without gaps. A receiver takes
// t k more for each row of all processes, and 8 P.
template <typename T, typename I>
class PAVEX_API Assembler {
  PAVEX_REQUIRE_INSTANCE(T, I);

 public:
  // Takes all memory from `pool`, which the caller owns. Local.
  explicit Assembler(MemoryPool* pool);
  ~Assembler();
  Assembler(Assembler const&) = delete;
  Assembler& operator=(Assembler const&) = delete;

  // Puts the matrix of `request` together on its receiver from the contributions of all
  // processes. Deletes an earlier result first. `own` and its arrays are not needed afterwards.
  // Gives up this object's share of the communicator of the gather before, as Clear does: if
  // that was the last share of an MpiComm, this is collective over its processes.
  //
  // STATUS_INVALID_VALUE for a row, column or argument outside its range and for a missing
  // array, STATUS_INCONSISTENT for requests that differ, STATUS_NOT_SUPPORTED if the processes
  // send more entries or rows in all than 2147483647, all of them on every process. Exceptions:
  // - With I = long, a single process may have more, and bands in rank order may have more
  //   entries if rank 0 or everybody receives.
  // - With I = int, one process passes at most 2147483647 entries, also if it sends fewer, and
  //   all processes send at most 2147483646 if the whole counts from 1.
  // STATUS_INVALID_VALUE on this process alone without a usable communicator.
  [[nodiscard]] PavexStatus Gather(std::shared_ptr<Comm> const& comm,
                                   Contribution<T, I> const& own,
                                   AssemblyRequest const& request);

  // Replaces the values of the whole by what the contributions of the gather have now: `values`
  // has those of the first block, `second` those of the second, in their order. Sends values
  // only. STATUS_WRONG_ORDER on every process if the last gather of one has failed, and on this
  // process alone without any gather. STATUS_INVALID_VALUE on every process if an array is
  // missing.
  [[nodiscard]] PavexStatus Update(T const* values, T const* second = nullptr);

  // Like Update, but the values arrive in the array that the whole already has. Its address
  // stays, so a solver may keep it. A process may call Update while another one calls this.
  // The arrays that are passed do not overlap those of the whole. Errors as for Update, except
  // that the values of the whole are undefined after a failed transfer of bands. After a gather
  // of the pattern, the first call is an Update.
  [[nodiscard]] PavexStatus UpdateInPlace(T const* values, T const* second = nullptr);

  // Fills `own` on every process with its rows of `whole`, in its own order; each process that
  // has a row gets it. `whole`, with all rows and any number of columns, is read on receivers
  // only. `own` has the rows of the contribution and as many columns, and a value array, which
  // does not overlap that of `whole`. Both arrays reach to the last element of their shape. On
  // a process without rows, any matrix without rows will do. A failed transfer may leave part
  // of `own` written. STATUS_WRONG_ORDER as for Update. STATUS_INVALID_VALUE and
  // STATUS_INCONSISTENT on every process if shapes do not fit, STATUS_NOT_SUPPORTED if the rows
  // of all processes have more elements than 2147483647 together.
  [[nodiscard]] PavexStatus Scatter(MatrixDense<T, I> const& whole, MatrixDense<T, I>& own);

  // Fills `whole` on the receivers with the rows that the processes have in `own`, in the order
  // of their contributions. Rows that no process has become 0. All processes pass the same
  // `overlap`. Shapes, arrays and errors as for Scatter. After a failed transfer, `whole` keeps
  // its elements.
  [[nodiscard]] PavexStatus Collect(MatrixDense<T, I> const& own, Overlap overlap,
                                    MatrixDense<T, I>& whole);

  // The whole on a receiver, null elsewhere and without a gather. The assembler owns it. It is
  // valid until the next Gather, Clear or the destruction; its array of values until the next
  // Update. Its arrays may be moved out by Buffer::Swap. Rows are those of the request. No
  // column repeats within a row. Local.
  MatrixCSR<T, I>* Whole() { return mHasWhole ? &mWhole : nullptr; }
  // The whole as above, for reading only. Local.
  MatrixCSR<T, I> const* Whole() const { return mHasWhole ? &mWhole : nullptr; }

  // How the pieces were put together; the same on every process. NOTHING without a gather.
  // Local.
  AssemblyPath Path() const { return mGathered ? mPlan.mPath : AssemblyPath::NOTHING; }

  // Whether this process sends its entries as they are, without merging them first. True if
  // nothing is gathered. Local.
  bool SendsAsItIs() const { return mSlots.mData == nullptr; }

  // The cost for this process of a gather of the last gathered pieces. All costs are 0 if
  // nothing is gathered. Local.
  AssemblyCost CostOfGather() const;
  // The cost for this process of an update of the last gathered pieces, in place or not. Local.
  AssemblyCost CostOfUpdate() const;
  // The cost for this process of a scatter of `columns` columns. A process whose own matrix
  // does not lie column by column without gaps passes over it once more. Local.
  AssemblyCost CostOfScatter(std::int64_t columns) const;
  // The cost for this process of a collect of `columns` columns, with the same exception.
  // Local.
  AssemblyCost CostOfCollect(std::int64_t columns) const;

  // Returns one line: why the last gather was refused, or its path, processes, rows and
  // entries, or that nothing is gathered. Local. std::bad_alloc may leave, as from any
  // std::string.
  std::string Describe() const;

  // Deletes the whole and everything that later operations need, and gives up this object's
  // share of the communicator. Local, unless that was the last share of a communicator whose
  // destruction is collective, such as MpiComm.
  void Clear();

 private:
  // What this process gives an Aggregator. It keeps its number of entries without its offsets.
  class SentRows : public MatrixCSR<T, I> {
   public:
    long mEntries = 0;
    long NNZ() const override { return mEntries; }
  };

  struct Parts;  // what one gather holds until it returns

  void Drop();
  bool Receives() const;
  PavexStatus Agree(Contribution<T, I> const& own, AssemblyRequest const& request,
                    Parts& parts);
  PavexStatus AgreeOn(AssemblyVerdict const& own, AssemblyOperation operation);
  PavexStatus RefuseUngathered(AssemblyOperation operation);
  PavexStatus Move(Contribution<T, I> const& own, Parts& parts);
  PavexStatus TakePiece(Parts& parts);
  PavexStatus GatherStack(Parts& parts);
  PavexStatus Install(Parts& parts);
  PavexStatus InstallNothing();

  // Values: update.ipp.
  PavexStatus UpdateGathered(T const* const* given, bool inPlace);
  PavexStatus BringValues(T const* const* given, bool inPlace, PavexStatus before);
  PavexStatus MoveAndAdd(T const* const* given, PavexStatus before, Buffer<T>& whole);
  T const* PrepareValues(T const* const* given, Buffer<T>& sums, AssemblyVerdict& verdict);
  void MakeRoom(Buffer<T>& whole, Buffer<T>& arrived, AssemblyVerdict& verdict) const;
  PavexStatus MoveValues(T const* sent, Buffer<T>& arrived);
  void AddValues(T const* arrived, T* whole) const;

  // Lists of rows: lists.ipp.
  PavexStatus GatherLists(Contribution<T, I> const& own, Parts& parts);
  PavexStatus GatherList(I const* list, std::int64_t count,
                         std::int64_t (AssemblyRecord::*countOf)() const, std::int64_t total,
                         Buffer<I>& lists);

  // Dense matrices: dense.ipp.
  struct DenseParts;  // what one exchange of a dense matrix holds until it returns
  bool IsLocal() const { return mRecords.mSize == 1 || mRequest.mReceiver == kEverybody; }
  PavexStatus AgreeOnDense(MatrixDense<T, I> const& whole, MatrixDense<T, I> const& own,
                           AssemblyOperation operation, DenseParts& parts);
  PavexStatus CompareColumns() const;
  std::int64_t RowsOfAll() const;
  PavexStatus PrepareDense(MatrixDense<T, I> const& own, long columns, bool collects,
                           DenseParts& parts);
  void StackWhole(MatrixDense<T, I> const& whole, T* stacked) const;
  void AddStack(T const* stacked, Overlap overlap, MatrixDense<T, I>& whole) const;

  MemoryPool* mPool;                 // not owned
  std::shared_ptr<Comm> mComm;       // of the last gather
  int mRank = -1;                    // there; stays when the communicator has lost it
  Buffer<AssemblyRecord> mRecords;   // of the last gather, by rank
  Buffer<AssemblyRecord> mVerdicts;  // of the running operation after it, by rank
  Buffer<int> mOrder;                // ranks, in the order of their pieces; outlives mStack
  AssemblyPlan mPlan;
  AssemblyRequest mRequest;
  std::optional<Aggregator<T, I>> mStack;  // moves the pieces of several processes
  SentRows mSent;
  std::int64_t mEntries[2] = {0, 0};  // of each block
  Buffer<I> mSlots;                   // the entry of the piece of each entry; null: itself
  MergeMap<I> mMergeMap;              // the entry of the whole of each entry that arrives
  Buffer<I> mListed;                  // rows of the processes with lists, by rank; receivers
  MatrixCSR<T, I> mWhole;
  std::int64_t mWholeEntries = 0;  // also after the caller has moved its arrays out
  bool mGathered = false;
  bool mHasWhole = false;
};

#define PAVEX_EXTERN(T, I) extern template class Assembler<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_EXTERN)
#undef PAVEX_EXTERN

}  // namespace Pavex
