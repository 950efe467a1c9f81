// Failures of MPI itself. This binary defines the MPI functions that MpiComm calls, so that a
// test can make each of them fail. Otherwise they call MPI by its profiling names.

#include "tests/comm/failing_new.h"
#include "tests/comm/mpi_fixture.h"

#include <cstring>
#include <map>
#include <memory>

namespace Pavex {

namespace {

// Says which of the functions below fails, and notes their calls.
struct FakeMpi {
  std::string mFailing;               // the name of the function that fails; empty: none
  std::map<std::string, int> mCalls;  // by name
  void const* mSent = nullptr;        // the send buffer of the last MPI_Allgather
};
FakeMpi gFake;

bool Fails(char const* function) {
  ++gFake.mCalls[function];
  return gFake.mFailing == function;
}

}  // namespace

}  // namespace Pavex

// A shared library, too, must call the functions of this binary.
#define PAVEX_FAKE_MPI extern "C" __attribute__((visibility("default")))

// Defines int MPI_<name>(<parameters>), which fails or calls PMPI_<name>(<arguments>).
#define PAVEX_FAKE(name, parameters, arguments)           \
  PAVEX_FAKE_MPI int MPI_##name parameters {              \
    if (Pavex::Fails("MPI_" #name)) return MPI_ERR_OTHER; \
    return PMPI_##name arguments;                         \
  }                                                       \
  static_assert(true, "takes the semicolon")

PAVEX_FAKE(Comm_dup, (MPI_Comm comm, MPI_Comm* newcomm), (comm, newcomm));
// Fails instead of MPI's function, or after it, so that the other ranks have theirs.
PAVEX_FAKE_MPI int MPI_Comm_split(MPI_Comm comm, int color, int key, MPI_Comm* newcomm) {
  if (Pavex::Fails("MPI_Comm_split")) return MPI_ERR_OTHER;
  int const code = PMPI_Comm_split(comm, color, key, newcomm);
  if (!Pavex::Fails("MPI_Comm_split after the call")) return code;
  PMPI_Comm_free(newcomm);
  return MPI_ERR_OTHER;
}
PAVEX_FAKE(Comm_free, (MPI_Comm * comm), (comm));
PAVEX_FAKE(Comm_set_errhandler, (MPI_Comm comm, MPI_Errhandler handler), (comm, handler));
PAVEX_FAKE(Barrier, (MPI_Comm comm), (comm));
PAVEX_FAKE(Send,
           (void const* buf, int count, MPI_Datatype type, int dest, int tag, MPI_Comm comm),
           (buf, count, type, dest, tag, comm));
PAVEX_FAKE(Recv,
           (void* buf, int count, MPI_Datatype type, int source, int tag, MPI_Comm comm,
            MPI_Status* status),
           (buf, count, type, source, tag, comm, status));
PAVEX_FAKE(Gatherv,
           (void const* sendbuf, int sendcount, MPI_Datatype sendtype, void* recvbuf,
            int const* recvcounts, int const* displs, MPI_Datatype recvtype, int root,
            MPI_Comm comm),
           (sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype, root, comm));
PAVEX_FAKE(Scatterv,
           (void const* sendbuf, int const* sendcounts, int const* displs,
            MPI_Datatype sendtype, void* recvbuf, int recvcount, MPI_Datatype recvtype,
            int root, MPI_Comm comm),
           (sendbuf, sendcounts, displs, sendtype, recvbuf, recvcount, recvtype, root, comm));
PAVEX_FAKE(Alltoallv,
           (void const* sendbuf, int const* sendcounts, int const* sdispls,
            MPI_Datatype sendtype, void* recvbuf, int const* recvcounts, int const* rdispls,
            MPI_Datatype recvtype, MPI_Comm comm),
           (sendbuf, sendcounts, sdispls, sendtype, recvbuf, recvcounts, rdispls, recvtype,
            comm));
PAVEX_FAKE_MPI int MPI_Allgather(void const* sendbuf, int sendcount, MPI_Datatype sendtype,
                                 void* recvbuf, int recvcount, MPI_Datatype recvtype,
                                 MPI_Comm comm) {
  Pavex::gFake.mSent = sendbuf;
  if (Pavex::Fails("MPI_Allgather")) return MPI_ERR_OTHER;
  return PMPI_Allgather(sendbuf, sendcount, sendtype, recvbuf, recvcount, recvtype, comm);
}
PAVEX_FAKE(Allgatherv,
           (void const* sendbuf, int sendcount, MPI_Datatype sendtype, void* recvbuf,
            int const* recvcounts, int const* displs, MPI_Datatype recvtype, MPI_Comm comm),
           (sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype, comm));
PAVEX_FAKE(Allreduce,
           (void const* sendbuf, void* recvbuf, int count, MPI_Datatype type, MPI_Op op,
            MPI_Comm comm),
           (sendbuf, recvbuf, count, type, op, comm));
PAVEX_FAKE(Bcast, (void* buf, int count, MPI_Datatype type, int root, MPI_Comm comm),
           (buf, count, type, root, comm));

// The text of a failure in these tests has two lines, like that of some MPIs.
PAVEX_FAKE_MPI int MPI_Error_string(int code, char* text, int* length) {
  if (Pavex::gFake.mFailing.empty()) return PMPI_Error_string(code, text, length);
  std::strcpy(text, "the network is down\n(made to fail)");
  *length = static_cast<int>(std::strlen(text));
  return MPI_SUCCESS;
}

namespace Pavex {

namespace {

char const kReason[] = "the network is down (made to fail)";

class MpiFailure : public MpiCommTest {
 protected:
  MpiFailure() { gFake = FakeMpi(); }
  ~MpiFailure() override { gFake = FakeMpi(); }

  // Runs `operation` on every rank while `function` fails.
  Outcome OutcomeWithout(std::string const& function,
                         std::function<PavexStatus()> const& operation) const {
    gFake.mFailing = function;
    Outcome outcome = OutcomeOf(operation);
    gFake.mFailing.clear();
    return outcome;
  }

  void ExpectFailure(Outcome const& outcome, std::string const& what,
                     std::string const& counts) const {
    EXPECT_EQ(outcome.mStatus, STATUS_COMM_FAILED);
    EXPECT_EQ(outcome.mLog, FailureLine(what, counts, kReason));
  }

  // The number of elements of all ranks, two for each.
  std::string Twice() const { return std::to_string(2 * mSize); }
  std::vector<int> const mTwos = std::vector<int>(static_cast<std::size_t>(mSize), 2);
  std::vector<int> const mZeros = std::vector<int>(static_cast<std::size_t>(mSize), 0);
  long mSent[2] = {1, 2};
  long mReceived[2] = {};
};

}  // namespace

TEST_F(MpiFailure, OfABarrierIsAStatusAndALine) {
  Outcome const outcome = OutcomeWithout("MPI_Barrier", [&] { return mComm.Barrier(); });

  ExpectFailure(outcome, "Barrier", "peer -1, 0 out, 0 in");
}

TEST_F(MpiFailure, OfASendIsAStatusAndALine) {
  Outcome const outcome = OutcomeWithout(
      "MPI_Send", [&] { return mComm.Send(mSent, 2, DATATYPE_LONG, mLast, 50); });

  ExpectFailure(outcome, "Send", "peer " + std::to_string(mLast) + ", 2 out, 0 in");
}

TEST_F(MpiFailure, OfAReceiveIsAStatusAndALine) {
  Outcome const outcome = OutcomeWithout(
      "MPI_Recv", [&] { return mComm.Recv(mReceived, 2, DATATYPE_LONG, 0, 50); });

  ExpectFailure(outcome, "Recv", "peer 0, 0 out, 2 in");
}

TEST_F(MpiFailure, OfAGatherShowsArrivingElementsOnTheRootOnly) {
  Outcome const outcome = OutcomeWithout("MPI_Gatherv", [&] {
    return mComm.Gatherv(mSent, 2, DATATYPE_LONG, mReceived, mTwos.data(), mZeros.data(),
                         DATATYPE_LONG, 0);
  });

  ExpectFailure(outcome, "Gatherv",
                "peer 0, 2 out, " + (mRank == 0 ? Twice() : std::string("0")) + " in");
}

TEST_F(MpiFailure, OfAScatterShowsLeavingElementsOnTheRootOnly) {
  Outcome const outcome = OutcomeWithout("MPI_Scatterv", [&] {
    return mComm.Scatterv(mSent, mTwos.data(), mZeros.data(), DATATYPE_LONG, mReceived, 2,
                          DATATYPE_LONG, 0);
  });

  ExpectFailure(outcome, "Scatterv",
                "peer 0, " + (mRank == 0 ? Twice() : std::string("0")) + " out, 2 in");
}

TEST_F(MpiFailure, OfAnExchangeIsAStatusAndALine) {
  Outcome const outcome = OutcomeWithout("MPI_Alltoallv", [&] {
    return mComm.Alltoallv(mSent, mTwos.data(), mZeros.data(), DATATYPE_LONG, mReceived,
                           mTwos.data(), mZeros.data(), DATATYPE_LONG);
  });

  ExpectFailure(outcome, "Alltoallv", "peer -1, " + Twice() + " out, " + Twice() + " in");
}

TEST_F(MpiFailure, OfAnAllgatherIsAStatusAndALine) {
  Outcome const outcome = OutcomeWithout("MPI_Allgather", [&] {
    return mComm.Allgather(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, mReceived, 2, DATATYPE_LONG);
  });

  ExpectFailure(outcome, "Allgather", "peer -1, 0 out, " + Twice() + " in");
}

TEST_F(MpiFailure, OfAnAllgathervIsAStatusAndALine) {
  Outcome const outcome = OutcomeWithout("MPI_Allgatherv", [&] {
    return mComm.Allgatherv(mSent, 2, DATATYPE_LONG, mReceived, mTwos.data(), mZeros.data(),
                            DATATYPE_LONG);
  });

  ExpectFailure(outcome, "Allgatherv", "peer -1, 2 out, " + Twice() + " in");
}

TEST_F(MpiFailure, OfAReductionIsAStatusAndALine) {
  Outcome const outcome = OutcomeWithout("MPI_Allreduce", [&] {
    return mComm.Allreduce(mSent, mReceived, 2, DATATYPE_LONG, REDUCE_MIN);
  });

  ExpectFailure(outcome, "Allreduce", "peer -1, 2 out, 2 in");
}

TEST_F(MpiFailure, OfABroadcastIsAStatusAndALine) {
  Outcome const outcome =
      OutcomeWithout("MPI_Bcast", [&] { return mComm.Bcast(mSent, 2, DATATYPE_LONG, 0); });

  ExpectFailure(outcome, "Bcast", mRank == 0 ? "peer 0, 2 out, 0 in" : "peer 0, 0 out, 2 in");
}

TEST_F(MpiFailure, OfTheDuplicationLeavesACommunicatorThatIsNotLive) {
  std::unique_ptr<MpiComm> comm;

  std::string const log = CaptureStdout([&] {
    gFake.mFailing = "MPI_Comm_dup";
    comm = std::make_unique<MpiComm>(MPI_COMM_WORLD);
    gFake.mFailing.clear();
  });
  Outcome const outcome = OutcomeOf([&] { return comm->Barrier(); });

  EXPECT_EQ(log, FailureLine("MpiComm", "peer -1, 0 out, 0 in", kReason));
  EXPECT_EQ(comm->Rank(), -1);
  EXPECT_EQ(comm->Size(), -1);
  EXPECT_EQ(outcome.mStatus, STATUS_COMM_FAILED);
}

TEST_F(MpiFailure, OfTheErrorHandlerLeavesACommunicatorThatIsNotLiveAndStillFreed) {
  gFake.mCalls.clear();
  std::string const log = CaptureStdout([&] {
    gFake.mFailing = "MPI_Comm_set_errhandler";
    MpiComm const comm(MPI_COMM_WORLD);
    gFake.mFailing.clear();
    EXPECT_EQ(comm.Rank(), -1);
    EXPECT_EQ(comm.Size(), -1);
  });

  EXPECT_EQ(log, FailureLine("MpiComm", "peer -1, 0 out, 0 in", kReason));
  EXPECT_EQ(gFake.mCalls["MPI_Comm_dup"], 1);
  EXPECT_EQ(gFake.mCalls["MPI_Comm_free"], 1);
}

TEST_F(MpiFailure, OfTheReleaseIsALine) {
  auto comm = std::make_unique<MpiComm>(MPI_COMM_WORLD);

  std::string const log = CaptureStdout([&] {
    gFake.mFailing = "MPI_Comm_free";
    comm.reset();
    gFake.mFailing.clear();
  });

  EXPECT_EQ(log, FailureLine("~MpiComm", "peer -1, 0 out, 0 in", kReason));
}

TEST_F(MpiFailure, OfASplitIsALineAndNoCommunicator) {
  std::shared_ptr<Comm> part;
  std::string const log = CaptureStdout([&] {
    gFake.mFailing = "MPI_Comm_split";
    part = mComm.Split(0, 0);
    gFake.mFailing.clear();
  });

  EXPECT_EQ(part, nullptr);
  EXPECT_EQ(log, FailureLine("Split", "peer -1, 0 out, 0 in", kReason));
}

TEST_F(MpiFailure, OfASplitOnOneRankIsALineOnEveryRank) {
  std::shared_ptr<Comm> part;
  std::string const log = CaptureStdout([&] {
    if (mRank == 0) gFake.mFailing = "MPI_Comm_split after the call";
    part = mComm.Split(0, 0);
    gFake.mFailing.clear();
  });

  EXPECT_EQ(part, nullptr);
  EXPECT_EQ(log, FailureLine("Split", "peer -1, 0 out, 0 in",
                             mRank == 0 ? kReason : "the split has failed on another rank"));
}

TEST_F(MpiFailure, OfTheAgreementOnASplitIsALineAndNoCommunicator) {
  std::shared_ptr<Comm> part;
  std::string const log = CaptureStdout([&] {
    gFake.mFailing = "MPI_Allreduce";
    part = mComm.Split(0, 0);
    gFake.mFailing.clear();
  });

  EXPECT_EQ(part, nullptr);
  EXPECT_EQ(log, FailureLine("Split", "peer -1, 0 out, 0 in", kReason));
}

// The process without memory runs out of it in the first request of the split.
TEST_F(MpiFailure, OfMemoryForASplitIsALineOnEveryRankAndFreesTheGroup) {
  gFake.mCalls.clear();
  std::shared_ptr<Comm> part;
  std::string const log = CaptureStdout([&] {
    FailNewAt(mRank == 0 ? 1 : 0);
    part = mComm.Split(0, 0);
    FailNewAt(0);
  });

  EXPECT_EQ(part, nullptr);
  EXPECT_EQ(log, FailureLine("Split", "peer -1, 0 out, 0 in",
                             mRank == 0 ? "there is no memory for the communicator"
                                        : "the split has failed on another rank"));
  EXPECT_EQ(gFake.mCalls["MPI_Comm_free"], 1);
}

TEST_F(MpiFailure, OfTheAgreementAfterThatOfMemoryIsNoSecondLine) {
  std::shared_ptr<Comm> part;
  std::string const log = CaptureStdout([&] {
    FailNewAt(1);
    gFake.mFailing = "MPI_Allreduce";
    part = mComm.Split(0, 0);
    gFake.mFailing.clear();
    FailNewAt(0);
  });

  EXPECT_EQ(part, nullptr);
  EXPECT_EQ(log, FailureLine("Split", "peer -1, 0 out, 0 in",
                             "there is no memory for the communicator"));
}

TEST_F(MpiFailure, OfANullBufferIsLeftToMpiUnlessNothingIsReadFromIt) {
  auto const send = [&](int count) {
    OutcomeWithout("MPI_Allgather", [&] {
      return mComm.Allgather(nullptr, count, DATATYPE_LONG, mReceived, count, DATATYPE_LONG);
    });
    return gFake.mSent;
  };

  EXPECT_EQ(send(1), nullptr);
  EXPECT_NE(send(0), nullptr);
}

TEST_F(MpiFailure, IsNotAskedForByRefusedArguments) {
  gFake.mCalls.clear();

  OutcomeOf([&] { return mComm.Send(mSent, -1, DATATYPE_LONG, 0, 50); });
  OutcomeOf([&] { return mComm.Bcast(mSent, 1, static_cast<Datatype>(9), 0); });

  EXPECT_EQ(gFake.mCalls["MPI_Send"], 0);
  EXPECT_EQ(gFake.mCalls["MPI_Bcast"], 0);
}

}  // namespace Pavex
