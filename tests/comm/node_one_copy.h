// An array that all processes of the job gather into blocks of a NodePool, for the tests of
// what a node keeps once.

#pragma once

#include "pavex/comm/node_one_copy.h"
#include "tests/comm/mpi_fixture.h"
#include "tests/comm/node_blocks.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace Pavex {

// Of all ranks together, about. Large enough to be kept once.
constexpr int kWhole = 6 << 20;
static_assert(kWhole > NodeOneCopy::kLeast + (1 << 20));

inline unsigned char ByteAt(int seed, std::size_t i) {
  return static_cast<unsigned char>((i * 7 + i / 4096 + static_cast<std::size_t>(seed) * 31) %
                                    251);
}

// The bytes of all ranks are one sequence, another one for each seed.
inline void Fill(unsigned char* data, int seed, std::size_t from, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i)
    data[i] = ByteAt(seed, from + i);
}

inline std::size_t CountWrong(unsigned char const* data, int seed, std::size_t from,
                              std::size_t bytes) {
  std::size_t wrong = 0;
  for (std::size_t i = 0; i < bytes; ++i)
    wrong += data[i] != ByteAt(seed, from + i) ? 1U : 0U;
  return wrong;
}

inline std::size_t CountWrong(PoolBlock& whole, int seed) {
  return CountWrong(whole.Data(), seed, 0, whole.Bytes());
}

class NodeOneCopyTest : public ::testing::Test {
 protected:
  int Size() const { return mComm->Size(); }
  int Rank() const { return mComm->Rank(); }
  int Piece() const { return kWhole / Size() / 64 * 64; }
  int Whole() const { return Piece() * Size(); }
  // Bytes of the pieces before that of a rank.
  std::size_t Before(int rank) const { return static_cast<std::size_t>(rank * Piece()); }
  std::size_t Begin() const { return Before(Rank()); }

  // Gathers the sequence of `seed` into `whole`.
  PavexStatus Gather(Comm const& comm, unsigned char* whole, int seed) {
    return Gather(comm, whole, seed, Piece());
  }
  PavexStatus Gather(Comm const& comm, unsigned char* whole, int seed, int piece) {
    auto const bytes = static_cast<std::size_t>(piece);
    std::vector<unsigned char> larger(bytes > mOwn.size() ? bytes : 0);
    unsigned char* const own = larger.empty() ? mOwn.data() : larger.data();
    Fill(own, seed, static_cast<std::size_t>(comm.Rank()) * bytes, bytes);
    return comm.Allgather(own, piece, DATATYPE_BYTE, whole, piece, DATATYPE_BYTE);
  }
  void GatherAndExpect(PoolBlock& whole, int seed) {
    ASSERT_EQ(Gather(*mComm, whole.Data(), seed), STATUS_OK);
    EXPECT_TRUE(IsView(whole));
    EXPECT_EQ(CountWrong(whole, seed), 0U) << seed;
  }

  std::unique_ptr<NodeComm> mComm = std::make_unique<NodeComm>(MPI_COMM_WORLD);
  NodePool mPool;
  // Filled before a test looks at the memory of the process.
  std::vector<unsigned char> mOwn = std::vector<unsigned char>(Before(1), 1);
};

}  // namespace Pavex
