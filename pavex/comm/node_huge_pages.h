// Huge pages for memory that several processes write. Not installed.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Pavex {

// Maps the first `bytes` bytes of `file` as MapMemoryFile does, shared, at a huge page: only
// then do the huge pages of the file and of the address space coincide. Null if the system
// refuses.
unsigned char* MapAtHugePage(int file, std::size_t bytes);

// Which huge pages of an arena have been asked for, one flag for each, at the beginning of the
// arena. The system serves a memory file in small pages. Writing a large new block would fault
// each of them in; a process that is about to store asks for huge pages first, which costs a
// third of that. Where the system has none, everything works in small pages.
class NodeHugePages {
 public:
  static constexpr std::size_t kBytes = std::size_t{2} << 20;
  // Blocks from this size on have huge pages of their own: no other block lies in them.
  static constexpr std::size_t kOwnFrom = 2 * kBytes;

  // Huge pages from `first` to before `end`, counted from the beginning of a memory file.
  struct Run {
    std::uint64_t first = 0;
    std::uint64_t end = 0;
  };

  // The huge pages to ask for before `bytes` bytes from `offset` on are stored. Of an arena:
  // those inside the range, and at its ends also those that belong to the same block.
  static Run ForBlock(std::uint64_t offset, std::size_t bytes);
  // The same in a file where all huge pages belong to one array: those that the range meets. Of
  // the last one at least half is filled. The rest of the first one is left to who stores
  // before the range.
  static Run ForArray(std::uint64_t offset, std::size_t bytes);

  // `base`: the mapping of an arena, by the owner or by a peer.
  NodeHugePages() = default;
  explicit NodeHugePages(unsigned char* base) : mBase(base) {}

  // What the flags take of an arena of `bytes` bytes.
  static std::size_t TableBytes(std::size_t bytes) { return bytes / kBytes; }

  // Backs huge pages of a memory file that is mapped at `base`.
  static void BackAll(unsigned char* base, Run run);

  // Backs those that have not been asked for yet. Whether there were any.
  bool Back(Run run) const;

  // Notes that pages of the range have been given back to the system.
  void Forget(std::uint64_t offset, std::size_t bytes) const;

 private:
  std::atomic<unsigned char>& Flag(std::uint64_t page) const {
    return reinterpret_cast<std::atomic<unsigned char>*>(mBase)[page];
  }
  bool Ask(std::uint64_t page) const;

  unsigned char* mBase = nullptr;
};

static_assert(sizeof(std::atomic<unsigned char>) == 1, "one byte for each flag");

}  // namespace Pavex
