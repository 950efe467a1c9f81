// Compressed matrices that all processes of a node receive: each process stores the final
// offsets of its piece, so the whole matrix is kept once.

#include "pavex/aggregator/aggregator.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "tests/comm/mpi_fixture.h"
#include "tests/comm/node_blocks.h"
#include "tests/support/arrays.h"
#include "tests/support/formats.h"

#include <memory>
#include <vector>

namespace Pavex {
namespace {

using Offsets = ::testing::Types<CsrFormat<double, int>, CscFormat<double, int>,
                                 CsrFormat<double, long>, CscFormat<double, long>>;

// The band of one process: the row (column) `i` of the whole has `i % 5` entries, the offsets
// begin at 7 times the rank. Ranks that are a multiple of 3, except 0, have no offsets.
template <typename Format>
class Band {
 public:
  using Index = typename Format::Index;

  Band(int lines, int rank, int size) {
    long const begin = static_cast<long>(lines) * rank / size;
    long const end = static_cast<long>(lines) * (rank + 1) / size;
    bool const empty = rank > 0 && rank % 3 == 0;
    mPtr.push_back(static_cast<Index>(7 * rank));
    for (long i = begin; i < end && !empty; ++i) {
      mPtr.push_back(mPtr.back() + static_cast<Index>(i % 5));
      mIdx.insert(mIdx.end(), static_cast<std::size_t>(i % 5), static_cast<Index>(i));
    }
    mIdx.push_back(0);  // never sent
    mValues.assign(mIdx.size(), rank + 1.0);
    auto const count = static_cast<long>(mIdx.size()) - 1;
    if (!empty) (matrix.*Format::kFirst).Borrow(mPtr.data(), static_cast<long>(mPtr.size()));
    (matrix.*Format::kSecond).Borrow(mIdx.data(), count);
    matrix.mValues.Borrow(mValues.data(), count == 0 ? 1 : count);
    bool const byRows = std::is_same_v<Format, CsrFormat<double, Index>>;
    (byRows ? matrix.mRows : matrix.mCols) = end - begin;
    (byRows ? matrix.mCols : matrix.mRows) = lines;
    matrix.PlaceIn(lines, lines, Format::Band(begin));
  }

  typename Format::Matrix matrix;

 private:
  std::vector<Index> mPtr;
  std::vector<Index> mIdx;
  std::vector<double> mValues;
};

template <typename Format>
class NodeOffsetsTest : public ::testing::Test {
 protected:
  using Index = typename Format::Index;
  using Aggregator = Pavex::Aggregator<double, Index>;

  void ExpectSame(Aggregator& seen, Aggregator& expected) {
    using Matrix = typename Format::Matrix;
    auto const* const whole = seen.template TargetAs<Matrix>();
    auto const* const other = expected.template TargetAs<Matrix>();
    ASSERT_EQ(whole == nullptr, other == nullptr);
    if (whole == nullptr) return;
    EXPECT_TRUE(Elements(whole->*Format::kFirst) == Elements(other->*Format::kFirst));
    EXPECT_TRUE(Elements(whole->*Format::kSecond) == Elements(other->*Format::kSecond));
    EXPECT_TRUE(Elements(whole->mValues) == Elements(other->mValues));
  }

  std::shared_ptr<NodeComm> const mComm = std::make_shared<NodeComm>(MPI_COMM_WORLD);
  std::shared_ptr<Comm> const mMpi = std::make_shared<MpiComm>(MPI_COMM_WORLD);
  NodePool mPool;
};
TYPED_TEST_SUITE(NodeOffsetsTest, Offsets);

// From a few rows (columns) to offsets that are kept once. Twice into the same blocks.
TYPED_TEST(NodeOffsetsTest, AreThoseOfAGatherOverMpi) {
  MemoryPool plain;
  typename TestFixture::Aggregator overMpi(&plain);
  typename TestFixture::Aggregator shared(&this->mPool);
  for (int const lines : {8, 1000, 40000, 1100000}) {
    Band<TypeParam> const band(lines, this->mComm->Rank(), this->mComm->Size());
    for (bool const toAll : {false, true, true}) {
      auto const gather = [&](auto& aggregator, std::shared_ptr<Comm> const& comm) {
        return toAll ? aggregator.Allgather(comm, band.matrix, true)
                     : aggregator.Gather(comm, band.matrix, true);
      };
      ASSERT_EQ(gather(overMpi, this->mMpi), STATUS_OK);

      ASSERT_EQ(gather(shared, this->mComm), STATUS_OK);

      this->ExpectSame(shared, overMpi);
    }
  }
}

// --- Memory

// Seven entries in each row, as the 7-point operator has.
struct Rows {
  Rows(int count, int rank, int size)
      : ptr(static_cast<std::size_t>(count / size) + 1), idx(7 * (ptr.size() - 1), rank) {
    for (std::size_t i = 0; i < ptr.size(); ++i)
      ptr[i] = static_cast<int>(7 * i);
    values.assign(idx.size(), rank);
    matrix = MatrixCSR<double, int>::Borrow(count / size, count, ptr.data(), idx.data(),
                                            values.data());
    matrix.PlaceIn(count, count, MatrixPartition::RowWise(count / size * rank));
  }
  std::vector<int> ptr;
  std::vector<int> idx;
  std::vector<double> values;
  MatrixCSR<double, int> matrix;
};

// Each process also keeps the block of its own offsets for the next gather.
TEST(NodeMatrix, OfCompressedRowsOnAllProcessesIsKeptOnce) {
  constexpr int kRows = 1100000;
  constexpr long kKilobytes = kRows * (4L + 7 * 12) / 1024;
  auto const comm = std::make_shared<NodeComm>(MPI_COMM_WORLD);
  NodePool pool;
  Aggregator<double, int> aggregator(&pool);
  Rows const rows(kRows, comm->Rank(), comm->Size());
  long const before = PssOfAll();

  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(aggregator.Allgather(comm, rows.matrix, true), STATUS_OK);

    long const taken = PssOfAll() - before;
    EXPECT_LE(taken, kKilobytes * 108 / 100);
    EXPECT_GE(taken, kKilobytes * 95 / 100);
  }
  auto const& whole = *aggregator.TargetAs<MatrixCSR<double, int>>();
  EXPECT_TRUE(IsView(reinterpret_cast<unsigned char const*>(whole.mRowPtr.mData), 4L * kRows));
  long wrong = 0;
  for (int i = 0; i <= kRows; ++i)
    wrong += whole.mRowPtr.mData[i] != 7 * i ? 1 : 0;
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace Pavex
