#include "tests/support/scripted_comm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

TEST(ScriptedComm, FillsTheSlotsOfTheOtherRanksOfAnInPlaceAllgather) {
  ScriptedComm comm(1, 3);
  comm.SetRecords(std::vector<long>{10, 20, 30});
  long slots[3] = {0, 2, 0};

  PavexStatus const status =
      comm.Allgather(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, slots, 8, DATATYPE_BYTE);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_THAT(slots, ElementsAre(10, 2, 30));
}

TEST(ScriptedComm, CopiesItsOwnContributionToAnAllgather) {
  ScriptedComm comm(0, 2);
  comm.SetRecords(std::vector<long>{10, 20});
  long const own = 1;
  long slots[2] = {};

  PavexStatus const status = comm.Allgather(&own, 1, DATATYPE_LONG, slots, 1, DATATYPE_LONG);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_THAT(slots, ElementsAre(1, 20));
}

TEST(ScriptedComm, RefusesAnAllgatherThatItsRecordsDoNotFit) {
  ScriptedComm comm(0, 2);
  comm.SetRecords(std::vector<long>{10, 20});
  long slots[2] = {};

  EXPECT_EQ(comm.Allgather(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, slots, 4, DATATYPE_BYTE),
            STATUS_COMM_FAILED);
}

TEST(ScriptedComm, RunsTheHandlerOfAnOperation) {
  ScriptedComm comm(0, 2);
  comm.On(CommOp::RECV, [](CommCall const& call) {
    *static_cast<int*>(call.recvbuf) = call.peer + call.tag;
    return STATUS_OK;
  });
  comm.Return(CommOp::SEND, 5);
  int received = 0;

  EXPECT_EQ(comm.Recv(&received, 1, DATATYPE_INT, 1, 50), STATUS_OK);
  EXPECT_EQ(received, 51);
  EXPECT_EQ(comm.Send(&received, 1, DATATYPE_INT, 1, 50), 5);
  EXPECT_EQ(comm.Bcast(nullptr, 0, DATATYPE_INT, 1), STATUS_OK);
}

TEST(ScriptedComm, PlaysRanksAndSizesThatCannotBe) {
  ScriptedComm comm(7, -1);

  EXPECT_EQ(comm.Rank(), 7);
  EXPECT_EQ(comm.Size(), -1);
}

}  // namespace
}  // namespace Pavex
