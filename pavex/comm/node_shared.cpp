#include "pavex/comm/node_shared.h"

#include <new>

namespace Pavex {

bool NodeComm::Shared::Reserve(int ranks) try {
  votes.resize(static_cast<std::size_t>(ranks));
  return exchange.Reserve(ranks);
} catch (std::bad_alloc const&) {
  return false;
}

// Every piece goes to each process that shares memory with its owner, and to one process of
// each other group, which then passes it on to the others there.
PavexStatus NodeComm::Shared::ShareAll(NodeOperation operation, NodeRegion const* own,
                                       NodePieces const& pieces, MpiCall const& call) {
  NodeRegion const slot = pieces.Of(links.Rank());
  NodeRegion const piece = own == nullptr ? slot : *own;
  // All ranks must come to the same result here: they know the same sizes, but each one has
  // places of its own.
  PavexStatus agreed = STATUS_OK;
  if (pieces.Bytes(links.Size()) >= NodeOneCopy::kLeast && links.Group().size() > 1) {
    NodeRegion const array = pieces.Together(links.Size());
    bool const able = array.Bytes() > 0 && piece.Bytes() == slot.Bytes();
    NodeOneCopy copy(links, exchange, votes, operation, sequence, pieces, array, able);
    agreed = Report(copy.Agree(), call);
    if (copy.Agreed()) return StoreOnce(operation, piece, copy, call);
    bool const inPlace = piece == slot;
    if (agreed == STATUS_OK) links.MakeOrdinary(array, !inPlace);
  }
  // Also where this group has failed: the others wait for its pieces. But where one of its
  // processes has ended, a piece might arrive after this operation, in memory given back.
  bool const near = agreed == STATUS_OK;
  if (!near && links.FindEnded() >= 0) return agreed;
  Begin(operation, 0, NodeCopier::SENDER);
  if (own != nullptr && near) exchange.Keep(*own, slot);
  TellOwnPiece(pieces, piece, near);
  PavexStatus const status = RunAfter(agreed, call);
  if (links.Groups().size() == 1) return status;
  Begin(operation, 0, NodeCopier::SENDER);
  SpreadFarPieces(pieces, status == STATUS_OK);
  return RunAfter(status, call);
}

// The pieces of other groups come right into the window as well: no process passes them on.
PavexStatus NodeComm::Shared::StoreOnce(NodeOperation operation, NodeRegion const& own,
                                        NodeOneCopy& copy, MpiCall const& call) {
  NodePieces const window = copy.Window();
  Begin(operation, 0, NodeCopier::SENDER);
  exchange.Keep(own, window.Of(links.Rank()));
  TellOwnPiece(window, own, false);
  PavexStatus const stored = Run(call);
  if (exchange.MayStillReceive()) copy.KeepMapped();
  PavexStatus const status = ReportAfter(stored, copy.WaitForAll(stored == STATUS_OK), call);
  copy.Show(status == STATUS_OK);
  return status;
}

// Each message is labelled with the owner of its piece. `near`: also to and from the processes
// that share memory with this one.
void NodeComm::Shared::TellOwnPiece(NodePieces const& pieces, NodeRegion const& own,
                                    bool near) {
  int const rank = links.Rank();
  int const group = links.To(rank).group;
  for (int r = 0; r < links.Size(); ++r) {
    if (r == rank) continue;
    bool const together = links.Together(r, rank);
    if (together && !near) continue;
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

// `complete`: whether this rank has all the pieces that it passes on. If not, it sends nothing
// of them: then it need not wait for an answer, which might never come.
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
    NodeRegion const piece = complete ? pieces.Of(r) : NodeRegion::Of(pieces.data, 0);
    for (int const member : links.Group()) {
      if (member != rank) exchange.Send(member, piece, pieces.type);
    }
  }
}

}  // namespace Pavex
