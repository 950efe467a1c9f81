#include "pavex/assembly/row_merger.h"

#include "tests/property/rng.h"
#include "tests/support/ledger_pool.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace Pavex {
namespace {

constexpr int kFirst = 100;  // the columns are kFirst to kFirst + kCount - 1
constexpr int kCount = 2000;

// Merges rows, each in two parts, as two blocks of a contribution or two elements pass them.
struct Merged {
  std::vector<int> cols;
  std::vector<int> ends;                 // of the rows
  std::vector<std::vector<int>> places;  // of the columns that were added

  Merged(std::vector<std::vector<int>> const& rows, bool sort) {
    LedgerPool pool;
    RowMerger<int> merger;
    std::size_t most = 0;
    for (auto const& row : rows)
      most += row.size();
    cols.resize(most);
    EXPECT_EQ(merger.Prepare(pool, kFirst, kCount, sort, cols.data()), STATUS_OK);
    for (auto const& row : rows) {
      auto const count = static_cast<long>(row.size());
      long const half = count / 3;
      merger.Add(row.data(), half);
      merger.Add(row.data() + half, count - half);
      merger.Close();
      std::vector<int> found(row.size());
      merger.PlacesOf(row.data(), half, found.data());
      merger.PlacesOf(row.data() + half, count - half, found.data() + half);
      places.push_back(found);
      ends.push_back(merger.End());
    }
    cols.resize(static_cast<std::size_t>(merger.End()));
  }
};

// The same without any shortcut.
void ExpectMerged(std::vector<std::vector<int>> const& rows, bool sort) {
  Merged const merged(rows, sort);
  std::vector<int> expected;
  for (std::size_t r = 0; r < rows.size(); ++r) {
    std::vector<int> row;
    for (int const col : rows[r])
      if (std::find(row.begin(), row.end(), col) == row.end()) row.push_back(col);
    if (sort) std::sort(row.begin(), row.end());
    auto const begin = static_cast<long>(expected.size());
    for (std::size_t k = 0; k < rows[r].size(); ++k)
      EXPECT_EQ(merged.places[r][k],
                begin + (std::find(row.begin(), row.end(), rows[r][k]) - row.begin()))
          << "row " << r << ", column " << k;
    expected.insert(expected.end(), row.begin(), row.end());
    EXPECT_EQ(merged.ends[r], static_cast<int>(expected.size())) << "row " << r;
  }
  EXPECT_EQ(merged.cols, expected);
}

TEST(RowMerger, WritesEachColumnOnceAndKnowsWhere) {
  Merged const merged({{105, 102, 105}, {102, 101}}, true);
  EXPECT_EQ(merged.cols, (std::vector<int>{102, 105, 101, 102}));
  EXPECT_EQ(merged.places, (std::vector<std::vector<int>>{{1, 0, 1}, {3, 2}}));
}

TEST(RowMerger, TakesRowsThatAreTheRowBeforeShifted) {
  std::vector<int> const row = {110, 104, 110, 107, 104};
  std::vector<std::vector<int>> rows = {row, row, {}, row};
  for (int const shift : {3, 1, -6, 500}) {
    rows.push_back(rows.back());
    for (int& col : rows.back())
      col += shift;
  }
  for (bool const sort : {true, false})
    ExpectMerged(rows, sort);
}

TEST(RowMerger, TakesRowsThatDifferFromTheRowBeforeInOneColumnOrInTheirLength) {
  std::vector<int> const row = {110, 104, 110, 107, 104, 103};
  std::vector<std::vector<int>> rows;
  for (std::size_t k = 0; k < row.size(); ++k) {
    rows.push_back(row);
    rows.push_back(row);
    rows.back()[k] += 40;
    rows.push_back(row);
    rows.back().resize(k);
  }
  for (bool const sort : {true, false})
    ExpectMerged(rows, sort);
}

TEST(RowMerger, TakesRowsOfAnyLengthInAnyOrder) {
  Rng rng(20261122, 0);
  std::vector<std::vector<int>> rows;
  for (int r = 0; r < 300; ++r) {
    if (r > 0 && rng.Coin()) {
      rows.push_back(rows.back());
      continue;
    }
    std::vector<int> row;
    long const length = rng.OneIn(4) ? rng.Between(250, 900) : rng.Between(0, 90);
    for (long k = 0; k < length; ++k)
      row.push_back(kFirst + static_cast<int>(rng.Between(0, kCount - 1)));
    rows.push_back(row);
  }
  for (bool const sort : {true, false})
    ExpectMerged(rows, sort);
}

}  // namespace
}  // namespace Pavex
