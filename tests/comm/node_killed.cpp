// node_killed FOLDER [stay]: a job of pairs of processes. In each pair one process is killed,
// and the other one waits for it in an operation over shared memory, another operation in each
// pair. It notes in FOLDER/pair.N what the operation returned, and then ends; with `stay` it
// waits to be ended by the launcher. Each process notes its number in FOLDER/process.RANK
// first. killed.sh runs it.

#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "pavex/runtime/log.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

namespace Pavex {
namespace {

constexpr int kSmall = 100;
constexpr int kLarge = 8 << 20;

// Both sides of an operation of two ranks, on blocks of `pool`.
class Pair {
 public:
  Pair(Comm const& comm, MemoryPool& pool) : mComm(comm) {
    for (void** block : {&mOut, &mIn}) {
      if (pool.Allocate(block, 2 * kLarge) != STATUS_OK) std::abort();
      std::memset(*block, 1, 2 * kLarge);
    }
  }

  PavexStatus Gather(int count, int root) {
    return mComm.Gatherv(mOut, count, DATATYPE_BYTE, mIn, Counts(count), Displs(count),
                         DATATYPE_BYTE, root);
  }
  PavexStatus GatherToAll(int count) {
    return mComm.Allgatherv(mOut, count, DATATYPE_BYTE, mIn, Counts(count), Displs(count),
                            DATATYPE_BYTE);
  }
  PavexStatus Scatter(int count, int root) {
    return mComm.Scatterv(mOut, Counts(count), Displs(count), DATATYPE_BYTE, mIn, count,
                          DATATYPE_BYTE, root);
  }
  PavexStatus Exchange(int count) {
    return mComm.Alltoallv(mOut, Counts(count), Displs(count), DATATYPE_BYTE, mIn,
                           Counts(count), Displs(count), DATATYPE_BYTE);
  }
  PavexStatus Broadcast(int count, int root) {
    return mComm.Bcast(mOut, count, DATATYPE_BYTE, root);
  }
  PavexStatus Pass(int count, int from) {
    if (mComm.Rank() == from) return mComm.Send(mOut, count, DATATYPE_BYTE, 1 - from, 7);
    return mComm.Recv(mIn, count, DATATYPE_BYTE, from, 7);
  }

 private:
  int const* Counts(int count) {
    mCounts[0] = mCounts[1] = count;
    return mCounts;
  }
  int const* Displs(int count) {
    mDispls[1] = count;
    return mDispls;
  }

  Comm const& mComm;
  void* mOut = nullptr;
  void* mIn = nullptr;
  int mCounts[2] = {};
  int mDispls[2] = {};
};

// Rank 0 of each pair waits, rank 1 is killed.
struct Wait {
  char const* name;
  bool shared;  // blocks of a NodePool
  std::function<PavexStatus(Pair&)> run;
};

std::vector<Wait> const& Waits() {
  static std::vector<Wait> const waits{
      {"root of a gather of large pieces", true, [](Pair& p) { return p.Gather(kLarge, 0); }},
      {"sender of a large message", true, [](Pair& p) { return p.Pass(kLarge, 0); }},
      {"sender of small messages", true, [](Pair& p) { return p.Pass(kSmall, 0); }},
      {"gather to all", true, [](Pair& p) { return p.GatherToAll(kLarge); }},
      {"gather to all over MPI", false, [](Pair& p) { return p.GatherToAll(kLarge); }},
      {"root of a scatter", true, [](Pair& p) { return p.Scatter(kLarge, 0); }},
      {"receiver of a broadcast", true, [](Pair& p) { return p.Broadcast(kLarge, 1); }},
      {"root of a gather of small pieces", true, [](Pair& p) { return p.Gather(kSmall, 0); }},
      {"sender of a gather", true, [](Pair& p) { return p.Gather(kLarge, 1); }},
      {"root of a broadcast", true, [](Pair& p) { return p.Broadcast(kLarge, 0); }},
      {"receiver of a scatter", true, [](Pair& p) { return p.Scatter(kLarge, 1); }},
      {"receiver of a large message", true, [](Pair& p) { return p.Pass(kLarge, 1); }},
      {"receiver of a small message", true, [](Pair& p) { return p.Pass(kSmall, 1); }},
      {"exchange", true, [](Pair& p) { return p.Exchange(kLarge); }},
      {"exchange over MPI", false, [](Pair& p) { return p.Exchange(kLarge); }},
      {"sender of a large message over MPI", false, [](Pair& p) { return p.Pass(kLarge, 0); }},
  };
  return waits;
}

void Note(std::string const& path, std::string const& text) {
  std::FILE* const file = std::fopen(path.c_str(), "w");
  std::fputs(text.c_str(), file);
  std::fclose(file);
}

// Killed by a signal of the system at some moment within the next tenths of a second.
void ExpectDeath(int pair) {
  std::signal(SIGALRM, SIG_DFL);
  itimerval timer{};
  timer.it_value.tv_usec = 200000 + 3000 * pair;
  setitimer(ITIMER_REAL, &timer, nullptr);
}

int Run(std::string const& folder, bool stay) {
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  int const pair = rank / 2;
  bool const waits = rank % 2 == 0;
  Note(folder + "/process." + std::to_string(rank), std::to_string(getpid()) + "\n");
  if (!stay) std::signal(SIGTERM, SIG_IGN);  // time to note what the operation returned

  MPI_Comm two = MPI_COMM_NULL;
  MPI_Comm_split(MPI_COMM_WORLD, pair, rank, &two);
  NodeComm const comm(two);
  NodePool shared;
  MemoryPool plain;
  Wait const& wait = Waits()[static_cast<std::size_t>(pair) % Waits().size()];
  Pair both(comm, wait.shared ? static_cast<MemoryPool&>(shared) : plain);
  // Half of the pairs lose a process while they work, the others before it begins.
  bool const early = static_cast<std::size_t>(pair) >= Waits().size() || pair % 2 == 0;
  Log::mMaxLogLevel = -1;
  MPI_Barrier(MPI_COMM_WORLD);
  if (!waits) ExpectDeath(pair);
  if (!waits && early) pause();
  PavexStatus status = STATUS_OK;
  while (status == STATUS_OK)
    status = wait.run(both);
  if (waits && comm.Active())
    Note(folder + "/pair." + std::to_string(pair),
         std::to_string(status) + " " + wait.name + "\n");
  while (stay || !waits)
    pause();
  _exit(0);
}

}  // namespace
}  // namespace Pavex

int main(int argc, char** argv) {
  int provided = 0;
  MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided);
  if (argc < 2) return 2;
  return Pavex::Run(argv[1], argc > 2);
}
