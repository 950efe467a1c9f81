// Compares the aggregator with a model, on any communicator: random matrices are gathered,
// updated and scattered, and every rank checks everything that it sees.

#pragma once

#include "pavex/runtime/comm.h"
#include "pavex/runtime/memory_pool.h"
#include "tests/property/rng.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Pavex {

// Which cases to run. The seed, the number of the case and the number of ranks determine a
// case. The environment variables PAVEX_PROPERTY_SEED, PAVEX_PROPERTY_FIRST and
// PAVEX_PROPERTY_CASES set these values.
struct PropertyOptions {
  std::uint64_t seed = 1;
  long first = 0;
  long cases = 0;

  static PropertyOptions FromEnvironment(long defaultCases);
};

// Runs case `number` as one rank of `comm`: two matrices of any format, one after the other on
// one aggregator of one of the eight instances. Each is gathered, updated and, if dense,
// scattered. Collective. Returns the first fault on this rank and how to reproduce it; empty if
// there is none. Failures of the ledger of the memory go to GoogleTest.
// `source`: the pool that gives the memory in place of the heap.
std::string RunCase(std::uint64_t seed, long number, std::shared_ptr<Comm> const& comm,
                    MemoryPool* source = nullptr);

// Runs the case that `rng` chooses, which must be the same on every rank. The result does not
// say how to reproduce it.
std::string RunCase(Rng& rng, std::shared_ptr<Comm> const& comm, MemoryPool* source = nullptr);

}  // namespace Pavex
