// Blocks of a pool and what a process has of the system, for the tests of shared memory.

#pragma once

#include "pavex/comm/node_arena.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"

#include <cstddef>
#include <cstdint>
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <mpi.h>
#include <string>
#include <unistd.h>

namespace Pavex {

// Descriptors that this process has open.
inline int Descriptors() {
  int count = 0;
  DIR* const folder = opendir("/proc/self/fd");
  while (readdir(folder) != nullptr)
    ++count;
  closedir(folder);
  return count;
}

inline int Mappings() {
  std::ifstream maps("/proc/self/maps");
  int count = 0;
  for (std::string line; std::getline(maps, line);)
    ++count;
  return count;
}

// The proportional set size of this process, in kilobytes. Without the pages of libraries: a
// share of them grows when any other program of the machine ends that uses them too.
inline long Pss() {
  std::ifstream sums("/proc/self/smaps_rollup");
  long sum = 0;
  for (std::string word; sums >> word;) {
    long amount = 0;
    if ((word == "Pss_Anon:" || word == "Pss_Shmem:") && sums >> amount) sum += amount;
  }
  return sum;
}

// Kilobytes of all processes together, once all have come here. Collective.
inline long PssOfAll() {
  MPI_Barrier(MPI_COMM_WORLD);
  long const mine = Pss();
  long all = 0;
  MPI_Allreduce(&mine, &all, 1, MPI_LONG, MPI_SUM, MPI_COMM_WORLD);
  return all;
}

// While it lives, the system ends this process, and so the job, after that many seconds: a wait
// that does not end is a failure of its test.
class TimeLimit {
 public:
  explicit TimeLimit(unsigned seconds) { alarm(seconds); }
  TimeLimit(TimeLimit const&) = delete;
  TimeLimit& operator=(TimeLimit const&) = delete;
  ~TimeLimit() { alarm(0); }
};

// A block of a pool.
class PoolBlock {
 public:
  PoolBlock(MemoryPool& pool, int bytes)
      : mPool(pool), mBytes(static_cast<std::size_t>(bytes)) {
    void* block = nullptr;
    EXPECT_EQ(pool.Allocate(&block, mBytes), STATUS_OK);
    mData = static_cast<unsigned char*>(block);
  }
  PoolBlock(PoolBlock const&) = delete;
  PoolBlock& operator=(PoolBlock const&) = delete;
  ~PoolBlock() { mPool.Deallocate(mData, mBytes); }
  unsigned char* Data() { return mData; }
  std::size_t Bytes() const { return mBytes; }

 private:
  MemoryPool& mPool;
  std::size_t mBytes;
  unsigned char* mData = nullptr;
};

// Whether pages of an array are shown by a window.
inline bool IsView(unsigned char const* data, std::size_t bytes) {
  NodeArena& arena = *NodeArena::OfProcess();
  std::uint64_t const offset = arena.OffsetOf(data, bytes);
  return offset != NodeArena::kOutside && arena.Views().Overlap({offset, bytes});
}

inline bool IsView(PoolBlock& block) {
  return IsView(block.Data(), block.Bytes());
}

}  // namespace Pavex
