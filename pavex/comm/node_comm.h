// The communicator of a parallel job whose processes on one node share memory.

#pragma once

#include "pavex/comm/mpi_comm.h"
#include "pavex/runtime/comm.h"

#include <memory>

namespace Pavex {

class NodeExchange;
class NodeLinks;

// An MpiComm for whatever leaves the node. Between the processes of a node, data that lies in
// blocks of a NodePool is copied once: every process stores its piece at its final place in the
// receiver's memory, all cores at once. Construction and destruction are collective over the
// given communicator, like every operation but Rank, Size, Send and Recv.
//
//   auto comm = std::make_shared<Pavex::NodeComm>(MPI_COMM_WORLD);
//   Pavex::NodePool pool;
//   Pavex::Aggregator<double, int> aggregator(&pool);
//
// Communicator and pool need not know each other, and either may be destroyed first. Which way
// a message goes is decided for each one:
//   - up to 4 KiB go through a buffer that both processes map; the sender goes on;
//   - larger ones are stored by the sender where the receiver's block is shared, read by the
//     receiver where only the sender's is, and go over MPI where neither is;
//   - messages between nodes, to oneself, Barrier and Allreduce go over MPI.
// The pieces of dense matrices are moved in the same ways, from the arrays of the caller to
// their final place and back; over MPI by derived datatypes. What goes over MPI has at most 1
// GiB to a message.
//
// An array of 4 MiB and more that all processes receive is kept once on a node: see NodePool.
//
// Where the processes of a node cannot map each other's memory (one process on the node, no
// memory files, limits on file size or address space, /proc not permitted), all of them agree
// when the communicator is made to use MPI alone. Processes in different PID or network
// namespaces count as on different nodes.
//
// Failures are those of MpiComm, in lines that begin with "NodeComm::". On a node, nothing is
// stored unless sender and receiver agree on operation, root and size: where they do not, both
// get STATUS_COMM_FAILED (of a small message the receiver alone). Ranks that all wait for each
// other to send, or to receive, wait for ever, as over MPI. A process that fails alone leaves
// the others waiting as it would over MPI, until it enters another collective operation or the
// destructor: those of its node that wait for it in a collective over shared memory then get
// STATUS_COMM_FAILED. Send and Recv do not count as such. A process that has no bytes for one
// that expects some is noticed in the same way, in Allgather and Allgatherv at once; a small
// message that is not expected is dropped. Between nodes the receiver alone fails where sizes
// differ; if one side takes a message for more parts of 1 GiB than the other side, it waits for
// ever. A process of the node that ends is STATUS_COMM_FAILED for those that wait in an
// operation over shared memory. No operation needs memory of the heap.
//
// A sender waits once 8 of its messages to a rank have not been received, also if they are
// small.
//
// Peers can write into this process's shared blocks: all processes of a job trust each other.
// Threads: as MpiComm.
class PAVEX_API NodeComm : public Comm {
 public:
  // Duplicates `comm`. Collective over `comm`.
  explicit NodeComm(MPI_Comm comm);

  // The same with at most `largest` processes of neighbouring ranks that share memory, as if
  // the node were several: for tests, and where memory has several domains. Collective.
  NodeComm(MPI_Comm comm, int largest);

  // Collective. Does nothing if MPI has been finalised meanwhile.
  ~NodeComm() override;

  // Whether this process shares memory with another one of the communicator. Local.
  bool Active() const;

  // As MpiComm::Split, but the result is a NodeComm, with the same `largest`.
  std::shared_ptr<Comm> Split(int color, int key) const;

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
  // True if any two processes share memory.
  bool Strided() const override;
  PavexStatus GatherRuns(void const* sendbuf, Runs const& sent, void* recvbuf,
                         Runs const* received, Datatype type, int root) const override;
  PavexStatus ScatterRuns(void const* sendbuf, Runs const* sent, void* recvbuf,
                          Runs const& received, Datatype type, int root) const override;

 private:
  struct Shared;

  NodeComm();  // not live; Split makes it so
  void Join(MPI_Comm comm);

  bool UsesMpi() const;
  bool SharesWith(int rank) const;

  MpiComm mMpi;
  int mLargest = 0;
  std::unique_ptr<Shared> mShared;  // null: MPI alone
};

}  // namespace Pavex
