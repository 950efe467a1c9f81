// The aggregator against a model, on any communicator: random matrices are gathered, updated
// and scattered, and every rank checks all that it can see.

#pragma once

#include "pavex/runtime/comm.h"
#include "pavex/runtime/memory_pool.h"
#include "tests/property/rng.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Pavex {

// Which cases to run; a case is fixed by the seed, its number and the number of ranks. Set by
// the environment variables PAVEX_PROPERTY_SEED, PAVEX_PROPERTY_FIRST and PAVEX_PROPERTY_CASES.
struct PropertyOptions {
  std::uint64_t seed = 1;
  long first = 0;
  long cases = 0;

  static PropertyOptions FromEnvironment(long defaultCases);
};

// Runs case `number` as one rank of `comm`: two matrices of any format, one after the other on
// one aggregator of one of the eight instances. Each is gathered, updated and, if dense,
// scattered. Collective. Returns what went wrong first on this rank and how to see it again;
// empty if all is right. Failures of the ledger of the memory go to GoogleTest.
// `source`: where the memory comes from in place of the heap.
std::string RunCase(std::uint64_t seed, long number, std::shared_ptr<Comm> const& comm,
                    MemoryPool* source = nullptr);

// The same for the case that `rng` chooses, alike on every rank; does not know how to see it
// again.
std::string RunCase(Rng& rng, std::shared_ptr<Comm> const& comm, MemoryPool* source = nullptr);

}  // namespace Pavex
