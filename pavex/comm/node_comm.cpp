#include "pavex/comm/node_comm.h"

#include "pavex/comm/mpi_call.h"
#include "pavex/comm/node_exchange.h"
#include "pavex/comm/node_links.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

namespace Pavex {

namespace {

template <typename V>
V* At(V* array, std::ptrdiff_t elements, Datatype type) {
  using Byte = std::conditional_t<std::is_const_v<V>, unsigned char const, unsigned char>;
  if (array == nullptr) return nullptr;
  return static_cast<Byte*>(array) + elements * static_cast<std::ptrdiff_t>(DatatypeSize(type));
}

std::size_t Bytes(int count, Datatype type) {
  return static_cast<std::size_t>(count) * DatatypeSize(type);
}

// The pieces of an operation that brings every rank's piece to all.
struct PieceTable {
  void* mData;
  Datatype mType;
  int const* mCounts;  // null: mCount each, one behind the other
  int const* mDispls;
  int mCount;

  int Count(int rank) const { return mCounts == nullptr ? mCount : mCounts[rank]; }
  void* Data(int rank) const {
    std::ptrdiff_t const at =
        mCounts == nullptr ? std::ptrdiff_t{rank} * mCount : std::ptrdiff_t{mDispls[rank]};
    return At(mData, at, mType);
  }
};

}  // namespace

// What the processes of a node share, and the operation under way.
struct NodeComm::Shared {
  NodeLinks links;
  NodeExchange exchange{links};
  std::uint64_t sequence = 0;  // of the last collective that this rank has entered

  ~Shared() { links.Leave(); }

  void Begin(NodeOperation operation, int label, NodeCopier copier) {
    exchange.Begin(operation, operation == NodeOperation::MESSAGE ? 0 : sequence, label,
                   copier);
  }
  PavexStatus Run(MpiCall const& call) {
    char const* const failure = exchange.Run();
    return failure == nullptr ? STATUS_OK : call.Fail(STATUS_COMM_FAILED, failure);
  }
  // The second step of an operation whose first one returned `first`: others wait for it in any
  // case, but one failure is one line.
  PavexStatus RunAfter(PavexStatus first, MpiCall const& call) {
    if (first == STATUS_OK) return Run(call);
    exchange.Run();
    return first;
  }

  PavexStatus ShareAll(NodeOperation operation, void const* sendbuf, std::size_t sendbytes,
                       PieceTable const& pieces, MpiCall const& call);
  void TellOwnPiece(PieceTable const& pieces, void const* own);
  void SpreadFarPieces(PieceTable const& pieces, bool complete);
};

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
  int const mine = mShared != nullptr && mShared->exchange.Reserve(mMpi.Size()) ? 1 : 0;
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
  std::shared_ptr<NodeComm> part;
  try {
    part.reset(new NodeComm);
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
  return mMpi.Barrier();
}

PavexStatus NodeComm::Allreduce(void const* sendbuf, void* recvbuf, int count, Datatype type,
                                ReduceOp op) const {
  return mMpi.Allreduce(sendbuf, recvbuf, count, type, op);
}

PavexStatus NodeComm::Send(void const* buf, int count, Datatype type, int dest, int tag) const {
  if (!SharesWith(dest)) return mMpi.Send(buf, count, type, dest, tag);
  MpiCall call("NodeComm::Send", Rank(), Size());
  call.Send(buf, count, type, dest, tag);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  mShared->Begin(NodeOperation::MESSAGE, tag, NodeCopier::SENDER);
  mShared->exchange.Send(dest, buf, count, type);
  return mShared->Run(call);
}

PavexStatus NodeComm::Recv(void* buf, int count, Datatype type, int source, int tag) const {
  if (!SharesWith(source)) return mMpi.Recv(buf, count, type, source, tag);
  MpiCall call("NodeComm::Recv", Rank(), Size());
  call.Recv(buf, count, type, source, tag);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  mShared->Begin(NodeOperation::MESSAGE, tag, NodeCopier::SENDER);
  mShared->exchange.Receive(source, buf, count, type);
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
  ++mShared->sequence;
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  mShared->Begin(NodeOperation::GATHERV, root, NodeCopier::SENDER);
  if (rank != root) {
    mShared->exchange.Send(root, sendbuf, sendcount, sendtype);
    return mShared->Run(call);
  }
  for (int r = 0; r < Size(); ++r) {
    void* const piece = At(recvbuf, displs[r], recvtype);
    if (r != root)
      mShared->exchange.Receive(r, piece, recvcounts[r], recvtype);
    else if (sendbuf != &IN_PLACE_OBJ)
      mShared->exchange.Keep(sendbuf, Bytes(sendcount, sendtype), piece,
                             Bytes(recvcounts[r], recvtype));
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
  ++mShared->sequence;
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  mShared->Begin(NodeOperation::SCATTERV, root, NodeCopier::RECEIVER);
  if (rank != root) {
    mShared->exchange.Receive(root, recvbuf, recvcount, recvtype);
    return mShared->Run(call);
  }
  for (int r = 0; r < Size(); ++r) {
    void const* const piece = At(sendbuf, displs[r], sendtype);
    if (r != root)
      mShared->exchange.Send(r, piece, sendcounts[r], sendtype);
    else
      mShared->exchange.Keep(piece, Bytes(sendcounts[r], sendtype), recvbuf,
                             Bytes(recvcount, recvtype));
  }
  return mShared->Run(call);
}

PavexStatus NodeComm::Alltoallv(void const* sendbuf, int const* sendcounts, int const* sdispls,
                                Datatype sendtype, void* recvbuf, int const* recvcounts,
                                int const* rdispls, Datatype recvtype) const {
  if (UsesMpi())
    return mMpi.Alltoallv(sendbuf, sendcounts, sdispls, sendtype, recvbuf, recvcounts, rdispls,
                          recvtype);
  ++mShared->sequence;
  // In place needs memory of its own, as MPI has it.
  if (sendbuf == &IN_PLACE_OBJ)
    return mMpi.Alltoallv(sendbuf, sendcounts, sdispls, sendtype, recvbuf, recvcounts, rdispls,
                          recvtype);
  MpiCall call("NodeComm::Alltoallv", Rank(), Size());
  call.Alltoallv(sendbuf, sendcounts, sdispls, sendtype, recvbuf, recvcounts, rdispls,
                 recvtype);
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  mShared->Begin(NodeOperation::ALLTOALLV, 0, NodeCopier::SENDER);
  for (int r = 0; r < Size(); ++r) {
    void const* const out = At(sendbuf, sdispls[r], sendtype);
    void* const in = At(recvbuf, rdispls[r], recvtype);
    if (r == Rank()) {
      mShared->exchange.Keep(out, Bytes(sendcounts[r], sendtype), in,
                             Bytes(recvcounts[r], recvtype));
      continue;
    }
    mShared->exchange.Send(r, out, sendcounts[r], sendtype);
    mShared->exchange.Receive(r, in, recvcounts[r], recvtype);
  }
  return mShared->Run(call);
}

PavexStatus NodeComm::Allgather(void const* sendbuf, int sendcount, Datatype sendtype,
                                void* recvbuf, int recvcount, Datatype recvtype) const {
  if (UsesMpi())
    return mMpi.Allgather(sendbuf, sendcount, sendtype, recvbuf, recvcount, recvtype);
  MpiCall call("NodeComm::Allgather", Rank(), Size());
  call.Allgather(sendbuf, sendcount, sendtype, recvbuf, recvcount, recvtype);
  ++mShared->sequence;
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  PieceTable const pieces{recvbuf, recvtype, nullptr, nullptr, recvcount};
  return mShared->ShareAll(NodeOperation::ALLGATHER, sendbuf, Bytes(sendcount, sendtype),
                           pieces, call);
}

PavexStatus NodeComm::Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                 void* recvbuf, int const* recvcounts, int const* displs,
                                 Datatype recvtype) const {
  if (UsesMpi())
    return mMpi.Allgatherv(sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype);
  MpiCall call("NodeComm::Allgatherv", Rank(), Size());
  call.Allgatherv(sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype);
  ++mShared->sequence;
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  PieceTable const pieces{recvbuf, recvtype, recvcounts, displs, 0};
  return mShared->ShareAll(NodeOperation::ALLGATHERV, sendbuf, Bytes(sendcount, sendtype),
                           pieces, call);
}

// Every piece goes to each process that shares memory with its owner, and to one process of
// each other group, which then passes it on to the others there.
PavexStatus NodeComm::Shared::ShareAll(NodeOperation operation, void const* sendbuf,
                                       std::size_t sendbytes, PieceTable const& pieces,
                                       MpiCall const& call) {
  int const rank = links.Rank();
  void* const slot = pieces.Data(rank);
  Begin(operation, 0, NodeCopier::SENDER);
  if (sendbuf == &IN_PLACE_OBJ)
    TellOwnPiece(pieces, slot);
  else {
    exchange.Keep(sendbuf, sendbytes, slot, Bytes(pieces.Count(rank), pieces.mType));
    TellOwnPiece(pieces, sendbuf);
  }
  PavexStatus const status = Run(call);
  if (links.Groups().size() == 1) return status;
  Begin(operation, 0, NodeCopier::SENDER);
  SpreadFarPieces(pieces, status == STATUS_OK);
  return RunAfter(status, call);
}

// Each message is labelled with the owner of its piece.
void NodeComm::Shared::TellOwnPiece(PieceTable const& pieces, void const* own) {
  int const rank = links.Rank();
  int const group = links.To(rank).group;
  for (int r = 0; r < links.Size(); ++r) {
    if (r == rank) continue;
    bool const together = links.Together(r, rank);
    if (together || links.Representative(rank, links.To(r).group) == r) {
      exchange.Label(rank);
      exchange.Send(r, own, pieces.Count(rank), pieces.mType);
    }
    if (together || links.Representative(r, group) == rank) {
      exchange.Label(r);
      exchange.Receive(r, pieces.Data(r), pieces.Count(r), pieces.mType);
    }
  }
}

// `complete`: whether this rank has all the pieces that it passes on.
void NodeComm::Shared::SpreadFarPieces(PieceTable const& pieces, bool complete) {
  int const rank = links.Rank();
  int const group = links.To(rank).group;
  for (int r = 0; r < links.Size(); ++r) {
    if (links.Together(r, rank)) continue;
    int const representative = links.Representative(r, group);
    if (representative != rank) {
      exchange.Label(r);
      exchange.Receive(representative, pieces.Data(r), pieces.Count(r), pieces.mType);
      continue;
    }
    exchange.Label(complete ? r : NodeExchange::kFailed);
    for (int const member : links.Group()) {
      if (member != rank) exchange.Send(member, pieces.Data(r), pieces.Count(r), pieces.mType);
    }
  }
}

// From the root to the processes that share memory with it and to the lowest rank of each other
// group, then within those.
PavexStatus NodeComm::Bcast(void* buf, int count, Datatype type, int root) const {
  if (UsesMpi()) return mMpi.Bcast(buf, count, type, root);
  MpiCall call("NodeComm::Bcast", Rank(), Size());
  call.Bcast(buf, count, type, root);
  ++mShared->sequence;
  if (PavexStatus status = call.Ready(); status != STATUS_OK) return status;
  NodeLinks& links = mShared->links;
  NodeExchange& exchange = mShared->exchange;
  int const rank = Rank();
  int const group = links.To(rank).group;
  bool const near = links.Together(rank, root);

  mShared->Begin(NodeOperation::BCAST, root, NodeCopier::RECEIVER);
  if (rank == root) {
    for (int r = 0; r < Size(); ++r) {
      bool const direct = links.Together(r, root) || links.To(r).group == r;
      if (r != root && direct) exchange.Send(r, buf, count, type);
    }
  } else if (near || rank == group) {
    exchange.Receive(root, buf, count, type);
  }
  PavexStatus const status = mShared->Run(call);
  if (near) return status;

  mShared->Begin(NodeOperation::BCAST, status == STATUS_OK ? root : NodeExchange::kFailed,
                 NodeCopier::RECEIVER);
  if (rank != group) exchange.Receive(group, buf, count, type);
  for (int const member : links.Group()) {
    if (rank == group && member != rank) exchange.Send(member, buf, count, type);
  }
  return mShared->RunAfter(status, call);
}

}  // namespace Pavex
