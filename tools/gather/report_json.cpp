#include "pavex/runtime/version.h"
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

Json Steps(GatherReport const& report) {
  Json steps = Json::array();
  for (Timing const& timing : report.mTimings)
    steps.push_back({{"step", timing.mStep},
                     {"seconds", timing.mSeconds},
                     {"bytes", timing.mBytes},
                     {"gigabytesPerSecond", timing.GigabytesPerSecond()}});
  return steps;
}

}  // namespace

std::string InJson(GatherReport const& report) {
  GatherOptions const& options = report.mOptions;
  Json json = {{"command", "gather"},
               {"version", PavexVersion()},
               {"input", report.mInput},
               {"rows", report.mWhole.mRows},
               {"columns", report.mWhole.mCols},
               {"entries", report.mWhole.mEntries},
               {"field", report.mField},
               {"comm", NameOf(report.mComm)},
               {"ranks", report.mRanks.size()},
               {"format", NameOf(options.mFormat)},
               {"partition", NameOf(options.mPartition)},
               {"value", NameOf(report.mValue)},
               {"index", NameOf(options.mIndex)},
               {"withValues", options.mWithValues},
               {"to", options.mToAll ? "all" : "root"},
               {"mode", report.Mode()},
               {"pieces", Pieces(report)},
               {"gathered", Gathered(report)},
               {"steps", Steps(report)},
               {"verified", report.Verified()}};
  if (!report.Verified()) json["difference"] = report.Difference();
  // A file name may hold any bytes; those that are no UTF-8 are replaced.
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Pavex::Tool
