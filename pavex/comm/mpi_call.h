// What every operation of MpiComm does around its MPI call: check the arguments that this rank
// reads, translate element types and markers, and log the one line of a failure. Not installed.

#pragma once

#include "pavex/comm/mpi_comm.h"

namespace Pavex {

// The MPI type with exactly the size and meaning of `type`; MPI_DATATYPE_NULL for a value
// outside the enumeration.
MPI_Datatype MpiType(Datatype type) noexcept;

// One operation of MpiComm. Use it in three steps: describe the operation, which keeps the
// first bad argument; ask Ready before you call MPI; pass MPI's return code to Done:
//
//   MpiCall call("MpiComm::Bcast", Rank(), Size());
//   call.Bcast(buf, count, type, root);
//   if (PavexStatus status = call.Ready(); status != STATUS_OK)
//     return status;
//   return call.Done(MPI_Bcast(buf, count, MpiType(type), root, mComm));
class MpiCall {
 public:
  // `operation` is its name in the log. A negative `rank` means that MPI is not live; the call
  // is then refused.
  MpiCall(char const* operation, int rank, int size);

  // Each describes the operation of Comm of that name, with the arguments of its caller.
  void Send(void const* buf, int count, Datatype type, int dest, int tag);
  void Recv(void const* buf, int count, Datatype type, int source, int tag);
  void Gatherv(void const* sendbuf, int sendcount, Datatype sendtype, void const* recvbuf,
               int const* recvcounts, int const* displs, Datatype recvtype, int root);
  void Scatterv(void const* sendbuf, int const* sendcounts, int const* displs,
                Datatype sendtype, void const* recvbuf, int recvcount, Datatype recvtype,
                int root);
  void Alltoallv(void const* sendbuf, int const* sendcounts, int const* sdispls,
                 Datatype sendtype, void const* recvbuf, int const* recvcounts,
                 int const* rdispls, Datatype recvtype);
  void Allgather(void const* sendbuf, int sendcount, Datatype sendtype, void const* recvbuf,
                 int recvcount, Datatype recvtype);
  void Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype, void const* recvbuf,
                  int const* recvcounts, int const* displs, Datatype recvtype);
  void Bcast(void const* buf, int count, Datatype type, int root);
  void GatherRuns(void const* sendbuf, Runs const& sent, void const* recvbuf,
                  Runs const* received, Datatype type, int root);
  void ScatterRuns(void const* sendbuf, Runs const* sent, void const* recvbuf,
                   Runs const& received, Datatype type, int root);

  // Says that the other side is rank `peer`; without this call it is every rank. Refuses a rank
  // outside the communicator, because MPI reads some negative numbers as "no process" or "any
  // process".
  void To(int peer);

  // Refuses a negative tag of a message: MPI reserves those.
  void Tag(int tag);

  // Says that `count` elements leave this rank, or counts[r] at displs[r] for each rank r.
  void Out(int count, Datatype type);
  void Out(int const* counts, int const* displs, Datatype type);

  // Says that `count` elements arrive from each of `senders` ranks, or counts[r] at displs[r]
  // from each rank r.
  void In(int count, Datatype type, int senders = 1);
  void In(int const* counts, int const* displs, Datatype type);

  // The elements of all `ranks` entries.
  void Out(Runs const* runs, int ranks, Datatype type);
  void In(Runs const* runs, int ranks, Datatype type);

  // Refuses the in-place marker as `buf`.
  void NotInPlace(void const* buf);

  // Refuses the call with `status` and a reason in printf format. The first refusal is kept.
  __attribute__((format(printf, 3, 4))) void Refuse(PavexStatus status, char const* format,
                                                    ...);

  // Returns STATUS_OK if every argument can be given to MPI. Otherwise logs the line of the
  // first bad argument and returns its status.
  PavexStatus Ready() const;

  // The send buffer as MPI expects it: MPI_IN_PLACE for the marker, and a valid address for a
  // null buffer that nothing is read from, because some MPIs report two null buffers as
  // overlapping.
  void const* SendBuffer(void const* sendbuf) const;

  // Returns the status of MPI's return code `code`. Logs a failure with MPI's own text.
  PavexStatus Done(int code) const;

  // Logs the line of a failure and returns `status`.
  PavexStatus Fail(PavexStatus status, char const* reason) const;

 private:
  long Sum(int const* counts, int const* displs);
  long Sum(Runs const* runs, int ranks);
  void CheckType(Datatype type);

  char const* mOperation;
  int mRank;
  int mSize;
  int mPeer = -1;
  long mOut = 0;
  long mIn = 0;
  PavexStatus mStatus = STATUS_OK;
  char mReason[96];  // written when mStatus is not STATUS_OK
};

}  // namespace Pavex
