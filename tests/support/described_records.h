// What an aggregator tells about records.

#pragma once

#include "pavex/runtime/self_comm.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/records.h"

#include <memory>
#include <string>

namespace Pavex {

// What is said about `records`, however they came.
inline std::string About(Records records) {
  RankUnderTest<> rank(std::make_shared<SelfComm>());
  rank.aggregator.mLocalInfos = View(records);
  return rank.aggregator.Describe();
}

// Its line about the mode and what follows.
inline std::string VerdictAbout(Records const& records) {
  std::string const text = About(records);
  return text.substr(text.find("mode "));
}

}  // namespace Pavex
