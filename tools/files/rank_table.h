// A table for readers with a line for each rank of a job.

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Pavex::Tool {

// Up to kMostLines ranks are shown one by one, with the sums below them. Of more ranks the
// table shows the first ones, the last one, and the least and the most of each column:
//
//     rank     entries         MB
//        0         500      0.006
//        1         700      0.008
//        2         700      0.008
//      ...  --all-ranks shows the other 96
//       99         500      0.006
//    least         500      0.006
//     most         700      0.008
//      sum       69600      0.835
class RankTable {
 public:
  static constexpr std::size_t kMostLines = 8;

  enum class Kind {
    NO_SUM,    // a number whose sum means nothing
    COUNT,     // a number
    MEGABYTES  // bytes, shown in millions
  };
  struct Column {
    std::string mTitle;  // the column is as wide, or 10 characters
    Kind mKind;
  };

  // One value for each column. An unset value is shown as "-".
  using Values = std::vector<std::optional<long>>;

  explicit RankTable(std::vector<Column> columns) : mColumns(std::move(columns)) {}

  // Adds the next rank. The first call adds rank 0.
  void AddRank(Values values) { mRanks.push_back(std::move(values)); }

  // The lines of the table, each with its line end. Shows every rank if `allRanks`.
  std::string Text(bool allRanks) const;

 private:
  using Choice = long const& (*)(long const&, long const&);

  std::string Line(std::string const& name, Values const& values) const;
  std::string RankLine(std::size_t rank) const;
  Values Extremes(Choice choose) const;
  Values Sums() const;

  std::vector<Column> mColumns;
  std::vector<Values> mRanks;
};

}  // namespace Pavex::Tool
