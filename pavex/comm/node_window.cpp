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
    : mBegin(begin), mBytes(bytes) {}

NodeWindow::~NodeWindow() {
  if (mBase != nullptr) munmap(mBase, mId.bytes);
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
  if (mFile < 0) return false;
  void* const mapped =
      mmap(pages, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED | MAP_NORESERVE, mFile,
           static_cast<off_t>(mBegin + from));
  if (mapped == MAP_FAILED) return false;
  madvise(pages, bytes, MADV_DONTFORK);
  madvise(pages, bytes, MADV_DONTDUMP);
  return true;
}

}  // namespace Pavex
