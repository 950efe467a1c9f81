// What `pavex plan` prints.

#include "tools/cut/report_json.h"
#include "tools/files/rank_table.h"
#include "tools/files/report_text.h"
#include "tools/plan/plan.h"

#include <nlohmann/json.hpp>

namespace Pavex::Tool {

namespace {

using Json = nlohmann::ordered_json;

using Kind = RankTable::Kind;

std::string Verdict(Plan const& plan) {
  std::string text = plan.Accepted()
                         ? std::string("accepted: mode ") + DistMatrixModeStr(plan.mMode) + "\n"
                         : "refused: " + plan.mRefusal + "\n";
  for (std::string const& warning : plan.mWarnings)
    text += "warning: " + warning + "\n";
  return text;
}

std::string Head(Plan const& plan) {
  std::string const head = plan.mInput + ": " + std::to_string(plan.mWhole.mRows) + " x " +
                           std::to_string(plan.mWhole.mCols) + ", " +
                           std::to_string(plan.mWhole.mEntries) + " entries, " + plan.mField +
                           "\n";
  return head + NameOf(plan.mCut.mFormat) + " of " + NameOf(plan.mValue) + " with " +
         NameOf(plan.mRun.mIndex) + " indices, partition " + NameOf(plan.mCut.mPartition) +
         (plan.mCut.mWithValues ? "" : ", the pattern alone") + "\n";
}

std::string Pieces(Plan const& plan, bool allRanks) {
  RankTable table({{"rows", Kind::NO_SUM},
                   {"columns", Kind::NO_SUM},
                   {"begin", Kind::NO_SUM},
                   {"entries", Kind::COUNT},
                   {"MB", Kind::MEGABYTES},
                   {"messages", Kind::COUNT},
                   {"MB received", Kind::MEGABYTES},
                   {"peak pool MB", Kind::MEGABYTES}});
  for (PlanRank const& rank : plan.mRanks)
    table.AddRank({rank.mRows, rank.mCols, rank.mBegin, rank.mEntries, rank.mBytes,
                   rank.mMessages, rank.mMessageBytes, rank.mPeakPoolBytes});
  return table.Text(allRanks);
}

Json RankJson(std::size_t number, PlanRank const& rank) {
  return {{"rank", number},
          {"rows", rank.mRows},
          {"columns", rank.mCols},
          {"begin", rank.mBegin},
          {"entries", rank.mEntries},
          {"bytes", rank.mBytes},
          {"receives", rank.mReceiver},
          {"calls", rank.mCalls},
          {"messages", rank.mMessages},
          {"messageBytes", rank.mMessageBytes},
          {"peakPoolBytes", rank.mPeakPoolBytes}};
}

// The gathered matrix as each receiver has it.
Json GatheredJson(Plan const& plan) {
  Json gathered = Json::array();
  for (std::size_t rank = 0; rank < plan.mRanks.size(); ++rank)
    if (plan.mRanks[rank].mReceiver)
      gathered.push_back({{"rank", rank},
                          {"rows", plan.mRows},
                          {"columns", plan.mCols},
                          {"entries", plan.mEntries}});
  return gathered;
}

}  // namespace

std::string InText(Plan const& plan, bool allRanks) {
  std::string text = Verdict(plan) + Head(plan) + "\n";
  if (!plan.mDecided) return text + plan.mDescription;
  text += std::string("pieces, mode ") + DistMatrixModeStr(plan.mMode) + "\n" +
          Pieces(plan, allRanks);
  Append(text, "\ngathered: %ld x %ld, %ld entries, on %s\n", plan.mRows, plan.mCols,
         plan.mEntries, plan.mRun.mToAll ? "every rank" : "rank 0");
  Append(text, "messages: %ld with %.3f MB\n", plan.Messages(), Megabytes(plan.MessageBytes()));
  return text;
}

std::string InJson(Plan const& plan) {
  Json json = InJson(ReportHead{"plan", plan.mInput, plan.mField, plan.mWhole, plan.mComm,
                                plan.mRanks.size(), plan.mValue, plan.mCut, plan.mRun});
  json["accepted"] = plan.Accepted();
  json["refusal"] = plan.mRefusal;
  json["warnings"] = plan.mWarnings;
  json["description"] = plan.mDescription;
  Json pieces = Json::array();
  for (std::size_t rank = 0; rank < plan.mRanks.size(); ++rank)
    pieces.push_back(RankJson(rank, plan.mRanks[rank]));
  json["pieces"] = pieces;
  if (plan.mDecided) {
    json["mode"] = DistMatrixModeStr(plan.mMode);
    json["gathered"] = GatheredJson(plan);
    json["messages"] = plan.Messages();
    json["messageBytes"] = plan.MessageBytes();
  }
  return TextOf(json);
}

}  // namespace Pavex::Tool
