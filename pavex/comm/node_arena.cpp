#include "pavex/comm/node_arena.h"

#include "pavex/comm/node_process.h"

#include <algorithm>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace Pavex {

namespace {

// Small blocks are cut from pieces of this size.
constexpr std::size_t kSmallPiece = std::size_t{1} << 20;

// Half of the addresses that the system hands out to a process.
constexpr std::uint64_t kAddresses = std::uint64_t{1} << 46;

std::uint64_t Configured(int name) {
  long const value = sysconf(name);
  return value > 0 ? static_cast<std::uint64_t>(value) : 0;
}

// What a block of `bytes` bytes takes of the arena, and how it is aligned.
bool HasOwnHugePages(std::size_t bytes) {
  return bytes >= NodeHugePages::kOwnFrom;
}

std::size_t TakenBy(std::size_t bytes) {
  constexpr std::size_t kHuge = NodeHugePages::kBytes;
  return HasOwnHugePages(bytes) ? (bytes + kHuge - 1) / kHuge * kHuge : bytes;
}

// 0 if the system does not tell it.
std::uint64_t MemoryOfMachine() {
  return Configured(_SC_PHYS_PAGES) * Configured(_SC_PAGESIZE);
}

// Where the system promises no more memory than it has, a page that it cannot promise ends the
// process by a signal when it is written. A block of the heap is refused in time there.
bool MayFailWhenWritten() {
  int const file = open("/proc/sys/vm/overcommit_memory", O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  char policy = '0';
  bool const strict = read(file, &policy, 1) == 1 && policy == '2';
  close(file);
  return strict;
}

}  // namespace

std::uint64_t NodeArena::BytesFor(std::uint64_t memory, std::uint64_t processors) {
  constexpr std::uint64_t kHuge = NodeHugePages::kBytes;
  std::uint64_t const share = kAddresses / std::max<std::uint64_t>(processors, 1);
  return std::min(2 * memory, share) / kHuge * kHuge;
}

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
  std::uint64_t const memory = MemoryOfMachine();
  std::uint64_t const bytes = BytesFor(memory, Configured(_SC_NPROCESSORS_CONF));
  if (bytes == 0 || MayFailWhenWritten()) return false;
  int const file = MakeMemoryFile(bytes, &mId);
  if (file < 0) return false;
  mBase = MapAtHugePage(file, bytes);
  if (mBase == nullptr) {
    close(file);
    return false;
  }
  mId.start = NodeProcess::StartOf(mId.pid);
  mHugePages = NodeHugePages(mBase);
  mViews.Bind(mBase, file);
  std::size_t const table = mPages.Rounded(NodeHugePages::TableBytes(bytes));
  mPages.Add(table, bytes - table);
  mFree = std::min(memory, bytes - table);
  return true;
}

void* NodeArena::TakePages(std::size_t bytes, bool huge) {
  void* const pages = TakeShared(bytes);
  return pages != nullptr ? pages : System().TakePages(bytes, huge);
}

void* NodeArena::TakeShared(std::size_t bytes) {
  std::lock_guard<std::mutex> const lock(mMutex);
  return TakeLocked(TakenBy(bytes),
                    HasOwnHugePages(bytes) ? NodeHugePages::kBytes : kPageBytes);
}

void* NodeArena::TakeLocked(std::size_t bytes, std::size_t alignment) {
  if (bytes > mFree) return nullptr;
  std::uint64_t const offset = mPages.Take(bytes, alignment);
  if (offset == NodeRanges::kNone) return nullptr;
  mFree -= bytes;
  return mBase + offset;
}

void NodeArena::GiveBackPages(void* pages, std::size_t bytes) {
  if (!Has(pages, bytes)) return System().GiveBackPages(pages, bytes);
  NodeSpan const span{OffsetOf(pages, bytes), TakenBy(bytes)};
  // What is still a view cannot serve as another block: its addresses are lost.
  if (!mViews.MakeOrdinary(span, span)) return;
  mViews.ForgetWrites(span);
  Punch(span);
  std::lock_guard<std::mutex> const lock(mMutex);
  mFree += span.bytes;
  mPages.Add(span.offset, span.bytes);
}

void NodeArena::DropPages(void* from, std::size_t bytes) {
  if (!Has(from, bytes)) return System().DropPages(from, bytes);
  NodeSpan const span{OffsetOf(from, bytes), bytes};
  if (mViews.MakeOrdinary(span, {0, mId.bytes})) Punch(span);
}

// What is a view has pages of its own.
void NodeArena::BackPages(void const* from, std::size_t bytes) {
  NodeSpan const span{OffsetOf(from, bytes), bytes};
  if (span.offset != kOutside && !mViews.Overlap(span))
    mHugePages.Back(NodeHugePages::ForBlock(span.offset, bytes));
}

// Through the mapping, unless a view is there: an MPI that keeps memory registered with the
// network watches madvise and mmap, but sees no hole that is made in a file. It would go on
// to receive into the pages that have gone.
void NodeArena::Punch(NodeSpan pages) const {
  if (madvise(mBase + pages.offset, pages.bytes, MADV_REMOVE) != 0)
    fallocate(static_cast<int>(mId.file), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
              static_cast<off_t>(pages.offset), static_cast<off_t>(pages.bytes));
  mHugePages.Forget(pages.offset, pages.bytes);
}

bool NodeArena::Show(NodeView const& view) {
  if (!mViews.Show(view)) return false;
  Punch(NodeViews::PagesOf(view.array));
  return true;
}

void* NodeArena::TakeSmall(std::size_t bytes) {
  std::unique_lock<std::mutex> lock(mMutex);
  void* const memory = TakeSmallLocked(bytes);
  lock.unlock();
  return memory != nullptr ? memory : System().TakeSmall(bytes);
}

void* NodeArena::TakeSmallLocked(std::size_t bytes) {
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
  if (!Has(memory, bytes)) return System().GiveBackSmall(memory, bytes);
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
