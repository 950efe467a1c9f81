#include "pavex/assembly/ascending_rows.h"

#include "tests/property/rng.h"

#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace Pavex {
namespace {

constexpr int kLimit = 1000;

// Compressed rows; those that are added have entries that ascend.
template <typename I>
struct Rows {
  std::vector<I> offsets;
  std::vector<I> cols;

  explicit Rows(I base) : offsets{base} {}

  void Add(std::vector<I> const& row) {
    cols.insert(cols.end(), row.begin(), row.end());
    offsets.push_back(static_cast<I>(offsets.front() + static_cast<I>(cols.size())));
  }
  long Count() const { return static_cast<long>(offsets.size()) - 1; }
  bool Ascend() const { return RowsAscend(offsets.data(), Count(), cols.data(), I{kLimit}); }

  // The same, one entry after the other.
  bool AscendOneByOne() const {
    I const base = offsets.front();
    for (std::size_t r = 1; r < offsets.size(); ++r) {
      if (offsets[r] < offsets[r - 1] || offsets[r] > offsets.back()) return false;
      for (I k = offsets[r - 1]; k < offsets[r]; ++k) {
        auto const at = static_cast<std::size_t>(k - base);
        if (cols[at] < 0 || cols[at] >= kLimit) return false;
        if (k > offsets[r - 1] && cols[at] <= cols[at - 1]) return false;
      }
    }
    return true;
  }
};

template <typename I>
Rows<I> RandomRows(Rng& rng) {
  Rows<I> rows(static_cast<I>(rng.Between(-5, 5)));
  long const count = rng.Between(1, rng.Coin() ? 8 : 700);
  long const most = rng.OneIn(3) ? 90 : 7;
  long const emptyOneIn = rng.Coin() ? 3 : 100000;
  for (long r = 0; r < count; ++r) {
    std::vector<I> row;
    long const length = rng.OneIn(emptyOneIn) ? 0 : rng.Between(1, most);
    auto col = static_cast<I>(rng.Between(0, 100));
    for (long k = 0; k < length; ++k, col = static_cast<I>(col + rng.Between(1, 10)))
      row.push_back(col);
    rows.Add(row);
  }
  return rows;
}

template <typename I>
class AscendingRowsOf : public ::testing::Test {};
using Indices = ::testing::Types<int, long>;
TYPED_TEST_SUITE(AscendingRowsOf, Indices);

TYPED_TEST(AscendingRowsOf, AreFoundWithAnyLengthsAndBase) {
  Rng rng(11, sizeof(TypeParam));
  for (int round = 0; round < 300; ++round) {
    Rows<TypeParam> const rows = RandomRows<TypeParam>(rng);
    ASSERT_TRUE(rows.AscendOneByOne());
    EXPECT_TRUE(rows.Ascend()) << "round " << round;
  }
}

// UndefinedBehaviorSanitizer would see an address beyond the array: 2^59 elements of 8 bytes
// lie behind what an address counts, and those of 2^61 wrap.
TYPED_TEST(AscendingRowsOf, HaveOffsetsFromAnyNumberOn) {
  using I = TypeParam;
  constexpr I kLeast = std::numeric_limits<I>::min();
  constexpr I kMost = std::numeric_limits<I>::max();
  constexpr int kRows = 600;
  for (I const base : {kLeast, static_cast<I>(kMost / 16 + 1), static_cast<I>(kMost / 4 + 1),
                       static_cast<I>(kMost - 3 * kRows)}) {
    Rows<I> rows(base);
    for (int row = 0; row < kRows; ++row)
      rows.Add({1, 5, 9});
    EXPECT_TRUE(rows.Ascend()) << base;

    rows.cols[3 * 400 + 1] = 9;
    EXPECT_FALSE(rows.Ascend()) << base;
  }
}

TYPED_TEST(AscendingRowsOf, AreNotFoundOnceAnyColumnIsWrong) {
  using I = TypeParam;
  constexpr I kLeast = std::numeric_limits<I>::min();
  constexpr I kMost = std::numeric_limits<I>::max();
  Rng rng(12, sizeof(I));
  int wrong = 0;
  for (int round = 0; round < 600; ++round) {
    Rows<I> rows = RandomRows<I>(rng);
    if (rows.cols.empty()) continue;
    auto const at =
        static_cast<std::size_t>(rng.Between(0, static_cast<long>(rows.cols.size()) - 1));
    I const others[] = {
        -1, 0, kLimit - 1, kLimit, kLeast, kMost, rows.cols[at > 0 ? at - 1 : 0]};
    rows.cols[at] = others[rng.Between(0, 6)];
    EXPECT_EQ(rows.Ascend(), rows.AscendOneByOne()) << "round " << round << ", entry " << at;
    wrong += rows.AscendOneByOne() ? 0 : 1;
  }
  EXPECT_GT(wrong, 400);
}

TYPED_TEST(AscendingRowsOf, AreNotFoundOnceAnyOffsetIsWrong) {
  using I = TypeParam;
  constexpr I kLeast = std::numeric_limits<I>::min();
  constexpr I kMost = std::numeric_limits<I>::max();
  Rng rng(13, sizeof(I));
  int wrong = 0;
  for (int round = 0; round < 600; ++round) {
    Rows<I> rows = RandomRows<I>(rng);
    if (rows.Count() < 2) continue;
    auto const at = static_cast<std::size_t>(rng.Between(1, rows.Count() - 1));
    I const others[] = {kLeast,
                        kMost,
                        rows.offsets[at - 1],
                        rows.offsets[0],
                        rows.offsets.back(),
                        rows.offsets[0] - 1,
                        rows.offsets.back() + 1};
    rows.offsets[at] = others[rng.Between(0, 6)];
    EXPECT_EQ(rows.Ascend(), rows.AscendOneByOne()) << "round " << round << ", offset " << at;
    wrong += rows.AscendOneByOne() ? 0 : 1;
  }
  EXPECT_GT(wrong, 300);
}

TYPED_TEST(AscendingRowsOf, AreNotFoundIfTheLastOffsetIsBelowTheFirst) {
  using I = TypeParam;
  std::vector<I> const offsets{4, 5, 3};
  std::vector<I> const cols{0, 1};

  EXPECT_FALSE(RowsAscend(offsets.data(), 2, cols.data(), I{kLimit}));
}

TYPED_TEST(AscendingRowsOf, AreNotFoundIfTheirEntriesCannotBeCounted) {
  using I = TypeParam;
  std::vector<I> const offsets{std::numeric_limits<I>::min(), std::numeric_limits<I>::max()};

  EXPECT_FALSE(RowsAscend<I>(offsets.data(), 1, nullptr, I{kLimit}));
}

// Rows are read 256 at a time: here all of some of them are empty.
TYPED_TEST(AscendingRowsOf, MayLieFarFromEachOther) {
  using I = TypeParam;
  for (int const leading : {0, 300}) {
    for (bool const ascends : {true, false}) {
      Rows<I> rows(0);
      auto const addEmpty = [&rows](int count) {
        for (int row = 0; row < count; ++row)
          rows.Add({});
      };
      addEmpty(leading);
      rows.Add({7});
      addEmpty(600);
      rows.Add({3});
      addEmpty(600);
      rows.Add(ascends ? std::vector<I>{2, 5} : std::vector<I>{5, 2});
      addEmpty(300);
      EXPECT_EQ(rows.Ascend(), ascends) << leading;
    }
  }
}

// AddressSanitizer would see a read behind the only entry.
TYPED_TEST(AscendingRowsOf, AreNotReadBehindTheLastEntry) {
  using I = TypeParam;
  std::vector<I> const cols{3};
  std::vector<I> offsets(600, I{1});
  offsets.front() = 0;
  offsets[500] = 0;

  EXPECT_FALSE(RowsAscend(offsets.data(), 599, cols.data(), I{kLimit}));
}

TYPED_TEST(AscendingRowsOf, MayAllBeEmpty) {
  using I = TypeParam;
  std::vector<I> const same{7, 7, 7};
  std::vector<I> const back{7, 8, 7};

  EXPECT_TRUE(RowsAscend<I>(same.data(), 2, nullptr, I{0}));
  EXPECT_FALSE(RowsAscend<I>(back.data(), 2, nullptr, I{0}));
}

}  // namespace
}  // namespace Pavex
