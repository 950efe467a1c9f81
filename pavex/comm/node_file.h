// Memory files that the processes of a node map. Not installed.

#pragma once

#include <cstddef>
#include <cstdint>

namespace Pavex {

// What a peer needs to know to map a memory file, as seen by the process that made it.
struct NodeFileId {
  std::int64_t pid = 0;
  std::int64_t file = -1;    // descriptor in that process
  std::uint64_t device = 0;  // of the file: another process's file with the same number differs
  std::uint64_t inode = 0;   // likewise
  std::uint64_t bytes = 0;   // size of the file
  std::uint64_t start = 0;   // when the process was started, see NodeProcess::StartOf
};

// The descriptor of a new sparse file of `bytes` bytes; -1 if the system refuses one. Sets all
// of `id` except `start`.
int MakeMemoryFile(std::uint64_t bytes, NodeFileId* id);

// A descriptor of the file that another process has made; -1 if the system does not permit it
// or if the file found is another one, as in another PID namespace. Another file is not opened.
int OpenMemoryFile(NodeFileId const& id);

enum class NodeMapping { SHARED, PRIVATE };

// Maps `bytes` bytes from `offset` of the file on, writable, in place of what lies at `place`,
// all in whole pages. Not for children, not in core files, and not locked in memory, also in a
// process that locks all it maps (mlockall with MCL_FUTURE): the system would make every page
// of a sparse file at once, and a private copy of each. False if the system refuses it; `place`
// then has no mapping that may be used.
bool MapMemoryFile(unsigned char* place, std::size_t bytes, NodeMapping kind, int file,
                   std::uint64_t offset);

}  // namespace Pavex
