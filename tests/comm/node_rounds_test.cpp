// Rounds that make, use and destroy everything leave nothing behind.

#include "tests/comm/mpi_fixture.h"
#include "tests/comm/node_blocks.h"

#include <cstring>
#include <memory>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Pavex {
namespace {

#ifdef PAVEX_TESTS_ALL
constexpr int kRounds = 10000;
#else
constexpr int kRounds = 300;
#endif

// Where waiting processes keep their core, more of them than cores take much longer to make a
// communicator.
#ifdef MPICH_VERSION
constexpr int kShare = 5;
#else
constexpr int kShare = 1;
#endif

// More processes than cores take longer for each round.
int MostRounds() {
  int processes = 0;
  MPI_Comm_size(MPI_COMM_WORLD, &processes);
  return processes > 2 ? kRounds / 10 / kShare : kRounds;
}

void FillAndGather(Comm const& comm, PoolBlock& own, PoolBlock& whole, int piece, int round) {
  std::memset(own.Data(), (comm.Rank() + round) % 251, static_cast<std::size_t>(piece));
  EXPECT_EQ(
      comm.Allgather(own.Data(), piece, DATATYPE_BYTE, whole.Data(), piece, DATATYPE_BYTE),
      STATUS_OK);
  for (int r = 0; r < comm.Size(); ++r)
    EXPECT_EQ(whole.Data()[(r + 1) * piece - 1], (r + round) % 251);
}

void MakeUseAndDestroy(int round) {
  constexpr int kPieces[] = {100, 70000, 3000000};
  int const piece = kPieces[round % 10 == 9 ? 2 : round % 2];
  auto comm = std::make_unique<NodeComm>(MPI_COMM_WORLD);
  auto pool = std::make_unique<NodePool>();
  EXPECT_TRUE(comm->Active());
  {
    PoolBlock own(*pool, piece);
    PoolBlock whole(*pool, piece * comm->Size());
    FillAndGather(*comm, own, whole, piece, round);
    if (round % 3 == 0) comm.reset();
  }
  if (round % 3 == 1) pool.reset();
}

TEST(NodeRounds, LeaveNoDescriptorMappingOrMemoryBehind) {
  int const rounds = MostRounds();
  for (int round = 0; round < 20; ++round)
    MakeUseAndDestroy(round);
  int const descriptors = Descriptors();
  int const mappings = Mappings();
  long const pss = Pss();
  ASSERT_GT(pss, 0);

  for (int round = 0; round < rounds; ++round)
    MakeUseAndDestroy(round);

  EXPECT_EQ(Descriptors(), descriptors);
  EXPECT_LE(Mappings(), mappings + 8);  // MPI and the heap may map something now and then
  EXPECT_LE(Pss(), pss + 4096);
}

// The same communicator, pool and blocks all the time.
TEST(NodeRounds, RepeatedGathersTakeNothing) {
  constexpr int kPiece = 200000;
  int const rounds = MostRounds();
  NodeComm const comm(MPI_COMM_WORLD);
  NodePool pool;
  PoolBlock own(pool, kPiece);
  PoolBlock whole(pool, kPiece * comm.Size());
  for (int round = 0; round < 60; ++round)
    FillAndGather(comm, own, whole, kPiece, round);
  int const descriptors = Descriptors();
  int const mappings = Mappings();
  long const pss = Pss();

  for (int round = 0; round < rounds; ++round)
    FillAndGather(comm, own, whole, kPiece, round);

  EXPECT_EQ(Descriptors(), descriptors);
  EXPECT_LE(Mappings(), mappings + 8);
  EXPECT_LE(Pss(), pss + 1024);
}

bool IsResident(void const* address) {
  auto const page = reinterpret_cast<std::uintptr_t>(address) / 4096 * 4096;
  unsigned char resident = 0;
  EXPECT_EQ(mincore(reinterpret_cast<void*>(page), 1, &resident), 0);
  return (resident & 1) != 0;
}

// A pool returns a block to the system while the peers, which have stored into it, still map
// it. The same addresses then serve another block.
TEST(NodeRounds, EvictedBlocksServeAgainWhilePeersMapThem) {
  constexpr int kPiece = 4 << 20;
  NodeComm const comm(MPI_COMM_WORLD);
  NodePool pool;
  PoolBlock own(pool, kPiece);
  for (int round = 0; round < 5; ++round) {
    unsigned char const* last = nullptr;
    {
      PoolBlock whole(pool, kPiece * comm.Size());
      FillAndGather(comm, own, whole, kPiece, round);
      last = whole.Data() + kPiece;
      EXPECT_TRUE(IsResident(last));
    }
    // A peer that still stores would bring pages back.
    MPI_Barrier(MPI_COMM_WORLD);
    pool.ReleaseCached();
    EXPECT_FALSE(IsResident(last));
    MPI_Barrier(MPI_COMM_WORLD);
  }
}

// A child of each process ends while messages are under way. It must not disturb them.
TEST(NodeRounds, ChildrenThatAreForkedDisturbNothing) {
  constexpr int kPiece = 300000;
  NodeComm const comm(MPI_COMM_WORLD);
  NodePool pool;
  PoolBlock own(pool, kPiece);
  PoolBlock whole(pool, kPiece * comm.Size());
  for (int round = 0; round < 20; ++round) {
    pid_t const child = fork();
    if (child == 0) {
      NodePool const another;
      _exit(another.Active() ? 1 : 0);
    }
    FillAndGather(comm, own, whole, kPiece, round);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
}

// All six orders in which a communicator, a pool and another communicator can go.
TEST(NodeRounds, EverythingMayBeDestroyedInAnyOrder) {
  for (int order = 0; order < 6; ++order) {
    auto first = std::make_unique<NodeComm>(MPI_COMM_WORLD);
    auto pool = std::make_unique<NodePool>();
    auto second = std::make_unique<NodeComm>(MPI_COMM_WORLD);
    std::function<void()> const ends[] = {[&] { first.reset(); }, [&] { pool.reset(); },
                                          [&] { second.reset(); }};
    constexpr int kOrders[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                   {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    for (int const next : kOrders[order]) {
      for (NodeComm const* const comm : {first.get(), second.get()}) {
        if (comm == nullptr) continue;
        MemoryPool plain;
        MemoryPool& source = pool != nullptr ? *pool : plain;
        PoolBlock own(source, 9000);
        PoolBlock whole(source, 9000 * comm->Size());
        FillAndGather(*comm, own, whole, 9000, order);
      }
      ends[next]();
    }
  }
}

}  // namespace
}  // namespace Pavex
