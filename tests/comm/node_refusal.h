// Ranks to which the system refuses something, for the tests of shared memory.

#pragma once

#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "tests/comm/refusing_system.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <memory>
#include <mpi.h>

namespace Pavex {

inline int WorldRank() {
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
inline void ExpectDataToArrive(Comm const& comm, int count) {
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

inline void ExpectDataToArrive(Comm const& comm) {
  for (int const count : {1, 500, 50000})
    ExpectDataToArrive(comm, count);
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

}  // namespace Pavex
