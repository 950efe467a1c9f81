#include "pavex/comm/local_comm.h"
#include "pavex/runtime/log.h"
#include "tests/property/property.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

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

TEST_P(AggregatorProperty, GathersUpdatesAndScattersAsTheModel) {
  auto const options = PropertyOptions::FromEnvironment(kCasesPerRankCount);
  std::printf("seed %lu, cases %ld to %ld, %d ranks\n", options.seed, options.first,
              options.first + options.cases - 1, GetParam());

  long const end = options.first + options.cases;
  for (long first = options.first; first < end && !HasFailure(); first += kCasesPerGroup) {
    long const last = std::min(first + kCasesPerGroup, end);
    LocalComm::Run(GetParam(), [&](std::shared_ptr<Comm> const& comm) {
      RunCases(options.seed, first, last, comm);
    });
  }
}

}  // namespace
}  // namespace Pavex
