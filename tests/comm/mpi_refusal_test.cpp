// Arguments that MpiComm refuses. It calls no MPI function with them, so one rank alone may
// try.

#include "pavex/runtime/log.h"
#include "tests/comm/mpi_fixture.h"

#include <climits>

namespace Pavex {

namespace {

class MpiCommRefusal : public MpiCommTest {
 protected:
  void ExpectRefused(Outcome const& outcome, std::string const& what, std::string const& counts,
                     std::string const& reason) const {
    EXPECT_EQ(outcome.mStatus, STATUS_INVALID_VALUE);
    EXPECT_EQ(outcome.mLog, FailureLine(what, counts, reason));
  }

  // `value` for each rank except the last one, which has `last`.
  std::vector<int> Ranked(int value, int last) const {
    std::vector<int> values(static_cast<std::size_t>(mSize), value);
    values.back() = last;
    return values;
  }

  std::string Own() const { return std::to_string(mRank); }
  std::string Last() const { return std::to_string(mLast); }

  Datatype const mUnknown = static_cast<Datatype>(7);
  std::vector<int> const mOnes = Ranked(1, 1);
  std::vector<int> const mZeros = Ranked(0, 0);
  double mSent[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  double mReceived[8] = {};
};

}  // namespace

TEST_F(MpiCommRefusal, SendOfANegativeCount) {
  Outcome const outcome =
      OutcomeOf([&] { return mComm.Send(mSent, -1, DATATYPE_DOUBLE, 0, 50); });

  ExpectRefused(outcome, "Send", "peer 0, -1 out, 0 in", "send count -1 is negative");
}

TEST_F(MpiCommRefusal, RecvOfANegativeCount) {
  Outcome const outcome =
      OutcomeOf([&] { return mComm.Recv(mReceived, INT_MIN, DATATYPE_DOUBLE, 0, 50); });

  ExpectRefused(outcome, "Recv", "peer 0, 0 out, -2147483648 in",
                "receive count -2147483648 is negative");
}

TEST_F(MpiCommRefusal, BcastOfANegativeCount) {
  Outcome const outcome =
      OutcomeOf([&] { return mComm.Bcast(mSent, -3, DATATYPE_DOUBLE, mRank); });

  ExpectRefused(outcome, "Bcast", "peer " + Own() + ", -3 out, 0 in",
                "send count -3 is negative");
}

TEST_F(MpiCommRefusal, AllreduceOfANegativeCount) {
  Outcome const outcome = OutcomeOf(
      [&] { return mComm.Allreduce(mSent, mReceived, -3, DATATYPE_DOUBLE, REDUCE_SUM); });

  ExpectRefused(outcome, "Allreduce", "peer -1, -3 out, -3 in", "send count -3 is negative");
}

TEST_F(MpiCommRefusal, AllgatherOfANegativeReceiveCount) {
  Outcome const outcome = OutcomeOf([&] {
    return mComm.Allgather(mSent, 1, DATATYPE_DOUBLE, mReceived, -1, DATATYPE_DOUBLE);
  });

  ExpectRefused(outcome, "Allgather", "peer -1, 1 out, -" + std::to_string(mSize) + " in",
                "receive count -1 is negative");
}

TEST_F(MpiCommRefusal, GathervWithAWrappedDisplacementOnTheRoot) {
  std::vector<int> const displs = Ranked(0, INT_MIN + 5);

  Outcome const outcome = OutcomeOf([&] {
    return mComm.Gatherv(mSent, 1, DATATYPE_DOUBLE, mReceived, mOnes.data(), displs.data(),
                         DATATYPE_DOUBLE, mRank);
  });

  ExpectRefused(outcome, "Gatherv",
                "peer " + Own() + ", 1 out, " + std::to_string(mSize) + " in",
                "count 1 or displacement -2147483643 of rank " + Last() + " is negative");
}

TEST_F(MpiCommRefusal, AllgathervWithAWrappedCount) {
  std::vector<int> const counts = Ranked(0, -7);

  Outcome const outcome = OutcomeOf([&] {
    return mComm.Allgatherv(mSent, 1, DATATYPE_DOUBLE, mReceived, counts.data(), mZeros.data(),
                            DATATYPE_DOUBLE);
  });

  ExpectRefused(outcome, "Allgatherv", "peer -1, 1 out, -7 in",
                "count -7 or displacement 0 of rank " + Last() + " is negative");
}

TEST_F(MpiCommRefusal, ScattervWithAWrappedDisplacementOnTheRoot) {
  std::vector<int> const displs = Ranked(0, -1);

  Outcome const outcome = OutcomeOf([&] {
    return mComm.Scatterv(mSent, mOnes.data(), displs.data(), DATATYPE_DOUBLE, mReceived, 1,
                          DATATYPE_DOUBLE, mRank);
  });

  ExpectRefused(outcome, "Scatterv",
                "peer " + Own() + ", " + std::to_string(mSize) + " out, 1 in",
                "count 1 or displacement -1 of rank " + Last() + " is negative");
}

TEST_F(MpiCommRefusal, AlltoallvWithAWrappedReceiveDisplacement) {
  std::vector<int> const displs = Ranked(0, -1);
  std::string const all = std::to_string(mSize);

  Outcome const outcome = OutcomeOf([&] {
    return mComm.Alltoallv(mSent, mOnes.data(), mZeros.data(), DATATYPE_DOUBLE, mReceived,
                           mOnes.data(), displs.data(), DATATYPE_DOUBLE);
  });

  ExpectRefused(outcome, "Alltoallv", "peer -1, " + all + " out, " + all + " in",
                "count 1 or displacement -1 of rank " + Last() + " is negative");
}

TEST_F(MpiCommRefusal, AnUnknownElementTypeInEveryOperation) {
  Datatype const real = DATATYPE_DOUBLE;
  int const* const ones = mOnes.data();
  int const* const zeros = mZeros.data();
  std::vector<Outcome> const outcomes = {
      OutcomeOf([&] { return mComm.Send(mSent, 1, mUnknown, 0, 50); }),
      OutcomeOf([&] { return mComm.Recv(mReceived, 1, mUnknown, 0, 50); }),
      OutcomeOf([&] {
        return mComm.Gatherv(mSent, 1, real, mReceived, ones, zeros, mUnknown, mRank);
      }),
      OutcomeOf([&] {
        return mComm.Scatterv(mSent, ones, zeros, real, mReceived, 1, mUnknown, mRank);
      }),
      OutcomeOf([&] {
        return mComm.Alltoallv(mSent, ones, zeros, mUnknown, mReceived, ones, zeros, real);
      }),
      OutcomeOf([&] { return mComm.Allgather(mSent, 1, mUnknown, mReceived, 1, real); }),
      OutcomeOf(
          [&] { return mComm.Allgatherv(mSent, 1, real, mReceived, ones, zeros, mUnknown); }),
      OutcomeOf([&] { return mComm.Allreduce(mSent, mReceived, 1, mUnknown, REDUCE_SUM); }),
      OutcomeOf([&] { return mComm.Bcast(mSent, 1, mUnknown, 0); })};

  for (Outcome const& outcome : outcomes) {
    EXPECT_EQ(outcome.mStatus, STATUS_INVALID_VALUE);
    EXPECT_EQ(outcome.mLog.substr(outcome.mLog.find("): ")), "): element type 7 is unknown\n");
  }
}

TEST_F(MpiCommRefusal, ATypeBelowTheEnumeration) {
  Outcome const outcome =
      OutcomeOf([&] { return mComm.Bcast(mSent, 1, static_cast<Datatype>(-1), mRank); });

  ExpectRefused(outcome, "Bcast", "peer " + Own() + ", 1 out, 0 in",
                "element type -1 is unknown");
}

TEST_F(MpiCommRefusal, AnUnknownReduction) {
  Outcome const outcome = OutcomeOf([&] {
    return mComm.Allreduce(mSent, mReceived, 1, DATATYPE_DOUBLE, static_cast<ReduceOp>(3));
  });

  ExpectRefused(outcome, "Allreduce", "peer -1, 1 out, 1 in", "reduction 3 is unknown");
}

TEST_F(MpiCommRefusal, ARankAfterTheLast) {
  std::string const peer = std::to_string(mSize);

  Outcome const outcome =
      OutcomeOf([&] { return mComm.Send(mSent, 1, DATATYPE_DOUBLE, mSize, 50); });

  ExpectRefused(outcome, "Send", "peer " + peer + ", 1 out, 0 in",
                "rank " + peer + " is outside the communicator");
}

// MPI uses small negative numbers for "no process" and "any process".
TEST_F(MpiCommRefusal, NegativeRanks) {
  for (int peer = -4; peer < 0; ++peer) {
    std::string const name = std::to_string(peer);
    std::string const reason = "rank " + name + " is outside the communicator";

    Outcome const sent =
        OutcomeOf([&] { return mComm.Send(mSent, 1, DATATYPE_DOUBLE, peer, 50); });
    Outcome const received =
        OutcomeOf([&] { return mComm.Recv(mReceived, 1, DATATYPE_DOUBLE, peer, 50); });
    Outcome const broadcast =
        OutcomeOf([&] { return mComm.Bcast(mReceived, 1, DATATYPE_DOUBLE, peer); });

    ExpectRefused(sent, "Send", "peer " + name + ", 1 out, 0 in", reason);
    ExpectRefused(received, "Recv", "peer " + name + ", 0 out, 1 in", reason);
    ExpectRefused(broadcast, "Bcast", "peer " + name + ", 0 out, 1 in", reason);
  }
}

TEST_F(MpiCommRefusal, NegativeTags) {
  Outcome const sent = OutcomeOf([&] { return mComm.Send(mSent, 1, DATATYPE_DOUBLE, 0, -1); });
  Outcome const received =
      OutcomeOf([&] { return mComm.Recv(mReceived, 1, DATATYPE_DOUBLE, 0, -1); });

  ExpectRefused(sent, "Send", "peer 0, 1 out, 0 in", "tag -1 is negative");
  ExpectRefused(received, "Recv", "peer 0, 0 out, 1 in", "tag -1 is negative");
}

TEST_F(MpiCommRefusal, TheInPlaceMarkerWhereItHasNoMeaning) {
  void const* const marker = &Comm::IN_PLACE_OBJ;
  std::string const reason = "in place is not possible here";

  Outcome const sent = OutcomeOf([&] { return mComm.Send(marker, 1, DATATYPE_INT, 0, 50); });
  Outcome const scattered = OutcomeOf([&] {
    return mComm.Scatterv(marker, mOnes.data(), mZeros.data(), DATATYPE_INT, mReceived, 1,
                          DATATYPE_INT, mRank);
  });

  ExpectRefused(sent, "Send", "peer 0, 1 out, 0 in", reason);
  ExpectRefused(scattered, "Scatterv",
                "peer " + Own() + ", " + std::to_string(mSize) + " out, 1 in", reason);
  if (mSize > 1) {
    int const root = (mRank + 1) % mSize;
    Outcome const gathered = OutcomeOf([&] {
      return mComm.Gatherv(marker, 0, DATATYPE_INT, nullptr, nullptr, nullptr, DATATYPE_INT,
                           root);
    });
    ExpectRefused(gathered, "Gatherv", "peer " + std::to_string(root) + ", 0 out, 0 in",
                  reason);
  }
}

TEST_F(MpiCommRefusal, TheInPlaceMarkerAsAReceiveBuffer) {
  auto* const marker = const_cast<std::int32_t*>(&Comm::IN_PLACE_OBJ);
  std::string const reason = "in place is not possible here";

  Outcome const received =
      OutcomeOf([&] { return mComm.Recv(marker, 1, DATATYPE_INT, 0, 50); });
  Outcome const sent = OutcomeOf([&] { return mComm.Bcast(marker, 1, DATATYPE_INT, mRank); });

  ExpectRefused(received, "Recv", "peer 0, 0 out, 1 in", reason);
  ExpectRefused(sent, "Bcast", "peer " + Own() + ", 1 out, 0 in", reason);
}

TEST_F(MpiCommRefusal, MissingCountsOnTheRoot) {
  Outcome const gathered = OutcomeOf([&] {
    return mComm.Gatherv(nullptr, 0, DATATYPE_INT, nullptr, nullptr, nullptr, DATATYPE_INT,
                         mRank);
  });

  ExpectRefused(gathered, "Gatherv", "peer " + Own() + ", 0 out, 0 in",
                "there are no counts or no displacements");
}

TEST_F(MpiCommRefusal, MissingDisplacementsOnTheRoot) {
  Outcome const gathered = OutcomeOf([&] {
    return mComm.Gatherv(nullptr, 0, DATATYPE_INT, nullptr, mZeros.data(), nullptr,
                         DATATYPE_INT, mRank);
  });

  ExpectRefused(gathered, "Gatherv", "peer " + Own() + ", 0 out, 0 in",
                "there are no counts or no displacements");
}

TEST_F(MpiCommRefusal, LeavesTheReceiveBufferAlone) {
  std::vector<int> const displs = Ranked(0, -1);

  OutcomeOf([&] {
    return mComm.Allgatherv(mSent, 1, DATATYPE_DOUBLE, mReceived, mOnes.data(), displs.data(),
                            DATATYPE_DOUBLE);
  });

  for (double const value : mReceived)
    EXPECT_EQ(value, 0.0);
}

TEST_F(MpiCommRefusal, IsSilentWhenErrorsAreNotLogged) {
  Log::mMaxLogLevel = LOG_FATAL;

  Outcome const outcome =
      OutcomeOf([&] { return mComm.Bcast(mSent, -1, DATATYPE_DOUBLE, mRank); });

  Log::mMaxLogLevel = LOG_ERROR;
  EXPECT_EQ(outcome.mStatus, STATUS_INVALID_VALUE);
  EXPECT_EQ(outcome.mLog, "");
}

}  // namespace Pavex
