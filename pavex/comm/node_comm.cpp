#include "pavex/comm/node_comm.h"

#include "pavex/comm/mpi_call.h"
#include "pavex/comm/node_shared.h"

#include <climits>
#include <new>

namespace Pavex {

namespace {

// `count` elements from element `displ` of an array on.
NodeRegion Piece(void const* array, long displ, int count, Datatype type) {
  return NodeRegion::Of(array, Runs{displ, count, 1, count}, type);
}

}  // namespace

NodeComm::NodeComm(MPI_Comm comm) : NodeComm(comm, INT_MAX) {}

NodeComm::NodeComm(MPI_Comm comm, int largest) : mMpi(comm), mLargest(largest) {
  Join(comm);
}

NodeComm::NodeComm() = default;

// Shares memory with the processes of `comm` on this node, if it can.
void NodeComm::Join(MPI_Comm comm) {
  if (mMpi.Size() < 2) return;
  mShared.reset(new (std::nothrow) Shared);
  // Without memory on one rank, all of them use MPI.
  int const mine = mShared != nullptr && mShared->Reserve(mMpi.Size()) ? 1 : 0;
  int all = 0;
  PavexStatus status = mMpi.Allreduce(&mine, &all, 1, DATATYPE_INT, REDUCE_MIN);
  if (status == STATUS_OK && all != 0) {
    MpiCall const call("NodeComm", mMpi.Rank(), mMpi.Size());
    status = call.Done(mShared->links.Join(comm, mLargest));
  }
  if (status != STATUS_OK || all == 0 || !mShared->links.AnyShared()) mShared.reset();
}

std::shared_ptr<Comm> NodeComm::Split(int color, int key) const {
  MpiCall const call("NodeComm::Split", Rank(), Size());
  if (!UsesMpi()) mShared->EnterOverMpi();
  std::shared_ptr<NodeComm> part;
  try {
    if (color >= 0) part.reset(new NodeComm);
  } catch (std::bad_alloc const&) {
    part.reset();
  }
  if (!mMpi.SplitInto(call, color, key, part == nullptr ? nullptr : &part->mMpi))
    return nullptr;
  part->mLargest = mLargest;
  part->Join(part->mMpi.mComm);
  return part;
}

NodeComm::~NodeComm() = default;

bool NodeComm::Active() const {
  return mShared != nullptr && mShared->links.Shares();
}

int NodeComm::Rank() const {
  return mMpi.Rank();
}

int NodeComm::Size() const {
  return mMpi.Size();
}

// Also after MPI has been finalised: its communicator says so.
bool NodeComm::UsesMpi() const {
  return mShared == nullptr || mMpi.Rank() < 0;
}

PavexStatus NodeComm::Barrier() const {
  if (!UsesMpi()) mShared->EnterOverMpi();
  return mMpi.Barrier();
}

PavexStatus NodeComm::Allreduce(void const* sendbuf, void* recvbuf, int count, Datatype type,
                                ReduceOp op) const {
  if (!UsesMpi()) mShared->EnterOverMpi();
  return mMpi.Allreduce(sendbuf, recvbuf, count, type, op);
}

PavexStatus NodeComm::Send(void const* buf, int count, Datatype type, int dest, int tag) const {
  if (!SharesWith(dest)) return mMpi.Send(buf, count, type, dest, tag);
  MpiCall call("NodeComm::Send", Rank(), Size());
  call.Send(buf, count, type, dest, tag);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  mShared->Begin(NodeOperation::MESSAGE, tag, NodeCopier::SENDER);
  mShared->exchange.Send(dest, Piece(buf, 0, count, type), type);
  return mShared->Run(call);
}

PavexStatus NodeComm::Recv(void* buf, int count, Datatype type, int source, int tag) const {
  if (!SharesWith(source)) return mMpi.Recv(buf, count, type, source, tag);
  MpiCall call("NodeComm::Recv", Rank(), Size());
  call.Recv(buf, count, type, source, tag);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  mShared->Begin(NodeOperation::MESSAGE, tag, NodeCopier::SENDER);
  mShared->exchange.Receive(source, Piece(buf, 0, count, type), type);
  return mShared->Run(call);
}

// Whether messages to and from `rank` use shared memory; not those to this rank itself.
bool NodeComm::SharesWith(int rank) const {
  if (UsesMpi() || rank < 0 || rank >= Size()) return false;
  return mShared->links.To(rank).peer != nullptr;
}

PavexStatus NodeComm::Gatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                              void* recvbuf, int const* recvcounts, int const* displs,
                              Datatype recvtype, int root) const {
  if (UsesMpi())
    return mMpi.Gatherv(sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype,
                        root);
  int const rank = Rank();
  MpiCall call("NodeComm::Gatherv", rank, Size());
  call.Gatherv(sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype, root);
  if (PavexStatus status = mShared->Enter(NodeOperation::GATHERV, root, call);
      status != STATUS_OK)
    return status;
  mShared->Begin(NodeOperation::GATHERV, root, NodeCopier::SENDER);
  if (rank != root) {
    mShared->exchange.Send(root, Piece(sendbuf, 0, sendcount, sendtype), sendtype);
    return mShared->Run(call);
  }
  for (int r = 0; r < Size(); ++r) {
    NodeRegion const piece = Piece(recvbuf, displs[r], recvcounts[r], recvtype);
    if (r != root)
      mShared->exchange.Receive(r, piece, recvtype);
    else if (sendbuf != &IN_PLACE_OBJ)
      mShared->exchange.Keep(Piece(sendbuf, 0, sendcount, sendtype), piece);
  }
  return mShared->Run(call);
}

PavexStatus NodeComm::Scatterv(void const* sendbuf, int const* sendcounts, int const* displs,
                               Datatype sendtype, void* recvbuf, int recvcount,
                               Datatype recvtype, int root) const {
  if (UsesMpi())
    return mMpi.Scatterv(sendbuf, sendcounts, displs, sendtype, recvbuf, recvcount, recvtype,
                         root);
  int const rank = Rank();
  MpiCall call("NodeComm::Scatterv", rank, Size());
  call.Scatterv(sendbuf, sendcounts, displs, sendtype, recvbuf, recvcount, recvtype, root);
  if (PavexStatus status = mShared->Enter(NodeOperation::SCATTERV, root, call);
      status != STATUS_OK)
    return status;
  mShared->Begin(NodeOperation::SCATTERV, root, NodeCopier::RECEIVER);
  if (rank != root) {
    mShared->exchange.Receive(root, Piece(recvbuf, 0, recvcount, recvtype), recvtype);
    return mShared->Run(call);
  }
  for (int r = 0; r < Size(); ++r) {
    NodeRegion const piece = Piece(sendbuf, displs[r], sendcounts[r], sendtype);
    if (r != root)
      mShared->exchange.Send(r, piece, sendtype);
    else
      mShared->exchange.Keep(piece, Piece(recvbuf, 0, recvcount, recvtype));
  }
  return mShared->Run(call);
}

PavexStatus NodeComm::Alltoallv(void const* sendbuf, int const* sendcounts, int const* sdispls,
                                Datatype sendtype, void* recvbuf, int const* recvcounts,
                                int const* rdispls, Datatype recvtype) const {
  if (UsesMpi())
    return mMpi.Alltoallv(sendbuf, sendcounts, sdispls, sendtype, recvbuf, recvcounts, rdispls,
                          recvtype);
  // In place needs memory of its own, as MPI has it.
  if (sendbuf == &IN_PLACE_OBJ) {
    mShared->EnterOverMpi();
    return mMpi.Alltoallv(sendbuf, sendcounts, sdispls, sendtype, recvbuf, recvcounts, rdispls,
                          recvtype);
  }
  MpiCall call("NodeComm::Alltoallv", Rank(), Size());
  call.Alltoallv(sendbuf, sendcounts, sdispls, sendtype, recvbuf, recvcounts, rdispls,
                 recvtype);
  if (PavexStatus status = mShared->Enter(NodeOperation::ALLTOALLV, 0, call);
      status != STATUS_OK)
    return status;
  mShared->Begin(NodeOperation::ALLTOALLV, 0, NodeCopier::SENDER);
  for (int r = 0; r < Size(); ++r) {
    NodeRegion const out = Piece(sendbuf, sdispls[r], sendcounts[r], sendtype);
    NodeRegion const in = Piece(recvbuf, rdispls[r], recvcounts[r], recvtype);
    if (r == Rank()) {
      mShared->exchange.Keep(out, in);
      continue;
    }
    mShared->exchange.Send(r, out, sendtype);
    mShared->exchange.Receive(r, in, recvtype);
  }
  return mShared->Run(call);
}

PavexStatus NodeComm::Allgather(void const* sendbuf, int sendcount, Datatype sendtype,
                                void* recvbuf, int recvcount, Datatype recvtype) const {
  if (UsesMpi())
    return mMpi.Allgather(sendbuf, sendcount, sendtype, recvbuf, recvcount, recvtype);
  MpiCall call("NodeComm::Allgather", Rank(), Size());
  call.Allgather(sendbuf, sendcount, sendtype, recvbuf, recvcount, recvtype);
  if (PavexStatus status = mShared->Enter(NodeOperation::ALLGATHER, 0, call);
      status != STATUS_OK)
    return status;
  NodeRegion const own = Piece(sendbuf, 0, sendcount, sendtype);
  bool const inPlace = sendbuf == &IN_PLACE_OBJ;
  return mShared->ShareAll(NodeOperation::ALLGATHER, inPlace ? nullptr : &own,
                           {recvbuf, recvtype, nullptr, nullptr, nullptr, recvcount}, call);
}

PavexStatus NodeComm::Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                 void* recvbuf, int const* recvcounts, int const* displs,
                                 Datatype recvtype) const {
  if (UsesMpi())
    return mMpi.Allgatherv(sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype);
  MpiCall call("NodeComm::Allgatherv", Rank(), Size());
  call.Allgatherv(sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype);
  if (PavexStatus status = mShared->Enter(NodeOperation::ALLGATHERV, 0, call);
      status != STATUS_OK)
    return status;
  NodeRegion const own = Piece(sendbuf, 0, sendcount, sendtype);
  bool const inPlace = sendbuf == &IN_PLACE_OBJ;
  return mShared->ShareAll(NodeOperation::ALLGATHERV, inPlace ? nullptr : &own,
                           {recvbuf, recvtype, nullptr, recvcounts, displs, 0}, call);
}

// From the root to the processes that share memory with it and to the lowest rank of each other
// group, then within those.
PavexStatus NodeComm::Bcast(void* buf, int count, Datatype type, int root) const {
  if (UsesMpi()) return mMpi.Bcast(buf, count, type, root);
  MpiCall call("NodeComm::Bcast", Rank(), Size());
  call.Bcast(buf, count, type, root);
  if (PavexStatus status = mShared->Enter(NodeOperation::BCAST, root, call);
      status != STATUS_OK)
    return status;
  NodeLinks& links = mShared->links;
  NodeExchange& exchange = mShared->exchange;
  int const rank = Rank();
  int const group = links.To(rank).group;
  NodeRegion const data = Piece(buf, 0, count, type);
  bool const near = links.Together(rank, root);

  mShared->Begin(NodeOperation::BCAST, root, NodeCopier::RECEIVER);
  if (rank == root) {
    for (int r = 0; r < Size(); ++r) {
      bool const direct = links.Together(r, root) || links.To(r).group == r;
      if (r != root && direct) exchange.Send(r, data, type);
    }
  } else if (near || rank == group) {
    exchange.Receive(root, data, type);
  }
  PavexStatus const status = mShared->Run(call);
  if (near) return status;

  mShared->Begin(NodeOperation::BCAST, status == STATUS_OK ? root : NodeExchange::kFailed,
                 NodeCopier::RECEIVER);
  if (rank != group) exchange.Receive(group, data, type);
  for (int const member : links.Group()) {
    if (rank == group && member != rank) exchange.Send(member, data, type);
  }
  return mShared->RunAfter(status, call);
}

}  // namespace Pavex
