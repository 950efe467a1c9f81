#include "pavex/comm/node_huge_pages.h"

#include "pavex/comm/node_file.h"

#include <sys/mman.h>

// Older headers lack it; a kernel that does not know it refuses it.
#if !defined(MADV_COLLAPSE)
#define MADV_COLLAPSE 25
#endif

namespace Pavex {

unsigned char* MapAtHugePage(int file, std::size_t bytes) {
  constexpr std::size_t kHuge = NodeHugePages::kBytes;
  void* const room = mmap(nullptr, bytes + kHuge, PROT_NONE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (room == MAP_FAILED) return nullptr;
  std::size_t const before = (kHuge - reinterpret_cast<std::uintptr_t>(room) % kHuge) % kHuge;
  unsigned char* const start = static_cast<unsigned char*>(room) + before;
  if (!MapMemoryFile(start, bytes, NodeMapping::SHARED, file, 0)) {
    munmap(room, bytes + kHuge);
    return nullptr;
  }
  if (before > 0) munmap(room, before);
  munmap(start + bytes, kHuge - before);
  return start;
}

NodeHugePages::Run NodeHugePages::ForBlock(std::uint64_t offset, std::size_t bytes) {
  if (bytes >= kOwnFrom) return ForArray(offset, bytes);
  return {(offset + kBytes - 1) / kBytes, (offset + bytes) / kBytes};
}

NodeHugePages::Run NodeHugePages::ForArray(std::uint64_t offset, std::size_t bytes) {
  return {offset / kBytes, (offset + bytes + kBytes / 2) / kBytes};
}

// Pages next to each other are backed by one call.
bool NodeHugePages::Back(Run run) const {
  bool backs = false;
  for (std::uint64_t page = run.first; page < run.end; ++page) {
    std::uint64_t const first = page;
    while (page < run.end && Ask(page))
      ++page;
    if (page == first) continue;
    BackAll(mBase, {first, page});
    backs = true;
  }
  return backs;
}

// Whether this process is the first to ask for the page.
bool NodeHugePages::Ask(std::uint64_t page) const {
  return Flag(page).load(std::memory_order_relaxed) == 0 &&
         Flag(page).exchange(1, std::memory_order_relaxed) == 0;
}

void NodeHugePages::BackAll(unsigned char* base, Run run) {
  if (run.first >= run.end) return;
  // The system makes a huge page of small ones only where at least one is there. Adding 0
  // writes to the page and changes nothing, also where another process stores at that time.
  for (std::uint64_t page = run.first; page < run.end; ++page)
    reinterpret_cast<std::atomic<unsigned char>*>(base + page * kBytes)
        ->fetch_add(0, std::memory_order_relaxed);
  madvise(base + run.first * kBytes, (run.end - run.first) * kBytes, MADV_COLLAPSE);
}

void NodeHugePages::Forget(std::uint64_t offset, std::size_t bytes) const {
  std::uint64_t const end = (offset + bytes + kBytes - 1) / kBytes;
  for (std::uint64_t page = offset / kBytes; page < end; ++page)
    Flag(page).store(0, std::memory_order_relaxed);
}

}  // namespace Pavex
