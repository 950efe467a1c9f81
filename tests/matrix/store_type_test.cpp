#include "pavex/matrix/store_type.h"

#include "tests/support/capture.h"
#include "tests/support/log_level.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Pavex {
namespace {

using testing::ElementsAre;

PavexMatrixStoreType Type(int number) {
  return static_cast<PavexMatrixStoreType>(number);
}

constexpr bool EveryRowIsAtItsNumber() {
  int number = 0;
  for (StoreTypeInfo const& info : kStoreTypes) {
    if (info.type != number++) return false;
  }
  return number == 13;
}
static_assert(EveryRowIsAtItsNumber());

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

TEST(FindStoreType, GivesTheNameOfEveryType) {
  std::vector<std::string> names;
  for (int number = 0; number < 13; ++number)
    names.emplace_back(FindStoreType(Type(number))->name);

  EXPECT_THAT(names, ElementsAre("STORE_TYPE_0", "STORE_TYPE_1", "STORE_CSR_0", "STORE_CSR_1",
                                 "STORE_CSR_2", "STORE_CSC_0", "STORE_CSC_1", "STORE_CSC_2",
                                 "STORE_COO_0", "STORE_COO_1", "STORE_COO_2",
                                 "STORE_DENSE_ROW_MAJOR", "STORE_DENSE_COL_MAJOR"));
}

TEST(FindStoreType, IsNullOutsideTheEnumeration) {
  for (int const number : {13, -1, 32, 0x7fffffff})
    EXPECT_EQ(FindStoreType(Type(number)), nullptr) << number;
}

}  // namespace
}  // namespace Pavex
