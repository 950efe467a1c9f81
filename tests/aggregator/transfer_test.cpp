#include "pavex/aggregator/transfer.ipp"

#include "pavex/comm/local_comm.h"
#include "pavex/runtime/self_comm.h"
#include "tests/support/capture.h"
#include "tests/support/scripted_comm.h"
#include "tests/support/trace_comm.h"

#include <gmock/gmock.h>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The communicator of rank `rank` of four. Nothing arrives over it.
TraceComm RankOfFour(int rank) {
  return TraceComm(std::make_shared<ScriptedComm>(rank, 4));
}

TEST(TransferCentralized, DoesNothingWhenSourceIsDestination) {
  for (int rank = 0; rank < 4; ++rank) {
    TraceComm const comm = RankOfFour(rank);

    PavexStatus const status =
        TransferCentralized(nullptr, 3, DATATYPE_DOUBLE, 2, 2, TAG_GATHER, comm);

    EXPECT_EQ(status, STATUS_OK);
    EXPECT_THAT(comm.Texts(), IsEmpty());
  }
}

TEST(TransferCentralized, DoesNothingWhenSourceIsDestinationInASingleProcess) {
  TraceComm const comm(std::make_shared<SelfComm>());

  PavexStatus const status =
      TransferCentralized(nullptr, 3, DATATYPE_DOUBLE, 0, 0, TAG_GATHER, comm);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_THAT(comm.Texts(), IsEmpty());
}

TEST(TransferCentralized, BroadcastsFromTheSourceToEveryone) {
  TraceComm const comm = RankOfFour(1);
  double data[3] = {};

  PavexStatus const status =
      TransferCentralized(data, 3, DATATYPE_DOUBLE, 2, -1, TAG_GATHER, comm);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_THAT(comm.Texts(), ElementsAre("Bcast(3 double; root 2)"));
  EXPECT_EQ(comm.Calls().at(0).recvbuf, data);
}

TEST(TransferCentralized, SucceedsBroadcastingToOneself) {
  SelfComm const comm;
  int data = 7;

  EXPECT_EQ(TransferCentralized(&data, 1, DATATYPE_INT, 0, -1, TAG_GATHER, comm), STATUS_OK);
  EXPECT_EQ(data, 7);
}

TEST(TransferCentralized, SendsOnTheSource) {
  TraceComm const comm = RankOfFour(2);
  long data[5] = {};

  PavexStatus const status =
      TransferCentralized(data, 5, DATATYPE_LONG, 2, 3, TAG_GATHER, comm);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_THAT(comm.Texts(), ElementsAre("Rank()", "Send(5 long to 3 tag 50)"));
  EXPECT_EQ(comm.Calls().at(1).sendbuf, data);
}

TEST(TransferCentralized, ReceivesOnTheDestination) {
  TraceComm const comm = RankOfFour(3);
  long data[5] = {};

  PavexStatus const status =
      TransferCentralized(data, 5, DATATYPE_LONG, 2, 3, TAG_GATHER, comm);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_THAT(comm.Texts(), ElementsAre("Rank()", "Recv(5 long from 2 tag 50)"));
  EXPECT_EQ(comm.Calls().at(1).recvbuf, data);
}

TEST(TransferCentralized, LeavesABystanderAlone) {
  TraceComm const comm = RankOfFour(1);
  int data = 7;

  PavexStatus const status =
      TransferCentralized(&data, 1, DATATYPE_INT, 2, 3, TAG_GATHER, comm);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_THAT(comm.Texts(), ElementsAre("Rank()"));
  EXPECT_EQ(data, 7);
}

TEST(TransferCentralized, PassesTheTagUnchanged) {
  TraceComm const source = RankOfFour(0);
  TraceComm const destination = RankOfFour(1);

  for (Tag const tag : {TAG_GATHER, TAG_UPDATE, TAG_SCATTER}) {
    TransferCentralized(nullptr, 0, DATATYPE_INT, 0, 1, tag, source);
    TransferCentralized(nullptr, 0, DATATYPE_INT, 0, 1, tag, destination);
  }

  EXPECT_THAT(source.DataTexts(),
              ElementsAre("Send(0 int to 1 tag 50)", "Send(0 int to 1 tag 51)",
                          "Send(0 int to 1 tag 52)"));
  EXPECT_THAT(destination.DataTexts(),
              ElementsAre("Recv(0 int from 0 tag 50)", "Recv(0 int from 0 tag 51)",
                          "Recv(0 int from 0 tag 52)"));
}

TEST(TransferCentralized, TakesOtherNegativeDestinationsForRanks) {
  TraceComm const comm = RankOfFour(0);

  TransferCentralized(nullptr, 1, DATATYPE_INT, 0, -2, TAG_GATHER, comm);

  EXPECT_THAT(comm.DataTexts(), ElementsAre("Send(1 int to -2 tag 50)"));
}

TEST(TransferCentralized, FailsBetweenTwoRanksInASingleProcessThatIsOneOfThem) {
  SelfComm const comm;
  int data = 7;

  EXPECT_EQ(TransferCentralized(&data, 1, DATATYPE_INT, 0, 1, TAG_GATHER, comm), -2);
  EXPECT_EQ(TransferCentralized(&data, 1, DATATYPE_INT, 1, 0, TAG_GATHER, comm), -2);
  EXPECT_EQ(TransferCentralized(&data, 1, DATATYPE_INT, 1, 2, TAG_GATHER, comm), 0);
}

TEST(TransferCentralized, ReturnsTheStatusUnchangedWithoutALine) {
  for (PavexStatus const failure : {-77, 5}) {
    TraceComm comm = RankOfFour(0);
    comm.Fail(Fault::From(1, failure));
    int data = 0;

    std::string const output = CaptureStdout([&] {
      EXPECT_EQ(TransferCentralized(&data, 1, DATATYPE_INT, 0, -1, TAG_GATHER, comm), failure);
      EXPECT_EQ(TransferCentralized(&data, 1, DATATYPE_INT, 0, 1, TAG_GATHER, comm), failure);
      EXPECT_EQ(TransferCentralized(&data, 1, DATATYPE_INT, 1, 0, TAG_GATHER, comm), failure);
    });

    EXPECT_EQ(output, "");
  }
}

TEST(TransferCentralized, MovesTheArrayOfTheSourceToTheDestinationAlone) {
  int data[3] = {0, 1, 2};

  LocalComm::Run(3, [&](std::shared_ptr<Comm> const& comm) {
    int* const own = data + comm->Rank();
    EXPECT_EQ(TransferCentralized(own, 1, DATATYPE_INT, 2, 0, TAG_UPDATE, *comm), STATUS_OK);
  });

  EXPECT_THAT(data, ElementsAre(2, 1, 2));
}

TEST(GatherDistributed, GathersToEveryoneOnTargetMinusOne) {
  TraceComm const comm = RankOfFour(1);
  int const counts[] = {1, 2, 3, 4};
  int const displs[] = {0, 1, 3, 6};
  float sent[2] = {};
  float received[10] = {};

  PavexStatus const status =
      GatherDistributed(sent, 2, received, counts, displs, DATATYPE_FLOAT, -1, comm);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_THAT(comm.Texts(),
              ElementsAre("Allgatherv(2 float; {1, 2, 3, 4} at {0, 1, 3, 6} float)"));
  EXPECT_EQ(comm.Calls().at(0).sendbuf, sent);
  EXPECT_EQ(comm.Calls().at(0).recvbuf, received);
}

TEST(GatherDistributed, GathersToOneRank) {
  TraceComm const comm = RankOfFour(1);
  int const counts[] = {1, 2, 3, 4};
  int const displs[] = {0, 1, 3, 6};
  float sent[2] = {};
  float received[10] = {};

  PavexStatus const status =
      GatherDistributed(sent, 2, received, counts, displs, DATATYPE_FLOAT, 1, comm);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_THAT(comm.Texts(),
              ElementsAre("Gatherv(2 float; {1, 2, 3, 4} at {0, 1, 3, 6} float; root 1)"));
  EXPECT_EQ(comm.Calls().at(0).sendbuf, sent);
  EXPECT_EQ(comm.Calls().at(0).recvbuf, received);
}

TEST(GatherDistributed, TakesOtherNegativeTargetsForRanks) {
  TraceComm const comm = RankOfFour(1);

  GatherDistributed(nullptr, 2, nullptr, nullptr, nullptr, DATATYPE_FLOAT, -2, comm);

  EXPECT_THAT(comm.Texts(), ElementsAre("Gatherv(2 float; float; root -2)"));
}

TEST(GatherDistributed, IsNotSupportedInASingleProcess) {
  SelfComm const comm;

  for (int const root : {-1, 0}) {
    EXPECT_EQ(
        GatherDistributed(nullptr, 0, nullptr, nullptr, nullptr, DATATYPE_INT, root, comm), -2);
  }
}

TEST(GatherDistributed, ReturnsTheStatusUnchangedWithoutALine) {
  for (PavexStatus const failure : {-77, 5}) {
    TraceComm comm = RankOfFour(0);
    comm.Fail(Fault::From(1, failure));

    std::string const output = CaptureStdout([&] {
      for (int const root : {-1, 0}) {
        EXPECT_EQ(
            GatherDistributed(nullptr, 0, nullptr, nullptr, nullptr, DATATYPE_INT, root, comm),
            failure);
      }
    });

    EXPECT_EQ(output, "");
  }
}

}  // namespace
}  // namespace Pavex
