#include "pavex/comm/mpi_comm.h"
#include "pavex/runtime/log.h"
#include "tests/property/property.h"

#include <gtest/gtest.h>
#include <mpi.h>

namespace Pavex {
namespace {

// Processes that wait may spin, so a job with more processes than cores is very slow.
#ifdef MPICH_VERSION
constexpr bool kSpins = true;
#else
constexpr bool kSpins = false;
#endif

long DefaultCases(int processes) {
  return kSpins && processes > 2 ? 100 : 2000;
}

TEST(AggregatorPropertyOverMpi, GathersUpdatesAndScattersAsTheModel) {
  auto const comm = std::make_shared<MpiComm>(MPI_COMM_WORLD);
  auto const options = PropertyOptions::FromEnvironment(DefaultCases(comm->Size()));
  std::printf("seed %lu, cases %ld to %ld\n", options.seed, options.first,
              options.first + options.cases - 1);
  Log::mMaxLogLevel = -1;  // refusals are part of the cases

  for (long number = options.first; number < options.first + options.cases; ++number) {
    std::string const difference = RunCase(options.seed, number, comm);
    // The failure ends the job, because the other ranks would wait for this one.
    if (!difference.empty()) FAIL() << difference << " mpi_property_test";
  }
  Log::mMaxLogLevel = LOG_ERROR;
}

}  // namespace
}  // namespace Pavex
