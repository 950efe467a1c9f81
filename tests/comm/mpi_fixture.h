// Shared parts of the tests of MpiComm.

#pragma once

#include "pavex/comm/mpi_comm.h"
#include "tests/support/capture.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace Pavex {

// The launcher for MPI. It starts nothing, because the ranks are the processes of this job.
struct MpiRanks {
  static constexpr PavexStatus kRefused = STATUS_INVALID_VALUE;

  static std::vector<int> Sizes() {
    int size = 0;
    MPI_Comm_size(MPI_COMM_WORLD, &size);
    return {size};
  }

  static void Run(int /*size*/, std::function<void(Comm const& comm)> const& body) {
    body(MpiComm(MPI_COMM_WORLD));
  }

  static std::shared_ptr<Comm> Split(Comm const& comm, int color, int key) {
    return dynamic_cast<MpiComm const&>(comm).Split(color, key);
  }
};

// The status and the log lines of an operation.
struct Outcome {
  PavexStatus mStatus = STATUS_OK;
  std::string mLog;
};

inline Outcome OutcomeOf(std::function<PavexStatus()> const& operation) {
  Outcome outcome;
  outcome.mLog = CaptureStdout([&] { outcome.mStatus = operation(); });
  return outcome;
}

// One communicator over the whole job, new for each test.
class MpiCommTest : public ::testing::Test {
 protected:
  // The line that a failure on this rank logs. `what` is the operation; `counts` are the
  // elements that go out and come in.
  std::string FailureLine(std::string const& what, std::string const& counts,
                          std::string const& reason) const {
    return "[ERROR] MpiComm::" + what + " failed on rank " + std::to_string(mRank) + " of " +
           std::to_string(mSize) + " (" + counts + "): " + reason + "\n";
  }

  MpiComm const mComm{MPI_COMM_WORLD};
  int const mRank = mComm.Rank();
  int const mSize = mComm.Size();
  int const mLast = mSize - 1;
};

}  // namespace Pavex
