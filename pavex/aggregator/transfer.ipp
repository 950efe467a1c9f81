// Chooses between delivery to one process and delivery to all. A target rank >= 0 means that
// process, and kEverybody means every process. Any other number goes to the communicator as a
// rank.
//
// Included by aggregator.cpp: these routines are local to it.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/aggregator/rounds.h"
#include "pavex/runtime/comm.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace Pavex {
namespace {

// The tags of the point-to-point messages: messages of different phases never match. Fixed: see
// docs/compatibility.md.
enum Tag : std::int32_t { TAG_GATHER = 50, TAG_UPDATE = 51, TAG_SCATTER = 52 };

// Collects `sendcount` elements from each process into `recvbuf` of `root` (or of every
// process). Only receivers read the receive arguments, one count and displacement per process,
// in elements. Collective.
PavexStatus GatherDistributed(void const* sendbuf, int sendcount, void* recvbuf,
                              int const* recvcounts, int const* displs, Datatype type, int root,
                              Comm const& comm) {
  if (root == kEverybody) {
    return comm.Allgatherv(sendbuf, sendcount, type, recvbuf, recvcounts, displs, type);
  }
  return comm.Gatherv(sendbuf, sendcount, type, recvbuf, recvcounts, displs, type, root);
}

// Hands `count` elements of `buf` to `call`, at most kMostPerCall at a time, until one call
// fails. Calls once if there is nothing to move.
template <typename Call>
PavexStatus InChunks(void* buf, long count, Datatype type, Call const& call) {
  for (;;) {
    long const now = std::clamp<long>(count, std::numeric_limits<int>::min(), kMostPerCall);
    PavexStatus const status = call(buf, static_cast<int>(now));
    count -= now;
    if (status != STATUS_OK || count <= 0) return status;
    buf = static_cast<char*>(buf) + static_cast<std::size_t>(now) * DatatypeSize(type);
  }
}

// Moves the `count` elements of `buf` that rank `src` holds to `buf` of rank `dst` (or of every
// process). Other ranks do not read `buf`. Collective if `dst` is kEverybody, else between
// `src` and `dst`.
PavexStatus TransferCentralized(void* buf, long count, Datatype type, int src, int dst, Tag tag,
                                Comm const& comm) {
  if (dst == kEverybody)
    return InChunks(buf, count, type, [&](void* chunk, int elements) {
      return comm.Bcast(chunk, elements, type, src);
    });
  if (dst == src) return STATUS_OK;
  int const rank = comm.Rank();
  if (rank == src)
    return InChunks(buf, count, type, [&](void const* chunk, int elements) {
      return comm.Send(chunk, elements, type, dst, tag);
    });
  if (rank == dst)
    return InChunks(buf, count, type, [&](void* chunk, int elements) {
      return comm.Recv(chunk, elements, type, src, tag);
    });
  return STATUS_OK;
}

}  // namespace
}  // namespace Pavex
