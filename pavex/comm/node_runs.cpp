// The operations of NodeComm that move runs.

#include "pavex/comm/mpi_call.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_shared.h"

namespace Pavex {

bool NodeComm::Strided() const {
  return mShared != nullptr;
}

PavexStatus NodeComm::GatherRuns(void const* sendbuf, Runs const& sent, void* recvbuf,
                                 Runs const* received, Datatype type, int root) const {
  if (mShared == nullptr) return STATUS_NOT_SUPPORTED;
  int const rank = Rank();
  MpiCall call("NodeComm::GatherRuns", rank, Size());
  call.GatherRuns(sendbuf, sent, recvbuf, received, type, root);
  bool const toAll = root < 0;
  NodeOperation const operation =
      toAll ? NodeOperation::ALLGATHER_RUNS : NodeOperation::GATHER_RUNS;
  if (PavexStatus status = mShared->Enter(operation, root, call); status != STATUS_OK)
    return status;
  NodeRegion const own = NodeRegion::Of(sendbuf, sent, type);
  NodePieces const pieces{recvbuf, type, received, nullptr, nullptr, 0};
  if (toAll) return mShared->ShareAll(operation, &own, pieces, call);

  mShared->Begin(operation, root, NodeCopier::SENDER);
  if (rank != root) {
    mShared->exchange.Send(root, own, type);
    return mShared->Run(call);
  }
  for (int r = 0; r < Size(); ++r) {
    if (r != root)
      mShared->exchange.Receive(r, pieces.Of(r), type);
    else
      mShared->exchange.Keep(own, pieces.Of(r));
  }
  return mShared->Run(call);
}

PavexStatus NodeComm::ScatterRuns(void const* sendbuf, Runs const* sent, void* recvbuf,
                                  Runs const& received, Datatype type, int root) const {
  if (mShared == nullptr) return STATUS_NOT_SUPPORTED;
  int const rank = Rank();
  MpiCall call("NodeComm::ScatterRuns", rank, Size());
  call.ScatterRuns(sendbuf, sent, recvbuf, received, type, root);
  if (PavexStatus status = mShared->Enter(NodeOperation::SCATTER_RUNS, root, call);
      status != STATUS_OK)
    return status;
  NodeRegion const own = NodeRegion::Of(recvbuf, received, type);
  mShared->Begin(NodeOperation::SCATTER_RUNS, root, NodeCopier::RECEIVER);
  if (rank != root) {
    mShared->exchange.Receive(root, own, type);
    return mShared->Run(call);
  }
  for (int r = 0; r < Size(); ++r) {
    NodeRegion const piece = NodeRegion::Of(sendbuf, sent[r], type);
    if (r != root)
      mShared->exchange.Send(r, piece, type);
    else
      mShared->exchange.Keep(piece, own);
  }
  return mShared->Run(call);
}

}  // namespace Pavex
