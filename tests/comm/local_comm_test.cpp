#include "pavex/comm/local_comm.h"

#include <atomic>
#include <gtest/gtest.h>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace Pavex {
namespace {

using CommPtr = std::shared_ptr<Comm>;

// The status of every rank, each rank running `operation` once.
std::vector<PavexStatus> Statuses(int ranks,
                                  std::function<PavexStatus(Comm const&)> operation) {
  std::vector<PavexStatus> statuses(static_cast<std::size_t>(ranks), 1);
  LocalComm::Run(ranks, [&](CommPtr const& comm) {
    statuses[static_cast<std::size_t>(comm->Rank())] = operation(*comm);
  });
  return statuses;
}

std::vector<PavexStatus> All(int ranks, PavexStatus status) {
  return std::vector<PavexStatus>(static_cast<std::size_t>(ranks), status);
}

class LocalCommOf : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Ranks, LocalCommOf, testing::Values(1, 2, 3, 4, 7));

TEST_P(LocalCommOf, GathervPlacesPiecesOnRoot) {
  int const n = GetParam();
  int const root = n - 1;
  std::vector<int> gathered(static_cast<std::size_t>(n * (n + 1) / 2), -1);
  std::vector<int> expected;
  std::vector<int> counts;
  std::vector<int> displs;
  for (int r = 0; r < n; ++r) {
    counts.push_back(r + 1);
    displs.push_back(r * (r + 1) / 2);
    expected.insert(expected.end(), static_cast<std::size_t>(r + 1), 10 + r);
  }

  auto const statuses = Statuses(n, [&](Comm const& comm) {
    std::vector<int> const piece(static_cast<std::size_t>(comm.Rank() + 1), 10 + comm.Rank());
    bool const receives = comm.Rank() == root;
    return comm.Gatherv(piece.data(), comm.Rank() + 1, DATATYPE_INT,
                        receives ? gathered.data() : nullptr,
                        receives ? counts.data() : nullptr, receives ? displs.data() : nullptr,
                        DATATYPE_INT, root);
  });

  EXPECT_EQ(statuses, All(n, STATUS_OK));
  EXPECT_EQ(gathered, expected);
}

TEST(LocalComm, FailsReceiveFromRankThatHasReturned) {
  auto const statuses = Statuses(2, [&](Comm const& comm) {
    int value = 0;
    return comm.Rank() == 0 ? STATUS_OK : comm.Recv(&value, 1, DATATYPE_INT, 0, 5);
  });

  EXPECT_EQ(statuses, (std::vector<PavexStatus>{STATUS_OK, STATUS_COMM_FAILED}));
}

}  // namespace
}  // namespace Pavex
