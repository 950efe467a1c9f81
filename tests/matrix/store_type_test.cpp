#include "pavex/matrix/store_type.h"

#include "tests/support/capture.h"
#include "tests/support/log_level.h"

#include <csignal>
#include <gtest/gtest.h>

namespace Pavex {
namespace {

PavexMatrixStoreType Type(int number) {
  return static_cast<PavexMatrixStoreType>(number);
}

ChildResult PartOfAbsurdType(int number, std::int32_t level) {
  LogLevel const gate(level);
  return RunInChild([number] { GetMatrixPart(Type(number)); });
}

TEST(GetMatrixPart, Is0ForTheDenseKindsAndTheFirstTypeOfEachSparseClass) {
  for (int const number : {0, 1, 2, 5, 8, 11, 12})
    EXPECT_EQ(GetMatrixPart(Type(number)), 0) << number;
}

TEST(GetMatrixPart, Is1ForTheSecondTypeOfEachSparseClass) {
  for (int const number : {3, 6, 9})
    EXPECT_EQ(GetMatrixPart(Type(number)), 1) << number;
}

TEST(GetMatrixPart, Is2ForTheThirdTypeOfEachSparseClass) {
  for (int const number : {4, 7, 10})
    EXPECT_EQ(GetMatrixPart(Type(number)), 2) << number;
}

TEST(GetMatrixPart, AbortsAfterTheFatalLineOutsideTheEnumeration) {
  for (int const number : {13, -1, 32, 0x7fffffff}) {
    ChildResult const result = PartOfAbsurdType(number, LOG_FATAL);

    EXPECT_EQ(result.output, "[FATAL] Never been here\n") << number;
    EXPECT_EQ(result.signal, SIGABRT) << number;
  }
}

TEST(GetMatrixPart, AbortsSilentlyAtANegativeLogLevel) {
  ChildResult const result = PartOfAbsurdType(13, -1);

  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.signal, SIGABRT);
}

TEST(StoreKindOf, NamesTheClassOfEveryType) {
  for (int const number : {0, 1, 11, 12})
    EXPECT_EQ(StoreKindOf(Type(number)), StoreKind::DENSE) << number;
  for (int const number : {2, 3, 4})
    EXPECT_EQ(StoreKindOf(Type(number)), StoreKind::CSR) << number;
  for (int const number : {5, 6, 7})
    EXPECT_EQ(StoreKindOf(Type(number)), StoreKind::CSC) << number;
  for (int const number : {8, 9, 10})
    EXPECT_EQ(StoreKindOf(Type(number)), StoreKind::COO) << number;
}

TEST(StoreKindOf, IsUnknownOutsideTheEnumeration) {
  EXPECT_EQ(StoreKindOf(Type(13)), StoreKind::UNKNOWN);
  EXPECT_EQ(StoreKindOf(Type(-1)), StoreKind::UNKNOWN);
}

}  // namespace
}  // namespace Pavex
