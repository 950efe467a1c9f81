// What the system refuses on one rank alone: every rank then comes to the same choice, and data
// still arrives. This binary defines the functions of the system that are told to fail.

#include "pavex/comm/node_arena.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "tests/comm/failing_new.h"
#include "tests/comm/mpi_fixture.h"
#include "tests/comm/node_blocks.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Pavex {
namespace {

enum class Refusal {
  NONE,
  MEMORY_FILE,      // memfd_create
  SIZE,             // ftruncate
  ADDRESSES,        // mmap, beyond a limit on addresses
  FILE_LIMIT,       // a limit on the size of files
  SMALL_FILES,      // the same, below any window
  SHARED_MAPPING,   // mmap of a memory file that others see
  PRIVATE_MAPPING,  // mmap of a memory file for this process alone
  DROPPING,         // madvise that drops pages
  LARGE_PAGES,      // the pages of the system are larger
  STRICT,           // no memory file is used where the system promises only what it has
  FOREIGN,          // open of another process's file
  OTHER_FILE,       // the same finds another file
  NODE              // the file that names the node cannot be read
};
Refusal gRefusal = Refusal::NONE;

// What madvise gave back to the system last.
unsigned char const* gRemoved = nullptr;
std::size_t gRemovedBytes = 0;

bool BeginsWith(char const* text, char const* start) {
  return std::strncmp(text, start, std::strlen(start)) == 0;
}

// A file that says "2": the policy of a system that promises only what it has.
int OpenStrictPolicy() {
  auto const file = static_cast<int>(syscall(SYS_memfd_create, "policy", 0));
  EXPECT_EQ(write(file, "2\n", 2), 2);
  lseek(file, 0, SEEK_SET);
  return file;
}

}  // namespace
}  // namespace Pavex

#define PAVEX_FAKE_SYSTEM extern "C" __attribute__((visibility("default")))

PAVEX_FAKE_SYSTEM int memfd_create(char const* name, unsigned flags) noexcept {
  if (Pavex::gRefusal == Pavex::Refusal::MEMORY_FILE) {
    errno = ENOSYS;
    return -1;
  }
  return static_cast<int>(syscall(SYS_memfd_create, name, flags));
}

PAVEX_FAKE_SYSTEM int ftruncate(int file, off_t bytes) noexcept {
  if (Pavex::gRefusal == Pavex::Refusal::SIZE) {
    errno = EFBIG;
    return -1;
  }
  return static_cast<int>(syscall(SYS_ftruncate, file, bytes));
}

PAVEX_FAKE_SYSTEM void* mmap(void* place, std::size_t bytes, int rights, int flags, int file,
                             off_t offset) noexcept {
  bool const ours = file >= 0 && (flags & MAP_NORESERVE) != 0;
  bool const isPrivate = (flags & MAP_PRIVATE) != 0;
  auto const refused =
      isPrivate ? Pavex::Refusal::PRIVATE_MAPPING : Pavex::Refusal::SHARED_MAPPING;
  if (ours && Pavex::gRefusal == refused) {
    errno = ENOMEM;
    return MAP_FAILED;
  }
  return reinterpret_cast<void*>(syscall(SYS_mmap, place, bytes, rights, flags, file, offset));
}

PAVEX_FAKE_SYSTEM int getpagesize() noexcept {
  return Pavex::gRefusal == Pavex::Refusal::LARGE_PAGES
             ? 65536
             : static_cast<int>(sysconf(_SC_PAGESIZE));
}

PAVEX_FAKE_SYSTEM int madvise(void* place, std::size_t bytes, int advice) noexcept {
  if (Pavex::gRefusal == Pavex::Refusal::DROPPING && advice == MADV_DONTNEED) {
    errno = EINVAL;
    return -1;
  }
  if (advice == MADV_REMOVE) {
    Pavex::gRemoved = static_cast<unsigned char const*>(place);
    Pavex::gRemovedBytes = bytes;
  }
  return static_cast<int>(syscall(SYS_madvise, place, bytes, advice));
}

PAVEX_FAKE_SYSTEM int open(char const* path, int flags, ...) {
  using Pavex::BeginsWith;
  using Pavex::gRefusal;
  using Pavex::Refusal;
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  bool const isPeers = BeginsWith(path, "/proc/") && std::strstr(path, "/fd/") != nullptr;
  if ((gRefusal == Refusal::FOREIGN && isPeers) ||
      (gRefusal == Refusal::NODE && BeginsWith(path, "/proc/sys/kernel/random/boot_id"))) {
    errno = EACCES;
    return -1;
  }
  if (gRefusal == Refusal::OTHER_FILE && isPeers)
    return static_cast<int>(syscall(SYS_memfd_create, "another", 0));
  if (gRefusal == Refusal::STRICT && BeginsWith(path, "/proc/sys/vm/overcommit_memory"))
    return Pavex::OpenStrictPolicy();
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

namespace Pavex {
namespace {

// Bytes.
rlim_t AddressesInUse() {
  unsigned long pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// While it lives, the system refuses this process something.
class Refusing {
 public:
  explicit Refusing(Refusal refusal) {
    gRefusal = refusal;
    if (refusal == Refusal::ADDRESSES) Limit(RLIMIT_AS, AddressesInUse() + (rlim_t{1} << 30));
    if (refusal == Refusal::FILE_LIMIT) Limit(RLIMIT_FSIZE, rlim_t{1} << 30);
    if (refusal == Refusal::SMALL_FILES) Limit(RLIMIT_FSIZE, rlim_t{1} << 20);
  }
  Refusing(Refusing const&) = delete;
  Refusing& operator=(Refusing const&) = delete;
  ~Refusing() {
    gRefusal = Refusal::NONE;
    if (mLimited) setrlimit(mResource, &mEarlier);
  }

 private:
  void Limit(__rlimit_resource resource, rlim_t bytes) {
    mLimited = true;
    mResource = resource;
    getrlimit(resource, &mEarlier);
    rlimit const limit{bytes, mEarlier.rlim_max};
    setrlimit(resource, &limit);
  }

  bool mLimited = false;
  __rlimit_resource mResource = RLIMIT_AS;
  rlimit mEarlier{};
};

int WorldRank() {
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  return rank;
}

// Ranks 0, 1 and `third` of the job; null on the others.
class Three {
 public:
  explicit Three(int third) {
    int const rank = WorldRank();
    bool const member = rank < 2 || rank == third;
    MPI_Comm_split(MPI_COMM_WORLD, member ? 0 : MPI_UNDEFINED, rank, &mComm);
  }
  Three(Three const&) = delete;
  Three& operator=(Three const&) = delete;
  ~Three() {
    if (mComm != MPI_COMM_NULL) MPI_Comm_free(&mComm);
  }
  MPI_Comm Get() const { return mComm; }

 private:
  MPI_Comm mComm = MPI_COMM_NULL;
};

// Whether a piece of `count` numbers of every rank arrives at all, out of a pool and into it.
void ExpectDataToArrive(Comm const& comm, int count) {
  NodePool pool;
  auto const bytes = static_cast<std::size_t>(count) * sizeof(int);
  auto const ranks = static_cast<std::size_t>(comm.Size());
  void* own = nullptr;
  void* whole = nullptr;
  ASSERT_EQ(pool.Allocate(&own, bytes), STATUS_OK);
  ASSERT_EQ(pool.Allocate(&whole, bytes * ranks), STATUS_OK);
  for (int i = 0; i < count; ++i)
    static_cast<int*>(own)[i] = comm.Rank() * count + i;

  EXPECT_EQ(comm.Allgather(own, count, DATATYPE_INT, whole, count, DATATYPE_INT), STATUS_OK);

  int wrong = 0;
  for (int i = 0; i < comm.Size() * count; ++i)
    wrong += static_cast<int*>(whole)[i] != i ? 1 : 0;
  EXPECT_EQ(wrong, 0) << count;
  pool.Deallocate(own, bytes);
  pool.Deallocate(whole, bytes * ranks);
}

void ExpectDataToArrive(Comm const& comm) {
  for (int const count : {1, 500, 50000})
    ExpectDataToArrive(comm, count);
}

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

// Ranks 0 and 1, which have arenas. Rank 1 meets the refusal.
class NodePeerRefusal : public ::testing::Test {
 protected:
  void ExpectTheSameChoice(Refusal refusal, bool active) {
    if (mPair.Get() == MPI_COMM_NULL) return;
    {
      std::unique_ptr<Refusing> refusing;
      if (WorldRank() == 1) refusing = std::make_unique<Refusing>(refusal);
      NodeComm const comm(mPair.Get());
      refusing.reset();

      EXPECT_EQ(comm.Active(), active);

      ExpectDataToArrive(comm);
    }
    NodeComm const again(mPair.Get());
    EXPECT_TRUE(again.Active());
    ExpectDataToArrive(again);
  }

  Three mPair{1};
};

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
  EXPECT_LE(gRemoved, begin + bytes / 2);
  EXPECT_GE(gRemoved + gRemovedBytes, begin + bytes);

  pool.ReleaseCached();
  EXPECT_LE(gRemoved, begin);
  EXPECT_GE(gRemoved + gRemovedBytes, begin + bytes);
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

// Ranks 0 and 1 receive an array that is large enough to be kept once. One of them meets the
// refusal.
class NodeWindowRefusal : public NodePeerRefusal {
 protected:
  static constexpr int kPiece = 3 << 20;

  void SetUp() override {
    if (mPair.Get() == MPI_COMM_NULL) return;
    mComm = std::make_unique<NodeComm>(mPair.Get());
    ASSERT_TRUE(mComm->Active());
    mOwn.resize(kPiece);
  }

  void Gather(PoolBlock& whole, int seed) {
    std::memset(mOwn.data(), seed + mComm->Rank(), kPiece);
    std::memset(whole.Data(), 99, 1);
    EXPECT_EQ(mComm->Allgather(mOwn.data(), kPiece, DATATYPE_BYTE, whole.Data(), kPiece,
                               DATATYPE_BYTE),
              STATUS_OK);
    EXPECT_EQ(CountWrong(whole, seed), 0);
  }
  static long CountWrong(PoolBlock& whole, int seed) {
    long wrong = 0;
    for (int i = 0; i < 2 * kPiece; ++i)
      wrong += whole.Data()[i] != seed + i / kPiece ? 1 : 0;
    return wrong;
  }
  // How many of the two processes have a view.
  int Views(PoolBlock& whole) {
    int const mine = IsView(whole) ? 1 : 0;
    int both = 0;
    MPI_Allreduce(&mine, &both, 1, MPI_INT, MPI_SUM, mPair.Get());
    return both;
  }

  // Gathers under the refusal into a new block, and again into one that is a view already.
  void ExpectViews(Refusal refusal, int intoNew, int intoView) {
    for (int rank = 0; rank < 2 && mComm != nullptr; ++rank) {
      SCOPED_TRACE("refused to rank " + std::to_string(rank));
      NodePool pool;
      PoolBlock whole(pool, 2 * kPiece);
      {
        Refusing const refusing(mComm->Rank() == rank ? refusal : Refusal::NONE);
        Gather(whole, 10);
      }
      EXPECT_EQ(Views(whole), intoNew);
      Gather(whole, 20);
      Gather(whole, 30);
      EXPECT_EQ(Views(whole), 2);
      {
        Refusing const refusing(mComm->Rank() == rank ? refusal : Refusal::NONE);
        Gather(whole, 40);
      }
      EXPECT_EQ(Views(whole), intoView);
      Gather(whole, 50);
      EXPECT_EQ(Views(whole), 2);
    }
  }

  std::unique_ptr<NodeComm> mComm;
  std::vector<unsigned char> mOwn;
};

// The first process makes the file: only there does a refusal matter.
TEST_F(NodeWindowRefusal, WithoutAFileAllStoreIntoEachBlock) {
  if (mComm == nullptr) return;
  for (Refusal const refusal : {Refusal::MEMORY_FILE, Refusal::SIZE, Refusal::SMALL_FILES}) {
    NodePool pool;
    PoolBlock whole(pool, 2 * kPiece);
    Refusing const refusing(mComm->Rank() == 0 ? refusal : Refusal::NONE);

    Gather(whole, 10);

    EXPECT_EQ(Views(whole), 0);
  }
}

TEST_F(NodeWindowRefusal, AFileThatCannotBeOpenedMeansOrdinaryBlocks) {
  if (mComm == nullptr) return;
  for (Refusal const refusal : {Refusal::FOREIGN, Refusal::OTHER_FILE}) {
    NodePool pool;
    PoolBlock whole(pool, 2 * kPiece);
    Refusing const refusing(mComm->Rank() == 1 ? refusal : Refusal::NONE);

    Gather(whole, 10);

    EXPECT_EQ(Views(whole), 0);
  }
}

TEST_F(NodeWindowRefusal, AWindowThatOneProcessCannotMapMeansOrdinaryBlocks) {
  ExpectViews(Refusal::SHARED_MAPPING, 0, 2);
}

TEST_F(NodeWindowRefusal, AProcessWithLargerPagesLetsAllStoreIntoEachBlock) {
  if (mComm == nullptr) return;
  for (int rank = 0; rank < 2; ++rank) {
    NodePool pool;
    PoolBlock whole(pool, 2 * kPiece);
    Refusing const refusing(mComm->Rank() == rank ? Refusal::LARGE_PAGES : Refusal::NONE);

    Gather(whole, 10);

    EXPECT_EQ(Views(whole), 0);
  }
}

TEST_F(NodeWindowRefusal, AProcessThatCannotShowTheWindowCopiesIt) {
  ExpectViews(Refusal::PRIVATE_MAPPING, 1, 2);
}

TEST_F(NodeWindowRefusal, AProcessThatCannotDropItsPagesCopiesTheWindow) {
  ExpectViews(Refusal::DROPPING, 2, 1);
}

// The window is neither lost nor shown twice, whatever mapping again is refused for.
TEST_F(NodeWindowRefusal, AViewThatCannotBecomeOrdinaryReceivesAllTheSame) {
  if (mComm == nullptr) return;
  int const counts[2] = {kPiece, kPiece};
  int const displs[2] = {0, kPiece};
  for (int root = 0; root < 2; ++root) {
    NodePool pool;
    auto whole = std::make_unique<PoolBlock>(pool, 2 * kPiece);
    Gather(*whole, 10);
    std::memset(mOwn.data(), 20 + mComm->Rank(), kPiece);
    {
      Refusing const refusing(mComm->Rank() == root ? Refusal::SHARED_MAPPING : Refusal::NONE);
      EXPECT_EQ(mComm->Gatherv(mOwn.data(), kPiece, DATATYPE_BYTE, whole->Data(), counts,
                               displs, DATATYPE_BYTE, root),
                STATUS_OK);
      EXPECT_EQ(CountWrong(*whole, mComm->Rank() == root ? 20 : 10), 0);
      EXPECT_EQ(Views(*whole), 2);
      Gather(*whole, 30);
      if (mComm->Rank() == root) {
        whole.reset();
        pool.ReleaseCached();  // the addresses are lost
      }
    }
    if (mComm->Rank() == root) whole = std::make_unique<PoolBlock>(pool, 2 * kPiece);
    Gather(*whole, 40);
    EXPECT_EQ(Views(*whole), 2);
  }
}

// Every allocation of one rank fails once.
TEST_F(NodeWindowRefusal, MemoryThatRunsOutChangesNoResult) {
  if (mComm == nullptr) return;
  NodePool pool;
  PoolBlock whole(pool, 2 * kPiece);
  Gather(whole, 10);
  EXPECT_EQ(Views(whole), 2);
  NodeArena& arena = *NodeArena::OfProcess();
  NodeSpan const array{arena.OffsetOf(whole.Data(), whole.Bytes()), whole.Bytes()};
  int const files = Descriptors();
  int without = 0;
  for (int nth = 0; nth < 12; ++nth) {
    ASSERT_TRUE(arena.Views().MakeOrdinary(array, array));
    FailNewAt(mComm->Rank() == nth % 2 ? nth / 2 + 1 : 0);
    PavexStatus const status = mComm->Allgather(mOwn.data(), kPiece, DATATYPE_BYTE,
                                                whole.Data(), kPiece, DATATYPE_BYTE);
    FailNewAt(0);
    EXPECT_EQ(status, STATUS_OK) << nth;
    EXPECT_EQ(CountWrong(whole, 10), 0) << nth;
    EXPECT_EQ(Descriptors(), files) << nth;
    without += 2 - Views(whole);
  }
  EXPECT_GT(without, 0);
  EXPECT_EQ(Views(whole), 2);
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
