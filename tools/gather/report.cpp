#include "tools/gather/report.h"

#include "tools/files/rank_table.h"
#include "tools/files/report_text.h"

#include <utility>

namespace Pavex::Tool {

namespace {

using Kind = RankTable::Kind;

std::string Pieces(GatherReport const& report) {
  RankTable table({{"rows", Kind::NO_SUM},
                   {"columns", Kind::NO_SUM},
                   {"begin", Kind::NO_SUM},
                   {"entries", Kind::COUNT},
                   {"MB", Kind::MEGABYTES}});
  for (RankRecord const& record : report.mRanks)
    table.AddRank({record.mRows, record.mCols, record.mBegin, record.mEntries, record.mBytes});
  return table.Text(report.mOptions.mAllRanks);
}

std::string Arrivals(GatherReport const& report) {
  RankTable table({{"rows", Kind::NO_SUM},
                   {"columns", Kind::NO_SUM},
                   {"entries", Kind::COUNT},
                   {"MB arrived", Kind::MEGABYTES},
                   {"MB borrowed", Kind::MEGABYTES},
                   {"peak pool MB", Kind::MEGABYTES}});
  for (RankRecord const& record : report.mRanks) {
    RankTable::Values values;
    if (record.mReceiver)
      values = {record.mGatheredRows, record.mGatheredCols, record.mGatheredEntries,
                record.mArrivedBytes, record.mBorrowedBytes};
    values.resize(5);
    values.emplace_back(record.mPeakPoolBytes);
    table.AddRank(std::move(values));
  }
  return table.Text(report.mOptions.mAllRanks);
}

std::string Verdict(GatherReport const& report) {
  if (!report.Verified()) return "NOT verified: " + report.Difference() + "\n";
  return std::string("verified: every entry is that of the input") +
         (report.mTimings.size() > 1 ? ", after every step\n" : "\n");
}

void AppendTimings(GatherReport const& report, std::string& text) {
  text += "\noperation          ms          MB      GB/s\n";
  for (Timing const& timing : report.mTimings)
    Append(text, "%-10s %10.3f  %10.3f  %8.2f\n", timing.mStep.c_str(), timing.mSeconds * 1e3,
           Megabytes(timing.mBytes), timing.GigabytesPerSecond());
}

}  // namespace

bool GatherReport::Verified() const {
  bool checked = false;
  for (RankRecord const& record : mRanks)
    checked = checked || record.mReceiver;
  return checked && Difference().empty();
}

std::string GatherReport::Difference() const {
  for (std::size_t rank = 0; rank < mRanks.size(); ++rank)
    if (mRanks[rank].mDifference[0] != '\0')
      return "rank " + std::to_string(rank) + ", " + mRanks[rank].mDifference;
  return "";
}

std::string Head(GatherReport const& report) {
  std::string text;
  GatherOptions const& options = report.mOptions;
  text += report.mInput;
  Append(text, ": %ld x %ld, %ld entries, %s\n", report.mWhole.mRows, report.mWhole.mCols,
         report.mWhole.mEntries, report.mField.c_str());
  Append(text, "%s of %s with %s indices, %s%s, gathered on %s", NameOf(options.mFormat),
         NameOf(report.mValue), NameOf(options.mIndex), Cut(options.mPartition).c_str(),
         options.mWithValues ? "" : ", the pattern alone",
         options.mToAll ? "every rank" : ("rank " + std::to_string(options.mReceiver)).c_str());
  if (report.mComm != CommKind::LOCAL) text += ", over MPI";
  if (report.mComm == CommKind::NODE) text += " with shared memory";
  return text + "\n";
}

std::string InText(GatherReport const& report) {
  std::string text = Verdict(report) + Head(report) + "\n";
  Append(text, "pieces, %s %s\n", IsAssembled(report.mOptions) ? "path" : "mode",
         report.Mode());
  text += Pieces(report) + "\ngathered\n" + Arrivals(report);
  AppendTimings(report, text);
  return text;
}

}  // namespace Pavex::Tool
