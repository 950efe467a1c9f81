// What an aggregator says about records.

#pragma once

#include "pavex/runtime/self_comm.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/records.h"

#include <memory>
#include <string>

namespace Pavex {

// The description of `records`. They lie between two other records, which must not be
// described.
inline std::string About(Records records,
                         MatrixLocalInfo const& other = Piece(STORE_DENSE_COL_MAJOR,
                                                              MatrixPartition::RowWise(1), 0, 0,
                                                              3)) {
  auto const count = static_cast<std::int64_t>(records.size());
  records.insert(records.begin(), other);
  records.push_back(other);
  RankUnderTest<> rank(std::make_shared<SelfComm>());
  rank.aggregator.mLocalInfos.Borrow(records.data() + 1, count);
  rank.aggregator.mLocalInfos.mCapacity = count + 1;
  return rank.aggregator.Describe();
}

// Its verdict and the line about the mode.
inline std::string VerdictAbout(Records const& records) {
  std::string const text = About(records);
  std::size_t const mode = text.find("mode ");
  return text.substr(0, text.find('\n', mode) + 1);
}

}  // namespace Pavex
