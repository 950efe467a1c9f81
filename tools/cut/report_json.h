// The parts that the reports for programs share. docs/json.md describes each key.

#pragma once

#include "tools/choice/options.h"
#include "tools/cut/pieces.h"

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace Pavex::Tool {

// The input, and how it is cut and gathered.
struct ReportHead {
  char const* mCommand;
  std::string const& mInput;
  std::string const& mField;
  Extent mWhole;
  CommKind mComm;
  std::size_t mRanks;
  ValueKind mValue;
  CutOptions const& mCut;
  RunOptions const& mRun;
};

nlohmann::ordered_json InJson(ReportHead const& head);

// A transfer that all ranks took part in. `operation`: "gather", "update" or "scatter"; `of`:
// what was moved; `seconds`: the time of the slowest rank; `bytes`: the bytes that arrived on
// all ranks together.
nlohmann::ordered_json TransferInJson(std::string const& operation, char const* of,
                                      double seconds, long bytes);

// The text of the file. Bytes of a file name that are not UTF-8 are replaced.
std::string TextOf(nlohmann::ordered_json const& report);

}  // namespace Pavex::Tool
