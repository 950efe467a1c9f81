#include "pavex/comm/node_window.h"

#include "pavex/comm/node_huge_pages.h"

#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace Pavex {

namespace {

// Whole huge pages: only what is written takes memory.
std::uint64_t FileBytes(std::uint64_t begin, std::uint64_t bytes) {
  constexpr std::uint64_t kHuge = NodeHugePages::kBytes;
  return (begin + bytes + kHuge - 1) / kHuge * kHuge;
}

}  // namespace

bool NodeWindow::FitsPages() {
  return static_cast<std::size_t>(getpagesize()) == kPageBytes;
}

std::shared_ptr<NodeWindow> NodeWindow::Make(std::uint64_t begin, std::uint64_t bytes) try {
  auto window = std::make_shared<NodeWindow>(begin, bytes);
  window->mFile = MakeMemoryFile(FileBytes(begin, bytes), &window->mId);
  return window->Map() ? window : nullptr;
} catch (std::bad_alloc const&) {
  return nullptr;
}

std::shared_ptr<NodeWindow> NodeWindow::Open(NodeFileId const& id, std::uint64_t begin,
                                             std::uint64_t bytes) try {
  if (id.bytes != FileBytes(begin, bytes)) return nullptr;
  auto window = std::make_shared<NodeWindow>(begin, bytes);
  window->mId = id;
  window->mFile = OpenMemoryFile(id);
  return window->Map() ? window : nullptr;
} catch (std::bad_alloc const&) {
  return nullptr;
}

NodeWindow::NodeWindow(std::uint64_t begin, std::uint64_t bytes)
    : mOwner(getpid()), mBegin(begin), mBytes(bytes) {}

// What lies at these addresses in a child that was forked is the child's own.
NodeWindow::~NodeWindow() {
  if (mBase != nullptr && mOwner == getpid() && !mStaysMapped) munmap(mBase, mId.bytes);
  CloseFile();
}

bool NodeWindow::Map() {
  if (mFile >= 0) mBase = MapAtHugePage(mFile, mId.bytes);
  return mBase != nullptr;
}

void NodeWindow::CloseFile() {
  if (mFile >= 0) close(mFile);
  mFile = -1;
}

void NodeWindow::Back(unsigned char const* from, std::uint64_t bytes) const {
  NodeHugePages::BackAll(
      mBase, NodeHugePages::ForArray(static_cast<std::uint64_t>(from - mBase), bytes));
}

bool NodeWindow::ShowAt(unsigned char* pages, std::uint64_t from, std::size_t bytes) const {
  return mFile >= 0 && MapMemoryFile(pages, bytes, NodeMapping::PRIVATE, mFile, mBegin + from);
}

}  // namespace Pavex
