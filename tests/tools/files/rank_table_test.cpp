#include "tools/files/rank_table.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

using Kind = RankTable::Kind;

// Rank k begins at 10 k and has 100 + (k * 7) % 11 entries in as many kilobytes; only rank 0
// receives.
RankTable TableOf(long ranks) {
  RankTable table({{"begin", Kind::NO_SUM},
                   {"entries", Kind::COUNT},
                   {"MB", Kind::MEGABYTES},
                   {"MB received", Kind::MEGABYTES}});
  for (long k = 0; k < ranks; ++k) {
    long const entries = 100 + k * 7 % 11;
    table.AddRank({10 * k, entries, entries * 1000,
                   k == 0 ? std::optional<long>(5000000) : std::nullopt});
  }
  return table;
}

TEST(RankTable, ShowsEachOfAFewRanksAndTheSums) {
  EXPECT_EQ(TableOf(3).Text(false),
            "  rank       begin     entries          MB  MB received\n"
            "     0           0         100       0.100        5.000\n"
            "     1          10         107       0.107            -\n"
            "     2          20         103       0.103            -\n"
            "   sum           -         310       0.310        5.000\n");
}

TEST(RankTable, HasNoSumsOfASingleRank) {
  EXPECT_EQ(TableOf(1).Text(false),
            "  rank       begin     entries          MB  MB received\n"
            "     0           0         100       0.100        5.000\n");
}

TEST(RankTable, ShowsTheFirstTheLastAndTheExtremesOfManyRanks) {
  EXPECT_EQ(TableOf(1000).Text(false),
            "  rank       begin     entries          MB  MB received\n"
            "     0           0         100       0.100        5.000\n"
            "     1          10         107       0.107            -\n"
            "     2          20         103       0.103            -\n"
            "   ...  --all-ranks shows the other 996\n"
            "   999        9990         108       0.108            -\n"
            " least           0         100       0.100        5.000\n"
            "  most        9990         110       0.110        5.000\n"
            "   sum           -      105001     105.001        5.000\n");
}

long Lines(std::string const& text) {
  return std::count(text.begin(), text.end(), '\n');
}

TEST(RankTable, ShowsEveryRankOnRequest) {
  EXPECT_EQ(Lines(TableOf(8).Text(false)), 1 + 8 + 1);
  EXPECT_EQ(Lines(TableOf(9).Text(false)), 1 + 3 + 1 + 1 + 3);
  EXPECT_EQ(Lines(TableOf(1000).Text(true)), 1 + 1000 + 1);
}

}  // namespace
}  // namespace Pavex::Tool
