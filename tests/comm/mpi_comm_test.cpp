// Behaviour of MpiComm beyond the contract of every communicator.

#include "pavex/comm/mpi_comm.h"

#include "tests/comm/contract.h"
#include "tests/comm/mpi_fixture.h"

namespace Pavex {

PAVEX_COMM_CONTRACT(MpiRanks);

TEST_F(MpiCommTest, AllreduceInPlaceReadsTheReceiveBuffer) {
  int value = mRank + 1;

  PavexStatus const status =
      mComm.Allreduce(&Comm::IN_PLACE_OBJ, &value, 1, DATATYPE_INT, REDUCE_SUM);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(value, mSize * (mSize + 1) / 2);
}

TEST_F(MpiCommTest, AlltoallvInPlaceExchangesTheSlots) {
  auto const size = static_cast<std::size_t>(mSize);
  std::vector<int> const ones(size, 1);
  std::vector<int> displs;
  std::vector<int> slots;
  std::vector<int> expected;
  for (int r = 0; r < mSize; ++r) {
    displs.push_back(r);
    slots.push_back(100 * mRank + r);
    expected.push_back(100 * r + mRank);
  }

  PavexStatus const status =
      mComm.Alltoallv(&Comm::IN_PLACE_OBJ, nullptr, nullptr, DATATYPE_BYTE, slots.data(),
                      ones.data(), displs.data(), DATATYPE_INT);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(slots, expected);
}

}  // namespace Pavex
