// The report of `pavex gather`, for readers and for programs.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/assembly/assembly_plan.h"
#include "tools/choice/options.h"
#include "tools/cut/pieces.h"

#include <cstdio>
#include <string>
#include <vector>

namespace Pavex::Tool {

// What one rank held and what it received. Plain data: it travels between ranks as bytes.
struct RankRecord {
  // The piece. mBegin is the first global row or column of a band, else 0; bytes are those of
  // its index and value arrays.
  long mRows = 0;
  long mCols = 0;
  long mBegin = 0;
  long mEntries = 0;
  long mBytes = 0;

  // As the library decided: an Aggregator a mode, an Assembler a path.
  DistMatrixMode mMode = DISTRIBUTED;
  AssemblyPath mPath = AssemblyPath::NOTHING;

  // The gathered matrix, on receivers. Its arrays are either new ones that arrived, or borrowed
  // from the piece.
  bool mReceiver = false;
  long mGatheredRows = 0;
  long mGatheredCols = 0;
  long mGatheredEntries = 0;
  long mArrivedBytes = 0;
  long mBorrowedBytes = 0;

  long mPeakPoolBytes = 0;  // of this rank's pool over the whole run

  char mDifference[256] = "";  // the first difference that the check found; empty: verified
};

// The time and the traffic of one step of all ranks.
struct Timing {
  std::string mStep;    // "gather", "update", "scatter"
  double mSeconds = 0;  // of the slowest rank
  long mBytes = 0;      // that arrived on all ranks together

  double GigabytesPerSecond() const {
    return mSeconds > 0 ? static_cast<double>(mBytes) / mSeconds * 1e-9 : 0;
  }
};

struct GatherReport {
  CommKind mComm = CommKind::LOCAL;
  std::string mInput;
  std::string mField;
  Extent mWhole;
  GatherOptions mOptions;
  ValueKind mValue = ValueKind::DOUBLE;
  std::vector<RankRecord> mRanks;
  std::vector<Timing> mTimings;

  // How the library describes the pieces; the same on every rank.
  char const* Mode() const {
    return IsAssembled(mOptions) ? AssemblyPathStr(mRanks.front().mPath)
                                 : DistMatrixModeStr(mRanks.front().mMode);
  }

  // Whether no rank found a difference and at least one had something to check.
  bool Verified() const;
  // The first difference with its rank; empty if there is none.
  std::string Difference() const;
};

// Two lines that say what was gathered and how.
std::string Head(GatherReport const& report);
std::string InText(GatherReport const& report);
std::string InJson(GatherReport const& report);

}  // namespace Pavex::Tool
