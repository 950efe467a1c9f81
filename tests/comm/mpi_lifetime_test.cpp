// MpiComm objects before MPI is initialised, while it is live and after it is finalised. The
// suites run in the order of this file. MPI is live during the second one; a process can
// initialise it only once. Unlike mpi_main, this main does not initialise MPI.

#include "tests/comm/mpi_fixture.h"
#include "tests/support/mpi_processes.h"

#include <cstddef>
#include <malloc.h>
#include <memory>

namespace Pavex {

namespace {

int gExpectedProcesses = 0;

// Made before MPI is initialised, and destroyed after it is finalised.
std::unique_ptr<MpiComm> gEarly;
// Made while MPI is live, and destroyed after it is finalised.
std::unique_ptr<MpiComm> gSurvivor;

// Calls every operation that returns a status, with arguments that a live communicator accepts.
std::vector<Outcome> AllOperations(MpiComm const& comm) {
  int const count[8] = {1, 1, 1, 1, 1, 1, 1, 1};
  int const displ[8] = {0, 1, 2, 3, 4, 5, 6, 7};
  Datatype const type = DATATYPE_INT;
  int const sent[8] = {};
  int received[8] = {};
  return {
      OutcomeOf([&] { return comm.Barrier(); }),
      OutcomeOf([&] { return comm.Send(sent, 1, type, 0, 50); }),
      OutcomeOf([&] { return comm.Recv(received, 1, type, 0, 50); }),
      OutcomeOf([&] { return comm.Gatherv(sent, 1, type, received, count, displ, type, 0); }),
      OutcomeOf([&] { return comm.Scatterv(sent, count, displ, type, received, 1, type, 0); }),
      OutcomeOf([&] {
        return comm.Alltoallv(sent, count, displ, type, received, count, displ, type);
      }),
      OutcomeOf([&] { return comm.Allgather(sent, 1, type, received, 1, type); }),
      OutcomeOf([&] { return comm.Allgatherv(sent, 1, type, received, count, displ, type); }),
      OutcomeOf([&] { return comm.Allreduce(sent, received, 1, type, REDUCE_MAX); }),
      OutcomeOf([&] { return comm.Bcast(received, 1, type, 0); })};
}

void IgnoreErrors(MPI_Comm* /*comm*/, int* /*code*/, ...) {}

// Expects that Rank and Size are -1, and that every operation returns a status and logs why.
void ExpectNotLive(MpiComm const& comm) {
  EXPECT_EQ(comm.Rank(), -1);
  EXPECT_EQ(comm.Size(), -1);
  std::vector<std::string> const names = {"Barrier",   "Send",      "Recv",      "Gatherv",
                                          "Scatterv",  "Alltoallv", "Allgather", "Allgatherv",
                                          "Allreduce", "Bcast"};
  std::vector<Outcome> const outcomes = AllOperations(comm);
  ASSERT_EQ(outcomes.size(), names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    std::string const start =
        "[ERROR] MpiComm::" + names[i] + " failed on rank -1 of -1 (peer ";
    std::string const& log = outcomes[i].mLog;
    EXPECT_EQ(outcomes[i].mStatus, STATUS_COMM_FAILED);
    EXPECT_EQ(log.substr(0, start.size()), start);
    EXPECT_EQ(log.substr(log.find("): ")), "): no live MPI communicator\n");
  }
}

}  // namespace

TEST(BeforeMpiIsInitialised, NothingIsLive) {
  gEarly = std::make_unique<MpiComm>(MPI_COMM_WORLD);

  ExpectNotLive(*gEarly);
}

TEST(BeforeMpiIsInitialised, LeavesMpiUninitialised) {
  MpiComm const comm(MPI_COMM_WORLD);

  int initialised = 1;
  MPI_Initialized(&initialised);
  EXPECT_EQ(initialised, 0);
}

class WhileMpiLives : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    int provided = 0;
    MPI_Init_thread(nullptr, nullptr, MPI_THREAD_FUNNELED, &provided);
    int size = 0;
    MPI_Comm_size(MPI_COMM_WORLD, &size);
    ASSERT_EQ(size, gExpectedProcesses) << "the launcher of another MPI?";
  }
  static void TearDownTestSuite() { MPI_Finalize(); }
};

TEST_F(WhileMpiLives, AnEarlierObjectStaysWithoutRanks) {
  ExpectNotLive(*gEarly);
}

TEST_F(WhileMpiLives, RankAndSizeAreThoseOfTheGivenCommunicator) {
  int rank = -1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);

  gSurvivor = std::make_unique<MpiComm>(MPI_COMM_WORLD);

  EXPECT_EQ(gSurvivor->Rank(), rank);
  EXPECT_EQ(gSurvivor->Size(), gExpectedProcesses);
}

TEST_F(WhileMpiLives, ADuplicateWorksAfterTheGivenCommunicatorIsFreed) {
  MPI_Comm given = MPI_COMM_NULL;
  MPI_Comm_dup(MPI_COMM_WORLD, &given);
  MpiComm const comm(given);
  MPI_Comm_free(&given);

  int const one = 1;
  int sum = 0;
  PavexStatus const status = comm.Allreduce(&one, &sum, 1, DATATYPE_INT, REDUCE_SUM);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(sum, gExpectedProcesses);
}

TEST_F(WhileMpiLives, ASubsetOfTheProcessesHasRanksOfItsOwn) {
  int rank = -1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm alone = MPI_COMM_NULL;
  MPI_Comm_split(MPI_COMM_WORLD, rank, 0, &alone);

  MpiComm const comm(alone);
  MPI_Comm_free(&alone);

  EXPECT_EQ(comm.Rank(), 0);
  EXPECT_EQ(comm.Size(), 1);
}

TEST_F(WhileMpiLives, TheNullCommunicatorIsNotLive) {
  MpiComm const comm(MPI_COMM_NULL);

  ExpectNotLive(comm);
}

TEST_F(WhileMpiLives, ACommunicatorThatIsNotLiveCannotBeSplit) {
  MpiComm const comm(MPI_COMM_NULL);
  std::shared_ptr<Comm> part;

  std::string const log = CaptureStdout([&] { part = comm.Split(0, 0); });

  EXPECT_EQ(part, nullptr);
  EXPECT_EQ(log,
            "[ERROR] MpiComm::Split failed on rank -1 of -1 (peer -1, 0 out, 0 in): no "
            "live MPI communicator\n");
}

TEST_F(WhileMpiLives, AnIntercommunicatorIsRefusedWithALine) {
  int rank = -1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  bool const isFirst = rank == 0;
  MPI_Comm group = MPI_COMM_NULL;
  MPI_Comm inter = MPI_COMM_NULL;
  MPI_Comm_split(MPI_COMM_WORLD, isFirst ? 0 : 1, 0, &group);
  MPI_Intercomm_create(group, 0, MPI_COMM_WORLD, isFirst ? 1 : 0, 1, &inter);

  std::unique_ptr<MpiComm> comm;
  std::string const log = CaptureStdout([&] { comm = std::make_unique<MpiComm>(inter); });

  EXPECT_NE(log.find("): an intercommunicator has two groups\n"), std::string::npos) << log;
  ExpectNotLive(*comm);
  MPI_Comm_free(&inter);
  MPI_Comm_free(&group);
}

TEST_F(WhileMpiLives, TheCallersErrorHandlerStaysInPlace) {
  MPI_Errhandler own = MPI_ERRHANDLER_NULL;
  MPI_Comm_create_errhandler(IgnoreErrors, &own);
  MPI_Comm given = MPI_COMM_NULL;
  MPI_Comm_dup(MPI_COMM_WORLD, &given);
  MPI_Comm_set_errhandler(given, own);
  MPI_Errhandler worldBefore = MPI_ERRHANDLER_NULL;
  MPI_Comm_get_errhandler(MPI_COMM_WORLD, &worldBefore);
  MPI_Errhandler givenAfter = MPI_ERRHANDLER_NULL;
  MPI_Errhandler worldAfter = MPI_ERRHANDLER_NULL;

  {
    MpiComm const comm(given);
    EXPECT_EQ(comm.Barrier(), STATUS_OK);
    MPI_Comm_get_errhandler(given, &givenAfter);
    MPI_Comm_get_errhandler(MPI_COMM_WORLD, &worldAfter);
  }

  EXPECT_EQ(givenAfter, own);
  EXPECT_EQ(worldAfter, worldBefore);
  EXPECT_EQ(worldAfter, MPI_ERRORS_ARE_FATAL);
  MPI_Errhandler_free(&givenAfter);
  MPI_Errhandler_free(&own);
  MPI_Comm_free(&given);
}

TEST_F(WhileMpiLives, TenThousandRoundsLeakNeitherCommunicatorsNorMemory) {
  // MPICH can make about 2,000 communicators at once, so leaks would fail. With Open MPI leaks
  // show in the heap.
  int const warmUp = 1000;
  int const rounds = 10000;
  int const value = 3;
  std::vector<int> const ones(static_cast<std::size_t>(gExpectedProcesses), 1);
  std::vector<int> displs;
  for (int r = 0; r < gExpectedProcesses; ++r)
    displs.push_back(r);
  std::vector<int> values(ones.size());
  int good = 0;
  std::size_t before = 0;

  for (int round = 0; round < rounds; ++round) {
    if (round == warmUp) before = mallinfo2().uordblks;
    MpiComm const comm(MPI_COMM_WORLD);
    PavexStatus const status = comm.Gatherv(&value, 1, DATATYPE_INT, values.data(), ones.data(),
                                            displs.data(), DATATYPE_INT, 0);
    if (status == STATUS_OK) ++good;
  }

  std::size_t const after = mallinfo2().uordblks;
  EXPECT_EQ(good, rounds);
  // A round may cost less than 8 bytes: MPI's own pools may grow by a block, but not in each
  // round.
  EXPECT_LT(after, before + 8 * static_cast<std::size_t>(rounds - warmUp));
}

TEST(AfterMpiIsFinalised, AnEarlierObjectIsNotLive) {
  ASSERT_NE(gSurvivor, nullptr);

  ExpectNotLive(*gSurvivor);
}

TEST(AfterMpiIsFinalised, AnEarlierObjectIsDestroyedInSilence) {
  std::string const log = CaptureStdout([] {
    gSurvivor.reset();
    gEarly.reset();
  });

  EXPECT_EQ(log, "");
}

TEST(AfterMpiIsFinalised, ANewObjectIsNotLive) {
  MpiComm const comm(MPI_COMM_WORLD);

  ExpectNotLive(comm);
}

}  // namespace Pavex

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  Pavex::gExpectedProcesses = Pavex::ExpectedProcesses(argc, argv);
  return RUN_ALL_TESTS();
}
