// Entries that follow each other in one row: runs of one length, as elements of one kind have
// them, and of any length.

#include "pavex/assembly/assembler.h"
#include "tests/assembly/small_case.h"

#include <array>
#include <cstddef>
#include <gtest/gtest.h>
#include <vector>

namespace Pavex {
namespace {

struct Entries {
  std::vector<int> rows;
  std::vector<int> cols;
  std::vector<double> values;

  Own Pass() const {
    return Own().Coo(static_cast<long>(rows.size()), rows.data(), cols.data(), values.data());
  }
};

// Assembles a 3 x 3 matrix on a single process and compares its elements, row after row.
void ExpectElements(Entries const& entries, std::array<double, 9> const& expected) {
  OnRanks(1, [&](auto const& comm, Assembler<double, int>& assembler) {
    ASSERT_EQ(assembler.Gather(comm, entries.Pass(), Square(3)), STATUS_OK);
    MatrixCSR<double, int> const& whole = *assembler.Whole();
    std::array<double, 9> elements{};
    for (std::size_t row = 0; row < 3; ++row)
      for (int k = whole.mRowPtr.mData[row]; k < whole.mRowPtr.mData[row + 1]; ++k)
        elements[row * 3 + static_cast<std::size_t>(whole.mColIdx.mData[k])] =
            whole.mValues.mData[k];
    EXPECT_EQ(elements, expected);
  });
}

TEST(RunsOfEntries, MayAllHaveOneLength) {
  ExpectElements({{2, 2, 0, 0, 2, 2, 1, 1}, {1, 2, 0, 1, 1, 0, 2, 1}, {1, 2, 3, 4, 5, 6, 7, 8}},
                 {3, 4, 0, 0, 8, 7, 6, 6, 2});
}

TEST(RunsOfEntries, MayHaveALengthThatDividesTheirNumberOnlyOnAverage) {
  // Runs of 3, 1, 1 and 3 entries: 2 each. Rows change after the entries 3, 4 and 5.
  ExpectElements({{0, 0, 0, 1, 2, 0, 0, 0}, {0, 1, 2, 2, 0, 2, 1, 1}, {1, 2, 3, 4, 5, 6, 7, 8}},
                 {1, 17, 9, 0, 0, 4, 5, 0, 0});
}

TEST(RunsOfEntries, MayMergeWhereOneElementEndsWithTheRowWithWhichTheNextBegins) {
  ExpectElements({{0, 0, 1, 1, 1, 1, 2, 2}, {0, 1, 0, 1, 1, 2, 1, 2}, {1, 2, 3, 4, 5, 6, 7, 8}},
                 {1, 2, 0, 3, 9, 6, 0, 7, 8});
}

TEST(RunsOfEntries, MayBeOneRunOrAsManyAsEntries) {
  ExpectElements({{1, 1, 1, 1}, {2, 0, 2, 1}, {1, 2, 3, 4}}, {0, 0, 0, 2, 4, 4, 0, 0, 0});
  ExpectElements({{1, 0, 1, 0}, {2, 0, 2, 1}, {1, 2, 3, 4}}, {2, 4, 0, 0, 0, 4, 0, 0, 0});
}

// More values than are asked for early, the last of them in no whole line of the cache.
TEST(RunsOfEntries, AddAllOfManyValuesInAGatherAndInAnUpdate) {
  constexpr std::size_t kMany = 3001;
  Entries entries{std::vector<int>(kMany), std::vector<int>(kMany), std::vector<double>(kMany)};
  std::array<double, 3> sums{};
  for (std::size_t k = 0; k < kMany; ++k) {
    entries.rows[k] = static_cast<int>(k % 3);
    entries.values[k] = static_cast<double>(k);
    sums[k % 3] += entries.values[k];
  }
  std::array<double, 9> const expected = {sums[0], 0, 0, sums[1], 0, 0, sums[2], 0, 0};

  ExpectElements(entries, expected);

  OnRanks(1, [&](auto const& comm, Assembler<double, int>& assembler) {
    std::vector<double> const zeros(kMany);
    ASSERT_EQ(assembler.Gather(comm, entries.Pass(), Square(3)), STATUS_OK);
    ASSERT_EQ(assembler.Update(zeros.data()), STATUS_OK);
    ASSERT_EQ(List(assembler.Whole()->mValues), std::vector<double>(3));
    ASSERT_EQ(assembler.UpdateInPlace(entries.values.data()), STATUS_OK);
    EXPECT_EQ(List(assembler.Whole()->mValues), std::vector<double>(sums.begin(), sums.end()));
  });
}

}  // namespace
}  // namespace Pavex
