// Shared parts of the tests of MpiComm.

#pragma once

#include "pavex/comm/mpi_comm.h"
#include "tests/support/capture.h"

#include <algorithm>
#include <complex>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Pavex {

// An element of every type that MpiComm can carry.
template <typename T>
struct Element {
  using Value = T;
  static constexpr Datatype kType = DatatypeOf<T>::kValue;
};
struct ByteElement {
  using Value = unsigned char;
  static constexpr Datatype kType = DATATYPE_BYTE;
};
using AllElements =
    ::testing::Types<ByteElement, Element<int>, Element<long>, Element<float>, Element<double>,
                     Element<std::complex<float>>, Element<std::complex<double>>>;

// What an operation returned and what it logged.
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
  // The line that a failure on this rank logs: `what` is the operation, `counts` what goes out
  // and comes in.
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

// Pieces of unequal length: rank r has r % 3 elements, so rank 0 has none. In the whole array
// a gap of one element follows each piece.
//   ranks    0   1     2         3   4
//   counts   0   1     2         0   1
//   displs   0   1     3         6   7
struct RaggedPieces {
  explicit RaggedPieces(int size) {
    for (int r = 0, displ = 0; r < size; ++r) {
      mCounts.push_back(r % 3);
      mDispls.push_back(displ);
      displ += mCounts.back() + 1;
    }
  }
  std::size_t Length() const {
    return static_cast<std::size_t>(mDispls.back() + mCounts.back() + 1);
  }

  std::vector<int> mCounts;
  std::vector<int> mDispls;
};

}  // namespace Pavex
