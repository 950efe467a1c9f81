#include "plugins/petsc/gathered.h"

#include "pavex/comm/mpi_comm.h"
#include "pavex/comm/node_comm.h"
#include "pavex/runtime/version.h"
#include "plugins/petsc/events.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>

namespace PavexPetsc {

namespace {

using Pavex::PavexStatus;

// Runs `operation`, which returns a status. Nothing is thrown through PETSc.
template <typename Operation>
PavexStatus Guarded(PetscLogEvent event, Operation const& operation) {
  (void)PetscLogEventBegin(event, nullptr, nullptr, nullptr, nullptr);
  PavexStatus status = Pavex::STATUS_OUT_OF_MEMORY;
  try {
    status = operation();
  } catch (std::exception const&) {  // of the heap, or a class that does not fit
  }
  (void)PetscLogEventEnd(event, nullptr, nullptr, nullptr, nullptr);
  return status;
}

// An error on every process if there is one on any; otherwise the worst reason.
PetscErrorCode Agree(MPI_Comm comm, PavexStatus status, PetscErrorCode error,
                     PCFailedReason* reason) {
  int worst[3] = {status < 0 ? -status : status, static_cast<int>(error),
                  static_cast<int>(*reason)};
  PetscFunctionBegin;
  PetscCallMPI(MPI_Allreduce(MPI_IN_PLACE, worst, 3, MPI_INT, MPI_MAX, comm));
  PetscCheck(worst[0] == 0, comm, PETSC_ERR_LIB, "Pavex: %s", PavexStatusStr(-worst[0]));
  PetscCheck(worst[1] == 0, comm, static_cast<PetscErrorCode>(worst[1]),
             "Pavex: the inner solver has failed on its process");
  *reason = static_cast<PCFailedReason>(worst[2]);
  PetscFunctionReturn(kSuccess);
}

// Those of a dense matrix may be more than a PetscInt counts.
long Elements(PetscInt rows, PetscInt columns) {
  return static_cast<long>(rows) * static_cast<long>(columns);
}

// Whether right-hand sides and solutions have the same rows on this process. PETSc compares
// those of two dense Mats in all.
bool AreRowsOfTheSame(Pavex::PetscDense const& b, Pavex::PetscDense const& x) {
  return b.mRows == x.mRows && b.mCols == x.mCols && b.mPartition.begin == x.mPartition.begin;
}

// Takes blocks of so many bytes from the pool and gives them back, so that it has them when an
// operation of the processes of `comm` asks: one that fails there for want of memory would
// leave the others waiting. The same status on every process.
// `status`: what has failed before.
PavexStatus Reserve(MPI_Comm comm, Pavex::MemoryPool& pool,
                    std::array<std::size_t, 4> const& bytes, PavexStatus status) {
  std::array<void*, 4> blocks{};
  for (std::size_t i = 0; i < bytes.size() && status == Pavex::STATUS_OK; ++i)
    status = pool.Allocate(&blocks[i], bytes[i]);
  for (std::size_t i = 0; i < bytes.size(); ++i)
    pool.Deallocate(blocks[i], bytes[i]);
  return Pavex::WorstStatus(comm, status);
}

}  // namespace

Gathered::~Gathered() {
  (void)Reset();
}

PetscErrorCode Gathered::Reset() {
  PetscFunctionBegin;
  PetscCall(mInner.Destroy());
  PetscCall(MatDestroy(&mSequential));
  mVectors.Clear();
  mMatrix.Clear();
  mAssembler.Clear();
  mVectors.SetComm(nullptr);
  mMatrix.SetComm(nullptr);
  mComm.reset();
  mRows.Detach();
  mOwnRhs = Array();
  mSolution = Array();
  mRhs = nullptr;
  mMat = nullptr;
  mColumns = 0;
  PetscFunctionReturn(kSuccess);
}

bool Gathered::Receives() const {
  int rank = -1;
  MPI_Comm_rank(mOuter, &rank);
  return rank == Receiver();
}

int Gathered::Receiver() const {
  return UsesAssembler() ? static_cast<int>(mChoices.mReceiver) : mRows.Receiver();
}

PetscErrorCode Gathered::SetUp(Mat mat, Choices const& choices, InnerChoices const& inner,
                               PCFailedReason* reason) {
  PetscInt rows = 0;
  PetscInt cols = 0;
  int size = 0;
  PetscObjectState pattern = 0;
  PetscFunctionBegin;
  mOuter = PetscObjectComm(reinterpret_cast<PetscObject>(mat));
  PetscCallMPI(MPI_Comm_size(mOuter, &size));
  PetscCheck(choices.mReceiver < size, mOuter, PETSC_ERR_ARG_OUTOFRANGE,
             "-pavex_receiver %" PetscInt_FMT " must be below the number of processes, %d",
             choices.mReceiver, size);
  PetscCall(MatGetLocalSize(mat, &rows, &cols));
  PetscCall(MatGetNonzeroState(mat, &pattern));
  // Not every type of matrix counts its patterns in step.
  int differs[2] = {mat != mMat || pattern != mPattern, rows != cols};
  PetscCallMPI(MPI_Allreduce(MPI_IN_PLACE, differs, 2, MPI_INT, MPI_MAX, mOuter));
  PetscCheck(differs[1] == 0, mOuter, PETSC_ERR_SUP,
             "Pavex needs a square matrix, and each process the same rows and columns");
  *reason = PC_NOERROR;
  PavexStatus status = Pavex::STATUS_OK;
  if (differs[0] != 0) {
    PetscCall(Reset());
    mChoices = choices;
    status = Gather(mat);
  } else {
    status = Update();
  }
  PetscErrorCode error = kSuccess;
  if (status == Pavex::STATUS_OK && Receives()) {
    error = MakeSequential();
    if (error == kSuccess) error = mInner.SetUp(mSequential, inner, reason);
  }
  PetscCall(Agree(mOuter, status, error, reason));
  mMat = mat;
  mPattern = pattern;
  if (choices.mView == PETSC_TRUE) PetscCall(View(PETSC_VIEWER_STDOUT_(mOuter)));
  PetscFunctionReturn(kSuccess);
}

PavexStatus Gathered::Gather(Mat mat) {
  PavexStatus const status = Guarded(gEvents.mMerge, [&] { return mRows.Attach(mat); });
  if (status != Pavex::STATUS_OK) return status;
  mSize = static_cast<PetscInt>(mRows.Piece().mGlobalRows);
  MPI_Comm among = UsesAssembler() ? mOuter : mRows.Owners();
  if (among == MPI_COMM_NULL) return Pavex::STATUS_OK;
  return Guarded(gEvents.mGather, [&] {
    if (mChoices.mNode == PETSC_TRUE)
      mComm = std::make_shared<Pavex::NodeComm>(among);
    else
      mComm = std::make_shared<Pavex::MpiComm>(among);
    Pavex::PetscCsr const& piece = mRows.Piece();
    PavexStatus const reserved = ReserveMatrix(among);
    if (reserved != Pavex::STATUS_OK) return reserved;
    if (!UsesAssembler()) return mMatrix.Gather(mComm, piece, true);
    auto own =
        Pavex::Contribution<PetscScalar, PetscInt>::Band(piece.mPartition.begin, piece.mRows);
    if (piece.mRows > 0) own.Csr(piece.mRowPtr.mData, piece.mColIdx.mData, piece.mValues.mData);
    Pavex::AssemblyRequest request;
    request.mRows = request.mCols = mSize;
    request.mReceiver = static_cast<int>(mChoices.mReceiver);
    return mAssembler.Gather(mComm, own, request);
  });
}

// The arrays of the whole on the receiver, and the lengths of the rows of each process. The
// whole of a single process is its piece.
PavexStatus Gathered::ReserveMatrix(MPI_Comm among) {
  Pavex::PetscCsr const& piece = mRows.Piece();
  if (mComm->Size() == 1) return Pavex::STATUS_OK;
  std::int64_t own = piece.NNZ();
  std::int64_t all = 0;
  if (MPI_Allreduce(&own, &all, 1, MPI_INT64_T, MPI_SUM, among) != MPI_SUCCESS)
    return Pavex::STATUS_COMM_FAILED;
  std::array<std::size_t, 4> bytes{static_cast<std::size_t>(piece.mRows) * sizeof(PetscInt)};
  if (Receives()) {
    auto const entries = static_cast<std::size_t>(all);
    bytes[1] = (static_cast<std::size_t>(mSize) + 1) * sizeof(PetscInt);
    bytes[2] = entries * sizeof(PetscInt);
    bytes[3] = entries * sizeof(PetscScalar);
  }
  return Reserve(among, mMatrixPool, bytes, Pavex::STATUS_OK);
}

// The solutions and right-hand sides on the receiver; for several of them also the room in
// which they change their order, and that of the pieces without their gaps. The solutions stay:
// otherwise they would take a block that is reserved.
PavexStatus Gathered::ReserveVectors(Pavex::PetscDense const& own, PetscInt columns) {
  if (mComm->Size() == 1) return Pavex::STATUS_OK;
  PavexStatus status = Pavex::STATUS_OK;
  if (Receives()) status = mVectorPool.Get(mSolution, Elements(mSize, columns));
  std::size_t const column = sizeof(PetscScalar) * static_cast<std::size_t>(columns);
  std::size_t const whole = Receives() ? static_cast<std::size_t>(mSize) * column : 0;
  std::size_t const piece = static_cast<std::size_t>(own.mRows) * column;
  std::array<std::size_t, 4> bytes{whole};
  if (columns > 1) bytes = {whole, whole, piece, 0};
  return Reserve(mRows.Owners(), mVectorPool, bytes, status);
}

PavexStatus Gathered::Update() {
  PavexStatus const status = Guarded(gEvents.mMerge, [&] { return mRows.Refresh(); });
  if (status != Pavex::STATUS_OK || mComm == nullptr) return status;
  return Guarded(gEvents.mUpdate, [&] {
    Pavex::PetscCsr const& piece = mRows.Piece();
    return UsesAssembler() ? mAssembler.UpdateInPlace(piece.mValues.mData)
                           : mMatrix.UpdateInPlace(piece);
  });
}

// The Mat of the receiver over the gathered arrays. If those belong to the caller's Mat, it has
// copies: a solver may write into its matrix, and the caller may change the Mat before the next
// set-up.
PetscErrorCode Gathered::MakeSequential() {
  bool stays = false;
  Mat copy = nullptr;
  PetscFunctionBegin;
  Pavex::PetscCsr* const whole =
      UsesAssembler() ? mAssembler.Whole() : mMatrix.TargetAs<Pavex::PetscCsr>();
  PetscCheck(whole != nullptr, PETSC_COMM_SELF, PETSC_ERR_PLIB, "Pavex: nothing is gathered");
  bool const copies =
      whole->mValues.mAllocator == nullptr && mRows.Piece().mValues.mAllocator == nullptr;
  if (mSequential != nullptr) PetscCall(RenewSequential(whole->mValues, copies, &stays));
  if (stays) PetscFunctionReturn(kSuccess);
  PetscCall(MatDestroy(&mSequential));
  PetscCall(MatCreateSeqAIJWithArrays(PETSC_COMM_SELF, mSize, mSize, whole->mRowPtr.mData,
                                      whole->mColIdx.mData, whole->mValues.mData,
                                      &mSequential));
  if (!copies) PetscFunctionReturn(kSuccess);
  PetscCall(MatDuplicate(mSequential, MAT_COPY_VALUES, &copy));
  PetscCall(MatDestroy(&mSequential));
  mSequential = copy;
  PetscFunctionReturn(kSuccess);
}

// Lets the Mat of the receiver know its new values. `stays` becomes false if it needs another
// one: `values` lie elsewhere now, or a solver has factored the Mat in place.
PetscErrorCode Gathered::RenewSequential(Array const& values, bool copies, bool* stays) {
  MatFactorType factor = MAT_FACTOR_NONE;
  PetscScalar* array = nullptr;
  PetscFunctionBegin;
  *stays = false;
  PetscCall(MatGetFactorType(mSequential, &factor));
  if (factor != MAT_FACTOR_NONE) PetscFunctionReturn(kSuccess);
  PetscCall(MatSeqAIJGetArray(mSequential, &array));
  if (copies) std::copy_n(values.mData, values.mSize, array);
  *stays = copies || array == values.mData;
  PetscCall(MatSeqAIJRestoreArray(mSequential, &array));  // counts as new values
  PetscFunctionReturn(kSuccess);
}

// NOLINTBEGIN(readability-non-const-parameter): the template writes `reason`
PetscErrorCode Gathered::Solve(Vec b, Vec x, PetscBool transposed, PCFailedReason* reason) {
  return SolveColumns(b, x, 1, transposed, reason);
}

PetscErrorCode Gathered::Solve(Mat b, Mat x, PetscBool transposed, PCFailedReason* reason) {
  PetscInt columns = 0;
  PetscFunctionBegin;
  PetscCall(MatGetSize(b, nullptr, &columns));
  PetscCall(SolveColumns(b, x, columns, transposed, reason));
  PetscFunctionReturn(kSuccess);
}
// NOLINTEND(readability-non-const-parameter)

template <typename Object>
PetscErrorCode Gathered::SolveColumns(Object b, Object x, PetscInt columns,
                                      PetscBool transposed, PCFailedReason* reason) {
  PetscFunctionBegin;
  *reason = PC_NOERROR;
  if (columns == 0) PetscFunctionReturn(kSuccess);
  Pavex::PetscBand from;
  Pavex::PetscBand to;
  PetscErrorCode error = kSuccess;
  PavexStatus status = from.Borrow(b, Pavex::PetscAccess::READ);
  if (status == Pavex::STATUS_OK) status = to.Borrow(x, Pavex::PetscAccess::WRITE);
  if (status == Pavex::STATUS_OK && mComm != nullptr)
    status = Guarded(gEvents.mVector, [&] { return Fetch(from.Piece(), columns); });
  if (status == Pavex::STATUS_OK && !AreRowsOfTheSame(from.Piece(), to.Piece()))
    status = Pavex::STATUS_MISMATCH;
  if (status == Pavex::STATUS_OK && Receives())
    error = mInner.Solve(mRhs, mLd, columns, transposed, mSolution.mData, reason);
  // After a failure on any process, all of them reserve again: they do it together.
  mColumns = 0;
  PetscCall(Agree(mOuter, status, error, reason));
  mColumns = columns;
  if (mComm != nullptr)
    status = Guarded(gEvents.mScatter, [&] { return Deliver(to.Piece(), columns); });
  if (status == Pavex::STATUS_OK) status = from.Return();
  if (status == Pavex::STATUS_OK) status = to.Return();
  PetscCheck(status == Pavex::STATUS_OK, PETSC_COMM_SELF, PETSC_ERR_LIB, "Pavex: %s",
             PavexStatusStr(status));
  PetscFunctionReturn(kSuccess);
}

// Brings the right-hand sides to the receiver, and makes room for as many solutions.
PavexStatus Gathered::Fetch(Pavex::PetscDense const& own, PetscInt columns) {
  PavexStatus status = Pavex::STATUS_OK;
  if (UsesAssembler()) {
    Pavex::PetscDense whole;
    mLd = mSize;
    if (mColumns != columns) {
      if (Receives()) status = mVectorPool.Get(mOwnRhs, Elements(mSize, columns));
      status = Pavex::WorstStatus(mOuter, status);
    }
    if (Receives() && status == Pavex::STATUS_OK)
      whole = Pavex::PetscDense::Borrow(mSize, columns, false, mSize, mOwnRhs.mData);
    if (status == Pavex::STATUS_OK)
      status = mAssembler.Collect(own, Pavex::Overlap::ADD, whole);
    mRhs = mOwnRhs.mData;
  } else {
    // The leading dimension of a dense matrix may be another one each time.
    bool const again = columns == 1 && mColumns == 1;
    if (mColumns != columns) status = ReserveVectors(own, columns);
    if (status == Pavex::STATUS_OK)
      status = again ? mVectors.UpdateInPlace(own) : mVectors.Gather(mComm, own, true);
    if (status == Pavex::STATUS_OK && Receives()) status = TakeRhs();
  }
  if (status == Pavex::STATUS_OK && Receives() && mSolution.mSize != Elements(mLd, columns))
    status = mVectorPool.Get(mSolution, Elements(mLd, columns));
  return status;
}

// The gathered right-hand sides are those of the inner solver, which may overwrite them: one
// that scales the matrix does. It gets a copy of an array of the caller.
PavexStatus Gathered::TakeRhs() {
  auto const& whole = *mVectors.TargetAs<Pavex::PetscDense>();
  mLd = static_cast<PetscInt>(whole.mLd);
  mRhs = whole.mValues.mData;
  if (whole.mValues.mAllocator != nullptr) return Pavex::STATUS_OK;
  long const last = static_cast<long>(whole.mCols) - 1;
  long const elements = last * static_cast<long>(whole.mLd) + static_cast<long>(whole.mRows);
  PavexStatus status = Pavex::STATUS_OK;
  if (mOwnRhs.mSize != elements) status = mVectorPool.Get(mOwnRhs, elements);
  if (status != Pavex::STATUS_OK) return status;
  std::copy_n(whole.mValues.mData, elements, mOwnRhs.mData);
  mRhs = mOwnRhs.mData;
  return Pavex::STATUS_OK;
}

// Sends the solutions, which never stand in the gathered right-hand sides: those may be the
// array of the caller's vector.
PavexStatus Gathered::Deliver(Pavex::PetscDense& own, PetscInt columns) {
  if (!UsesAssembler()) return mVectors.Scatter(own, mSolution.mData);
  Pavex::PetscDense whole;
  if (Receives())
    whole = Pavex::PetscDense::Borrow(mSize, columns, false, mLd, mSolution.mData);
  return mAssembler.Scatter(whole, own);
}

PetscErrorCode Gathered::View(PetscViewer viewer) const {
  PetscBool isAscii = PETSC_FALSE;
  PetscViewer own = nullptr;
  PetscFunctionBegin;
  PetscCall(PetscObjectTypeCompare(reinterpret_cast<PetscObject>(viewer), PETSCVIEWERASCII,
                                   &isAscii));
  if (isAscii == PETSC_FALSE || mOuter == MPI_COMM_NULL) PetscFunctionReturn(kSuccess);
  PetscCall(PetscViewerASCIIPrintf(viewer,
                                   "  Pavex %s: %" PetscInt_FMT
                                   " rows gathered on process %d, inner solver there:\n",
                                   PavexVersion(), mSize, Receiver()));
  PetscCall(PetscViewerASCIIPushTab(viewer));
  PetscCall(PetscViewerGetSubViewer(viewer, PETSC_COMM_SELF, &own));
  if (Receives()) PetscCall(mInner.View(own));
  PetscCall(PetscViewerFlush(own));
  PetscCall(PetscViewerRestoreSubViewer(viewer, PETSC_COMM_SELF, &own));
  PetscCall(PetscViewerFlush(viewer));
  PetscCall(PetscViewerASCIIPopTab(viewer));
  PetscFunctionReturn(kSuccess);
}

}  // namespace PavexPetsc
