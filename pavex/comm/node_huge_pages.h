// Huge pages for memory that several processes write. Not installed.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Pavex {

// Maps the first `bytes` bytes of `file`, shared and writable, at a huge page: only then do the
// huge pages of the file and of the address space coincide. Not for children and not in core
// files. Null if the system refuses.
unsigned char* MapAtHugePage(int file, std::size_t bytes);

// Which huge pages of an arena have been asked for, one flag for each, at the beginning of the
// arena. The system serves a memory file in small pages. Writing a large new block would fault
// each of them in; a process that is about to store asks for huge pages first, which costs a
// third of that. Where the system has none, everything works in small pages.
class NodeHugePages {
 public:
  static constexpr std::size_t kBytes = std::size_t{2} << 20;

  // `base`: the mapping of an arena, by the owner or by a peer.
  NodeHugePages() = default;
  explicit NodeHugePages(unsigned char* base) : mBase(base) {}

  // What the flags take of an arena of `bytes` bytes.
  static std::size_t TableBytes(std::size_t bytes) { return bytes / kBytes; }

  // Backs the huge pages from `first` to `end` of a memory file that is mapped at `base`.
  static void BackRun(unsigned char* base, std::uint64_t first, std::uint64_t end);

  // Backs the huge pages that lie inside the range and have not been asked for yet. Whether
  // there were any.
  bool Back(std::uint64_t offset, std::size_t bytes) const;

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
