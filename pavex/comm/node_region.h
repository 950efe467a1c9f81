// The memory that one message of NodeComm is read from or written to. Not installed.

#pragma once

#include "pavex/comm/node_huge_pages.h"
#include "pavex/runtime/comm.h"

#include <cstddef>
#include <cstdint>
#include <mpi.h>

namespace Pavex {

// `count` runs of `length` bytes, `stride` bytes from the start of one to the start of the
// next. What lies in one piece is one run.
struct NodeRegion {
  unsigned char* data = nullptr;  // the first run
  std::uint64_t length = 0;
  std::uint64_t count = 0;
  std::uint64_t stride = 0;

  static NodeRegion Of(void const* data, std::uint64_t bytes);
  static NodeRegion Of(void const* array, Runs const& runs, Datatype type);

  std::uint64_t Bytes() const { return length * count; }

  // From the start of the first run to the end of the last one; ~0 if that cannot be counted.
  std::uint64_t Span() const;
};

inline bool operator==(NodeRegion const& a, NodeRegion const& b) {
  return a.data == b.data && a.length == b.length && a.count == b.count && a.stride == b.stride;
}

// The copy from one region to another one of as many bytes. It consists of chunks of up to 64
// KiB, which may be copied in any order.
class NodeCopy {
 public:
  // Copies nothing.
  NodeCopy() = default;
  NodeCopy(NodeRegion const& to, NodeRegion const& from);

  // Whether the copy is possible: both sides have runs of the same length, or one of them is
  // one run.
  bool Fits() const { return mFits; }

  // Makes chunk 0 the one at `part` / `parts` of the region. Several processes that store short
  // runs next to each other's each begin elsewhere: two cores that write the same line at the
  // same time take it from each other.
  void BeginAt(int part, int parts);

  // The memory that is written, and how much lies between its first and its last byte.
  unsigned char* Target() const { return mTo.data; }
  std::uint64_t Span() const { return mTo.Span(); }

  std::uint64_t Chunks() const { return mChunks; }
  void CopyChunk(std::uint64_t index) const;
  // Faster than chunk by chunk where a large run is copied to one place only.
  void CopyAll() const;

  // CopyAll to memory at `offset` of the arena that `pages` belong to. Asks for huge pages
  // where there are none yet.
  void Store(NodeHugePages const& pages, std::uint64_t offset) const;

 private:
  void CopyPart(std::uint64_t begin, std::uint64_t end, bool fresh) const;
  bool Overlaps() const;

  NodeRegion mTo;
  NodeRegion mFrom;
  bool mFits = true;
  std::uint64_t mPerRun = 1;   // chunks of a long run
  std::uint64_t mPerStep = 1;  // short runs of a chunk
  std::uint64_t mChunks = 0;
  std::uint64_t mFirst = 0;  // the chunk that CopyChunk(0) copies
};

// A type of MPI, to be freed, that stands for a part of the elements of a region: those at
// bytes `first` to `first` + `bytes`, counted without the gaps. MPI counts in int, so a part
// has at most 2^31 - 1 elements and as many runs.
int MakeMpiType(NodeRegion const& region, std::uint64_t first, std::uint64_t bytes,
                Datatype type, MPI_Datatype* made);

}  // namespace Pavex
