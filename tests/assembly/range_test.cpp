#include "pavex/assembly/range.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <vector>

namespace Pavex {
namespace {

template <typename I>
class RangeOfElements : public testing::Test {};
using Indices = testing::Types<int, long>;
TYPED_TEST_SUITE(RangeOfElements, Indices);

TYPED_TEST(RangeOfElements, FindsTheLeastAndTheGreatestOneWhereverTheyAre) {
  for (std::size_t count = 2; count <= 21; ++count)
    for (std::size_t least = 0; least < count; ++least)
      for (std::size_t most = 0; most < count; ++most) {
        if (least == most) continue;
        std::vector<TypeParam> elements(count, 5);
        elements[least] = -3;
        elements[most] = 8;

        Range const range = RangeOf(elements.data(), static_cast<std::int64_t>(count));

        ASSERT_EQ(range.mFirst, -3) << count << ' ' << least << ' ' << most;
        ASSERT_EQ(range.mLast, 8) << count << ' ' << least << ' ' << most;
      }
}

TYPED_TEST(RangeOfElements, CountsASingleOneAsOne) {
  TypeParam const element = 7;

  Range const range = RangeOf(&element, 1);

  EXPECT_EQ(range.mFirst, 7);
  EXPECT_EQ(range.Count(), 1);
  EXPECT_EQ(Range().Count(), 0);
}

}  // namespace
}  // namespace Pavex
