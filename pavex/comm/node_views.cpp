#include "pavex/comm/node_views.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace Pavex {

namespace {

constexpr std::uint64_t kPage = NodeWindow::kPageBytes;

}  // namespace

void NodeViews::Bind(unsigned char* base, int file) {
  mBase = base;
  mFile = file;
}

NodeSpan NodeViews::PagesOf(NodeSpan array) {
  std::uint64_t const first = (array.offset + kPage - 1) / kPage * kPage;
  std::uint64_t const end = array.End() / kPage * kPage;
  return {first, end - std::min(first, end)};
}

// The first view that meets the span or lies behind it.
NodeViews::ByPage::const_iterator NodeViews::First(NodeSpan span) const {
  auto const view = mViews.upper_bound(span.offset);
  if (view == mViews.begin()) return view;
  auto const before = std::prev(view);
  return PagesOf(before->second.array).End() > span.offset ? before : view;
}

bool NodeViews::Overlap(NodeSpan span) const {
  std::lock_guard<std::mutex> const lock(mMutex);
  auto const view = First(span);
  return view != mViews.end() && view->first < span.End();
}

// The group's view of exactly this array; null if there is none.
NodeView const* NodeViews::At(NodeSpan array, std::uint64_t group) const {
  auto const found = mViews.find(PagesOf(array).offset);
  if (found == mViews.end()) return nullptr;
  NodeView const& view = found->second;
  bool const same = view.array.offset == array.offset && view.array.bytes == array.bytes &&
                    view.group == group;
  return same ? &view : nullptr;
}

std::shared_ptr<NodeWindow> NodeViews::Find(NodeView const& like) const {
  std::lock_guard<std::mutex> const lock(mMutex);
  NodeView const* const view = At(like.array, like.group);
  return view != nullptr && view->generation == like.generation ? view->window : nullptr;
}

std::uint64_t NodeViews::Generation(NodeSpan array, std::uint64_t group) const {
  std::lock_guard<std::mutex> const lock(mMutex);
  NodeView const* const view = At(array, group);
  return view != nullptr ? view->generation : 0;
}

bool NodeViews::IsOverwritten(NodeSpan array) try {
  std::lock_guard<std::mutex> const lock(mMutex);
  auto const noted = mOverwritten.find(array.offset);
  if (noted != mOverwritten.end()) return noted->second == array.bytes;
  NodeSpan const pages = PagesOf(array);
  auto const view = mViews.find(pages.offset);
  bool const same = view != mViews.end() && view->second.array.offset == array.offset &&
                    view->second.array.bytes == array.bytes;
  // Near both ends: a process that puts its piece into its place writes to one part only.
  std::uint64_t const aside = pages.bytes / 8 / kPage * kPage;
  if (!same || !HasOwnPage(pages.offset + aside) || !HasOwnPage(pages.End() - aside))
    return false;
  mOverwritten.emplace(array.offset, array.bytes);
  return true;
} catch (std::bad_alloc const&) {
  return true;
}

void NodeViews::ForgetWrites(NodeSpan span) {
  std::lock_guard<std::mutex> const lock(mMutex);
  auto array = mOverwritten.lower_bound(span.offset);
  if (array != mOverwritten.begin()) {
    auto const before = std::prev(array);
    if (before->first + before->second > span.offset) array = before;
  }
  while (array != mOverwritten.end() && array->first < span.End())
    array = mOverwritten.erase(array);
}

// Whether this process has its own copy of the page at this offset, which is part of a view.
// The system says so in /proc/self/pagemap; false if it does not.
bool NodeViews::HasOwnPage(std::uint64_t page) const {
  int const file = open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  constexpr std::uint64_t kPresent = std::uint64_t{1} << 63;
  constexpr std::uint64_t kOfFile = std::uint64_t{1} << 61;
  std::uint64_t entry = 0;
  auto const number = reinterpret_cast<std::uintptr_t>(mBase + page) / kPage;
  bool const known = pread(file, &entry, sizeof entry,
                           static_cast<off_t>(number * sizeof entry)) == sizeof entry;
  close(file);
  return known && (entry & kPresent) != 0 && (entry & kOfFile) == 0;
}

bool NodeViews::Show(NodeView const& view) try {
  NodeSpan const pages = PagesOf(view.array);
  std::lock_guard<std::mutex> const lock(mMutex);
  if (!MakeOrdinaryLocked(view.array, view.array)) return false;
  auto const entry = mViews.emplace(pages.offset, view).first;
  bool const shown =
      view.window->ShowAt(mBase + pages.offset, pages.offset - view.array.offset, pages.bytes);
  if (shown) {
    CopyEnds(view);
  } else {
    Restore(pages, pages);
    mViews.erase(entry);
  }
  return shown;
} catch (std::bad_alloc const&) {
  return false;
}

bool NodeViews::Refresh(NodeView const& view) {
  NodeSpan const pages = PagesOf(view.array);
  std::lock_guard<std::mutex> const lock(mMutex);
  if (madvise(mBase + pages.offset, pages.bytes, MADV_DONTNEED) != 0) return false;
  CopyEnds(view);
  return true;
}

// The partial pages before and behind the whole ones.
void NodeViews::CopyEnds(NodeView const& view) const {
  NodeSpan const pages = PagesOf(view.array);
  std::uint64_t const before = pages.offset - view.array.offset;
  std::uint64_t const behind = view.array.End() - pages.End();
  unsigned char const* const from = view.window->Array();
  std::memcpy(mBase + view.array.offset, from, before);
  std::memcpy(mBase + pages.End(), from + before + pages.bytes, behind);
}

bool NodeViews::MakeOrdinary(NodeSpan span, NodeSpan lost) {
  std::lock_guard<std::mutex> const lock(mMutex);
  return MakeOrdinaryLocked(span, lost);
}

bool NodeViews::MakeOrdinaryLocked(NodeSpan span, NodeSpan lost) {
  for (auto view = First(span); view != mViews.end() && view->first < span.End();) {
    if (!Restore(PagesOf(view->second.array), lost)) return false;
    view = mViews.erase(view);
  }
  return true;
}

// `pages`: those of one view.
bool NodeViews::Restore(NodeSpan pages, NodeSpan lost) const {
  std::uint64_t const lostFrom = std::clamp(lost.offset, pages.offset, pages.End());
  std::uint64_t const lostEnd = std::clamp(lost.End(), lostFrom, pages.End());
  if (!KeepInFile(pages.offset, lostFrom) || !KeepInFile(lostEnd, pages.End())) return false;
  return MapMemoryFile(mBase + pages.offset, pages.bytes, NodeMapping::SHARED, mFile,
                       pages.offset);
}

// Copies what this process sees from `from` to `end` into the arena's file. Through a mapping:
// a write to the file could meet a limit on the size of files, which ends the process by a
// signal.
bool NodeViews::KeepInFile(std::uint64_t from, std::uint64_t end) const {
  if (from == end) return true;
  std::uint64_t const first = from / kPage * kPage;
  void* const mapped = mmap(nullptr, end - first, PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_NORESERVE, mFile, static_cast<off_t>(first));
  if (mapped == MAP_FAILED) return false;
  std::memcpy(static_cast<unsigned char*>(mapped) + (from - first), mBase + from, end - from);
  munmap(mapped, end - first);
  return true;
}

}  // namespace Pavex
