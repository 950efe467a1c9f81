#include "pavex/runtime/wrapping.h"

#include <gtest/gtest.h>
#include <limits>

namespace Pavex {
namespace {

constexpr int kMaxInt = std::numeric_limits<int>::max();
constexpr int kMinInt = std::numeric_limits<int>::min();
constexpr long kMaxLong = std::numeric_limits<long>::max();
constexpr long kMinLong = std::numeric_limits<long>::min();

TEST(Wrapping, EqualsPlainArithmeticInsideTheRange) {
  EXPECT_EQ(WrappingAdd(-5, 3), -2);
  EXPECT_EQ(WrappingSub(5, 7), -2);
  EXPECT_EQ(WrappingMul(-6L, 7L), -42L);
}

TEST(Wrapping, WrapsAroundAtTheEndsOfTheRange) {
  EXPECT_EQ(WrappingAdd(kMaxInt, 1), kMinInt);
  EXPECT_EQ(WrappingSub(kMinInt, kMaxInt), 1);
  EXPECT_EQ(WrappingMul(kMaxInt, 2), -2);
  EXPECT_EQ(WrappingAdd(kMaxLong, 1L), kMinLong);
  EXPECT_EQ(WrappingSub(kMinLong, 1L), kMaxLong);
  EXPECT_EQ(WrappingMul(kMinLong, -1L), kMinLong);
}

TEST(FitsMemory, HoldsUpToTheLargestArrayOfItsElements) {
  constexpr long kMost = kMaxLong / 8;

  for (long const count : {0L, 1L, kMost})
    EXPECT_TRUE(FitsMemory<double>(count)) << count;
  for (long const count : {kMost + 1, kMaxLong})
    EXPECT_FALSE(FitsMemory<double>(count)) << count;
}

TEST(FitsMemory, HoldsForNoNegativeCount) {
  for (long const count : {-1L, kMinLong})
    EXPECT_FALSE(FitsMemory<double>(count)) << count;
}

}  // namespace
}  // namespace Pavex
