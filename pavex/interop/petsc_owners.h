// What the views of PETSc's objects share: their classes, statuses, and the processes that own
// rows. Included by petsc.h.

#pragma once

#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"
#include "pavex/runtime/log.h"
#include "pavex/runtime/status.h"

#include <cstdint>
#include <petscmat.h>

namespace Pavex {

// The class of a process's rows of a Mat.
using PetscCsr = MatrixCSR<PetscScalar, PetscInt>;
// The class of a process's rows of a Vec or a dense Mat.
using PetscDense = MatrixDense<PetscScalar, PetscInt>;

// STATUS_INVALID_VALUE after a line in the log, unless `error` is 0.
inline PavexStatus StatusOfPetsc(PetscErrorCode error) {
  if (error == 0) return STATUS_OK;
  Log::Error("PETSc returned error %d.", static_cast<int>(error));
  return STATUS_INVALID_VALUE;
}

// The worst of the processes' statuses, the same on each: the lowest negative one, else the
// highest. Collective over `comm`.
inline PavexStatus WorstStatus(MPI_Comm comm, PavexStatus own) {
  std::int64_t signs[2] = {own, -std::int64_t{own}};
  if (MPI_Allreduce(MPI_IN_PLACE, signs, 2, MPI_INT64_T, MPI_MIN, comm) != MPI_SUCCESS)
    return STATUS_COMM_FAILED;
  return static_cast<PavexStatus>(signs[0] < 0 ? signs[0] : -signs[1]);
}

// The processes that own rows. An aggregator works among them: it refuses empty pieces.
class PetscOwners {
 public:
  PetscOwners() = default;
  PetscOwners(PetscOwners const&) = delete;
  PetscOwners& operator=(PetscOwners const&) = delete;
  ~PetscOwners() { Free(); }

  // Finds them among the processes of `comm`, which must outlive this object. `ranges`: the
  // first row of each process and the end, as MatGetOwnershipRanges and VecGetOwnershipRanges
  // return them. Collective over `comm`.
  PavexStatus Find(MPI_Comm comm, PetscInt const* ranges) {
    Free();
    int size = 0;
    int rank = 0;
    MPI_Comm_size(comm, &size);
    MPI_Comm_rank(comm, &rank);
    // NOLINTBEGIN(clang-analyzer-core.NullDereference): PETSc returns an array
    int owners = 0;
    for (int p = 0; p < size; ++p) {
      if (ranges[p] == ranges[p + 1]) continue;
      if (owners == 0) mFirst = p;
      ++owners;
    }
    if (owners == size) {
      mComm = comm;
      return STATUS_OK;
    }
    mSplit = true;
    int const color = ranges[rank] == ranges[rank + 1] ? MPI_UNDEFINED : 0;
    // NOLINTEND(clang-analyzer-core.NullDereference)
    return MPI_Comm_split(comm, color, rank, &mComm) == MPI_SUCCESS ? STATUS_OK
                                                                    : STATUS_COMM_FAILED;
  }

  // Frees what Find has made. Collective over the owners.
  void Free() {
    if (mSplit && mComm != MPI_COMM_NULL) MPI_Comm_free(&mComm);
    mComm = MPI_COMM_NULL;
    mFirst = -1;
    mSplit = false;
  }

  // Their communicator, in the order of the ranks; MPI_COMM_NULL on the other processes. Valid
  // until Free, Find or the destruction. Local.
  MPI_Comm Get() const { return mComm; }
  // The rank of the first owner in the communicator that Find was given, which is the receiver
  // of a gather; -1 if there is none. Local.
  int First() const { return mFirst; }

 private:
  MPI_Comm mComm = MPI_COMM_NULL;
  int mFirst = -1;
  bool mSplit = false;  // mComm is our own
};

}  // namespace Pavex
