#include "tools/source/row_order.h"

#include <gmock/gmock.h>

namespace Pavex::Tool {
namespace {

using ::testing::ElementsAre;

std::vector<std::size_t> Elements(EntryNumbers const& numbers) {
  std::vector<std::size_t> elements;
  for (std::size_t k = 0; k < numbers.Size(); ++k)
    elements.push_back(numbers[k]);
  return elements;
}

// Entries in the rows 2, 0, 2, 1, 0.
EntryNumbers Ordered(std::size_t mostNarrow, long rows) {
  long const row[] = {2, 0, 2, 1, 0};
  EntryNumbers order(5, mostNarrow);
  order.Apply([&](auto& numbers) {
    FillByRow(numbers, rows, [&row](std::size_t k) { return row[k]; });
  });
  return order;
}

TEST(RowOrder, KeepsTheOrderInsideARow) {
  EXPECT_THAT(Elements(Ordered(5, 3)), ElementsAre(1, 4, 3, 0, 2));
  EXPECT_THAT(Elements(Ordered(5, 1000)), ElementsAre(1, 4, 3, 0, 2)) << "too many to count";
}

TEST(RowOrder, IsTheSameInWiderNumbers) {
  EXPECT_THAT(Elements(Ordered(4, 3)), ElementsAre(1, 4, 3, 0, 2));
  EXPECT_THAT(Elements(Ordered(4, 1000)), ElementsAre(1, 4, 3, 0, 2));
}

TEST(RowOrder, TakesTheNarrowNumbersThatSuffice) {
  EntryNumbers narrow(5, 5);
  EntryNumbers wide(5, 4);

  narrow.Apply([](auto const& numbers) { EXPECT_EQ(sizeof numbers[0], 4U); });
  wide.Apply([](auto const& numbers) { EXPECT_EQ(sizeof numbers[0], 8U); });
}

}  // namespace
}  // namespace Pavex::Tool
