#include "pavex/runtime/datatype.h"

#include <complex>
#include <gtest/gtest.h>
#include <type_traits>

namespace Pavex {
namespace {

TEST(Datatype, HasFixedNumbersOf32Bits) {
  EXPECT_TRUE((std::is_same_v<std::underlying_type_t<Datatype>, std::int32_t>));
  EXPECT_EQ(DATATYPE_BYTE, 0);
  EXPECT_EQ(DATATYPE_INT, 1);
  EXPECT_EQ(DATATYPE_LONG, 2);
  EXPECT_EQ(DATATYPE_FLOAT, 3);
  EXPECT_EQ(DATATYPE_DOUBLE, 4);
  EXPECT_EQ(DATATYPE_COMPLEX_FLOAT, 5);
  EXPECT_EQ(DATATYPE_COMPLEX_DOUBLE, 6);
}

TEST(DatatypeOf, NamesTheTypeOfEveryElement) {
  EXPECT_EQ(+DatatypeOf<int>::kValue, DATATYPE_INT);
  EXPECT_EQ(+DatatypeOf<long>::kValue, DATATYPE_LONG);
  EXPECT_EQ(+DatatypeOf<float>::kValue, DATATYPE_FLOAT);
  EXPECT_EQ(+DatatypeOf<double>::kValue, DATATYPE_DOUBLE);
  EXPECT_EQ(+DatatypeOf<std::complex<float>>::kValue, DATATYPE_COMPLEX_FLOAT);
  EXPECT_EQ(+DatatypeOf<std::complex<double>>::kValue, DATATYPE_COMPLEX_DOUBLE);
}

TEST(DatatypeSize, CountsTheBytesOfAnElement) {
  EXPECT_EQ(DatatypeSize(DATATYPE_BYTE), 1U);
  EXPECT_EQ(DatatypeSize(DATATYPE_INT), 4U);
  EXPECT_EQ(DatatypeSize(DATATYPE_LONG), 8U);
  EXPECT_EQ(DatatypeSize(DATATYPE_FLOAT), 4U);
  EXPECT_EQ(DatatypeSize(DATATYPE_DOUBLE), 8U);
  EXPECT_EQ(DatatypeSize(DATATYPE_COMPLEX_FLOAT), 8U);
  EXPECT_EQ(DatatypeSize(DATATYPE_COMPLEX_DOUBLE), 16U);
}

TEST(DatatypeSize, IsZeroForAnUnknownType) {
  EXPECT_EQ(DatatypeSize(static_cast<Datatype>(7)), 0U);
  EXPECT_EQ(DatatypeSize(static_cast<Datatype>(-1)), 0U);
}

}  // namespace
}  // namespace Pavex
