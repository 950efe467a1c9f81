// The words for a record, which may contain any number.

#include "tests/support/described_records.h"
#include "tests/support/records.h"

#include <cstring>
#include <limits>
#include <string>

namespace Pavex {
namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

TEST(Describe, NamesEveryStoreType) {
  char const* const names[] = {"STORE_TYPE_0",         "STORE_TYPE_1", "STORE_CSR_0",
                               "STORE_CSR_1",          "STORE_CSR_2",  "STORE_CSC_0",
                               "STORE_CSC_1",          "STORE_CSC_2",  "STORE_COO_0",
                               "STORE_COO_1",          "STORE_COO_2",  "STORE_DENSE_ROW_MAJOR",
                               "STORE_DENSE_COL_MAJOR"};
  for (int type = 0; type < 13; ++type) {
    MatrixLocalInfo info = Whole();
    info.storeType = static_cast<PavexMatrixStoreType>(type);

    std::string const line = std::string("\nprocess 0: ") + names[type] + ", ";
    EXPECT_NE(About({info}).find(line), std::string::npos);
  }
}

TEST(Describe, PrintsTheExtremesOfEveryField) {
  MatrixLocalInfo odd;
  odd.storeType = static_cast<PavexMatrixStoreType>(std::numeric_limits<std::int32_t>::min());
  odd.partition = {std::numeric_limits<std::int32_t>::max(), kLeast};
  odd.pattern = std::numeric_limits<std::int32_t>::min();
  odd.attribute = std::numeric_limits<std::int32_t>::max();
  odd.rows = odd.globalRows = kMost;
  odd.cols = odd.globalCols = kLeast;
  odd.nnz = kLeast;
  std::memset(&odd.withValues, 255, 1);

  EXPECT_EQ(About({odd}),
            "refused: process 0 has unknown store type -2147483648; expected 0 to 12\n"
            "stage: store type\n"
            "mode CENTRALIZED_ALL: a single process holds the whole matrix\n"
            "1 process\n"
            "process 0: unknown store type -2147483648, unknown partition type 2147483647 from "
            "-9223372036854775808, 9223372036854775807 x -9223372036854775808, "
            "-9223372036854775808 entries, of 9223372036854775807 x -9223372036854775808, "
            "pattern -2147483648, attribute 2147483647, with values\n");
}

// All bytes of one record have the same value, which may be any.
TEST(Describe, ReportsAnyBytes) {
  for (int byte = 0; byte < 256; ++byte) {
    Records records(3, Whole());
    std::memset(static_cast<void*>(&records[1]), byte, sizeof records[1]);

    std::string const text = About(records);

    EXPECT_EQ(text.rfind("refused: ", 0), 0U) << byte << "\n" << text;
    EXPECT_NE(text.find("\nmode "), std::string::npos);
    EXPECT_NE(text.find("\n3 processes\nprocess 0: STORE_CSR_0, "), std::string::npos);
    EXPECT_EQ(text.find("never arrived"), std::string::npos) << byte;
  }
}

}  // namespace
}  // namespace Pavex
