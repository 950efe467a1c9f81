// What a NodeComm holds if processes share memory. Not installed.

#pragma once

#include "pavex/comm/mpi_call.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_exchange.h"
#include "pavex/comm/node_links.h"
#include "pavex/comm/node_one_copy.h"
#include "pavex/comm/node_pieces.h"

#include <cstdint>
#include <vector>

namespace Pavex {

// What the processes of a node share, and the operation under way.
struct NodeComm::Shared {
  NodeLinks links;
  NodeExchange exchange{links};
  std::vector<NodeVote> votes;  // one for each rank
  std::uint64_t sequence = 0;   // of the last collective that this rank has entered

  ~Shared() { links.Leave(); }

  // Makes room for any operation on `ranks` ranks; false if there is no memory.
  bool Reserve(int ranks);

  // Counts a collective, which begins with it. `call`: with its arguments. Its status is that
  // of the arguments; of refused ones this rank takes no part in the operation.
  PavexStatus Enter(NodeOperation operation, int root, MpiCall& call) {
    PavexStatus const status = call.Ready();
    EnterAs(status == STATUS_OK ? operation : NodeOperation::MESSAGE, root);
    return status;
  }
  void EnterAs(NodeOperation operation, int root) {
    ++sequence;
    links.Enter(NodeEntry::WordOf(sequence, static_cast<std::int32_t>(operation), root));
  }
  // Counts a collective whose data MPI alone moves.
  void EnterOverMpi() { EnterAs(NodeOperation::OVER_MPI, 0); }

  void Begin(NodeOperation operation, int label, NodeCopier copier) {
    exchange.Begin(operation, operation == NodeOperation::MESSAGE ? 0 : sequence, label,
                   copier);
  }
  PavexStatus Run(MpiCall const& call) { return Report(exchange.Run(), call); }
  // The second step of an operation whose first one returned `first`: others wait for it in any
  // case, but one failure is one line.
  PavexStatus RunAfter(PavexStatus first, MpiCall const& call) {
    return ReportAfter(first, exchange.Run(), call);
  }
  static PavexStatus Report(char const* failure, MpiCall const& call) {
    return failure == nullptr ? STATUS_OK : call.Fail(STATUS_COMM_FAILED, failure);
  }
  static PavexStatus ReportAfter(PavexStatus first, char const* failure, MpiCall const& call) {
    return first == STATUS_OK ? Report(failure, call) : first;
  }

  // Brings every rank's piece to all. `own`: this rank's, null if it is in its place already.
  PavexStatus ShareAll(NodeOperation operation, NodeRegion const* own, NodePieces const& pieces,
                       MpiCall const& call);
  PavexStatus StoreOnce(NodeOperation operation, NodeRegion const& own, NodeOneCopy& copy,
                        MpiCall const& call);
  void TellOwnPiece(NodePieces const& pieces, NodeRegion const& own, bool near);
  void SpreadFarPieces(NodePieces const& pieces, bool complete);
};

}  // namespace Pavex
