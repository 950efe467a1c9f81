#include "pavex/runtime/self_comm.h"

#include <gtest/gtest.h>

namespace Pavex {
namespace {

// One element to send, one to receive into, and the arrays that describe them.
class SelfCommTest : public ::testing::Test {
 protected:
  static constexpr int kOne = 1;
  static constexpr int kZero = 0;

  SelfComm const mComm{};
  double const mSent = 4;
  double mReceived = 7;
};

TEST_F(SelfCommTest, IsRank0Of1) {
  EXPECT_EQ(mComm.Rank(), 0);
  EXPECT_EQ(mComm.Size(), 1);
}

TEST_F(SelfCommTest, BroadcastsToNoOtherRankWithSuccess) {
  EXPECT_EQ(mComm.Bcast(&mReceived, 1, DATATYPE_DOUBLE, 0), STATUS_OK);
  EXPECT_EQ(mReceived, 7);
}

TEST_F(SelfCommTest, BroadcastsWithSuccessWithAnyArguments) {
  EXPECT_EQ(mComm.Bcast(nullptr, -5, static_cast<Datatype>(99), 3), STATUS_OK);
}

TEST_F(SelfCommTest, RefusesAllgatherAndTouchesNothing) {
  EXPECT_EQ(mComm.Allgather(&mSent, 1, DATATYPE_DOUBLE, &mReceived, 1, DATATYPE_DOUBLE),
            STATUS_NOT_SUPPORTED);
  EXPECT_EQ(mReceived, 7);
}

TEST_F(SelfCommTest, RefusesAnInPlaceAllgather) {
  EXPECT_EQ(
      mComm.Allgather(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, &mReceived, 8, DATATYPE_BYTE),
      STATUS_NOT_SUPPORTED);
}

TEST_F(SelfCommTest, RefusesGathervAndTouchesNothing) {
  EXPECT_EQ(
      mComm.Gatherv(&mSent, 1, DATATYPE_DOUBLE, &mReceived, &kOne, &kZero, DATATYPE_DOUBLE, 0),
      STATUS_NOT_SUPPORTED);
  EXPECT_EQ(mReceived, 7);
}

TEST_F(SelfCommTest, RefusesScattervAndTouchesNothing) {
  EXPECT_EQ(
      mComm.Scatterv(&mSent, &kOne, &kZero, DATATYPE_DOUBLE, &mReceived, 1, DATATYPE_DOUBLE, 0),
      STATUS_NOT_SUPPORTED);
  EXPECT_EQ(mReceived, 7);
}

TEST_F(SelfCommTest, RefusesAllgathervAndTouchesNothing) {
  EXPECT_EQ(
      mComm.Allgatherv(&mSent, 1, DATATYPE_DOUBLE, &mReceived, &kOne, &kZero, DATATYPE_DOUBLE),
      STATUS_NOT_SUPPORTED);
  EXPECT_EQ(mReceived, 7);
}

TEST_F(SelfCommTest, RefusesPointToPointTransfersAndTouchesNothing) {
  EXPECT_EQ(mComm.Send(&mSent, 1, DATATYPE_DOUBLE, 0, 50), STATUS_NOT_SUPPORTED);
  EXPECT_EQ(mComm.Recv(&mReceived, 1, DATATYPE_DOUBLE, 0, 50), STATUS_NOT_SUPPORTED);
  EXPECT_EQ(mReceived, 7);
}

}  // namespace
}  // namespace Pavex
