// A distributed Mat gathered onto one process, and its vectors there and back: what the
// preconditioner and the direct solver share.

#pragma once

#include "pavex/aggregator/aggregator.h"
#include "pavex/assembly/assembler.h"
#include "pavex/comm/node_pool.h"
#include "pavex/interop/petsc.h"
#include "plugins/petsc/inner.h"

#include <memory>

namespace PavexPetsc {

// The choices of a user.
struct Choices {
  PetscInt mReceiver = PETSC_DECIDE;  // a rank of the Mat's communicator; else the first owner
  PetscBool mNode = PETSC_FALSE;      // memory shared on the node
  PetscBool mView = PETSC_FALSE;      // a line after each set-up
};

// Every function is collective over the Mat's communicator. A failure of one process is an
// error of PETSc on all of them.
class Gathered {
 public:
  ~Gathered();

  // Gathers `mat`, or brings its new values if the pattern is that of the last time, and sets
  // the inner solver up. `reason`: whether that failed, the same on every process.
  PetscErrorCode SetUp(Mat mat, Choices const& choices, InnerChoices const& inner,
                       PCFailedReason* reason);

  // Solves with the inner solver; `transposed`: with the transposed matrix. `reason` as above.
  PetscErrorCode Solve(Vec b, Vec x, PetscBool transposed, PCFailedReason* reason);
  // The same for each column of a dense Mat.
  PetscErrorCode Solve(Mat b, Mat x, PetscBool transposed, PCFailedReason* reason);

  // Shows where the matrix is, and the inner solver.
  PetscErrorCode View(PetscViewer viewer) const;

  // Gives all arrays back to PETSc and to the pools, which keep blocks for the next set-up.
  PetscErrorCode Reset();

 private:
  using Status = Pavex::PavexStatus;
  using Array = Pavex::Buffer<PetscScalar>;

  bool UsesAssembler() const { return mChoices.mReceiver >= 0; }
  bool Receives() const;
  int Receiver() const;
  Status Gather(Mat mat);
  Status Update();
  Status ReserveMatrix(MPI_Comm among);
  Status ReserveVectors(Pavex::PetscDense const& own, PetscInt columns);
  PetscErrorCode MakeSequential();
  PetscErrorCode RenewSequential(Array const& values, bool copies, bool* stays);
  template <typename Object>
  PetscErrorCode SolveColumns(Object b, Object x, PetscInt columns, PetscBool transposed,
                              PCFailedReason* reason);
  Status TakeRhs();
  Status Fetch(Pavex::PetscDense const& own, PetscInt columns);
  Status Deliver(Pavex::PetscDense& own, PetscInt columns);

  // The matrix and the vectors have pools of their own: the blocks that one keeps do not fit
  // the other. Members are destroyed bottom up.
  Pavex::NodePool mMatrixPool;
  Pavex::NodePool mVectorPool;
  Pavex::PetscRows mRows{&mMatrixPool};
  Pavex::Aggregator<PetscScalar, PetscInt> mMatrix{&mMatrixPool};
  Pavex::Aggregator<PetscScalar, PetscInt> mVectors{&mVectorPool};
  Pavex::Assembler<PetscScalar, PetscInt> mAssembler{&mMatrixPool};  // for a chosen receiver
  std::shared_ptr<Pavex::Comm> mComm;  // of the processes that take part; null on the others
  Choices mChoices;
  MPI_Comm mOuter = MPI_COMM_NULL;  // the Mat's communicator
  Mat mMat = nullptr;               // compared, never used
  PetscObjectState mPattern = 0;
  PetscInt mColumns = 0;      // for which all processes have room; 0: none. On all the same
  PetscInt mSize = 0;         // rows of the matrix
  PetscInt mLd = 0;           // of mRhs and mSolution, on the receiver
  Mat mSequential = nullptr;  // over the gathered arrays or copies of them, on the receiver
  PetscScalar* mRhs = nullptr;
  Array mOwnRhs;
  Array mSolution;
  InnerSolver mInner;
};

}  // namespace PavexPetsc
