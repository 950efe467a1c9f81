// What a NodeComm holds if processes share memory. Not installed.

#pragma once

#include "pavex/comm/mpi_call.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_exchange.h"
#include "pavex/comm/node_links.h"

#include <cstdint>

namespace Pavex {

// The pieces of all ranks in the array of one rank: `runs[r]`, else `counts[r]` elements from
// `displs[r]` on, else `count` elements each, one behind the other.
struct NodePieces {
  void* data;
  Datatype type;
  Runs const* runs;
  int const* counts;
  int const* displs;
  int count;

  NodeRegion Of(int rank) const;
};

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

  // Brings every rank's piece to all. `own`: this rank's, null if it is in its place already.
  PavexStatus ShareAll(NodeOperation operation, NodeRegion const* own, NodePieces const& pieces,
                       MpiCall const& call);
  void TellOwnPiece(NodePieces const& pieces, NodeRegion const& own);
  void SpreadFarPieces(NodePieces const& pieces, bool complete);
};

}  // namespace Pavex
