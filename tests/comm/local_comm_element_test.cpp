// Element types and reductions of LocalComm.

#include "tests/comm/local_ranks.h"

#include <climits>
#include <complex>
#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

namespace Pavex {
namespace {

template <typename T>
class LocalCommWith : public testing::Test {};
using Elements =
    testing::Types<int, long, float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(LocalCommWith, Elements, );

TYPED_TEST(LocalCommWith, MovesAndAddsElementsOfItsType) {
  using T = TypeParam;
  auto const type = DatatypeOf<T>::kValue;
  std::vector<T> gathered(3);
  std::vector<T> sums(3);

  auto const statuses = RunRanks(3, [&](Comm const& comm, int rank) {
    T const mine = static_cast<T>(static_cast<float>(rank + 1));
    PavexStatus const moved = rank == 0
                                  ? comm.Recv(&gathered[1], 1, type, 1, 0)
                                  : (rank == 1 ? comm.Send(&mine, 1, type, 0, 0) : STATUS_OK);
    return moved + comm.Allreduce(&mine, &sums[Index(rank)], 1, type, REDUCE_SUM);
  });

  EXPECT_EQ(statuses, All(3, STATUS_OK));
  EXPECT_EQ(gathered, (std::vector<T>{T(0), T(2), T(0)}));
  EXPECT_EQ(sums, (std::vector<T>{T(6), T(6), T(6)}));
}

TEST(LocalComm, AllreduceFindsMinimumAndMaximum) {
  std::vector<double> least(3);
  std::vector<double> most(3);

  auto const statuses = RunRanks(3, [&](Comm const& comm, int rank) {
    double const mine = 2.5 - (rank - 1) * (rank - 1);
    return comm.Allreduce(&mine, &least[Index(rank)], 1, DATATYPE_DOUBLE, REDUCE_MIN) +
           comm.Allreduce(&mine, &most[Index(rank)], 1, DATATYPE_DOUBLE, REDUCE_MAX);
  });

  EXPECT_EQ(statuses, All(3, STATUS_OK));
  EXPECT_EQ(least, std::vector<double>(3, 1.5));
  EXPECT_EQ(most, std::vector<double>(3, 2.5));
}

TEST(LocalComm, IntegerSumsWrap) {
  int sum = 0;
  std::uint8_t byteSum = 0;

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    int const mine = rank == 0 ? INT_MAX : 1;
    std::uint8_t const byte = rank == 0 ? 255 : 3;
    int ignored = 0;
    std::uint8_t ignoredByte = 0;
    return comm.Allreduce(&mine, rank == 0 ? &sum : &ignored, 1, DATATYPE_INT, REDUCE_SUM) +
           comm.Allreduce(&byte, rank == 0 ? &byteSum : &ignoredByte, 1, DATATYPE_BYTE,
                          REDUCE_SUM);
  });

  EXPECT_EQ(statuses, All(2, STATUS_OK));
  EXPECT_EQ(sum, INT_MIN);
  EXPECT_EQ(byteSum, 2);
}

}  // namespace
}  // namespace Pavex
