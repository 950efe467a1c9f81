// The random assemblies over MPI, and over memory that the processes share.

#include "pavex/comm/mpi_comm.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "tests/assembly/assembly_run.h"

#include <gtest/gtest.h>
#include <memory>
#include <mpi.h>
#include <string>

namespace Pavex {
namespace {

constexpr std::uint64_t kSeed = 20260723;

// Where processes spin while they wait, a job with more of them than cores crawls.
#ifdef MPICH_VERSION
constexpr bool kSpins = true;
#else
constexpr bool kSpins = false;
#endif

void RunCases(std::shared_ptr<Comm> const& comm, MemoryPool& pool) {
  long const cases = kSpins && comm->Size() > 2 ? 50 : 500;
  for (long number = 0; number < cases; ++number) {
    std::string const difference = RunAssemblyCase<double, int>(kSeed, number, comm, pool);
    // Ends the job: the other processes would wait for this one.
    if (!difference.empty()) FAIL() << difference;
  }
}

TEST(AssemblerOverMpi, PutsTogetherWhatADenseReferenceAddsUp) {
  MemoryPool pool;
  RunCases(std::make_shared<MpiComm>(MPI_COMM_WORLD), pool);
}

TEST(AssemblerOverSharedMemory, PutsTogetherWhatADenseReferenceAddsUp) {
  NodePool pool;
  RunCases(std::make_shared<NodeComm>(MPI_COMM_WORLD), pool);
}

}  // namespace
}  // namespace Pavex
