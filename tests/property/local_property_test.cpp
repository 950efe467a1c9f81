#include "pavex/comm/local_comm.h"
#include "pavex/runtime/log.h"
#include "tests/property/property.h"
#include "tests/support/plain_comm.h"
#include "tests/support/strided_comm.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <type_traits>

namespace Pavex {
namespace {

#ifdef PAVEX_MOST_PER_CALL
constexpr long kCasesPerRankCount = 1000;
#else
constexpr long kCasesPerRankCount = 5000;
#endif
constexpr long kCasesPerGroup = 100;

class AggregatorProperty : public testing::TestWithParam<int> {
 protected:
  void SetUp() override { Log::mMaxLogLevel = -1; }  // refusals are part of the cases
  void TearDown() override { Log::mMaxLogLevel = LOG_ERROR; }
};
INSTANTIATE_TEST_SUITE_P(OnLocalComm, AggregatorProperty, testing::Range(1, 8),
                         [](auto const& ranks) {
                           return "Ranks" + std::to_string(ranks.param);
                         });

void RunCases(std::uint64_t seed, long first, long end, std::shared_ptr<Comm> const& comm) {
  for (long number = first; number < end; ++number) {
    std::string const difference = RunCase(seed, number, comm);
    if (difference.empty()) continue;
    ADD_FAILURE() << difference << " local_property_test --gtest_filter=*/Ranks"
                  << comm->Size();
    return;
  }
}

// `Wrapped`: the communicator that the aggregators use, over a rank of a LocalComm.
template <typename Wrapped>
void RunAllCases(int ranks, long cases) {
  auto const options = PropertyOptions::FromEnvironment(cases);
  std::printf("seed %lu, cases %ld to %ld, %d ranks\n", options.seed, options.first,
              options.first + options.cases - 1, ranks);

  long const end = options.first + options.cases;
  for (long first = options.first; first < end && !testing::Test::HasFailure();
       first += kCasesPerGroup) {
    long const last = std::min(first + kCasesPerGroup, end);
    LocalComm::Run(ranks, [&](std::shared_ptr<Comm> const& comm) {
      if constexpr (std::is_same_v<Wrapped, LocalComm>)
        RunCases(options.seed, first, last, comm);
      else
        RunCases(options.seed, first, last, std::make_shared<Wrapped>(comm));
    });
  }
}

TEST_P(AggregatorProperty, GathersUpdatesAndScattersAsTheModel) {
  RunAllCases<PlainComm>(GetParam(), kCasesPerRankCount);
}

TEST_P(AggregatorProperty, MovesRunsAsTheModel) {
  RunAllCases<LocalComm>(GetParam(), kCasesPerRankCount / 2);
}

// A communicator of an application may say that it moves runs for a single rank too.
TEST_P(AggregatorProperty, MovesRunsOfAnApplicationAsTheModel) {
  RunAllCases<StridedComm>(GetParam(), kCasesPerRankCount / 5);
}

}  // namespace
}  // namespace Pavex
