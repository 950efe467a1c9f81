#include "tools/gather/report.h"

#include "tools/files/report_text.h"

namespace Pavex::Tool {

namespace {

void AppendPieces(GatherReport const& report, std::string& text) {
  Append(text, "pieces, mode %s\n", report.Mode());
  text += "  rank        rows     columns       begin     entries         MB\n";
  for (std::size_t rank = 0; rank < report.mRanks.size(); ++rank) {
    RankRecord const& record = report.mRanks[rank];
    Append(text, "  %4zu  %10ld  %10ld  %10ld  %10ld  %9.3f\n", rank, record.mRows,
           record.mCols, record.mBegin, record.mEntries, Megabytes(record.mBytes));
  }
}

void AppendArrivals(GatherReport const& report, std::string& text) {
  text += "\ngathered\n";
  text += "  rank        rows     columns     entries  MB arrived  MB borrowed  peak pool MB\n";
  for (std::size_t rank = 0; rank < report.mRanks.size(); ++rank) {
    RankRecord const& record = report.mRanks[rank];
    if (record.mReceiver)
      Append(text, "  %4zu  %10ld  %10ld  %10ld  %10.3f  %11.3f  %12.3f\n", rank,
             record.mGatheredRows, record.mGatheredCols, record.mGatheredEntries,
             Megabytes(record.mArrivedBytes), Megabytes(record.mBorrowedBytes),
             Megabytes(record.mPeakPoolBytes));
    else
      Append(text, "  %4zu  %10s  %10s  %10s  %10s  %11s  %12.3f\n", rank, "-", "-", "-", "-",
             "-", Megabytes(record.mPeakPoolBytes));
  }
}

void AppendTimings(GatherReport const& report, std::string& text) {
  text += "\nstep               ms          MB      GB/s\n";
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
  Append(text, "%s of %s%s with %s indices, %s, gathered on %s", NameOf(options.mFormat),
         options.mWithValues ? "" : "the pattern without ", NameOf(report.mValue),
         NameOf(options.mIndex), Cut(options.mPartition).c_str(),
         options.mToAll ? "every rank" : "rank 0");
  if (report.mComm == CommKind::MPI) text += ", over MPI";
  return text + "\n";
}

std::string InText(GatherReport const& report) {
  std::string text = Head(report) + "\n";
  AppendPieces(report, text);
  AppendArrivals(report, text);
  AppendTimings(report, text);
  text += report.Verified() ? "\nverified: every entry is that of the input"
                            : "\nNOT verified: " + report.Difference();
  if (report.Verified() && report.mTimings.size() > 1) text += ", after every step";
  return text + "\n";
}

}  // namespace Pavex::Tool
