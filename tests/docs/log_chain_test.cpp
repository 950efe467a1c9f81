// The chain of log lines that the guide shows as an example.

#include "tests/support/dense_rank.h"

#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

namespace Pavex {
namespace {

std::string Guide() {
  std::ostringstream text;
  text << std::ifstream(PAVEX_GUIDE).rdbuf();
  return text.str();
}

TEST(LogChainOfTheGuide, IsThatOfBandsWithAGapBetweenThem) {
  auto const band = [](int begin) {
    return DenseBlock(1, 2, 1, 2, true).In(5, 2, MatrixPartition::RowWise(begin));
  };
  for (int const self : {0, 1}) {
    DenseRank<> rank(self, Pieces(band(0), band(3)));

    Outcome const gathered = rank.Gather();

    ASSERT_NE(gathered.output, "");
    EXPECT_THAT(Guide(), ::testing::HasSubstr("\n```\n" + gathered.output + "```\n"));
  }
}

}  // namespace
}  // namespace Pavex
