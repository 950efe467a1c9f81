// The communicator of a parallel job over MPI.

#pragma once

#if !defined(OMPI_SKIP_MPICXX)
#define OMPI_SKIP_MPICXX 1
#endif
#if !defined(MPICH_SKIP_MPICXX)
#define MPICH_SKIP_MPICXX 1
#endif

#include "pavex/runtime/comm.h"

#include <memory>
#include <mpi.h>

namespace Pavex {

class MpiCall;

// A Comm over MPI. It works on its own duplicate of the caller's communicator, so its messages
// never meet the caller's. Construction, destruction and every operation except Rank, Size,
// Send and Recv are collective over the given communicator.
//
// It never initialises or finalises MPI, never uses MPI_COMM_WORLD unless that is the given
// communicator, and never changes the error handler of the given communicator. Only errors on
// the duplicate return as codes. If MPI_Comm_dup fails, the caller's own handler reports it
// (MPI's default handler ends the job).
//
// Without live MPI, Rank and Size are -1 and every other operation returns STATUS_COMM_FAILED.
// That is so for an MpiComm that was
// - constructed before MPI was initialised or after it was finalised,
// - constructed from MPI_COMM_NULL or an intercommunicator, or by a duplication that failed,
// - used after MPI was finalised.
//
// Failures. The operation that meets a failure logs one ERROR line
//   [ERROR] MpiComm::Gatherv failed on rank 1 of 4 (peer 0, 12 out, 0 in): <MPI's own text>
// "peer -1" means every rank. "out" and "in" count the elements that leave and reach this rank.
// The operation returns
//   STATUS_COMM_FAILED    for any error of MPI, without live MPI, and if the message that Recv
//                         receives has not the length that the caller expects;
//   STATUS_INVALID_VALUE  for arguments that MPI must not see. The rank that passes one refuses
//                         it before it calls MPI: a negative count or displacement (such as an
//                         int that wrapped), a rank outside 0..Size()-1, a negative tag, an
//                         unknown Datatype or ReduceOp, and the in-place marker where it has no
//                         meaning. Arguments that this rank does not read are not checked.
// Null buffers are legal where nothing goes out or comes in. The in-place marker means
// MPI_IN_PLACE. It is legal in Allgather and Allgatherv, in Gatherv on the root, and also in
// Alltoallv and Allreduce, for which Comm does not promise it.
//
// Large messages. MPIs do not carry messages of more than 2 GiB reliably, so one operation
// makes several calls of MPI, each with messages of at most 1 GiB. In Gatherv and Scatterv,
// messages with the tag 32767 move what a piece has beyond that; do not use this tag.
// Allgather, Alltoallv and Allreduce pass their counts to MPI as they are.
//
// After a failed collective. One rank alone may see a failure, of MPI or of a pool between two
// operations. What the other ranks have already sent cannot be called back. What an application
// can do depends on whether the others return from their operation:
// - If small pieces are collected onto one rank and that rank fails, they return: MPI has
//   buffered their pieces. All ranks can go on over a new MpiComm, made from the same MPI
//   communicator. Do not destroy the old one before MPI is finalised: a late message of the
//   failed operation then reaches its old duplicate and never the new one.
// - With large pieces, or where every rank waits for all others (Barrier, Allgather, Allreduce,
//   Allgatherv, Alltoallv, and Bcast from the failing rank), they may stay inside MPI for ever.
//   End the job then (MPI_Abort).
// To avoid the second case, agree on the worst status by Allreduce after every step that can
// fail on one rank alone, and before the next collective.
//
// Threads: MPI_THREAD_FUNNELED is enough if the thread that initialised MPI makes every call,
// also construction and destruction. With MPI_THREAD_SERIALIZED, any one thread at a time may
// call it.
class PAVEX_API MpiComm : public Comm {
 public:
  // Duplicates `comm`. Collective over `comm`.
  explicit MpiComm(MPI_Comm comm);

  // Frees the duplicate, unless MPI has been finalised. Collective.
  ~MpiComm() override;

  // Divides the processes into groups: those with the same `color` get a communicator of their
  // own, in which they are in the order of their `key`, then of their rank here. Returns null
  // on a process with a negative color, which takes no part. The result is an MpiComm and may
  // live longer than this communicator; its destruction is collective over its group.
  //
  // Collective. The processes agree on the result: if the split fails on one of them, every
  // process logs one ERROR line and gets null. If MPI fails on one process alone, the others
  // may wait, as in every collective, and the groups that MPI has made on them are lost: to
  // free one is collective.
  std::shared_ptr<Comm> Split(int color, int key) const;

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
  friend class NodeComm;
  MpiComm() = default;  // not live; SplitInto makes it so

  bool SplitInto(MpiCall const& call, int color, int key, MpiComm* part) const;

  MPI_Comm mComm = MPI_COMM_NULL;  // the duplicate, or made by a split; null: never live
  int mRank = -1;
  int mSize = -1;
};

}  // namespace Pavex
