// A communicator between threads: the ranks of a job in one process.

#pragma once

#include "pavex/runtime/comm.h"

#include <functional>
#include <memory>

namespace Pavex {

class LocalGroup;

// One rank of a group of n ranks in one process, one thread each. It needs only the standard
// library. Use it to try the library, for unit tests, and for programs on one machine. Data is
// copied once, from the sender's memory to the receiver's; small pieces that every rank
// receives are copied twice. A few ranks share the copying of a large operation with large
// pieces. Dense pieces go from the caller's arrays to their final place in the same way,
// without packing. There may be many more ranks than processors: the cost of a small operation
// per rank hardly depends on their number. It logs nothing, except a failed Split.
//
// What may be shared between ranks, and what must live how long:
//
//   thing                          shared between ranks          must live until
//   -----------------------------  ----------------------------  -----------------------------
//   the group itself               yes, by the library           kept by every LocalComm
//   a rank's LocalComm             no: used by its rank alone    Run returns, or as long as its
//                                                                shared_ptr is held
//   MemoryPool, Buffer, matrices,  no: each rank has its own     what their headers say
//   Aggregator
//   send buffer, counts,           yes: they are only read       the operation returns on the
//   displacements and runs                                       rank that passed them
//   receive buffer                 no, nor may it overlap a      the operation returns on the
//                                  buffer of another rank in     rank that passed it
//                                  the same operation
//   what `body` refers to          as the caller arranges it     Run returns
//
// No rank touches another's buffers once the other's call has returned.
//
// Matching. Send meets the Recv of its destination with the same tag and returns when the data
// has been taken over. There is no buffering, so a rank cannot send to itself. A collective
// meets when every rank is in the same one with the same root. Collectives also work with one
// rank, except those that move runs, and all operations with zero counts, which need no
// buffers. If regions of a receive buffer overlap, the piece of the higher rank wins; runs must
// not overlap.
//
// Failing. Every failure is STATUS_COMM_FAILED:
//   - a rank or root outside 0 .. Size() - 1: at once, on this rank alone;
//   - operations that meet but disagree (count, length of runs, type, reduction) or are wrong
//     on some rank (negative count, any negative number in runs, negative displacement of a
//     piece that is not empty, unknown type, null buffer, in-place marker where it is not
//     legal): on every rank that takes part; no data is moved;
//   - no memory for the plan of the copies: on every rank that takes part;
//   - operations that can never meet. A rank that runs outside an operation may still do
//     anything. A rank in Send or Recv can go on if its partner can; the ranks in one
//     collective can go on if all the others can. A rank that waits and cannot go on by these
//     rules fails at once and runs on. The reason is a rank that has returned or thrown, or
//     that itself waits for ever in another operation, root or tag. So waiting ranks are never
//     stuck as long as the running ones end.
// A failure leaves no trace in the group: later operations work as if the failed ones had not
// been called. Ranks that have fallen out of step meet, or fail, by the same rules.
class PAVEX_API LocalComm final : public Comm {
 public:
  // What each rank runs; the argument is the rank's own communicator. A function that takes a
  // std::shared_ptr<Comm> const& will do as well.
  using Body = std::function<void(std::shared_ptr<LocalComm> const& comm)>;

  // Runs `body` on `ranks` ranks at the same time, rank 0 on the calling thread and every other
  // rank on a new thread. Returns when all have returned. A rank that throws counts as
  // returned; the exception of the lowest such rank is thrown again when all ranks have ended.
  // Throws std::invalid_argument if `ranks` < 1 or `body` is empty, and std::system_error if a
  // thread cannot be started (the ranks that were started see the others as returned). A
  // communicator kept beyond its rank's return still knows Rank and Size and fails every other
  // operation.
  static void Run(int ranks, Body const& body);

  ~LocalComm() override;

  // Divides the ranks into groups: those with the same `color` get a communicator of their own,
  // in which they are in the order of their `key`, then of their rank here. Returns null on a
  // rank with a negative color, which takes no part. The result is a LocalComm, works in the
  // same way, and may live longer than this communicator. Ranks that wait for each other in
  // different groups fail as they do in one.
  //
  // Collective. If it fails, every rank that has called it logs one ERROR line and gets null.
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
  [[nodiscard]] PavexStatus Allreduce(void const* sendbuf, void* recvbuf, int count,
                                      Datatype type, ReduceOp op) const override;
  [[nodiscard]] PavexStatus Bcast(void* buf, int count, Datatype type, int root) const override;

  // True unless there is one rank only, which has nothing to move. GatherRuns and ScatterRuns
  // then return STATUS_NOT_SUPPORTED.
  bool Strided() const override;
  [[nodiscard]] PavexStatus GatherRuns(void const* sendbuf, Runs const& sent, void* recvbuf,
                                       Runs const* received, Datatype type,
                                       int root) const override;
  [[nodiscard]] PavexStatus ScatterRuns(void const* sendbuf, Runs const* sent, void* recvbuf,
                                        Runs const& received, Datatype type,
                                        int root) const override;

 private:
  LocalComm(std::shared_ptr<LocalGroup> group, int rank);

  std::shared_ptr<LocalGroup> mGroup;
  int mRank;
};

}  // namespace Pavex
