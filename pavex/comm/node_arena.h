// The memory of this process that the other processes of its node can map. Not installed.

#pragma once

#include "pavex/comm/node_file.h"
#include "pavex/comm/node_huge_pages.h"
#include "pavex/comm/node_ranges.h"
#include "pavex/comm/node_views.h"
#include "pavex/runtime/block_source.h"

#include <cstddef>
#include <cstdint>
#include <mutex>

namespace Pavex {

// One sparse memory file, mapped once by this process and once by each peer. Its size is
// BytesFor of the machine, but only pages that are written take memory. The first call of
// OfProcess makes the arena, and it lasts as long as the process: pools, communicators and
// gathered matrices may be destroyed in any order.
//
// Pages that are given back are punched out of the file. That removes them from the mappings of
// all peers as well, so peers need not be told. Small memory stays with the arena. What is
// taken of the arena never exceeds the memory of the machine; what does not fit comes from
// BlockSource::System() and is not shared. Any thread may take and give back.
class NodeArena : public BlockSource {
 public:
  static constexpr std::uint64_t kOutside = ~std::uint64_t{0};

  // The arena of this process; null if the system refuses one: no memory files, a limit on file
  // size or address space, or no memory beyond what the system has promised.
  static NodeArena* OfProcess();

  // The size of the arenas on a machine with `memory` bytes and `processors` processors, in
  // whole huge pages: twice the memory, so that a large block still finds a range when smaller
  // ones lie between. With one process for each processor all arenas together take at most half
  // of the addresses that a process has.
  static std::uint64_t BytesFor(std::uint64_t memory, std::uint64_t processors);

  void* TakeSmall(std::size_t bytes) override;
  void GiveBackSmall(void* memory, std::size_t bytes) override;
  // Blocks from NodeHugePages::kOwnFrom on begin at a huge page and take whole ones.
  void* TakePages(std::size_t bytes, bool huge) override;
  void GiveBackPages(void* pages, std::size_t bytes) override;
  // Views that meet the range become ordinary; all their contents are lost, as those of a block
  // that is kept for later.
  void DropPages(void* from, std::size_t bytes) override;
  void BackPages(void const* from, std::size_t bytes) override;

  // As TakePages, but null where the arena has no room. GiveBackPages takes it back.
  void* TakeShared(std::size_t bytes);

  // Where the range begins in the file; kOutside if it is not inside the arena.
  std::uint64_t OffsetOf(void const* from, std::size_t bytes) const;

  // Shows `view` and gives the pages back that its array had in the arena's file. False, and
  // all as before, if the system refuses it.
  bool Show(NodeView const& view);
  NodeViews& Views() { return mViews; }

  NodeFileId const& Id() const { return mId; }
  NodeHugePages const& HugePages() const { return mHugePages; }

 private:
  NodeArena() = default;
  bool Make();
  void* TakeLocked(std::size_t bytes, std::size_t alignment);
  void* TakeSmallLocked(std::size_t bytes);
  void Punch(NodeSpan pages) const;  // whole pages
  bool Has(void const* from, std::size_t bytes) const {
    return OffsetOf(from, bytes) != kOutside;
  }

  unsigned char* mBase = nullptr;
  NodeFileId mId;
  NodeHugePages mHugePages;
  NodeViews mViews;
  std::mutex mMutex;
  std::size_t mFree = 0;  // bytes that may still be taken
  NodeRanges mPages{kPageBytes};
  NodeRanges mSmall{kSmallBytes};

  static constexpr std::size_t kPageBytes = 4096;
  static constexpr std::size_t kSmallBytes = 64;
};

}  // namespace Pavex
