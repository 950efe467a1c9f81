#include "tools/files/rank_table.h"

#include "tools/files/report_text.h"

#include <algorithm>

namespace Pavex::Tool {

namespace {

constexpr std::size_t kFirstLines = 3;  // ranks shown at the top if not all are shown
constexpr std::size_t kLeastWidth = 10;

int WidthOf(RankTable::Column const& column) {
  return static_cast<int>(std::max(column.mTitle.size(), kLeastWidth));
}

}  // namespace

std::string RankTable::Text(bool allRanks) const {
  std::string text = "  rank";
  for (Column const& column : mColumns)
    Append(text, "  %*s", WidthOf(column), column.mTitle.c_str());
  text += "\n";

  bool const all = allRanks || mRanks.size() <= kMostLines;
  std::size_t const shown = all ? mRanks.size() : kFirstLines;
  for (std::size_t rank = 0; rank < shown; ++rank)
    text += RankLine(rank);
  if (!all) {
    Append(text, "   ...  --all-ranks shows the other %zu\n", mRanks.size() - kFirstLines - 1);
    text += RankLine(mRanks.size() - 1);
    text += Line("least", Extremes(std::min));
    text += Line("most", Extremes(std::max));
  }
  if (mRanks.size() > 1) text += Line("sum", Sums());
  return text;
}

std::string RankTable::Line(std::string const& name, Values const& values) const {
  std::string text;
  Append(text, "%6s", name.c_str());
  for (std::size_t k = 0; k < mColumns.size(); ++k) {
    int const width = WidthOf(mColumns[k]);
    if (!values[k])
      Append(text, "  %*s", width, "-");
    else if (mColumns[k].mKind == Kind::MEGABYTES)
      Append(text, "  %*.3f", width, Megabytes(*values[k]));
    else
      Append(text, "  %*ld", width, *values[k]);
  }
  return text + "\n";
}

std::string RankTable::RankLine(std::size_t rank) const {
  return Line(std::to_string(rank), mRanks[rank]);
}

RankTable::Values RankTable::Extremes(Choice choose) const {
  Values extremes(mColumns.size());
  for (Values const& values : mRanks)
    for (std::size_t k = 0; k < extremes.size(); ++k)
      if (values[k]) extremes[k] = choose(extremes[k].value_or(*values[k]), *values[k]);
  return extremes;
}

RankTable::Values RankTable::Sums() const {
  Values sums(mColumns.size());
  for (Values const& values : mRanks)
    for (std::size_t k = 0; k < sums.size(); ++k)
      if (values[k] && mColumns[k].mKind != Kind::NO_SUM)
        sums[k] = sums[k].value_or(0) + *values[k];
  return sums;
}

}  // namespace Pavex::Tool
