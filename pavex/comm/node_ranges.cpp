#include "pavex/comm/node_ranges.h"

#include <iterator>
#include <new>

namespace Pavex {

void NodeRanges::Add(std::uint64_t offset, std::size_t bytes) noexcept {
  if (bytes == 0) return;
  auto const after = mByOffset.lower_bound(offset);
  if (after != mByOffset.begin()) {
    auto const before = std::prev(after);
    if (before->first + before->second == offset) {
      offset = before->first;
      bytes += before->second;
      Erase(before);
    }
  }
  if (after != mByOffset.end() && offset + bytes == after->first) {
    bytes += after->second;
    Erase(after);
  }
  try {
    Insert(offset, bytes);
  } catch (std::bad_alloc const&) {
    // The range stays taken; its addresses are lost, its memory is not.
  }
}

std::uint64_t NodeRanges::Take(std::size_t bytes, std::size_t alignment) noexcept {
  std::size_t const wanted = Rounded(bytes);
  for (auto fit = mBySize.lower_bound(wanted); fit != mBySize.end(); ++fit) {
    std::uint64_t const free = fit->second;
    std::uint64_t const start = (free + alignment - 1) / alignment * alignment;
    std::uint64_t const end = free + fit->first;
    if (start + wanted > end) continue;
    Erase(mByOffset.find(free));
    Add(free, start - free);
    Add(start + wanted, end - (start + wanted));
    return start;
  }
  return kNone;
}

void NodeRanges::Insert(std::uint64_t offset, std::size_t bytes) {
  auto const range = mByOffset.emplace(offset, bytes).first;
  try {
    mBySize.emplace(bytes, offset);
  } catch (std::bad_alloc const&) {
    mByOffset.erase(range);
    throw;
  }
}

void NodeRanges::Erase(ByOffset::iterator range) {
  auto const same = mBySize.equal_range(range->second);
  for (auto entry = same.first; entry != same.second; ++entry) {
    if (entry->second != range->first) continue;
    mBySize.erase(entry);
    break;
  }
  mByOffset.erase(range);
}

}  // namespace Pavex
