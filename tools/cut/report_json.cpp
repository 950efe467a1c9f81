#include "tools/cut/report_json.h"

#include "pavex/runtime/version.h"

#include <nlohmann/json.hpp>
#include <string>

namespace Pavex::Tool {

using Json = nlohmann::ordered_json;

namespace {

std::string To(RunOptions const& options) {
  if (options.mToAll) return "all";
  return options.mReceiver == 0 ? "root" : "rank " + std::to_string(options.mReceiver);
}

}  // namespace

Json InJson(ReportHead const& head) {
  return {{"command", head.mCommand},
          {"version", PavexVersion()},
          {"input", head.mInput},
          {"rows", head.mWhole.mRows},
          {"columns", head.mWhole.mCols},
          {"entries", head.mWhole.mEntries},
          {"field", head.mField},
          {"comm", NameOf(head.mComm)},
          {"ranks", head.mRanks},
          {"format", NameOf(head.mCut.mFormat)},
          {"partition", NameOf(head.mCut.mPartition)},
          {"value", NameOf(head.mValue)},
          {"index", NameOf(head.mRun.mIndex)},
          {"withValues", head.mCut.mWithValues},
          {"to", To(head.mRun)}};
}

Json TransferInJson(std::string const& operation, char const* of, double seconds, long bytes) {
  double const rate = seconds > 0 ? static_cast<double>(bytes) / seconds * 1e-9 : 0;
  return {{"operation", operation},
          {"of", of},
          {"seconds", seconds},
          {"bytes", bytes},
          {"gigabytesPerSecond", rate}};
}

std::string TextOf(Json const& report) {
  return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Pavex::Tool
