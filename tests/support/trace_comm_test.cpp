#include "tests/support/trace_comm.h"

#include "pavex/runtime/self_comm.h"
#include "tests/support/scripted_comm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

TEST(TraceComm, TellsEveryOperationWithItsArguments) {
  TraceComm trace(std::make_shared<ScriptedComm>(1, 2));
  double data[4] = {};
  int const counts[2] = {3, 1};
  int const displs[2] = {0, 3};

  trace.Rank();
  trace.Size();
  trace.Barrier();
  trace.Send(data, 3, DATATYPE_DOUBLE, 0, 50);
  trace.Recv(data, 2, DATATYPE_LONG, 0, 51);
  trace.Gatherv(data, 1, DATATYPE_INT, data, counts, displs, DATATYPE_INT, 1);
  trace.Gatherv(data, 1, DATATYPE_INT, nullptr, nullptr, nullptr, DATATYPE_INT, 0);
  trace.Scatterv(data, counts, displs, DATATYPE_FLOAT, data, 1, DATATYPE_FLOAT, 1);
  trace.Alltoallv(data, counts, displs, DATATYPE_INT, data, counts, displs, DATATYPE_INT);
  trace.Allgather(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, data, 8, DATATYPE_BYTE);
  trace.Allgatherv(data, 1, DATATYPE_COMPLEX_FLOAT, data, counts, displs,
                   DATATYPE_COMPLEX_FLOAT);
  trace.Allreduce(data, data, 4, DATATYPE_DOUBLE, REDUCE_MAX);
  trace.Bcast(data, 2, DATATYPE_COMPLEX_DOUBLE, 0);

  EXPECT_THAT(
      trace.Texts(),
      ElementsAre("Rank()", "Size()", "Barrier()", "Send(3 double to 0 tag 50)",
                  "Recv(2 long from 0 tag 51)", "Gatherv(1 int; {3, 1} at {0, 3} int; root 1)",
                  "Gatherv(1 int; int; root 0)",
                  "Scatterv({3, 1} at {0, 3} float; 1 float; root 1)",
                  "Alltoallv({3, 1} at {0, 3} int; {3, 1} at {0, 3} int)",
                  "Allgather(in place 0 byte; 8 byte)",
                  "Allgatherv(1 complex float; {3, 1} at {0, 3} complex float)",
                  "Allreduce(4 double max)", "Bcast(2 complex double; root 0)"));
}

TEST(TraceComm, KeepsBuffersAsPointersAndCopiesCounts) {
  TraceComm trace(std::make_shared<ScriptedComm>(0, 2));
  int sent = 0;
  int received[2] = {};
  int counts[2] = {1, 1};
  int displs[2] = {0, 1};

  trace.Gatherv(&sent, 1, DATATYPE_INT, received, counts, displs, DATATYPE_INT, 0);
  counts[0] = displs[0] = 99;

  CommCall const& call = trace.Calls().at(0);
  EXPECT_EQ(call.sendbuf, &sent);
  EXPECT_EQ(call.recvbuf, received);
  EXPECT_EQ(call.recvcounts, counts);
  EXPECT_THAT(call.recvcountsRead, ElementsAre(1, 1));
  EXPECT_THAT(call.recvdisplsRead, ElementsAre(0, 1));
}

TEST(TraceComm, NeverReadsCountsThatMatterOnTheRootOnly) {
  TraceComm trace(std::make_shared<ScriptedComm>(0, 2));
  auto const* const noCounts = reinterpret_cast<int const*>(4);

  trace.Gatherv(nullptr, 0, DATATYPE_INT, nullptr, noCounts, noCounts, DATATYPE_INT, 1);

  EXPECT_EQ(trace.Calls().at(0).recvcounts, noCounts);
  EXPECT_TRUE(trace.Calls().at(0).recvcountsRead.empty());
}

TEST(TraceComm, HandsResultsOfTheWrappedCommunicatorOn) {
  TraceComm trace(std::make_shared<SelfComm>());

  EXPECT_EQ(trace.Rank(), 0);
  EXPECT_EQ(trace.Size(), 1);
  EXPECT_EQ(trace.Send(nullptr, 0, DATATYPE_INT, 0, 50), STATUS_NOT_SUPPORTED);
  EXPECT_EQ(trace.Calls().at(2).result, STATUS_NOT_SUPPORTED);
}

TEST(TraceComm, FailsOneDataMovingCallWithoutMovingData) {
  auto inner = std::make_shared<ScriptedComm>(0, 2);
  int moved = 0;
  inner->On(CommOp::BCAST, [&moved](CommCall const&) {
    ++moved;
    return STATUS_OK;
  });
  TraceComm trace(inner);

  trace.Fail(Fault::Once(2, -77));

  EXPECT_EQ(trace.Size(), 2);
  EXPECT_EQ(trace.Bcast(nullptr, 0, DATATYPE_INT, 0), STATUS_OK);
  EXPECT_EQ(trace.Rank(), 0);
  EXPECT_EQ(trace.Bcast(nullptr, 0, DATATYPE_INT, 0), -77);
  EXPECT_EQ(moved, 1);
  EXPECT_EQ(trace.Bcast(nullptr, 0, DATATYPE_INT, 0), STATUS_OK);
}

TEST(TraceComm, FailsForEverAfterHavingMovedTheData) {
  auto inner = std::make_shared<ScriptedComm>(0, 2);
  int moved = 0;
  inner->On(CommOp::BCAST, [&moved](CommCall const&) {
    ++moved;
    return STATUS_OK;
  });
  TraceComm trace(inner);

  trace.Fail(Fault::From(1, 9), TraceComm::AFTERWARDS);

  EXPECT_EQ(trace.Bcast(nullptr, 0, DATATYPE_INT, 0), 9);
  EXPECT_EQ(trace.Bcast(nullptr, 0, DATATYPE_INT, 0), 9);
  EXPECT_EQ(moved, 2);
}

}  // namespace
}  // namespace Pavex
