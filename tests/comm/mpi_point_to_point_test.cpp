// Messages that MPI buffers, and messages of another length than expected, between rank 0 and
// the last rank, in jobs of two processes and more. contract_message.h has the other tests of
// messages.

#include "tests/comm/mpi_fixture.h"

namespace Pavex {

using MpiCommPair = MpiCommTest;

TEST_F(MpiCommPair, ReceivesTheMessageWithTheTagAskedFor) {
  int const gathered = 10;
  int const updated = 20;
  int received[2] = {};

  if (mRank == 0) {
    EXPECT_EQ(mComm.Send(&gathered, 1, DATATYPE_INT, mLast, 50), STATUS_OK);
    EXPECT_EQ(mComm.Send(&updated, 1, DATATYPE_INT, mLast, 51), STATUS_OK);
  }
  if (mRank == mLast) {
    EXPECT_EQ(mComm.Recv(&received[1], 1, DATATYPE_INT, 0, 51), STATUS_OK);
    EXPECT_EQ(mComm.Recv(&received[0], 1, DATATYPE_INT, 0, 50), STATUS_OK);
    EXPECT_EQ(received[0], 10);
    EXPECT_EQ(received[1], 20);
  }
}

TEST_F(MpiCommPair, FailsAReceiveThatWouldBeTruncated) {
  double const sent[5] = {1, 2, 3, 4, 5};
  double received[5] = {0, 0, 0, -1, -1};

  if (mRank == 0) {
    EXPECT_EQ(mComm.Send(sent, 5, DATATYPE_DOUBLE, mLast, 50), STATUS_OK);
  }
  if (mRank == mLast) {
    Outcome const outcome =
        OutcomeOf([&] { return mComm.Recv(received, 3, DATATYPE_DOUBLE, 0, 50); });
    EXPECT_EQ(outcome.mStatus, STATUS_COMM_FAILED);
    std::string const start = FailureLine("Recv", "peer 0, 0 out, 3 in", "");
    EXPECT_EQ(outcome.mLog.rfind(start.substr(0, start.size() - 1), 0), 0U) << outcome.mLog;
    EXPECT_NE(outcome.mLog.find("essage truncated"), std::string::npos) << outcome.mLog;
    EXPECT_EQ(std::count(outcome.mLog.begin(), outcome.mLog.end(), '\n'), 1);
    EXPECT_EQ(received[3], -1);
    EXPECT_EQ(received[4], -1);
  }
}

TEST_F(MpiCommPair, FailsAReceiveOfAShorterMessage) {
  int const sent[2] = {1, 2};
  int received[3] = {};

  if (mRank == 0) {
    EXPECT_EQ(mComm.Send(sent, 2, DATATYPE_INT, mLast, 50), STATUS_OK);
  }
  if (mRank == mLast) {
    Outcome const outcome =
        OutcomeOf([&] { return mComm.Recv(received, 3, DATATYPE_INT, 0, 50); });
    EXPECT_EQ(outcome.mStatus, STATUS_COMM_FAILED);
    EXPECT_EQ(outcome.mLog, FailureLine("Recv", "peer 0, 0 out, 3 in",
                                        "the message is shorter than asked for"));
  }
}

TEST_F(MpiCommPair, GoesOnAfterATruncatedReceive) {
  int const sent[2] = {1, 2};
  int received[2] = {};

  if (mRank == 0) {
    EXPECT_EQ(mComm.Send(sent, 2, DATATYPE_INT, mLast, 50), STATUS_OK);
    EXPECT_EQ(mComm.Send(sent, 2, DATATYPE_INT, mLast, 50), STATUS_OK);
  }
  if (mRank == mLast) {
    OutcomeOf([&] { return mComm.Recv(received, 1, DATATYPE_INT, 0, 50); });
    PavexStatus const status = mComm.Recv(received, 2, DATATYPE_INT, 0, 50);
    EXPECT_EQ(status, STATUS_OK);
    EXPECT_EQ(received[1], 2);
  }
}

TEST_F(MpiCommPair, DoesNotMeetMessagesOfTheCallersCommunicator) {
  int const foreign = 1;
  int const own = 2;
  int received = 0;

  if (mRank == 0) {
    MPI_Send(&foreign, 1, MPI_INT, mLast, 50, MPI_COMM_WORLD);
    EXPECT_EQ(mComm.Send(&own, 1, DATATYPE_INT, mLast, 50), STATUS_OK);
  }
  if (mRank == mLast) {
    EXPECT_EQ(mComm.Recv(&received, 1, DATATYPE_INT, 0, 50), STATUS_OK);
    EXPECT_EQ(received, 2);
    MPI_Recv(&received, 1, MPI_INT, 0, 50, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
    EXPECT_EQ(received, 1);
  }
}

TEST_F(MpiCommPair, FailsACollectiveThatWouldBeTruncated) {
  // The last rank sends one element more than the root has room for.
  int const sent[2] = {1, 2};
  std::vector<int> const counts(static_cast<std::size_t>(mSize), 1);
  std::vector<int> displs;
  for (int r = 0; r < mSize; ++r)
    displs.push_back(r);
  std::vector<int> received(static_cast<std::size_t>(mSize) + 1, -1);

  Outcome const outcome = OutcomeOf([&] {
    return mComm.Gatherv(sent, mRank == mLast ? 2 : 1, DATATYPE_INT, received.data(),
                         counts.data(), displs.data(), DATATYPE_INT, 0);
  });

  if (mRank == 0) {
    EXPECT_EQ(outcome.mStatus, STATUS_COMM_FAILED);
    EXPECT_NE(outcome.mLog.find("essage truncated"), std::string::npos) << outcome.mLog;
    EXPECT_EQ(received.back(), -1);
  } else {
    EXPECT_EQ(outcome.mStatus, STATUS_OK);
    EXPECT_EQ(outcome.mLog, "");
  }
}

}  // namespace Pavex
