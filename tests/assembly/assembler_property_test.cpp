#include "pavex/comm/local_comm.h"
#include "tests/assembly/assembly_run.h"
#include "tests/support/cases_to_run.h"
#include "tests/support/instances.h"
#include "tests/support/ledger_pool.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

namespace Pavex {
namespace {

#ifdef PAVEX_TESTS_ALL
constexpr long kCases = 5000;
#else
constexpr long kCases = 300;
#endif
constexpr std::uint64_t kSeed = 20260722;

template <typename Types>
class AssemblerProperty : public testing::Test {};
TYPED_TEST_SUITE(AssemblerProperty, AllInstances);

TYPED_TEST(AssemblerProperty, PutsTogetherWhatADenseReferenceAddsUp) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  long const cases = CasesToRun(kCases);
  for (int const ranks : {1, 2, 3, 4, 7}) {
    LocalComm::Run(ranks, [cases](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      for (long number = 0; number < cases; ++number) {
        std::string const difference = RunAssemblyCase<T, I>(kSeed, number, comm, pool);
        if (difference.empty()) continue;
        ADD_FAILURE() << difference;
        return;
      }
    });
    if (this->HasFailure()) return;
  }
}

}  // namespace
}  // namespace Pavex
