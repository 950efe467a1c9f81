// Processes that call different operations of an assembler, over MPI and over memory that the
// processes share.

#include "pavex/comm/mpi_comm.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "tests/assembly/mixed_operations.h"
#include "tests/support/log_level.h"

#include <gtest/gtest.h>
#include <memory>
#include <mpi.h>
#include <string>

namespace Pavex {
namespace {

// ASSERT ends the job if one process fails: the others would wait for it.
TEST(AssemblerAgreementOverMpi, RefusesOnEveryProcessEveryOperationThatMeetsAnotherOne) {
  LogLevel const silent(-1);
  MemoryPool pool;
  ASSERT_EQ(RunAllMixed(std::make_shared<MpiComm>(MPI_COMM_WORLD), pool), "");
}

TEST(AssemblerAgreementOverSharedMemory,
     RefusesOnEveryProcessEveryOperationThatMeetsAnotherOne) {
  LogLevel const silent(-1);
  NodePool pool;
  ASSERT_EQ(RunAllMixed(std::make_shared<NodeComm>(MPI_COMM_WORLD), pool), "");
}

}  // namespace
}  // namespace Pavex
