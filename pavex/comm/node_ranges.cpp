#include "pavex/comm/node_ranges.h"

#include <iterator>
#include <new>
#include <utility>

namespace Pavex {

void NodeRanges::Add(std::uint64_t offset, std::size_t bytes) noexcept {
  if (bytes == 0) return;
  auto const after = mByOffset.lower_bound(offset);
  bool const meetsAfter = after != mByOffset.end() && offset + bytes == after->first;
  if (after != mByOffset.begin()) {
    auto const before = std::prev(after);
    if (before->first + before->second == offset) {
      std::size_t const behind = meetsAfter ? after->second : 0;
      if (meetsAfter) Erase(after);
      return Change(before, before->first, before->second + bytes + behind);
    }
  }
  if (meetsAfter) return Change(after, offset, bytes + after->second);
  // Without memory the range stays taken; its addresses are lost, its memory is not.
  Insert(offset, bytes);
}

std::uint64_t NodeRanges::Take(std::size_t bytes, std::size_t alignment) noexcept {
  std::size_t const wanted = Rounded(bytes);
  for (auto fit = mBySize.lower_bound(wanted); fit != mBySize.end(); ++fit) {
    std::uint64_t const free = fit->second;
    std::uint64_t const start = (free + alignment - 1) / alignment * alignment;
    std::uint64_t const end = free + fit->first;
    if (start + wanted > end) continue;
    return Cut(mByOffset.find(free), start, start + wanted) ? start : kNone;
  }
  return kNone;
}

// Takes `start` to `end` out of the range. False, and all as before, without memory for a
// second part of it.
bool NodeRanges::Cut(ByOffset::iterator range, std::uint64_t start, std::uint64_t end) {
  std::uint64_t const first = range->first;
  std::size_t const behind = first + range->second - end;
  if (start == first && behind == 0)
    Erase(range);
  else if (start == first)
    Change(range, end, behind);
  else if (behind > 0 && !Insert(end, behind))
    return false;
  else
    Change(range, first, start - first);
  return true;
}

// False without memory.
bool NodeRanges::Insert(std::uint64_t offset, std::size_t bytes) try {
  auto const range = mByOffset.emplace(offset, bytes).first;
  try {
    mBySize.emplace(bytes, offset);
  } catch (std::bad_alloc const&) {
    mByOffset.erase(range);
    return false;
  }
  return true;
} catch (std::bad_alloc const&) {
  return false;
}

// Needs no memory. Of ranges of one size, Take finds the last one changed first.
void NodeRanges::Change(ByOffset::iterator range, std::uint64_t offset, std::size_t bytes) {
  auto bySize = mBySize.extract(SizeOf(range));
  bySize.key() = bytes;
  bySize.mapped() = offset;
  mBySize.insert(mBySize.lower_bound(bytes), std::move(bySize));
  auto byOffset = mByOffset.extract(range);
  byOffset.key() = offset;
  byOffset.mapped() = bytes;
  mByOffset.insert(std::move(byOffset));
}

void NodeRanges::Erase(ByOffset::iterator range) {
  mBySize.erase(SizeOf(range));
  mByOffset.erase(range);
}

// The entry of the same range in the other list.
NodeRanges::BySize::iterator NodeRanges::SizeOf(ByOffset::iterator range) {
  auto entry = mBySize.lower_bound(range->second);
  while (entry->second != range->first)
    ++entry;
  return entry;
}

}  // namespace Pavex
