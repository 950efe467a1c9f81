// A communicator with the processes of another one in another order.

#pragma once

#include "pavex/runtime/buffer.h"
#include "pavex/runtime/comm.h"
#include "pavex/runtime/memory_pool.h"

#include <memory>

namespace Pavex {

// Makes any rank of `inner` the rank 0 of an Aggregator, which receives there, and lets the
// receivers place the pieces in an order of their own. Ranks of this communicator are called
// seats: rank `receiver` of `inner` has seat 0, and the others follow by rank. Example,
// receiver 2 of 4: ranks 2 0 1 3 have the seats 0 1 2 3.
//
// Gatherv and Allgatherv put the pieces one behind the other in the order of `order`, whatever
// the displacements of the caller. So the caller's pieces must fill the receive buffer without
// a gap, as those of sparse matrices do. Example, order 0 1 2 3: rank 0's piece comes first,
// although seat 0 belongs to rank 2.
//
// An Aggregator uses it for compressed rows that all processes have. The library makes no other
// calls on it: Send, Recv, Scatterv, Bcast, GatherRuns and ScatterRuns return
// STATUS_NOT_SUPPORTED. Over an inner communicator that moves runs, the Aggregator sends
// offsets, which count the entries of the seats before.
class RenumberedComm final : public Comm {
 public:
  // `receiver`: a rank of `inner`, or kEverybody, which keeps the numbers. `order` has all
  // ranks of `inner` once and outlives this.
  RenumberedComm(std::shared_ptr<Comm> inner, int receiver, Buffer<int> const& order)
      : mInner(std::move(inner)), mFirst(receiver < 0 ? 0 : receiver), mOrder(order) {}

  // Takes the room for counts. Call it once, before any other operation.
  [[nodiscard]] PavexStatus Prepare(MemoryPool& pool);

  // The seat of a rank of the inner communicator, and the rank of a seat.
  int SeatOf(int rank) const { return SeatOf(rank, mFirst); }
  int RankOf(int seat) const { return seat > mFirst ? seat : seat == 0 ? mFirst : seat - 1; }

  int Rank() const override { return SeatOf(mInner->Rank()); }
  int Size() const override { return mInner->Size(); }
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
  [[nodiscard]] PavexStatus Allgather(void const* sendbuf, int sendcount, Datatype sendtype,
                                      void* recvbuf, int recvcount,
                                      Datatype recvtype) const override;
  [[nodiscard]] PavexStatus Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                       void* recvbuf, int const* recvcounts, int const* displs,
                                       Datatype recvtype) const override;
  [[nodiscard]] PavexStatus Bcast(void* buf, int count, Datatype type, int root) const override;
  bool Strided() const override { return mInner->Strided(); }

  // The seat of a rank if `receiver`, a rank or kEverybody, receives.
  static int SeatOf(int rank, int receiver) {
    int const first = receiver < 0 ? 0 : receiver;
    return rank > first ? rank : rank == first ? 0 : rank + 1;
  }

 private:
  void Place(int const* countsBySeat) const;

  std::shared_ptr<Comm> const mInner;
  int const mFirst;             // the rank with seat 0
  Buffer<int> const& mOrder;    // ranks, in the order of their pieces
  Buffer<int> mutable mCounts;  // of the running operation, by rank
  Buffer<int> mutable mDispls;  // of the running operation, by rank
};

}  // namespace Pavex
