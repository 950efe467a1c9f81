// What the system refuses on one rank alone: every rank then comes to the same choice, and data
// still arrives.

#include "tests/comm/node_refusal.h"

#include "pavex/comm/node_arena.h"
#include "tests/comm/failing_new.h"
#include "tests/comm/mpi_fixture.h"
#include "tests/comm/node_blocks.h"

#include <cstring>
#include <iterator>
#include <string>
#include <sys/prctl.h>
#include <utility>
#include <vector>

namespace Pavex {
namespace {

// What refuses the arena of a process does so once: each of these ranks meets one of them.
constexpr Refusal kOfArena[] = {Refusal::MEMORY_FILE, Refusal::SIZE, Refusal::ADDRESSES,
                                Refusal::FILE_LIMIT, Refusal::STRICT};
constexpr int kRanks = 2 + static_cast<int>(std::size(kOfArena));

TEST(NodeRefusal, ARankWithoutAnArenaLetsItsNodeUseMpi) {
  int const rank = WorldRank();
  {
    Refusing const refusing(rank < 2 ? Refusal::NONE : kOfArena[rank - 2]);
    NodePool const pool;
    EXPECT_EQ(pool.Active(), rank < 2);
  }
  for (int third = 2; third < kRanks; ++third) {
    SCOPED_TRACE("refusal " + std::to_string(third - 2));
    Three const three(third);
    if (three.Get() == MPI_COMM_NULL) continue;
    NodeComm const comm(three.Get());

    EXPECT_FALSE(comm.Active());

    ExpectDataToArrive(comm);
  }
  NodeComm const all(MPI_COMM_WORLD);
  EXPECT_FALSE(all.Active());
  ExpectDataToArrive(all);
}

// The same, but in groups: one that has the rank uses MPI, the other one shares memory.
TEST(NodeRefusal, ARankWithoutAnArenaLeavesOtherNodesAlone) {
  NodeComm const comm(MPI_COMM_WORLD, 2);

  EXPECT_EQ(comm.Active(), WorldRank() < 2);

  ExpectDataToArrive(comm);
}

TEST_F(NodePeerRefusal, AFileThatCannotBeOpenedMeansMpi) {
  ExpectTheSameChoice(Refusal::FOREIGN, false);
}

TEST_F(NodePeerRefusal, AFileThatIsAnotherOneMeansMpi) {
  ExpectTheSameChoice(Refusal::OTHER_FILE, false);
}

TEST_F(NodePeerRefusal, AddressesThatRunOutMeanMpi) {
  ExpectTheSameChoice(Refusal::ADDRESSES, false);
}

TEST_F(NodePeerRefusal, ANodeWithoutANameMeansMpi) {
  ExpectTheSameChoice(Refusal::NODE, false);
}

// Nothing is left for the control block.
TEST_F(NodePeerRefusal, AnArenaWithoutRoomMeansMpi) {
  if (mPair.Get() == MPI_COMM_NULL) return;
  NodeArena& arena = *NodeArena::OfProcess();
  std::vector<std::pair<void*, std::size_t>> taken;
  for (std::size_t bytes = std::size_t{1} << 46; bytes >= 4096 && WorldRank() == 1;) {
    void* const pages = arena.TakeShared(bytes);
    if (pages == nullptr)
      bytes /= 2;
    else
      taken.emplace_back(pages, bytes);
  }
  {
    NodeComm const comm(mPair.Get());
    EXPECT_FALSE(comm.Active());
    ExpectDataToArrive(comm);
  }
  for (auto const& [pages, bytes] : taken)
    arena.GiveBackPages(pages, bytes);
  NodeComm const again(mPair.Get());
  EXPECT_TRUE(again.Active());
}

TEST_F(NodePeerRefusal, HugePagesThatAreForbiddenChangeNothing) {
  if (mPair.Get() == MPI_COMM_NULL) return;
  NodeComm const comm(mPair.Get());
  bool const forbids = WorldRank() == 1;
  if (forbids) {
    ASSERT_EQ(prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0), 0);
  }

  EXPECT_TRUE(comm.Active());
  ExpectDataToArrive(comm, 3 << 20);

  if (forbids) {
    ASSERT_EQ(prctl(PR_SET_THP_DISABLE, 0, 0, 0, 0), 0);
  }
}

// MPIs that keep memory registered with the network define this function too.
TEST_F(NodePeerRefusal, WhoWatchesMadviseSeesWhatGoesBackToTheSystem) {
  if (mPair.Get() == MPI_COMM_NULL) return;
  NodePool pool;
  unsigned char const* begin = nullptr;
  std::size_t bytes = 0;
  {
    PoolBlock block(pool, 1 << 20);
    std::memset(block.Data(), 1, block.Bytes());
    begin = block.Data();
    bytes = block.Bytes();
  }
  pool.SetLimit(bytes / 2);
  EXPECT_LE(LastRemoved().begin, begin + bytes / 2);
  EXPECT_GE(LastRemoved().begin + LastRemoved().bytes, begin + bytes);

  pool.ReleaseCached();
  EXPECT_LE(LastRemoved().begin, begin);
  EXPECT_GE(LastRemoved().begin + LastRemoved().bytes, begin + bytes);
}

TEST_F(NodePeerRefusal, ASplitNeedsNoMemoryWhereTheProcessTakesNoPart) {
  if (mPair.Get() == MPI_COMM_NULL) return;
  NodeComm const node(mPair.Get());
  MpiComm const mpi(mPair.Get());
  int const color = node.Rank() - 1;

  FailNewAt(color < 0 ? 1 : 0);
  std::shared_ptr<Comm> const ofNode = node.Split(color, 0);
  std::shared_ptr<Comm> const ofMpi = mpi.Split(color, 0);
  FailNewAt(0);

  EXPECT_EQ(ofNode == nullptr, color < 0);
  EXPECT_EQ(ofMpi == nullptr, color < 0);
}

TEST_F(NodePeerRefusal, OperationsNeedNoMemory) {
  if (mPair.Get() == MPI_COMM_NULL) return;
  NodeComm const comm(mPair.Get());
  std::vector<int> own(40000, comm.Rank());
  std::vector<int> whole(80000, -1);
  int const counts[2] = {40000, 40000};
  int const displs[2] = {0, 40000};

  FailNewAt(1);
  PavexStatus const gathered = comm.Allgatherv(own.data(), 40000, DATATYPE_INT, whole.data(),
                                               counts, displs, DATATYPE_INT);
  PavexStatus const told = comm.Bcast(whole.data(), 70000, DATATYPE_INT, 1);
  FailNewAt(0);

  EXPECT_EQ(gathered, STATUS_OK);
  EXPECT_EQ(told, STATUS_OK);
  EXPECT_EQ(whole[40000], 1);
}

// Runs last: where the arena has no memory for its lists, it loses ranges.
class NodeMemoryRefusal : public NodePeerRefusal {};

// Every allocation of one rank fails once while the communicator is made.
TEST_F(NodeMemoryRefusal, MemoryThatRunsOutMeansMpi) {
  if (mPair.Get() == MPI_COMM_NULL) return;
  int nth = 0;
  for (bool failed = true; failed && nth < 100;) {
    FailNewAt(WorldRank() == 1 ? ++nth : 0);
    NodeComm const comm(mPair.Get());
    FailNewAt(0);
    int active = comm.Active() ? 1 : 0;
    int both[2] = {};
    MPI_Allgather(&active, 1, MPI_INT, both, 1, MPI_INT, mPair.Get());

    EXPECT_EQ(both[0], both[1]) << nth;

    ExpectDataToArrive(comm, 5000);
    failed = active == 0;
  }
  // The communicator, the room for messages and for ranks, and the mapping of the peer.
  if (WorldRank() == 1) {
    EXPECT_GT(nth, 8);
  }
}

}  // namespace
}  // namespace Pavex
