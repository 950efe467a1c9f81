// The free ranges of a span of addresses. Not installed.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

namespace Pavex {

// Hands out ranges of whole granules, the smallest free range that is large enough first, and
// joins what comes back with its free neighbours. Knows offsets only, never the memory itself.
// Not shared between threads. The lists of ranges are on the heap: where that fails, Take finds
// nothing, and Add loses a range that has no free neighbour.
class NodeRanges {
 public:
  static constexpr std::uint64_t kNone = ~std::uint64_t{0};

  // `granule`: a power of two, in bytes.
  explicit NodeRanges(std::size_t granule) : mGranule(granule) {}

  // `bytes` rounded up to whole granules.
  std::size_t Rounded(std::size_t bytes) const {
    return (bytes + mGranule - 1) / mGranule * mGranule;
  }

  // Makes `bytes` bytes from `offset` on free. Whole granules.
  void Add(std::uint64_t offset, std::size_t bytes) noexcept;

  // The offset of a range of Rounded(bytes) bytes at a multiple of `alignment`, a power of two;
  // kNone if there is none.
  std::uint64_t Take(std::size_t bytes, std::size_t alignment) noexcept;

 private:
  using ByOffset = std::map<std::uint64_t, std::size_t>;
  using BySize = std::multimap<std::size_t, std::uint64_t>;

  bool Cut(ByOffset::iterator range, std::uint64_t start, std::uint64_t end);
  bool Insert(std::uint64_t offset, std::size_t bytes);
  void Change(ByOffset::iterator range, std::uint64_t offset, std::size_t bytes);
  void Erase(ByOffset::iterator range);
  BySize::iterator SizeOf(ByOffset::iterator range);

  std::size_t mGranule;
  ByOffset mByOffset;  // free ranges that do not touch each other: offset, bytes
  BySize mBySize;      // the same ranges: bytes, offset
};

}  // namespace Pavex
