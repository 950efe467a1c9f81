// Helpers of the LocalComm tests: ranks that run one function each, and the results.

#pragma once

#include "pavex/comm/local_comm.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace Pavex {

inline std::size_t Index(int rank) {
  return static_cast<std::size_t>(rank);
}

using Statuses = std::vector<PavexStatus>;

// Runs `operation` once on each rank and returns the statuses of all ranks.
inline Statuses RunRanks(
    int ranks, std::function<PavexStatus(Comm const& comm, int rank)> const& operation) {
  Statuses statuses(Index(ranks), 1);
  LocalComm::Run(ranks, [&](std::shared_ptr<Comm> const& comm) {
    statuses[Index(comm->Rank())] = operation(*comm, comm->Rank());
  });
  return statuses;
}

inline Statuses All(int ranks, PavexStatus status) {
  return Statuses(Index(ranks), status);
}

// Starts the ranks for the contract of communicators.
struct LocalRanks {
  static constexpr PavexStatus kRefused = STATUS_COMM_FAILED;

  static std::vector<int> Sizes() { return {1, 2, 3, 4, 7}; }

  static void Run(int size, std::function<void(Comm const& comm)> const& body) {
    LocalComm::Run(size, [&](std::shared_ptr<Comm> const& comm) { body(*comm); });
  }

  static std::shared_ptr<Comm> Split(Comm const& comm, int color, int key) {
    return dynamic_cast<LocalComm const&>(comm).Split(color, key);
  }
};

// A value that differs for every pair of rank and position.
inline long Mark(int rank, int position) {
  return 1000L * (rank + 1) + position;
}

// Piece r of a vector that is cut into n pieces has r % 3 * 2 elements, so that some are empty.
struct Cut {
  explicit Cut(int ranks) {
    for (int r = 0; r < ranks; ++r) {
      counts.push_back(r % 3 * 2);
      displs.push_back(total);
      total += counts.back();
    }
  }

  std::vector<long> Piece(int rank) const {
    std::vector<long> piece;
    for (int i = 0; i < counts[Index(rank)]; ++i) {
      piece.push_back(Mark(rank, i));
    }
    return piece;
  }

  std::vector<long> Whole() const {
    std::vector<long> whole;
    for (int r = 0; r < static_cast<int>(counts.size()); ++r) {
      for (long const value : Piece(r)) {
        whole.push_back(value);
      }
    }
    return whole;
  }

  std::vector<int> counts;
  std::vector<int> displs;
  int total = 0;
};

}  // namespace Pavex
