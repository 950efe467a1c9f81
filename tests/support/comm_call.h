// One call of a communicator operation as a value.

#pragma once

#include "pavex/runtime/comm.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace Pavex {

enum class CommOp {
  RANK,
  SIZE,
  BARRIER,
  SEND,
  RECV,
  GATHERV,
  SCATTERV,
  ALLTOALLV,
  ALLGATHER,
  ALLGATHERV,
  ALLREDUCE,
  BCAST
};

// The arguments of a call. Arguments that the operation does not have keep their defaults.
// Arrays of counts and displacements are kept as the pointers that were passed and as copies. A
// copy is filled only if the operation reads the array on the calling rank.
struct CommCall {
  CommOp op = CommOp::RANK;
  void const* sendbuf = nullptr;
  int sendcount = 0;
  int const* sendcounts = nullptr;
  int const* senddispls = nullptr;
  Datatype sendtype = DATATYPE_BYTE;
  void* recvbuf = nullptr;  // for Bcast: its one buffer
  int recvcount = 0;        // for Bcast and Allreduce: their one count
  int const* recvcounts = nullptr;
  int const* recvdispls = nullptr;
  Datatype recvtype = DATATYPE_BYTE;  // for Bcast and Allreduce: their one type
  ReduceOp reduce = REDUCE_SUM;
  int peer = 0;  // destination, source or root
  int tag = 0;

  std::vector<int> sendcountsRead;
  std::vector<int> senddisplsRead;
  std::vector<int> recvcountsRead;
  std::vector<int> recvdisplsRead;

  // What the call returned; for Rank and Size their result.
  PavexStatus result = STATUS_OK;

  bool InPlace() const { return sendbuf == &Comm::IN_PLACE_OBJ; }
};

// The call with its arguments, without buffer addresses and result:
//   Rank()
//   Send(3 double to 1 tag 50)
//   Recv(3 double from 0 tag 50)
//   Allgather(in place 0 byte; 72 byte)
//   Gatherv(3 int; {3, 4} at {0, 3} int; root 0)     on the root
//   Gatherv(4 int; int; root 0)                      elsewhere
//   Scatterv({3, 4} at {0, 3} int; 3 int; root 0)
//   Bcast(7 long; root 0)
std::string Text(CommCall const& call);
std::ostream& operator<<(std::ostream& stream, CommCall const& call);

// Makes the call on `comm`.
PavexStatus Forward(CommCall const& call, Comm const& comm);

// A communicator whose operations all end in one function.
class CallComm : public Comm {
 public:
  int Rank() const override;
  int Size() const override;
  PavexStatus Barrier() const override;
  PavexStatus Send(void const* buf, int count, Datatype type, int dest, int tag) const override;
  PavexStatus Recv(void* buf, int count, Datatype type, int source, int tag) const override;
  PavexStatus Gatherv(void const* sendbuf, int sendcount, Datatype sendtype, void* recvbuf,
                      int const* recvcounts, int const* displs, Datatype recvtype,
                      int root) const override;
  PavexStatus Scatterv(void const* sendbuf, int const* sendcounts, int const* displs,
                       Datatype sendtype, void* recvbuf, int recvcount, Datatype recvtype,
                       int root) const override;
  PavexStatus Alltoallv(void const* sendbuf, int const* sendcounts, int const* sdispls,
                        Datatype sendtype, void* recvbuf, int const* recvcounts,
                        int const* rdispls, Datatype recvtype) const override;
  PavexStatus Allgather(void const* sendbuf, int sendcount, Datatype sendtype, void* recvbuf,
                        int recvcount, Datatype recvtype) const override;
  PavexStatus Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype, void* recvbuf,
                         int const* recvcounts, int const* displs,
                         Datatype recvtype) const override;
  PavexStatus Allreduce(void const* sendbuf, void* recvbuf, int count, Datatype type,
                        ReduceOp op) const override;
  PavexStatus Bcast(void* buf, int count, Datatype type, int root) const override;

 protected:
  CallComm(int rank, int size) : mRank(rank), mSize(size) {}

  // Carries out the call; returns its status, or the result of Rank and Size.
  virtual PavexStatus Handle(CommCall& call) const = 0;

  int const mRank;
  int const mSize;

 private:
  std::vector<int> Copy(int const* entries) const;
  void CopyCounts(CommCall& call) const;
};

}  // namespace Pavex
