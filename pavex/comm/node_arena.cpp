#include "pavex/comm/node_arena.h"

#include <algorithm>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Pavex {

namespace {

// Small blocks are cut from pieces of this size.
constexpr std::size_t kSmallPiece = std::size_t{1} << 20;

// Twice the memory of the machine, in whole huge pages; 0 if the system does not tell it.
std::size_t ArenaBytes() {
  long const pages = sysconf(_SC_PHYS_PAGES);
  long const page = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || page <= 0) return 0;
  std::size_t const bytes =
      2 * static_cast<std::size_t>(pages) * static_cast<std::size_t>(page);
  return (bytes + NodeHugePages::kBytes - 1) / NodeHugePages::kBytes * NodeHugePages::kBytes;
}

// Asked for before the file grows: beyond the limit the system ends the process by a signal.
bool FileMayHave(std::size_t bytes) {
  rlimit limit{};
  return getrlimit(RLIMIT_FSIZE, &limit) == 0 &&
         (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= bytes);
}

}  // namespace

NodeArena* NodeArena::OfProcess() {
  // Never destroyed: pools and matrices with static storage may outlive every other object.
  static NodeArena* const arena = [] {
    auto made = std::unique_ptr<NodeArena>(new (std::nothrow) NodeArena);
    return made != nullptr && made->Make() ? made.release() : nullptr;
  }();
  // A child that was forked has neither the mapping nor a right to the parent's file.
  return arena != nullptr && arena->mId.pid == getpid() ? arena : nullptr;
}

bool NodeArena::Make() {
  std::size_t const bytes = ArenaBytes();
  if (bytes == 0 || !FileMayHave(bytes)) return false;
  int const file = memfd_create("pavex", MFD_CLOEXEC);
  if (file < 0) return false;
  struct stat status {};
  if (ftruncate(file, static_cast<off_t>(bytes)) == 0 && fstat(file, &status) == 0)
    mBase = MapAtHugePage(file, bytes);
  if (mBase == nullptr) {
    close(file);
    return false;
  }
  mId.pid = getpid();
  mId.file = file;
  mId.device = status.st_dev;
  mId.inode = status.st_ino;
  mId.bytes = bytes;
  mHugePages = NodeHugePages(mBase);
  std::size_t const table = mPages.Rounded(NodeHugePages::TableBytes(bytes));
  mPages.Add(table, bytes - table);
  mFree = bytes / 2;
  return true;
}

void* NodeArena::TakePages(std::size_t bytes, bool huge) {
  std::lock_guard<std::mutex> const lock(mMutex);
  return TakeLocked(bytes, huge ? NodeHugePages::kBytes : kPageBytes);
}

void* NodeArena::TakeLocked(std::size_t bytes, std::size_t alignment) {
  if (bytes > mFree) return nullptr;
  std::uint64_t const offset = mPages.Take(bytes, alignment);
  if (offset == NodeRanges::kNone) return nullptr;
  mFree -= bytes;
  return mBase + offset;
}

void NodeArena::GiveBackPages(void* pages, std::size_t bytes) {
  DropPages(pages, bytes);
  std::lock_guard<std::mutex> const lock(mMutex);
  mFree += bytes;
  mPages.Add(OffsetOf(pages, bytes), bytes);
}

void NodeArena::DropPages(void* from, std::size_t bytes) {
  std::uint64_t const offset = OffsetOf(from, bytes);
  fallocate(static_cast<int>(mId.file), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
            static_cast<off_t>(offset), static_cast<off_t>(bytes));
  mHugePages.Forget(offset, bytes);
}

void* NodeArena::TakeSmall(std::size_t bytes) {
  std::lock_guard<std::mutex> const lock(mMutex);
  std::uint64_t offset = mSmall.Take(bytes, kSmallBytes);
  if (offset == NodeRanges::kNone) {
    void* const piece = TakeLocked(kSmallPiece, kPageBytes);
    if (piece == nullptr) return nullptr;
    mSmall.Add(OffsetOf(piece, kSmallPiece), kSmallPiece);
    offset = mSmall.Take(bytes, kSmallBytes);
  }
  return offset == NodeRanges::kNone ? nullptr : mBase + offset;
}

void NodeArena::GiveBackSmall(void* memory, std::size_t bytes) {
  std::lock_guard<std::mutex> const lock(mMutex);
  mSmall.Add(OffsetOf(memory, bytes), bytes);
}

std::uint64_t NodeArena::OffsetOf(void const* from, std::size_t bytes) const {
  auto const address = reinterpret_cast<std::uintptr_t>(from);
  auto const base = reinterpret_cast<std::uintptr_t>(mBase);
  if (address < base || bytes > mId.bytes || address - base > mId.bytes - bytes)
    return kOutside;
  return address - base;
}

}  // namespace Pavex
