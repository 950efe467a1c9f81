// Computes the order of entries by row without moving them.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

namespace Pavex::Tool {

// The numbers of `entries` entries, at most 2^32 - 1, ordered by row. Entries of one row keep
// their order. rowOf(k) is the row of entry k, from 0 to below `rows`.
template <typename RowOf>
std::vector<std::uint32_t> OrderByRow(std::size_t entries, long rows, RowOf const& rowOf) {
  std::vector<std::uint32_t> order(entries);
  bool const counting = static_cast<std::size_t>(rows) <= 8 * entries;
  if (!counting) {  // so many rows that counting them would cost more memory than the entries
    std::iota(order.begin(), order.end(), std::uint32_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::uint32_t a, std::uint32_t b) { return rowOf(a) < rowOf(b); });
    return order;
  }
  std::vector<std::uint32_t> next(static_cast<std::size_t>(rows) + 1, 0);
  for (std::size_t k = 0; k < entries; ++k)
    ++next[static_cast<std::size_t>(rowOf(k)) + 1];
  std::partial_sum(next.begin(), next.end(), next.begin());
  for (std::size_t k = 0; k < entries; ++k)
    order[next[static_cast<std::size_t>(rowOf(k))]++] = static_cast<std::uint32_t>(k);
  return order;
}

}  // namespace Pavex::Tool
