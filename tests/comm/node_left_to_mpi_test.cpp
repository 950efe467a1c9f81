// A process of the node ends while MPI carries a piece of another node into a window. This
// binary defines the functions of MPI and of the system that bring that about.

#include "tests/comm/mpi_fixture.h"
#include "tests/comm/node_blocks.h"
#include "tests/comm/node_refusal.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace Pavex {
namespace {

// Rank 0 takes all others for ended from its first receive over MPI on.
bool gLosesPeers = false;
std::unique_ptr<Refusing> gRefusing;

}  // namespace
}  // namespace Pavex

extern "C" {

__attribute__((visibility("default"))) int MPI_Irecv(void* buf, int count, MPI_Datatype type,
                                                     int source, int tag, MPI_Comm comm,
                                                     MPI_Request* request) {
  if (Pavex::gLosesPeers && Pavex::gRefusing == nullptr)
    Pavex::gRefusing = std::make_unique<Pavex::Refusing>(Pavex::Refusal::PEERS);
  return PMPI_Irecv(buf, count, type, source, tag, comm, request);
}

// What is on its way can no longer be cancelled.
__attribute__((visibility("default"))) int MPI_Cancel(MPI_Request* request) {
  return Pavex::gLosesPeers ? MPI_SUCCESS : PMPI_Cancel(request);
}

}  // extern "C"

namespace Pavex {
namespace {

// Ranks 0 and 1 share memory, rank 2 is another node.
class NodeLeftToMpi : public ::testing::Test {
 protected:
  static constexpr int kPiece = 3 << 20;

  PavexStatus Gather(PoolBlock& whole) {
    return mComm.Allgather(mOwn.data(), kPiece, DATATYPE_BYTE, whole.Data(), kPiece,
                           DATATYPE_BYTE);
  }

  NodeComm mComm{MPI_COMM_WORLD, 2};
  NodePool mPool;
  std::vector<unsigned char> mOwn = std::vector<unsigned char>(kPiece, 7);
};

TEST_F(NodeLeftToMpi, WhatStillArrivesForAnArrayThatIsGivenUpHasAPlace) {
  TimeLimit const limit(60);
  int const rank = mComm.Rank();
  auto whole = std::make_unique<PoolBlock>(mPool, 3 * kPiece);
  int go = 1;
  if (rank == 2) MPI_Recv(&go, 1, MPI_INT, 0, 0, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
  gLosesPeers = rank == 0;
  PavexStatus status = STATUS_OK;
  CaptureStdout([&] { status = Gather(*whole); });
  if (rank == 0) MPI_Send(&go, 1, MPI_INT, 2, 0, MPI_COMM_WORLD);

  EXPECT_EQ(status, rank == 2 ? STATUS_OK : STATUS_COMM_FAILED);
  EXPECT_FALSE(IsView(*whole));
  MPI_Barrier(MPI_COMM_WORLD);  // the piece arrives
  EXPECT_EQ(gRefusing != nullptr, rank == 0);
  gLosesPeers = false;
  gRefusing.reset();
}

}  // namespace
}  // namespace Pavex
