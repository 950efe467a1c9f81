// Computes what a gather will do, before anything moves. It uses the counts of the pieces alone
// and the decision of the library.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "tools/choice/options.h"
#include "tools/cut/pieces.h"
#include "tools/source/source.h"

#include <string>
#include <vector>

namespace Pavex::Tool {

struct PlanRank {
  // The piece, as in the report of a gather.
  long mRows = 0;
  long mCols = 0;
  long mBegin = 0;
  long mEntries = 0;
  long mBytes = 0;

  bool mReceiver = false;
  long mCalls = 0;         // of the communicator, Rank and Size not counted
  long mMessages = 0;      // contributions of other ranks that this one receives
  long mMessageBytes = 0;  // and their bytes
  long mPeakPoolBytes = 0;
};

struct Plan {
  CommKind mComm = CommKind::LOCAL;  // how the ranks would run
  std::string mInput;
  std::string mField;
  Extent mWhole;
  CutOptions mCut;
  RunOptions mRun;
  ValueKind mValue = ValueKind::DOUBLE;

  // The message with which `pavex gather` refuses this; empty if it does not.
  std::string mRefusal;

  // Whether the library has decided a mode. It may do so although the command refuses.
  bool mDecided = false;
  DistMatrixMode mMode = DISTRIBUTED;  // if decided, as are the numbers of the ranks
  std::string mDescription;

  // The gathered matrix.
  long mRows = 0;
  long mCols = 0;
  long mEntries = 0;

  std::vector<PlanRank> mRanks;
  std::vector<std::string> mWarnings;

  bool Accepted() const { return mRefusal.empty(); }
  long Messages() const;
  long MessageBytes() const;
};

// Plans a gather with run.mRanks ranks over `comm`; local. Updates and scatters are not
// planned. Throws InputError for pieces that cannot be cut, and for more entries than it can
// count the bytes of.
Plan MakePlan(Source const& source, CutOptions const& cut, RunOptions const& run,
              CommKind comm);

// The table shows every rank if `allRanks`.
std::string InText(Plan const& plan, bool allRanks = false);
std::string InJson(Plan const& plan);

}  // namespace Pavex::Tool
