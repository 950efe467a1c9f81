// The main function of the GoogleTest binaries that run as one MPI job of `--np <n>` processes.
// Every process runs every test, in step with the others. Rank 0 prints the usual report; each
// other rank prints its own failures. The job fails if any rank fails, if it has another number
// of processes, or if no test ran.

#include "tests/support/mpi_processes.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <mpi.h>

namespace {

// Names the rank of each failure. A fatal failure ends the whole job at the end of its test:
// this rank has left the test early, and the others would wait for it for ever.
class FailureReport : public testing::EmptyTestEventListener {
 public:
  explicit FailureReport(int rank) : mRank(rank) {}

  void OnTestPartResult(testing::TestPartResult const& result) override {
    if (!result.failed()) return;
    std::fprintf(stderr, "rank %d failed: %s:%d\n%s\n", mRank,
                 result.file_name() != nullptr ? result.file_name() : "?", result.line_number(),
                 result.summary());
    mFatal = mFatal || result.fatally_failed();
  }

  void OnTestEnd(testing::TestInfo const& info) override {
    if (!mFatal) return;
    std::fprintf(stderr, "rank %d ends the job after %s.%s\n", mRank, info.test_suite_name(),
                 info.name());
    std::fflush(stdout);
    MPI_Abort(MPI_COMM_WORLD, 1);
  }

 private:
  int mRank;
  bool mFatal = false;
};

void ReportFailuresOf(int rank) {
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  if (rank != 0) delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new FailureReport(rank));
}

// The worst result of all ranks, on every rank.
int RunTestsInStep() {
  int failed = RUN_ALL_TESTS();
  if (testing::UnitTest::GetInstance()->test_to_run_count() == 0) {
    std::fprintf(stderr, "no test ran\n");
    failed = 1;
  }
  MPI_Allreduce(MPI_IN_PLACE, &failed, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
  return failed;
}

}  // namespace

int main(int argc, char** argv) {
  int provided = 0;
  MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided);
  testing::InitGoogleTest(&argc, argv);
  int rank = 0;
  int size = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &size);

  int const expected = Pavex::ExpectedProcesses(argc, argv);
  int failed = 1;
  if (size == expected) {
    ReportFailuresOf(rank);
    failed = RunTestsInStep();
  } else {
    std::fprintf(stderr, "a job of %d processes, not of %d: the launcher of another MPI?\n",
                 size, expected);
  }
  MPI_Finalize();
  return failed;
}
