#include "tests/faults/kinds.h"

#include "tests/faults/steps.h"

#include <gtest/gtest.h>
#include <set>
#include <stdexcept>

namespace Pavex {
namespace {

using Calls = std::set<std::pair<Purpose, Operation>>;

void AddCalls(Round const& round, Operation operation, Calls& calls) {
  for (std::size_t rank = 0; rank < round.pieces.size(); ++rank) {
    for (Step const& step : StepsOf(round, static_cast<int>(rank), operation, {8, 4}))
      calls.emplace(step.purpose, operation);
  }
}

TEST(FaultKinds, MakeEveryCallThatCanFail) {
  Calls made;

  for (int ranks = 1; ranks <= 4; ++ranks) {
    for (Round const& round : OneRoundOfEachKind(ranks)) {
      AddCalls(round, Operation::GATHER, made);
      AddCalls(round, Operation::UPDATE, made);
      if (round.IsDense()) AddCalls(round, Operation::SCATTER, made);
    }
  }

  auto const occurring = CallsThatOccur();
  EXPECT_EQ(made, Calls(occurring.begin(), occurring.end()));
}

TEST(FaultKinds, AreAllDifferent) {
  for (int ranks = 1; ranks <= 4; ++ranks) {
    std::set<std::string> kinds;
    for (Round const& round : OneRoundOfEachKind(ranks))
      kinds.insert(KindOf(round));
    EXPECT_EQ(kinds.size(), CountOfKinds(ranks)) << ranks << " ranks";
  }
}

TEST(FaultSteps, RefuseACallThatTheOperationDoesNotMake) {
  EXPECT_EQ(LinesOf(Purpose::RECORDS, Operation::GATHER), 3);
  EXPECT_THROW(LinesOf(Purpose::RECORDS, Operation::UPDATE), std::logic_error);
}

}  // namespace
}  // namespace Pavex
