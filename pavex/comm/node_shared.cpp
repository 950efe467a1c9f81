#include "pavex/comm/node_shared.h"

namespace Pavex {

NodeRegion NodePieces::Of(int rank) const {
  if (runs != nullptr) return NodeRegion::Of(data, runs[rank], type);
  long const begin = counts == nullptr ? long{rank} * count : long{displs[rank]};
  long const elements = counts == nullptr ? count : counts[rank];
  return NodeRegion::Of(data, {begin, elements, 1, elements}, type);
}

// Every piece goes to each process that shares memory with its owner, and to one process of
// each other group, which then passes it on to the others there.
PavexStatus NodeComm::Shared::ShareAll(NodeOperation operation, NodeRegion const* own,
                                       NodePieces const& pieces, MpiCall const& call) {
  NodeRegion const slot = pieces.Of(links.Rank());
  Begin(operation, 0, NodeCopier::SENDER);
  if (own != nullptr) exchange.Keep(*own, slot);
  TellOwnPiece(pieces, own == nullptr ? slot : *own);
  PavexStatus const status = Run(call);
  if (links.Groups().size() == 1) return status;
  Begin(operation, 0, NodeCopier::SENDER);
  SpreadFarPieces(pieces, status == STATUS_OK);
  return RunAfter(status, call);
}

// Each message is labelled with the owner of its piece.
void NodeComm::Shared::TellOwnPiece(NodePieces const& pieces, NodeRegion const& own) {
  int const rank = links.Rank();
  int const group = links.To(rank).group;
  for (int r = 0; r < links.Size(); ++r) {
    if (r == rank) continue;
    bool const together = links.Together(r, rank);
    if (together || links.Representative(rank, links.To(r).group) == r) {
      exchange.Label(rank);
      exchange.Send(r, own, pieces.type);
    }
    if (together || links.Representative(r, group) == rank) {
      exchange.Label(r);
      exchange.Receive(r, pieces.Of(r), pieces.type);
    }
  }
}

// `complete`: whether this rank has all the pieces that it passes on.
void NodeComm::Shared::SpreadFarPieces(NodePieces const& pieces, bool complete) {
  int const rank = links.Rank();
  int const group = links.To(rank).group;
  for (int r = 0; r < links.Size(); ++r) {
    if (links.Together(r, rank)) continue;
    int const representative = links.Representative(r, group);
    if (representative != rank) {
      exchange.Label(r);
      exchange.Receive(representative, pieces.Of(r), pieces.type);
      continue;
    }
    exchange.Label(complete ? r : NodeExchange::kFailed);
    for (int const member : links.Group()) {
      if (member != rank) exchange.Send(member, pieces.Of(r), pieces.type);
    }
  }
}

}  // namespace Pavex
