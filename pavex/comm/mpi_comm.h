// The communicator of a parallel job over MPI.

#pragma once

#if !defined(OMPI_SKIP_MPICXX)
#define OMPI_SKIP_MPICXX 1
#endif
#if !defined(MPICH_SKIP_MPICXX)
#define MPICH_SKIP_MPICXX 1
#endif

#include "pavex/runtime/comm.h"

#include <mpi.h>

namespace Pavex {

// A Comm over MPI. It works on its own duplicate of the caller's communicator, so its messages
// never meet the caller's. Construction and destruction are collective over the given
// communicator. So is every operation except Rank, Size, Send and Recv.
//
// It never initialises or finalises MPI, never uses MPI_COMM_WORLD unless that is the given
// communicator, and never changes the error handler of the given communicator. Errors return as
// codes on the duplicate only. If MPI_Comm_dup fails, the caller's own handler reports it
// (MPI's default handler ends the job).
//
// Without live MPI - constructed before MPI was initialised, after it was finalised, from
// MPI_COMM_NULL, from an intercommunicator, by a failed duplication, or used after MPI was
// finalised - Rank and Size are -1 and every other operation returns STATUS_COMM_FAILED.
//
// Failures. The operation that meets a failure logs one ERROR line
//   [ERROR] MpiComm::Gatherv failed on rank 1 of 4 (peer 0, 12 out, 0 in): <MPI's own text>
// (peer -1: every rank; then elements that go out and come in on this rank) and returns
//   STATUS_COMM_FAILED    for any error of MPI, for no live MPI, and for a message received by
//                         Recv that has another length than asked for;
//   STATUS_INVALID_VALUE  for arguments that MPI must not see, refused on the rank that passes
//                         them before MPI is called: a negative count or displacement (an int
//                         that wrapped: more than 2147483647 entries in all), a rank outside
//                         0..Size()-1, a negative tag, an unknown Datatype or ReduceOp, and the
//                         in-place marker where it has no meaning. Only arguments that are read
//                         on this rank count.
// Null buffers are fine where nothing goes out or comes in. The in-place marker stands for
// MPI_IN_PLACE: in Allgather and Allgatherv, in Gatherv on the root, and, beyond what Comm
// promises, in Alltoallv and Allreduce.
//
// After a failed collective. A failure - MPI's, or that of a pool between two operations - may
// be seen on one rank alone, and what the others have sent meanwhile cannot be called back.
// What an application may do then depends on whether the others return from their operation:
// - If small pieces are collected onto one rank and that rank fails, they return: MPI has
//   buffered their pieces. All ranks can go on over a new MpiComm, made from the same MPI
//   communicator. Do not destroy the old one before MPI is finalised: a late message of the
//   failed operation then reaches its old duplicate and never the new one.
// - With large pieces, or where every rank waits for all others (Barrier, Allgather, Allreduce,
//   Allgatherv, Alltoallv, and Bcast from the failing rank), they may stay inside MPI for ever.
//   End the job then (MPI_Abort).
// To avoid the second case, agree by Allreduce on the worst status after every step that can
// fail on one rank alone, before the next collective.
//
// Threads: needs MPI_THREAD_FUNNELED and no more; every call, construction and destruction
// included, is made by the thread that initialised MPI. With MPI_THREAD_SERIALIZED, any one
// thread at a time may call it.
class PAVEX_API MpiComm : public Comm {
 public:
  // Duplicates `comm`. Collective over `comm`.
  explicit MpiComm(MPI_Comm comm);

  // Frees the duplicate; does nothing if MPI has been finalised meanwhile. Collective.
  ~MpiComm() override;

  int Rank() const override;
  int Size() const override;
  [[nodiscard]] PavexStatus Barrier() const override;
  [[nodiscard]] PavexStatus Send(void const* buf, int count, Datatype type, int dest,
                                 int tag) const override;
  [[nodiscard]] PavexStatus Recv(void* buf, int count, Datatype type, int source,
                                 int tag) const override;
  [[nodiscard]] PavexStatus Gatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                    void* recvbuf, int const* recvcounts, int const* displs,
                                    Datatype recvtype, int root) const override;
  [[nodiscard]] PavexStatus Scatterv(void const* sendbuf, int const* sendcounts,
                                     int const* displs, Datatype sendtype, void* recvbuf,
                                     int recvcount, Datatype recvtype, int root) const override;
  [[nodiscard]] PavexStatus Alltoallv(void const* sendbuf, int const* sendcounts,
                                      int const* sdispls, Datatype sendtype, void* recvbuf,
                                      int const* recvcounts, int const* rdispls,
                                      Datatype recvtype) const override;
  [[nodiscard]] PavexStatus Allgather(void const* sendbuf, int sendcount, Datatype sendtype,
                                      void* recvbuf, int recvcount,
                                      Datatype recvtype) const override;
  [[nodiscard]] PavexStatus Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                       void* recvbuf, int const* recvcounts, int const* displs,
                                       Datatype recvtype) const override;

  // Bytes are reduced as unsigned numbers.
  [[nodiscard]] PavexStatus Allreduce(void const* sendbuf, void* recvbuf, int count,
                                      Datatype type, ReduceOp op) const override;
  [[nodiscard]] PavexStatus Bcast(void* buf, int count, Datatype type, int root) const override;

 private:
  MPI_Comm mComm = MPI_COMM_NULL;  // the duplicate; null: never live
  int mRank = -1;
  int mSize = -1;
};

}  // namespace Pavex
