// Where the pieces of all ranks lie in the array of one rank. Not installed.

#pragma once

#include "pavex/comm/node_region.h"
#include "pavex/runtime/comm.h"

#include <cstdint>

namespace Pavex {

// `runs[r]`, else `counts[r]` elements from `displs[r]` on, else `count` elements each, one
// behind the other.
struct NodePieces {
  void* data;
  Datatype type;
  Runs const* runs;
  int const* counts;
  int const* displs;
  int count;

  NodeRegion Of(int rank) const;

  // Of the pieces of `ranks` ranks, without the gaps between them.
  std::uint64_t Bytes(int ranks) const;

  // All pieces of `ranks` ranks together, if each is in one part and lies right behind that of
  // the rank before; otherwise no bytes.
  NodeRegion Together(int ranks) const;

  // A number that differs where the sizes of the pieces differ, almost certainly.
  std::uint64_t Layout(int ranks) const;

  // The same pieces where `from`, in the array of these, is at `to`.
  NodePieces Moved(unsigned char const* from, unsigned char* to) const;
};

}  // namespace Pavex
