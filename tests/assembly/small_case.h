// Assemblies that are small enough to check by hand.

#pragma once

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/trace_comm.h"

#include <functional>
#include <memory>
#include <vector>

namespace Pavex {

using Own = Contribution<double, int>;

inline AssemblyRequest Square(int rows, int receiver = 0) {
  AssemblyRequest request;
  request.mRows = request.mCols = rows;
  request.mReceiver = receiver;
  return request;
}

template <typename E>
std::vector<E> List(Buffer<E> const& buffer) {
  return std::vector<E>(buffer.mData, buffer.mData + buffer.mSize);
}

using Body = std::function<void(std::shared_ptr<TraceComm> const& comm,
                                Assembler<double, int>& assembler)>;

// Runs `body` on each rank with a pool of its own.
inline void OnRanks(int ranks, Body const& body) {
  LocalComm::Run(ranks, [&body](std::shared_ptr<Comm> const& comm) {
    LedgerPool pool;
    auto const traced = std::make_shared<TraceComm>(comm);
    Assembler<double, int> assembler(&pool);
    body(traced, assembler);
  });
}

// Bands of a 4 x 4 matrix on ranks 2 and 0; rank 1 has nothing and receives.
//   rank 2:  1 .  . .      rank 0:  . .  4 .
//            2 3  . .               . .  . 5
struct TwoBands {
  std::vector<int> offsets[3] = {{0, 1, 2}, {}, {0, 1, 3}};
  std::vector<int> cols[3] = {{2, 3}, {}, {0, 0, 1}};
  std::vector<double> values[3] = {{4, 5}, {}, {1, 2, 3}};

  Own Of(int rank) const {
    if (rank == 1) return {};
    return Own::Band(rank == 0 ? 2 : 0, 2)
        .Csr(offsets[rank].data(), cols[rank].data(), values[rank].data());
  }
};

// Two processes that both have the rows 0 and 1 of a 3 x 3 matrix.
struct SharedRows {
  std::vector<int> offsets = {0, 1, 2};
  std::vector<int> cols = {1, 2};

  Own Pass(double const* values) const {
    return Own::Band(0, 2).Csr(offsets.data(), cols.data(), values);
  }
};

}  // namespace Pavex
