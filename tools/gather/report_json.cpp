#include "tools/cut/report_json.h"

#include "tools/gather/report.h"

#include <nlohmann/json.hpp>

namespace Pavex::Tool {

namespace {

using Json = nlohmann::ordered_json;

Json Pieces(GatherReport const& report) {
  Json pieces = Json::array();
  for (std::size_t rank = 0; rank < report.mRanks.size(); ++rank) {
    RankRecord const& record = report.mRanks[rank];
    pieces.push_back({{"rank", rank},
                      {"rows", record.mRows},
                      {"columns", record.mCols},
                      {"begin", record.mBegin},
                      {"entries", record.mEntries},
                      {"bytes", record.mBytes},
                      {"peakPoolBytes", record.mPeakPoolBytes}});
  }
  return pieces;
}

Json Gathered(GatherReport const& report) {
  Json gathered = Json::array();
  for (std::size_t rank = 0; rank < report.mRanks.size(); ++rank) {
    RankRecord const& record = report.mRanks[rank];
    if (!record.mReceiver) continue;
    gathered.push_back({{"rank", rank},
                        {"rows", record.mGatheredRows},
                        {"columns", record.mGatheredCols},
                        {"entries", record.mGatheredEntries},
                        {"arrivedBytes", record.mArrivedBytes},
                        {"borrowedBytes", record.mBorrowedBytes}});
  }
  return gathered;
}

Json Operations(GatherReport const& report) {
  Json operations = Json::array();
  for (Timing const& timing : report.mTimings)
    operations.push_back(
        TransferInJson(timing.mStep, "matrix", timing.mSeconds, timing.mBytes));
  return operations;
}

}  // namespace

std::string InJson(GatherReport const& report) {
  Json json =
      InJson(ReportHead{"gather", report.mInput, report.mField, report.mWhole, report.mComm,
                        report.mRanks.size(), report.mValue, report.mOptions, report.mOptions});
  json["mode"] = report.Mode();
  json["pieces"] = Pieces(report);
  json["gathered"] = Gathered(report);
  json["operations"] = Operations(report);
  json["verified"] = report.Verified();
  json["difference"] = report.Difference();
  return TextOf(json);
}

}  // namespace Pavex::Tool
