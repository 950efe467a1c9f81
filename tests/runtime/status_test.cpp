#include "pavex/runtime/status.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace Pavex {
namespace {

TEST(Status, IsASigned32BitInteger) {
  EXPECT_EQ(sizeof(PavexStatus), 4U);
  EXPECT_TRUE(std::is_signed_v<PavexStatus>);
}

TEST(Status, HasFixedCodes) {
  EXPECT_EQ(STATUS_OK, 0);
  EXPECT_EQ(STATUS_NOT_SUPPORTED, -2);
  EXPECT_EQ(STATUS_OUT_OF_MEMORY, -3);
  EXPECT_EQ(STATUS_INVALID_VALUE, -7);
  EXPECT_EQ(STATUS_MISMATCH, -9);
  EXPECT_EQ(STATUS_WRONG_ORDER, -11);
  EXPECT_EQ(STATUS_INCONSISTENT, -16);
  EXPECT_EQ(STATUS_COMM_FAILED, -20);
}

TEST(StatusStr, HasATextForEachCode) {
  EXPECT_STREQ(PavexStatusStr(0), "Success");
  EXPECT_STREQ(PavexStatusStr(-2), "Operation not supported");
  EXPECT_STREQ(PavexStatusStr(-3), "Out of memory");
  EXPECT_STREQ(PavexStatusStr(-7), "Invalid value");
  EXPECT_STREQ(PavexStatusStr(-9), "Matrix does not match the gathered one");
  EXPECT_STREQ(PavexStatusStr(-11), "Operation called in wrong order");
  EXPECT_STREQ(PavexStatusStr(-16), "Inconsistent data");
  EXPECT_STREQ(PavexStatusStr(-20), "Communication failed");
}

TEST(StatusStr, HasATextForUnknownCodes) {
  for (PavexStatus const status : {1, 17, -1, -8, -21, 0x7fffffff, -0x7fffffff - 1})
    EXPECT_STREQ(PavexStatusStr(status), "Unknown status") << status;
}

TEST(StatusStr, IsVisibleInsideAndOutsideTheNamespace) {
  EXPECT_EQ(&Pavex::PavexStatusStr, &::PavexStatusStr);
}

}  // namespace
}  // namespace Pavex
