// What every operation of MpiComm does around its MPI call: check the arguments that this rank
// reads, translate element types and markers, and log the one line of a failure. Not installed.

#pragma once

#include "pavex/comm/mpi_comm.h"

namespace Pavex {

// The MPI type with exactly the size and meaning of `type`; MPI_DATATYPE_NULL for a value
// outside the enumeration.
MPI_Datatype MpiType(Datatype type) noexcept;

// One operation on its way. Describe it first (To, Out, In: the first bad argument is kept),
// then ask Ready before MPI is called and hand MPI's return code to Done:
//
//   MpiCall call("MpiComm::Bcast", Rank(), Size());
//   call.Bcast(buf, count, type, root);
//   if (PavexStatus status = call.Ready(); status != STATUS_OK)
//     return status;
//   return call.Done(MPI_Bcast(buf, count, MpiType(type), root, mComm));
class MpiCall {
 public:
  // `operation` as it is to be logged. A negative `rank` means no live MPI and refuses the
  // call.
  MpiCall(char const* operation, int rank, int size);

  // The operations of Comm, with the arguments that they are given.
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

  // The other side is rank `peer`; without this call it is every rank. Only a rank of the
  // communicator will do: MPI takes some negative numbers for "no process" or "any process".
  void To(int peer);

  // A tag of a message; MPI keeps the negative ones for itself.
  void Tag(int tag);

  // `count` elements leave this rank, or counts[r] at displs[r] for each rank r.
  void Out(int count, Datatype type);
  void Out(int const* counts, int const* displs, Datatype type);

  // The same for elements that arrive; `count` from each of `senders` ranks.
  void In(int count, Datatype type, int senders = 1);
  void In(int const* counts, int const* displs, Datatype type);

  // `sendbuf` must not be the in-place marker.
  void NotInPlace(void const* buf);

  // Keeps `status` and the reason, printf-like, unless an earlier argument was bad already.
  __attribute__((format(printf, 3, 4))) void Refuse(PavexStatus status, char const* format,
                                                    ...);

  // STATUS_OK if every argument can be given to MPI; else the line of the first bad one and its
  // status.
  PavexStatus Ready() const;

  // The send buffer as MPI wants it: MPI_IN_PLACE for the marker, a valid address for a null
  // buffer that nothing is read from (some MPIs take two null buffers for overlapping ones).
  void const* SendBuffer(void const* sendbuf) const;

  // The status of MPI's return code; a failure's line carries MPI's own text.
  PavexStatus Done(int code) const;

  // The line of a failure, and its status.
  PavexStatus Fail(PavexStatus status, char const* reason) const;

 private:
  long Sum(int const* counts, int const* displs);
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
