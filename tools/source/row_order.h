// Computes the order of entries by row without moving them.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <vector>

namespace Pavex::Tool {

// Numbers of entries, of 4 bytes as long as they suffice.
class EntryNumbers {
 public:
  // Gives the empty list.
  EntryNumbers() = default;
  // `count` numbers from 0 to `count`. `mostNarrow`: the largest of 4 bytes; tests pass less.
  explicit EntryNumbers(std::size_t count,
                        std::size_t mostNarrow = std::numeric_limits<std::uint32_t>::max())
      : mIsWide(count > mostNarrow), mNarrow(mIsWide ? 0 : count), mWide(mIsWide ? count : 0) {}

  std::size_t Size() const { return mIsWide ? mWide.size() : mNarrow.size(); }
  std::size_t operator[](std::size_t place) const {
    return mIsWide ? mWide[place] : mNarrow[place];
  }

  // Calls `change` with the vector of the numbers, whose type depends on their size.
  template <typename Change>
  void Apply(Change const& change) {
    if (mIsWide)
      change(mWide);
    else
      change(mNarrow);
  }

 private:
  bool mIsWide = false;
  std::vector<std::uint32_t> mNarrow;
  std::vector<std::uint64_t> mWide;
};

// Fills `order` with the numbers of its entries ordered by row. Entries of one row keep their
// order. rowOf(k) is the row of entry k, from 0 to below `rows`.
template <typename Number, typename RowOf>
void FillByRow(std::vector<Number>& order, long rows, RowOf const& rowOf) {
  bool const counting = static_cast<std::size_t>(rows) <= 8 * order.size();
  if (!counting) {  // so many rows that counting them would cost more memory than the entries
    std::iota(order.begin(), order.end(), Number{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](Number a, Number b) { return rowOf(a) < rowOf(b); });
    return;
  }
  std::vector<Number> next(static_cast<std::size_t>(rows) + 1, 0);
  for (std::size_t k = 0; k < order.size(); ++k)
    ++next[static_cast<std::size_t>(rowOf(k)) + 1];
  std::partial_sum(next.begin(), next.end(), next.begin());
  for (std::size_t k = 0; k < order.size(); ++k)
    order[next[static_cast<std::size_t>(rowOf(k))]++] = static_cast<Number>(k);
}

// The numbers of `entries` entries in that order.
template <typename RowOf>
EntryNumbers OrderByRow(std::size_t entries, long rows, RowOf const& rowOf) {
  EntryNumbers order(entries);
  order.Apply([&](auto& numbers) { FillByRow(numbers, rows, rowOf); });
  return order;
}

}  // namespace Pavex::Tool
