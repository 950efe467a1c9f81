// The operations on sparse matrices, and the only translation unit that compiles the assembler
// for its eight instances.

#include "pavex/assembly/assembler.h"

#include "pavex/assembly/agreement.h"
#include "pavex/assembly/check.h"
#include "pavex/assembly/decisions.h"
#include "pavex/assembly/merge.h"
#include "pavex/assembly/piece.h"
#include "pavex/assembly/renumbered_comm.h"
#include "pavex/assembly/row_merger.h"
#include "pavex/assembly/stacked_offsets.h"
#include "pavex/matrix/index_base.h"
#include "pavex/runtime/log.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <utility>

namespace Pavex {

namespace {

// The -0 of a floating-point type leaves what is added to it as it is, the sign of a 0
// included.
template <typename T>
T const kNothing = -T{};

PavexStatus Refuse(AssemblyReason const& reason, PavexStatus status) {
  Log::Error("%s", reason.mText);
  return status;
}

}  // namespace

template <typename T, typename I>
struct Assembler<T, I>::Parts {
  AssemblyPiece<I> mPiece;
  AssemblyStack<I> mStack;
  RowLists<I> mLists;
};

template <typename T, typename I>
Assembler<T, I>::Assembler(MemoryPool* pool) : mPool(pool) {}

template <typename T, typename I>
Assembler<T, I>::~Assembler() = default;

template <typename T, typename I>
void Assembler<T, I>::Clear() {
  mPlan = AssemblyPlan();
  Drop();
  mRecords = Buffer<AssemblyRecord>();
  mVerdicts = Buffer<AssemblyRecord>();
  mOrder = Buffer<int>();
  mComm = nullptr;
}

// Deletes the result of a gather, except what Describe says about one that is refused. The
// communicator stays, because the destruction of its last share may be collective, and so do
// the verdicts: with both, the next operation tells the others that nothing is gathered here.
template <typename T, typename I>
void Assembler<T, I>::Drop() {
  mStack.reset();
  mSent = SentRows();
  mSlots = Buffer<I>();
  mMergeMap = MergeMap<I>();
  mListed = Buffer<I>();
  mWhole = MatrixCSR<T, I>();
  mGathered = mHasWhole = false;
  if (!mPlan.Refused()) mPlan = AssemblyPlan();
}

template <typename T, typename I>
bool Assembler<T, I>::Receives() const {
  return mRequest.mReceiver == kEverybody || mRequest.mReceiver == mRank;
}

template <typename T, typename I>
PavexStatus Assembler<T, I>::Gather(std::shared_ptr<Comm> const& comm,
                                    Contribution<T, I> const& own,
                                    AssemblyRequest const& request) {
  Clear();
  mComm = comm;
  mRequest = request;
  mRank = comm == nullptr ? -1 : comm->Rank();
  if (mRank < 0 || mRank >= comm->Size()) return Log::Report(STATUS_INVALID_VALUE);
  struct Undo {  // unless the gather succeeds, also if the application throws
    ~Undo() {
      if (!mOf.mGathered) mOf.Drop();
    }
    Assembler& mOf;
  } const undo{*this};
  PavexStatus status = STATUS_OK;
  PavexStatus installed = STATUS_OK;  // if not, the agreement on the values shows it to all
  {
    Parts parts;
    status = Log::Report(Agree(own, request, parts));
    if (status == STATUS_OK) status = Log::Report(Move(own, parts));
    if (status == STATUS_OK) installed = Log::Report(Install(parts));
  }
  if (status == STATUS_OK) {
    T const* const given[2] = {own.Values(0), own.Values(1)};
    status =
        request.mWithValues ? Log::Report(BringValues(given, false, installed)) : installed;
  }
  mGathered = status == STATUS_OK;
  return status;
}

// Checks and prepares what this process sends, and lets all processes decide. Nothing large has
// moved afterwards. Without the room for the records of all processes, this one fails alone.
template <typename T, typename I>
PavexStatus Assembler<T, I>::Agree(Contribution<T, I> const& own,
                                   AssemblyRequest const& request, Parts& parts) {
  long const processes = mComm->Size();
  PavexStatus status = mPool->Get(mRecords, processes);
  if (status == STATUS_OK) status = mPool->Get(mVerdicts, processes);
  if (status == STATUS_OK) status = mPool->Get(mOrder, processes);
  if (status != STATUS_OK) return Log::Report(status);

  ContributionPattern<I> const& pattern = own.Pattern();
  bool const hasValues[2] = {own.Values(0) != nullptr, own.Values(1) != nullptr};
  AssemblyRecord record;
  record.mOperation = AssemblyOperation::GATHER;
  CheckFindings const found =
      CheckContribution(pattern, hasValues, request, static_cast<int>(processes), record);
  if (record.Flawless()) {
    for (int b = 0; b < 2; ++b)
      mEntries[b] = b < pattern.mBlocks ? EntriesOf(pattern, b) : 0;
    record.NoteStep(
        BuildPiece(*mPool, pattern, found, request.mSortColumns, record, parts.mPiece));
  }
  status = Log::Report(Exchange(*mComm, record, mRecords));
  if (status != STATUS_OK) return status;
  mPlan = PlanAssembly(mRecords, mOrder, std::numeric_limits<I>::max());
  if (!mPlan.Refused()) return STATUS_OK;
  return Refuse(ReasonOf(mPlan, mRecords),
                StatusOf(mPlan.mFlaw, mRecords.mData[mPlan.mProcess]));
}

// Exchanges what the processes found in an operation after the gather.
template <typename T, typename I>
PavexStatus Assembler<T, I>::AgreeOn(AssemblyVerdict const& own, AssemblyOperation operation) {
  AssemblyRecord record;
  static_cast<AssemblyVerdict&>(record) = own;
  record.mOperation = operation;
  PavexStatus const status = Log::Report(Exchange(*mComm, record, mVerdicts));
  if (status != STATUS_OK) return status;
  AssemblyPlan const found = FirstFault(mVerdicts);
  if (!found.Refused()) return STATUS_OK;
  return Refuse(ReasonOf(found, mVerdicts),
                StatusOf(found.mFlaw, mVerdicts.mData[found.mProcess]));
}

// Refuses an operation on a process that has nothing gathered. Others may have: the last gather
// failed here alone, or met another operation of theirs. So all learn it, if there has been
// a gather.
template <typename T, typename I>
PavexStatus Assembler<T, I>::RefuseUngathered(AssemblyOperation operation) {
  if (mVerdicts.mSize == 0) {
    Log::Error("Gather should be executed first");
    return STATUS_WRONG_ORDER;
  }
  AssemblyVerdict verdict;
  verdict.Note(AssemblyFlaw::NOT_GATHERED, 0, 0, 0);
  return Log::Report(AgreeOn(verdict, operation));
}

// Brings the rows and columns of all pieces to the receivers.
template <typename T, typename I>
PavexStatus Assembler<T, I>::Move(Contribution<T, I> const& own, Parts& parts) {
  PavexStatus status = Log::Report(GatherLists(own, parts));
  if (status != STATUS_OK) return status;
  mSlots.Swap(parts.mPiece.mSlots);
  mListed.Swap(parts.mLists.mListed);
  parts.mLists.mListed.Borrow(mListed.mData, mListed.mSize);
  if (mPlan.mPath == AssemblyPath::NOTHING) return STATUS_OK;
  return Log::Report(mRecords.mSize == 1 ? TakePiece(parts) : GatherStack(parts));
}

// A single process: its piece is the stack.
template <typename T, typename I>
PavexStatus Assembler<T, I>::TakePiece(Parts& parts) {
  AssemblyPiece<I>& piece = parts.mPiece;
  AssemblyStack<I>& stack = parts.mStack;
  stack.mRows = mRecords.mData[0].mRows;
  stack.mOffsets.Swap(piece.mOffsets);
  stack.mCols.Swap(piece.mCols);
  mSent.mEntries = mRecords.mData[0].mNnz;
  if (stack.mCols.mAllocator != nullptr)
    return Log::Report(Shrink(*mPool, mSent.mEntries, stack.mCols));

  Buffer<I> offsets;  // the caller's arrays stay the caller's
  Buffer<I> cols;
  PavexStatus status = Log::Report(mPool->Get(offsets, stack.mRows + 1));
  if (status == STATUS_OK) status = Log::Report(mPool->Get(cols, mSent.mEntries));
  if (status != STATUS_OK) return status;
  I const base = stack.mOffsets.mData[0];
  std::transform(stack.mOffsets.mData, stack.mOffsets.mData + offsets.mSize, offsets.mData,
                 [base](I offset) { return static_cast<I>(offset - base); });
  std::copy_n(stack.mCols.mData, cols.mSize, cols.mData);
  stack.mOffsets.Swap(offsets);
  stack.mCols.Swap(cols);
  return STATUS_OK;
}

// Gathers the rows of all pieces as bands of a matrix in which they follow each other. A
// process without rows has an empty one there: an Aggregator leaves no process out.
template <typename T, typename I>
PavexStatus Assembler<T, I>::GatherStack(Parts& parts) {
  auto const comm = std::make_shared<RenumberedComm>(mComm, mRequest.mReceiver, mOrder);
  PavexStatus status = Log::Report(comm->Prepare(*mPool));
  if (status != STATUS_OK) return status;

  I noRows[2] = {0, 0};
  AssemblyRecord const& record = mRecords.mData[mRank];
  AssemblyPiece<I>& piece = parts.mPiece;
  if (record.mRows == 0) {
    mSent.mRowPtr.Borrow(noRows, 2);
    mSent.mColIdx.Borrow(noRows, 0);
  } else {
    mSent.mRowPtr.Swap(piece.mOffsets);
    mSent.mColIdx.Swap(piece.mCols);
  }
  mSent.mEntries = record.mNnz;
  mSent.mRows = std::max(record.mRows, std::int64_t{1});
  mSent.mCols = mRequest.mCols;
  std::int64_t begin = 0;
  for (int seat = 0; seat < comm->Rank(); ++seat)
    begin += std::max(mRecords.mData[comm->RankOf(seat)].mRows, std::int64_t{1});
  mSent.PlaceIn(mPlan.mRows, mRequest.mCols, MatrixPartition::RowWise(begin));

  mStack.emplace(mPool);
  if (mRequest.mReceiver == kEverybody)
    status = mStack->Allgather(comm, mSent, false);
  else
    status = mStack->Gather(comm, mSent, false);
  mSent.mRowPtr = Buffer<I>();
  mSent.mColIdx = Buffer<I>();
  if (Log::Report(status) != STATUS_OK) return status;
  auto* const stacked = mStack->template TargetAs<MatrixCSR<T, I>>();
  if (stacked == nullptr) return STATUS_OK;
  parts.mStack.mRows = mPlan.mRows;
  parts.mStack.mOffsets.Swap(stacked->mRowPtr);
  parts.mStack.mCols.Swap(stacked->mColIdx);
  CountPiecesInOrder(mRecords, mOrder, parts.mStack.mOffsets.mData);
  return STATUS_OK;
}

// Makes the whole without its values on a receiver.
template <typename T, typename I>
PavexStatus Assembler<T, I>::Install(Parts& parts) {
  if (!Receives()) return STATUS_OK;
  if (mPlan.mPath == AssemblyPath::NOTHING) return InstallNothing();
  AssemblyStack<I>& stack = parts.mStack;
  PavexStatus status = STATUS_OK;
  if (mPlan.mPath == AssemblyPath::BANDS) {
    status = Log::Report(PlaceBands(*mPool, mRecords, mOrder, mRequest.mRows, stack));
    if (status != STATUS_OK) return status;
    mWhole.mRowPtr.Swap(stack.mOffsets);
    mWhole.mColIdx.Swap(stack.mCols);
  } else {
    status = Log::Report(MergeStack(*mPool, mRecords, parts.mLists, mRequest, stack,
                                    mWhole.mRowPtr, mWhole.mColIdx, mMergeMap));
    if (status != STATUS_OK) return status;
  }
  mWhole.mRows = mWhole.mGlobalRows = mRequest.mRows;
  mWhole.mCols = mWhole.mGlobalCols = mRequest.mCols;
  mWholeEntries = mWhole.mColIdx.mSize;
  if (mRequest.mBase != 0) ShiftIndexBase(mWhole, 0, mRequest.mBase);
  mHasWhole = true;
  return STATUS_OK;
}

template <typename T, typename I>
PavexStatus Assembler<T, I>::InstallNothing() {
  PavexStatus const status = Log::Report(MatrixCSR<T, I>::Create(
      *mPool, mRequest.mRows, mRequest.mCols, 0, mRequest.mWithValues, mWhole));
  if (status != STATUS_OK) return status;
  std::fill_n(mWhole.mRowPtr.mData, mRequest.mRows + 1, static_cast<I>(mRequest.mBase));
  mHasWhole = true;
  return STATUS_OK;
}

template <typename T, typename I>
AssemblyCost Assembler<T, I>::CostOfUpdate() const {
  if (!mGathered) return {};
  return Pavex::CostOfUpdate(mPlan, mRecords, mRank, sizeof(T), !SendsAsItIs());
}

template <typename T, typename I>
AssemblyCost Assembler<T, I>::CostOfScatter(std::int64_t columns) const {
  if (!mGathered) return {};
  return Pavex::CostOfScatter(mRecords, mRank, sizeof(T), columns);
}

template <typename T, typename I>
AssemblyCost Assembler<T, I>::CostOfCollect(std::int64_t columns) const {
  if (!mGathered) return {};
  return Pavex::CostOfCollect(mRecords, mRank, sizeof(T), columns);
}

template <typename T, typename I>
AssemblyCost Assembler<T, I>::CostOfGather() const {
  if (!mGathered) return {};
  AssemblyCost cost = CostOfPattern(mPlan, mRecords, mRank, sizeof(I), !SendsAsItIs());
  if (!mRequest.mWithValues) return cost;
  AssemblyCost const values = CostOfUpdate();
  cost.mCalls = WrappingAdd(cost.mCalls, values.mCalls);
  cost.mBytesOut = WrappingAdd(cost.mBytesOut, values.mBytesOut);
  cost.mBytesIn = WrappingAdd(cost.mBytesIn, values.mBytesIn);
  cost.mPasses = WrappingAdd(cost.mPasses, values.mPasses);
  return cost;
}

template <typename T, typename I>
std::string Assembler<T, I>::Describe() const {
  if (mPlan.Refused()) return ReasonOf(mPlan, mRecords).mText;
  if (!mGathered) return "Nothing is gathered.";
  long given = 0;
  for (std::int64_t p = 0; p < mRecords.mSize; ++p)
    given = WrappingAdd(given, long{mRecords.mData[p].mGiven});
  char text[Log::kMostFormat];
  std::snprintf(text, sizeof text,
                "path %s: %ld processes, %ld entries given, %ld sent, %ld x %ld whole",
                AssemblyPathStr(mPlan.mPath), static_cast<long>(mRecords.mSize), given,
                static_cast<long>(mPlan.mNnz), static_cast<long>(mRequest.mRows),
                static_cast<long>(mRequest.mCols));
  return text;
}

}  // namespace Pavex

#include "pavex/assembly/dense.ipp"
#include "pavex/assembly/lists.ipp"
#include "pavex/assembly/update.ipp"

namespace Pavex {

#define PAVEX_INSTANTIATE(T, I) template class Assembler<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_INSTANTIATE)
#undef PAVEX_INSTANTIATE

}  // namespace Pavex
